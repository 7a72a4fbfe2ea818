// Polygon counts against testing every incident against every polygon.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "StatisticsAnalyst/detail/aggregation/PolygonCounts.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"

using namespace ZOC;
using namespace ZOC::detail::aggregation;

namespace {

ZoGeometry Region(const std::vector<std::vector<LumaPoint2D>>& rings, LumaArray<int> ringsPerPolygon = {}) {
  LumaArray<LumaPoint2D> points;
  LumaArray<int> counts;
  for (const auto& r : rings) {
    points.insert(points.end(), r.begin(), r.end());
    counts.push_back(static_cast<int>(r.size()));
  }
  return ZoGeometry::MakeRegion(points, counts, ringsPerPolygon);
}

std::vector<LumaPoint2D> Rect(double x0, double y0, double x1, double y1) {
  return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

}  // namespace

TEST(PolygonCounts, MatchesTestingEveryIncidentAgainstEveryPolygon) {
  // Random incidents, stacked copies and integer points (on the squares'
  // shared edges and corners).
  auto random = satest::RandomPoints(4000, 100.0, 11);
  LumaArray<LumaPoint2D> points(random.begin(), random.end());
  for (std::size_t i = 0; i < 300; ++i) points.push_back(points[i * 11]);
  for (int i = 0; i <= 100; i += 5)
    for (int j = 0; j <= 100; j += 5) points.push_back({double(i), double(j)});

  // Overlapping shapes before a fishnet of 10-unit squares, so edges, holes,
  // concavities and the first-polygon rule all matter; an empty geometry, a
  // line and a polygon far from every incident count 0.
  std::vector<ZoGeometry> polygons = {
      Region({Rect(20, 20, 60, 60), Rect(30, 30, 50, 50)}, {2}),
      Region({{{0, 0}, {40, 0}, {40, 40}, {30, 40}, {30, 10}, {10, 10}, {10, 40}, {0, 40}}}),
      Region({{{50, 5}, {95, 50}, {50, 95}}, Rect(70, 0, 80, 10)}),
      ZoGeometry(),
      ZoGeometry::MakeLine(LumaArray<LumaPoint2D>{{0, 0}, {100, 100}}, {2}),
      Region({Rect(500, 500, 600, 600)}),
      ZoGeoCircle({50, 50}, 25).ConvertToRegion(200)};  // tested through its prepared form
  for (int r = 0; r < 10; ++r)
    for (int c = 0; c < 10; ++c) polygons.push_back(Region({Rect(10 * c, 10 * r, 10 * c + 10, 10 * r + 10)}));

  std::vector<std::int64_t> wantOwner(points.size(), -1), wantCounts(polygons.size(), 0);
  for (std::size_t i = 0; i < points.size(); ++i)
    for (std::size_t k = 0; k < polygons.size(); ++k)
      if (polygons[k].ContainsPoint(points[i])) {
        wantOwner[i] = static_cast<std::int64_t>(k);
        ++wantCounts[k];
        break;
      }
  detail::CallProgress none(nullptr, false);
  std::vector<std::int64_t> counts, owner;
  ASSERT_TRUE(CountInPolygons(points, polygons, none, counts, owner));
  EXPECT_EQ(owner, wantOwner);
  EXPECT_EQ(counts, wantCounts);
  EXPECT_EQ(counts[3] + counts[4] + counts[5], 0);
  EXPECT_EQ(owner[points.size() - 1], 106);  // (100, 100): the corner of the last square only
}

TEST(PolygonCounts, RefusesNonFinitePointsAndStopsWhenCancelled) {
  const std::vector<ZoGeometry> squares = {Region({Rect(0, 0, 1, 1)})};
  std::vector<std::int64_t> counts = {7}, owner;
  detail::CallProgress none(nullptr, false);
  EXPECT_STREQ(CountInPolygons(LumaArray<LumaPoint2D>{{std::nan(""), 0}}, squares, none, counts, owner).id(),
               msg::ESa089);
  const std::vector<ZoGeometry> broken = {Region({{{0, 0}, {1, 0}, {0, HUGE_VAL}}})};
  EXPECT_STREQ(CountInPolygons(LumaArray<LumaPoint2D>{{0, 0}}, broken, none, counts, owner).id(), msg::ESa089);
  ZoCallbackProgress stop([](const ZoProgressState&) { return false; });
  detail::CallProgress cancelled(&stop, true);
  EXPECT_STREQ(CountInPolygons(LumaArray<LumaPoint2D>{{0.5, 0.5}}, squares, cancelled, counts, owner).id(),
               msg::IMb030);
  EXPECT_EQ(counts, std::vector<std::int64_t>{7});  // left as it was
}
