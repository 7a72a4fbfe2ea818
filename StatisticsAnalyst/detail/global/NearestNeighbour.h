#pragma once
// Average nearest neighbour: the mean distance from each feature's
// representative point to its nearest neighbour against the mean expected
// for a random pattern of as many features in the study area.
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC::detail::global {

struct NearestNeighbourInput {
  double area = 0.0;  // 0: the minimum-area rectangle of the points
  ZoDistanceMethod method = Euclidean;
  bool useDefaultWidth = false;
  double width = 0.0;
};

// The statistic of the dataset's features (ZoAnalyzingPatterns::
// AverageNearestNeighbor describes the inputs and the result's slots).
// Geographic data is unwrapped across the antimeridian for the study area
// and projected around the points' own centre for the search.
Status AverageNearestNeighbour(ZoDatasetVector* dataset, const NearestNeighbourInput& input,
                               detail::CallProgress& progress, ZoAnalyzingExponent& result);

}  // namespace ZOC::detail::global
