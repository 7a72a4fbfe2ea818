// Incremental spatial autocorrelation: every band against a separate global
// Moran's I with a fixed distance band at that distance, the default
// distances against brute force, the peaks against a hand-made series, and
// the failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/detail/global/Incremental.h"
#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoMessageIds.h"

using namespace ZOC;

namespace {

std::vector<double> Numbers(const ZoAnalyzingExponent& m) {
  return {m.Index, m.ExpectedIndex, m.Variance, m.ZScore, m.PValue};
}

void ExpectEveryBandIsTheFixedBandMoransI(ZoDatasetVector* dataset, const char* field, std::int32_t bands) {
  for (const bool standardize : {false, true}) {
    ZoIncrementalInformation info;
    info.FieldName = field;
    info.Bands = bands;
    info.Standardization = standardize;
    ZoIncrementalResult result;
    ZoAnalyzingPatterns patterns;
    ASSERT_TRUE(patterns.IncrementalSpatialAutocorrelation(dataset, info, result, false))
        << patterns.GetStrErrorMes().Str();
    ASSERT_EQ(result.Bands.size(), static_cast<std::size_t>(bands));
    EXPECT_TRUE(result.DefaultBegin && result.DefaultIncrement);
    for (const ZoIncrementalBand& band : result.Bands) {
      ASSERT_TRUE(band.Valid);
      ZoPatternsInformation fixed;
      fixed.FieldName = field;
      fixed.Conceptualization = FixedDistanceBand;
      fixed.DistanceTolerance = band.Distance;
      fixed.Standardization = standardize;
      ZoAnalyzingExponent expected;
      ASSERT_TRUE(patterns.SpatialAutocorrelation(dataset, fixed, expected, false));
      EXPECT_EQ(Numbers(band.Moran), Numbers(expected)) << band.Distance;
    }
  }
}

}  // namespace

TEST(Incremental, EveryBandIsTheFixedBandMoransI) {
  auto source = ZoDataSource::Open(satest::DataPath("baltim.gpkg"), false);
  ASSERT_TRUE(source);
  ExpectEveryBandIsTheFixedBandMoransI(source->GetDataset(0), "PRICE", 8);
  // Enough features for several blocks of the parallel sums.
  const std::vector<LUMA::LumaPoint2D> points = satest::RandomPoints(9000, 100.0, 3);
  std::vector<double> values(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) values[i] = std::sin(points[i].x / 9.0) + 0.01 * (i % 13);
  satest::MemoryLayer layer = satest::MakePointLayer(points, values);
  ExpectEveryBandIsTheFixedBandMoransI(layer.dataset, "VALUE", 3);
}

TEST(Incremental, DefaultDistancesAreTheNearestNeighbourOnes) {
  const std::vector<LUMA::LumaPoint2D> points = satest::RandomPoints(300, 100.0, 7);
  std::vector<double> values(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) values[i] = points[i].x + 0.1 * static_cast<double>(i % 7);
  satest::MemoryLayer layer = satest::MakePointLayer(points, values);
  double largest = 0.0, sum = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    double nearest = std::numeric_limits<double>::max();
    for (std::size_t j = 0; j < points.size(); ++j)
      if (j != i) nearest = std::min(nearest, std::hypot(points[i].x - points[j].x, points[i].y - points[j].y));
    largest = std::max(largest, nearest);
    sum += nearest;
  }
  ZoIncrementalInformation info;
  info.FieldName = "VALUE";
  ZoIncrementalResult result;
  ZoAnalyzingPatterns patterns;
  ASSERT_TRUE(patterns.IncrementalSpatialAutocorrelation(layer.dataset, info, result, false))
      << patterns.GetStrErrorMes().Str();
  EXPECT_DOUBLE_EQ(result.BeginDistance, largest);
  EXPECT_NEAR(result.Increment, sum / static_cast<double>(points.size()), 1e-9 * largest);
  ASSERT_EQ(result.Bands.size(), 10u);
  EXPECT_DOUBLE_EQ(result.Bands[9].Distance, largest + 9 * result.Increment);

  // Given distances are taken as they stand; a first band too short for any
  // neighbour is not valid, and the others still are.
  info.BeginDistance = 1e-9;
  info.Increment = largest;
  info.Bands = 3;
  ASSERT_TRUE(patterns.IncrementalSpatialAutocorrelation(layer.dataset, info, result, false));
  EXPECT_FALSE(result.DefaultBegin || result.DefaultIncrement);
  EXPECT_FALSE(result.Bands[0].Valid);
  EXPECT_TRUE(result.Bands[1].Valid && result.Bands[2].Valid);
}

TEST(Incremental, PeaksAreHigherThanBothNeighbours) {
  ZoIncrementalResult r;
  for (double z : {1.0, 3.0, 2.0, 2.5, 5.0, 4.0, 6.0}) {
    ZoIncrementalBand band;
    band.Valid = true;
    band.Moran.ZScore = z;
    r.Bands.push_back(band);
  }
  detail::global::FindPeaks(r);
  EXPECT_EQ(r.FirstPeak, 1);
  EXPECT_EQ(r.MaxPeak, 4);  // the last band rises highest but has one neighbour only
  r.Bands[4].Valid = false;
  detail::global::FindPeaks(r);
  EXPECT_EQ(r.MaxPeak, 1);
  r.Bands.resize(2);
  detail::global::FindPeaks(r);
  EXPECT_EQ(r.FirstPeak, -1);
  EXPECT_EQ(r.MaxPeak, -1);
}

TEST(Incremental, RefusesWhatIsNoSeries) {
  satest::MemoryLayer layer = satest::MakePointLayer({{0, 0}, {1, 0}, {0, 1}, {1, 1}, {3, 3}});
  ZoAnalyzingPatterns patterns;
  ZoIncrementalResult result;
  ZoIncrementalInformation info;
  info.FieldName = "VALUE";
  info.Bands = 51;
  EXPECT_FALSE(patterns.IncrementalSpatialAutocorrelation(layer.dataset, info, result, false));
  EXPECT_EQ(satest::MessageIds(patterns.GetStrErrorMes()), (std::vector<std::string>{msg::ESa081, msg::ESa085}));
  info.Bands = 5;
  info.Increment = -1.0;
  EXPECT_FALSE(patterns.IncrementalSpatialAutocorrelation(layer.dataset, info, result, false));
  EXPECT_EQ(satest::MessageIds(patterns.GetStrErrorMes()), (std::vector<std::string>{msg::ESa082, msg::ESa085}));

  // Pairs of coincident points: every nearest neighbour is at distance 0.
  satest::MemoryLayer pairs = satest::MakePointLayer({{0, 0}, {0, 0}, {5, 5}, {5, 5}});
  info.Increment = 0.0;
  EXPECT_FALSE(patterns.IncrementalSpatialAutocorrelation(pairs.dataset, info, result, false));
  EXPECT_EQ(satest::MessageIds(patterns.GetStrErrorMes()), (std::vector<std::string>{msg::ESa083, msg::ESa085}));

  // No band reaches a neighbour.
  info.BeginDistance = 1e-6;
  info.Increment = 1e-6;
  EXPECT_FALSE(patterns.IncrementalSpatialAutocorrelation(layer.dataset, info, result, false));
  EXPECT_EQ(satest::MessageIds(patterns.GetStrErrorMes()), (std::vector<std::string>{msg::ESa084, msg::ESa085}));

  satest::MemoryLayer constant = satest::MakePointLayer({{0, 0}, {1, 0}, {0, 1}, {1, 1}, {3, 3}}, {2, 2, 2, 2, 2});
  EXPECT_FALSE(patterns.IncrementalSpatialAutocorrelation(constant.dataset, info, result, false));
  EXPECT_EQ(satest::MessageIds(patterns.GetStrErrorMes()), (std::vector<std::string>{msg::ESa021, msg::ESa085}));
}
