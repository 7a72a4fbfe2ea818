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
// (squared distances for L2); a metric maps those to true distances, and a
// true distance to a nanoflann bound that admits every point at that distance.
//
// The bound is generous on purpose. nanoflann tests leaves with a strict
// `dist < bound` and prunes a branch when its incrementally accumulated lower
// bound exceeds `bound`; that accumulation rounds, so an exactly tied point in
// a pruned branch could otherwise be lost. Letting a few extra candidates in
// costs nothing: the result sets below decide membership on the true distance.
struct EuclideanMetric {
  static double TrueDistance(double metricDistance) { return std::sqrt(metricDistance); }
  static double Bound(double distance) {
    const double sq = distance * distance;
    return std::nextafter(sq + sq * 1e-12, kInf);
  }
};

struct ManhattanMetric {
  static double TrueDistance(double metricDistance) { return metricDistance; }
  static double Bound(double distance) { return std::nextafter(distance + distance * 1e-12, kInf); }
};

// Total order of candidates: distance first, then index.
inline bool Before(double d1, std::size_t i1, double d2, std::size_t i2) { return d1 < d2 || (d1 == d2 && i1 < i2); }

// k-nearest result set kept as a max-heap (worst candidate on top) in two
// parallel caller-owned arrays, so a search allocates nothing itself.
// Membership is decided on (distance, index), which makes the answer
// independent of the order in which nanoflann visits the points.
template <class Metric>
class KnnResult {
 public:
  KnnResult(std::size_t capacity, std::size_t* indices, double* distances)
      : m_capacity(capacity), m_indices(indices), m_dists(distances) {}

  std::size_t size() const { return m_size; }
  bool full() const { return m_size == m_capacity; }

  bool addPoint(double metricDistance, std::size_t index) {
    const double d = Metric::TrueDistance(metricDistance);
    if (m_size < m_capacity) {
      m_indices[m_size] = index;
      m_dists[m_size] = d;
      SiftUp(m_size++);
      if (full()) m_bound = Metric::Bound(m_dists[0]);
    } else if (Before(d, index, m_dists[0], m_indices[0])) {
      m_indices[0] = index;
      m_dists[0] = d;
      SiftDown(0);
      m_bound = Metric::Bound(m_dists[0]);
    }
    return true;
  }

  // Strictly above the current worst, so a point tied with it still reaches
  // addPoint and competes on its index.
  double worstDist() const { return m_bound; }

  // Turns the heap into ascending (distance, index) order; returns the count.
  std::size_t Finish() {
    for (std::size_t n = m_size; n > 1; --n) {
      Swap(0, n - 1);
      SiftDown(0, n - 1);
    }
    return m_size;
  }

 private:
  bool Less(std::size_t a, std::size_t b) const { return Before(m_dists[a], m_indices[a], m_dists[b], m_indices[b]); }
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
  void SiftDown(std::size_t i) { SiftDown(i, m_size); }
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
  std::size_t m_size = 0;
  double m_bound = kInf;
};

// Radius result set: every point at true distance ≤ radius.
template <class Metric>
class RadiusResult {
 public:
  RadiusResult(double radius, std::vector<std::pair<double, std::size_t>>& out)
      : m_radius(radius), m_bound(Metric::Bound(radius)), m_out(out) {}

  std::size_t size() const { return m_out.size(); }
  bool full() const { return true; }
  bool addPoint(double metricDistance, std::size_t index) {
    const double d = Metric::TrueDistance(metricDistance);
    if (d <= m_radius) m_out.emplace_back(d, index);
    return true;
  }
  double worstDist() const { return m_bound; }

 private:
  double m_radius;
  double m_bound;
  std::vector<std::pair<double, std::size_t>>& m_out;
};

bool IsEuclidean(int method) { return method == 1; }

// One metric's tree over the points in Dim dimensions, built once on first
// use by whichever thread asks first.
template <class Tree>
class LazyTree {
 public:
  const Tree* Get(const PointCloud& cloud, std::size_t bucketSize, int dim) const {
    std::call_once(m_once, [&] {
      try {
        m_tree = std::make_unique<Tree>(dim, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(bucketSize));
      } catch (...) {
        m_tree.reset();
      }
    });
    return m_tree.get();
  }

 private:
  mutable std::unique_ptr<Tree> m_tree;
  mutable std::once_flag m_once;
};

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
  std::size_t Knn(const Tree& tree, const double* q, std::size_t k, std::size_t* indices, double* distances) const {
    KnnResult<Metric> result(std::min(k, cloud.count), indices, distances);
    tree.findNeighbors(result, q, nanoflann::SearchParams());
    return result.Finish();
  }

  template <class Metric, class Tree>
  void Radius(const Tree& tree, const double* q, double radius,
              std::vector<std::pair<double, std::size_t>>& found) const {
    RadiusResult<Metric> result(radius, found);
    tree.findNeighbors(result, q, nanoflann::SearchParams());
    std::sort(found.begin(), found.end());  // pairs order by (distance, index)
  }

  // Runs `search(metric tag, tree)` on the tree that serves the query; false
  // when that tree cannot be built.
  template <class Search>
  bool Dispatch(const double* q, int method, Search&& search) const {
    const bool flat = planar && q[2] == 0.0;
    if (IsEuclidean(method)) {
      if (flat) return Run<EuclideanMetric>(l2Flat.Get(cloud, bucketSize, 2), search);
      return Run<EuclideanMetric>(l2Full.Get(cloud, bucketSize, 3), search);
    }
    if (flat) return Run<ManhattanMetric>(l1Flat.Get(cloud, bucketSize, 2), search);
    return Run<ManhattanMetric>(l1Full.Get(cloud, bucketSize, 3), search);
  }

  template <class Metric, class Tree, class Search>
  static bool Run(const Tree* tree, Search& search) {
    if (tree == nullptr) return false;
    search(Metric{}, *tree);
    return true;
  }

  // Shared k-nearest search into k-slot buffers; 0 on any failure.
  std::size_t SearchInto(const LumaPoint3D& query, std::size_t k, std::size_t* indices, double* distances,
                         int method) const {
    if (!built || k == 0 || cloud.count == 0 || indices == nullptr || distances == nullptr) return 0;
    const double q[3] = {query.x, query.y, query.z};
    if (!std::isfinite(q[0]) || !std::isfinite(q[1]) || !std::isfinite(q[2])) return 0;
    try {
      std::size_t found = 0;
      const bool ok = Dispatch(q, method, [&](auto metric, const auto& tree) {
        found = Knn<decltype(metric)>(tree, q, k, indices, distances);
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
    if (!impl.Dispatch(q, method,
                       [&](auto metric, const auto& tree) { impl.Radius<decltype(metric)>(tree, q, radius, found); }))
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
