#pragma once
// Integration (collecting events): incidents close together become one
// weighted location, so that the analysis sees how many incidents each place
// had rather than a cloud of near-duplicates.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC::detail::aggregation {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

struct MergedIncidents {
  LumaArray<LumaPoint2D> points;              // one per group: the mean location of its incidents
  std::vector<std::int64_t> counts;           // incidents per group
  std::vector<std::int64_t> groupOfIncident;  // per incident, its group
};

// Incidents are taken in their order; each one not yet grouped starts a group
// (groups are numbered in that order) and takes every ungrouped incident
// within `tolerance` of it (distance by `method`, boundary included), so a
// group's incidents lie within `tolerance` of its first one and groups do not
// chain. Tolerance 0 merges coincident incidents only. One radius search per
// group over a KD tree: the first incidents of groups lie more than
// `tolerance` apart, so an incident is found by a bounded number of searches.
// "ESa088" for a negative or non-finite tolerance, "ESa089" for a non-finite
// point, "ESa032" when the tree cannot be built, "IMb030" when cancelled
// through `progress` (stepped per chunk of incidents with IMb396's "incident
// %1 of %2"). `out` is replaced only on success. May throw std::bad_alloc.
Status Integrate(const LumaArray<LumaPoint2D>& points, double tolerance, ZoDistanceMethod method,
                 CallProgress& progress, MergedIncidents& out);

// The default tolerance: the mean nearest-neighbour distance of the incidents
// not flagged in `outliers`, over their distinct locations (InlierSpacing).
// "ESa087" when they all lie at one location; InlierSpacing's other failures.
Status DefaultTolerance(const LumaArray<LumaPoint2D>& points, const std::vector<char>& outliers,
                        ZoDistanceMethod method, double& tolerance);

}  // namespace ZOC::detail::aggregation
