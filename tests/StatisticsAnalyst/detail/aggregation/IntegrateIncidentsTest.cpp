// Integration against the leader rule written out pairwise, and the
// tolerances and inputs refused.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/detail/aggregation/IntegrateIncidents.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"

using namespace ZOC;
using namespace ZOC::detail::aggregation;

namespace {

// O(n²): each ungrouped incident, in order, takes every ungrouped incident
// within the tolerance of it.
MergedIncidents Leaders(const LumaArray<LumaPoint2D>& p, double tolerance, ZoDistanceMethod method) {
  MergedIncidents m;
  m.groupOfIncident.assign(p.size(), -1);
  for (std::size_t i = 0; i < p.size(); ++i) {
    if (m.groupOfIncident[i] >= 0) continue;
    const auto g = static_cast<std::int64_t>(m.counts.size());
    double sx = 0, sy = 0;
    std::int64_t count = 0;
    for (std::size_t j = i; j < p.size(); ++j)
      if (m.groupOfIncident[j] < 0 && detail::spatial::Distance(p[i], p[j], method) <= tolerance) {
        m.groupOfIncident[j] = g;
        sx += p[j].x, sy += p[j].y, ++count;
      }
    m.points.push_back({sx / count, sy / count});
    m.counts.push_back(count);
  }
  return m;
}

}  // namespace

TEST(IntegrateIncidents, MatchesLeaderGroupingWrittenOut) {
  // Random incidents, stacked copies, and a lattice of spacing 2 whose
  // neighbours lie exactly at the tolerance 2 (the boundary is included).
  auto random = satest::RandomPoints(1500, 60.0, 3);
  LumaArray<LumaPoint2D> points(random.begin(), random.end());
  for (std::size_t i = 0; i < 300; ++i) points.push_back(points[(i * 13) % 1500]);
  for (int i = 0; i < 10; ++i)
    for (int j = 0; j < 10; ++j) points.push_back({70.0 + 2 * i, 2.0 * j});
  detail::CallProgress none(nullptr, false);
  for (const auto method : {Euclidean, Manhattan})
    for (const double tolerance : {0.0, 0.8, 2.0, 6.0}) {
      MergedIncidents got;
      ASSERT_TRUE(Integrate(points, tolerance, method, none, got));
      const MergedIncidents want = Leaders(points, tolerance, method);
      EXPECT_EQ(got.groupOfIncident, want.groupOfIncident) << method << " " << tolerance;
      EXPECT_EQ(got.counts, want.counts);
      ASSERT_EQ(got.points.size(), want.points.size());
      for (std::size_t g = 0; g < got.points.size(); ++g) {
        EXPECT_NEAR(got.points[g].x, want.points[g].x, 1e-11);
        EXPECT_NEAR(got.points[g].y, want.points[g].y, 1e-11);
      }
      if (tolerance == 0.0) {  // exact duplicates keep their exact location
        for (std::size_t i = 0; i < points.size(); ++i)
          EXPECT_EQ(points[i], got.points[static_cast<std::size_t>(got.groupOfIncident[i])]);
      }
    }
}

TEST(IntegrateIncidents, RefusesUnusableTolerancesAndPointsAndStopsWhenCancelled) {
  const LumaArray<LumaPoint2D> points = {{0, 0}, {1, 1}};
  MergedIncidents out;
  detail::CallProgress none(nullptr, false);
  const double inf = std::numeric_limits<double>::infinity();
  for (const double tolerance : {-1e-300, std::nan(""), inf})
    EXPECT_STREQ(Integrate(points, tolerance, Euclidean, none, out).id(), msg::ESa088) << tolerance;
  EXPECT_STREQ(Integrate(LumaArray<LumaPoint2D>{{0, 0}, {0, -inf}}, 1.0, Euclidean, none, out).id(), msg::ESa089);
  EXPECT_TRUE(out.counts.empty());

  ZoCallbackProgress stop([](const ZoProgressState&) { return false; });
  detail::CallProgress cancelled(&stop, true);
  EXPECT_STREQ(Integrate(points, 1.0, Euclidean, cancelled, out).id(), msg::IMb030);
  EXPECT_TRUE(out.counts.empty());
}
