#pragma once
// The parameters and the result of the geographical detector: how much of
// the variance of a dependent field the strata of each explanatory factor
// explain (factor detector), how two factors act together (interaction
// detector), whether the dependent field's mean differs between two strata
// of a factor (risk detector) and whether one factor explains significantly
// more than another (ecological detector).
#include <cstdint>
#include <vector>

#include "host/LumaUnicodeString.h"

namespace ZOC {

// How a real-valued factor is cut into classes: at its quantiles (R's
// quantile type 7), in classes of equal width, at the natural breaks
// (Jenks: the partition with the least within-class sum of squares), or in
// classes one standard deviation wide centred on the mean.
enum ZoDiscretization : std::int32_t {
  DiscretizeQuantile = 1,
  DiscretizeEqualInterval = 2,
  DiscretizeNaturalBreaks = 3,
  DiscretizeStandardDeviation = 4,
};

// The detectors to run, as bits; the factor detector's q of every factor is
// computed whatever is asked, since the interaction detector compares with it.
enum ZoDetectorSet : std::int32_t {
  DetectFactor = 1,
  DetectInteraction = 2,
  DetectRisk = 4,
  DetectEcological = 8,
  DetectAll = 15,
};

struct ZoGeoDetectorInformation {
  LUMA::LumaUnicodeString DependentField;  // numeric
  // Integer and text fields are taken as categories, one stratum per
  // distinct value; real fields are discretized, unless they are named in
  // CategoricalFields too.
  std::vector<LUMA::LumaUnicodeString> FactorFields;
  std::vector<LUMA::LumaUnicodeString> CategoricalFields;
  ZoDiscretization Discretization = DiscretizeQuantile;
  std::int32_t Classes = 5;  // 2 to 30
  double Alpha = 0.05;       // significance of the risk and ecological detectors
  std::int32_t Detectors = DetectAll;
};

struct ZoDetectorStratum {
  // The category ("3", "north") or the class interval ("[1.5, 4]", "(4, 7.25]").
  LUMA::LumaUnicodeString Label;
  std::int64_t Count = 0;
  double Mean = 0.0;      // of the dependent field
  double Variance = 0.0;  // population variance (divided by Count)
};

// Welch's t-test of the difference between two strata's means, two-sided at
// the chosen significance. Not tested (Tested false, numbers NaN) when a
// stratum holds one feature, or both hold one value each.
struct ZoRiskPair {
  std::int32_t First = 0;  // stratum indices into ZoDetectorFactor::Strata
  std::int32_t Second = 0;
  bool Tested = false;
  double T = 0.0;  // (mean of First − mean of Second) / standard error
  double DegreesOfFreedom = 0.0;
  double Critical = 0.0;  // the t quantile at 1 − alpha/2
  double PValue = 0.0;
  bool Significant = false;  // |T| > Critical
};

struct ZoDetectorFactor {
  LUMA::LumaUnicodeString Field;
  bool Discretized = false;
  std::vector<double> Breaks;  // the class limits, when discretized
  std::vector<ZoDetectorStratum> Strata;
  // q = 1 − SSW/SST, F = (N − L)/(L − 1) · q/(1 − q), its non-centrality
  // λ and p = P(F' > F) for the non-central F with L − 1 and N − L degrees
  // of freedom.
  double Q = 0.0;
  double F = 0.0;
  double NonCentrality = 0.0;
  double PValue = 0.0;
  double WithinSumOfSquares = 0.0;  // SSW = Σ N_h σ_h²
  std::vector<ZoRiskPair> Risk;     // every pair of strata, when asked
};

// The published five relationships of q(X1 ∩ X2) with q(X1) and q(X2).
enum ZoInteractionKind : std::int32_t {
  InteractionNonlinearWeaken = 1,   // q12 < min(q1, q2)
  InteractionUniWeaken = 2,         // min(q1, q2) ≤ q12 ≤ max(q1, q2)
  InteractionBiEnhance = 3,         // max(q1, q2) < q12 < q1 + q2
  InteractionIndependent = 4,       // q12 = q1 + q2
  InteractionNonlinearEnhance = 5,  // q12 > q1 + q2
};

struct ZoDetectorInteraction {
  std::int32_t First = 0;  // factor indices, First < Second
  std::int32_t Second = 0;
  double Q = 0.0;           // q of the strata formed by both factors together
  std::int64_t Strata = 0;  // non-empty strata of the intersection
  ZoInteractionKind Kind = InteractionIndependent;
};

// Whether factor Second explains significantly more of the variance than
// First: F = N1 (N2 − 1) SSW1 / (N2 (N1 − 1) SSW2) against the F quantile
// at 1 − alpha with N1 − 1 and N2 − 1 degrees of freedom. Every ordered
// pair of factors is reported.
struct ZoEcologicalPair {
  std::int32_t First = 0;
  std::int32_t Second = 0;
  double F = 0.0;
  double Critical = 0.0;
  double PValue = 0.0;  // P(F' > F)
  bool Significant = false;
};

struct ZoGeoDetectorResult {
  std::int64_t Count = 0;                 // N, the features analysed
  double Mean = 0.0;                      // of the dependent field
  double Variance = 0.0;                  // σ², population
  std::vector<ZoDetectorFactor> Factors;  // in the order they were named
  std::vector<ZoDetectorInteraction> Interactions;
  std::vector<ZoEcologicalPair> Ecological;
};

}  // namespace ZOC
