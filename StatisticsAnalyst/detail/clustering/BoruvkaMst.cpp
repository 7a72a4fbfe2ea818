// The minimum spanning tree of the mutual reachability graph by Borůvka's
// algorithm over a KD tree of our own: every round finds, for each
// component, its lightest edge to another component, with branches pruned
// by the component's best edge so far, by the core distances (no edge of a
// point is lighter than its core distance, nor than the smallest core
// distance under a node) and by nodes whose points all lie in the component.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "host/ZoProgress.h"

namespace ZOC::detail::clustering {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kLeafSize = 16;

struct Node {
  double minX, minY, maxX, maxY;
  double minCore;
  std::uint32_t begin, end;  // range of tree positions
  std::uint32_t left = kNone, right = kNone;
  std::uint32_t component = kNone;  // the component of all its points, or kNone
};

// A candidate edge ordered by weight, then by its (smaller, larger) original
// indices: a total order, so the lightest edge of a component is unique.
struct Candidate {
  double weight = kInf;
  std::uint32_t lo = kNone, hi = kNone;
  bool operator<(const Candidate& o) const {
    if (weight != o.weight) return weight < o.weight;
    if (lo != o.lo) return lo < o.lo;
    return hi < o.hi;
  }
};

class Forest {
 public:
  explicit Forest(std::size_t n) : m_parent(n) { std::iota(m_parent.begin(), m_parent.end(), 0u); }
  std::uint32_t Find(std::uint32_t i) {
    while (m_parent[i] != i) i = m_parent[i] = m_parent[m_parent[i]];
    return i;
  }
  bool Unite(std::uint32_t a, std::uint32_t b) {
    a = Find(a), b = Find(b);
    if (a == b) return false;
    if (a > b) std::swap(a, b);
    m_parent[b] = a;
    return true;
  }

 private:
  std::vector<std::uint32_t> m_parent;
};

class BoruvkaTree {
 public:
  BoruvkaTree(const LumaArray<LumaPoint2D>& points, const std::vector<double>& core) : m_n(points.size()) {
    m_index.resize(m_n);
    std::iota(m_index.begin(), m_index.end(), 0u);
    m_x.resize(m_n), m_y.resize(m_n), m_core.resize(m_n);
    m_nodes.reserve(2 * (m_n / kLeafSize + 1));
    Build(points, 0, static_cast<std::uint32_t>(m_n));
    for (std::size_t t = 0; t < m_n; ++t) {
      m_x[t] = points[m_index[t]].x, m_y[t] = points[m_index[t]].y, m_core[t] = core[m_index[t]];
    }
    for (std::size_t k = m_nodes.size(); k-- > 0;) {  // children come after their parent
      Node& node = m_nodes[k];
      if (node.left == kNone) {
        node.minCore = kInf;
        for (std::uint32_t t = node.begin; t < node.end; ++t) node.minCore = std::min(node.minCore, m_core[t]);
      } else {
        node.minCore = std::min(m_nodes[node.left].minCore, m_nodes[node.right].minCore);
      }
    }
  }

  Status Run(std::vector<MstEdge>& edges, ZoProgress* progress) {
    Forest forest(m_n);
    std::vector<std::uint32_t> comp(m_n);  // per tree position
    std::vector<Candidate> best(m_n);      // per component root (an original index)
    std::size_t components = m_n;
    // A search's cost is the nodes and points it looks at, which grows with
    // the core distances: polls go by that, not by the number of searches.
    CancelPoll poll(progress);
    edges.clear();
    edges.reserve(m_n ? m_n - 1 : 0);
    while (components > 1) {
      for (std::size_t t = 0; t < m_n; ++t) comp[t] = forest.Find(m_index[t]);
      LabelNodes(comp);
      if (poll.Add(m_n)) return Cancelled();
      for (std::size_t t = 0; t < m_n; ++t)
        if (poll.Add(Search(static_cast<std::uint32_t>(t), comp, best[comp[t]]))) return Cancelled();
      std::size_t added = 0;
      for (std::size_t t = 0; t < m_n; ++t) {
        if (comp[t] != m_index[t]) continue;  // only component roots hold a best edge
        Candidate& c = best[comp[t]];
        if (c.lo != kNone && forest.Unite(c.lo, c.hi)) {
          edges.push_back({c.lo, c.hi, c.weight});
          ++added;
        }
        c = Candidate();
      }
      if (added == 0) return Failed();  // cannot happen with finite points; guards the loop
      components -= added;
    }
    return Status::Ok();
  }

 private:
  std::uint32_t Build(const LumaArray<LumaPoint2D>& points, std::uint32_t begin, std::uint32_t end) {
    const auto id = static_cast<std::uint32_t>(m_nodes.size());
    m_nodes.push_back(Node{kInf, kInf, -kInf, -kInf, kInf, begin, end});
    Node box = m_nodes[id];
    for (std::uint32_t t = begin; t < end; ++t) {
      const LumaPoint2D& p = points[m_index[t]];
      box.minX = std::min(box.minX, p.x), box.maxX = std::max(box.maxX, p.x);
      box.minY = std::min(box.minY, p.y), box.maxY = std::max(box.maxY, p.y);
    }
    m_nodes[id] = box;
    if (end - begin <= kLeafSize) return id;
    const bool alongX = box.maxX - box.minX >= box.maxY - box.minY;
    const std::uint32_t mid = begin + (end - begin) / 2;
    std::nth_element(m_index.begin() + begin, m_index.begin() + mid, m_index.begin() + end,
                     [&](std::uint32_t a, std::uint32_t b) {
                       const double va = alongX ? points[a].x : points[a].y, vb = alongX ? points[b].x : points[b].y;
                       return va != vb ? va < vb : a < b;
                     });
    const std::uint32_t left = Build(points, begin, mid);
    const std::uint32_t right = Build(points, mid, end);
    m_nodes[id].left = left, m_nodes[id].right = right;
    return id;
  }

  void LabelNodes(const std::vector<std::uint32_t>& comp) {
    for (std::size_t k = m_nodes.size(); k-- > 0;) {
      Node& node = m_nodes[k];
      if (node.left == kNone) {
        node.component = comp[node.begin];
        for (std::uint32_t t = node.begin + 1; t < node.end && node.component != kNone; ++t)
          if (comp[t] != node.component) node.component = kNone;
      } else {
        const std::uint32_t a = m_nodes[node.left].component, b = m_nodes[node.right].component;
        node.component = a == b ? a : kNone;
      }
    }
  }

  double BoxDistance(const Node& node, double x, double y) const {
    const double dx = std::max({node.minX - x, 0.0, x - node.maxX});
    const double dy = std::max({node.minY - y, 0.0, y - node.maxY});
    return std::sqrt(dx * dx + dy * dy);
  }

  // Improves `found` with the lightest edge from position q to another
  // component. Returns the work done: the nodes and points looked at.
  std::size_t Search(std::uint32_t q, const std::vector<std::uint32_t>& comp, Candidate& found) {
    const std::uint32_t c = comp[q];
    const double x = m_x[q], y = m_y[q], coreQ = m_core[q];
    if (coreQ > found.weight) return 1;
    std::size_t work = 1;
    m_stack.clear();
    m_stack.push_back(0);
    while (!m_stack.empty()) {
      const Node& node = m_nodes[m_stack.back()];
      m_stack.pop_back();
      ++work;
      if (node.component == c) continue;
      if (std::max({coreQ, node.minCore, BoxDistance(node, x, y)}) > found.weight) continue;
      if (node.left == kNone) {
        work += node.end - node.begin;
        for (std::uint32_t t = node.begin; t < node.end; ++t) {
          if (comp[t] == c) continue;
          const double dx = m_x[t] - x, dy = m_y[t] - y;
          const double w = std::max({coreQ, m_core[t], std::sqrt(dx * dx + dy * dy)});
          if (w > found.weight) continue;
          const std::uint32_t a = m_index[q], b = m_index[t];
          const Candidate candidate{w, std::min(a, b), std::max(a, b)};
          if (candidate < found) found = candidate;
        }
        continue;
      }
      // The nearer child is searched first: it is pushed last.
      const double dl = BoxDistance(m_nodes[node.left], x, y), dr = BoxDistance(m_nodes[node.right], x, y);
      const std::uint32_t nearChild = dl <= dr ? node.left : node.right;
      m_stack.push_back(nearChild == node.left ? node.right : node.left);
      m_stack.push_back(nearChild);
    }
    return work;
  }

  std::size_t m_n;
  std::vector<std::uint32_t> m_index;  // tree position -> original index
  std::vector<double> m_x, m_y, m_core;
  std::vector<Node> m_nodes;
  std::vector<std::uint32_t> m_stack;
};

}  // namespace

Status MutualReachabilityMst(const LumaArray<LumaPoint2D>& points, const std::vector<double>& core,
                             std::vector<MstEdge>& edges, ZoProgress* progress) {
  for (const LumaPoint2D& p : points)
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) return Failed();
  if (points.size() != core.size() || points.size() >= kNone) return Failed();
  if (progress && progress->IsCanceled()) return Cancelled();
  BoruvkaTree tree(points, core);
  return tree.Run(edges, progress);
}

}  // namespace ZOC::detail::clustering
