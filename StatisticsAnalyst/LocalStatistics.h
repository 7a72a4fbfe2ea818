#pragma once
// The per-feature statistics of the cluster maps, as pure functions over a
// feature's sparse weights row: Getis–Ord Gi*, Anselin's local Moran's I,
// the confidence bins (plain and false-discovery-rate) and the cluster and
// outlier types. A zero weight contributes nothing to any sum, so a row of
// stored weights gives exactly the sums over all n features.
#include <cstdint>
#include <string>
#include <vector>

#include "StatisticsAnalyst/GlobalStatisticSums.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC::local {

// Gi* of feature i: the row's weights with the self weight on the diagonal
// (a stored diagonal weight is replaced). mean and sd are the population
// mean and standard deviation of all values. No guard: constant values give
// an infinite or NaN z, as the arithmetic has it. out = {z, p}.
void GiStar(const LumaArray<double>& x, const ZoSparseRow& row, std::int64_t i, double selfWeight, double mean,
            double sd, double out[2]);

// Plain bins: ±3 for p < 0.01, ±2 for p < 0.05, ±1 for p < 0.1 (strict), the
// sign of z; z = 0 or NaN leaves the bin as it is. False for unequal lengths.
bool Confidence(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins);
// Benjamini–Hochberg step-up at the 0.1, 0.05 and 0.01 levels, walking the
// p-values from the largest: at rank m (of n) a level counts when m·level/n
// ≥ p; the count of passed levels replaces the running level until it
// reaches 3, where it stays. The sign comes from the z-score against the mean
// of all z-scores (a z at the mean counts as positive). Ties among equal p
// keep ascending feature order. False for unequal lengths.
bool FdrAdjusted(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins);

// The moments of the values that every feature's local Moran's I shares.
struct MoranMoments {
  explicit MoranMoments(const LumaArray<double>& x);
  double mean = 0, m2 = 0, m4 = 0;  // Σ d², Σ d⁴ over all features
  LumaArray<double> d;              // deviations from the mean
};
// Local Moran's I of feature i: out = {I, z, p, lag}. A row without weight
// gives {0, 0, 1, 0}. Returns null or the message identifier ("ESa021" for
// constant values, "ESa027" for a variance that is not positive).
const char* LocalMoran(const LumaArray<double>& x, const MoranMoments& moments, const ZoSparseRow& row,
                       std::int64_t i, double out[4]);
// "HH", "LL", "HL", "LH" for features with p < 0.05 (and |bin| ≥ 2 when FDR
// bins are given), by the sign of I, the deviation and the lag; others keep
// their type. Returns null or "ESa039" / "ESa040" for unequal lengths.
const char* ClusterOutlierTypes(const LumaArray<double>& I, const LumaArray<double>& p, const LumaArray<double>& d,
                                const LumaArray<double>& lag, const LumaArray<int>& bins,
                                LumaArray<LumaUnicodeString>& types);

}  // namespace ZOC::local
