#include "StatisticsAnalyst/detail/aggregation/FishnetGrid.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "StatisticsAnalyst/detail/aggregation/Spacing.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::aggregation {

namespace {

constexpr double kMaxCellsPerSide = 0x1p31;
constexpr int kRowShift = 31;  // key = row·2^31 + column, ordered by row, then column
constexpr double kCellsUnderRandomness = 4.0;
constexpr double kMaxDefaultCellsPerSide = 2000.0;

}  // namespace

ZoGeometry FishnetCounts::CellPolygon(const GridCell& cell) const {
  const double x0 = origin.x + static_cast<double>(cell.column) * cellSize;
  const double y0 = origin.y + static_cast<double>(cell.row) * cellSize;
  const double x1 = origin.x + static_cast<double>(cell.column + 1) * cellSize;
  const double y1 = origin.y + static_cast<double>(cell.row + 1) * cellSize;
  return ZoGeometry::MakeRegion(LumaArray<LumaPoint2D>{{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, LumaArray<int>{4});
}

Status CountInGrid(const LumaArray<LumaPoint2D>& points, double cellSize, FishnetCounts& out) {
  if (!(std::isfinite(cellSize) && cellSize > 0.0)) return Status::Fail(msg::ESa086);
  FishnetCounts result;
  result.cellSize = cellSize;
  if (points.empty()) {
    out = std::move(result);
    return Status::Ok();
  }
  double minX = points.front().x, minY = points.front().y, maxX = minX, maxY = minY;
  for (const LumaPoint2D& p : points) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) return Status::Fail(msg::ESa089);
    minX = std::min(minX, p.x);
    minY = std::min(minY, p.y);
    maxX = std::max(maxX, p.x);
    maxY = std::max(maxY, p.y);
  }
  // Rounding is monotone, so the farthest point has the largest index; an
  // extent too wide for a double gives infinity and fails here as well.
  if (!(std::floor((maxX - minX) / cellSize) < kMaxCellsPerSide &&
        std::floor((maxY - minY) / cellSize) < kMaxCellsPerSide))
    return Status::Fail(msg::ESa086);
  result.origin = {minX, minY};

  std::vector<std::pair<std::int64_t, std::int64_t>> keyed(points.size());  // (cell key, incident)
  for (std::size_t i = 0; i < points.size(); ++i) {
    const auto column = static_cast<std::int64_t>(std::floor((points[i].x - minX) / cellSize));
    const auto row = static_cast<std::int64_t>(std::floor((points[i].y - minY) / cellSize));
    keyed[i] = {(row << kRowShift) | column, static_cast<std::int64_t>(i)};
  }
  std::sort(keyed.begin(), keyed.end());
  result.cellOfIncident.resize(points.size());
  for (std::size_t k = 0; k < keyed.size(); ++k) {
    if (k == 0 || keyed[k].first != keyed[k - 1].first) {
      const std::int64_t key = keyed[k].first;
      result.cells.push_back({key & ((std::int64_t{1} << kRowShift) - 1), key >> kRowShift, 0});
    }
    ++result.cells.back().count;
    result.cellOfIncident[static_cast<std::size_t>(keyed[k].second)] =
        static_cast<std::int64_t>(result.cells.size()) - 1;
  }
  out = std::move(result);
  return Status::Ok();
}

Status DefaultCellSize(const LumaArray<LumaPoint2D>& points, const std::vector<char>& outliers, ZoDistanceMethod method,
                       double& cellSize) {
  Spacing spacing;
  if (Status s = InlierSpacing(points, outliers, method, spacing); !s) return s;
  const double size =
      std::max(kCellsUnderRandomness * spacing.meanNearest, spacing.longerSide / kMaxDefaultCellsPerSide);
  // Distinct locations so close that their distances underflow are one
  // location for any grid.
  if (!(size > 0.0)) return Status::Fail(msg::ESa087);
  cellSize = size;
  return Status::Ok();
}

}  // namespace ZOC::detail::aggregation
