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
#include "StatisticsAnalyst/detail/weights/WeightRows.h"
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

// Moran's I, General G and every field of the Gi* and local Moran results.
struct Results {
  Exponent moran, g;
  std::vector<std::string> hot, lisa;
};

Results RunAll(ZoDatasetVector* dataset, const ZoPatternsInformation& info) {
  Results r;
  ZoAnalyzingPatterns patterns;
  EXPECT_TRUE(patterns.SpatialAutocorrelation(dataset, info, r.moran, false)) << patterns.GetStrErrorMes().Str();
  EXPECT_TRUE(patterns.HighOrLowCluster(dataset, info, r.g, false)) << patterns.GetStrErrorMes().Str();
  satest::MemoryResult gi, lm;
  ZoClusteringDistributions local;
  EXPECT_TRUE(local.HotSpotAnalyst(dataset, gi.dataset, info, false)) << local.GetStrErrorMes().Str();
  EXPECT_TRUE(local.ClusterOutlier(dataset, lm.dataset, info, false)) << local.GetStrErrorMes().Str();
  r.hot = Everything(gi.dataset);
  r.lisa = Everything(lm.dataset);
  return r;
}

// The same bits everywhere.
void ExpectSame(const Results& a, const Results& b, const char* name) {
  for (const auto& [x, y] : {std::pair{&a.moran, &b.moran}, {&a.g, &b.g}}) {
    EXPECT_EQ(x->Index, y->Index) << name;
    EXPECT_EQ(x->ExpectedIndex, y->ExpectedIndex) << name;
    EXPECT_EQ(x->Variance, y->Variance) << name;
    EXPECT_EQ(x->ZScore, y->ZScore) << name;
    EXPECT_EQ(x->PValue, y->PValue) << name;
  }
  ASSERT_GE(a.hot.size(), 10500u * 3);
  EXPECT_EQ(a.hot, b.hot) << name;
  EXPECT_EQ(a.lisa, b.lisa) << name;
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
      detail::weights::WeightRows memory, file;
      const detail::Status built = memory.BuildInMemory(records.get(), info, nullptr, c.standardize, transposed);
      ASSERT_TRUE(built) << c.name << built.Text().Str();
      EXPECT_TRUE(memory.InMemory());
      // Over the budget is not a failure: nothing is held and the file is built instead.
      const detail::Status tooBig =
          file.BuildInMemory(records.get(), Info(c, kTiny), nullptr, c.standardize, transposed);
      EXPECT_TRUE(tooBig) << tooBig.Text().Str();
      EXPECT_FALSE(file.InMemory());
      const detail::Status temporary = file.BuildTemporary(layer.dataset, info, nullptr);
      ASSERT_TRUE(temporary) << temporary.Text().Str();
      const detail::Status opened = file.Open(layer.dataset, file.TemporaryPath(), c.standardize, transposed);
      ASSERT_TRUE(opened) << opened.Text().Str();
      ASSERT_EQ(memory.Count(), file.Count());
      ZOC::detail::SparseRow a, b;
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

// Sums over features are reduced in a fixed block order and local statistics
// are per feature, so the weights in memory or in a temporary file, with one
// thread or two, give the same bits through every analysis.
TEST(WeightsMemory, EveryAnalysisGivesTheSameNumbersOnBothPathsAndThreadCounts) {
  satest::TempDir tmp;
  satest::ScopedEnv tmpdir("TMPDIR", tmp.path().string());
  auto layer = Layer();
  for (const Case& c : {kCases[0], kCases[2], kCases[3]}) {
    omp_set_num_threads(1);
    const Results reference = RunAll(layer.dataset, Info(c, 0));
    ExpectSame(RunAll(layer.dataset, Info(c, kTiny)), reference, c.name);
    omp_set_num_threads(2);
    ExpectSame(RunAll(layer.dataset, Info(c, 0)), reference, c.name);
    ExpectSame(RunAll(layer.dataset, Info(c, kTiny)), reference, c.name);
    omp_set_num_threads(omp_get_num_procs());
  }
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
}
