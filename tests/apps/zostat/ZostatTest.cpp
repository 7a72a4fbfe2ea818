// zostat end to end: the conventions every command follows, the JSON shapes
// of ols and gwr, and weights to-table (the dumps are compared in WeightsTextTest).
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "TestSupport.h"

namespace {

std::string Zostat(const std::string& args, int* status, bool mergeStderr = false) {
  std::string out;
  *status = satest::RunCommand(std::string(SA_ZOSTAT) + " " + args, &out, mergeStderr);
  return out;
}

// The keys of a JSON text, in order (string values never look like keys here).
std::string Keys(const std::string& json) {
  static const std::regex key("\"([a-z_0-9]+)\": ");
  std::string keys;
  for (auto it = std::sregex_iterator(json.begin(), json.end(), key); it != std::sregex_iterator(); ++it)
    keys += (*it)[1].str() + " ";
  return keys;
}

}  // namespace

TEST(Zostat, InfoJsonDescribesRegionsAndGeographicPoints) {
  int status = -1;
  std::string out = Zostat("info --json --input " + satest::DataPath("columbus.gpkg"), &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_EQ(out.rfind("{\"dataset_type\": 5, \"record_count\": 49, \"geographic\": false, ", 0), 0u) << out;
  EXPECT_NE(out.find("\"fields\": [{\"name\": \"QlID\", \"type\": 4, \"system\": true}"), std::string::npos) << out;
  EXPECT_NE(out.find("{\"name\": \"CRIME\", \"type\": 7, \"system\": false}"), std::string::npos) << out;
  EXPECT_NE(out.find("{\"name\": \"POLYID\", \"type\": 16, \"system\": false}"), std::string::npos) << out;
  out = Zostat("info --input " + satest::DataPath("cycle_hire.gpkg") + " --layer cycle_hire --json", &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_NE(out.find("\"dataset_type\": 1, \"record_count\": 742, \"geographic\": true"), std::string::npos) << out;
  EXPECT_NE(out.find("WGS 84"), std::string::npos) << out;
}

TEST(Zostat, WeightsShowListsNeighboursByQlID) {
  int status = -1;
  const std::string out = Zostat("weights show --json --input " + satest::DataPath("columbus.gpkg") +
                                     " --field CRIME --conceptualization contiguity-edges-corners --row-standardize",
                                 &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_EQ(out.rfind("{\"features\": 49, \"units\": 236, \"rows\": [{\"id\": 1, \"neighbors\": [2, 3], "
                      "\"weights\": [0.5, 0.5]}",
                      0),
            0u)
      << out.substr(0, 200);
  const std::string text =
      Zostat("weights show --input " + satest::DataPath("baltim.gpkg") + " --field PRICE --conceptualization 7 --k 3",
             &status);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 211 * 3);
}

TEST(Zostat, OlsAndGwrPrintTheirJsonShapesAndWriteTheirLayers) {
  satest::TempDir dir;
  const std::string input = " --input " + satest::DataPath("columbus.gpkg") +
                            " --dependent CRIME --explanatory INC,HOVAL --json --output " + dir.File("r.gpkg");
  int status = -1;
  std::string out =
      Zostat("ols" + input + " --conceptualization contiguity-edges-corners --row-standardize", &status, true);
  ASSERT_EQ(status, 0) << out;
  const std::string coefficient = "name estimate std_error t p robust_std_error vif ";
  EXPECT_EQ(Keys(out), "coefficients " + coefficient + coefficient + coefficient +
                           "r2 adjusted_r2 aicc f wald koenker_bp jarque_bera condition_index residual_moran "
                           "index expected_index variance z_score p_value ");
  EXPECT_NE(out.find("\"name\": \"Intercept\", \"estimate\": 68.6189"), std::string::npos) << out;
  EXPECT_NE(out.find("\"vif\": null"), std::string::npos) << out;

  out = Zostat("gwr" + input + " --bandwidth 20", &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_EQ(Keys(out), "bandwidth aicc effective_parameters rss sigma r2 ");
  out = Zostat("info --json --input " + dir.File("r.gpkg") + " --layer columbus_gwr", &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_NE(out.find("\"record_count\": 49"), std::string::npos) << out;
  for (const char* field : {"Coef_Intercept", "Coef_INC", "SE_HOVAL", "LocalR2", "StdResid", "CondNumber"})
    EXPECT_NE(out.find(std::string("\"name\": \"") + field + "\""), std::string::npos) << field;
}

TEST(Zostat, ToTableCreatesATabularLayer) {
  satest::TempDir dir;
  const std::string bin = dir.File("queen.swmb"), text = dir.File("queen_text.swmb"), out = dir.File("out.gpkg");
  int status = -1;
  const std::string build = "weights build --quiet --input " + satest::DataPath("columbus.gpkg") +
                            " --id-field POLYID --conceptualization contiguity-edges-corners --row-standardize";
  std::string o =
      Zostat(build + " --output " + bin + " && " + SA_ZOSTAT + " " + build + " --text --output " + text, &status, true);
  ASSERT_EQ(status, 0) << o;
  o = Zostat("weights to-table --quiet --weights " + bin + " --output " + out, &status, true);
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
    for (const char* column : {"UniqueID", "NeighborsID", "Weight"}) EXPECT_TRUE(table->GetFieldInfo(column, field));
  }
}
