// Average nearest neighbour against brute force, on degenerate layouts and on
// geographic data.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "TestSupport.h"
#include "host/ZoOpPoints.h"

using namespace ZOC;
using LUMA::LumaPoint2D;
using Exponent = ZoAnalyzingPatterns::ZoAnalyzingExponent;

namespace {

double NormalTwoSided(double z) { return std::erfc(std::fabs(z) / std::sqrt(2.0)); }

// The smallest bounding rectangle over every hull edge direction, O(m²).
double BruteMinRectArea(const std::vector<LumaPoint2D>& points) {
  LUMA::LumaArray<LumaPoint2D> hull;
  ZoOpPoints::Flange(points.data(), points.size(), hull);
  double best = std::numeric_limits<double>::max();
  for (std::size_t k = 0; k + 1 < hull.size(); ++k) {
    const double ex = hull[k + 1].x - hull[k].x, ey = hull[k + 1].y - hull[k].y, len = std::hypot(ex, ey);
    const double ux = ex / len, uy = ey / len;
    double minU = 1e300, maxU = -1e300, minV = 1e300, maxV = -1e300;
    for (const auto& p : points) {
      const double pu = p.x * ux + p.y * uy, pv = -p.x * uy + p.y * ux;
      minU = std::min(minU, pu), maxU = std::max(maxU, pu), minV = std::min(minV, pv), maxV = std::max(maxV, pv);
    }
    best = std::min(best, (maxU - minU) * (maxV - minV));
  }
  return best;
}

bool RunAnn(satest::MemoryLayer& layer, double area, Exponent& r, ZoDistanceMethod method = Euclidean,
            bool defaultWidth = true, double width = 0.0, std::string* message = nullptr) {
  ZoAnalyzingPatterns patterns;
  const bool ok = patterns.AverageNearestNeighbor(layer.dataset, area, method, r, defaultWidth, width, false);
  if (message) *message = patterns.GetStrErrorMes().Str();
  return ok;
}

}  // namespace

TEST(AverageNearestNeighbor, MatchesBruteForceOnRandomPoints) {
  auto points = satest::RandomPoints(400, 100.0, 21);
  points[5] = points[9];  // a duplicate location: both get distance 0
  auto layer = satest::MakePointLayer(points);
  for (auto method : {Euclidean, Manhattan}) {
    double sum = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      double nearest = 1e300;
      for (std::size_t j = 0; j < points.size(); ++j)
        if (j != i) {
          const double dx = points[i].x - points[j].x, dy = points[i].y - points[j].y;
          nearest = std::min(nearest, method == Euclidean ? std::hypot(dx, dy) : std::fabs(dx) + std::fabs(dy));
        }
      sum += nearest;
    }
    const double n = points.size(), observed = sum / n, area = BruteMinRectArea(points);
    const double expected = 0.5 / std::sqrt(n / area), se = 0.26136 / std::sqrt(n * n / area);
    Exponent r;
    ASSERT_TRUE(RunAnn(layer, 0.0, r, method));
    EXPECT_NEAR(r.Variance, observed, 1e-12 * observed);
    EXPECT_NEAR(r.ExpectedIndex, expected, 1e-9 * expected);
    EXPECT_NEAR(r.Index, observed / expected, 1e-9);
    EXPECT_NEAR(r.ZScore, (observed - expected) / se, 1e-7);
    EXPECT_NEAR(r.PValue, NormalTwoSided(r.ZScore), 2e-7);

    // A given area is used as it is.
    Exponent given;
    ASSERT_TRUE(RunAnn(layer, 12345.0, given, method));
    EXPECT_NEAR(given.ExpectedIndex, 0.5 / std::sqrt(n / 12345.0), 1e-12);
  }
}

TEST(AverageNearestNeighbor, DegenerateLayoutsUseTheWidth) {
  Exponent r;
  auto two = satest::MakePointLayer({{0, 0}, {3, 4}});
  ASSERT_TRUE(RunAnn(two, 0.0, r));  // 5 long, default width 2
  EXPECT_NEAR(r.ExpectedIndex, 0.5 / std::sqrt(2.0 / 10.0), 1e-12);
  EXPECT_NEAR(r.Variance, 5.0, 1e-12);

  auto same = satest::MakePointLayer({{7, 7}, {7, 7}, {7, 7}, {7, 7}});
  ASSERT_TRUE(RunAnn(same, 0.0, r, Euclidean, false, 3.0));  // a 3 × 3 square
  EXPECT_NEAR(r.ExpectedIndex, 0.5 / std::sqrt(4.0 / 9.0), 1e-12);
  EXPECT_EQ(r.Variance, 0.0);
  EXPECT_LT(r.ZScore, 0.0);

  auto line = satest::MakePointLayer({{1, 1}, {2, 2}, {5, 5}, {3, 3}});
  ASSERT_TRUE(RunAnn(line, 0.0, r, Euclidean, false, 0.5));  // 4√2 long, 0.5 wide
  EXPECT_NEAR(r.ExpectedIndex, 0.5 / std::sqrt(4.0 / (4 * std::sqrt(2.0) * 0.5)), 1e-12);
}

TEST(AverageNearestNeighbor, FailuresLeaveTheResultAlone) {
  Exponent r{1, 2, 3, 4, 5};
  std::string message;
  auto layer = satest::MakePointLayer({{0, 0}, {1, 0}, {0, 1}});
  EXPECT_FALSE(RunAnn(layer, -1.0, r, Euclidean, true, 0.0, &message));
  EXPECT_NE(message.find("[ESa051]"), std::string::npos);
  auto one = satest::MakePointLayer({{0, 0}});
  EXPECT_FALSE(RunAnn(one, 0.0, r, Euclidean, true, 0.0, &message));
  EXPECT_NE(message.find("[ESa013]"), std::string::npos);
  ZoAnalyzingPatterns patterns;
  EXPECT_FALSE(patterns.AverageNearestNeighbor(nullptr, 0.0, Euclidean, r, true, 0.0, false));
  EXPECT_NE(patterns.GetStrErrorMes().Str().find("[EEg002]"), std::string::npos);
  // Coincident first two centroids on a line give a rectangle with no extent.
  auto flat = satest::MakePointLayer({{1, 1}, {1, 1}, {4, 1}});
  EXPECT_FALSE(RunAnn(flat, 0.0, r, Euclidean, true, 0.0, &message));
  EXPECT_NE(message.find("[ESa052]"), std::string::npos);
  EXPECT_EQ(r.Index, 1);
  EXPECT_EQ(r.PValue, 5);
}

TEST(AverageNearestNeighbor, GeographicDataUsesChordsAndSurfaceArea) {
  auto source = ZoDataSource::Open(satest::DataPath("cycle_hire.gpkg"), false);
  ASSERT_TRUE(source);
  ZoDatasetVector* dataset = source->GetDataset(0);
  ZoAnalyzingPatterns patterns;
  Exponent r;
  ASSERT_TRUE(patterns.AverageNearestNeighbor(dataset, 0.0, Manhattan, r, true, 0.0, false))
      << patterns.GetStrErrorMes().Str();

  // Brute force over the lon/lat centroids with chord distances on WGS 84.
  std::vector<LumaPoint2D> c;
  ZoRecordsetPtr records(dataset->Query(ZoQueryDef()));
  ZoGeometry g;
  LumaPoint2D p;
  for (records->MoveFirst(); !records->IsEOF(); records->MoveNext()) {
    records->GetGeometry(g);
    g.GetBaryCenter(p);
    c.push_back(p);
  }
  const double a = 6378137.0, f = 1 / 298.257223563;
  double sum = 0;
  for (std::size_t i = 0; i < c.size(); ++i) {
    double nearest = 1e300;
    for (std::size_t j = 0; j < c.size(); ++j)
      if (j != i) nearest = std::min(nearest, ZoOpPoints::GetSpheroidChordalDistance(c[i], c[j], a, f));
    sum += nearest;
  }
  EXPECT_NEAR(r.Variance, sum / c.size(), 1e-6 * r.Variance);
  // The stations cover central London: tens of square kilometres.
  const double area = c.size() / std::pow(0.5 / r.ExpectedIndex, 2);
  EXPECT_GT(area, 2e7);
  EXPECT_LT(area, 2e8);
  EXPECT_LT(r.ZScore, 0.0);  // docking stations cluster
}
