// The default cell size and integration tolerance against a brute-force mean
// nearest-neighbour distance over the distinct inlying locations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "StatisticsAnalyst/detail/aggregation/FishnetGrid.h"
#include "StatisticsAnalyst/detail/aggregation/IntegrateIncidents.h"
#include "StatisticsAnalyst/detail/aggregation/LocationalOutliers.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"

using namespace ZOC;
using namespace ZOC::detail::aggregation;

namespace {

// O(m²) over the distinct locations of the unflagged points: the mean nearest
// distance and the longer side of their extent.
std::pair<double, double> BruteSpacing(const LumaArray<LumaPoint2D>& points, const std::vector<char>& flags,
                                       ZoDistanceMethod method) {
  std::set<std::pair<double, double>> distinct;
  for (std::size_t i = 0; i < points.size(); ++i)
    if (!flags[i]) distinct.insert({points[i].x, points[i].y});
  const std::vector<std::pair<double, double>> loc(distinct.begin(), distinct.end());
  double sum = 0, minX = 1e300, maxX = -1e300, minY = 1e300, maxY = -1e300;
  for (const auto& [x, y] : loc) {
    double nearest = std::numeric_limits<double>::infinity();
    for (const auto& [u, v] : loc)
      if (u != x || v != y) nearest = std::min(nearest, detail::spatial::Distance({x, y}, {u, v}, method));
    sum += nearest;
    minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
  }
  return {sum / static_cast<double>(loc.size()), std::max(maxX - minX, maxY - minY)};
}

}  // namespace

TEST(AggregationSpacing, DefaultsMatchBruteForceOverDistinctInliers) {
  auto random = satest::RandomPoints(600, 100.0, 9);
  LumaArray<LumaPoint2D> points(random.begin(), random.end());
  for (std::size_t i = 0; i < 150; ++i) points.push_back(points[i * 3]);  // stacked incidents
  points.push_back({5000, 5000});                                         // a locational outlier
  for (const auto method : {Euclidean, Manhattan}) {
    const std::vector<char> flags = LocationalOutliers(points, method);
    ASSERT_EQ(std::count(flags.begin(), flags.end(), 1), 1);
    ASSERT_TRUE(flags.back());
    const auto [mean, side] = BruteSpacing(points, flags, method);
    double cellSize = 0, tolerance = 0;
    ASSERT_TRUE(DefaultCellSize(points, flags, method, cellSize));
    ASSERT_TRUE(DefaultTolerance(points, flags, method, tolerance));
    EXPECT_NEAR(tolerance, mean, 1e-12 * mean);
    EXPECT_NEAR(cellSize, 4 * mean, 1e-12 * mean);
    // Unflagged, the outlier joins the locations.
    const std::vector<char> none(points.size(), 0);
    ASSERT_TRUE(DefaultTolerance(points, none, method, tolerance));
    EXPECT_NEAR(tolerance, BruteSpacing(points, none, method).first, 1e-12 * mean);
  }

  // Pairs 1e-3 apart spread over 1000 units: 4 × the mean (0.004) is below
  // the floor of the extent / 2000 (0.5).
  LumaArray<LumaPoint2D> pairs;
  for (int k = 0; k <= 10; ++k) pairs.insert(pairs.end(), {{100.0 * k, 0}, {100.0 * k + 1e-3, 0}});
  double cellSize = 0;
  ASSERT_TRUE(DefaultCellSize(pairs, {}, Euclidean, cellSize));
  EXPECT_DOUBLE_EQ(cellSize, (1000 + 1e-3) / 2000);
}

TEST(AggregationSpacing, IncidentsAtOneLocationHaveNoDefaults) {
  const LumaArray<LumaPoint2D> stacked(5, LumaPoint2D{3, 4});
  LumaArray<LumaPoint2D> oneApart = stacked;
  oneApart.push_back({9, 9});
  double value = 0;
  for (const auto& [points, flags] :
       {std::pair{stacked, std::vector<char>{}}, std::pair{oneApart, std::vector<char>{0, 0, 0, 0, 0, 1}},
        std::pair{LumaArray<LumaPoint2D>{}, std::vector<char>{}}}) {
    EXPECT_STREQ(DefaultCellSize(points, flags, Euclidean, value).id(), msg::ESa087);
    EXPECT_STREQ(DefaultTolerance(points, flags, Manhattan, value).id(), msg::ESa087);
  }
  oneApart.push_back({std::nan(""), 0});
  EXPECT_STREQ(DefaultTolerance(oneApart, {}, Euclidean, value).id(), msg::ESa089);
}
