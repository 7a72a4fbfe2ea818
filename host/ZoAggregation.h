#pragma once
// ZoAggregation: density-based aggregation of points (DBSCAN).
//
// A point is a core point when at least `minCount` points lie within
// `distance` of it, itself included and the boundary included. Core points
// within `distance` of each other share a cluster; a non-core point within
// `distance` of a core point joins the first cluster that reaches it; every
// other point is in no cluster (0). Clusters are numbered 1, 2, ... in the
// order in which their first core point appears in the point array.
//
// Every point's neighbourhood is asked of the KD tree exactly once, never all
// pairs; memory is the labels plus one queue of points and the neighbours of
// one point.
#include <cstdint>
#include "host/HostExport.h"

#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC {

class ZoProgress;

class SA_HOST_API ZoAggregation {
 public:
  // Fills `clusterIds` with one cluster number per point (0 = none).
  // Returns 1 on success, 0 when the tree cannot be built (a non-finite
  // coordinate) or memory runs out, and -1 when the progress object (may be
  // null) reports a cancellation. Distances are Euclidean.
  static int AggregatePoints(const LUMA::LumaArray<LUMA::LumaPoint2D>& points, double distance, int minCount,
                             LUMA::LumaArray<std::int32_t>& clusterIds, ZoProgress* progress = nullptr);
};

}  // namespace ZOC
