// Hot spots (Gi*) and clusters and outliers (local Moran's I): the bin and
// type rules on hand-worked inputs, the analyses against a dense textbook
// computation, and the result datasets they write.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/local/Classification.h"
#include "StatisticsAnalyst/detail/local/ClusterOutlier.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
namespace local = ZOC::detail::local;

namespace {

using Result = satest::MemoryResult;
using satest::Column;
using satest::Texts;

std::vector<std::string> Ids(const ZoAnalysisFrame& o) { return satest::MessageIds(o.GetStrErrorMes()); }

// Gi* from its definition over a dense row with the self weight on the diagonal.
double DenseGi(const std::vector<double>& x, std::vector<double> w, std::size_t i, double self) {
  const double n = x.size();
  double mean = 0, sq = 0;
  for (double v : x) mean += v / n, sq += v * v / n;
  const double s = std::sqrt(sq - mean * mean);
  w[i] = self;
  double W = 0, W2 = 0, WX = 0;
  for (std::size_t j = 0; j < x.size(); ++j) W += w[j], W2 += w[j] * w[j], WX += w[j] * x[j];
  return (WX - mean * W) / (s * std::sqrt((n * W2 - W * W) / (n - 1)));
}

ZoPatternsInformation Info(ZoConceptualizationModel c) {
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = c;
  info.KNeighbors = c == KNearestNeighbors ? 4 : 1;
  return info;
}

}  // namespace

TEST(LocalStatistics, ConfidenceBinsAtTheirEdges) {
  LumaArray<double> z = {2, -2, 1, -1, 0, 3, 4, std::nan("")};
  LumaArray<double> p = {0.01, 0.0099, 0.05, 0.1, 0.001, 0.0999, 0.5, 0.001};
  LumaArray<int> bins;
  ASSERT_TRUE(local::Confidence(z, p, bins));
  // Strict comparisons: p = 0.01 is a 95% bin, p = 0.05 a 90% bin, p = 0.1 none.
  EXPECT_EQ(bins, (LumaArray<int>{2, -3, 1, 0, 0, 1, 0, 0}));
  EXPECT_FALSE(local::Confidence(z, LumaArray<double>{0.1}, bins));
}

TEST(LocalStatistics, FalseDiscoveryRateByHand) {
  // n = 10, walked from the largest p; position k has rank m = 10 - k and
  // thresholds m·0.1/10, m·0.05/10, m·0.01/10 (a p equal to one passes):
  //   p      m  thresholds          passed  level
  //   0.90  10  .10  .050  .010      0       0
  //   0.50   9  .09  .045  .009      0       0
  //   0.09   8  .08  .040  .008      0       0
  //   0.045  7  .07  .035  .007      1       1
  //   0.04   6  .06  .030  .006      1       1
  //   0.03   5  .05  .025  .005      1       1
  //   0.02   4  .04  .020  .004      2       2
  //   0.004  3  .03  .015  .003      2       2
  //   0.003  2  .02  .010  .002      2       2
  //   0.0005 1  .01  .005  .001      3       3
  // The mean z-score is 1.34; a z below it takes the negative level.
  LumaArray<double> p = {0.90, 0.50, 0.09, 0.045, 0.04, 0.03, 0.02, 0.004, 0.003, 0.0005};
  LumaArray<double> z = {0.1, 0.6, 1.7, 2.0, 2.1, 2.2, 2.3, 2.9, 3.0, -3.5};
  LumaArray<int> bins;
  ASSERT_TRUE(local::FdrAdjusted(z, p, bins));
  EXPECT_EQ(bins, (LumaArray<int>{0, 0, 0, 1, 1, 1, 2, 2, 2, -3}));

  // The level is replaced, not kept at its maximum: it falls from 2 to 1.
  //   0.03 (m=3: .1, .05, .01 -> 2), 0.025 (m=2: .067, .033, .0067 -> 2), 0.02 (m=1: .033, .017, .0033 -> 1)
  ASSERT_TRUE(local::FdrAdjusted(LumaArray<double>{1, 1, 1}, LumaArray<double>{0.03, 0.025, 0.02}, bins));
  EXPECT_EQ(bins, (LumaArray<int>{2, 2, 1}));
  // The sign is taken against the mean z-score, not zero: 0.5 < mean 1.0 gives a negative bin.
  ASSERT_TRUE(local::FdrAdjusted(LumaArray<double>{0.5, 1.5}, LumaArray<double>{0.001, 0.001}, bins));
  EXPECT_EQ(bins, (LumaArray<int>{-3, 3}));
  EXPECT_FALSE(local::FdrAdjusted(LumaArray<double>{1}, LumaArray<double>{0.1, 0.2}, bins));
}

TEST(LocalStatistics, ClusterOutlierTypesByTheLagTest) {
  LumaArray<double> I = {0.5, 0.5, 0.5, -0.5, -0.5, 0.5, 0.0, 0.5};
  LumaArray<double> p = {0.01, 0.01, 0.01, 0.01, 0.01, 0.05, 0.001, 0.04};
  LumaArray<double> d = {1, -1, 1, -1, 1, 1, 1, 1};
  LumaArray<double> lag = {1, -1, -1, 1, -1, 1, 1, 1};
  LumaArray<LumaUnicodeString> types;
  ASSERT_TRUE(local::ClusterOutlierTypes(I, p, d, lag, {}, types).ok());
  const std::vector<std::string> expected = {"HH", "LL", "LL", "LH", "HL", "", "", "HH"};
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(types[i].Str(), expected[i]) << i;
  // FDR bins narrow the test: |bin| = 1 removes a type, never adds one.
  LumaArray<LumaUnicodeString> narrowed;
  ASSERT_TRUE(local::ClusterOutlierTypes(I, p, d, lag, {3, 1, 2, 3, 3, 3, 3, 3}, narrowed).ok());
  EXPECT_EQ(narrowed[1].Str(), "");
  EXPECT_EQ(narrowed[5].Str(), "");
  EXPECT_STREQ(local::ClusterOutlierTypes(I, p, d, lag, {1}, narrowed).id(), ZOC::msg::ESa040);
  EXPECT_STREQ(local::ClusterOutlierTypes(I, {0.1}, d, lag, {}, narrowed).id(), ZOC::msg::ESa039);
}

TEST(HotSpotAnalyst, MatchesTheDenseDefinitionWithSelfWeights) {
  const auto points = satest::RandomPoints(80, 20.0, 5);
  std::vector<double> values;
  for (std::size_t i = 0; i < points.size(); ++i) values.push_back(points[i].x + std::cos(3.0 * i));
  auto layer = satest::MakePointLayer(points, values);
  std::vector<double> self;
  for (std::size_t k = 0; k < points.size(); ++k) self.push_back(k % 3 == 0 ? -2.0 : k % 3 == 1 ? 0.0 : 2.5);
  satest::AddField(layer.dataset, "SELF", LUMA::FieldDouble, self);
  ZoPatternsInformation info = Info(InverseDistance);
  info.Standardization = true;  // forced off for Gi* in memory
  ZoPatternsInformation raw = info;
  raw.Standardization = false;
  const auto w = satest::DenseWeights(layer.dataset, raw);
  for (const char* selfField : {"", "SELF"}) {
    info.SecondFieldName = selfField;
    Result result;
    ZoClusteringDistributions analysis;
    ASSERT_TRUE(analysis.HotSpotAnalyst(layer.dataset, result.dataset, info, false)) << analysis.GetStrErrorMes().Str();
    const auto z = Column(result.dataset, "Gi_Zscore");
    ASSERT_EQ(z.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
      // Self weights of -2 and 0 both put exactly 0 on the diagonal.
      const double self = *selfField ? (i % 3 == 2 ? 2.5 : 0.0) : 1.0;
      EXPECT_NEAR(z[i], DenseGi(values, w[i], i, self), 1e-10) << i;
    }
    EXPECT_EQ(Column(result.dataset, "VALUE"), values);  // the analysis field is copied
  }
}

TEST(HotSpotAnalyst, ConstantValuesAndFailures) {
  auto constant = satest::MakePointLayer({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {9, 9}}, {4, 4, 4, 4, 4});
  Result result;
  ZoClusteringDistributions analysis;
  ASSERT_TRUE(analysis.HotSpotAnalyst(constant.dataset, result.dataset, Info(FixedDistanceBand), false));
  for (double z : Column(result.dataset, "Gi_Zscore")) EXPECT_FALSE(std::isfinite(z));

  EXPECT_FALSE(analysis.HotSpotAnalyst(constant.dataset, nullptr, Info(FixedDistanceBand), false));
  EXPECT_EQ(Ids(analysis), std::vector<std::string>{ZOC::msg::EEg032});
  auto regions = ZoDataSource::CreateMemory();
  ZoDatasetVector* wrongType = regions->CreateDatasetVector("r", DatasetRegion, ZoPrjCoordSys());
  EXPECT_FALSE(analysis.HotSpotAnalyst(constant.dataset, wrongType, Info(FixedDistanceBand), false));
  EXPECT_EQ(Ids(analysis), std::vector<std::string>{ZOC::msg::EEe017});
  ZoPatternsInformation info = Info(FixedDistanceBand);
  info.SecondFieldName = "NOPE";
  Result other;
  EXPECT_FALSE(analysis.HotSpotAnalyst(constant.dataset, other.dataset, info, false));
  EXPECT_EQ(Ids(analysis), std::vector<std::string>{ZOC::msg::ESa004});
  EXPECT_EQ(other.dataset->GetRecordCount(), 0);
}

TEST(ClusterOutlier, MatchesDefinitionsAndHandlesIsolatedAndConstant) {
  // Two groups and one feature far from both (no neighbour within the band).
  std::vector<LumaPoint2D> pts = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {10, 0}, {11, 0}, {10, 1}, {11, 1}, {50, 50}};
  std::vector<double> v = {9, 8, 9, 10, 1, 2, 1, 0, 5};
  auto layer = satest::MakePointLayer(pts, v);
  ZoPatternsInformation info = Info(FixedDistanceBand);
  info.DistanceTolerance = 1.5;
  info.Standardization = true;
  Result result;
  ZoClusteringDistributions analysis;
  ASSERT_TRUE(analysis.ClusterOutlier(layer.dataset, result.dataset, info, false)) << analysis.GetStrErrorMes().Str();
  const auto I = Column(result.dataset, "ALMI_MoranI");
  const auto z = Column(result.dataset, "ALMI_Zscore");
  const auto p = Column(result.dataset, "ALMI_Pvalue");
  const auto types = Texts(result.dataset, "ALMI_Type");
  // The isolated feature: I = 0, z = 0, p = 1, no type.
  EXPECT_EQ(I[8], 0.0);
  EXPECT_EQ(z[8], 0.0);
  EXPECT_EQ(p[8], 1.0);
  EXPECT_EQ(types[8], "");
  // Feature 0 by hand: neighbours 1, 2, 3 (band 1.5) with weights 1/3.
  double mean = 0, m2 = 0;
  for (double x : v) mean += x / 9;
  for (double x : v) m2 += (x - mean) * (x - mean) / 8;
  const double lagDev = ((8 - mean) + (9 - mean) + (10 - mean)) / 3;
  EXPECT_NEAR(I[0], (9 - mean) / m2 * lagDev, 1e-12);
  EXPECT_EQ(types[0], p[0] < 0.05 ? "HH" : "");
  for (int i = 4; i < 8; ++i) EXPECT_EQ(types[i], p[i] < 0.05 ? "LL" : "") << i;

  auto constant = satest::MakePointLayer({{0, 0}, {1, 0}, {2, 0}, {3, 0}}, {7, 7, 7, 7});
  Result other;
  EXPECT_FALSE(analysis.ClusterOutlier(constant.dataset, other.dataset, Info(FixedDistanceBand), false));
  EXPECT_EQ(Ids(analysis), (std::vector<std::string>{ZOC::msg::ESa021, ZOC::msg::ESa034}));
}

TEST(LocalAnalyses, WeightSourcesAgreeAndTemporaryFilesGo) {
  satest::TempDir tmp;
  satest::ScopedEnv tmpdir("TMPDIR", tmp.path().string());

  // 10001 features take the path of large layers; the reference applies the
  // definitions to the weights small layers use.
  const auto points = satest::RandomPoints(10001, 100.0, 77);
  std::vector<double> values;
  for (std::size_t i = 0; i < points.size(); ++i) values.push_back(points[i].y + std::sin(1.0 * i));
  auto layer = satest::MakePointLayer(points, values);
  ZoPatternsInformation info = Info(KNearestNeighbors);
  info.Standardization = true;
  info.WeightsMemoryBudget = 1;  // nothing fits: the weights go through a temporary file
  Result hot, clusters;
  ZoClusteringDistributions analysis;
  ASSERT_TRUE(analysis.HotSpotAnalyst(layer.dataset, hot.dataset, info, false)) << analysis.GetStrErrorMes().Str();
  ASSERT_TRUE(analysis.ClusterOutlier(layer.dataset, clusters.dataset, info, false));
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));

  ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
  ZoStatisticsUtilities u;
  LumaArray<WeightMatrixUnit> units[2];  // raw for Gi*, row-standardized for local Moran's I
  ZoPatternsInformation raw = info;
  raw.Standardization = false;
  ASSERT_TRUE(u.GetSpatialWeight(records.get(), raw, units[0], false));
  ASSERT_TRUE(u.GetSpatialWeight(records.get(), info, units[1], false));
  const std::size_t n = values.size();
  double mean = 0, m2 = 0;
  for (double v : values) mean += v / n;
  for (double v : values) m2 += (v - mean) * (v - mean) / (n - 1);
  const auto giZ = Column(hot.dataset, "Gi_Zscore"), lmI = Column(clusters.dataset, "ALMI_MoranI");
  for (std::size_t i = 0; i < n; i += 997) {
    std::vector<double> w[2] = {std::vector<double>(n, 0.0), std::vector<double>(n, 0.0)};
    for (int s = 0; s < 2; ++s)
      for (const auto& unit : units[s])
        if (static_cast<std::size_t>(unit.Index) / n == i) w[s][unit.Index % n] = unit.Weight;
    double lag = 0;
    for (std::size_t j = 0; j < n; ++j) lag += w[1][j] * (values[j] - mean);
    EXPECT_NEAR(giZ[i], DenseGi(values, w[0], i, 1.0), 1e-9) << i;
    EXPECT_NEAR(lmI[i], (values[i] - mean) / m2 * lag, 1e-9) << i;
  }

  // A cancelled streamed run leaves no temporary file.
  satest::ScopedProgressFactory cancelling(
      [] { return std::make_unique<ZoCallbackProgress>([](const ZoProgressState& s) { return s.percent < 20; }); });
  Result cancelled;
  EXPECT_FALSE(analysis.HotSpotAnalyst(layer.dataset, cancelled.dataset, info, true));
  EXPECT_EQ(Ids(analysis), std::vector<std::string>{ZOC::msg::IMb030});
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
}

TEST(LocalAnalyses, WeightsFileRunCarriesTheUniqueIdField) {
  auto layer = satest::MakePointLayer(satest::RandomPoints(30, 10.0, 3));
  satest::TempDir dir;
  ZoPatternsInformation info = Info(FixedDistanceBand);
  ZoWeightsUtilities builder;
  ASSERT_TRUE(builder.BuildWeightMatrixBinary(layer.dataset, "QlID", dir.File("w.swmb"), info, false));
  Result fromFile;
  ZoClusteringDistributions analysis;
  info.Conceptualization = SpatialWeightsFile;
  info.WeightsFilePath = dir.File("w.swmb");
  ASSERT_TRUE(analysis.HotSpotAnalyst(layer.dataset, fromFile.dataset, info, false)) << analysis.GetStrErrorMes().Str();
  LUMA::LumaFieldInfo field;
  ASSERT_TRUE(fromFile.dataset->GetFieldInfo("UniqueID", field));  // QlID is a system field
  EXPECT_EQ(field.GetType(), LUMA::FieldInt32);
  EXPECT_EQ(Column(fromFile.dataset, "UniqueID"), Column(layer.dataset, "QlID"));
}
