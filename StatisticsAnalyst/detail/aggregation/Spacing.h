#pragma once
// How far apart the incidents lie, the measure the default cell size and the
// default integration tolerance are both derived from.
#include <cstddef>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC::detail::aggregation {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

struct Spacing {
  double meanNearest = 0.0;  // mean nearest-neighbour distance over the distinct locations
  double longerSide = 0.0;   // the longer side of the locations' bounding box
  std::size_t locations = 0;
};

// The spacing of the incidents not flagged in `outliers` (an index beyond
// the end of `outliers` counts as not flagged), taken over their distinct
// locations: incidents at exactly the same coordinates are one location, so
// stacked incidents do not pull the mean towards 0. Distances by `method`.
// "ESa089" for an inlying point with a non-finite coordinate, "ESa087" when
// fewer than 2 distinct locations remain, "ESa032" when the tree cannot be
// built or searched.
Status InlierSpacing(const LumaArray<LumaPoint2D>& points, const std::vector<char>& outliers, ZoDistanceMethod method,
                     Spacing& spacing);

}  // namespace ZOC::detail::aggregation
