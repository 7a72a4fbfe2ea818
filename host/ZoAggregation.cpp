#include "host/ZoAggregation.h"

#include <new>
#include <vector>

#include "host/ZoKdTree.h"
#include "host/ZoProgress.h"

namespace ZOC {

namespace {

enum State : unsigned char { Unvisited = 0, Queued = 1, Border = 2, Core = 3 };

// How much work (neighbours found, plus a share for each search) the
// expansion does between reports of its position and polls for
// cancellation: milliseconds, whether a neighbourhood holds five points or
// thousands.
constexpr std::size_t kPollWork = std::size_t{1} << 18;
constexpr std::size_t kSearchWork = 32;

// The state of one run: every point is queried once, when the outer scan or
// a cluster's expansion first needs to know whether it is a core point.
struct Expansion {
  const ZoKdTree& tree;
  const LUMA::LumaArray<LUMA::LumaPoint3D>& points;
  double distance;
  std::size_t minCount;
  LUMA::LumaArray<std::int32_t>& ids;
  std::vector<unsigned char> state;
  std::vector<std::size_t> neighbours, queue;
  std::vector<double> distances;

  // Queries point i; when it is a core point of `cluster`, labels its
  // neighbours and queues those not yet queried.
  void Visit(std::size_t i, std::int32_t cluster) {
    tree.SearchKdTreeDis2(points[i], distance, neighbours, distances, 1);
    if (neighbours.size() < minCount) {
      state[i] = Border;
      return;
    }
    state[i] = Core;
    ids[i] = cluster;
    for (std::size_t j : neighbours) {
      if (ids[j] == 0) ids[j] = cluster;
      if (state[j] == Unvisited) {
        state[j] = Queued;
        queue.push_back(j);
      }
    }
  }
};

}  // namespace

int ZoAggregation::AggregatePoints(const LUMA::LumaArray<LUMA::LumaPoint2D>& points, double distance, int minCount,
                                   LUMA::LumaArray<std::int32_t>& clusterIds, ZoProgress* progress) {
  try {
    const std::size_t n = points.size();
    LUMA::LumaArray<LUMA::LumaPoint3D> buffer(n);
    for (std::size_t i = 0; i < n; ++i) buffer[i] = {points[i].x, points[i].y, 0.0};
    ZoKdTree tree(buffer.data(), n);
    tree.SetMaxBucketSize(30);
    if (!tree.Build()) return 0;
    clusterIds.assign(n, 0);
    Expansion run{tree,       buffer,
                  distance,   static_cast<std::size_t>(minCount < 1 ? 1 : minCount),
                  clusterIds, std::vector<unsigned char>(n, Unvisited),
                  {},         {},
                  {}};
    std::int32_t clusters = 0;
    std::size_t visited = 0, work = 0;
    auto poll = [&]() {
      ++visited;
      work += kSearchWork + run.neighbours.size();
      if (work < kPollWork || !progress) return true;
      work = 0;
      progress->SetProgressPos(static_cast<int>(100.0 * static_cast<double>(visited) / static_cast<double>(n)));
      return !progress->IsCanceled();
    };
    for (std::size_t i = 0; i < n; ++i) {
      if (run.state[i] != Unvisited) continue;
      // A point reached here is in no cluster yet; it starts one if it is a core point.
      run.Visit(i, clusters + 1);
      if (!poll()) return -1;
      if (run.state[i] != Core) continue;
      ++clusters;
      while (!run.queue.empty()) {
        const std::size_t j = run.queue.back();
        run.queue.pop_back();
        run.Visit(j, clusters);
        if (!poll()) return -1;
      }
    }
    if (progress) progress->SetProgressPos(100);
    return 1;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

}  // namespace ZOC
