// The shared parameter and field checks: every message, and that the first
// failing check in the fixed order is the one reported.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
using LUMA::LumaFieldInfo;

namespace {

// A memory dataset of `count` features with one field of each host type.
struct Fixture {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory();
  ZoDatasetVector* dataset = nullptr;
  ZoRecordsetPtr records;

  explicit Fixture(int count) {
    dataset = source->CreateDatasetVector("features", DatasetPoint, ZoPrjCoordSys());
    for (int code : {LUMA::FieldByte, LUMA::FieldInt16, LUMA::FieldInt32, LUMA::FieldSingle, LUMA::FieldDouble,
                     LUMA::FieldInt64, LUMA::FieldBoolean, LUMA::FieldText, LUMA::FieldDate})
      EXPECT_TRUE(dataset->CreateField(LumaFieldInfo("f" + std::to_string(code), code)));
    ZoQueryDef all;
    ZoRecordsetPtr writer(dataset->Query(all));
    for (int i = 0; i < count; ++i) {
      EXPECT_TRUE(writer->AddNew(ZoGeometry::MakePoint({1.0 * i, 1.0 * (i % 2)})));
      EXPECT_TRUE(writer->SetFieldValue("f7", LUMA::LumaVariant(1.5 * i)));
      EXPECT_TRUE(writer->Update());
    }
    writer.reset();
    records.reset(dataset->Query(all));
  }
};

using satest::MessageIds;

std::vector<std::string> Check(Fixture& f, const ZoPatternsInformation& info) {
  ZoAnalyzingPatterns analysis;
  const bool ok = analysis.CheckParameterValid(f.records.get(), info);
  EXPECT_EQ(ok, analysis.GetStrErrorMes().IsEmpty());
  return MessageIds(analysis.GetStrErrorMes());
}

using V = std::vector<std::string>;

}  // namespace

// Every later fault is present from the start; fixing them one at a time
// must reveal the checks in their fixed order.
TEST(CheckParameterValid, EachCheckInItsOrderAndTheBandsLimits) {
  ZoAnalyzingPatterns analysis;
  EXPECT_FALSE(analysis.CheckParameterValid(nullptr, ZoPatternsInformation()));
  EXPECT_EQ(MessageIds(analysis.GetStrErrorMes()), V{ZOC::msg::EEg024});
  Fixture three(3);
  ZoPatternsInformation info;  // empty field name and everything else wrong too
  info.Conceptualization = SpatialWeightsFile;
  info.WeightsFilePath = "";
  info.KNeighbors = 0;
  info.DistanceTolerance = -0.5;
  info.Exponent = -2;
  EXPECT_EQ(Check(three, info), V{ZOC::msg::ESa014});

  Fixture f(6);
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa005});
  info.FieldName = "missing";
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ECd001});
  info.FieldName = "f10";  // text
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa006});
  info.FieldName = "f7";
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa076});
  info.WeightsFilePath = "/nonexistent/weights.swmb";
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa077});
  info.Conceptualization = ContiguityEdgesOnly;  // on a point dataset
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa025});
  info.Conceptualization = ContiguityEdgesCorners;
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa025});
  info.Conceptualization = InverseDistance;
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa050});
  info.KNeighbors = 6;  // equal to the record count, even without K nearest
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa042});
  info.KNeighbors = 5;
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa061});
  info.DistanceTolerance = -1;
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa062});
  info.Exponent = 0;
  EXPECT_EQ(Check(f, info), V{});

  for (double ok : {-1.0, 0.0, 1e-30, 12.5, std::numeric_limits<double>::max()}) {
    info.DistanceTolerance = ok;
    EXPECT_EQ(Check(f, info), V{}) << ok;
  }
  for (double bad : {-0.5, -1.5, -1e-30, std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity(), std::nan("")}) {
    info.DistanceTolerance = bad;
    EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa061}) << bad;
  }
  info.DistanceTolerance = -1;
  info.Exponent = std::nan("");
  EXPECT_EQ(Check(f, info), V{ZOC::msg::ESa062});
}

TEST(CheckFieldValid, NumericTypesPassOthersFail) {
  Fixture f(4);
  ZoAnalyzingPatterns analysis;
  EXPECT_TRUE(analysis.CheckFieldValid(f.dataset, ""));
  for (int code : {2, 3, 4, 6, 7, 16})
    EXPECT_TRUE(analysis.CheckFieldValid(f.dataset, "f" + std::to_string(code))) << code;
  EXPECT_TRUE(analysis.CheckFieldValid(f.dataset, "QlID"));  // the system identifier is a 32-bit integer
  EXPECT_TRUE(analysis.GetStrErrorMes().IsEmpty());
  for (int code : {1, 10, 23}) {
    ZoAnalyzingPatterns a;
    EXPECT_FALSE(a.CheckFieldValid(f.dataset, "f" + std::to_string(code))) << code;
    EXPECT_EQ(MessageIds(a.GetStrErrorMes()), V{ZOC::msg::ESa006});
  }
}

TEST(ZoAnalyzingPatterns, CopiesCarryTheMessageButNoOpenFlagMatrix) {
  satest::TempDir dir;
  const std::string flags = dir.File("k.flags");
  std::fclose(std::fopen(flags.c_str(), "wb"));
  ZoAnalyzingPatterns original;
  EXPECT_FALSE(original.CheckParameterValid(nullptr, ZoPatternsInformation()));
  ASSERT_TRUE(original.OpenWeightsDictionary(flags));
  ZoAnalyzingPatterns copy(original), assigned;
  assigned = original;
  for (ZoAnalyzingPatterns* p : {&copy, &assigned}) {
    EXPECT_EQ(p->GetStrErrorMes(), original.GetStrErrorMes());
    LumaArray<double> row;
    EXPECT_FALSE(p->ReadWeightMatrixBinaryK(1, row));  // nothing open in the copy
  }
}

TEST(ZoAnalysisFrame, SetProgressDrivesEveryAnalysisWithoutTheFactory) {
  // The factory would hand out a progress that never cancels; the object set
  // with SetProgress cancels at once, and every analysis has to obey it.
  satest::ScopedProgressFactory neverCancels(
      [] { return std::make_unique<ZoCallbackProgress>([](const ZoProgressState&) { return true; }); });
  int calls = 0;
  ZoCallbackProgress cancel([&](const ZoProgressState&) { return ++calls < 3; });
  auto layer = satest::MakePointLayer(satest::RandomPoints(50, 10.0, 4));
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = KNearestNeighbors;
  info.KNeighbors = 3;
  ZoAnalyzingPatterns patterns;
  patterns.SetProgress(&cancel);
  ZoAnalyzingPatterns::ZoAnalyzingExponent r;
  EXPECT_FALSE(patterns.SpatialAutocorrelation(layer.dataset, info, r, true));
  EXPECT_NE(patterns.GetStrErrorMes().Str().find("[IMb030]"), std::string::npos) << patterns.GetStrErrorMes().Str();
  calls = 0;
  EXPECT_FALSE(patterns.AverageNearestNeighbor(layer.dataset, 0.0, Euclidean, r, true, 0.0, true));
  EXPECT_NE(patterns.GetStrErrorMes().Str().find("[IMb030]"), std::string::npos);
  ZoClusteringDistributions local;
  local.SetProgress(&cancel);
  calls = 0;
  auto result = ZoDataSource::CreateMemory("result");
  EXPECT_FALSE(
      local.HotSpotAnalyst(layer.dataset, result->CreateDatasetVector("r", DatasetPoint, ZoPrjCoordSys()), info, true));
  EXPECT_NE(local.GetStrErrorMes().Str().find("[IMb030]"), std::string::npos) << local.GetStrErrorMes().Str();
}
