// Geographic distributions: mean and median centre, central feature,
// standard distance, ellipse and linear directional mean, checked against
// hand-worked examples and brute force, with their grouping, weights and
// statistics summaries.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "StatisticsAnalyst/ZoSpatialMeasure.h"
#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/StatisticsSummaries.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

using namespace ZOC;
using LUMA::LumaFieldInfo;
using LUMA::LumaVariant;

namespace {

struct Feature {
  ZoGeometry geometry;
  std::vector<LumaVariant> values;  // one per field, in field order
};

struct Layer {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory();
  ZoDatasetVector* dataset = nullptr;
  ZoDatasetVector* result = nullptr;
};

// An input layer with the fields and features, and an empty result layer.
Layer MakeLayer(int type, const std::vector<LumaFieldInfo>& fields, const std::vector<Feature>& features,
                int resultType, const ZoPrjCoordSys& cs = ZoPrjCoordSys()) {
  Layer layer;
  layer.dataset = layer.source->CreateDatasetVector("input", type, cs);
  for (const auto& f : fields) layer.dataset->CreateField(f);
  ZoRecordsetPtr writer(layer.dataset->Query(ZoQueryDef()));
  for (const auto& feature : features) {
    writer->AddNew(feature.geometry);
    for (std::size_t i = 0; i < fields.size(); ++i) writer->SetFieldValue(fields[i].GetName(), feature.values[i]);
    writer->Update();
  }
  writer.reset();
  layer.dataset->Commit();
  layer.result = layer.source->CreateDatasetVector("result", resultType, cs);
  return layer;
}

Feature Point(double x, double y, std::vector<LumaVariant> values = {}) {
  return {ZoGeometry::MakePoint({x, y}), std::move(values)};
}

Feature Line(double x0, double y0, double x1, double y1, std::vector<LumaVariant> values = {}) {
  return {ZoGeometry::MakeLine({{x0, y0}, {x1, y1}}, {2}), std::move(values)};
}

// Points with a weight field "W".
Layer WeightedPoints(const std::vector<LUMA::LumaPoint2D>& points, const std::vector<double>& weights, int resultType,
                     const ZoPrjCoordSys& cs = ZoPrjCoordSys()) {
  std::vector<Feature> features;
  for (std::size_t i = 0; i < points.size(); ++i)
    features.push_back(Point(points[i].x, points[i].y, {weights.empty() ? 1.0 : weights[i]}));
  return MakeLayer(DatasetPoint, {LumaFieldInfo("W", LUMA::FieldDouble)}, features, resultType, cs);
}

struct Row {
  ZoGeometry geometry;
  std::map<std::string, LumaVariant> fields;
  const LumaVariant& operator[](const std::string& name) const { return fields.at(name); }
};

std::vector<Row> Rows(ZoDatasetVector* dataset) {
  std::vector<Row> rows;
  ZoRecordsetPtr r(dataset->Query(ZoQueryDef()));
  for (r->MoveFirst(); !r->IsEOF(); r->MoveNext()) {
    Row row;
    r->GetGeometry(row.geometry);
    for (const auto& f : dataset->GetFieldInfos())
      if (!f.IsSystemField()) r->GetFieldValue(f.GetName(), row.fields[f.GetName().Str()]);
    rows.push_back(row);
  }
  return rows;
}

std::vector<std::string> FieldNames(ZoDatasetVector* dataset) {
  std::vector<std::string> names;
  for (const auto& f : dataset->GetFieldInfos())
    if (!f.IsSystemField()) names.push_back(f.GetName().Str());
  return names;
}

LUMA::LumaPoint2D Centroid(const ZoGeometry& g) {
  LUMA::LumaPoint2D p;
  g.GetBaryCenter(p);
  return p;
}

using Measure = unsigned char (ZoSpatialMeasure::*)(ZoDatasetVector*, ZoDatasetVector*, const ZoMeasuringInformation&,
                                                    unsigned char);
const Measure kMean = &ZoSpatialMeasure::MeasureMeanCenter, kMedian = &ZoSpatialMeasure::MeasureMedianCenter,
              kCentral = &ZoSpatialMeasure::MeasureCentralElement, kCircle = &ZoSpatialMeasure::MeasureStandardDistance,
              kEllipse = &ZoSpatialMeasure::MeasureDirectionalDistribution,
              kLines = &ZoSpatialMeasure::MeasureLinearDirectionalMean;

// The rows a measure writes into the layer's result; it must succeed.
std::vector<Row> Measured(Measure m, const Layer& layer, const ZoMeasuringInformation& info = {}) {
  ZoSpatialMeasure measure;
  EXPECT_TRUE((measure.*m)(layer.dataset, layer.result, info, false)) << measure.GetStrErrorMes().Str();
  return Rows(layer.result);
}

// The message of a measure that must fail.
LumaUnicodeString Refused(Measure m, const Layer& layer, const ZoMeasuringInformation& info = {}) {
  ZoSpatialMeasure measure;
  EXPECT_FALSE((measure.*m)(layer.dataset, layer.result, info, false));
  return measure.GetStrErrorMes();
}

ZoPrjCoordSys Wgs84() {
  ZoPrjCoordSys cs;
  EXPECT_TRUE(cs.SetFromUserInput("EPSG:4326"));
  return cs;
}

// A line of length 1 from (x, 0) along the bearing (degrees clockwise from north).
Feature Bearing(double x, double degrees) {
  const double r = degrees * 3.14159265358979323846 / 180.0;
  return Line(x, 0, x + std::sin(r), std::cos(r));
}

Row DirectionalMean(const std::vector<Feature>& lines, bool orientationOnly) {
  ZoMeasuringInformation info;
  info.OrientationOnly = orientationOnly;
  return Measured(kLines, MakeLayer(DatasetLine, {}, lines, DatasetLine), info).at(0);
}

}  // namespace

// Three points (0,0), (2,0), (0,2): centre (2/3, 2/3), standard distance
// sqrt((8/3 + 8/3) / 3) = 4/3, twice that for two standard deviations, and
// a factor of 0 for other sizes leaves no circle to make. The ellipse by
// hand: A = B = 8/3, C = -4/3, so θ = π/4; U = 4, V = 4/3, σx = sqrt(8/3),
// σy = sqrt(8/9); the angle is written as -45.
TEST(SpatialMeasureTest, CircleAndEllipseOfThreePoints) {
  const auto layer = [] { return WeightedPoints({{0, 0}, {2, 0}, {0, 2}}, {}, DatasetRegion); };
  ZoMeasuringInformation info;
  info.EllipseSize = static_cast<ZoEllipseSize>(4);
  EXPECT_TRUE(satest::HasMessageId(Refused(kCircle, layer(), info), msg::ESa015));
  for (const int size : {1, 2}) {
    info.EllipseSize = static_cast<ZoEllipseSize>(size);
    Layer circle = layer();
    const auto rows = Measured(kCircle, circle, info);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(FieldNames(circle.result),
              (std::vector<std::string>{"CircleCenterX", "CircleCenterY", "StandardDistance"}));
    EXPECT_NEAR(rows[0]["CircleCenterX"].ToDouble(), 2.0 / 3.0, 1e-12);
    EXPECT_NEAR(rows[0]["CircleCenterY"].ToDouble(), 2.0 / 3.0, 1e-12);
    EXPECT_NEAR(rows[0]["StandardDistance"].ToDouble(), size * 4.0 / 3.0, 1e-12);
    EXPECT_EQ(rows[0].geometry.GetType(), GeoRegion);
    double x0, y0, x1, y1;
    rows[0].geometry.GetBounds(x0, y0, x1, y1);
    EXPECT_NEAR(x1 - x0, 2 * size * 4.0 / 3.0, 1e-9);
  }

  Layer ellipse = layer();
  const auto rows = Measured(kEllipse, ellipse, info);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(FieldNames(ellipse.result), (std::vector<std::string>{"CircleCenterX", "CircleCenterY", "SemiMajorAxis",
                                                                  "SemiMinorAxis", "RotationAngle"}));
  EXPECT_NEAR(rows[0]["SemiMajorAxis"].ToDouble(), 2 * std::sqrt(8.0 / 3.0), 1e-12);
  EXPECT_NEAR(rows[0]["SemiMinorAxis"].ToDouble(), 2 * std::sqrt(8.0 / 9.0), 1e-12);
  EXPECT_NEAR(rows[0]["RotationAngle"].ToDouble(), -45.0, 1e-12);
  // The long axis runs from upper left to lower right.
  double far = 0.0;
  LUMA::LumaPoint2D tip;
  for (const auto& p : rows[0].geometry.GetPoints()) {
    const double d = std::hypot(p.x - 2.0 / 3.0, p.y - 2.0 / 3.0);
    if (d > far) far = d, tip = p;
  }
  EXPECT_NEAR(far, 2 * std::sqrt(8.0 / 3.0), 1e-9);
  EXPECT_NEAR(std::fabs(tip.x - 2.0 / 3.0), std::fabs(tip.y - 2.0 / 3.0), 1e-9);
  EXPECT_LT((tip.x - 2.0 / 3.0) * (tip.y - 2.0 / 3.0), 0.0);
}

// Features of weight 0 stay in the count (three features pass the minimum)
// but add nothing to the sums; all weights 0 leave no mean centre. A case
// group of two features ends the standard distance, however large the others.
TEST(SpatialMeasureTest, ZeroWeightsAndSmallGroups) {
  ZoMeasuringInformation info;
  info.WeightField = "W";
  info.StatisticsFields = {"W"};
  info.StatisticsTypes = {StatisticsMean};
  const Row row = Measured(kCircle, WeightedPoints({{0, 0}, {2, 0}, {100, 100}}, {1, 1, 0}, DatasetRegion), info).at(0);
  EXPECT_NEAR(row["CircleCenterX"].ToDouble(), 1.0, 1e-12);
  EXPECT_NEAR(row["StandardDistance"].ToDouble(), 1.0, 1e-12);
  EXPECT_NEAR(row["W_Mean"].ToDouble(), 2.0 / 3.0, 1e-12);  // the zero counts in the mean
  EXPECT_EQ(Refused(kMean, WeightedPoints({{0, 0}, {2, 0}, {1, 1}}, {0, -1, 0}, DatasetPoint), info),
            ZoStringEx::LoadResString(msg::ESa0010));

  ZoMeasuringInformation grouped;
  grouped.CaseField = "G";
  Layer groups = MakeLayer(DatasetPoint, {LumaFieldInfo("G", LUMA::FieldInt32)},
                           {Point(0, 0, {1}), Point(1, 0, {1}), Point(0, 1, {1}), Point(5, 5, {2}), Point(6, 5, {2})},
                           DatasetRegion);
  EXPECT_EQ(Refused(kCircle, groups, grouped), ZoStringEx::LoadResString(msg::ESa012));
}

// The angle rules (the angles of spread data are compared with the
// covariance's eigenvectors in tests/crosscheck/crosscheck.R): along y = x,
// θ = -π/4 and the angle 45 with no spread across; C = 0 with the larger y spread gives
// -90, and the region still has its long side along y.
TEST(SpatialMeasureTest, EllipseAngles) {
  using detail::centrography::GetDirection;
  ZoStatisticsUtilities u;
  LUMA::LumaPoint2D c;
  double ax, ay, angle;
  const LumaArray<double> ones(4, 1.0);
  ASSERT_TRUE(GetDirection({{0, 0}, {1, 1}, {2, 2}, {3, 3}}, ones, 3.0, c, ax, ay, angle));
  EXPECT_NEAR(angle, 45.0, 1e-9);
  EXPECT_NEAR(ay, 0.0, 1e-7);
  EXPECT_NEAR(ax, 3 * std::sqrt(2.0 * 10.0 / 4.0), 1e-9);  // U = Σ(√2·k)² over k = ±0.5, ±1.5

  const Row row = Measured(kEllipse, WeightedPoints({{-1, 0}, {1, 0}, {0, -3}, {0, 3}}, {}, DatasetRegion)).at(0);
  EXPECT_DOUBLE_EQ(row["RotationAngle"].ToDouble(), -90.0);
  EXPECT_NEAR(row["SemiMajorAxis"].ToDouble(), 1.0, 1e-12);  // the rotated x spread, the shorter one
  EXPECT_NEAR(row["SemiMinorAxis"].ToDouble(), 3.0, 1e-12);
  double x0, y0, x1, y1;
  row.geometry.GetBounds(x0, y0, x1, y1);
  EXPECT_NEAR(x1 - x0, 2.0, 1e-9);
  EXPECT_NEAR(y1 - y0, 6.0, 1e-9);
}

// Every statistics type with its suffix and result type, over two groups:
// Mean divides by all features (nulls too), Median of an even count, Last
// keeps a null, First/Last keep the input's type, a group of one is raw.
TEST(SpatialMeasureTest, StatisticsSummariesPerGroup) {
  const std::vector<LumaFieldInfo> fields = {LumaFieldInfo("G", LUMA::FieldText), LumaFieldInfo("I", LUMA::FieldInt32),
                                             LumaFieldInfo("T", LUMA::FieldText)};
  const LumaVariant null;
  Layer layer = MakeLayer(DatasetPoint, fields,
                          {Point(0, 0, {"b", 4, "x"}), Point(1, 0, {"c", 7, "p"}), Point(2, 0, {"b", null, "y"}),
                           Point(3, 0, {"B", 1, "z"}), Point(4, 0, {"b", 10, null})},
                          DatasetPoint);
  ZoMeasuringInformation info;
  info.CaseField = "G";
  for (const int type : {1, 2, 3, 4, 5, 6, 7}) {
    info.StatisticsFields.push_back("I");
    info.StatisticsTypes.push_back(static_cast<ZoStatisticsType>(type));
  }
  info.StatisticsFields.insert(info.StatisticsFields.end(), {"T", "T"});
  info.StatisticsTypes.insert(info.StatisticsTypes.end(), {StatisticsFirst, StatisticsLast});
  const auto rows = Measured(kMean, layer, info);
  EXPECT_EQ(FieldNames(layer.result), (std::vector<std::string>{"G_Group", "I_MAX", "I_MIN", "I_Sum", "I_Mean",
                                                                "I_First", "I_Last", "I_Median", "T_First", "T_Last"}));
  std::map<std::string, int> types;
  for (const auto& f : layer.result->GetFieldInfos()) types[f.GetName().Str()] = f.GetType();
  EXPECT_EQ(types["I_Mean"], LUMA::FieldDouble);
  EXPECT_EQ(types["I_First"], LUMA::FieldInt32);
  EXPECT_EQ(types["T_Last"], LUMA::FieldText);

  // Ordered "B", "b", "b", "b", "c": neighbours compared without regard to case.
  ASSERT_EQ(rows.size(), 2u);
  const Row& c = rows[1];
  EXPECT_EQ(c["G_Group"].ToString().Str(), "c");
  EXPECT_DOUBLE_EQ(c["I_Mean"].ToDouble(), 7.0);  // unfinished: the raw value
  EXPECT_TRUE(c["I_Median"].IsNull());
  const Row& b = rows[0];
  EXPECT_EQ(b["G_Group"].ToString().Str(), "B");
  const std::map<std::string, double> summaries = {
      {"I_MAX", 10},  {"I_MIN", 1},    {"I_Sum", 15}, {"I_Mean", 3.75},
      {"I_First", 1}, {"I_Median", 4}, {"I_Last", 10}};  // median of 4, 1, 10
  for (const auto& [field, value] : summaries) EXPECT_DOUBLE_EQ(b[field].ToDouble(), value) << field;
  EXPECT_EQ(b["T_First"].ToString().Str(), "z");
  EXPECT_TRUE(b["T_Last"].IsNull());
  EXPECT_NEAR(Centroid(b.geometry).x, 9.0 / 4.0, 1e-12);

  LumaVariant median;
  detail::centrography::StatisticsSummaries::GetMedian(
      {LumaVariant(4), LumaVariant(9.0), LumaVariant(1), LumaVariant(5)}, median);
  EXPECT_DOUBLE_EQ(median.ToDouble(), 4.5);
}

// The median centre of (0,0), (1,0), (10,0) starts at the mean (11/3, 0),
// steps through about 2.43, 1.62, 1.20, 1.03 and settles on (1, 0).
TEST(SpatialMeasureTest, MedianCentreIterations) {
  using detail::centrography::GetMedianCenter;
  ZoStatisticsUtilities u;
  const LumaArray<LUMA::LumaPoint2D> points{{0, 0}, {1, 0}, {10, 0}};
  const LumaArray<double> ones(3, 1.0);
  const double steps[] = {11.0 / 3.0, 2.43, 1.62, 1.20, 1.03};
  for (int limit = 1; limit <= 5; ++limit) {
    LUMA::LumaPoint2D c;
    ASSERT_TRUE(GetMedianCenter(points, ones, 1e-6, c, limit, 1e-8));
    EXPECT_NEAR(c.x, steps[limit - 1], 0.01) << limit;
  }
  const Layer layer = WeightedPoints({{0, 0}, {1, 0}, {10, 0}}, {}, DatasetPoint);
  EXPECT_NEAR(Centroid(Measured(kMedian, layer).at(0).geometry).x, 1.0, 1e-5);
}

// On scattered weighted points the median centre has a smaller weighted sum
// of distances than any point around it; two points keep their midpoint.
TEST(SpatialMeasureTest, MedianCentreMinimisesDistances) {
  const auto points = satest::RandomPoints(40, 100.0, 7);
  std::vector<double> weights;
  for (std::size_t i = 0; i < points.size(); ++i) weights.push_back(1.0 + static_cast<double>(i % 5));
  ZoMeasuringInformation info;
  info.WeightField = "W";
  info.Tolerance = 1e-12;
  const LUMA::LumaPoint2D m =
      Centroid(Measured(kMedian, WeightedPoints(points, weights, DatasetPoint), info).at(0).geometry);
  const auto cost = [&](double x, double y) {
    double s = 0.0;
    for (std::size_t i = 0; i < points.size(); ++i) s += weights[i] * std::hypot(points[i].x - x, points[i].y - y);
    return s;
  };
  for (const double step : {1.0, 0.1, 0.01})
    for (int k = 0; k < 8; ++k) {
      const double a = k * 3.14159265358979 / 4;
      EXPECT_LE(cost(m.x, m.y), cost(m.x + step * std::cos(a), m.y + step * std::sin(a)));
    }
  const LUMA::LumaPoint2D mid =
      Centroid(Measured(kMedian, WeightedPoints({{0, 0}, {4, 2}}, {}, DatasetPoint)).at(0).geometry);
  EXPECT_DOUBLE_EQ(mid.x, 2.0);
  EXPECT_DOUBLE_EQ(mid.y, 1.0);
}

// The central feature against a brute force over all pairs, with weights and
// self weights, under both distance methods; ties are all written.
TEST(SpatialMeasureTest, CentralFeatureAgainstBruteForce) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> u(0.0, 50.0), w(0.0, 3.0);
  std::vector<Feature> features;
  std::vector<double> x, y, wt, sw;
  for (int i = 0; i < 80; ++i) {
    x.push_back(u(rng)), y.push_back(u(rng)), wt.push_back(i % 7 == 0 ? 0.0 : w(rng)), sw.push_back(w(rng) * 20);
    features.push_back(Point(x.back(), y.back(), {wt.back(), sw.back()}));
  }
  for (const ZoDistanceMethod method : {Euclidean, Manhattan}) {
    ZoMeasuringInformation info;
    info.WeightField = "W";
    info.SelfWeightField = "S";
    info.DistanceMethod = method;
    const auto rows =
        Measured(kCentral,
                 MakeLayer(DatasetPoint, {LumaFieldInfo("W", LUMA::FieldDouble), LumaFieldInfo("S", LUMA::FieldDouble)},
                           features, DatasetPoint),
                 info);
    std::size_t best = 0;
    double bestCost = 1e300;
    for (std::size_t i = 0; i < x.size(); ++i) {
      double c = sw[i] * wt[i];
      for (std::size_t j = 0; j < x.size(); ++j)
        if (j != i)
          c += wt[j] * (method == Euclidean ? std::hypot(x[i] - x[j], y[i] - y[j])
                                            : std::fabs(x[i] - x[j]) + std::fabs(y[i] - y[j]));
      if (c < bestCost) bestCost = c, best = i;
    }
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(Centroid(rows[0].geometry), (LUMA::LumaPoint2D{x[best], y[best]})) << method;
  }
  EXPECT_EQ(Measured(kCentral, WeightedPoints({{0, 0}, {3, 1}}, {}, DatasetPoint)).size(), 2u);
  EXPECT_TRUE(satest::HasMessageId(Refused(kCentral, WeightedPoints({{0, 0}, {1, 0}, {3, 0}}, {}, DatasetRegion)),
                                   msg::EEe017));
}

// Lines by hand: two lines at 45° give bearing 45, variance 0, centre
// (3, 0.5) and a mean line from (2.5, 0) to (3.5, 1); opposite lines cancel
// unless taken as orientations (then bearing 90, directional mean 0).
TEST(SpatialMeasureTest, LinearDirectionalMean) {
  struct Case {
    std::vector<Feature> lines;
    bool orientation;
    double compass, directional, variance;
  };
  const Case cases[] = {
      {{Line(0, 0, 1, 1), Line(5, 0, 6, 1)}, false, 45.0, 45.0, 0.0},
      {{Line(0, 0, 1, 0), Line(0, 1, -1, 1)}, false, NAN, NAN, 1.0},
      {{Line(0, 0, 1, 0), Line(0, 1, -1, 1)}, true, 90.0, 0.0, 0.0},
      {{Line(0, 0, 0, 2), Line(3, 0, 3, 1)}, false, 180.0, 270.0, 0.0},  // due north: the zero-component rule
  };
  for (const Case& c : cases) {
    const Row row = DirectionalMean(c.lines, c.orientation);
    if (!std::isnan(c.compass)) {
      EXPECT_NEAR(row["CompassAngle"].ToDouble(), c.compass, 1e-9);
      EXPECT_NEAR(std::fmod(row["DirectionalMean"].ToDouble() + 1e-9, 360.0), c.directional, 1e-8);
    }
    EXPECT_NEAR(row["CircleVariance"].ToDouble(), c.variance, 1e-12);
  }
  Layer layer = MakeLayer(DatasetLine, {}, cases[0].lines, DatasetLine);
  const Row row = Measured(kLines, layer).at(0);
  EXPECT_EQ(FieldNames(layer.result), (std::vector<std::string>{"AverageX", "AverageY", "AverageLength", "CompassAngle",
                                                                "DirectionalMean", "CircleVariance"}));
  EXPECT_NEAR(row["AverageX"].ToDouble(), 3.0, 1e-12);
  EXPECT_NEAR(row["AverageY"].ToDouble(), 0.5, 1e-12);
  EXPECT_NEAR(row["AverageLength"].ToDouble(), std::sqrt(2.0), 1e-12);
  const auto& ends = row.geometry.GetPoints();
  ASSERT_EQ(ends.size(), 2u);
  EXPECT_NEAR(std::hypot(ends[0].x - 2.5, ends[0].y), 0.0, 1e-12);
  EXPECT_NEAR(std::hypot(ends[1].x - 3.5, ends[1].y - 1.0), 0.0, 1e-12);
  EXPECT_TRUE(
      satest::HasMessageId(Refused(kLines, WeightedPoints({{0, 0}, {1, 0}, {3, 0}}, {}, DatasetLine)), msg::EEe018));
}

// Inputs with no or one record: the ungrouped mean centre still writes its
// point at (0, 0), the central feature writes nothing, the standard distance
// and the directional mean refuse; a grouped run over one record writes its
// raw values, a Median included.
TEST(SpatialMeasureTest, EmptyAndSingleRecordInputs) {
  const auto rows = Measured(kMean, WeightedPoints({}, {}, DatasetPoint));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(Centroid(rows[0].geometry), (LUMA::LumaPoint2D{0, 0}));
  EXPECT_TRUE(Measured(kCentral, WeightedPoints({}, {}, DatasetPoint)).empty());
  EXPECT_TRUE(satest::HasMessageId(Refused(kCircle, WeightedPoints({}, {}, DatasetRegion)), msg::ESa013));
  EXPECT_TRUE(satest::HasMessageId(Refused(kLines, MakeLayer(DatasetLine, {}, {}, DatasetLine)), msg::ESa067));

  ZoMeasuringInformation info;
  info.CaseField = "W";
  info.StatisticsFields = {"W", "W"};
  info.StatisticsTypes = {StatisticsMedian, StatisticsMean};
  const Row row = Measured(kMedian, WeightedPoints({{3, 4}}, {2.5}, DatasetPoint), info).at(0);
  EXPECT_EQ(Centroid(row.geometry), (LUMA::LumaPoint2D{3, 4}));
  EXPECT_DOUBLE_EQ(row["W_Group"].ToDouble(), 2.5);
  EXPECT_DOUBLE_EQ(row["W_Median"].ToDouble(), 2.5);
  EXPECT_DOUBLE_EQ(row["W_Mean"].ToDouble(), 2.5);
}

// Longitude/latitude groups against tests/crosscheck/geographic_distributions.py
// (pyproj's azimuthal equidistant projection about the points' unit-vector
// mean, numpy's sums, pyproj's inverse): twelve weighted points on both sides
// of ±180° (in degrees their mean centre would lie at longitude 0) and eight
// around the north pole. Centres come back in degrees, lengths in metres, and
// a circle across ±180° stays one ring.
TEST(SpatialMeasureTest, GeographicGroupsAreMeasuredAboutTheirOwnCentre) {
  struct Expected {
    LUMA::LumaPoint2D mean, median;
    double sd, axisX, axisY, angle;
    std::vector<LUMA::LumaPoint2D> points = {};
    std::vector<double> weights = {};
  };
  Expected antimeridian{{-179.999999735851, -16.941666969162},
                        {-179.998919440188, -16.942553464153},
                        3948.864480694,
                        5382.366270344,
                        1489.024749842,
                        87.471867006264};
  for (int i = 0; i < 12; ++i) {
    antimeridian.points.push_back({i % 2 == 0 ? 179.99 : -179.99, -17 + 0.01 * i});
    antimeridian.weights.push_back(1.0 + i % 3);
  }
  Expected pole{{127.902634217570, 89.991461614708},
                {11.793515243509, 89.981734882080},
                158005.288993637,
                161844.639845126,
                154070.293221395,
                -62.494831437478};
  for (int i = 0; i < 8; ++i) pole.points.push_back({-170.0 + 45 * i + (i == 2 ? 3 : 0), 88.5 + 0.1 * (i % 3)});
  pole.weights.assign(8, 1.0);

  const auto expectAt = [](const LUMA::LumaPoint2D& got, const LUMA::LumaPoint2D& want) {
    EXPECT_NEAR(std::remainder(got.x - want.x, 360.0), 0.0, 1e-9) << got.x;
    EXPECT_NEAR(got.y, want.y, 1e-9);
  };
  for (const Expected* group : {&antimeridian, &pole}) {
    const Expected& e = *group;
    ZoMeasuringInformation info;
    info.WeightField = "W";
    const auto run = [&](Measure m, int type) {
      return Measured(m, WeightedPoints(e.points, e.weights, type, Wgs84()), info).at(0);
    };
    expectAt(Centroid(run(kMean, DatasetPoint).geometry), e.mean);
    expectAt(Centroid(run(kMedian, DatasetPoint).geometry), e.median);
    const Row c = run(kCircle, DatasetRegion), d = run(kEllipse, DatasetRegion);
    expectAt({c["CircleCenterX"].ToDouble(), c["CircleCenterY"].ToDouble()}, e.mean);
    EXPECT_NEAR(c["StandardDistance"].ToDouble(), e.sd, 1e-6);
    EXPECT_NEAR(d["SemiMajorAxis"].ToDouble(), e.axisX, 1e-6);
    EXPECT_NEAR(d["SemiMinorAxis"].ToDouble(), e.axisY, 1e-6);
    EXPECT_NEAR(d["RotationAngle"].ToDouble(), e.angle, 1e-9);
    if (group == &pole) continue;  // its rings enclose the pole: no longitude/latitude ring can draw them
    // Across ±180° the rings keep their longitudes continuous: a span of
    // about 2 × 3949 m, not of 360°.
    for (const Row* row : {&c, &d}) {
      double x0, y0, x1, y1;
      row->geometry.GetBounds(x0, y0, x1, y1);
      EXPECT_LT(x1 - x0, 0.2);
      EXPECT_NEAR(std::remainder(Centroid(row->geometry).x - e.mean.x, 360.0), 0.0, 1e-6);
    }
  }
  // Points spread evenly round the equator have no centre to measure about.
  const Layer around = WeightedPoints({{0, 0}, {90, 0}, {180, 0}, {-90, 0}}, {}, DatasetPoint, Wgs84());
  EXPECT_TRUE(satest::HasMessageId(Refused(kMean, around), msg::ESa060));
}

// Weights are taken relative to the largest and coordinates beyond 2^200 are
// divided by a power of two: uniform weights of 1e150 or 1e200 give the
// unweighted ellipse to the last bit (they overflowed its moments and swapped
// its axes); points scaled by 1e300 give the measures of the plain points
// scaled by 1e300, and their central feature is the one brute force finds.
TEST(SpatialMeasureTest, HugeWeightsAndCoordinatesAreScaled) {
  const auto points = satest::RandomPoints(40, 100.0, 3);
  ZoMeasuringInformation weighted;
  weighted.WeightField = "W";
  std::vector<Row> ellipses;
  for (const double w : {1.0, 1e150, 1e200})
    ellipses.push_back(
        Measured(kEllipse, WeightedPoints(points, std::vector<double>(points.size(), w), DatasetRegion), weighted)
            .at(0));
  for (const Row& e : ellipses) {
    for (const char* f : {"CircleCenterX", "CircleCenterY", "SemiMajorAxis", "SemiMinorAxis", "RotationAngle"})
      EXPECT_EQ(e[f].ToDouble(), ellipses[0][f].ToDouble()) << f;
    EXPECT_EQ(e.geometry.GetPoints(), ellipses[0].geometry.GetPoints());
  }

  // The ellipse of four points scaled by 1e300 (their standard distance:
  // tests/hostile/numeric.tsv).
  const std::vector<LUMA::LumaPoint2D> four = {{1, 2}, {3, 1}, {2, 5}, {4, 3}};
  std::vector<LUMA::LumaPoint2D> vast;
  for (const auto& p : four) vast.push_back({p.x * 1e300, p.y * 1e300});
  const Row p = Measured(kEllipse, WeightedPoints(four, {}, DatasetRegion)).at(0);
  const Row s = Measured(kEllipse, WeightedPoints(vast, {}, DatasetRegion)).at(0);
  for (const char* f : {"CircleCenterX", "CircleCenterY", "SemiMajorAxis", "SemiMinorAxis"})
    EXPECT_NEAR(s[f].ToDouble() / 1e300, p[f].ToDouble(), 1e-14) << f;
  EXPECT_NEAR(s["RotationAngle"].ToDouble(), p["RotationAngle"].ToDouble(), 1e-12);
  EXPECT_TRUE(std::isfinite(Centroid(Measured(kMedian, WeightedPoints(vast, {}, DatasetPoint)).at(0).geometry).x));

  std::vector<LUMA::LumaPoint2D> far;
  for (const auto& q : points) far.push_back({q.x * 1e300, q.y * 1e300});
  std::size_t best = 0;
  double bestCost = HUGE_VAL;
  for (std::size_t i = 0; i < points.size(); ++i) {
    double cost = 0.0;
    for (const auto& q : points) cost += std::hypot(points[i].x - q.x, points[i].y - q.y);
    if (cost < bestCost) bestCost = cost, best = i;
  }
  const auto rows = Measured(kCentral, WeightedPoints(far, {}, DatasetPoint));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(Centroid(rows[0].geometry), far[best]);
}

// Orientations by hand. Lines at 359° and 1°: their doubled angles, 358° and
// 2°, average to 0°, so the mean orientation is 0 (north) and the directional
// mean 90; folding both into the western half (359° and 181°) gave 90°, east.
// The circular variance of the aligned bearings 179° and 181° is 1 − cos 1°.
// A set clear of the fold keeps the fold's result: bearings 20° (turned to
// 200°), 230°, 300° and 70° (turned to 250°) give, by numpy, 63.946751783°.
// A wider set turned by any angle turns its mean orientation by that angle
// (mod 180°), and lies within a degree of the doubled-angle mean (5.7575°).
// Without the option, lines at 10° and 350° read 0, not 360.
TEST(SpatialMeasureTest, OrientationsAverageAlongTheirMeanAxis) {
  const Row north = DirectionalMean({Bearing(0, 359), Bearing(1, 1)}, true);
  EXPECT_NEAR(north["CompassAngle"].ToDouble(), 0.0, 1e-9);
  EXPECT_NEAR(north["DirectionalMean"].ToDouble(), 90.0, 1e-9);
  EXPECT_NEAR(north["CircleVariance"].ToDouble(), 1.0 - std::cos(3.14159265358979323846 / 180.0), 1e-12);
  // The mean line runs along the axis (its ends on the unreduced, southern side).
  const auto& ends = north.geometry.GetPoints();
  EXPECT_NEAR(ends[0].x, ends[1].x, 1e-9);

  const Row clear = DirectionalMean({Bearing(0, 20), Bearing(1, 230), Bearing(2, 300), Bearing(3, 70)}, true);
  EXPECT_NEAR(clear["CompassAngle"].ToDouble(), 63.94675178320233, 1e-12);
  EXPECT_NEAR(clear["DirectionalMean"].ToDouble(), 26.05324821679767, 1e-12);
  EXPECT_NEAR(clear["CircleVariance"].ToDouble(), 0.18916206847467332, 1e-12);

  double first = 0.0;
  for (const double turn : {0.0, 45.0, 90.0, 170.0, 271.0}) {
    const Row wide = DirectionalMean(
        {Bearing(0, 350 + turn), Bearing(1, 0.0001 + turn), Bearing(2, 30 + turn), Bearing(3, 185 + turn)}, true);
    const double compass = wide["CompassAngle"].ToDouble();
    EXPECT_GE(compass, 0.0);
    EXPECT_LT(compass, 180.0);
    if (turn == 0.0) first = compass;
    EXPECT_NEAR(std::remainder(compass - first - turn, 180.0), 0.0, 1e-9) << turn;
  }
  EXPECT_NEAR(first, 5.757506116489502, 1.0);

  const Row both = DirectionalMean({Bearing(0, 10), Bearing(1, 350)}, false);
  EXPECT_GE(both["CompassAngle"].ToDouble(), 0.0);
  EXPECT_LT(both["CompassAngle"].ToDouble(), 1e-9);
  EXPECT_NEAR(both["DirectionalMean"].ToDouble(), 90.0, 1e-9);
}
