// Optimized hot spot analysis: the result against the hot spot analysis of
// an aggregated layer built here by brute force with the reported cell size
// and band; the band against the incremental autocorrelation of that layer;
// the field path against the hot spot analysis of the source; the outlier
// rule; the failures.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <utility>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoMessageIds.h"
#include "host/ZoQueryDef.h"
#include "host/ZoRecordset.h"

using namespace ZOC;

namespace {

// Background incidents with two dense patches.
std::vector<LUMA::LumaPoint2D> Incidents() {
  std::vector<LUMA::LumaPoint2D> points = satest::RandomPoints(600, 1000.0, 11);
  std::mt19937_64 rng(5);
  std::normal_distribution<double> spread(0.0, 40.0);
  for (int k = 0; k < 500; ++k) points.push_back({250 + spread(rng), 300 + spread(rng)});
  for (int k = 0; k < 300; ++k) points.push_back({750 + spread(rng), 700 + spread(rng)});
  return points;
}

struct Layer {
  explicit Layer(int type = DatasetRegion) : dataset(source->CreateDatasetVector("layer", type, ZoPrjCoordSys())) {}
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory("layer");
  ZoDatasetVector* dataset;
};

// The cells holding incidents, counted with a map, as squares with "Count".
Layer CountCells(const std::vector<LUMA::LumaPoint2D>& points, double size) {
  double x0 = points[0].x, y0 = points[0].y;
  for (const auto& p : points) x0 = std::min(x0, p.x), y0 = std::min(y0, p.y);
  std::map<std::pair<long long, long long>, int> counts;  // (row, column)
  for (const auto& p : points)
    ++counts[{static_cast<long long>(std::floor((p.y - y0) / size)),
              static_cast<long long>(std::floor((p.x - x0) / size))}];
  Layer layer;
  layer.dataset->CreateField(LUMA::LumaFieldInfo("Count", LUMA::FieldInt32));
  ZoRecordset* writer = layer.dataset->Query(ZoQueryDef());
  for (const auto& [cell, count] : counts) {
    const double x = x0 + static_cast<double>(cell.second) * size, y = y0 + static_cast<double>(cell.first) * size;
    writer->AddNew(ZoGeometry::MakeRegion({{x, y}, {x + size, y}, {x + size, y + size}, {x, y + size}, {x, y}}, {5}));
    writer->SetFieldValue("Count", LUMA::LumaVariant(count));
    writer->Update();
  }
  layer.dataset->ReleaseRecordset(writer);
  layer.dataset->Commit();
  return layer;
}

void ExpectSameHotSpots(ZoDatasetVector* a, ZoDatasetVector* b,
                        std::initializer_list<const char*> fields = {"Count", "Gi_Zscore", "Gi_Pvalue",
                                                                     "Gi_ConfInvl"}) {
  for (const char* field : fields) EXPECT_EQ(satest::Column(a, field), satest::Column(b, field)) << field;
}

}  // namespace

TEST(OptimizedHotSpot, GridResultIsTheHotSpotAnalysisOfTheCountedCells) {
  const auto points = Incidents();
  satest::MemoryLayer incidents = satest::MakePointLayer(points);
  Layer result;
  ZoOptimizedInformation info;
  ZoOptimizedReport report;
  ZoClusteringDistributions clustering;
  ASSERT_TRUE(clustering.OptimizedHotSpotAnalyst(incidents.dataset, result.dataset, info, false, &report))
      << clustering.GetStrErrorMes().Str();
  EXPECT_EQ(report.Incidents, 1400);
  EXPECT_EQ(report.OutlyingIncidents, 0);
  EXPECT_TRUE(report.DefaultCellSize);
  EXPECT_GT(report.HotSpots[0], 0);

  Layer cells = CountCells(points, report.CellSize);
  EXPECT_EQ(report.Features, cells.dataset->GetRecordCount());

  // The band is the first peak of the row-standardized series of the counts.
  ZoIncrementalInformation series;
  series.FieldName = "Count";
  series.Standardization = true;
  ZoIncrementalResult bands;
  ZoAnalyzingPatterns patterns;
  ASSERT_TRUE(patterns.IncrementalSpatialAutocorrelation(cells.dataset, series, bands, false));
  if (bands.FirstPeak >= 0) {
    EXPECT_EQ(report.Scale, ScaleFirstPeak);
    EXPECT_EQ(report.DistanceBand, bands.Bands[static_cast<std::size_t>(bands.FirstPeak)].Distance);
  } else {
    EXPECT_EQ(report.Scale, ScaleNearestNeighbours);
  }

  ZoPatternsInformation gi;
  gi.FieldName = "Count";
  gi.Conceptualization = FixedDistanceBand;
  gi.DistanceTolerance = report.DistanceBand;
  gi.FDRCorrection = true;
  Layer expected;
  ASSERT_TRUE(clustering.HotSpotAnalyst(cells.dataset, expected.dataset, gi, false));
  ExpectSameHotSpots(result.dataset, expected.dataset);
}

TEST(OptimizedHotSpot, FieldIsAnalysedAsTheHotSpotAnalysisWithTheChosenBand) {
  auto source = ZoDataSource::Open(satest::DataPath("baltim.gpkg"), false);
  ASSERT_TRUE(source);
  ZoDatasetVector* baltim = source->GetDataset(0);
  satest::MemoryResult result, expected;
  ZoOptimizedInformation info;
  info.FieldName = "PRICE";
  ZoOptimizedReport report;
  ZoClusteringDistributions clustering;
  ASSERT_TRUE(clustering.OptimizedHotSpotAnalyst(baltim, result.dataset, info, false, &report))
      << clustering.GetStrErrorMes().Str();
  EXPECT_FALSE(report.Aggregated);
  EXPECT_EQ(report.Features, baltim->GetRecordCount());
  ZoPatternsInformation gi;
  gi.FieldName = "PRICE";
  gi.Conceptualization = FixedDistanceBand;
  gi.DistanceTolerance = report.DistanceBand;
  gi.FDRCorrection = true;
  ASSERT_TRUE(clustering.HotSpotAnalyst(baltim, expected.dataset, gi, false));
  ExpectSameHotSpots(result.dataset, expected.dataset, {"Gi_Zscore", "Gi_Pvalue", "Gi_ConfInvl"});
}

TEST(OptimizedHotSpot, AFarIncidentDoesNotStretchTheCellSize) {
  auto points = Incidents();
  satest::MemoryLayer near = satest::MakePointLayer(points);
  points.push_back({60000.0, 60000.0});
  satest::MemoryLayer far = satest::MakePointLayer(points);
  ZoOptimizedReport withoutFar, withFar;
  ZoClusteringDistributions clustering;
  for (auto [layer, report] : {std::pair{&near, &withoutFar}, std::pair{&far, &withFar}}) {
    Layer result;
    ASSERT_TRUE(clustering.OptimizedHotSpotAnalyst(layer->dataset, result.dataset, {}, false, report))
        << clustering.GetStrErrorMes().Str();
  }
  EXPECT_EQ(withFar.OutlyingIncidents, 1);
  EXPECT_EQ(withFar.OutlyingFeatures, 1);  // its cell
  EXPECT_EQ(withFar.CellSize, withoutFar.CellSize);
  EXPECT_EQ(withFar.Features, withoutFar.Features + 1);
  EXPECT_EQ(withFar.Incremental.BeginDistance, withoutFar.Incremental.BeginDistance);
}

TEST(OptimizedHotSpot, RefusesWhatCannotBeAnalysed) {
  ZoClusteringDistributions clustering;
  auto fails = [&](ZoDatasetVector* source, int resultType, const ZoOptimizedInformation& info) {
    Layer result(resultType);
    EXPECT_FALSE(clustering.OptimizedHotSpotAnalyst(source, result.dataset, info, false));
    EXPECT_EQ(result.dataset->GetRecordCount(), 0);
    return satest::MessageIds(clustering.GetStrErrorMes());
  };
  using Ids = std::vector<std::string>;
  ZoOptimizedInformation grid;
  satest::MemoryLayer empty = satest::MakePointLayer({});
  EXPECT_EQ(fails(empty.dataset, DatasetRegion, grid), (Ids{msg::ESa090, msg::ESa095}));
  satest::MemoryLayer incidents = satest::MakePointLayer(Incidents());
  EXPECT_EQ(fails(incidents.dataset, DatasetPoint, grid), (Ids{msg::EEe017, msg::ESa095}));
  grid.CellSize = 0.0;
  EXPECT_EQ(fails(incidents.dataset, DatasetRegion, grid), (Ids{msg::ESa086, msg::ESa095}));
  grid.CellSize = 5000.0;  // one cell
  EXPECT_EQ(fails(incidents.dataset, DatasetRegion, grid), (Ids{msg::ESa090, msg::ESa095}));

  // A lattice has no coincident incidents: every integrated count is 1.
  std::vector<LUMA::LumaPoint2D> lattice;
  for (int i = 0; i < 100; ++i) lattice.push_back({static_cast<double>(i % 10), static_cast<double>(i / 10)});
  satest::MemoryLayer regular = satest::MakePointLayer(lattice);
  ZoOptimizedInformation integrate;
  integrate.Aggregation = AggregateIntegrate;
  integrate.Tolerance = 0.0;
  EXPECT_EQ(fails(regular.dataset, DatasetPoint, integrate), (Ids{msg::ESa091, msg::ESa095}));

  ZoOptimizedInformation polygons;
  polygons.Aggregation = AggregatePolygons;
  EXPECT_EQ(fails(incidents.dataset, DatasetRegion, polygons), (Ids{msg::ESa092, msg::ESa095}));
  polygons.Polygons = regular.dataset;  // points, not polygons
  EXPECT_EQ(fails(incidents.dataset, DatasetRegion, polygons), (Ids{msg::ESa092, msg::ESa095}));
}
