#include "StatisticsAnalyst/detail/aggregation/Spacing.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::aggregation {

Status InlierSpacing(const LumaArray<LumaPoint2D>& points, const std::vector<char>& outliers, ZoDistanceMethod method,
                     Spacing& spacing) {
  LumaArray<LumaPoint2D> locations;
  locations.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i < outliers.size() && outliers[i]) continue;
    const LumaPoint2D& p = points[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) return Status::Fail(msg::ESa089);
    locations.push_back(p);
  }
  const auto before = [](const LumaPoint2D& a, const LumaPoint2D& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); };
  std::sort(locations.begin(), locations.end(), before);
  locations.erase(std::unique(locations.begin(), locations.end()), locations.end());
  if (locations.size() < 2) return Status::Fail(msg::ESa087);

  Spacing out;
  out.locations = locations.size();
  double minY = locations.front().y, maxY = minY;
  for (const LumaPoint2D& p : locations) {
    minY = std::min(minY, p.y);
    maxY = std::max(maxY, p.y);
  }
  out.longerSide = std::max(locations.back().x - locations.front().x, maxY - minY);

  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status s = spatial::BuildTree(buffer, locations, tree); !s) return s;
  double largest = 0.0;
  if (!spatial::NearestNeighbourSummary(*tree, locations.size(), method, largest, out.meanNearest))
    return Status::Fail(msg::ESa032);
  spacing = out;
  return Status::Ok();
}

}  // namespace ZOC::detail::aggregation
