// Spatial weights and the distance band against brute-force computation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "TestSupport.h"

#include <omp.h>

using namespace ZOC;
using LUMA::LumaPoint2D;

namespace {

double Dist(const LumaPoint2D& a, const LumaPoint2D& b, ZoDistanceMethod m) {
  return m == Euclidean ? std::hypot(a.x - b.x, a.y - b.y) : std::fabs(a.x - b.x) + std::fabs(a.y - b.y);
}

// The weights straight from their definitions, over all pairs.
std::map<int, double> BruteForce(const std::vector<LumaPoint2D>& p, const ZoPatternsInformation& info) {
  const int n = static_cast<int>(p.size());
  const ZoDistanceMethod m = info.DistanceMethod;
  double band = info.DistanceTolerance;
  if (band < 0) {
    band = 0;
    for (int i = 0; i < n; ++i) {
      double nearest = std::numeric_limits<double>::max();
      for (int j = 0; j < n; ++j)
        if (j != i) nearest = std::min(nearest, Dist(p[i], p[j], m));
      band = std::max(band, nearest * 1.0001);
    }
  } else if (band < 1e-20) {
    band = std::numeric_limits<double>::max();
  }
  std::map<int, double> w;
  std::vector<double> rowSum(n, 0.0);
  for (int i = 0; i < n; ++i) {
    std::vector<std::pair<double, int>> order;
    for (int j = 0; j < n; ++j) order.push_back({Dist(p[i], p[j], m), j});
    std::sort(order.begin(), order.end());
    std::vector<std::pair<int, double>> row;
    if (info.Conceptualization == KNearestNeighbors) {
      const int k = info.KNeighbors;
      bool allSame = true;
      for (int h = 0; h < k; ++h) allSame = allSame && order[h].first < 1e-10;
      int coincidentOthers = 0;
      for (int j = 0; j < n; ++j) coincidentOthers += j != i && Dist(p[i], p[j], m) == 0.0;
      if (allSame && coincidentOthers > k) {
        for (int j = 0; j < n; ++j)
          if (j != i && Dist(p[i], p[j], m) == 0.0) row.push_back({j, 1.0});
      } else {
        for (int h = 0; h <= k; ++h)
          if (order[h].second != i) row.push_back({order[h].second, 1.0});
      }
    } else {
      for (auto [d, j] : order) {
        if (j == i) continue;
        double weight;
        if (info.Conceptualization == ZoneOfIndifference) {
          weight = d <= band ? 1.0 : 1.0 / std::pow(d + 1.0 - band, info.Exponent);
        } else {
          if (d > band) continue;
          weight = d < 1.0                                            ? 1.0
                   : info.Conceptualization == InverseDistance        ? 1.0 / std::pow(d, info.Exponent)
                   : info.Conceptualization == InverseDistanceSquared ? 1.0 / std::pow(d * d, info.Exponent)
                                                                      : 1.0;
        }
        row.push_back({j, weight});
      }
    }
    for (auto [j, weight] : row) {
      w[i * n + j] = weight;
      rowSum[i] += weight;
    }
  }
  if (info.Standardization)
    for (auto& [key, weight] : w) weight /= rowSum[key / n];
  return w;
}

void ExpectSameWeights(const LUMA::LumaArray<WeightMatrixUnit>& units, const std::map<int, double>& expected,
                       const std::string& what) {
  ASSERT_EQ(units.size(), expected.size()) << what;
  auto it = expected.begin();
  for (std::size_t u = 0; u < units.size(); ++u, ++it) {
    ASSERT_EQ(units[u].Index, it->first) << what << " unit " << u;
    EXPECT_NEAR(units[u].Weight, it->second, 1e-12 * std::max(1.0, std::fabs(it->second))) << what;
  }
}

// Random points with exact duplicates and pairs closer than one unit.
std::vector<LumaPoint2D> TrickyPoints() {
  auto p = satest::RandomPoints(150, 25.0, 7);
  p[10] = p[3];
  p[11] = p[3];
  p[12] = p[3];  // four features at one location
  p[20] = {p[21].x + 0.3, p[21].y - 0.2};
  return p;
}

}  // namespace

TEST(GetSpatialWeight, EveryConceptualizationMatchesBruteForceWithCoincidentFeatures) {
  const auto points = TrickyPoints();
  auto layer = satest::MakePointLayer(points);
  auto check = [&](const ZoPatternsInformation& info, const std::string& what) {
    ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
    ZoStatisticsUtilities utilities;
    LUMA::LumaArray<WeightMatrixUnit> units;
    ASSERT_TRUE(utilities.GetSpatialWeight(records.get(), info, units, false))
        << what << utilities.GetStrErrorMes().Str();
    ExpectSameWeights(units, BruteForce(points, info), what);
  };
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Exponent = 1.5;
  for (auto c : {InverseDistance, InverseDistanceSquared, FixedDistanceBand, ZoneOfIndifference}) {
    for (double band : {-1.0, 0.0, 4.0}) {
      for (auto method : {Euclidean, Manhattan}) {
        for (bool standardize : {false, true}) {
          info.Conceptualization = c;
          info.DistanceTolerance = band;
          info.DistanceMethod = method;
          info.Standardization = standardize;
          check(info, "c=" + std::to_string(c) + " band=" + std::to_string(band) + " method=" + std::to_string(method) +
                          " std=" + std::to_string(standardize));
        }
      }
    }
  }
  info.Conceptualization = KNearestNeighbors;
  info.DistanceMethod = Euclidean;
  for (int k : {1, 2, 3, 5, 8}) {
    info.KNeighbors = k;
    info.Standardization = k == 3;
    check(info, "k=" + std::to_string(k));
  }
}

TEST(GetSpatialWeight, FailuresAndCancellationNameTheirCause) {
  auto layer = satest::MakePointLayer(satest::RandomPoints(20, 1000.0, 3));
  ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
  LUMA::LumaArray<WeightMatrixUnit> units;
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  auto fails = [&](ZoRecordset* r, ZoProgress* progress = nullptr) {
    ZoStatisticsUtilities utilities;
    utilities.SetProgress(progress);
    EXPECT_FALSE(utilities.GetSpatialWeight(r, info, units, progress != nullptr));
    return utilities.GetStrErrorMes();
  };
  int polls = 0;
  ZoCallbackProgress progress([&](const ZoProgressState&) { return ++polls < 20; });
  EXPECT_TRUE(satest::HasMessageId(fails(records.get(), &progress), "IMb030"));
  info.Conceptualization = FixedDistanceBand;
  info.DistanceTolerance = 1e-6;  // nobody within the band
  EXPECT_TRUE(satest::HasMessageId(fails(records.get()), "ESa023"));
  info.Conceptualization = ContiguityEdgesOnly;  // points are not regions
  EXPECT_TRUE(satest::HasMessageId(fails(records.get()), "ESa025"));
  info.Conceptualization = static_cast<ZoConceptualizationModel>(9);
  EXPECT_TRUE(fails(records.get()).IsEmpty());
  EXPECT_TRUE(satest::HasMessageId(fails(nullptr), "EEg024"));
}

TEST(DistanceBand, ToleranceRulesAndBatchSearchesForAnyThreadCount) {
  ZoStatisticsUtilities u;
  const LUMA::LumaArray<LumaPoint2D> two = {{0, 0}, {3, 4}};
  EXPECT_DOUBLE_EQ(u.GetDistTolerance(two, -1.0, Euclidean), 5.0 * 1.0001);
  EXPECT_DOUBLE_EQ(u.GetDistTolerance(two, -1.0, Manhattan), 7.0 * 1.0001);
  EXPECT_EQ(u.GetDistTolerance(two, 0.0, Euclidean), std::numeric_limits<double>::max());
  EXPECT_EQ(u.GetDistTolerance(two, 2.5, Euclidean), 2.5);
  const LUMA::LumaArray<LumaPoint2D> same = {{1, 1}, {1, 1}, {1, 1}};
  EXPECT_EQ(u.GetDistTolerance(same, -1.0, Euclidean), 0.0);
  EXPECT_TRUE(u.GetStrErrorMes().IsEmpty());
  EXPECT_EQ(u.GetDistTolerance(LUMA::LumaArray<LumaPoint2D>(), -1.0, Euclidean), 0.0);
  EXPECT_TRUE(satest::HasMessageId(u.GetStrErrorMes(), "ESa007"));

  const auto raw = satest::RandomPoints(2000, 100.0, 13);
  const LUMA::LumaArray<LumaPoint2D> points(raw.begin(), raw.end());
  LUMA::LumaArray<LUMA::LumaPoint3D> b1, b2;
  std::unique_ptr<ZoKdTree> single(u.CreateKDTree(&b1, points));
  std::unique_ptr<ZoKdTreec> batch(u.CreateKDTreec(&b2, points));
  ASSERT_TRUE(single && batch);
  LUMA::LumaArray<double> parallel, serial;
  ASSERT_TRUE(u.GetDistTolerance(batch.get(), points, 4, parallel, Manhattan));
  omp_set_num_threads(1);
  ASSERT_TRUE(u.GetDistTolerance(batch.get(), points, 4, serial, Manhattan));
  omp_set_num_threads(omp_get_num_procs());
  EXPECT_EQ(parallel, serial);
  for (std::size_t i = 0; i < points.size(); i += 97) {
    double d = 0;
    // The batch counts the point itself among its k, so k there is k - 1 here.
    ASSERT_TRUE(u.GetDistTolerance(single.get(), points[i], 3, d, Manhattan));
    EXPECT_EQ(parallel[i], d);
  }
  EXPECT_EQ(u.CreateKDTree(nullptr, points), nullptr);
  EXPECT_TRUE(satest::HasMessageId(u.GetStrErrorMes(), "EEh015"));
}
