// Locational outliers on hand-worked layouts; the first pins the quartiles
// to R's quantile() type 7 (types 6 and 8 put the limit elsewhere).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "StatisticsAnalyst/detail/aggregation/LocationalOutliers.h"
#include "TestSupport.h"

using namespace ZOC;
using namespace ZOC::detail::aggregation;

TEST(LocationalOutliers, FarPointsBeyondThreeInterquartileRanges) {
  // Five points on a line and a sixth at x: median centre (2.5, 0), distances
  // 0.5 0.5 1.5 1.5 2.5 (x − 2.5), Q1 0.75 and Q3 2.25 by type 7, so the
  // limit is 6.75 and a sixth point at 9.25 lies exactly on it, not beyond.
  for (const auto method : {Euclidean, Manhattan}) {
    LumaArray<LumaPoint2D> line = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {9.25, 0}};
    EXPECT_EQ(LocationalOutliers(line, method), std::vector<char>(6, 0));
    line[5].x = 9.26;
    EXPECT_EQ(LocationalOutliers(line, method), (std::vector<char>{0, 0, 0, 0, 0, 1}));
    line.resize(3);  // fewer than 4 points: none
    line[2] = {1e9, 1e9};
    EXPECT_EQ(LocationalOutliers(line, method), std::vector<char>(3, 0));
  }

  // A tight cluster with one far point and a non-finite one; uniform points have none.
  auto random = satest::RandomPoints(400, 2.0, 5);
  LumaArray<LumaPoint2D> cluster(random.begin(), random.begin() + 40);
  cluster.push_back({50, -20});
  cluster.push_back({std::nan(""), 1});
  std::vector<char> expected(cluster.size(), 0);
  expected[40] = 1;
  EXPECT_EQ(LocationalOutliers(cluster, Euclidean), expected);
  const LumaArray<LumaPoint2D> uniform(random.begin(), random.end());
  EXPECT_EQ(LocationalOutliers(uniform, Manhattan), std::vector<char>(uniform.size(), 0));
}
