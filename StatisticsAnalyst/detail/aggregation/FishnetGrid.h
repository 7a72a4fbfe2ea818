#pragma once
// Incident counts on a fishnet of square cells, and the default cell size
// derived from the incidents' spacing.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoGeometry.h"

namespace ZOC::detail::aggregation {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

struct GridCell {
  std::int64_t column = 0, row = 0, count = 0;
};

struct FishnetCounts {
  LumaPoint2D origin;  // lower-left corner of cell (0, 0): the smallest x and y of the incidents
  double cellSize = 0.0;
  std::vector<GridCell> cells;               // the cells holding at least one incident, ordered by row, then column
  std::vector<std::int64_t> cellOfIncident;  // per incident, its index in `cells`
  // The square as a one-ring region (counter-clockwise), corners at
  // origin + (column, row)·cellSize and origin + (column + 1, row + 1)·cellSize.
  ZoGeometry CellPolygon(const GridCell& cell) const;
};

// Counts incidents per square cell: column = floor((x − origin.x) / cellSize),
// row likewise, so a point on a shared edge belongs to the cell above or to
// the right of it. "ESa086" when cellSize is not positive and finite or a side
// would need more than 2^31 cells; "ESa089" for a non-finite point. No
// incidents give no cells. Memory O(n): the occupied cells are found by
// sorting, never through a dense grid. `out` is replaced only on success.
// May throw std::bad_alloc.
Status CountInGrid(const LumaArray<LumaPoint2D>& points, double cellSize, FishnetCounts& out);

// The default cell size: 4 × the mean nearest-neighbour distance (by
// `method`) of the incidents not flagged in `outliers`, taken over distinct
// locations (coincident incidents count as one location), so that under
// complete spatial randomness, where the mean nearest-neighbour distance is
// 1 / (2·√density), a cell of that side holds about four incidents; never
// below the longer side of those incidents' extent / 2000, which bounds the
// grid of the inliers to 2000 cells a side. "ESa087" when they all lie at
// one location (fewer than 2 distinct locations); InlierSpacing's other
// failures.
Status DefaultCellSize(const LumaArray<LumaPoint2D>& points, const std::vector<char>& outliers, ZoDistanceMethod method,
                       double& cellSize);

}  // namespace ZOC::detail::aggregation
