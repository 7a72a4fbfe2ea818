// zostat ols and gwr end to end: the JSON shapes, the result layer, and a
// failure that leaves no output behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "TestSupport.h"

namespace {

std::string Zostat(const std::string& args, int* status) {
  std::string out;
  *status = satest::RunCommand(std::string(SA_ZOSTAT) + " " + args, &out, true);
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

TEST(ZostatRegression, OlsAndGwrPrintTheirJsonShapesAndWriteTheirLayers) {
  satest::TempDir dir;
  const std::string input = " --input " + satest::DataPath("columbus.gpkg") +
                            " --dependent CRIME --explanatory INC,HOVAL --json --output " + dir.File("r.gpkg");
  int status = -1;
  std::string out = Zostat("ols" + input + " --conceptualization contiguity-edges-corners --row-standardize", &status);
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

TEST(ZostatRegression, AFailedFitLeavesNoOutput) {
  satest::TempDir dir;
  int status = -1;
  const std::string out =
      Zostat("gwr --quiet --input " + satest::DataPath("columbus.gpkg") +
                 " --dependent CRIME --explanatory INC,HOVAL --bandwidth 3 --output " + dir.File("r.gpkg"),
             &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(out.find("[EUf009]"), std::string::npos) << out;
  EXPECT_FALSE(std::filesystem::exists(dir.File("r.gpkg")));
}

}  // namespace
