// zostat end to end: the conventions every command follows.
#include <gtest/gtest.h>

#include <algorithm>

#include "TestSupport.h"

namespace {

std::string Zostat(const std::string& args, int* status, bool mergeStderr = false) {
  std::string out;
  *status = satest::RunCommand(std::string(SA_ZOSTAT) + " " + args, &out, mergeStderr);
  return out;
}

}  // namespace

TEST(Zostat, InfoJsonDescribesARegionLayer) {
  int status = -1;
  const std::string out = Zostat("info --json --input " + satest::DataPath("columbus.gpkg"), &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_EQ(out.rfind("{\"dataset_type\": 5, \"record_count\": 49, \"geographic\": false, ", 0), 0u) << out;
  EXPECT_NE(out.find("\"fields\": [{\"name\": \"QlID\", \"type\": 4, \"system\": true}"), std::string::npos) << out;
  EXPECT_NE(out.find("{\"name\": \"CRIME\", \"type\": 7, \"system\": false}"), std::string::npos) << out;
  EXPECT_NE(out.find("{\"name\": \"POLYID\", \"type\": 16, \"system\": false}"), std::string::npos) << out;
}

TEST(Zostat, InfoOnGeographicPointsAndNamedLayer) {
  int status = -1;
  const std::string out =
      Zostat("info --input " + satest::DataPath("cycle_hire.gpkg") + " --layer cycle_hire --json", &status);
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
