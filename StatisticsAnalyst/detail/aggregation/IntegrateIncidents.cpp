#include "StatisticsAnalyst/detail/aggregation/IntegrateIncidents.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <utility>

#include "StatisticsAnalyst/detail/aggregation/Spacing.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::aggregation {

namespace {

constexpr std::int64_t kChunk = 1 << 15;  // incidents between progress steps

}  // namespace

Status Integrate(const LumaArray<LumaPoint2D>& points, double tolerance, ZoDistanceMethod method,
                 CallProgress& progress, MergedIncidents& out) {
  if (!(std::isfinite(tolerance) && tolerance >= 0.0)) return Status::Fail(msg::ESa088);
  for (const LumaPoint2D& p : points)
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) return Status::Fail(msg::ESa089);
  const auto n = static_cast<std::int64_t>(points.size());
  MergedIncidents result;
  result.groupOfIncident.assign(points.size(), -1);
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (n > 0)
    if (Status s = spatial::BuildTree(buffer, points, tree); !s) return s;

  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb396) : LumaUnicodeString();
  std::vector<std::size_t> found;
  std::vector<double> distances;
  for (std::int64_t first = 0; first < n; first += kChunk) {
    if (!progress.Step(format, first, n)) return Status::Fail(msg::IMb030);
    const std::int64_t last = std::min(n, first + kChunk);
    for (std::int64_t i = first; i < last; ++i) {
      if (result.groupOfIncident[static_cast<std::size_t>(i)] >= 0) continue;
      const auto group = static_cast<std::int64_t>(result.counts.size());
      const LumaPoint2D& leader = points[static_cast<std::size_t>(i)];
      tree->SearchKdTreeDis2({leader.x, leader.y, 0.0}, tolerance, found, distances, method);
      // The mean is summed as offsets from the first incident, which keeps
      // its digits for coordinates far from the origin.
      double dx = 0.0, dy = 0.0;
      std::int64_t count = 0;
      for (std::size_t j : found) {
        std::int64_t& owner = result.groupOfIncident[j];
        if (owner >= 0) continue;
        owner = group;
        dx += points[j].x - leader.x;
        dy += points[j].y - leader.y;
        ++count;
      }
      // The search finds the leader itself unless it ran out of memory.
      if (result.groupOfIncident[static_cast<std::size_t>(i)] != group) throw std::bad_alloc();
      const double c = static_cast<double>(count);
      result.points.push_back({leader.x + dx / c, leader.y + dy / c});
      result.counts.push_back(count);
    }
  }
  out = std::move(result);
  return Status::Ok();
}

Status DefaultTolerance(const LumaArray<LumaPoint2D>& points, const std::vector<char>& outliers,
                        ZoDistanceMethod method, double& tolerance) {
  Spacing spacing;
  if (Status s = InlierSpacing(points, outliers, method, spacing); !s) return s;
  if (!(spacing.meanNearest > 0.0)) return Status::Fail(msg::ESa087);
  tolerance = spacing.meanNearest;
  return Status::Ok();
}

}  // namespace ZOC::detail::aggregation
