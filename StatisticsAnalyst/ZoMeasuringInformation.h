#pragma once
// The parameter record of the geographic-distribution measures
// (ZoSpatialMeasure) and the two enumerations it carries. The record is also
// reachable under its class: ZoSpatialMeasure::ZoMeasuringInformation.
#include <cstdint>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaUnicodeString;

// How a statistics field is summarised per group. The suffix, after "_",
// names the result field: "MAX", "MIN", "Sum", "Mean", "First", "Last",
// "Median" (the uneven casing is part of the result format).
enum ZoStatisticsType : std::int32_t {
  StatisticsMax = 1,     // largest value, as a double
  StatisticsMin = 2,     // smallest value, as a double
  StatisticsSum = 3,     // sum of the values
  StatisticsMean = 4,    // sum / number of features of the group (nulls included)
  StatisticsFirst = 5,   // the group's first feature's value, in the field's own type
  StatisticsLast = 6,    // the group's last feature's value (null when it is null)
  StatisticsMedian = 7,  // median of the non-null values
};

// How many standard deviations a standard-distance circle or a standard
// deviational ellipse spans. Other codes stand for the factor 0.
enum ZoEllipseSize : std::int32_t {
  OneStandardDeviation = 1,
  TwoStandardDeviations = 2,
  ThreeStandardDeviations = 3,
};

struct ZoMeasuringInformation {
  // Relative convergence tolerance of the median centre; a value within
  // ±1e-20 of 0 means 1e-6.
  double Tolerance = 0.0;
  // Numeric field weighting each feature; empty means every weight is 1.
  // Values not above 0 (and nulls) weigh 0 but keep their feature counted.
  LumaUnicodeString WeightField;
  // The central feature's second weight: each feature's own term in its sum
  // of weighted distances. Empty means 0.
  LumaUnicodeString SelfWeightField;
  ZoEllipseSize EllipseSize = OneStandardDeviation;
  // Field whose equal values form the groups; empty means one group of all features.
  LumaUnicodeString CaseField;
  // Input fields summarised per group, each with the type at the same position.
  LumaArray<LumaUnicodeString> StatisticsFields;
  LumaArray<ZoStatisticsType> StatisticsTypes;
  // Distance of the central-feature search (Euclidean for geographic data).
  ZoDistanceMethod DistanceMethod = Euclidean;
  // Linear directional mean: opposite directions count as one orientation.
  bool OrientationOnly = false;
};

}  // namespace ZOC
