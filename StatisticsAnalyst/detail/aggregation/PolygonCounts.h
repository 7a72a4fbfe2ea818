#pragma once
// Incident counts per polygon.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoGeometry.h"

namespace ZOC::detail::aggregation {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

// For every polygon (region geometries, in order), the incidents inside it
// or on its boundary (ZoGeometry::ContainsPoint); an incident inside several
// polygons counts for the first only; -1 in polygonOfIncident for an
// incident in none. Polygons with no incident, empty geometries and
// geometries that are not regions keep a count of 0. The candidates of a
// polygon are the points within its bounds, found through a KD tree over the
// points, and a polygon of many vertices is prepared (ZoPreparedRegion), so
// the cost is about n log n plus the candidates tested. Polygons are tested
// on every core; an incident keeps the smallest polygon number that holds
// it, so the result does not depend on the thread count. Memory O(n) beyond
// the inputs. "ESa089" for a non-finite point or a region with a non-finite
// vertex, "IMb030" when cancelled through `progress` (stepped per chunk of
// polygons with IMb397's "polygon %1 of %2"). The outputs are replaced only
// on success. May throw std::bad_alloc.
Status CountInPolygons(const LumaArray<LumaPoint2D>& points, const std::vector<ZoGeometry>& polygons,
                       CallProgress& progress, std::vector<std::int64_t>& counts,
                       std::vector<std::int64_t>& polygonOfIncident);

}  // namespace ZOC::detail::aggregation
