#pragma once
// The weight parameters shared by every weight-based analysis, and the two
// enumerations it carries. The enumerations' numbers are also written into
// weights files, so they never change.
#include <cstdint>
#include <limits>

#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoPartitionInformation.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

// The most permutations a permutation test may ask for (`Permutations`).
inline constexpr std::int32_t kMaxPermutations = 1000000;

// How neighbours and their weights are defined.
enum ZoConceptualizationModel : std::int32_t {
  InverseDistance = 1,         // 1 / d^Exponent within the band
  InverseDistanceSquared = 2,  // 1 / (d²)^Exponent within the band
  FixedDistanceBand = 3,       // 1 within the band
  ZoneOfIndifference = 4,      // 1 within the band, decaying beyond it
  ContiguityEdgesOnly = 5,     // regions sharing a boundary stretch
  ContiguityEdgesCorners = 6,  // regions sharing a boundary stretch or a point
  KNearestNeighbors = 7,       // the K nearest features
  SpatialWeightsFile = 8,      // read from a weights matrix file
};

// The distance metric. Only the value 1 means Euclidean; every other value
// means Manhattan. Geographic data always uses Euclidean distances.
enum ZoDistanceMethod : std::int32_t {
  Euclidean = 1,
  Manhattan = 2,
};

class SA_API ZoPatternsInformation {
 public:
  ZoPatternsInformation();
  ZoPatternsInformation(const ZoPatternsInformation& other);
  ZoPatternsInformation& operator=(const ZoPatternsInformation& other);
  ~ZoPatternsInformation();

  // The numeric analysis field. Must name a numeric field of the input.
  LumaUnicodeString FieldName;
  ZoConceptualizationModel Conceptualization = InverseDistance;
  // The distance band in dataset units; -1 asks for the default band (every
  // feature gets at least one neighbour); 0 means no limit.
  double DistanceTolerance = -1.0;
  // Power of the distance in the inverse-distance conceptualizations; ≥ 0.
  double Exponent = 1.0;
  // Neighbours per feature for K nearest; 1 ≤ K < record count (always checked).
  std::int32_t KNeighbors = 1;
  // Divide each weight by its row's sum.
  bool Standardization = false;
  // A second numeric field (self weights of the hot spot analysis).
  LumaUnicodeString SecondFieldName;
  // Report confidence bins corrected for the false discovery rate.
  bool FDRCorrection = false;
  // The weights matrix file; required with SpatialWeightsFile.
  LumaUnicodeString WeightsFilePath;
  ZoDistanceMethod DistanceMethod = Euclidean;
  // Bytes the weights an analysis builds for itself may take in memory; 0 or
  // less means a quarter of physical memory. Weights beyond it go through a
  // temporary weights file instead, with the same results.
  std::int64_t WeightsMemoryBudget = 0;
  // Polygon contiguity: boundaries closer than this distance, in dataset
  // units, count as touching. 0 means 1e-9 of the larger side of the data
  // extent, which absorbs last-digit disagreements only; data whose shared
  // boundaries were digitized apart (slivers, gaps of a millimetre) need a
  // tolerance of their own. Must be finite and 0 or more.
  double SnapTolerance = 0.0;
  // Permutation inference beside the analytic p-values (Moran's I, General
  // G, Gi* and local Moran's I): the number of permutations, 0 to kMaxPermutations;
  // 0, the default, runs none. Local statistics are tested by conditional
  // randomization (each feature keeps its value, its neighbours' values are
  // drawn from the others), global ones by shuffling all values.
  std::int32_t Permutations = 0;
  // The seed of the permutations' random numbers: the same seed gives the
  // same results on any number of threads and any platform.
  std::uint64_t Seed = 0;
  // Analyse one spatial part of a larger dataset (ZoPartitionInformation.h);
  // inactive by default. Permutations, the false discovery rate and weights
  // files need the whole dataset and are refused ("ESa110") in a part, as are
  // weights that reach every feature (zone of indifference, no band limit).
  ZoPartition Partition;
};

// The result of a global statistic (ZoAnalyzingPatterns::ZoAnalyzingExponent),
// written only when the analysis succeeds.
struct ZoAnalyzingExponent {
  double Index = 0.0;          // the observed statistic
  double ExpectedIndex = 0.0;  // its expectation under the null hypothesis
  double Variance = 0.0;       // its variance under the null hypothesis
  double ZScore = 0.0;         // (Index − ExpectedIndex) / sqrt(Variance)
  double PValue = 0.0;         // two-sided p-value of ZScore
  // The permutation test, when permutations were asked for (else
  // Permutations is 0 and the others NaN): the folded pseudo p-value
  // (min(#sim ≥ obs, #sim ≤ obs) + 1) / (P + 1), and the mean, variance
  // (divisor P - 1) and z-score of the observed statistic against the
  // simulated ones.
  std::int32_t Permutations = 0;
  double PseudoPValue = std::numeric_limits<double>::quiet_NaN();
  double SimulatedMean = std::numeric_limits<double>::quiet_NaN();
  double SimulatedVariance = std::numeric_limits<double>::quiet_NaN();
  double SimulatedZScore = std::numeric_limits<double>::quiet_NaN();
};

}  // namespace ZOC
