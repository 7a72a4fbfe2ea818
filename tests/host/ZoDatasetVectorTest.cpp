// Datasources, datasets and recordsets over GDAL: field type round trips,
// ordered queries against brute-force orderings, geometry conversion, the
// sample data, interleaved readers and writes during iteration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <ogrsf_frmts.h>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"
#include "host/detail/DatasetInternals.h"

using namespace ZOC;
using LUMA::LumaDateTime;
using LUMA::LumaFieldInfo;
using LUMA::LumaFieldInfos;
using LUMA::LumaPoint2D;
using LUMA::LumaVariant;

namespace {

ZoQueryDef Q(const std::string& order = "", const std::string& filter = "") { return {filter, {}, order, {}}; }

using RsPtr = std::unique_ptr<ZoRecordset>;

LumaVariant Value(ZoRecordset* rs, const char* field) {
  LumaVariant v;
  EXPECT_TRUE(rs->GetFieldValue(field, v)) << field;
  return v;
}

std::vector<std::int64_t> Ids(ZoRecordset* rs) {
  std::vector<std::int64_t> ids;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) ids.push_back(rs->GetID());
  return ids;
}

LumaDateTime Dt(int y, int mo, int d, int h, int mi, double s, int tz = 0) { return {y, mo, d, h, mi, s, tz}; }

const std::vector<std::pair<std::string, int>> kAllTypes = {
    {"f_bool", 1},   {"f_byte", 2},  {"f_int16", 3},  {"f_int32", 4},   {"f_single", 6},
    {"f_double", 7}, {"f_text", 10}, {"f_int64", 16}, {"f_binary", 18}, {"f_datetime", 22},
    {"f_date", 23},  {"f_time", 24}, {"f_other", 127}};

// Rows A, all null, and B of values in kAllTypes order: ordinary values, then extremes.
const std::vector<std::vector<LumaVariant>> kTypeRows = {
    {true, 200, -1234, 2000000000, 1.5, 3.141592653589793, "h\xC3\xA9llo w\xC3\xB6rld", std::int64_t{(1LL << 40) + 5},
     std::vector<unsigned char>{0, 1, 2, 255}, Dt(2021, 3, 4, 5, 6, 7.5, 100), Dt(2020, 2, 29, 0, 0, 0),
     Dt(0, 0, 0, 13, 14, 15.25), "(2:a,b)"},
    {},
    {false, 255, -32768, -2147483647 - 1, -0.125, -1e300, "", std::int64_t{-(1LL << 53) - 1},
     std::vector<unsigned char>{7}, Dt(1999, 12, 31, 23, 59, 59, 0) /* time zone unknown */, Dt(1900, 1, 1, 0, 0, 0),
     Dt(0, 0, 0, 0, 0, 0), "(1:z)"}};

void WriteTypeRows(ZoDatasetVector* ds) {
  for (const auto& [name, type] : kAllTypes) ASSERT_TRUE(ds->CreateField(LumaFieldInfo(name, type))) << name;
  RsPtr rs(ds->Query(Q()));
  ASSERT_TRUE(rs);
  for (std::size_t r = 0; r < 3; ++r) {
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({double(r), -double(r)})));
    for (std::size_t i = 0; i < kTypeRows[r].size(); ++i)
      EXPECT_TRUE(rs->SetFieldValue(kAllTypes[i].first, kTypeRows[r][i])) << kAllTypes[i].first;
    ASSERT_TRUE(rs->Update());
  }
}

void CheckTypeRows(ZoDatasetVector* ds) {
  const LumaFieldInfos infos = ds->GetFieldInfos();
  ASSERT_EQ(infos.size(), kAllTypes.size() + 1);
  EXPECT_TRUE(infos[0].GetName().Str() == "QlID" && infos[0].IsSystemField());
  RsPtr rs(ds->Query(Q(" Order BY QlID")));
  ASSERT_TRUE(rs);
  ASSERT_EQ(rs->GetRecordCount(), 3);
  for (std::size_t r = 0; r < 3; ++r, rs->MoveNext()) {
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g));
    EXPECT_EQ(g.GetPoints(), (LumaArray<LumaPoint2D>{{double(r), -double(r)}}));
    for (std::size_t i = 0; i < kAllTypes.size(); ++i) {
      const auto& [name, type] = kAllTypes[i];
      EXPECT_EQ(infos[i + 1].GetName().Str(), name);
      EXPECT_EQ(infos[i + 1].GetType(), type) << name;
      const LumaVariant v = Value(rs.get(), name.c_str());
      EXPECT_EQ(v, r == 1 ? LumaVariant() : kTypeRows[r][i]) << name << " row " << r << " got " << v.ToString().Str();
    }
  }
}

}  // namespace

TEST(HostDataset, GeoPackageRoundTripOfEveryFieldType) {
  satest::TempDir dir;
  const std::string path = dir.File("types.gpkg");
  ZoPrjCoordSys wgs, utm;
  ASSERT_TRUE(wgs.SetFromUserInput("EPSG:4326") && utm.SetFromUserInput("EPSG:32618"));
  {
    auto src = ZoDataSource::OpenOrCreate(path);
    ZoDatasetVector* ds = src ? src->CreateDatasetVector("t", DatasetPoint, wgs) : nullptr;
    ZoDatasetVector* empty = src ? src->CreateDatasetVector("e", DatasetPoint, ZoPrjCoordSys()) : nullptr;
    ASSERT_TRUE(ds && empty);
    WriteTypeRows(ds);
    CheckTypeRows(ds);                      // before closing, through the same objects
    EXPECT_FALSE(ds->SetPrjCoordSys(utm));  // only while a dataset is empty
    EXPECT_TRUE(empty->SetPrjCoordSys(utm));
  }
  auto src = ZoDataSource::Open(path, true);
  ZoDatasetVector* ds = src ? src->GetDataset("T") : nullptr;  // case-insensitive
  ASSERT_TRUE(ds);
  EXPECT_TRUE(ds->GetType() == DatasetPoint && ds->GetPrjCoordSys().IsSame(wgs));
  EXPECT_TRUE(src->GetDataset("e")->GetPrjCoordSys().IsSame(utm));
  CheckTypeRows(ds);
  {
    // Text read as a column: the records' values (UTF-8, "" and null told
    // apart); a field that is not text is refused.
    RsPtr all(ds->Query(Q()));
    std::vector<std::string> texts;
    std::vector<std::uint8_t> nulls;
    ASSERT_TRUE(all && all->ReadTextColumn("f_text", texts, nulls));
    EXPECT_EQ(texts, (std::vector<std::string>{"h\xC3\xA9llo w\xC3\xB6rld", "", ""}));
    EXPECT_EQ(nulls, (std::vector<std::uint8_t>{0, 1, 0}));
    EXPECT_FALSE(all->ReadTextColumn("f_int32", texts, nulls) || all->ReadTextColumn("nosuch", texts, nulls));
  }
  LumaFieldInfo info;
  EXPECT_TRUE(ds->GetFieldInfo("F_TIME", info) && info.GetName().Str() == "f_time");

  // Values are converted to the field's type, or refused and left unchanged.
  RsPtr rs(ds->Query(Q()));
  ASSERT_TRUE(rs);
  EXPECT_FALSE(rs->SetFieldValue("f_int32", LumaVariant(1)));  // nothing pending
  ASSERT_TRUE(rs->Edit());
  for (const auto& [field, bad] : std::vector<std::pair<const char*, LumaVariant>>{
           {"f_byte", 256}, {"f_int16", 40000}, {"f_int32", "seven"}, {"QlID", 5}, {"nosuch", 5}})
    EXPECT_FALSE(rs->SetFieldValue(field, bad)) << field;
  const std::vector<std::tuple<const char*, LumaVariant, LumaVariant>> converted = {
      {"f_int32", " 42 ", 42}, {"f_double", 7, 7.0}, {"f_text", 2.5, "2.5"}};
  for (const auto& [field, in, out] : converted) EXPECT_TRUE(rs->SetFieldValue(field, in)) << field;
  ASSERT_TRUE(rs->Update());
  for (const auto& [field, in, out] : converted) EXPECT_EQ(Value(rs.get(), field), out) << field;
  EXPECT_EQ(Value(rs.get(), "f_byte"), LumaVariant(200));
  ASSERT_TRUE(rs->Edit() && rs->SetFieldValue("f_int32", LumaVariant(1)));
  rs->CancelUpdate();  // drops the pending change
  EXPECT_FALSE(rs->Update());
  EXPECT_EQ(Value(rs.get(), "f_int32"), LumaVariant(42));
  for (const auto& [name, type] : {std::pair{"F_INT32", 4}, {"qlid", 4}, {"x", 99}})  // exists, reserved, no type
    EXPECT_FALSE(ds->CreateField(LumaFieldInfo(name, type))) << name;
}

// Names are made valid for the format and unique, case-insensitively; the
// format's own field definitions show them.
TEST(HostDataset, CreateValidFieldsPerFormat) {
  struct Case {
    const char* file;
    std::vector<const char*> names;
    std::vector<std::string> valid;
  };
  const std::vector<Case> cases = {
      {"out.shp",  // 10 bytes, ASCII; system fields are created as ordinary ones
       {"population_density", "population_total", "POPULATION_x", "bad name!", "QlID",
        "Gr\xC3\xB6\xC3\x9F"
        "e"},
       {"population", "populati_1", "POPULATI_2", "bad_name_", "QlID_1", "Gr__e"}},
      {"n.gpkg",  // long names and spaces are fine: only reserved columns and duplicates change
       {"a long name with spaces", "fid", "geom", "X", "x", "x_1", ""},
       {"a long name with spaces", "fid_1", "geom_1", "X", "x_1", "x_1_1", "Field"}}};
  satest::TempDir dir;
  for (const Case& c : cases) {
    auto src = ZoDataSource::OpenOrCreate(dir.File(c.file));
    ZoDatasetVector* ds = src ? src->CreateDatasetVector("out", DatasetPoint, ZoPrjCoordSys()) : nullptr;
    ASSERT_TRUE(ds) << c.file;
    LumaFieldInfos fields;
    for (const char* n : c.names) fields.push_back(LumaFieldInfo(n, 4, std::string(n) == "QlID"));
    ASSERT_TRUE(ZoEngineToolkit::CreateValidFields(ds, fields));
    OGRFeatureDefn* defn = ZOC::detail::HostAccess::Layer(*ds)->GetLayerDefn();
    ASSERT_EQ(defn->GetFieldCount(), static_cast<int>(c.valid.size()));
    for (std::size_t i = 0; i < c.valid.size(); ++i) {
      EXPECT_EQ(fields[i].GetName().Str(), c.valid[i]);
      EXPECT_EQ(defn->GetFieldDefn(static_cast<int>(i))->GetNameRef(), c.valid[i]);
    }
    RsPtr rs(ds->Query(Q()));  // writable under the new names
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({1, 2})) && rs->SetFieldValue(c.valid[1], LumaVariant(3)) &&
                rs->SetFieldValue(c.valid[4], LumaVariant(4)) && rs->Update());
    EXPECT_EQ(Value(rs.get(), c.valid[4].c_str()), LumaVariant(4));
  }
}

// Layers written with GDAL directly, one per geometry type, each holding one
// feature: the dataset type codes, and the conversion of OGR geometries; then
// datasets created, refused, replaced and deleted through the host.
TEST(HostDataset, DatasetTypeCodesAndGeometriesFromGdal) {
  struct Case {
    OGRwkbGeometryType layer;
    int datasetType;
    const char* wkt;
    int type;
    LumaArray<int> polyCounts, ringCounts;
  };
  const std::vector<Case> cases = {
      {wkbPoint25D, 1, "POINT Z (1 2 3)", GeoPoint, {1}, {}},             // Z dropped
      {wkbMultiPoint, 1, "MULTIPOINT ((5 6),(7 8))", GeoPoint, {1}, {}},  // its first point
      {wkbPoint, 1, nullptr, GeoNone, {}, {}},
      {wkbLineString, 3, "LINESTRING (0 0,1 1,2 0)", GeoLine, {3}, {}},
      {wkbMultiLineString, 3, "MULTILINESTRING ((0 0,1 0),(2 2,3 3,4 4))", GeoLine, {2, 3}, {}},
      {wkbCompoundCurve, 3, nullptr, GeoNone, {}, {}},
      {wkbPolygon, 5, "POLYGON ((0 0,4 0,4 4,0 4,0 0),(1 1,2 1,2 2,1 1))", GeoRegion, {5, 4}, {2}},
      {wkbMultiPolygon,
       5,
       "MULTIPOLYGON (((0 0,1 0,1 1,0 0)),((5 5,6 5,6 6,5 6,5 5),(5.2 5.2,5.4 5.2,5.4 5.4,5.2 5.2)))",
       GeoRegion,
       {4, 5, 4},
       {1, 2}},
      {wkbCurvePolygon, 5, "CURVEPOLYGON (CIRCULARSTRING (0 0,1 1,2 0,1 -1,0 0))", GeoRegion, {}, {1}},
      {wkbMultiSurface, 5, nullptr, GeoNone, {}, {}},
      {wkbNone, 0, nullptr, GeoNone, {}, {}},
      {wkbGeometryCollection, 0, nullptr, GeoNone, {}, {}},
      {wkbUnknown, 0, "POLYGON EMPTY", GeoNone, {}, {}}};
  satest::TempDir dir;
  const std::string path = dir.File("kinds.gpkg");
  for (std::size_t i = 0; i < cases.size(); ++i)
    ASSERT_TRUE(
        satest::WriteGdalLayer(path, "k" + std::to_string(i), cases[i].layer, {cases[i].wkt ? cases[i].wkt : ""}));
  auto src = ZoDataSource::Open(path, false);
  ASSERT_TRUE(src && src->GetDatasetCount() == static_cast<int>(cases.size()));
  std::vector<ZoGeometry> g(cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    ZoDatasetVector* ds = src->GetDataset("k" + std::to_string(i));
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetType(), cases[i].datasetType) << OGRGeometryTypeToName(cases[i].layer);
    RsPtr rs(ds->Query(Q()));
    ASSERT_TRUE(rs && rs->GetGeometry(g[i]));
    EXPECT_EQ(g[i].GetType(), cases[i].type) << i;
    EXPECT_TRUE(cases[i].polyCounts.empty() || g[i].GetPolyCounts() == cases[i].polyCounts) << i;
    EXPECT_EQ(g[i].GetRingCounts(), cases[i].ringCounts) << i;
  }
  EXPECT_EQ(g[0].GetPoints(), (LumaArray<LumaPoint2D>{{1, 2}}));
  EXPECT_EQ(g[1].GetPoints(), (LumaArray<LumaPoint2D>{{5, 6}}));
  // The arc is linearised onto the circle of radius 1 around (1, 0), ring closed.
  const auto& arc = g[8].GetPoints();
  ASSERT_GT(arc.size(), 8u);
  EXPECT_EQ(arc.front(), arc.back());
  for (const LumaPoint2D& p : arc) EXPECT_NEAR(std::hypot(p.x - 1.0, p.y), 1.0, 1e-9);

  // Datasets created through the host: a known type, a new name.
  auto mem = ZoDataSource::CreateMemory();
  LumaUnicodeString error;
  EXPECT_FALSE(mem->CreateDatasetVector("bad", 2, ZoPrjCoordSys(), false, &error));
  EXPECT_FALSE(error.IsEmpty());
  ASSERT_TRUE(mem->CreateDatasetVector("d0", 0, ZoPrjCoordSys()) && mem->CreateDatasetVector("d1", 1, ZoPrjCoordSys()));
  EXPECT_FALSE(mem->CreateDatasetVector("D1", 1, ZoPrjCoordSys()));
  {
    RsPtr rs(mem->GetDataset("d1")->Query(Q()));
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({0, 0})) && rs->Update());
  }
  // Overwriting replaces the dataset with an empty one of the new type.
  ZoDatasetVector* again = mem->CreateDatasetVector("d1", 5, ZoPrjCoordSys(), true);
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->GetType() == 5 && again->GetRecordCount() == 0);
  EXPECT_TRUE(mem->DeleteDataset("D0") && !mem->DeleteDataset("d0") && mem->GetDatasetCount() == 1);
}

// Orderings checked against a stable sort of the rows in ID order, on a key
// with repeated and null values, a text key, and IDs with gaps.
TEST(HostDataset, OrderedQueriesMatchStableSort) {
  struct Row {
    std::int64_t id;
    std::optional<int> g;  // null (lowest, as std::optional orders it) every ninth row
    std::string s;
    double d;
  };
  std::vector<Row> rows;
  satest::TempDir dir;
  auto src = ZoDataSource::OpenOrCreate(dir.File("o.gpkg"));
  ZoDatasetVector* ds = src->CreateDatasetVector("o", DatasetPoint, ZoPrjCoordSys());
  ASSERT_TRUE(ds);
  for (const auto& [name, type] : {std::pair{"g", 4}, {"s", 10}, {"d", 7}})
    ASSERT_TRUE(ds->CreateField(LumaFieldInfo(name, type)));
  {
    RsPtr rs(ds->Query(Q()));
    for (int i = 0; i < 60; ++i) {
      Row row{0, i % 9 == 4 ? std::nullopt : std::optional<int>(i * 7 % 5), std::string(1, char('a' + i * 5 % 4)),
              (i * 37 % 11) * 0.5};
      ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({double(i), 0})) &&
                  rs->SetFieldValue("g", row.g ? LumaVariant(*row.g) : LumaVariant()) &&
                  rs->SetFieldValue("s", LumaVariant(row.s)) && rs->SetFieldValue("d", LumaVariant(row.d)) &&
                  rs->Update());
      row.id = rs->GetID();
      rows.push_back(row);
    }
  }
  for (int i : {40, 18, 17, 3}) {  // gaps in the IDs
    ASSERT_EQ(ZOC::detail::HostAccess::Layer(*ds)->DeleteFeature(rows[i].id), OGRERR_NONE);
    rows.erase(rows.begin() + i);
  }
  auto expect = [&](auto less, auto keep) {
    std::vector<Row> r;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(r), keep);
    std::stable_sort(r.begin(), r.end(), less);
    std::vector<std::int64_t> ids;
    for (const Row& row : r) ids.push_back(row.id);
    return ids;
  };
  auto all = [](const Row&) { return true; };
  auto none = [](const Row&, const Row&) { return false; };
  auto run = [&](const std::string& order, const std::string& filter = "") {
    RsPtr rs(ds->Query(Q(order, filter)));
    EXPECT_TRUE(rs) << order << " / " << filter;
    if (!rs) return std::vector<std::int64_t>{};
    std::vector<std::int64_t> ids = Ids(rs.get());
    EXPECT_EQ(static_cast<std::int64_t>(ids.size()), rs->GetRecordCount());
    return ids;
  };
  const std::vector<std::int64_t> byId = expect(none, all);
  EXPECT_EQ(run(""), byId);
  EXPECT_EQ(run(" Order BY QlID"), byId);
  EXPECT_EQ(run(" order by qlid DESC"), std::vector<std::int64_t>(byId.rbegin(), byId.rend()));
  EXPECT_EQ(run(" Order BY g"), expect([](const Row& a, const Row& b) { return a.g < b.g; }, all));
  EXPECT_EQ(run("ORDER   BY  G  desc "), expect([](const Row& a, const Row& b) { return a.g > b.g; }, all));
  EXPECT_EQ(run(" Order BY s DESC, g"),
            expect([](const Row& a, const Row& b) { return std::tie(b.s, a.g) < std::tie(a.s, b.g); }, all));
  EXPECT_EQ(
      run(" Order BY d, \"s\" ASC, QlID DESC"),
      expect([](const Row& a, const Row& b) { return std::tie(a.d, a.s, b.id) < std::tie(b.d, b.s, a.id); }, all));
  // Filter and order together; the identifier may be named in a filter.
  EXPECT_EQ(run(" Order BY s", "g >= 2"), expect([](const Row& a, const Row& b) { return a.s < b.s; },
                                                 [](const Row& r) { return r.g.has_value() && *r.g >= 2; }));
  EXPECT_EQ(run("", "g IS NULL"), expect(none, [](const Row& r) { return !r.g.has_value(); }));
  std::vector<std::int64_t> below(byId.begin(), byId.begin() + 20);
  std::reverse(below.begin(), below.end());
  EXPECT_EQ(run(" Order BY QlID DESC", "QlID < " + std::to_string(rows[20].id)), below);

  // Malformed clauses, unknown fields, bad filters.
  for (const char* bad : {"Order g", "Order BY nosuch", "Order BY g sideways", "Order BY g,", "ORDER BY", "BY g", "g",
                          "Order BY g DESC DESC", "Order BY \"g", "OrderBY g"})
    EXPECT_FALSE(RsPtr(ds->Query(Q(bad)))) << bad;
  for (const char* bad : {"g >>> 2", "nosuch = 1", "s = 'unterminated"})
    EXPECT_FALSE(RsPtr(ds->Query(Q("", bad)))) << bad;
  EXPECT_TRUE(RsPtr(ds->Query({"", {"G", "QlID"}, "", {}})));
  EXPECT_FALSE(RsPtr(ds->Query({"", {"G", "QlID", "nosuch"}, "", {}})));
  EXPECT_EQ(run(""), byId);  // a failed query leaves the layer usable
}

TEST(HostDataset, SampleDataColumbusReadAndAppended) {
  auto src = ZoDataSource::Open(satest::DataPath("columbus.gpkg"), false);
  ZoDatasetVector* ds = src ? src->GetDataset("columbus") : nullptr;
  ASSERT_TRUE(ds);
  EXPECT_EQ(ds->GetType(), DatasetRegion);
  RsPtr rs(ds->Query(Q(" Order BY QlID")));
  ASSERT_TRUE(rs);
  std::int64_t id = 0;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) {
    EXPECT_EQ(rs->GetID(), ++id);
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g) && g.GetType() == GeoRegion);
    // The AREA field holds each polygon's area, as stored.
    EXPECT_NEAR(g.GetArea(), Value(rs.get(), "AREA").ToDouble(), 1e-4 * g.GetArea());
  }
  EXPECT_EQ(id, 49);
  LumaVariant v;
  EXPECT_FALSE(rs->GetFieldValue("CRIME", v));  // at EOF
  EXPECT_TRUE(rs->SeekID(17) && Value(rs.get(), "POLYID") == LumaVariant(17));
  EXPECT_FALSE(rs->SeekID(500));
  ASSERT_TRUE(rs->SeekID(1) && rs->Edit() && rs->SetFieldValue("CRIME", LumaVariant(1.0)));
  EXPECT_FALSE(rs->Update());  // read-only

  // Appended to a memory dataset in CRIME order: from the identifier, a
  // double, a 64-bit integer to 32 bits, a number to text.
  auto mem = ZoDataSource::CreateMemory();
  ZoDatasetVector* out = mem->CreateDatasetVector("out", DatasetRegion, ds->GetPrjCoordSys());
  ASSERT_TRUE(out);
  for (const auto& [name, type] : {std::pair{"src_id", 4}, {"crime", 7}, {"pid", 4}, {"hoval", 10}})
    ASSERT_TRUE(out->CreateField(LumaFieldInfo(name, type)));
  const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>> map = {
      {"QlID", "src_id"}, {"CRIME", "crime"}, {"POLYID", "pid"}, {"HOVAL", "hoval"}};
  RsPtr source(ds->Query(Q(" Order BY CRIME DESC")));
  ASSERT_TRUE(source && out->AppendRecords(source.get(), map) && out->GetRecordCount() == 49);
  RsPtr copy(out->Query(Q()));
  source->MoveFirst();
  for (copy->MoveFirst(); !copy->IsEOF(); copy->MoveNext(), source->MoveNext()) {
    EXPECT_EQ(Value(copy.get(), "src_id"), LumaVariant(source->GetID()));
    EXPECT_EQ(Value(copy.get(), "crime"), Value(source.get(), "CRIME"));
    EXPECT_EQ(Value(copy.get(), "pid").ToInt64(), Value(source.get(), "POLYID").ToInt64());
    EXPECT_EQ(Value(copy.get(), "hoval").ToDouble(), Value(source.get(), "HOVAL").ToDouble());
    ZoGeometry a, b;
    ASSERT_TRUE(copy->GetGeometry(a) && source->GetGeometry(b));
    EXPECT_TRUE(a.GetPoints() == b.GetPoints() && a.GetPolyCounts() == b.GetPolyCounts());
  }
  EXPECT_TRUE(source->IsEOF());
  // Cancelled part way; unknown fields are refused before anything is written.
  ZoCallbackProgress cancel([](const ZoProgressState& s) { return s.percent < 30; });
  EXPECT_FALSE(out->AppendRecords(source.get(), map, &cancel));
  const std::int64_t before = out->GetRecordCount();
  EXPECT_LT(before, 98);
  EXPECT_FALSE(out->AppendRecords(source.get(), {{"nosuch", "crime"}}) ||
               out->AppendRecords(source.get(), {{"CRIME", "QlID"}}) || out->AppendRecords(nullptr, map));
  EXPECT_EQ(out->GetRecordCount(), before);
}

namespace {

// 500 records with v = 3 * QlID.
ZoDatasetVector* MakeCounted(ZoDataSource* src) {
  ZoDatasetVector* ds = src->CreateDatasetVector("c", DatasetPoint, ZoPrjCoordSys());
  if (!ds || !ds->CreateField(LumaFieldInfo("v", 16))) return nullptr;
  RsPtr rs(ds->Query(Q()));
  for (int i = 0; i < 500; ++i) {
    if (!rs->AddNew(ZoGeometry::MakePoint({double(i), 1.0})) || !rs->Update()) return nullptr;
    rs->Edit();
    rs->SetFieldValue("v", LumaVariant(3 * rs->GetID()));
    if (!rs->Update()) return nullptr;
  }
  return ds->Commit() ? ds : nullptr;
}

}  // namespace

// Several recordsets stepped together, and records changed and appended
// while another recordset iterates, in the memory driver and in GeoPackage.
TEST(HostDataset, InterleavedRecordsetsAndWritesDuringIteration) {
  satest::TempDir dir;
  auto memory = ZoDataSource::CreateMemory();
  ASSERT_TRUE(MakeCounted(memory.get()) && MakeCounted(ZoDataSource::OpenOrCreate(dir.File("c.gpkg")).get()));
  auto gpkg = ZoDataSource::Open(dir.File("c.gpkg"), true);
  ASSERT_TRUE(gpkg);
  // The recordset is on record `id`, whose value is 3·id plus `offset`.
  auto expectAt = [](ZoRecordset* r, std::int64_t id, std::int64_t offset = 0) {
    ASSERT_EQ(r->GetID(), id);
    EXPECT_EQ(Value(r, "v"), LumaVariant(3 * id + offset));
  };
  for (ZoDatasetVector* ds : {memory->GetDataset("c"), gpkg->GetDataset("c")}) {
    RsPtr all(ds->Query(Q())), upper(ds->Query(Q("", "v >= 600"))), desc(ds->Query(Q(" Order BY v DESC")));
    ASSERT_TRUE(all && upper && desc);
    const std::vector<std::int64_t> ids = Ids(all.get());
    ASSERT_EQ(ids.size(), 500u);
    std::vector<std::int64_t> upperIds, descIds(ids.rbegin(), ids.rend());
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(upperIds), [](std::int64_t id) { return 3 * id >= 600; });
    ASSERT_EQ(upper->GetRecordCount(), static_cast<std::int64_t>(upperIds.size()));
    // Step all three together; every record must be the expected one with its own values.
    all->MoveFirst(), upper->MoveFirst(), desc->MoveFirst();
    for (std::size_t i = 0; i < ids.size(); ++i, all->MoveNext(), desc->MoveNext()) {
      expectAt(all.get(), ids[i]);
      expectAt(desc.get(), descIds[i]);
      if (i < upperIds.size()) {
        expectAt(upper.get(), upperIds[i]);
        upper->MoveNext();
      }
      EXPECT_TRUE(i % 50 != 0 || ds->GetRecordCount() == 500);  // counting in between
    }
    EXPECT_TRUE(all->IsEOF() && upper->IsEOF() && desc->IsEOF());
    // Moving the layer's cursor behind a recordset's back does not make it read wrong records.
    RsPtr seq(ds->Query(Q(" Order BY QlID")));
    ASSERT_TRUE(seq->MoveNext() && seq->MoveNext());
    ASSERT_TRUE(OGRFeatureUniquePtr(ZOC::detail::HostAccess::Layer(*ds)->GetNextFeature()));
    ZOC::detail::HostAccess::Layer(*ds)->ResetReading();
    for (std::size_t i = 2; i < ids.size(); ++i, seq->MoveNext()) expectAt(seq.get(), ids[i]);
    EXPECT_TRUE(seq->IsEOF());

    // Edit every record while iterating, and append through another recordset.
    RsPtr rs(ds->Query(Q())), adder(ds->Query(Q("", "v < 0")));
    ASSERT_TRUE(rs && adder);
    std::vector<std::int64_t> added;
    std::size_t i = 0;
    for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext(), ++i) {
      ASSERT_LT(i, ids.size());
      expectAt(rs.get(), ids[i]);  // not yet changed: each record is edited once
      ASSERT_TRUE(rs->Edit() && rs->SetFieldValue("v", LumaVariant(3 * ids[i] + 1000000)) && rs->Update());
      expectAt(rs.get(), ids[i], 1000000);
      if (i % 50 == 7) {
        ASSERT_TRUE(adder->AddNew(ZoGeometry::MakePoint({-1, -1})));
        ASSERT_TRUE(adder->SetFieldValue("v", LumaVariant(-static_cast<std::int64_t>(i))) && adder->Update());
        added.push_back(adder->GetID());
      }
    }
    EXPECT_EQ(i, ids.size());  // the records appended meanwhile are not in `rs`
    EXPECT_EQ(Ids(adder.get()), added);
    ASSERT_TRUE(ds->Commit());
    RsPtr check(ds->Query(Q()));
    EXPECT_EQ(check->GetRecordCount(), static_cast<std::int64_t>(ids.size() + added.size()));
    for (std::int64_t id : ids) {
      ASSERT_TRUE(check->SeekID(id));
      expectAt(check.get(), id, 1000000);
    }
  }

  // A recordset that outlives its datasource reads and writes nothing.
  RsPtr rs(memory->GetDataset("c")->Query(Q()));
  ASSERT_TRUE(rs && rs->GetDataset() == memory->GetDataset("c"));
  memory.reset();
  LumaVariant v;
  EXPECT_TRUE(rs->IsEOF() && rs->GetID() == -1 && rs->GetDataset() == nullptr);
  EXPECT_FALSE(rs->MoveFirst() || rs->MoveNext() || rs->AddNew(ZoGeometry()) || rs->GetFieldValue("v", v));
}
