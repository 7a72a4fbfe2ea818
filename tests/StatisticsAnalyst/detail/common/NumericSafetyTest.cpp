// Hostile numbers and places: non-finite values and missing geometries are
// refused by feature, extreme magnitudes give the statistics of ordinary
// ones, constant values are never significant, points across the
// antimeridian are measured as one patch, K-nearest ties do not depend on
// the file format, the FDR bins follow Benjamini–Hochberg, and a weights file
// keyed by an ordinary field orders the features by that field.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <set>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "TestSupport.h"
#include "host/ZoOpPoints.h"

using namespace ZOC;
using LUMA::LumaPoint2D;
using Exponent = ZoAnalyzingPatterns::ZoAnalyzingExponent;

namespace {

using Result = satest::MemoryResult;
using satest::Column;

ZoPatternsInformation Info(ZoConceptualizationModel c, int k = 4) {
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = c;
  info.KNeighbors = k;
  return info;
}

// The QlID of the k-th record in QlID order.
std::int64_t QlIdAt(ZoDatasetVector* ds, std::size_t k) {
  ZoRecordsetPtr r(ds->Query(ZoQueryDef()));
  r->MoveFirst();
  for (std::size_t i = 0; i < k; ++i) r->MoveNext();
  return r->GetID();
}

std::vector<double> Trend(const std::vector<LumaPoint2D>& p) {
  std::vector<double> v;
  for (std::size_t i = 0; i < p.size(); ++i) v.push_back(5 + p[i].x * 0.3 + std::sin(7.0 * i) * 2);
  return v;
}

std::vector<double> Times(std::vector<double> v, double f) {
  for (double& x : v) x *= f;
  return v;
}

// Each analysis of a layer: the global results and the per-feature fields.
struct AllStatistics {
  Exponent moran, generalG;
  std::vector<double> gi, localI, localZ;
};

AllStatistics RunAll(satest::MemoryLayer& layer) {
  AllStatistics s;
  ZoAnalyzingPatterns patterns;
  const ZoPatternsInformation info = Info(KNearestNeighbors);
  EXPECT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, info, s.moran, false)) << patterns.GetStrErrorMes().Str();
  EXPECT_TRUE(patterns.HighOrLowCluster(layer.dataset, info, s.generalG, false)) << patterns.GetStrErrorMes().Str();
  ZoClusteringDistributions local;
  Result hot, clusters;
  EXPECT_TRUE(local.HotSpotAnalyst(layer.dataset, hot.dataset, info, false)) << local.GetStrErrorMes().Str();
  EXPECT_TRUE(local.ClusterOutlier(layer.dataset, clusters.dataset, info, false)) << local.GetStrErrorMes().Str();
  s.gi = Column(hot.dataset, "Gi_Zscore");
  s.localI = Column(clusters.dataset, "ALMI_MoranI");
  s.localZ = Column(clusters.dataset, "ALMI_Zscore");
  return s;
}

void ExpectClose(const std::vector<double>& a, const std::vector<double>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], b[i], 1e-11 * std::max(1.0, std::fabs(b[i]))) << what;
}

// Features significant at level alpha under the Benjamini–Hochberg step-up:
// those with p at most p(k), k the largest rank with p(k) ≤ k·alpha/n.
std::set<std::size_t> BenjaminiHochberg(const std::vector<double>& p, double alpha) {
  std::vector<double> sorted = p;
  std::sort(sorted.begin(), sorted.end());
  double cut = -1;
  for (std::size_t k = 1; k <= sorted.size(); ++k)
    if (sorted[k - 1] <= k * alpha / sorted.size()) cut = sorted[k - 1];
  std::set<std::size_t> out;
  for (std::size_t i = 0; i < p.size(); ++i)
    if (p[i] <= cut) out.insert(i);
  return out;
}

}  // namespace

// Every analysis refuses them (tests/hostile/numeric.tsv); the message names
// the first offender, in the global and in the local pipeline alike.
TEST(NumericSafety, NonFiniteValuesAndMissingGeometriesNameTheFeature) {
  const auto points = satest::RandomPoints(12, 10.0, 5);
  ZoAnalyzingPatterns patterns;
  Exponent r;
  for (double bad : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    std::vector<double> values = Trend(points);
    values[7] = bad;
    values[9] = std::nan("");  // a later offender is not the one named
    auto layer = satest::MakePointLayer(points, values);
    const std::string named = "[EUc001] The feature with QlID " + std::to_string(QlIdAt(layer.dataset, 7)) + " ";
    EXPECT_FALSE(patterns.SpatialAutocorrelation(layer.dataset, Info(KNearestNeighbors), r, false));
    EXPECT_NE(patterns.GetStrErrorMes().Str().find(named), std::string::npos) << patterns.GetStrErrorMes().Str();
    ZoClusteringDistributions local;
    Result hot;
    EXPECT_FALSE(local.HotSpotAnalyst(layer.dataset, hot.dataset, Info(KNearestNeighbors), false));
    EXPECT_NE(local.GetStrErrorMes().Str().find(named), std::string::npos);
  }

  // A record without geometry among points.
  auto layer = satest::MakePointLayer(points, Trend(points));
  ZoRecordsetPtr writer(layer.dataset->Query(ZoQueryDef()));
  writer->AddNew(ZoGeometry());
  writer->SetFieldValue("VALUE", LUMA::LumaVariant(1.0));
  writer->Update();
  const std::string named = "[EUc002] The feature with QlID " + std::to_string(writer->GetID()) + " ";
  writer.reset();
  layer.dataset->Commit();
  EXPECT_FALSE(patterns.SpatialAutocorrelation(layer.dataset, Info(KNearestNeighbors), r, false));
  EXPECT_NE(patterns.GetStrErrorMes().Str().find(named), std::string::npos) << patterns.GetStrErrorMes().Str();
  EXPECT_FALSE(patterns.AverageNearestNeighbor(layer.dataset, 0.0, Euclidean, r, true, 0.0, false));
  EXPECT_NE(patterns.GetStrErrorMes().Str().find(named), std::string::npos) << patterns.GetStrErrorMes().Str();
}

TEST(NumericSafety, ExtremeMagnitudesGiveTheStatisticsOfOrdinaryValues) {
  const auto points = satest::RandomPoints(60, 10.0, 11);
  auto reference = satest::MakePointLayer(points, Trend(points));
  const AllStatistics expected = RunAll(reference);
  for (double factor : {1e200, 3e-200, 1e300}) {
    auto layer = satest::MakePointLayer(points, Times(Trend(points), factor));
    const AllStatistics got = RunAll(layer);
    for (const auto& [a, b] : {std::pair{got.moran, expected.moran}, {got.generalG, expected.generalG}})
      ExpectClose({a.Index, a.Variance, a.ZScore}, {b.Index, b.Variance, b.ZScore}, "global");
    ExpectClose(got.gi, expected.gi, "Gi*");
    ExpectClose(got.localI, expected.localI, "local I");
    ExpectClose(got.localZ, expected.localZ, "local z");
  }
}

TEST(NumericSafety, ConstantValuesAreNeverSignificant) {
  const auto points = satest::RandomPoints(40, 10.0, 2);
  // 3.3 is not a binary fraction: the weighted sums carry rounding noise
  // while the standard deviation comes out exactly 0, so the Gi* z-scores
  // are infinite (noise over 0) or NaN (0 over 0).
  auto layer = satest::MakePointLayer(points, std::vector<double>(points.size(), 3.3));
  ZoClusteringDistributions local;
  for (bool fdr : {false, true}) {
    ZoPatternsInformation info = Info(KNearestNeighbors);
    info.FDRCorrection = fdr;
    Result hot;
    ASSERT_TRUE(local.HotSpotAnalyst(layer.dataset, hot.dataset, info, false)) << local.GetStrErrorMes().Str();
    const auto z = Column(hot.dataset, "Gi_Zscore");
    ASSERT_TRUE(std::all_of(z.begin(), z.end(), [](double v) { return !std::isfinite(v); }));
    for (double bin : Column(hot.dataset, "Gi_ConfInvl")) EXPECT_EQ(bin, 0.0);
    for (double p : Column(hot.dataset, "Gi_Pvalue")) EXPECT_TRUE(std::isnan(p) || (p >= 0.0 && p <= 1.0)) << p;
  }
}

TEST(Antimeridian, AnnAndNeighboursMatchTheSamePatternAwayFromIt) {
  // One pattern twice: straddling ±180° near Fiji, and turned about the
  // polar axis by 180° (which the ellipsoid does not notice).
  std::vector<LumaPoint2D> across, away;
  for (int i = 0; i < 6; ++i)
    for (int j = 0; j < 5; ++j) {
      const double offset = -0.25 + 0.1 * i + 0.017 * j + 0.003 * ((i * j) % 3);
      const double lat = -17.0 + 0.09 * j + 0.002 * i;
      away.push_back({offset, lat});
      across.push_back({offset < 0 ? 180.0 + offset : offset - 180.0, lat});
    }
  std::vector<double> values;
  for (std::size_t i = 0; i < away.size(); ++i) values.push_back(std::cos(3.0 * i));
  auto a = satest::MakePointLayer(across, values, "EPSG:4326");
  auto b = satest::MakePointLayer(away, values, "EPSG:4326");

  // Observed mean distance against brute force over every pair.
  ZoAnalyzingPatterns patterns;
  Exponent ra, rb;
  ASSERT_TRUE(patterns.AverageNearestNeighbor(a.dataset, 0.0, Euclidean, ra, true, 0.0, false));
  ASSERT_TRUE(patterns.AverageNearestNeighbor(b.dataset, 0.0, Euclidean, rb, true, 0.0, false));
  const ZoPrjCoordSys& cs = a.dataset->GetPrjCoordSys();
  double sum = 0;
  for (std::size_t i = 0; i < across.size(); ++i) {
    double best = HUGE_VAL;
    for (std::size_t j = 0; j < across.size(); ++j)
      if (j != i)
        best = std::min(best, ZoOpPoints::GetSpheroidChordalDistance(across[i], across[j], cs.GetSemiMajorAxis(),
                                                                     cs.GetFlattening()));
    sum += best;
  }
  EXPECT_NEAR(ra.Variance, sum / across.size(), 1e-9 * sum);  // the observed mean distance
  EXPECT_NEAR(ra.Variance, rb.Variance, 1e-6);
  EXPECT_NEAR(ra.ExpectedIndex, rb.ExpectedIndex, 1e-6 * rb.ExpectedIndex);  // the study area agrees too
  EXPECT_NEAR(ra.Index, rb.Index, 1e-9);

  // The same K nearest neighbours, and so the same Moran's I.
  ZoStatisticsUtilities utilities;
  LumaArray<WeightMatrixUnit> ua, ub;
  ZoRecordsetPtr qa(a.dataset->Query(ZoQueryDef())), qb(b.dataset->Query(ZoQueryDef()));
  ASSERT_TRUE(utilities.GetSpatialWeight(qa.get(), Info(KNearestNeighbors, 3), ua, false));
  ASSERT_TRUE(utilities.GetSpatialWeight(qb.get(), Info(KNearestNeighbors, 3), ub, false));
  ASSERT_EQ(ua.size(), ub.size());
  for (std::size_t k = 0; k < ua.size(); ++k) EXPECT_EQ(ua[k].Index, ub[k].Index) << k;
}

TEST(KNearestTies, SamePointsInThreeFormatsGiveOneMoransI) {
  // A regular grid: every interior point has four neighbours at one distance,
  // so K = 3 must break ties, by QlID. Every format numbers the features in
  // file order, so each gives the same neighbours.
  satest::TempDir dir;
  {
    std::ofstream out(dir.File("grid.geojson"));
    out << "{\"type\":\"FeatureCollection\",\"features\":[";
    for (int i = 0; i < 49; ++i)
      out << (i ? "," : "") << "{\"type\":\"Feature\",\"properties\":{\"v\":" << (i * 37 % 11)
          << "},\"geometry\":{\"type\":\"Point\",\"coordinates\":[" << 0.01 * (i % 7) << "," << 0.01 * (i / 7) << "]}}";
    out << "]}";
  }
  std::vector<std::string> outputs;
  for (const char* file : {"grid.geojson", "grid.gpkg", "grid.shp"}) {
    if (std::string(file) != "grid.geojson") {
      ASSERT_EQ(satest::RunCommand("ogr2ogr " + dir.File(file) + " " + dir.File("grid.geojson"), nullptr), 0);
    }
    std::string out;
    ASSERT_EQ(satest::RunCommand(std::string(SA_ZOSTAT) + " moran --json --input " + dir.File(file) +
                                     " --field v --conceptualization k-nearest --k 3",
                                 &out),
              0);
    outputs.push_back(out.substr(out.find("\"index\"")));
  }
  EXPECT_EQ(outputs[0], outputs[1]);
  EXPECT_EQ(outputs[0], outputs[2]);
}

TEST(LocalAnalyses, FdrBinsFollowBenjaminiHochberg) {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::Open(satest::DataPath("baltim.gpkg"), false);
  ASSERT_TRUE(source);
  ZoPatternsInformation info = Info(KNearestNeighbors, 6);
  info.FieldName = "PRICE";
  info.FDRCorrection = true;
  ZoClusteringDistributions local;
  Result hot;
  ASSERT_TRUE(local.HotSpotAnalyst(source->GetDataset(0), hot.dataset, info, false)) << local.GetStrErrorMes().Str();
  const auto z = Column(hot.dataset, "Gi_Zscore"), p = Column(hot.dataset, "Gi_Pvalue");
  const auto bins = Column(hot.dataset, "Gi_ConfInvl");
  const auto at10 = BenjaminiHochberg(p, 0.1), at5 = BenjaminiHochberg(p, 0.05), at1 = BenjaminiHochberg(p, 0.01);
  ASSERT_GT(at1.size(), 5u);  // the test has significant features at every level to check
  ASSERT_LT(at10.size(), p.size());
  double zMean = 0;
  for (double v : z) zMean += v / z.size();
  for (std::size_t i = 0; i < bins.size(); ++i) {
    const int level = static_cast<int>(std::fabs(bins[i]));
    EXPECT_EQ(level >= 1, at10.count(i) == 1) << i;  // significant at 10% exactly as BH says
    EXPECT_EQ(level == 3, at1.count(i) == 1) << i;   // and at 1%
    EXPECT_TRUE(level < 2 || at5.count(i) == 1) << i;
    EXPECT_TRUE(level >= 1 || at5.count(i) == 0) << i;
    EXPECT_TRUE(level == 0 || (bins[i] > 0) == (z[i] >= zMean)) << i;
  }
}

TEST(LocalAnalyses, WeightsFileKeyedByAnOrdinaryFieldOrdersByThatField) {
  // KEY runs against QlID order, so a file keyed by it lists the features in
  // reverse: every value has to follow its feature.
  const auto points = satest::RandomPoints(30, 10.0, 8);
  auto layer = satest::MakePointLayer(points, Trend(points));
  std::vector<double> key;
  for (int k = 0; k < 30; ++k) key.push_back(1000 - k);
  satest::AddField(layer.dataset, "KEY", LUMA::FieldInt32, key);
  satest::TempDir dir;
  ZoPatternsInformation info = Info(KNearestNeighbors);
  ZoWeightsUtilities builder;
  ASSERT_TRUE(builder.BuildWeightMatrixBinary(layer.dataset, "KEY", dir.File("w.swmb"), info, false))
      << builder.GetStrErrorMes().Str();
  ZoAnalyzingPatterns patterns;
  Exponent memory, fromFile;
  ASSERT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, info, memory, false));
  ZoPatternsInformation fileInfo = info;
  fileInfo.Conceptualization = SpatialWeightsFile;
  fileInfo.WeightsFilePath = dir.File("w.swmb");
  ASSERT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, fileInfo, fromFile, false))
      << patterns.GetStrErrorMes().Str();
  EXPECT_NEAR(fromFile.Index, memory.Index, 1e-12);
  EXPECT_NEAR(fromFile.ZScore, memory.ZScore, 1e-10);

  ZoClusteringDistributions local;
  Result byQlId, byKey;
  ASSERT_TRUE(local.HotSpotAnalyst(layer.dataset, byQlId.dataset, info, false));
  ASSERT_TRUE(local.HotSpotAnalyst(layer.dataset, byKey.dataset, fileInfo, false)) << local.GetStrErrorMes().Str();
  auto keys = Column(byKey.dataset, "KEY");
  auto z = Column(byKey.dataset, "Gi_Zscore"), expectedZ = Column(byQlId.dataset, "Gi_Zscore");
  ASSERT_EQ(keys.size(), expectedZ.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ASSERT_EQ(keys[i], 1000.0 - (keys.size() - 1 - i));  // ascending KEY: QlID order reversed
    EXPECT_NEAR(z[i], expectedZ[keys.size() - 1 - i], 1e-10) << i;
  }
}
