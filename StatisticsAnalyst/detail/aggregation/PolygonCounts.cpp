#include "StatisticsAnalyst/detail/aggregation/PolygonCounts.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>
#include <utility>

#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::aggregation {

namespace {

// Polygons between progress steps: up to kPolygonChunk, fewer when their
// vertices pass kChunkVertices, so that neither a chunk of large polygons
// delays cancellation nor many chunks of small ones cost a thread barrier each.
constexpr std::int64_t kPolygonChunk = 1 << 14;
constexpr std::size_t kChunkVertices = 1 << 20;
constexpr std::size_t kLeafSize = 16;
constexpr std::size_t kPreparedVertices = 32;
constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::max();

struct Box {
  double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
  bool Holds(const LumaPoint2D& p) const { return minX <= p.x && p.x <= maxX && minY <= p.y && p.y <= maxY; }
};

// A static KD tree for rectangle queries (the host's tree answers only
// nearest and radius searches). Each node splits its points at the median of
// the wider side of their bounds, down to leaves of kLeafSize points, and
// keeps the tight bounds of its points, so a query takes whole nodes that
// lie inside the rectangle without testing their points.
class BoxIndex {
 public:
  explicit BoxIndex(const LumaArray<LumaPoint2D>& points) : m_points(points), m_order(points.size()) {
    std::iota(m_order.begin(), m_order.end(), std::size_t{0});
    if (!points.empty()) Build(0, points.size());
  }

  // Calls visit(i) for every point i inside `box`, its boundary included.
  template <class Visit>
  void Query(const Box& box, Visit&& visit) const {
    if (m_nodes.empty()) return;
    // Nodes are laid out depth first (left child next), and halving bounds
    // the depth by 64, hence the stack.
    std::array<std::size_t, 130> stack;
    std::size_t size = 0;
    stack[size++] = 0;
    while (size > 0) {
      const Node& node = m_nodes[stack[--size]];
      const Box& b = node.box;
      if (b.maxX < box.minX || b.minX > box.maxX || b.maxY < box.minY || b.minY > box.maxY) continue;
      const bool inside = box.minX <= b.minX && b.maxX <= box.maxX && box.minY <= b.minY && b.maxY <= box.maxY;
      if (inside || node.right == 0) {
        for (std::size_t k = node.begin; k < node.end; ++k)
          if (inside || box.Holds(m_points[m_order[k]])) visit(m_order[k]);
        continue;
      }
      stack[size++] = node.right;
      stack[size++] = static_cast<std::size_t>(&node - m_nodes.data()) + 1;
    }
  }

 private:
  struct Node {
    Box box;
    std::size_t begin = 0, end = 0;
    std::size_t right = 0;  // index of the right child; 0 for a leaf
  };

  std::size_t Build(std::size_t begin, std::size_t end) {
    const std::size_t at = m_nodes.size();
    Node node;
    node.begin = begin;
    node.end = end;
    const LumaPoint2D& first = m_points[m_order[begin]];
    node.box = {first.x, first.y, first.x, first.y};
    for (std::size_t k = begin; k < end; ++k) {
      const LumaPoint2D& p = m_points[m_order[k]];
      node.box = {std::min(node.box.minX, p.x), std::min(node.box.minY, p.y), std::max(node.box.maxX, p.x),
                  std::max(node.box.maxY, p.y)};
    }
    m_nodes.push_back(node);
    if (end - begin <= kLeafSize) return at;
    const bool alongX = node.box.maxX - node.box.minX >= node.box.maxY - node.box.minY;
    const std::size_t middle = begin + (end - begin) / 2;
    std::nth_element(m_order.begin() + static_cast<std::ptrdiff_t>(begin),
                     m_order.begin() + static_cast<std::ptrdiff_t>(middle),
                     m_order.begin() + static_cast<std::ptrdiff_t>(end), [&](std::size_t a, std::size_t b) {
                       return alongX ? m_points[a].x < m_points[b].x : m_points[a].y < m_points[b].y;
                     });
    Build(begin, middle);
    const std::size_t right = Build(middle, end);
    m_nodes[at].right = right;
    return at;
  }

  const LumaArray<LumaPoint2D>& m_points;
  std::vector<std::size_t> m_order;  // point numbers, each node's a contiguous range
  std::vector<Node> m_nodes;
};

bool Finite(const LumaPoint2D& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

// The plain test, with the prepared region's interface.
struct Unprepared {
  const ZoGeometry& region;
  bool Contains(const LumaPoint2D& p) const { return region.ContainsPoint(p); }
};

}  // namespace

Status CountInPolygons(const LumaArray<LumaPoint2D>& points, const std::vector<ZoGeometry>& polygons,
                       CallProgress& progress, std::vector<std::int64_t>& counts,
                       std::vector<std::int64_t>& polygonOfIncident) {
  if (!std::all_of(points.begin(), points.end(), Finite)) return Status::Fail(msg::ESa089);
  for (const ZoGeometry& g : polygons)
    if (g.GetType() == GeoRegion && !std::all_of(g.GetPoints().begin(), g.GetPoints().end(), Finite))
      return Status::Fail(msg::ESa089);

  const BoxIndex index(points);
  const auto m = static_cast<std::int64_t>(polygons.size());
  // Polygons are tested on every core; each incident keeps the smallest
  // polygon number that holds it, which is the first polygon whatever the
  // thread count, and an incident already held by an earlier polygon is not
  // tested again.
  std::vector<std::int64_t> owner(points.size(), kNone);
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb397) : LumaUnicodeString();
  for (std::int64_t first = 0, last = 0; first < m; first = last) {
    if (!progress.Step(format, first, m)) return Status::Fail(msg::IMb030);
    last = first;
    for (std::size_t vertices = 0; last < m && last - first < kPolygonChunk && vertices < kChunkVertices; ++last)
      vertices += polygons[static_cast<std::size_t>(last)].GetPoints().size();
    bool failed = false;
#pragma omp parallel for schedule(dynamic, 1)
    for (std::int64_t k = first; k < last; ++k) {
      const ZoGeometry& polygon = polygons[static_cast<std::size_t>(k)];
      Box box;
      if (polygon.GetType() != GeoRegion || !polygon.GetBounds(box.minX, box.minY, box.maxX, box.maxY)) continue;
      const auto claim = [&](std::size_t j, const auto& region) {
        std::atomic_ref<std::int64_t> held(owner[j]);
        std::int64_t current = held.load(std::memory_order_relaxed);
        if (current < k || !region.Contains(points[j])) return;
        while (current > k && !held.compare_exchange_weak(current, k, std::memory_order_relaxed)) {
        }
      };
      try {
        // A polygon of many vertices gets its edges listed by strips, so a
        // test reads a few edges rather than all of them.
        if (polygon.GetPoints().size() > kPreparedVertices) {
          const ZoPreparedRegion prepared(polygon);
          index.Query(box, [&](std::size_t j) { claim(j, prepared); });
        } else {
          index.Query(box, [&](std::size_t j) { claim(j, Unprepared{polygon}); });
        }
      } catch (const std::bad_alloc&) {
#pragma omp atomic write
        failed = true;
      }
    }
    if (failed) throw std::bad_alloc();
  }
  std::vector<std::int64_t> tally(polygons.size(), 0);
  for (std::int64_t& k : owner) {
    if (k == kNone)
      k = -1;
    else
      ++tally[static_cast<std::size_t>(k)];
  }
  counts = std::move(tally);
  polygonOfIncident = std::move(owner);
  return Status::Ok();
}

}  // namespace ZOC::detail::aggregation
