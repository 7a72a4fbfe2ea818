#pragma once
// The four detectors of the geographical detector, on the dependent values
// and the stratum of every record. Pure arithmetic: no records, no
// messages. Sums of squares are taken about the means (two passes), so
// values far from 0 keep their precision.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"

namespace ZOC::detail::geodetector {

// A factor's strata: the stratum of every record, 0 to count − 1, every
// stratum holding at least one record.
struct Stratification {
  std::vector<std::int32_t> of;
  std::int32_t count = 0;
};

// The dependent values' count, mean and sum of squares within each stratum
// (Σ (y − mean_h)²), and over all records.
struct Moments {
  std::vector<std::int64_t> counts;
  std::vector<double> means;
  std::vector<double> squares;
  double Within() const;  // SSW = Σ_h squares_h
};
struct Totals {
  std::int64_t n = 0;
  double mean = 0.0;
  double squares = 0.0;  // SST
};

Totals TotalsOf(const std::vector<double>& y);
// q = 1 − SSW/SST, held to [0, 1] against rounding.
double QStatistic(double within, const Totals& totals);
Moments MomentsOf(const std::vector<double>& y, const Stratification& strata);

// Fills the factor's strata (count, mean, population variance) and its
// factor detector: q, F, the non-centrality and the p-value of the
// non-central F. q and the non-centrality are held at 0 and above against
// rounding (both are non-negative in exact arithmetic).
void FactorDetector(const Moments& moments, const Totals& totals, ZoDetectorFactor& factor);

// Welch's t-test of every pair of strata, two-sided at alpha.
std::vector<ZoRiskPair> RiskDetector(const Moments& moments, double alpha);

// Whether factor `second` explains significantly more than `first`, from
// their within-strata sums of squares.
ZoEcologicalPair EcologicalDetector(std::int32_t first, std::int32_t second, double withinFirst, double withinSecond,
                                    std::int64_t n, double alpha);

// The strata formed by two factors together: one per pair of strata that
// share a record.
Stratification Intersect(const Stratification& a, const Stratification& b);

// q1 + q2 and q12 are compared within this absolute tolerance (q lies in
// [0, 1]; rounding moves it by far less).
inline constexpr double kInteractionTolerance = 1e-10;
ZoInteractionKind ClassifyInteraction(double q1, double q2, double q12);

}  // namespace ZOC::detail::geodetector
