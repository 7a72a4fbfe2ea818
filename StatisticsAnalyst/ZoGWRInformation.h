#pragma once
// The parameter and result records of geographically weighted regression
// (ZoSpatialRelModeling::GeographicWeightedRegression).
#include <cstdint>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaArray;

// How a neighbour's weight falls with its distance d from the regression
// point, for the bandwidth b.
enum ZoGWRKernel : std::int32_t {
  GWRGaussian = 1,  // exp(−½ (d/b)²), every feature
  GWRBisquare = 2,  // (1 − (d/b)²)² for d < b, else 0
};

// What the bandwidth measures.
enum ZoGWRBandwidthType : std::int32_t {
  GWRFixed = 1,     // a distance, the same everywhere
  GWRAdaptive = 2,  // a number of nearest features (the feature itself
                    // included); b is the distance to the last of them
};

struct ZoGWRInformation {
  LumaUnicodeString DependentField;
  LumaArray<LumaUnicodeString> ExplanatoryFields;
  ZoGWRKernel Kernel = GWRBisquare;
  ZoGWRBandwidthType BandwidthType = GWRAdaptive;
  // The bandwidth; -1 chooses it by golden-section search on AICc. Adaptive
  // bandwidths are whole numbers of features, at most the feature count.
  double Bandwidth = -1.0;
  // Euclidean or Manhattan; geographic data is always Euclidean in metres.
  ZoDistanceMethod DistanceMethod = Euclidean;
};

struct ZoGWRResult {
  std::int64_t FeatureCount = 0;
  double Bandwidth = 0.0;  // used (given or found)
  bool BandwidthSearched = false;
  double AICc = 0.0;
  double EffectiveParameters = 0.0;  // trace of the hat matrix
  double RSS = 0.0;
  double Sigma = 0.0;  // sqrt(RSS / (n − trace))
  double R2 = 0.0, AdjustedR2 = 0.0;
};

}  // namespace ZOC
