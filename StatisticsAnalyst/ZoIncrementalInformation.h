#pragma once
// The parameters and the result of the incremental spatial autocorrelation:
// global Moran's I of one field over a series of fixed distance bands.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

struct ZoIncrementalInformation {
  LUMA::LumaUnicodeString FieldName;
  // The first band; 0 takes the smallest distance at which every feature has
  // a neighbour (the largest nearest-neighbour distance).
  double BeginDistance = 0.0;
  // The step from band to band; 0 takes the mean nearest-neighbour distance.
  double Increment = 0.0;
  std::int32_t Bands = 10;  // 1 to 50
  bool Standardization = false;
  ZoDistanceMethod DistanceMethod = Euclidean;
};

// One band: its distance and Moran's I with fixed distance band weights at
// that distance, as SpatialAutocorrelation gives it. A band whose statistic
// cannot be computed (no feature has a neighbour yet, for a beginning
// distance given too small) has Valid false and is never a peak.
struct ZoIncrementalBand {
  double Distance = 0.0;
  bool Valid = false;
  ZoAnalyzingExponent Moran;
};

struct ZoIncrementalResult {
  std::vector<ZoIncrementalBand> Bands;
  double BeginDistance = 0.0;
  double Increment = 0.0;
  bool DefaultBegin = false;      // BeginDistance was taken by default
  bool DefaultIncrement = false;  // Increment was taken by default
  // Bands whose z-score is higher than both neighbouring bands': the first
  // of them and the highest (-1 when there is none).
  std::int32_t FirstPeak = -1;
  std::int32_t MaxPeak = -1;
};

}  // namespace ZOC
