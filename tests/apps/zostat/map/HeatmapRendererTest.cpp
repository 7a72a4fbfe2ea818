// The heat map as drawn into SVG: cells, numbers and their ink, the ramp's
// orientation, names that do not fit a column, and the failures that must
// leave nothing behind.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include "HeatmapRenderer.h"
#include "TestSupport.h"

namespace {

using zostat::map::HeatmapRequest;
using zostat::map::RenderHeatmap;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

HeatmapRequest ThreeFactors(const std::string& output) {
  HeatmapRequest request;
  request.output = output;
  request.title = "Interaction";
  request.valueLabel = "q";
  request.labels = {"Land use", "Soil", "Slope"};
  request.values = {0.25, 0.612, -0.1, 0.612, 0.5, kNaN, -0.1, 0.455, 1.2};
  return request;
}

}  // namespace

TEST(HeatmapRenderer, DrawsEveryCellWithItsNumberAndTheNamesOnBothSides) {
  satest::TempDir dir;
  std::string error;
  ASSERT_TRUE(RenderHeatmap(ThreeFactors(dir.File("q.svg")), error)) << error;
  const std::string svg = ReadAll(dir.File("q.svg"));
  EXPECT_EQ(Count(svg, "<path "), 9u);  // only the cells are paths
  EXPECT_EQ(Count(svg, "fill=\"#d9d9d9\""), 1u);
  for (const char* name : {">Land use<", ">Soil<", ">Slope<"}) EXPECT_EQ(Count(svg, name), 2u) << name;
  EXPECT_EQ(Count(svg, ">0.612<"), 2u);
  EXPECT_EQ(Count(svg, ">0.250<") + Count(svg, ">0.500<") + Count(svg, ">0.455<"), 3u);
  EXPECT_EQ(svg.find("nan"), std::string::npos);
  // Values beyond the range take the ends of the ramp, dark purple below and
  // yellow above, with white and black numbers on them.
  EXPECT_EQ(Count(svg, "path fill-rule=\"evenodd\" fill=\"#440154\""), 2u);
  EXPECT_EQ(Count(svg, "path fill-rule=\"evenodd\" fill=\"#fde725\""), 1u);
  EXPECT_EQ(Count(svg, "fill=\"#ffffff\">-0.100<"), 2u);
  EXPECT_NE(svg.find("fill=\"#000000\">1.200<"), std::string::npos);
  EXPECT_NE(svg.find(">q</text>"), std::string::npos);
  EXPECT_NE(svg.find("<linearGradient"), std::string::npos);
}

TEST(HeatmapRenderer, FailuresNameTheirIdentifierAndLeaveNoFile) {
  satest::TempDir dir;
  std::string error;
  EXPECT_FALSE(RenderHeatmap(ThreeFactors(dir.File("q.pdf")), error));
  EXPECT_EQ(error.rfind("[EUa059]", 0), 0u) << error;

  HeatmapRequest request = ThreeFactors(dir.File("q.svg"));
  request.values.pop_back();
  EXPECT_FALSE(RenderHeatmap(request, error));
  EXPECT_EQ(error.rfind("[EUa019]", 0), 0u) << error;
  request.labels.clear();
  request.values.clear();
  EXPECT_FALSE(RenderHeatmap(request, error));
  EXPECT_EQ(error.rfind("[EUa019]", 0), 0u) << error;

  EXPECT_FALSE(RenderHeatmap(ThreeFactors(dir.File("missing/q.svg")), error));
  EXPECT_EQ(error.rfind("[EUa014]", 0), 0u) << error;
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}
