// Fishnet counts against a direct floor count, and the cell sizes refused.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "StatisticsAnalyst/detail/aggregation/FishnetGrid.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"

using namespace ZOC;
using namespace ZOC::detail::aggregation;

TEST(FishnetGrid, CountsMatchDirectFloorCount) {
  // Random points, stacked copies of some, and points on a lattice of half
  // units, many of them on cell edges for the cell sizes below (1.5 and 3
  // divide the lattice's coordinates exactly).
  auto random = satest::RandomPoints(2000, 50.0, 17);
  LumaArray<LumaPoint2D> points(random.begin(), random.end());
  for (std::size_t i = 0; i < 200; ++i) points.push_back(points[i * 7]);
  for (int i = 0; i <= 100; i += 3)
    for (int j = 0; j <= 100; j += 4) points.push_back({0.5 * i, 0.5 * j});

  for (const double cellSize : {1.5, 3.0, 3.7, 1000.0}) {
    const auto at = [&](double v) { return static_cast<std::int64_t>(std::floor(v / cellSize)); };
    FishnetCounts grid;
    ASSERT_TRUE(CountInGrid(points, cellSize, grid));
    EXPECT_EQ(grid.origin, (LumaPoint2D{0, 0}));                             // the lattice reaches the corner
    std::map<std::pair<std::int64_t, std::int64_t>, std::int64_t> expected;  // (row, column) → count
    for (const LumaPoint2D& p : points) ++expected[{at(p.y), at(p.x)}];
    ASSERT_EQ(grid.cells.size(), expected.size());
    std::size_t k = 0;
    for (const auto& [key, count] : expected) {
      const GridCell& c = grid.cells[k++];
      EXPECT_EQ((std::pair{c.row, c.column}), key);
      EXPECT_EQ(c.count, count);
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
      const GridCell& c = grid.cells[static_cast<std::size_t>(grid.cellOfIncident[i])];
      EXPECT_EQ((std::pair{c.row, c.column}), (std::pair{at(points[i].y), at(points[i].x)}));
      EXPECT_TRUE(grid.CellPolygon(c).ContainsPoint(points[i]));
    }
  }
  // A point on a shared edge belongs to the cell to its right and above.
  FishnetCounts grid;
  ASSERT_TRUE(CountInGrid(LumaArray<LumaPoint2D>{{1, 2}, {2.5, 3.5}, {2.49, 2}}, 1.5, grid));
  ASSERT_EQ(grid.cells.size(), 2u);
  EXPECT_EQ((std::vector<std::int64_t>{grid.cells[1].column, grid.cells[1].row, grid.cells[1].count}),
            (std::vector<std::int64_t>{1, 1, 1}));
  EXPECT_EQ(grid.cellOfIncident, (std::vector<std::int64_t>{0, 1, 0}));
  const ZoGeometry square = grid.CellPolygon(grid.cells[1]);
  EXPECT_DOUBLE_EQ(square.GetArea(), 2.25);
  EXPECT_EQ(square.GetPoints()[2], (LumaPoint2D{4, 5}));
}

TEST(FishnetGrid, RefusesUnusableCellSizesAndPoints) {
  const LumaArray<LumaPoint2D> points = {{0, 0}, {1e10, 1}};
  FishnetCounts grid;
  const double inf = std::numeric_limits<double>::infinity();
  const double edge = 1e10 / 0x1p31;  // the last point would start column 2^31
  for (const double size : {0.0, -1.0, std::nan(""), inf, edge})
    EXPECT_STREQ(CountInGrid(points, size, grid).id(), msg::ESa086) << size;
  EXPECT_TRUE(CountInGrid(points, edge * (1 + 0x1p-40), grid));  // columns 0 to 2^31 − 1
  EXPECT_STREQ(CountInGrid(LumaArray<LumaPoint2D>{{-1e308, 0}, {1e308, 0}}, 1.0, grid).id(), msg::ESa086);
  EXPECT_STREQ(CountInGrid(LumaArray<LumaPoint2D>{{0, 0}, {inf, 0}}, 1.0, grid).id(), msg::ESa089);
  EXPECT_EQ(grid.cellSize, edge * (1 + 0x1p-40));  // the failures left the last result
}
