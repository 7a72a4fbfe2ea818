#pragma once
// KD-tree construction over feature points and the distances the analyses
// derive from nearest-neighbour searches: the k-th neighbour distance and
// the default distance band.
#include <cstddef>
#include <memory>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoKdTree.h"

namespace ZOC::detail::spatial {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;
using LUMA::LumaPoint3D;

// Leaves of 30 points: the analyses' searches return tens of neighbours.
inline constexpr std::size_t kTreeBucketSize = 30;

// Fills `buffer` with (x, y, 0) per point and builds a tree over it; the
// tree reads the buffer, which must outlive it. "ESa032" when the build
// fails. Tree is ZoKdTree or ZoKdTreec.
template <class Tree>
Status BuildTree(LumaArray<LumaPoint3D>& buffer, const LumaArray<LumaPoint2D>& points, std::unique_ptr<Tree>& tree);

// Distance from `point` (one of the tree's points, so it comes back at
// distance 0) to its k-th nearest other point. False when k < 0 or the
// tree finds nothing.
bool KthNeighbourDistance(const ZoKdTree& tree, const LumaPoint2D& point, int k, ZoDistanceMethod method,
                          double& distance);

// For every point, the largest of the distances to its k nearest points of
// the tree (the point itself counts when it is in the tree), computed in
// parallel; the result does not depend on the thread count. False when
// k < 1 or a thread's buffers cannot be allocated.
bool KNearestReach(const ZoKdTreec& tree, const LumaArray<LumaPoint2D>& points, int k, ZoDistanceMethod method,
                   LumaArray<double>& distances);

// The largest and the mean of the nearest-neighbour distances of the tree's
// own points (0 for a point with a coincident neighbour), leaving out the
// points flagged in `setAside` (their neighbours may still be any point);
// false when the search fails.
bool NearestNeighbourSummary(const ZoKdTree& tree, std::size_t count, ZoDistanceMethod method, double& largest,
                             double& mean, const std::vector<char>* setAside = nullptr);

// The default band: 1.0001 × the largest nearest-neighbour distance of the
// tree's points not set aside (see NearestNeighbourSummary); false when the
// search fails.
bool DefaultBand(const ZoKdTree& tree, std::size_t count, ZoDistanceMethod method, double& band,
                 const std::vector<char>* setAside = nullptr);

// The distance band for a tolerance: 0 (within ±1e-20) means no limit (the
// largest double); a positive tolerance is the band; a negative one (the
// default -1) gives 1.0001 × the largest nearest-neighbour distance, found
// with `tree` built over `points`, so every feature has a neighbour.
// "ESa007" for no points; a negative tolerance without a tree gives 0.
Status DistanceBand(const ZoKdTree* tree, const LumaArray<LumaPoint2D>& points, double tolerance,
                    ZoDistanceMethod method, double& band);
// The same, building the tree itself when the band depends on it.
Status DistanceBand(const LumaArray<LumaPoint2D>& points, double tolerance, ZoDistanceMethod method, double& band);

}  // namespace ZOC::detail::spatial
