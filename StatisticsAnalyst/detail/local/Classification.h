#pragma once
// The confidence bins of the local statistics: plain, and corrected for the
// false discovery rate over all features.
//
// A z-score that is not finite (constant values give ±inf or NaN, as the
// arithmetic has it) is never significant: its bin is 0. A constant field
// has no hot spots.
#include <cstdint>
#include <vector>

#include "host/LumaArray.h"

namespace ZOC::detail::local {

using LUMA::LumaArray;

// Plain bins: ±3 for p < 0.01, ±2 for p < 0.05, ±1 for p < 0.1 (strict), the
// sign of z; z = 0 or NaN leaves the bin as it is. False for unequal lengths.
bool Confidence(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins);
// Benjamini–Hochberg step-up at the 0.1, 0.05 and 0.01 levels, walking the
// p-values from the largest: at rank m (of n) a level counts when m·level/n
// ≥ p; the count of passed levels replaces the running level until it
// reaches 3, where it stays. The sign comes from the z-score against the mean
// of the finite z-scores (a z at the mean counts as positive). Ties among
// equal p keep ascending feature order. False for unequal lengths.
bool FdrAdjusted(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins);

// The walk of FdrAdjusted over the features that can pass a level (p ≤ 0.1,
// which every larger p precedes, leaving the running level at 0) among n:
// `candidates` are sorted in walk order (p descending, id ascending) and
// `levels` gets each one's level. What FdrAdjusted does with all p-values
// at hand, parts of a dataset do with their candidates put together.
struct FdrCandidate {
  std::int64_t id;
  double p;
};
void FdrLevels(std::vector<FdrCandidate>& candidates, std::int64_t n, std::vector<int>& levels);
// Whether p can pass a level of FdrAdjusted.
inline bool FdrCandidatePvalue(double p) { return p <= 0.1; }
// The mean of the finite statistics that FdrAdjusted takes signs against.
double FiniteMean(const LumaArray<double>& z);

}  // namespace ZOC::detail::local
