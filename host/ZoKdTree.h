#pragma once
// ZoKdTree and ZoKdTreec: KD trees over an array of LumaPoint3D, built with
// nanoflann. The caller owns the point array for the tree's lifetime.
//
// Distances are true distances, never squared: Euclidean
// sqrt(dx² + dy² + dz²), or Manhattan |dx| + |dy| + |dz| (the library passes
// z = 0). Method 1 is Euclidean; any other value is Manhattan.
//
// Tie rules, fixed so that results never depend on chance or thread count:
// - k-nearest: the k points that come first when ordered by (distance, index);
//   results are in that order. Fewer than k points in the tree gives them all.
// - radius: every point whose distance is ≤ radius, the boundary included,
//   ordered by (distance, index). A negative radius finds nothing.
//
// Searches are const and safe to run concurrently once Build has returned.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaPoint.h"

namespace ZOC {

using LUMA::LumaPoint3D;

class SA_HOST_API ZoKdTree {
 public:
  ZoKdTree(const LumaPoint3D* points, std::size_t count);
  virtual ~ZoKdTree();
  ZoKdTree(const ZoKdTree&) = delete;
  ZoKdTree& operator=(const ZoKdTree&) = delete;

  void SetMaxBucketSize(std::size_t size);  // before Build; default 30
  // False when a point has a non-finite coordinate or allocation fails.
  bool Build();
  bool IsBuilt() const;
  std::size_t GetCount() const;

  // Every point number in the order of the tree's leaves, where points close
  // in the order lie close in space: queries made in this order reuse the
  // tree's cache lines. False (and empty) before Build.
  bool GetSpatialOrder(std::vector<std::int64_t>& order) const;

  // The k nearest points of every point at positions [first, last) of
  // GetSpatialOrder(), each exactly as SearchKdTree finds it for that point.
  // Neighbouring points share their walks of the tree, which makes this
  // several times faster than a search per point. `found(position, indices,
  // distances, count)` receives each answer in buffers reused afterwards.
  // False when a search fails. Safe to run concurrently on distinct ranges.
  using NeighboursFound =
      std::function<void(std::size_t position, const std::size_t* indices, const double* distances, std::size_t count)>;
  bool SearchSpatialRange(std::size_t first, std::size_t last, std::size_t k, int method,
                          const NeighboursFound& found) const;

  // The k nearest points of `query`. Returns the number found (min(k, count)).
  std::size_t SearchKdTree(const LumaPoint3D& query, std::size_t k, std::vector<std::size_t>& indices,
                           std::vector<double>& distances, int method) const;
  // All points within `radius` of `query`. Returns the number found.
  std::size_t SearchKdTreeDis2(const LumaPoint3D& query, double radius, std::vector<std::size_t>& indices,
                               std::vector<double>& distances, int method) const;

 protected:
  // The k-nearest search into caller buffers of k slots, shared by both tree
  // types: the first min(k, count) slots receive the answer.
  std::size_t SearchSlots(const LumaPoint3D& query, std::size_t k, std::size_t* indices, double* distances,
                          int method) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// The tree type of the batch search. The k-nearest search writes into
// caller-owned buffers of k slots, so a parallel loop allocates once per
// thread, not once per point.
class SA_HOST_API ZoKdTreec : public ZoKdTree {
 public:
  using ZoKdTree::ZoKdTree;
  std::size_t SearchKdTreec(const LumaPoint3D& query, std::size_t k, std::size_t* indices, double* distances,
                            int method) const;
};

}  // namespace ZOC
