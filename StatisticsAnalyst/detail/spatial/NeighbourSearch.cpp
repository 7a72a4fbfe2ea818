#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"

#include <algorithm>
#include <limits>
#include <new>
#include <vector>

#include <omp.h>

#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::spatial {

namespace {

constexpr double kBandMargin = 1.0001;  // keeps the farthest isolated feature inside the default band

LumaPoint3D To3D(const LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

}  // namespace

template <class Tree>
Status BuildTree(LumaArray<LumaPoint3D>& buffer, const LumaArray<LumaPoint2D>& points, std::unique_ptr<Tree>& tree) {
  tree.reset();
  try {
    buffer.resize(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) buffer[i] = To3D(points[i]);
    auto built = std::make_unique<Tree>(buffer.data(), buffer.size());
    built->SetMaxBucketSize(kTreeBucketSize);
    if (built->Build()) {
      tree = std::move(built);
      return Status::Ok();
    }
  } catch (const std::bad_alloc&) {
  }
  return Status::Fail(msg::ESa032);
}

template Status BuildTree<ZoKdTree>(LumaArray<LumaPoint3D>&, const LumaArray<LumaPoint2D>&, std::unique_ptr<ZoKdTree>&);
template Status BuildTree<ZoKdTreec>(LumaArray<LumaPoint3D>&, const LumaArray<LumaPoint2D>&,
                                     std::unique_ptr<ZoKdTreec>&);

bool KthNeighbourDistance(const ZoKdTree& tree, const LumaPoint2D& point, int k, ZoDistanceMethod method,
                          double& distance) {
  if (k < 0) return false;
  // The point itself is in the tree and comes back at distance 0, hence k + 1.
  std::vector<std::size_t> indices;
  std::vector<double> distances;
  const std::size_t found = tree.SearchKdTree(To3D(point), static_cast<std::size_t>(k) + 1, indices, distances, method);
  if (found == 0) return false;
  distance = *std::max_element(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(found));
  return true;
}

bool KNearestReach(const ZoKdTreec& tree, const LumaArray<LumaPoint2D>& points, int k, ZoDistanceMethod method,
                   LumaArray<double>& distances) {
  if (k < 1) return false;
  const std::size_t kk = static_cast<std::size_t>(k);
  const std::int64_t n = static_cast<std::int64_t>(points.size());
  distances.assign(points.size(), 0.0);

  // Each thread allocates its buffers once and registers them in a shared
  // list (the loop's one critical section); they are freed after the loop.
  std::vector<std::unique_ptr<std::vector<double>>> buffers;
  bool failed = false;
#pragma omp parallel
  {
    std::vector<double>* dist = nullptr;
    std::vector<std::size_t> idx;
    bool ok = true;
    try {
      auto owned = std::make_unique<std::vector<double>>(kk);
      idx.resize(kk);
      dist = owned.get();
#pragma omp critical(sa_dist_tolerance_buffers)
      buffers.push_back(std::move(owned));
    } catch (const std::bad_alloc&) {
      ok = false;
    }
#pragma omp for schedule(static)
    for (std::int64_t i = 0; i < n; ++i) {
      if (!ok) continue;
      const std::size_t found =
          tree.SearchKdTreec(To3D(points[static_cast<std::size_t>(i)]), kk, idx.data(), dist->data(), method);
      distances[static_cast<std::size_t>(i)] =
          found ? *std::max_element(dist->begin(), dist->begin() + static_cast<std::ptrdiff_t>(found)) : 0.0;
    }
    if (!ok) {
#pragma omp atomic write
      failed = true;
    }
  }
  return !failed;
}

bool NearestNeighbourSummary(const ZoKdTree& tree, std::size_t count, ZoDistanceMethod method, double& largest,
                             double& mean, const std::vector<char>* setAside) {
  // The tree answers its own points a leaf at a time; each answer holds the
  // point itself and its nearest, so the larger of the two is the distance.
  // The largest does not depend on the visiting order.
  std::vector<std::int64_t> order;
  if (setAside && !tree.GetSpatialOrder(order)) return false;
  largest = 0.0;
  double sum = 0.0;
  std::size_t kept = 0;
  const bool searched = tree.SearchSpatialRange(
      0, count, 2, method, [&](std::size_t position, const std::size_t*, const double* d, std::size_t n) {
        if (setAside && (*setAside)[static_cast<std::size_t>(order[position])]) return;
        const double nearest = *std::max_element(d, d + n);
        largest = std::max(largest, nearest);
        sum += nearest;
        ++kept;
      });
  mean = kept ? sum / static_cast<double>(kept) : 0.0;
  return searched;
}

Status DistanceBand(const ZoKdTree* tree, const LumaArray<LumaPoint2D>& points, double tolerance,
                    ZoDistanceMethod method, double& band) {
  band = 0.0;
  if (points.empty()) return Status::Fail(msg::ESa007);
  if (tolerance >= 0.0) {
    band = tolerance < limits::kZero ? std::numeric_limits<double>::max() : tolerance;
    return Status::Ok();
  }
  if (tree) DefaultBand(*tree, points.size(), method, band);
  return Status::Ok();
}

bool DefaultBand(const ZoKdTree& tree, std::size_t count, ZoDistanceMethod method, double& band,
                 const std::vector<char>* setAside) {
  double largest = 0.0, mean = 0.0;
  if (!NearestNeighbourSummary(tree, count, method, largest, mean, setAside)) return false;
  band = largest * kBandMargin;
  return true;
}

Status DistanceBand(const LumaArray<LumaPoint2D>& points, double tolerance, ZoDistanceMethod method, double& band) {
  band = 0.0;
  if (points.empty()) return Status::Fail(msg::ESa007);
  if (tolerance >= 0.0) return DistanceBand(nullptr, points, tolerance, method, band);
  LumaArray<LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status built = BuildTree(buffer, points, tree); !built) return built;
  return DistanceBand(tree.get(), points, tolerance, method, band);
}

}  // namespace ZOC::detail::spatial
