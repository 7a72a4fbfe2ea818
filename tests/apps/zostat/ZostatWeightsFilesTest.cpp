// zostat weights to-table end to end (the dumps are compared in WeightsTextTest).
#include <gtest/gtest.h>

#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "TestSupport.h"

namespace {

std::string Zostat(const std::string& args, int* status, bool mergeStderr = false) {
  std::string out;
  *status = satest::RunCommand(std::string(SA_ZOSTAT) + " " + args, &out, mergeStderr);
  return out;
}

// Queen contiguity of columbus, row-standardized, in both forms.
void BuildColumbus(const std::string& binary, const std::string& text) {
  LUMA::LumaUnicodeString error;
  auto source = ZOC::ZoDataSource::Open(satest::DataPath("columbus.gpkg"), false, &error);
  ASSERT_TRUE(source);
  ZOC::ZoPatternsInformation info;
  info.Conceptualization = ZOC::ContiguityEdgesCorners;
  info.Standardization = true;
  ZOC::ZoWeightsUtilities u;
  ASSERT_TRUE(u.BuildWeightMatrixBinary(source->GetDataset(0), "POLYID", binary, info, 0)) << u.GetStrErrorMes().Str();
  ASSERT_TRUE(u.BuildWeightMatrixText(source->GetDataset(0), "POLYID", text, info, 0)) << u.GetStrErrorMes().Str();
}

}  // namespace

TEST(ZostatWeightsFiles, ToTableCreatesATabularLayer) {
  satest::TempDir dir;
  const std::string bin = dir.File("queen.swmb"), text = dir.File("queen_text.swmb"), out = dir.File("out.gpkg");
  BuildColumbus(bin, text);
  int status = -1;
  std::string o = Zostat("weights to-table --quiet --weights " + bin + " --output " + out, &status, true);
  ASSERT_EQ(status, 0) << o;
  // The layer takes the weights file's base name; --overwrite replaces it
  // rather than appending to it.
  o = Zostat("weights to-table --json --overwrite --weights " + bin + " --output " + out, &status);
  ASSERT_EQ(status, 0) << o;
  EXPECT_NE(o.find("\"layer\": \"queen\""), std::string::npos) << o;
  EXPECT_NE(o.find("\"rows\": 236"), std::string::npos) << o;
  o = Zostat("weights to-table --quiet --text --weights " + text + " --output " + out + " --output-layer t", &status,
             true);
  ASSERT_EQ(status, 0) << o;

  auto source = ZOC::ZoDataSource::Open(out, false);
  ASSERT_TRUE(source);
  for (const char* name : {"queen", "t"}) {
    ZOC::ZoDatasetVector* table = source->GetDataset(name);
    ASSERT_TRUE(table) << name;
    EXPECT_EQ(table->GetType(), ZOC::DatasetTabular);
    EXPECT_EQ(table->GetRecordCount(), 236);
    LUMA::LumaFieldInfo field;
    EXPECT_TRUE(table->GetFieldInfo("UniqueID", field));
    EXPECT_TRUE(table->GetFieldInfo("NeighborsID", field));
    EXPECT_TRUE(table->GetFieldInfo("Weight", field));
  }
}
