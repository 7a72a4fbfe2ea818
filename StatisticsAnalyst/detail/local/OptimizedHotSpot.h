#pragma once
// The optimized hot spot analysis: Gi* with its parameters taken from the
// data. Incidents are aggregated into counts (grid cells, integrated points
// or given polygons); the distance band is the first peak of the
// incremental spatial autocorrelation of the counts (or of the field), or,
// without a peak, the mean distance to the K-th nearest neighbour; then Gi*
// with FDR-corrected bins runs over the aggregated layer exactly as the hot
// spot analysis would with that band.
#include "StatisticsAnalyst/ZoOptimizedInformation.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/ZoDatasetVector.h"

namespace ZOC::detail::local {

// The dataset type the result must have: the source's with an analysis
// field; regions for grid cells and polygons, points for integration.
int OptimizedResultType(const ZoOptimizedInformation& info, int sourceType);

// Runs the analysis into the empty `result` (of OptimizedResultType) and
// fills `report`. Failures: "EEg002", "EEg032", "EEe018" (incidents must be
// points), "EEe017", "ESa090" (too few incidents or features), "ESa092" /
// "ESa093" (aggregation polygons missing, not regions, or in another
// coordinate system), "ESa094" (unknown aggregation), "ESa091" (every
// aggregated feature holds the same count), the aggregation's, the
// incremental autocorrelation's and the hot spot analysis' own, "IMb030".
Status OptimizedHotSpot(ZoDatasetVector* source, ZoDatasetVector* result, const ZoOptimizedInformation& info,
                        CallProgress& progress, ZoOptimizedReport& report);

}  // namespace ZOC::detail::local
