// KD-tree searches against brute force, with the tie rules checked on
// layouts full of exactly equal distances.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <numeric>
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
  if (method == kEuclidean) return std::sqrt(dx * dx + dy * dy + dz * dz);
  return std::abs(dx) + std::abs(dy) + std::abs(dz);
}

std::vector<std::pair<double, std::size_t>> AllSorted(const std::vector<LumaPoint3D>& pts, const LumaPoint3D& q,
                                                      int method) {
  std::vector<std::pair<double, std::size_t>> all;
  for (std::size_t i = 0; i < pts.size(); ++i) all.emplace_back(TrueDistance(q, pts[i], method), i);
  std::sort(all.begin(), all.end());
  return all;
}

Hits BruteKnn(const std::vector<LumaPoint3D>& pts, const LumaPoint3D& q, std::size_t k, int method) {
  Hits h;
  const auto all = AllSorted(pts, q, method);
  for (std::size_t i = 0; i < std::min(k, all.size()); ++i) {
    h.dist.push_back(all[i].first);
    h.idx.push_back(all[i].second);
  }
  return h;
}

Hits BruteRadius(const std::vector<LumaPoint3D>& pts, const LumaPoint3D& q, double r, int method) {
  Hits h;
  for (const auto& [d, i] : AllSorted(pts, q, method)) {
    if (d <= r) {
      h.dist.push_back(d);
      h.idx.push_back(i);
    }
  }
  return h;
}

Hits TreeKnn(const ZoKdTree& tree, const LumaPoint3D& q, std::size_t k, int method) {
  Hits h;
  const std::size_t n = tree.SearchKdTree(q, k, h.idx, h.dist, method);
  EXPECT_EQ(n, h.idx.size());
  EXPECT_EQ(n, h.dist.size());
  return h;
}

Hits TreeRadius(const ZoKdTree& tree, const LumaPoint3D& q, double r, int method) {
  Hits h;
  const std::size_t n = tree.SearchKdTreeDis2(q, r, h.idx, h.dist, method);
  EXPECT_EQ(n, h.idx.size());
  EXPECT_EQ(n, h.dist.size());
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

TEST(HostKdTree, RandomPointsMatchBruteForce) {
  const auto pts = RandomPoints(1500, 7);
  for (std::size_t bucket : {std::size_t{1}, std::size_t{30}}) {
    ZoKdTree tree(pts.data(), pts.size());
    tree.SetMaxBucketSize(bucket);
    ASSERT_TRUE(tree.Build());
    EXPECT_TRUE(tree.IsBuilt());
    EXPECT_EQ(tree.GetCount(), pts.size());

    auto queries = RandomPoints(60, 99);
    queries.insert(queries.end(), pts.begin(), pts.begin() + 20);  // queries on data points
    for (int method : {kEuclidean, kManhattan}) {
      for (const auto& q : queries) {
        for (std::size_t k : {std::size_t{1}, std::size_t{2}, std::size_t{9}, std::size_t{64}, pts.size() + 5}) {
          ASSERT_EQ(TreeKnn(tree, q, k, method), BruteKnn(pts, q, k, method))
              << "k=" << k << " method=" << method << " bucket=" << bucket;
        }
        for (double r : {0.0, 3.0, 12.5, 60.0, DBL_MAX}) {
          ASSERT_EQ(TreeRadius(tree, q, r, method), BruteRadius(pts, q, r, method))
              << "r=" << r << " method=" << method << " bucket=" << bucket;
        }
        EXPECT_EQ(TreeRadius(tree, q, -1.0, method).idx.size(), 0u);
        EXPECT_EQ(TreeRadius(tree, q, std::nan(""), method).idx.size(), 0u);
      }
    }
  }
}

TEST(HostKdTree, GridTiesIncludeBoundaryAndFavourLowerIndices) {
  const int side = 20;
  const auto pts = ShuffledGrid(side, 3);
  for (std::size_t bucket : {std::size_t{1}, std::size_t{4}, std::size_t{30}}) {
    ZoKdTree tree(pts.data(), pts.size());
    tree.SetMaxBucketSize(bucket);
    ASSERT_TRUE(tree.Build());
    for (std::size_t qi = 0; qi < static_cast<std::size_t>(side * side); ++qi) {
      const LumaPoint3D q = pts[qi];
      // Hand counts for a grid point away from the edges, then the exact
      // answer from brute force everywhere.
      const bool interior = q.x >= 2 && q.x <= side - 3 && q.y >= 2 && q.y <= side - 3;
      for (int method : {kEuclidean, kManhattan}) {
        for (double r : {1.0, 2.0}) {
          const Hits got = TreeRadius(tree, q, r, method);
          ASSERT_EQ(got, BruteRadius(pts, q, r, method)) << "bucket=" << bucket << " r=" << r;
          if (interior) {
            std::size_t dupes = 0;  // duplicated grid points within the radius count twice
            for (std::size_t j = side * side; j < pts.size(); ++j) dupes += TrueDistance(q, pts[j], method) <= r;
            const std::size_t grid = (r == 1.0) ? 5 : 13;  // L1 and L2 agree on these two radii
            EXPECT_EQ(got.idx.size(), grid + dupes);
          }
        }
        // The k-th distance is tied among several neighbours.
        for (std::size_t k : {std::size_t{2}, std::size_t{3}, std::size_t{4}, std::size_t{6}, std::size_t{10}}) {
          const Hits got = TreeKnn(tree, q, k, method);
          ASSERT_EQ(got, BruteKnn(pts, q, k, method)) << "bucket=" << bucket << " k=" << k;
        }
      }
    }
  }
}

TEST(HostKdTree, CoincidentPoints) {
  std::vector<LumaPoint3D> pts = RandomPoints(200, 11);
  const LumaPoint3D spot{10.0, 20.0, 0.0};
  std::vector<std::size_t> copies;
  for (std::size_t i = 0; i < pts.size(); i += 4) {
    pts[i] = spot;
    copies.push_back(i);
  }
  ZoKdTree tree(pts.data(), pts.size());
  tree.SetMaxBucketSize(2);
  ASSERT_TRUE(tree.Build());
  for (int method : {kEuclidean, kManhattan}) {
    const Hits knn = TreeKnn(tree, spot, 10, method);
    EXPECT_EQ(knn.idx, std::vector<std::size_t>(copies.begin(), copies.begin() + 10));
    EXPECT_EQ(knn.dist, std::vector<double>(10, 0.0));
    const Hits zero = TreeRadius(tree, spot, 0.0, method);
    EXPECT_EQ(zero.idx, copies);
  }
}

TEST(HostKdTree, BatchSearchWritesCallerSlotsOnly) {
  const auto pts = RandomPoints(300, 5);
  ZoKdTreec tree(pts.data(), pts.size());
  ASSERT_TRUE(tree.Build());
  const std::size_t k = 7;
  std::vector<std::size_t> idx(k + 1, 12345);
  std::vector<double> dist(k + 1, -1.0);
  for (int method : {kEuclidean, kManhattan}) {
    const LumaPoint3D q{1.0, 2.0, 0.0};
    ASSERT_EQ(tree.SearchKdTreec(q, k, idx.data(), dist.data(), method), k);
    const Hits expected = BruteKnn(pts, q, k, method);
    EXPECT_EQ(std::vector<std::size_t>(idx.begin(), idx.begin() + k), expected.idx);
    EXPECT_EQ(std::vector<double>(dist.begin(), dist.begin() + k), expected.dist);
    EXPECT_EQ(idx[k], 12345u);
    EXPECT_EQ(dist[k], -1.0);
  }
  // More slots than points: only the points found are written.
  std::vector<LumaPoint3D> three{{0, 0, 0}, {3, 4, 0}, {1, 0, 0}};
  ZoKdTreec small(three.data(), three.size());
  ASSERT_TRUE(small.Build());
  std::fill(idx.begin(), idx.end(), 12345);
  ASSERT_EQ(small.SearchKdTreec({0, 0, 0}, 5, idx.data(), dist.data(), kEuclidean), 3u);
  EXPECT_EQ((std::vector<std::size_t>{idx[0], idx[1], idx[2], idx[3]}), (std::vector<std::size_t>{0, 2, 1, 12345}));
  EXPECT_EQ(dist[2], 5.0);
  ASSERT_EQ(small.SearchKdTreec({0, 0, 0}, 5, idx.data(), dist.data(), kManhattan), 3u);
  EXPECT_EQ(dist[2], 7.0);
}

TEST(HostKdTree, ConcurrentQueriesAgree) {
  const auto pts = ShuffledGrid(30, 8);
  ZoKdTreec tree(pts.data(), pts.size());
  ASSERT_TRUE(tree.Build());  // the Manhattan index is first needed inside the threads

  const std::size_t k = 5;
  auto runAll = [&](std::vector<Hits>& out) {
    out.clear();
    for (std::size_t i = 0; i < pts.size(); i += 3) {
      for (int method : {kManhattan, kEuclidean}) {
        Hits h;
        h.idx.resize(k);
        h.dist.resize(k);
        h.idx.resize(tree.SearchKdTreec(pts[i], k, h.idx.data(), h.dist.data(), method));
        h.dist.resize(h.idx.size());
        out.push_back(h);
        out.push_back(TreeRadius(tree, pts[i], 2.0, method));
      }
    }
  };
  std::vector<std::vector<Hits>> results(4);
  std::vector<std::thread> threads;
  for (auto& r : results) threads.emplace_back(runAll, std::ref(r));
  for (auto& t : threads) t.join();

  std::vector<Hits> single;
  runAll(single);
  for (const auto& r : results) EXPECT_EQ(r, single);
  // Spot check the single-threaded answers against brute force.
  std::size_t slot = 0;
  for (std::size_t i = 0; i < pts.size(); i += 3, slot += 4) {
    EXPECT_EQ(single[slot], BruteKnn(pts, pts[i], k, kManhattan));
    EXPECT_EQ(single[slot + 1], BruteRadius(pts, pts[i], 2.0, kManhattan));
    EXPECT_EQ(single[slot + 2], BruteKnn(pts, pts[i], k, kEuclidean));
  }
}

TEST(HostKdTree, BuildFailuresAndEmptyTrees) {
  std::vector<LumaPoint3D> pts{{0, 0, 0}, {1, std::numeric_limits<double>::quiet_NaN(), 0}, {2, 2, 0}};
  ZoKdTree bad(pts.data(), pts.size());
  EXPECT_FALSE(bad.Build());
  EXPECT_FALSE(bad.IsBuilt());
  pts[1].y = std::numeric_limits<double>::infinity();
  ZoKdTree inf(pts.data(), pts.size());
  EXPECT_FALSE(inf.Build());
  ZoKdTree null(nullptr, 5);
  EXPECT_FALSE(null.Build());

  ZoKdTree empty(nullptr, 0);
  ASSERT_TRUE(empty.Build());
  std::vector<std::size_t> idx{1, 2};
  std::vector<double> dist{1.0};
  EXPECT_EQ(empty.SearchKdTree({0, 0, 0}, 3, idx, dist, kEuclidean), 0u);
  EXPECT_TRUE(idx.empty());
  EXPECT_TRUE(dist.empty());
  EXPECT_EQ(empty.SearchKdTreeDis2({0, 0, 0}, 1e9, idx, dist, kManhattan), 0u);

  // An unbuilt tree and k = 0 find nothing.
  pts[1].y = 1.0;
  ZoKdTree unbuilt(pts.data(), pts.size());
  EXPECT_EQ(unbuilt.SearchKdTree({0, 0, 0}, 2, idx, dist, kEuclidean), 0u);
  ASSERT_TRUE(unbuilt.Build());
  EXPECT_EQ(unbuilt.SearchKdTree({0, 0, 0}, 0, idx, dist, kEuclidean), 0u);
  EXPECT_EQ(unbuilt.SearchKdTree({0, 0, 0}, 2, idx, dist, kEuclidean), 2u);
}
