#include "host/ZoKdTree.h"

#include <nanoflann.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <utility>

namespace ZOC {

namespace {

// nanoflann reads the caller's points through this adaptor; the tree never
// copies them.
struct PointCloud {
  const LumaPoint3D* points = nullptr;
  std::size_t count = 0;

  std::size_t kdtree_get_point_count() const { return count; }
  double kdtree_get_pt(std::size_t i, std::size_t dim) const {
    const LumaPoint3D& p = points[i];
    return dim == 0 ? p.x : (dim == 1 ? p.y : p.z);
  }
  template <class BBox>
  bool kdtree_get_bbox(BBox&) const {
    return false;
  }
};

template <int Dim>
using L2Tree =
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, PointCloud, double, std::size_t>,
                                        PointCloud, Dim, std::size_t>;
template <int Dim>
using L1Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L1_Adaptor<double, PointCloud, double, std::size_t>,
                                                   PointCloud, Dim, std::size_t>;

constexpr double kInf = std::numeric_limits<double>::infinity();

// The metrics as the caller sees them. nanoflann works in its own units
// (squared distances for L2); a metric maps those to true distances and back,
// and gives the nanoflann bound that admits every point at a metric distance.
//
// The bound is generous on purpose. nanoflann tests leaves with a strict
// `dist < bound` and prunes a branch when its incrementally accumulated lower
// bound exceeds `bound`; that accumulation rounds, so an exactly tied point in
// a pruned branch could otherwise be lost. Letting a few extra candidates in
// costs nothing: the result sets below decide membership on the true distance.
// The relative margin keeps the bound above any positive distance; the
// smallest subnormal keeps it above zero, so a coincident point is admitted.
double GenerousBound(double metricDistance) {
  return metricDistance + metricDistance * 1e-12 + std::numeric_limits<double>::denorm_min();
}

struct EuclideanMetric {
  static double TrueDistance(double metricDistance) { return std::sqrt(metricDistance); }
  static double FromTrue(double distance) { return distance * distance; }
  // Two squared distances this close may have the same square root, which
  // the tie rule must then see; further apart they cannot (a double's square
  // root halves the relative gap, so equal roots need a gap under 2^-51).
  static bool MayTie(double a, double b) { return std::fabs(a - b) <= 1e-15 * std::max(a, b); }
};

struct ManhattanMetric {
  static double TrueDistance(double metricDistance) { return metricDistance; }
  static double FromTrue(double distance) { return distance; }
  static bool MayTie(double, double) { return false; }
};

// Total order of candidates on their metric distances: true distance first,
// then index. The square root is taken only for the rare pair whose roots
// could round to one value.
template <class Metric>
inline bool Before(double m1, std::size_t i1, double m2, std::size_t i2) {
  if (m1 == m2 || (Metric::MayTie(m1, m2) && Metric::TrueDistance(m1) == Metric::TrueDistance(m2))) return i1 < i2;
  return m1 < m2;
}

// k-nearest result set in two parallel caller-owned arrays, so a search
// allocates nothing itself: a sorted array for the usual few neighbours
// (shifting a handful of slots beats a heap), a max-heap (worst candidate
// on top) for many. Membership is decided on (distance, index), which makes
// the answer independent of the order in which nanoflann visits the points.
// Metric distances are kept until Finish, so a candidate costs no root.
// nanoflann reports positions in the tree's own point copy; `original` maps
// them back to the caller's point numbers.
template <class Metric>
class KnnResult {
 public:
  KnnResult(std::size_t capacity, std::size_t* indices, double* distances, const std::size_t* original)
      : m_capacity(capacity), m_indices(indices), m_dists(distances), m_original(original) {}

  std::size_t size() const { return m_size; }
  bool full() const { return m_size == m_capacity; }

  // Takes up a search left with `size` candidates in the arrays.
  void Resume(std::size_t size) {
    m_size = size;
    if (full()) m_bound = GenerousBound(m_capacity <= kSortedCapacity ? m_dists[m_size - 1] : m_dists[0]);
  }

  [[gnu::always_inline]] inline bool addPoint(double metricDistance, std::size_t position) {
    const std::size_t index = m_original[position];
    if (m_capacity <= kSortedCapacity)
      Insert(metricDistance, index);
    else
      Push(metricDistance, index);
    return true;
  }

  // Strictly above the current worst, so a point tied with it still reaches
  // addPoint and competes on its index.
  double worstDist() const { return m_bound; }

  // Puts the candidates in ascending (distance, index) order with true
  // distances; returns the count.
  std::size_t Finish() {
    if (m_capacity > kSortedCapacity)
      for (std::size_t n = m_size; n > 1; --n) {
        Swap(0, n - 1);
        SiftDown(0, n - 1);
      }
    for (std::size_t h = 0; h < m_size; ++h) m_dists[h] = Metric::TrueDistance(m_dists[h]);
    return m_size;
  }

 private:
  static constexpr std::size_t kSortedCapacity = 32;

  [[gnu::always_inline]] inline void Insert(double m, std::size_t index) {
    std::size_t slot = m_size;
    if (full()) {
      if (!Before<Metric>(m, index, m_dists[slot - 1], m_indices[slot - 1])) return;
      --slot;  // the worst leaves
    } else {
      ++m_size;
    }
    for (; slot > 0 && Before<Metric>(m, index, m_dists[slot - 1], m_indices[slot - 1]); --slot) {
      m_dists[slot] = m_dists[slot - 1];
      m_indices[slot] = m_indices[slot - 1];
    }
    m_dists[slot] = m;
    m_indices[slot] = index;
    if (full()) m_bound = GenerousBound(m_dists[m_size - 1]);
  }

  void Push(double m, std::size_t index) {
    if (m_size < m_capacity) {
      m_indices[m_size] = index;
      m_dists[m_size] = m;
      SiftUp(m_size++);
      if (full()) m_bound = GenerousBound(m_dists[0]);
    } else if (Before<Metric>(m, index, m_dists[0], m_indices[0])) {
      m_indices[0] = index;
      m_dists[0] = m;
      SiftDown(0, m_size);
      m_bound = GenerousBound(m_dists[0]);
    }
  }

  bool Less(std::size_t a, std::size_t b) const {
    return Before<Metric>(m_dists[a], m_indices[a], m_dists[b], m_indices[b]);
  }
  void Swap(std::size_t a, std::size_t b) {
    std::swap(m_dists[a], m_dists[b]);
    std::swap(m_indices[a], m_indices[b]);
  }
  void SiftUp(std::size_t i) {
    while (i > 0) {
      const std::size_t parent = (i - 1) / 2;
      if (!Less(parent, i)) break;
      Swap(parent, i);
      i = parent;
    }
  }
  void SiftDown(std::size_t i, std::size_t n) {
    for (;;) {
      const std::size_t l = 2 * i + 1, r = l + 1;
      std::size_t largest = i;
      if (l < n && Less(largest, l)) largest = l;
      if (r < n && Less(largest, r)) largest = r;
      if (largest == i) break;
      Swap(i, largest);
      i = largest;
    }
  }

  std::size_t m_capacity;
  std::size_t* m_indices;
  double* m_dists;
  const std::size_t* m_original;
  std::size_t m_size = 0;
  double m_bound = kInf;
};

// Radius result set: every point at true distance ≤ radius.
template <class Metric>
class RadiusResult {
 public:
  RadiusResult(double radius, std::vector<std::pair<double, std::size_t>>& out, const std::size_t* original)
      : m_radius(radius), m_bound(GenerousBound(Metric::FromTrue(radius))), m_out(out), m_original(original) {}

  std::size_t size() const { return m_out.size(); }
  bool full() const { return true; }
  bool addPoint(double metricDistance, std::size_t position) {
    const double d = Metric::TrueDistance(metricDistance);
    if (d <= m_radius) m_out.emplace_back(d, m_original[position]);
    return true;
  }
  double worstDist() const { return m_bound; }

 private:
  double m_radius;
  double m_bound;
  std::vector<std::pair<double, std::size_t>>& m_out;
  const std::size_t* m_original;
};

bool IsEuclidean(int method) { return method == 1; }

// 16 bits spread to the even bits of 32.
std::uint32_t Spread16(std::uint32_t v) {
  v = (v | (v << 8)) & 0x00FF00FFu;
  v = (v | (v << 4)) & 0x0F0F0F0Fu;
  v = (v | (v << 2)) & 0x33333333u;
  v = (v | (v << 1)) & 0x55555555u;
  return v;
}

// The points' numbers along a Z-order curve of 2^16 cells a side over their
// x-y extent, by two passes of a 16-bit radix sort (stable: ties keep their
// numbers' order). Only locality matters here, never the exact order.
std::vector<std::uint32_t> CoarseSpatialOrder(const PointCloud& cloud) {
  const std::size_t n = cloud.count;
  double low[2] = {kInf, kInf}, high[2] = {-kInf, -kInf};
  for (std::size_t i = 0; i < n; ++i) {
    low[0] = std::min(low[0], cloud.points[i].x), high[0] = std::max(high[0], cloud.points[i].x);
    low[1] = std::min(low[1], cloud.points[i].y), high[1] = std::max(high[1], cloud.points[i].y);
  }
  const auto cell = [&](double v, int d) {
    const double span = high[d] - low[d];
    if (!(span > 0.0)) return std::uint32_t{0};
    return static_cast<std::uint32_t>(std::min(65535.0, std::max(0.0, (v - low[d]) / span * 65535.0)));
  };
  std::vector<std::uint32_t> keys(n), order(n), next(n);
  for (std::size_t i = 0; i < n; ++i)
    keys[i] = Spread16(cell(cloud.points[i].x, 0)) | (Spread16(cell(cloud.points[i].y, 1)) << 1);
  for (std::size_t i = 0; i < n; ++i) order[i] = static_cast<std::uint32_t>(i);
  std::vector<std::size_t> start(65537);
  for (const int shift : {0, 16}) {
    std::fill(start.begin(), start.end(), 0);
    for (const std::uint32_t i : order) ++start[((keys[i] >> shift) & 0xFFFFu) + 1];
    for (std::size_t b = 1; b < start.size(); ++b) start[b] += start[b - 1];
    for (const std::uint32_t i : order) next[start[(keys[i] >> shift) & 0xFFFFu]++] = i;
    order.swap(next);
  }
  return order;
}

// One metric's tree over the points in Dim dimensions, built once on first
// use by whichever thread asks first.
//
// Once built, the tree reads its own copy of the points, laid out in the
// order of its leaves: a leaf's points then sit side by side in memory and a
// search reads a few cache lines per leaf, instead of one per point when the
// caller's points are in no spatial order. The tree refers to points only
// through its index array, so that array becomes the identity over the copy.
template <class Tree>
class LazyTree {
 public:
  const Tree* Get(const PointCloud& source, std::size_t bucketSize, int dim) const {
    std::call_once(m_once, [&] {
      try {
        // Built over a copy in a coarse spatial order, the tree's splits read
        // memory almost in sequence: about three times faster than over
        // points in no order. Afterwards the copy is laid out in leaf order.
        const std::vector<std::uint32_t> order = CoarseSpatialOrder(source);
        m_points.resize(order.size());
        for (std::size_t i = 0; i < order.size(); ++i) m_points[i] = source.points[order[i]];
        m_cloud = {m_points.data(), m_points.size()};
        auto tree = std::make_unique<Tree>(dim, m_cloud, nanoflann::KDTreeSingleIndexAdaptorParams(bucketSize));
        auto& slots = tree->vAcc;
        std::vector<LumaPoint3D> inLeafOrder(slots.size());
        m_original.resize(slots.size());
        for (std::size_t i = 0; i < slots.size(); ++i) {
          inLeafOrder[i] = m_points[slots[i]];
          m_original[i] = order[slots[i]];
          slots[i] = i;
        }
        m_points.swap(inLeafOrder);
        m_cloud.points = m_points.data();
        CollectLeaves(tree->root_node);
        m_tree = std::move(tree);
      } catch (...) {
        m_tree.reset();
      }
    });
    return m_tree.get();
  }
  // The caller's point number of each position in the tree's copy.
  const std::size_t* Original() const { return m_original.data(); }
  const LumaPoint3D* Points() const { return m_points.data(); }
  // The leaves in position order, each with the tight box of its points.
  struct Leaf {
    std::size_t left, right;
    double low[3], high[3];
  };
  const std::vector<Leaf>& Leaves() const { return m_leaves; }
  // The leaf holding `position`.
  std::size_t LeafOf(std::size_t position) const {
    const auto it = std::upper_bound(m_leaves.begin(), m_leaves.end(), position,
                                     [](std::size_t p, const Leaf& leaf) { return p < leaf.left; });
    return static_cast<std::size_t>(it - m_leaves.begin()) - 1;
  }

 private:
  using Node = typename Tree::Node;

  // Depth first, first child first: the leaves come out in position order.
  void CollectLeaves(const Node* root) const {
    m_leaves.clear();
    std::vector<const Node*> stack;
    if (root != nullptr) stack.push_back(root);
    while (!stack.empty()) {
      const Node* node = stack.back();
      stack.pop_back();
      if (node->child1 == nullptr && node->child2 == nullptr) {
        Leaf leaf{node->node_type.lr.left, node->node_type.lr.right, {kInf, kInf, kInf}, {-kInf, -kInf, -kInf}};
        for (std::size_t i = leaf.left; i < leaf.right; ++i) {
          const double c[3] = {m_points[i].x, m_points[i].y, m_points[i].z};
          for (int d = 0; d < 3; ++d)
            leaf.low[d] = std::min(leaf.low[d], c[d]), leaf.high[d] = std::max(leaf.high[d], c[d]);
        }
        m_leaves.push_back(leaf);
        continue;
      }
      if (node->child2) stack.push_back(node->child2);
      if (node->child1) stack.push_back(node->child1);
    }
  }

  mutable std::vector<Leaf> m_leaves;
  mutable PointCloud m_cloud;
  mutable std::vector<LumaPoint3D> m_points;
  mutable std::vector<std::size_t> m_original;
  mutable std::unique_ptr<Tree> m_tree;
  mutable std::once_flag m_once;
};

// Squared distance from q to a point over Dim coordinates, summed exactly as
// nanoflann's L2 metric sums it, so that both searches see the same bits.
template <int Dim>
double SquaredDistance(const double* q, const LumaPoint3D& p) {
  const double c[3] = {p.x, p.y, p.z};
  double result = 0.0;
  for (int d = 0; d < Dim; ++d) {
    const double diff = q[d] - c[d];
    result += diff * diff;
  }
  return result;
}

// Squared distance from q to a box. Rounding is monotone, so it never
// exceeds SquaredDistance to any point inside the box.
template <int Dim>
double SquaredBoxDistance(const double* q, const double* low, const double* high) {
  double result = 0.0;
  for (int d = 0; d < Dim; ++d) {
    const double gap = q[d] < low[d] ? low[d] - q[d] : (q[d] > high[d] ? q[d] - high[d] : 0.0);
    result += gap * gap;
  }
  return result;
}

// The first positions of the leaves under `node` that reach into the box
// [low, high]: a first child's points lie at or below its split's divlow, a
// second child's at or above divhigh.
template <class Node>
void LeavesInBox(const Node* node, const double* low, const double* high, std::vector<std::size_t>& lefts) {
  if (node->child1 == nullptr && node->child2 == nullptr) {
    lefts.push_back(node->node_type.lr.left);
    return;
  }
  const int d = node->node_type.sub.divfeat;
  if (low[d] <= node->node_type.sub.divlow) LeavesInBox(node->child1, low, high, lefts);
  if (high[d] >= node->node_type.sub.divhigh) LeavesInBox(node->child2, low, high, lefts);
}

}  // namespace

struct ZoKdTree::Impl {
  PointCloud cloud;
  std::size_t bucketSize = 30;
  bool badInput = false;  // a null point array with a non-zero count
  bool built = false;
  // Every z is 0 (the library's 2-D points): the trees split on x and y only,
  // which gives the same distances with a third less work per node. A query
  // off the plane still gets the 3-D trees.
  bool planar = false;
  LazyTree<L2Tree<2>> l2Flat;
  LazyTree<L1Tree<2>> l1Flat;
  LazyTree<L2Tree<3>> l2Full;
  LazyTree<L1Tree<3>> l1Full;

  template <class Metric, class Tree>
  std::size_t Knn(const Tree& tree, const std::size_t* original, const double* q, std::size_t k, std::size_t* indices,
                  double* distances) const {
    KnnResult<Metric> result(std::min(k, cloud.count), indices, distances, original);
    tree.findNeighbors(result, q, nanoflann::SearchParams());
    return result.Finish();
  }

  template <class Metric, class Tree>
  void Radius(const Tree& tree, const std::size_t* original, const double* q, double radius,
              std::vector<std::pair<double, std::size_t>>& found) const {
    RadiusResult<Metric> result(radius, found, original);
    tree.findNeighbors(result, q, nanoflann::SearchParams());
    std::sort(found.begin(), found.end());  // pairs order by (distance, index)
  }

  // Runs `search(metric tag, tree, original numbers)` on the tree that
  // serves the query; false when that tree cannot be built.
  template <class Search>
  bool Dispatch(const double* q, int method, Search&& search) const {
    const bool flat = planar && q[2] == 0.0;
    if (IsEuclidean(method)) {
      if (flat) return Run<EuclideanMetric>(l2Flat, 2, search);
      return Run<EuclideanMetric>(l2Full, 3, search);
    }
    if (flat) return Run<ManhattanMetric>(l1Flat, 2, search);
    return Run<ManhattanMetric>(l1Full, 3, search);
  }

  template <class Metric, class Lazy, class Search>
  bool Run(const Lazy& lazy, int dim, Search& search) const {
    const auto* tree = lazy.Get(cloud, bucketSize, dim);
    if (tree == nullptr) return false;
    search(Metric{}, *tree, lazy.Original());
    return true;
  }

  // Working memory of a range search, reused from leaf to leaf.
  struct RangeScratch {
    std::vector<std::size_t> indices, lefts, near;
    std::vector<double> distances;
    // A leaf's points' searches, k slots each, kept while the leaf is served.
    std::vector<std::size_t> leafIndices;
    std::vector<double> leafDistances;
    std::vector<std::pair<double, std::size_t>> byDistance;
  };

  // The k nearest of the points at positions [first, last) of the Euclidean
  // tree, a leaf at a time.
  template <int Dim, class Lazy>
  bool NearestOfRange(const Lazy& lazy, std::size_t first, std::size_t last, std::size_t k,
                      const ZoKdTree::NeighboursFound& found) const {
    const auto* tree = lazy.Get(cloud, bucketSize, Dim);
    if (tree == nullptr) return false;
    const auto& leaves = lazy.Leaves();
    RangeScratch scratch;
    scratch.indices.resize(std::min(k, cloud.count));
    scratch.distances.resize(scratch.indices.size());
    for (std::size_t l = lazy.LeafOf(first); l < leaves.size() && leaves[l].left < last; ++l) {
      const std::size_t from = std::max(first, leaves[l].left), to = std::min(last, leaves[l].right);
      if (leaves[l].right - leaves[l].left < scratch.indices.size()) {
        // The leaf cannot bound its points' searches: a tree search each.
        for (std::size_t p = from; p < to; ++p) {
          const std::size_t n = SearchInto(lazy.Points()[p], k, scratch.indices.data(), scratch.distances.data(), 1);
          if (n == 0) return false;
          found(p, scratch.indices.data(), scratch.distances.data(), n);
        }
        continue;
      }
      NearestInLeaf<Dim>(lazy, *tree, l, from, to, scratch, found);
    }
    return true;
  }

  // The points at positions [from, to) of leaf l, which holds at least k
  // points. Each first takes its own leaf's points; the largest k-th
  // distance that leaves bounds one walk of the tree collecting the leaves
  // near this one. Each point then scans those leaves nearest box first and
  // stops at the first box beyond its k-th distance. A leaf is skipped only
  // when its box lies at or beyond the bound that a tree search would test,
  // so the answer is the tree search's, bit for bit.
  template <int Dim, class Lazy, class Tree>
  static void NearestInLeaf(const Lazy& lazy, const Tree& tree, std::size_t l, std::size_t from, std::size_t to,
                            RangeScratch& s, const ZoKdTree::NeighboursFound& found) {
    const auto& leaves = lazy.Leaves();
    const auto& leaf = leaves[l];
    const LumaPoint3D* points = lazy.Points();
    const std::size_t slots = s.indices.size();
    if (s.leafIndices.size() < (to - from) * slots) {
      s.leafIndices.resize((to - from) * slots);
      s.leafDistances.resize((to - from) * slots);
    }
    const auto scan = [&](const double* q, const auto& range, KnnResult<EuclideanMetric>& result) {
      for (std::size_t o = range.left; o < range.right; ++o) {
        const double d = SquaredDistance<Dim>(q, points[o]);
        if (d < result.worstDist()) result.addPoint(d, o);
      }
    };
    double reach = 0.0;
    for (std::size_t p = from; p < to; ++p) {
      const double q[3] = {points[p].x, points[p].y, points[p].z};
      const std::size_t at = (p - from) * slots;
      KnnResult<EuclideanMetric> result(slots, &s.leafIndices[at], &s.leafDistances[at], lazy.Original());
      scan(q, leaf, result);
      reach = std::max(reach, result.worstDist());
    }
    // The margin's rounding is far inside 1e-9.
    const double margin = std::sqrt(reach) * (1.0 + 1e-9);
    double low[3], high[3];
    for (int d = 0; d < 3; ++d) low[d] = leaf.low[d] - margin, high[d] = leaf.high[d] + margin;
    s.lefts.clear();
    LeavesInBox(tree.root_node, low, high, s.lefts);
    s.near.clear();
    for (const std::size_t left : s.lefts)
      if (left != leaf.left) s.near.push_back(lazy.LeafOf(left));
    for (std::size_t p = from; p < to; ++p) {
      const double q[3] = {points[p].x, points[p].y, points[p].z};
      const std::size_t at = (p - from) * slots;
      KnnResult<EuclideanMetric> result(slots, &s.leafIndices[at], &s.leafDistances[at], lazy.Original());
      result.Resume(slots);
      s.byDistance.clear();
      for (const std::size_t c : s.near)
        s.byDistance.emplace_back(SquaredBoxDistance<Dim>(q, leaves[c].low, leaves[c].high), c);
      std::sort(s.byDistance.begin(), s.byDistance.end());
      for (const auto& [boxDistance, c] : s.byDistance) {
        if (boxDistance >= result.worstDist()) break;
        scan(q, leaves[c], result);
      }
      const std::size_t n = result.Finish();
      found(p, &s.leafIndices[at], &s.leafDistances[at], n);
    }
  }

  // Shared k-nearest search into k-slot buffers; 0 on any failure.
  std::size_t SearchInto(const LumaPoint3D& query, std::size_t k, std::size_t* indices, double* distances,
                         int method) const {
    if (!built || k == 0 || cloud.count == 0 || indices == nullptr || distances == nullptr) return 0;
    const double q[3] = {query.x, query.y, query.z};
    if (!std::isfinite(q[0]) || !std::isfinite(q[1]) || !std::isfinite(q[2])) return 0;
    try {
      std::size_t found = 0;
      const bool ok = Dispatch(q, method, [&](auto metric, const auto& tree, const std::size_t* original) {
        found = Knn<decltype(metric)>(tree, original, q, k, indices, distances);
      });
      return ok ? found : 0;
    } catch (...) {
      return 0;
    }
  }
};

ZoKdTree::ZoKdTree(const LumaPoint3D* points, std::size_t count) : m_impl(std::make_unique<Impl>()) {
  m_impl->cloud.points = points;
  m_impl->cloud.count = (points != nullptr) ? count : 0;
  m_impl->badInput = (points == nullptr && count > 0);
}

ZoKdTree::~ZoKdTree() = default;

void ZoKdTree::SetMaxBucketSize(std::size_t size) {
  if (!m_impl->built) m_impl->bucketSize = std::max<std::size_t>(size, 1);
}

bool ZoKdTree::Build() {
  Impl& impl = *m_impl;
  if (impl.built) return true;
  if (impl.badInput) return false;
  bool planar = true;
  for (std::size_t i = 0; i < impl.cloud.count; ++i) {
    const LumaPoint3D& p = impl.cloud.points[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return false;
    planar = planar && p.z == 0.0;
  }
  impl.planar = planar;
  // The Euclidean tree is built now, so that a failure shows here; the others
  // when a query first needs them.
  const bool ok = planar ? impl.l2Flat.Get(impl.cloud, impl.bucketSize, 2) != nullptr
                         : impl.l2Full.Get(impl.cloud, impl.bucketSize, 3) != nullptr;
  impl.built = ok;
  return ok;
}

std::size_t ZoKdTree::SearchSlots(const LumaPoint3D& query, std::size_t k, std::size_t* indices, double* distances,
                                  int method) const {
  return m_impl->SearchInto(query, k, indices, distances, method);
}

bool ZoKdTree::IsBuilt() const { return m_impl->built; }

bool ZoKdTree::SearchSpatialRange(std::size_t first, std::size_t last, std::size_t k, int method,
                                  const NeighboursFound& found) const {
  const Impl& impl = *m_impl;
  if (!impl.built || k == 0) return false;
  last = std::min(last, impl.cloud.count);
  if (first >= last) return true;
  try {
    if (IsEuclidean(method))
      return impl.planar ? impl.NearestOfRange<2>(impl.l2Flat, first, last, k, found)
                         : impl.NearestOfRange<3>(impl.l2Full, first, last, k, found);
    // Other metrics search point by point, in the same order.
    const std::size_t* original = impl.planar ? impl.l2Flat.Original() : impl.l2Full.Original();
    std::vector<std::size_t> indices(std::min(k, impl.cloud.count));
    std::vector<double> distances(indices.size());
    for (std::size_t p = first; p < last; ++p) {
      const std::size_t n =
          impl.SearchInto(impl.cloud.points[original[p]], k, indices.data(), distances.data(), method);
      if (n == 0) return false;
      found(p, indices.data(), distances.data(), n);
    }
    return true;
  } catch (...) {
    return false;
  }
}

bool ZoKdTree::GetSpatialOrder(std::vector<std::int64_t>& order) const {
  order.clear();
  const Impl& impl = *m_impl;
  if (!impl.built) return false;
  if (impl.cloud.count == 0) return true;
  // The tree built by Build: its leaves are in place.
  const std::size_t* original = impl.planar
                                    ? impl.l2Flat.Get(impl.cloud, impl.bucketSize, 2) ? impl.l2Flat.Original() : nullptr
                                : impl.l2Full.Get(impl.cloud, impl.bucketSize, 3) ? impl.l2Full.Original()
                                                                                  : nullptr;
  if (original == nullptr) return false;
  order.assign(original, original + impl.cloud.count);
  return true;
}

std::size_t ZoKdTree::GetCount() const { return m_impl->cloud.count; }

std::size_t ZoKdTree::SearchKdTree(const LumaPoint3D& query, std::size_t k, std::vector<std::size_t>& indices,
                                   std::vector<double>& distances, int method) const {
  indices.clear();
  distances.clear();
  try {
    const std::size_t slots = std::min(k, m_impl->cloud.count);
    indices.resize(slots);
    distances.resize(slots);
  } catch (...) {
    indices.clear();
    distances.clear();
    return 0;
  }
  const std::size_t found = SearchSlots(query, indices.size(), indices.data(), distances.data(), method);
  indices.resize(found);
  distances.resize(found);
  return found;
}

std::size_t ZoKdTree::SearchKdTreeDis2(const LumaPoint3D& query, double radius, std::vector<std::size_t>& indices,
                                       std::vector<double>& distances, int method) const {
  indices.clear();
  distances.clear();
  const Impl& impl = *m_impl;
  if (!impl.built || impl.cloud.count == 0 || !(radius >= 0.0)) return 0;
  const double q[3] = {query.x, query.y, query.z};
  if (!std::isfinite(q[0]) || !std::isfinite(q[1]) || !std::isfinite(q[2])) return 0;
  try {
    std::vector<std::pair<double, std::size_t>> found;
    if (!impl.Dispatch(q, method, [&](auto metric, const auto& tree, const std::size_t* original) {
          impl.Radius<decltype(metric)>(tree, original, q, radius, found);
        }))
      return 0;
    indices.reserve(found.size());
    distances.reserve(found.size());
    for (const auto& [d, i] : found) {
      indices.push_back(i);
      distances.push_back(d);
    }
    return found.size();
  } catch (...) {
    indices.clear();
    distances.clear();
    return 0;
  }
}

std::size_t ZoKdTreec::SearchKdTreec(const LumaPoint3D& query, std::size_t k, std::size_t* indices, double* distances,
                                     int method) const {
  return SearchSlots(query, k, indices, distances, method);
}

}  // namespace ZOC
