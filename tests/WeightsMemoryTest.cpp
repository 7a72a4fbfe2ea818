// Weights an analysis builds for itself over more than 10000 features are
// held in memory as compressed sparse rows when they fit the budget, else
// streamed from a temporary weights file. Both must give the same numbers to
// the last bit: row by row, and through every analysis that uses them.
#include <gtest/gtest.h>

#include <omp.h>
#include <cmath>
#include <filesystem>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/detail/weights/CsrWeights.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileRows.h"
#include "TestSupport.h"

using namespace ZOC;
using Exponent = ZoAnalyzingPatterns::ZoAnalyzingExponent;

namespace {

constexpr std::int64_t kTiny = 1;  // bytes: nothing fits, the file is used

struct Case {
  const char* name;
  ZoConceptualizationModel model;
  bool standardize;
};
// Asymmetric (K nearest) and symmetric (distance) weights, raw and standardized.
const Case kCases[] = {{"k-nearest", KNearestNeighbors, true},
                       {"k-nearest raw", KNearestNeighbors, false},
                       {"fixed band", FixedDistanceBand, false},
                       {"inverse distance", InverseDistance, true}};

ZoPatternsInformation Info(const Case& c, std::int64_t budget) {
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = c.model;
  info.KNeighbors = 6;
  info.DistanceTolerance = 1.6;  // about 8 neighbours at this density
  info.Standardization = c.standardize;
  info.WeightsMemoryBudget = budget;
  return info;
}

satest::MemoryLayer Layer() {
  const auto points = satest::RandomPoints(10500, 100.0, 11);
  std::vector<double> values;
  for (std::size_t i = 0; i < points.size(); ++i) values.push_back(3 + points[i].x * 0.05 + std::sin(5.0 * i));
  return satest::MakePointLayer(points, values);
}

struct LocalRun {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory("result");
  ZoDatasetVector* dataset = source->CreateDatasetVector("result", DatasetPoint, ZoPrjCoordSys());
};

// Every field of every result feature, as text with all digits.
std::vector<std::string> Everything(ZoDatasetVector* ds) {
  std::vector<std::string> out;
  ZoRecordsetPtr r(ds->Query(ZoQueryDef()));
  LUMA::LumaVariant v;
  char buffer[64];
  for (r->MoveFirst(); !r->IsEOF(); r->MoveNext()) {
    for (const auto& field : ds->GetFieldInfos()) {
      r->GetFieldValue(field.GetName(), v);
      std::snprintf(buffer, sizeof buffer, "%.17g", v.ToDouble());
      out.push_back(field.GetName().Str() + "=" + (field.GetType() == LUMA::FieldText ? v.ToString().Str() : buffer));
    }
  }
  return out;
}

}  // namespace

TEST(WeightsMemory, BudgetDecidesAndNothingOverflows) {
  detail::weights::CsrWeights csr;
  EXPECT_FALSE(csr.Start(1000, detail::weights::CsrWeights::Bytes(1000, 0) - 1));
  ASSERT_TRUE(csr.Start(2, detail::weights::CsrWeights::Bytes(2, 3)));
  const std::int64_t columns[] = {0, 1};
  const double weights[] = {0.5, 1e-30};  // the second counts as zero: not stored
  ASSERT_TRUE(csr.Append(columns, weights, 2));
  EXPECT_EQ(csr.Stored(), 1);
  const double three[] = {1, 1, 1};
  const std::int64_t many[] = {0, 1, 2};
  EXPECT_FALSE(csr.Append(many, three, 3));  // 4 stored > 3: everything released
  EXPECT_EQ(csr.Count(), 0);
  EXPECT_GT(detail::weights::DefaultBudget(), 0u);
}

TEST(WeightsMemory, InMemoryRowsAreTheTemporaryFilesRows) {
  satest::TempDir tmp;
  satest::ScopedEnv tmpdir("TMPDIR", tmp.path().string());
  auto layer = Layer();
  for (const Case& c : kCases) {
    for (bool transposed : {true, false}) {
      const ZoPatternsInformation info = Info(c, 0);
      ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
      ZoWeightsFileRows memory, file;
      ASSERT_TRUE(memory.BuildInMemory(records.get(), info, nullptr, c.standardize, transposed)) << c.name;
      EXPECT_TRUE(memory.InMemory());
      EXPECT_FALSE(file.BuildInMemory(records.get(), Info(c, kTiny), nullptr, c.standardize, transposed));
      EXPECT_TRUE(file.Error().IsEmpty()) << file.Error().Str();
      ASSERT_TRUE(file.BuildTemporary(layer.dataset, info, nullptr)) << file.Error().Str();
      ASSERT_TRUE(file.Open(layer.dataset, file.TemporaryPath(), c.standardize, transposed)) << file.Error().Str();
      ASSERT_EQ(memory.Count(), file.Count());
      ZoSparseRow a, b;
      for (std::int64_t i = 0; i < file.Count(); ++i) {
        ASSERT_TRUE(memory.Next(i, a) && file.Next(i, b));
        ASSERT_EQ(a.columns, b.columns) << c.name << " row " << i;
        ASSERT_EQ(a.weights, b.weights) << c.name << " row " << i;
        ASSERT_EQ(a.transposed, b.transposed) << c.name << " row " << i;
      }
    }
  }
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
}

TEST(WeightsMemory, EveryAnalysisGivesTheSameNumbersOnBothPaths) {
  satest::TempDir tmp;
  satest::ScopedEnv tmpdir("TMPDIR", tmp.path().string());
  auto layer = Layer();
  for (const Case& c : {kCases[0], kCases[2]}) {
    Exponent moran[2], g[2];
    std::vector<std::string> hot[2], lisa[2];
    for (int path = 0; path < 2; ++path) {
      const ZoPatternsInformation info = Info(c, path == 0 ? 0 : kTiny);
      ZoAnalyzingPatterns patterns;
      ASSERT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, info, moran[path], false))
          << patterns.GetStrErrorMes().Str();
      ASSERT_TRUE(patterns.HighOrLowCluster(layer.dataset, info, g[path], false)) << patterns.GetStrErrorMes().Str();
      LocalRun gi, lm;
      ZoClusteringDistributions local;
      ASSERT_TRUE(local.HotSpotAnalyst(layer.dataset, gi.dataset, info, false)) << local.GetStrErrorMes().Str();
      ASSERT_TRUE(local.ClusterOutlier(layer.dataset, lm.dataset, info, false)) << local.GetStrErrorMes().Str();
      hot[path] = Everything(gi.dataset);
      lisa[path] = Everything(lm.dataset);
    }
    for (const Exponent* e : {moran, g}) {
      EXPECT_EQ(e[0].Index, e[1].Index) << c.name;
      EXPECT_EQ(e[0].ExpectedIndex, e[1].ExpectedIndex) << c.name;
      EXPECT_EQ(e[0].Variance, e[1].Variance) << c.name;
      EXPECT_EQ(e[0].ZScore, e[1].ZScore) << c.name;
      EXPECT_EQ(e[0].PValue, e[1].PValue) << c.name;
    }
    ASSERT_GE(hot[0].size(), 10500u * 3);
    EXPECT_EQ(hot[0], hot[1]) << c.name;
    EXPECT_EQ(lisa[0], lisa[1]) << c.name;
  }
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
}

TEST(WeightsMemory, ThreadCountChangesNoRow) {
  auto layer = Layer();
  for (const Case& c : kCases) {
    std::vector<ZoSparseRow> rows[2];
    for (int threads = 1; threads <= 2; ++threads) {
      omp_set_num_threads(threads);
      ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
      ZoWeightsFileRows memory;
      ASSERT_TRUE(memory.BuildInMemory(records.get(), Info(c, 0), nullptr, c.standardize, true)) << c.name;
      rows[threads - 1].resize(static_cast<std::size_t>(memory.Count()));
      for (std::int64_t i = 0; i < memory.Count(); ++i) ASSERT_TRUE(memory.Next(i, rows[threads - 1][i]));
    }
    omp_set_num_threads(omp_get_num_procs());
    for (std::size_t i = 0; i < rows[0].size(); ++i) {
      ASSERT_EQ(rows[0][i].columns, rows[1][i].columns) << c.name << " row " << i;
      ASSERT_EQ(rows[0][i].weights, rows[1][i].weights) << c.name << " row " << i;
      ASSERT_EQ(rows[0][i].transposed, rows[1][i].transposed) << c.name << " row " << i;
    }
  }
}

// Sums over features are reduced in a fixed block order and local statistics
// are per feature, so one thread and two give the same bits: every analysis,
// with its weights in memory (parameter 0) or in a temporary file.
class ThreadCount : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(ThreadCount, ChangesNoResult) {
  satest::TempDir tmp;
  satest::ScopedEnv tmpdir("TMPDIR", tmp.path().string());
  auto layer = Layer();
  for (const Case& c : {kCases[0], kCases[3]}) {
    Exponent moran[2], g[2];
    std::vector<std::string> hot[2], lisa[2];
    for (int threads = 1; threads <= 2; ++threads) {
      omp_set_num_threads(threads);
      const ZoPatternsInformation info = Info(c, GetParam());
      ZoAnalyzingPatterns patterns;
      ASSERT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, info, moran[threads - 1], false));
      ASSERT_TRUE(patterns.HighOrLowCluster(layer.dataset, info, g[threads - 1], false));
      LocalRun gi, lm;
      ZoClusteringDistributions local;
      ASSERT_TRUE(local.HotSpotAnalyst(layer.dataset, gi.dataset, info, false)) << local.GetStrErrorMes().Str();
      ASSERT_TRUE(local.ClusterOutlier(layer.dataset, lm.dataset, info, false)) << local.GetStrErrorMes().Str();
      hot[threads - 1] = Everything(gi.dataset);
      lisa[threads - 1] = Everything(lm.dataset);
    }
    omp_set_num_threads(omp_get_num_procs());
    for (const Exponent* e : {moran, g}) {
      EXPECT_EQ(e[0].Index, e[1].Index) << c.name;
      EXPECT_EQ(e[0].Variance, e[1].Variance) << c.name;
      EXPECT_EQ(e[0].ZScore, e[1].ZScore) << c.name;
    }
    EXPECT_EQ(hot[0], hot[1]) << c.name;
    EXPECT_EQ(lisa[0], lisa[1]) << c.name;
  }
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
}

INSTANTIATE_TEST_SUITE_P(WeightsMemory, ThreadCount, ::testing::Values(std::int64_t{0}, kTiny),
                         [](const auto& info) { return info.param == 0 ? "InMemory" : "File"; });
