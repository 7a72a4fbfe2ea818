// KD-tree searches against brute force, with the tie rules checked on
// layouts full of exactly equal distances.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "host/ZoKdTree.h"

using LUMA::LumaPoint3D;
using ZOC::ZoKdTree;
using ZOC::ZoKdTreec;

namespace {

constexpr int kEuclidean = 1;
constexpr int kManhattan = 2;

struct Hits {
  std::vector<std::size_t> idx;
  std::vector<double> dist;
  bool operator==(const Hits&) const = default;
};

// The distance exactly as a caller would compute it.
double TrueDistance(const LumaPoint3D& a, const LumaPoint3D& b, int method) {
  const double dx = a.x - b.x, dy = a.y - b.y, dz = a.z - b.z;
  return method == kEuclidean ? std::sqrt(dx * dx + dy * dy + dz * dz) : std::abs(dx) + std::abs(dy) + std::abs(dz);
}

// Brute force: all points by (distance, index), the first k of them within r.
Hits Brute(const std::vector<LumaPoint3D>& pts, const LumaPoint3D& q, std::size_t k, double r, int method) {
  std::vector<std::pair<double, std::size_t>> all;
  for (std::size_t i = 0; i < pts.size(); ++i) all.emplace_back(TrueDistance(q, pts[i], method), i);
  std::sort(all.begin(), all.end());
  Hits h;
  for (const auto& [d, i] : all) {
    if (h.idx.size() == k || !(d <= r)) break;
    h.dist.push_back(d);
    h.idx.push_back(i);
  }
  return h;
}

Hits TreeKnn(const ZoKdTree& tree, const LumaPoint3D& q, std::size_t k, int method) {
  Hits h;
  const std::size_t n = tree.SearchKdTree(q, k, h.idx, h.dist, method);
  EXPECT_TRUE(n == h.idx.size() && n == h.dist.size());
  return h;
}

Hits TreeRadius(const ZoKdTree& tree, const LumaPoint3D& q, double r, int method) {
  Hits h;
  const std::size_t n = tree.SearchKdTreeDis2(q, r, h.idx, h.dist, method);
  EXPECT_TRUE(n == h.idx.size() && n == h.dist.size());
  return h;
}

std::vector<LumaPoint3D> RandomPoints(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(-50.0, 150.0);
  std::vector<LumaPoint3D> pts(n);
  for (auto& p : pts) p = {u(rng), u(rng), 0.0};
  return pts;
}

// An integer grid in shuffled index order, so that index order says nothing
// about position, plus a few exact duplicates at the end.
std::vector<LumaPoint3D> ShuffledGrid(int side, unsigned seed) {
  std::vector<LumaPoint3D> pts;
  for (int x = 0; x < side; ++x)
    for (int y = 0; y < side; ++y) pts.push_back({double(x), double(y), 0.0});
  std::mt19937 rng(seed);
  std::shuffle(pts.begin(), pts.end(), rng);
  for (int i = 0; i < 15; ++i) pts.push_back(pts[static_cast<std::size_t>(i * 7)]);
  return pts;
}

}  // namespace

// Single searches, and the batch search over the tree's own points, against
// brute force: on random points, on random points off the plane, and on an
// integer grid with a stack of duplicates taller than a leaf, where many
// neighbours lie exactly at the radius or tie for the k-th place (the radius
// is inclusive, ties go to the lower index). Batch ranges cut a leaf.
TEST(HostKdTree, SearchesMatchBruteForceWithTies) {
  const int side = 20;
  auto flat = RandomPoints(1000, 7), grid = ShuffledGrid(side, 3), solid = RandomPoints(700, 11);
  for (int i = 0; i < 40; ++i) grid.push_back(grid[3]);
  std::mt19937 rng(4);
  for (auto& p : solid) p.z = std::uniform_real_distribution<double>(0.0, 30.0)(rng);
  for (const auto* set : {&flat, &grid, &solid}) {
    const std::vector<LumaPoint3D>& pts = *set;
    auto queries = RandomPoints(60, 99);  // and data points: every one of the grid's
    for (std::size_t i = 0; i < pts.size(); i += set == &grid ? 1 : 25) queries.push_back(pts[i]);
    for (std::size_t bucket : {1, 4, 30}) {
      ZoKdTree tree(pts.data(), pts.size());
      tree.SetMaxBucketSize(bucket);
      ASSERT_TRUE(tree.Build());
      EXPECT_EQ(tree.GetCount(), pts.size());
      std::vector<std::int64_t> order;
      ASSERT_TRUE(tree.GetSpatialOrder(order) && order.size() == pts.size());
      for (int method : {kEuclidean, kManhattan}) {
        for (const auto& q : queries) {
          for (std::size_t k : {std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{6}, std::size_t{9},
                                std::size_t{64}, pts.size() + 5})
            ASSERT_EQ(TreeKnn(tree, q, k, method), Brute(pts, q, k, DBL_MAX, method)) << k << " " << bucket;
          for (double r : {0.0, 1.0, 2.0, 3.0, 12.5, 60.0, DBL_MAX})
            ASSERT_EQ(TreeRadius(tree, q, r, method), Brute(pts, q, SIZE_MAX, r, method)) << r << " " << bucket;
          EXPECT_TRUE(TreeRadius(tree, q, -1.0, method).idx.empty() && TreeRadius(tree, q, NAN, method).idx.empty());
        }
        for (std::size_t k : {std::size_t{1}, std::size_t{9}, std::size_t{45}}) {
          std::vector<int> seen(pts.size(), 0);
          const auto check = [&](std::size_t position, const std::size_t* idx, const double* dist, std::size_t n) {
            const LumaPoint3D& q = pts[static_cast<std::size_t>(order[position])];
            const Hits got{{idx, idx + n}, {dist, dist + n}};
            ASSERT_EQ(got, Brute(pts, q, k, DBL_MAX, method)) << bucket << " k=" << k << " method=" << method;
            ++seen[position];
          };
          const std::size_t cut = pts.size() / 3 + 1;
          ASSERT_TRUE(tree.SearchSpatialRange(0, cut, k, method, check) &&
                      tree.SearchSpatialRange(cut, pts.size() + 10, k, method, check));
          EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), static_cast<std::ptrdiff_t>(pts.size()));
        }
      }
    }
  }
  // By hand: 5 and 13 grid points lie within 1 and 2 of an interior point,
  // for L1 and L2 alike, and duplicates count twice.
  for (const LumaPoint3D& q : grid) {
    if (q.x < 2 || q.x > side - 3 || q.y < 2 || q.y > side - 3) continue;
    for (int method : {kEuclidean, kManhattan})
      for (double r : {1.0, 2.0}) {
        std::size_t dupes = 0;
        for (std::size_t j = side * side; j < grid.size(); ++j) dupes += TrueDistance(q, grid[j], method) <= r;
        EXPECT_EQ(Brute(grid, q, SIZE_MAX, r, method).idx.size(), (r == 1.0 ? 5u : 13u) + dupes);
      }
  }
}

TEST(HostKdTree, ConcurrentQueriesAgree) {
  const auto pts = ShuffledGrid(30, 8);
  ZoKdTreec tree(pts.data(), pts.size());
  ASSERT_TRUE(tree.Build());  // the Manhattan index is first needed inside the threads
  std::vector<int> wrong(4, 0);
  std::vector<std::thread> threads;
  for (int& w : wrong)
    threads.emplace_back([&] {
      for (std::size_t i = 0; i < pts.size(); i += 3)
        for (int method : {kManhattan, kEuclidean}) {
          Hits h{std::vector<std::size_t>(5), std::vector<double>(5)};
          h.idx.resize(tree.SearchKdTreec(pts[i], 5, h.idx.data(), h.dist.data(), method));
          h.dist.resize(h.idx.size());
          w += !(h == Brute(pts, pts[i], 5, DBL_MAX, method)) ||
               !(TreeRadius(tree, pts[i], 2.0, method) == Brute(pts, pts[i], SIZE_MAX, 2.0, method));
        }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(HostKdTree, FailuresEmptyTreesAndCallerSlots) {
  std::vector<LumaPoint3D> pts{{0, 0, 0}, {3, 4, 0}, {1, 0, 0}};
  for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    std::vector<LumaPoint3D> withBad = pts;
    withBad[1].y = bad;
    ZoKdTree tree(withBad.data(), withBad.size());
    EXPECT_FALSE(tree.Build() || tree.IsBuilt());
  }
  EXPECT_FALSE(ZoKdTree(nullptr, 5).Build());

  ZoKdTree empty(nullptr, 0);
  ASSERT_TRUE(empty.Build());
  std::vector<std::size_t> idx{1, 2};
  std::vector<double> dist{1.0};
  EXPECT_EQ(empty.SearchKdTree({0, 0, 0}, 3, idx, dist, kEuclidean), 0u);
  EXPECT_TRUE(idx.empty() && dist.empty());
  EXPECT_EQ(empty.SearchKdTreeDis2({0, 0, 0}, 1e9, idx, dist, kManhattan), 0u);

  // An unbuilt tree and k = 0 find nothing; more slots than points write only the points found.
  ZoKdTreec small(pts.data(), pts.size());
  EXPECT_EQ(small.SearchKdTree({0, 0, 0}, 2, idx, dist, kEuclidean), 0u);
  ASSERT_TRUE(small.Build());
  EXPECT_EQ(small.SearchKdTree({0, 0, 0}, 0, idx, dist, kEuclidean), 0u);
  for (const auto& [method, far] : {std::pair{kEuclidean, 5.0}, {kManhattan, 7.0}}) {
    std::vector<std::size_t> slots(5, 9);
    std::vector<double> d(5, -1);
    ASSERT_EQ(small.SearchKdTreec({0, 0, 0}, 4, slots.data(), d.data(), method), 3u);
    EXPECT_EQ(slots, (std::vector<std::size_t>{0, 2, 1, 9, 9}));
    EXPECT_EQ(d, (std::vector<double>{0, 1, far, -1, -1}));
  }
}
