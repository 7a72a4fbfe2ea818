// Global Moran's I and General G: the indices against their definitions, the
// moments against every permutation of the values, the in-memory and streamed
// paths against each other, and the failure cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"

using namespace ZOC;
using Exponent = ZoAnalyzingPatterns::ZoAnalyzingExponent;
using Dense = std::vector<std::vector<double>>;

namespace {

// Moran's I straight from its definition over a dense matrix.
double DenseMoran(const std::vector<double>& x, const Dense& w) {
  const double n = x.size();
  double mean = 0, s0 = 0, num = 0, d2 = 0;
  for (double v : x) mean += v / n;
  for (std::size_t i = 0; i < x.size(); ++i) {
    for (std::size_t j = 0; j < x.size(); ++j) s0 += w[i][j], num += w[i][j] * (x[i] - mean) * (x[j] - mean);
    d2 += (x[i] - mean) * (x[i] - mean);
  }
  return n / s0 * num / d2;
}

// General G straight from its definition, for weights where every feature
// has a neighbour.
double DenseG(const std::vector<double>& x, const Dense& w) {
  double a = 0, d = 0;
  for (std::size_t i = 0; i < x.size(); ++i)
    for (std::size_t j = 0; j < x.size(); ++j)
      if (j != i) a += w[i][j] * x[i] * x[j], d += x[i] * x[j];
  return a / d;
}

// The exact mean and variance of a statistic under randomization: its value
// over every permutation of the values across the features (n! of them).
template <class Statistic>
std::pair<double, double> PermutationMoments(std::vector<double> x, const Dense& w, Statistic statistic) {
  std::sort(x.begin(), x.end());
  double count = 0, sum = 0, sumSq = 0;
  do {
    const double s = statistic(x, w);
    count += 1, sum += s, sumSq += s * s;
  } while (std::next_permutation(x.begin(), x.end()));
  const double mean = sum / count;
  return {mean, sumSq / count - mean * mean};
}

void ExpectClose(const Exponent& a, const Exponent& b, double tol, const std::string& what) {
  EXPECT_NEAR(a.Index, b.Index, tol * std::fabs(b.Index)) << what;
  EXPECT_NEAR(a.ExpectedIndex, b.ExpectedIndex, tol * std::fabs(b.ExpectedIndex)) << what;
  EXPECT_NEAR(a.Variance, b.Variance, tol * std::fabs(b.Variance)) << what;
  EXPECT_NEAR(a.ZScore, b.ZScore, tol * std::max(1.0, std::fabs(b.ZScore))) << what;
}

std::vector<std::string> Ids(const ZoAnalysisFrame& o) { return satest::MessageIds(o.GetStrErrorMes()); }

ZoPatternsInformation Info(ZoConceptualizationModel c, bool standardize = false) {
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = c;
  info.KNeighbors = c == KNearestNeighbors ? 5 : 1;
  info.Standardization = standardize;
  return info;
}

// Values with a spatial trend and noise, all positive.
std::vector<double> TrendValues(const std::vector<LumaPoint2D>& p) {
  std::vector<double> v;
  for (std::size_t i = 0; i < p.size(); ++i) v.push_back(5 + p[i].x * 0.3 + std::sin(7.0 * i) * 2);
  return v;
}

}  // namespace

// Under randomization E and Var are the mean and variance over all n!
// arrangements of the values: seven features make 5040 of them.
TEST(GlobalStatistics, MatchTheDenseDefinitionsEveryPermutationAndTheStreamedPath) {
  const auto points = satest::RandomPoints(150, 40.0, 31);
  const auto values = TrendValues(points);
  auto layer = satest::MakePointLayer(points, values);
  const std::vector<double> seven = {2.5, 7, 1, 4, 4, 9.5, 3};
  auto small = satest::MakePointLayer(satest::RandomPoints(7, 10.0, 5), seven);
  satest::TempDir dir;
  for (auto c : {InverseDistance, FixedDistanceBand, KNearestNeighbors, ZoneOfIndifference}) {
    for (bool standardize : {false, true}) {
      const std::string what = "c=" + std::to_string(c) + " std=" + std::to_string(standardize);
      ZoPatternsInformation info = Info(c, standardize);
      const Dense w = satest::DenseWeights(layer.dataset, info), w7 = satest::DenseWeights(small.dataset, info);
      ZoAnalyzingPatterns patterns;
      Exponent memory, streamed, g, r;
      ASSERT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, info, memory, false)) << what;
      EXPECT_NEAR(memory.Index, DenseMoran(values, w), 1e-10 * std::fabs(memory.Index)) << what;
      EXPECT_EQ(memory.PValue, ZoStatisticsUtilities::GetPvalue(memory.ZScore)) << what;  // the reported tail
      ASSERT_TRUE(patterns.SpatialAutocorrelation(small.dataset, info, r, false)) << what;
      const auto [meanI, varI] = PermutationMoments(seven, w7, DenseMoran);
      EXPECT_NEAR(r.ExpectedIndex, meanI, 1e-12) << what;
      EXPECT_NEAR(r.Variance, varI, 1e-10 * varI) << what;

      ZoWeightsUtilities builder;
      const std::string path = dir.File("w.swmb");
      ASSERT_TRUE(builder.BuildWeightMatrixBinary(layer.dataset, "QlID", path, info, false));
      ZoPatternsInformation fromFile = info;
      fromFile.Conceptualization = SpatialWeightsFile;
      fromFile.WeightsFilePath = path;
      ASSERT_TRUE(patterns.SpatialAutocorrelation(layer.dataset, fromFile, streamed, false))
          << patterns.GetStrErrorMes().Str();
      ExpectClose(streamed, memory, 1e-12, what + " streamed");
      if (standardize) continue;  // General G wants raw weights

      ASSERT_TRUE(patterns.HighOrLowCluster(layer.dataset, info, g, false)) << patterns.GetStrErrorMes().Str();
      EXPECT_NEAR(g.Index, DenseG(values, w), 1e-10 * g.Index) << what;
      EXPECT_EQ(g.PValue, ZoStatisticsUtilities::GetPvalue(g.ZScore)) << what;
      ASSERT_TRUE(patterns.HighOrLowCluster(layer.dataset, fromFile, streamed, false));
      ExpectClose(streamed, g, 1e-12, what + " G streamed");
      ASSERT_TRUE(patterns.HighOrLowCluster(small.dataset, info, r, false)) << what;
      const auto [meanG, varG] = PermutationMoments(seven, w7, DenseG);
      EXPECT_NEAR(r.ExpectedIndex, meanG, 1e-12 * meanG) << what;
      EXPECT_NEAR(r.Variance, varG, 1e-10 * varG) << what;
    }
  }
}

TEST(GlobalStatistics, HandCheckableCasesAndFailures) {
  // n = 4, the smallest count the checks let through: (n - 3) = 1.
  auto four = satest::MakePointLayer({{0, 0}, {1, 0}, {2, 0}, {3, 0}}, {1, 2, 4, 8});
  ZoPatternsInformation info = Info(FixedDistanceBand);
  info.DistanceTolerance = 1.0;
  ZoAnalyzingPatterns patterns;
  Exponent r;
  ASSERT_TRUE(patterns.SpatialAutocorrelation(four.dataset, info, r, false));
  // Path weights 0-1-2-3: mean 3.75, d = (-2.75, -1.75, 0.25, 4.25), Σd² = 28.75,
  // Σ w d d = 2 (4.8125 - 0.4375 + 1.0625) = 10.875, S0 = 6, I = 4/6 · 10.875/28.75.
  EXPECT_NEAR(r.Index, 4.0 / 6.0 * 10.875 / 28.75, 1e-14);
  EXPECT_NEAR(r.ExpectedIndex, -1.0 / 3.0, 1e-15);

  auto constant = satest::MakePointLayer({{0, 0}, {1, 0}, {2, 0}, {3, 0}}, {5, 5, 5, 5});
  EXPECT_FALSE(patterns.SpatialAutocorrelation(constant.dataset, info, r, false));
  EXPECT_EQ(Ids(patterns), (std::vector<std::string>{ZOC::msg::ESa021, ZOC::msg::ESa041}));

  info.DistanceTolerance = 2.0;
  auto negative = satest::MakePointLayer({{0, 0}, {1, 0}, {2, 0}, {50, 50}}, {1, 2, 3, -1});
  EXPECT_FALSE(patterns.HighOrLowCluster(negative.dataset, info, r, false));
  EXPECT_EQ(Ids(patterns), std::vector<std::string>{ZOC::msg::ESa022});  // the isolated feature's value counts too
  auto zeros = satest::MakePointLayer({{0, 0}, {1, 0}, {2, 0}, {3, 0}}, {0, 0, 0, 0});
  EXPECT_FALSE(patterns.HighOrLowCluster(zeros.dataset, info, r, false));
  EXPECT_EQ(Ids(patterns), (std::vector<std::string>{ZOC::msg::ESa021, ZOC::msg::ESa035}));

  // A 3 x 2 grid at unit spacing with a band of 2: 13 of the 15 pairs are
  // neighbours (all but the two long diagonals), S0 = 26. The values
  // 3 1 4 / 1 5 9 sum to 23 with squares summing to 133, so all pairs give
  // Σ x_i x_j = (23² - 133) / 2 = 198; the long diagonals 3·9 and 4·1 leave
  // 167 to the neighbours: G = 2·167 / 396, E[G] = 26 / (6·5).
  std::vector<LumaPoint2D> p = {{0, 0}, {1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}};
  std::vector<double> v = {3, 1, 4, 1, 5, 9};
  auto base = satest::MakePointLayer(p, v);
  Exponent a, b;
  ASSERT_TRUE(patterns.HighOrLowCluster(base.dataset, info, a, false));
  EXPECT_NEAR(a.Index, 334.0 / 396.0, 1e-14);
  EXPECT_NEAR(a.ExpectedIndex, 26.0 / 30.0, 1e-14);
  // An isolated feature (value 2) stays out of the numerator and of the
  // values' moments but counts in n and pairs with the others in the
  // denominator: Σ_i x_i (25 - x_i) = 25·23 - 133 = 442, E[G] = 26 / (7·6).
  p.push_back({40, 40});
  v.push_back(2);
  auto withIsolated = satest::MakePointLayer(p, v);
  ASSERT_TRUE(patterns.HighOrLowCluster(withIsolated.dataset, info, b, false));
  EXPECT_NEAR(b.Index, 334.0 / 442.0, 1e-14);
  EXPECT_NEAR(b.ExpectedIndex, 26.0 / 42.0, 1e-14);
}
