// The geographical detector through its public member: a hand-worked
// example of seven values and two factors (one text, one integer), the
// strata written back onto the features, and the inputs it must refuse
// without writing anything. The four detectors on real data are checked
// against base R in tests/crosscheck/geodetector.R.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"
#include "host/ZoQueryDef.h"

using namespace ZOC;

namespace {

// Y = 2 4 6 3 5 9 7, X1 = a a a b b b b (text), X2 = 1 2 1 2 1 2 1 (integer).
satest::MemoryLayer SevenValues(const std::vector<double>& y = {2, 4, 6, 3, 5, 9, 7}) {
  auto layer = satest::MakePointLayer(satest::RandomPoints(7, 10.0, 3), y);
  satest::AddField(layer.dataset, "X2", LUMA::FieldInt32, {1, 2, 1, 2, 1, 2, 1});
  layer.dataset->CreateField(LUMA::LumaFieldInfo("X1", LUMA::FieldText));
  ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
  int k = 0;
  for (records->MoveFirst(); !records->IsEOF(); records->MoveNext(), ++k) {
    records->Edit();
    records->SetFieldValue("X1", LUMA::LumaVariant(k < 3 ? "a" : "b"));
    records->Update();
  }
  return layer;
}

ZoGeoDetectorInformation Info(std::vector<LUMA::LumaUnicodeString> factors = {"X1", "X2"}) {
  ZoGeoDetectorInformation info;
  info.DependentField = "VALUE";
  info.FactorFields = std::move(factors);
  return info;
}

}  // namespace

TEST(GeoDetector, HandWorkedSevenValues) {
  auto layer = SevenValues();
  satest::MemoryResult strata;
  ZoAnalyzingPatterns patterns;
  ZoGeoDetectorResult r;
  ASSERT_TRUE(patterns.GeographicalDetector(layer.dataset, Info(), r, false, strata.dataset))
      << patterns.GetStrErrorMes().Str();
  // Mean 36/7, SST = 244/7. X1: a = {2, 4, 6} (mean 4), b = {3, 5, 9, 7}
  // (mean 6), SSW = 8 + 20 = 28, q = 1 − 28/(244/7) = 12/61.
  // X2: 1 = {2, 6, 5, 7} (mean 5), 2 = {4, 3, 9} (mean 16/3), SSW = 104/3, q = 1/183.
  ASSERT_EQ(r.Factors.size(), 2u);
  const ZoDetectorFactor& x1 = r.Factors[0];
  EXPECT_EQ(r.Count, 7);
  EXPECT_NEAR(r.Variance, 244.0 / 49.0, 1e-14);
  EXPECT_NEAR(x1.Q, 12.0 / 61.0, 1e-15);
  EXPECT_NEAR(r.Factors[1].Q, 1.0 / 183.0, 1e-15);
  // F = (N − L)/(L − 1) · q/(1 − q) = 5 · 12/49; λ = (4² + 6² − (√3·4 + √4·6)²/7) / (244/49).
  EXPECT_NEAR(x1.F, 60.0 / 49.0, 1e-14);
  EXPECT_NEAR(x1.NonCentrality, (52.0 - std::pow(4.0 * std::sqrt(3.0) + 12.0, 2) / 7.0) * 49.0 / 244.0, 1e-13);
  ASSERT_EQ(x1.Strata.size(), 2u);
  EXPECT_EQ(x1.Strata[0].Label.Str(), "a");
  EXPECT_EQ(x1.Strata[1].Count, 4);
  EXPECT_DOUBLE_EQ(x1.Strata[1].Mean, 6.0);
  EXPECT_DOUBLE_EQ(x1.Strata[1].Variance, 5.0);
  // Welch: sample variances 4 and 20/3, se² = 4/3 + 5/3 = 3, t = −2/√3,
  // df = 9 / ((4/3)²/2 + (5/3)²/3).
  ASSERT_EQ(x1.Risk.size(), 1u);
  EXPECT_TRUE(x1.Risk[0].Tested);
  EXPECT_NEAR(x1.Risk[0].T, -2.0 / std::sqrt(3.0), 1e-14);
  EXPECT_NEAR(x1.Risk[0].DegreesOfFreedom, 9.0 / (16.0 / 18.0 + 25.0 / 27.0), 1e-12);
  EXPECT_FALSE(x1.Risk[0].Significant);
  // Both factors together form four strata with X1's means: q12 = q1 = max.
  ASSERT_EQ(r.Interactions.size(), 1u);
  EXPECT_EQ(r.Interactions[0].Strata, 4);
  EXPECT_NEAR(r.Interactions[0].Q, 12.0 / 61.0, 1e-15);
  EXPECT_EQ(r.Interactions[0].Kind, InteractionUniWeaken);
  // Ecological: SSW1/SSW2 = 28/(104/3) = 21/26, then the reverse.
  ASSERT_EQ(r.Ecological.size(), 2u);
  EXPECT_NEAR(r.Ecological[0].F, 21.0 / 26.0, 1e-14);
  EXPECT_NEAR(r.Ecological[1].F, 26.0 / 21.0, 1e-14);
  // Every feature written with its strata and their means.
  EXPECT_EQ(satest::Texts(strata.dataset, "X1_Stratum"), (std::vector<std::string>{"a", "a", "a", "b", "b", "b", "b"}));
  EXPECT_EQ(satest::Column(strata.dataset, "X2_Mean"), (std::vector<double>{5, 16.0 / 3, 5, 16.0 / 3, 5, 16.0 / 3, 5}));
}

TEST(GeoDetector, ConstantStratumAndSingletonStratumAreNotFailures) {
  // X1's stratum a holds 2, 2, 2 (variance 0); a one-feature stratum is
  // reported but not tested.
  auto layer = SevenValues({2, 2, 2, 3, 5, 9, 7});
  ZoAnalyzingPatterns patterns;
  ZoGeoDetectorResult r;
  ASSERT_TRUE(patterns.GeographicalDetector(layer.dataset, Info({"X1"}), r, false)) << patterns.GetStrErrorMes().Str();
  EXPECT_EQ(r.Factors[0].Strata[0].Variance, 0.0);
  EXPECT_TRUE(r.Factors[0].Risk[0].Tested);

  auto single = SevenValues();
  satest::AddField(single.dataset, "X3", LUMA::FieldInt32, {1, 1, 1, 1, 1, 1, 2});
  ASSERT_TRUE(patterns.GeographicalDetector(single.dataset, Info({"X3"}), r, false));
  EXPECT_FALSE(r.Factors[0].Risk[0].Tested);
  EXPECT_TRUE(std::isnan(r.Factors[0].Risk[0].T));
}

TEST(GeoDetector, BadInputsFailWithTheirIdentifierAndWriteNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    const char* id;
    std::vector<double> y;
    std::vector<LUMA::LumaUnicodeString> factors;
    int classes = 5;
  };
  const std::vector<Case> cases = {
      {msg::ESa006, {}, {"X2"}},                       // dependent is text (below)
      {msg::ESa097, {}, {"X1", "VALUE"}},              // a factor is the dependent field
      {msg::ESa097, {}, {"X1", "x1"}},                 // named twice
      {msg::ESa102, {}, {"ONE"}},                      // a single stratum
      {msg::ESa105, {}, {"ID"}},                       // as many strata as features
      {msg::ESa104, {3, 3, 3, 3, 3, 3, 3}, {"X1"}},    // no variance
      {msg::EUc001, {2, 4, 6, 3, nan, 9, 7}, {"X1"}},  // NaN
      {msg::ESa099, {}, {"X1"}, 31},                   // more than 30 classes
      {msg::ESa096, {}, {}},                           // no factor
  };
  for (const Case& c : cases) {
    auto layer = c.y.empty() ? SevenValues() : SevenValues(c.y);
    satest::AddField(layer.dataset, "ONE", LUMA::FieldInt32, {4, 4, 4, 4, 4, 4, 4});
    satest::AddField(layer.dataset, "ID", LUMA::FieldInt32, {1, 2, 3, 4, 5, 6, 7});
    ZoGeoDetectorInformation info = Info(c.factors);
    info.Classes = c.classes;
    if (c.id == msg::ESa006) info.DependentField = "X1";
    satest::MemoryResult strata;
    ZoAnalyzingPatterns patterns;
    ZoGeoDetectorResult r;
    EXPECT_FALSE(patterns.GeographicalDetector(layer.dataset, info, r, false, strata.dataset)) << c.id;
    EXPECT_TRUE(satest::HasMessageId(patterns.GetStrErrorMes(), c.id)) << patterns.GetStrErrorMes().Str();
    EXPECT_TRUE(satest::HasMessageId(patterns.GetStrErrorMes(), msg::ESa107));
    EXPECT_EQ(strata.dataset->GetRecordCount(), 0) << c.id;
  }
  // A NULL factor value names its feature.
  auto layer = SevenValues();
  layer.dataset->CreateField(LUMA::LumaFieldInfo("GAPS", LUMA::FieldInt32));
  ZoAnalyzingPatterns patterns;
  ZoGeoDetectorResult r;
  EXPECT_FALSE(patterns.GeographicalDetector(layer.dataset, Info({"GAPS"}), r, false));
  EXPECT_TRUE(satest::HasMessageId(patterns.GetStrErrorMes(), msg::ESa103));
}
