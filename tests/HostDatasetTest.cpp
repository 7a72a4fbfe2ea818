// Datasources, datasets and recordsets over GDAL: field type round trips,
// ordered queries against brute-force orderings, geometry conversion, the
// sample data, concurrent readers and writes during iteration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
using LUMA::LumaDateTime;
using LUMA::LumaFieldInfo;
using LUMA::LumaFieldInfos;
using LUMA::LumaPoint2D;
using LUMA::LumaVariant;

namespace {

// The tests also write files with GDAL directly; each may run in its own process.
GDALDriver* GpkgDriver() {
  GDALAllRegister();
  return GetGDALDriverManager()->GetDriverByName("GPKG");
}

ZoQueryDef Q(const std::string& order = "", const std::string& filter = "") {
  ZoQueryDef q;
  q.m_order = order;
  q.m_filter = filter;
  return q;
}

struct RsDeleter {
  void operator()(ZoRecordset* r) const { delete r; }
};
using RsPtr = std::unique_ptr<ZoRecordset, RsDeleter>;

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

double RingArea(const LumaPoint2D* p, int n) {
  double a = 0.0;
  for (int i = 0; i + 1 < n; ++i) a += p[i].x * p[i + 1].y - p[i + 1].x * p[i].y;
  return 0.5 * a;
}

LumaDateTime Dt(int y, int mo, int d, int h, int mi, double s, int tz = 0) {
  LumaDateTime t;
  t.year = y;
  t.month = mo;
  t.day = d;
  t.hour = h;
  t.minute = mi;
  t.second = s;
  t.tzFlag = tz;
  return t;
}

const std::vector<std::pair<std::string, int>> kAllTypes = {
    {"f_bool", 1},  {"f_byte", 2},    {"f_int16", 3},  {"f_int32", 4},     {"f_single", 6},
    {"f_double", 7}, {"f_text", 10},  {"f_int64", 16}, {"f_binary", 18},   {"f_datetime", 22},
    {"f_date", 23},  {"f_time", 24},  {"f_other", 127}};

// Two rows of values per type: ordinary values, and extremes.
std::vector<std::map<std::string, LumaVariant>> TypeRows() {
  std::map<std::string, LumaVariant> a, b;
  a["f_bool"] = LumaVariant(true);
  a["f_byte"] = LumaVariant(200);
  a["f_int16"] = LumaVariant(-1234);
  a["f_int32"] = LumaVariant(2000000000);
  a["f_single"] = LumaVariant(1.5);
  a["f_double"] = LumaVariant(3.141592653589793);
  a["f_text"] = LumaVariant("h\xC3\xA9llo w\xC3\xB6rld");
  a["f_int64"] = LumaVariant(static_cast<std::int64_t>((1LL << 40) + 5));
  a["f_binary"] = LumaVariant(std::vector<unsigned char>{0, 1, 2, 255});
  a["f_datetime"] = LumaVariant(Dt(2021, 3, 4, 5, 6, 7.5, 100));
  a["f_date"] = LumaVariant(Dt(2020, 2, 29, 0, 0, 0));
  a["f_time"] = LumaVariant(Dt(0, 0, 0, 13, 14, 15.25));
  a["f_other"] = LumaVariant("(2:a,b)");
  b["f_bool"] = LumaVariant(false);
  b["f_byte"] = LumaVariant(255);
  b["f_int16"] = LumaVariant(-32768);
  b["f_int32"] = LumaVariant(-2147483647 - 1);
  b["f_single"] = LumaVariant(-0.125);
  b["f_double"] = LumaVariant(-1e300);
  b["f_text"] = LumaVariant("");
  b["f_int64"] = LumaVariant(static_cast<std::int64_t>(-(1LL << 53) - 1));
  b["f_binary"] = LumaVariant(std::vector<unsigned char>{7});
  b["f_datetime"] = LumaVariant(Dt(1999, 12, 31, 23, 59, 59, 0));  // time zone unknown
  b["f_date"] = LumaVariant(Dt(1900, 1, 1, 0, 0, 0));
  b["f_time"] = LumaVariant(Dt(0, 0, 0, 0, 0, 0));
  b["f_other"] = LumaVariant("(1:z)");
  return {a, b};
}

// Writes rows A, an all-null row and B into `ds`, one point each.
void WriteTypeRows(ZoDatasetVector* ds) {
  for (const auto& [name, type] : kAllTypes) ASSERT_TRUE(ds->CreateField(LumaFieldInfo(name, type))) << name;
  RsPtr rs(ds->Query(Q()));
  ASSERT_TRUE(rs);
  const auto rows = TypeRows();
  for (int r = 0; r < 3; ++r) {
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({double(r), double(-r)})));
    if (r != 1) {
      for (const auto& [name, value] : rows[r == 0 ? 0 : 1]) EXPECT_TRUE(rs->SetFieldValue(name, value)) << name;
    }
    ASSERT_TRUE(rs->Update());
  }
  EXPECT_EQ(rs->GetRecordCount(), 3);
}

void CheckTypeRows(ZoDatasetVector* ds) {
  const LumaFieldInfos infos = ds->GetFieldInfos();
  ASSERT_EQ(infos.size(), kAllTypes.size() + 1);
  EXPECT_EQ(infos[0].GetName().Str(), "QlID");
  EXPECT_EQ(infos[0].GetType(), 4);
  EXPECT_TRUE(infos[0].IsSystemField());
  for (std::size_t i = 0; i < kAllTypes.size(); ++i) {
    EXPECT_EQ(infos[i + 1].GetName().Str(), kAllTypes[i].first);
    EXPECT_EQ(infos[i + 1].GetType(), kAllTypes[i].second) << kAllTypes[i].first;
    EXPECT_FALSE(infos[i + 1].IsSystemField());
  }
  RsPtr rs(ds->Query(Q(" Order BY QlID")));
  ASSERT_TRUE(rs);
  ASSERT_EQ(rs->GetRecordCount(), 3);
  const auto rows = TypeRows();
  int r = 0;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext(), ++r) {
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g));
    ASSERT_EQ(g.GetType(), GeoPoint);
    EXPECT_EQ(g.GetPoints()[0], (LumaPoint2D{double(r), double(-r)}));
    for (const auto& [name, type] : kAllTypes) {
      const LumaVariant v = Value(rs.get(), name.c_str());
      if (r == 1) {
        EXPECT_TRUE(v.IsNull()) << name;
        continue;
      }
      const LumaVariant& want = rows[r == 0 ? 0 : 1].at(name);
      if (type == 1) {
        ASSERT_EQ(v.GetType(), LumaVariant::Boolean) << name;
        EXPECT_EQ(v.GetBool(), want.GetBool());
      } else if (type == 6 || type == 7) {
        ASSERT_EQ(v.GetType(), LumaVariant::Double) << name;
        EXPECT_EQ(v.GetDouble(), want.GetDouble()) << name;
      } else {
        EXPECT_EQ(v, want) << name << " row " << r << " got " << v.ToString().Str();
      }
    }
  }
  EXPECT_EQ(r, 3);
}

}  // namespace

TEST(HostDataset, GeoPackageRoundTripOfEveryFieldType) {
  satest::TempDir dir;
  const std::string path = dir.File("types.gpkg");
  {
    auto src = ZoDataSource::OpenOrCreate(path);
    ASSERT_TRUE(src);
    EXPECT_EQ(src->GetDriverName().Str(), "GPKG");
    ZoPrjCoordSys wgs;
    ASSERT_TRUE(wgs.SetFromUserInput("EPSG:4326"));
    ZoDatasetVector* ds = src->CreateDatasetVector("t", DatasetPoint, wgs);
    ASSERT_TRUE(ds);
    WriteTypeRows(ds);
    CheckTypeRows(ds);  // before closing, through the same objects
  }
  auto src = ZoDataSource::Open(path, false);
  ASSERT_TRUE(src);
  ZoDatasetVector* ds = src->GetDataset("T");  // case-insensitive
  ASSERT_TRUE(ds);
  EXPECT_EQ(ds->GetType(), DatasetPoint);
  EXPECT_EQ(ds->GetRecordCount(), 3);
  EXPECT_EQ(ds->GetPrjCoordSys().GetTypeID(), ZoPrjCoordSys::Geographic);
  CheckTypeRows(ds);
  LumaFieldInfo info;
  ASSERT_TRUE(ds->GetFieldInfo("F_TIME", info));
  EXPECT_EQ(info.GetName().Str(), "f_time");
  EXPECT_EQ(info.GetType(), 24);
  ASSERT_TRUE(ds->GetFieldInfo("qlid", info));
  EXPECT_TRUE(info.IsSystemField());
  EXPECT_FALSE(ds->GetFieldInfo("nosuch", info));
}

TEST(HostDataset, MemoryDatasetKeepsTypesAndRejectsBadValues) {
  auto src = ZoDataSource::CreateMemory();
  ASSERT_TRUE(src);
  EXPECT_EQ(src->GetDriverName().Str(), "Memory");
  ZoDatasetVector* ds = src->CreateDatasetVector("m", DatasetPoint, ZoPrjCoordSys());
  ASSERT_TRUE(ds);
  WriteTypeRows(ds);
  CheckTypeRows(ds);

  RsPtr rs(ds->Query(Q()));
  ASSERT_TRUE(rs);
  EXPECT_FALSE(rs->SetFieldValue("f_int32", LumaVariant(1)));  // nothing pending
  ASSERT_TRUE(rs->Edit());
  EXPECT_FALSE(rs->SetFieldValue("f_byte", LumaVariant(256)));
  EXPECT_FALSE(rs->SetFieldValue("f_int16", LumaVariant(40000)));
  EXPECT_FALSE(rs->SetFieldValue("f_int32", LumaVariant("seven")));
  EXPECT_FALSE(rs->SetFieldValue("QlID", LumaVariant(5)));
  EXPECT_FALSE(rs->SetFieldValue("nosuch", LumaVariant(5)));
  EXPECT_TRUE(rs->SetFieldValue("f_int32", LumaVariant(" 42 ")));  // numeric text
  EXPECT_TRUE(rs->SetFieldValue("f_double", LumaVariant(7)));
  EXPECT_TRUE(rs->SetFieldValue("f_text", LumaVariant(2.5)));
  ASSERT_TRUE(rs->Update());
  EXPECT_EQ(Value(rs.get(), "f_int32"), LumaVariant(42));
  EXPECT_EQ(Value(rs.get(), "f_double"), LumaVariant(7.0));
  EXPECT_EQ(Value(rs.get(), "f_text"), LumaVariant("2.5"));
  EXPECT_EQ(Value(rs.get(), "f_byte"), LumaVariant(200));  // unchanged by the rejected write
  // CancelUpdate drops the pending change.
  ASSERT_TRUE(rs->Edit());
  ASSERT_TRUE(rs->SetFieldValue("f_int32", LumaVariant(1)));
  rs->CancelUpdate();
  EXPECT_FALSE(rs->Update());
  EXPECT_EQ(Value(rs.get(), "f_int32"), LumaVariant(42));

  EXPECT_FALSE(ds->CreateField(LumaFieldInfo("F_INT32", 4)));  // exists, case-insensitively
  EXPECT_FALSE(ds->CreateField(LumaFieldInfo("qlid", 4)));
  EXPECT_FALSE(ds->CreateField(LumaFieldInfo("x", 99)));
}

TEST(HostDataset, ShapefileFieldNamesAreMadeValid) {
  satest::TempDir dir;
  const std::string path = dir.File("out.shp");
  LumaFieldInfos fields;
  fields.push_back(LumaFieldInfo("population_density", 7));
  fields.push_back(LumaFieldInfo("population_total", 4));
  fields.push_back(LumaFieldInfo("POPULATION_x", 4));
  fields.push_back(LumaFieldInfo("bad name!", 10));
  fields.push_back(LumaFieldInfo("QlID", 4, true));
  fields.push_back(LumaFieldInfo("Gr\xC3\xB6\xC3\x9F" "e", 4));
  const std::vector<std::string> want = {"population", "populati_1", "POPULATI_2", "bad_name_", "QlID_1", "Gr__e"};
  {
    auto src = ZoDataSource::OpenOrCreate(path);
    ASSERT_TRUE(src);
    EXPECT_EQ(src->GetDriverName().Str(), "ESRI Shapefile");
    ZoDatasetVector* ds = src->CreateDatasetVector("out", DatasetPoint, ZoPrjCoordSys());
    ASSERT_TRUE(ds);
    ASSERT_TRUE(ZoEngineToolkit::CreateValidFields(ds, fields));
    for (std::size_t i = 0; i < want.size(); ++i) EXPECT_EQ(fields[i].GetName().Str(), want[i]);
    EXPECT_TRUE(fields[4].IsSystemField());  // only the name is written back
    LumaFieldInfo info;
    ASSERT_TRUE(ds->GetFieldInfo("QlID_1", info));
    EXPECT_FALSE(info.IsSystemField());
    RsPtr rs(ds->Query(Q()));
    ASSERT_TRUE(rs);
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({1, 2})));
    ASSERT_TRUE(rs->SetFieldValue("population", LumaVariant(12.5)));
    ASSERT_TRUE(rs->SetFieldValue("POPULATI_2", LumaVariant(3)));
    ASSERT_TRUE(rs->SetFieldValue("bad_name_", LumaVariant("x")));
    ASSERT_TRUE(rs->Update());
  }
  // Read back with GDAL itself.
  GDALDatasetUniquePtr gdal(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR));
  ASSERT_TRUE(gdal);
  OGRFeatureDefn* defn = gdal->GetLayer(0)->GetLayerDefn();
  ASSERT_EQ(defn->GetFieldCount(), static_cast<int>(want.size()));
  for (int i = 0; i < defn->GetFieldCount(); ++i) EXPECT_EQ(std::string(defn->GetFieldDefn(i)->GetNameRef()), want[i]);
  OGRFeatureUniquePtr f(gdal->GetLayer(0)->GetNextFeature());
  ASSERT_TRUE(f);
  EXPECT_EQ(f->GetFieldAsDouble("population"), 12.5);
  EXPECT_EQ(f->GetFieldAsInteger("POPULATI_2"), 3);
  EXPECT_STREQ(f->GetFieldAsString("bad_name_"), "x");
}

TEST(HostDataset, GeoPackageNamesAvoidReservedColumnsOnly) {
  satest::TempDir dir;
  auto src = ZoDataSource::OpenOrCreate(dir.File("n.gpkg"));
  ASSERT_TRUE(src);
  ZoDatasetVector* ds = src->CreateDatasetVector("n", DatasetRegion, ZoPrjCoordSys());
  ASSERT_TRUE(ds);
  LumaFieldInfos fields;
  for (const char* n : {"a long name with spaces", "fid", "geom", "X", "x", "x_1", ""})
    fields.push_back(LumaFieldInfo(n, 7));
  ASSERT_TRUE(ZoEngineToolkit::CreateValidFields(ds, fields));
  const std::vector<std::string> want = {"a long name with spaces", "fid_1", "geom_1", "X", "x_1", "x_1_1", "Field"};
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_EQ(fields[i].GetName().Str(), want[i]);
  EXPECT_EQ(ds->GetFieldInfos().size(), want.size() + 1);
  EXPECT_FALSE(ZoEngineToolkit::CreateValidFields(nullptr, fields));
}

TEST(HostDataset, DatasetTypeCodes) {
  // Layers written with GDAL directly, one per geometry type.
  satest::TempDir dir;
  const std::string path = dir.File("kinds.gpkg");
  const std::vector<std::pair<OGRwkbGeometryType, int>> kinds = {
      {wkbPoint, 1},         {wkbMultiPoint, 1},   {wkbPoint25D, 1},      {wkbLineString, 3},
      {wkbMultiLineString, 3}, {wkbCompoundCurve, 3}, {wkbPolygon, 5},     {wkbMultiPolygon, 5},
      {wkbCurvePolygon, 5},  {wkbMultiSurface, 5}, {wkbNone, 0},          {wkbGeometryCollection, 0},
      {wkbUnknown, 0}};
  {
    GDALDriver* drv = GpkgDriver();
    ASSERT_TRUE(drv);
    GDALDatasetUniquePtr gdal(drv->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    ASSERT_TRUE(gdal);
    for (std::size_t i = 0; i < kinds.size(); ++i)
      ASSERT_TRUE(gdal->CreateLayer(("k" + std::to_string(i)).c_str(), nullptr, kinds[i].first));
  }
  auto src = ZoDataSource::Open(path, false);
  ASSERT_TRUE(src);
  ASSERT_EQ(src->GetDatasetCount(), static_cast<int>(kinds.size()));
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    ZoDatasetVector* ds = src->GetDataset("k" + std::to_string(i));
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetType(), kinds[i].second) << OGRGeometryTypeToName(kinds[i].first);
  }

  // Datasets created through the host, in the memory driver.
  auto mem = ZoDataSource::CreateMemory();
  for (int type : {0, 1, 3, 5}) {
    ZoDatasetVector* ds = mem->CreateDatasetVector("d" + std::to_string(type), type, ZoPrjCoordSys());
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetType(), type);
  }
  LumaUnicodeString error;
  EXPECT_FALSE(mem->CreateDatasetVector("bad", 2, ZoPrjCoordSys(), false, &error));
  EXPECT_FALSE(error.IsEmpty());
  EXPECT_FALSE(mem->CreateDatasetVector("D1", 1, ZoPrjCoordSys()));  // exists
  // Overwriting replaces the dataset with an empty one of the new type.
  {
    RsPtr rs(mem->GetDataset("d1")->Query(Q()));
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({0, 0})));
    ASSERT_TRUE(rs->Update());
  }
  ZoDatasetVector* again = mem->CreateDatasetVector("d1", 5, ZoPrjCoordSys(), true);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->GetType(), 5);
  EXPECT_EQ(again->GetRecordCount(), 0);
  EXPECT_EQ(mem->GetDatasetCount(), 4);
  EXPECT_TRUE(mem->DeleteDataset("D0"));
  EXPECT_FALSE(mem->DeleteDataset("d0"));
  EXPECT_EQ(mem->GetDatasetCount(), 3);
}

TEST(HostDataset, GeometriesConvertFromOgr) {
  satest::TempDir dir;
  const std::string path = dir.File("geoms.gpkg");
  const std::vector<std::string> wkts = {
      "POINT (1 2)",
      "POINT Z (1 2 3)",
      "MULTIPOINT ((5 6),(7 8))",
      "LINESTRING (0 0,1 1,2 0)",
      "MULTILINESTRING ((0 0,1 0),(2 2,3 3,4 4))",
      "POLYGON ((0 0,4 0,4 4,0 4,0 0),(1 1,2 1,2 2,1 1))",
      "MULTIPOLYGON (((0 0,1 0,1 1,0 0)),((5 5,6 5,6 6,5 6,5 5),(5.2 5.2,5.4 5.2,5.4 5.4,5.2 5.2)))",
      "CURVEPOLYGON (CIRCULARSTRING (0 0,1 1,2 0,1 -1,0 0))",
      "POLYGON EMPTY",
      ""};
  {
    GDALDatasetUniquePtr gdal(
        GpkgDriver()->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    OGRLayer* layer = gdal->CreateLayer("g", nullptr, wkbUnknown);
    for (const std::string& wkt : wkts) {
      OGRFeature f(layer->GetLayerDefn());
      if (!wkt.empty()) {
        OGRGeometry* g = nullptr;
        ASSERT_EQ(OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &g), OGRERR_NONE) << wkt;
        f.SetGeometryDirectly(g);
      }
      ASSERT_EQ(layer->CreateFeature(&f), OGRERR_NONE);
    }
  }
  auto src = ZoDataSource::Open(path, false);
  ASSERT_TRUE(src);
  RsPtr rs(src->GetDataset("g")->Query(Q()));
  ASSERT_TRUE(rs);
  ASSERT_EQ(rs->GetRecordCount(), static_cast<std::int64_t>(wkts.size()));
  std::vector<ZoGeometry> g;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) {
    g.emplace_back();
    ASSERT_TRUE(rs->GetGeometry(g.back()));
  }
  using P = LumaPoint2D;
  EXPECT_EQ(g[0].GetType(), GeoPoint);
  EXPECT_EQ(g[0].GetPoints(), (LumaArray<P>{{1, 2}}));
  EXPECT_EQ(g[1].GetPoints(), (LumaArray<P>{{1, 2}}));  // Z dropped
  EXPECT_EQ(g[2].GetType(), GeoPoint);
  EXPECT_EQ(g[2].GetPoints(), (LumaArray<P>{{5, 6}}));  // first point of a multipoint
  EXPECT_EQ(g[3].GetType(), GeoLine);
  EXPECT_EQ(g[3].GetPolyCounts(), (LumaArray<int>{3}));
  EXPECT_EQ(g[4].GetType(), GeoLine);
  EXPECT_EQ(g[4].GetPolyCounts(), (LumaArray<int>{2, 3}));
  EXPECT_EQ(g[4].GetPoints()[2], (P{2, 2}));
  EXPECT_EQ(g[5].GetType(), GeoRegion);
  EXPECT_EQ(g[5].GetPolyCounts(), (LumaArray<int>{5, 4}));
  EXPECT_EQ(g[5].GetRingCounts(), (LumaArray<int>{2}));
  EXPECT_EQ(g[6].GetType(), GeoRegion);
  EXPECT_EQ(g[6].GetPolyCounts(), (LumaArray<int>{4, 5, 4}));
  EXPECT_EQ(g[6].GetRingCounts(), (LumaArray<int>{1, 2}));
  // The arc is linearised onto the circle of radius 1 around (1, 0), ring closed.
  ASSERT_EQ(g[7].GetType(), GeoRegion);
  const auto& arc = g[7].GetPoints();
  ASSERT_GT(arc.size(), 8u);
  EXPECT_EQ(arc.front(), arc.back());
  for (const P& p : arc) EXPECT_NEAR(std::hypot(p.x - 1.0, p.y), 1.0, 1e-9);
  EXPECT_TRUE(g[8].IsEmpty());
  EXPECT_TRUE(g[9].IsEmpty());

  // Host -> OGR -> host keeps points, parts and polygons.
  auto mem = ZoDataSource::CreateMemory();
  for (const auto& [type, picks] : {std::pair{DatasetRegion, std::vector<int>{5, 6}}, {DatasetLine, {3, 4}}}) {
    ZoDatasetVector* ds = mem->CreateDatasetVector("w" + std::to_string(type), type, ZoPrjCoordSys());
    RsPtr w(ds->Query(Q()));
    for (int i : picks) {
      ASSERT_TRUE(w->AddNew(g[i]));
      ASSERT_TRUE(w->Update());
    }
    RsPtr r(ds->Query(Q()));
    for (int i : picks) {
      ZoGeometry back;
      ASSERT_TRUE(r->GetGeometry(back));
      EXPECT_EQ(back.GetType(), g[i].GetType());
      EXPECT_EQ(back.GetPoints(), g[i].GetPoints());
      EXPECT_EQ(back.GetPolyCounts(), g[i].GetPolyCounts());
      EXPECT_EQ(back.GetRingCounts(), g[i].GetRingCounts());
      r->MoveNext();
    }
  }
}

namespace {

// A dataset with repeated, null and text keys and non-contiguous IDs.
struct OrderFixture {
  std::unique_ptr<ZoDataSource> src;
  ZoDatasetVector* ds = nullptr;
  struct Row {
    std::int64_t id;
    std::optional<int> g;
    std::string s;
    double d;
  };
  std::vector<Row> rows;  // ascending id

  void Build(std::unique_ptr<ZoDataSource> source) {
    src = std::move(source);
    ds = src->CreateDatasetVector("o", DatasetPoint, ZoPrjCoordSys());
    ASSERT_TRUE(ds);
    ASSERT_TRUE(ds->CreateField(LumaFieldInfo("g", 4)));
    ASSERT_TRUE(ds->CreateField(LumaFieldInfo("s", 10)));
    ASSERT_TRUE(ds->CreateField(LumaFieldInfo("d", 7)));
    RsPtr rs(ds->Query(Q()));
    ASSERT_TRUE(rs);
    for (int i = 0; i < 60; ++i) {
      ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({double(i), 0})));
      Row row{0, std::nullopt, std::string(1, char('a' + (i * 5) % 4)), (i * 37 % 11) * 0.5};
      if (i % 9 != 4) row.g = (i * 7) % 5;
      if (row.g) {
        ASSERT_TRUE(rs->SetFieldValue("g", LumaVariant(*row.g)));
      }
      ASSERT_TRUE(rs->SetFieldValue("s", LumaVariant(row.s)));
      ASSERT_TRUE(rs->SetFieldValue("d", LumaVariant(row.d)));
      ASSERT_TRUE(rs->Update());
      row.id = rs->GetID();
      rows.push_back(row);
    }
    rs.reset();
    // Gaps in the IDs.
    for (int i : {3, 17, 18, 40}) ASSERT_EQ(ds->GetOGRLayer()->DeleteFeature(rows[i].id), OGRERR_NONE);
    for (int i : {40, 18, 17, 3}) rows.erase(rows.begin() + i);
    ASSERT_TRUE(std::is_sorted(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.id < b.id; }));
  }

  // Brute force: stable sort of the ID-ordered rows; nulls are the lowest values.
  template <class Less>
  std::vector<std::int64_t> Expect(Less less, bool (*keep)(const Row&) = nullptr) const {
    std::vector<Row> r;
    for (const Row& row : rows)
      if (!keep || keep(row)) r.push_back(row);
    std::stable_sort(r.begin(), r.end(), less);
    std::vector<std::int64_t> ids;
    for (const Row& row : r) ids.push_back(row.id);
    return ids;
  }

  std::vector<std::int64_t> Run(const std::string& order, const std::string& filter = "") const {
    RsPtr rs(ds->Query(Q(order, filter)));
    EXPECT_TRUE(rs) << order << " / " << filter;
    if (!rs) return {};
    std::vector<std::int64_t> ids = Ids(rs.get());
    EXPECT_EQ(static_cast<std::int64_t>(ids.size()), rs->GetRecordCount());
    return ids;
  }
};

int Cmp(const std::optional<int>& a, const std::optional<int>& b) {
  if (!a || !b) return a ? 1 : (b ? -1 : 0);
  return *a < *b ? -1 : (*a > *b ? 1 : 0);
}

void CheckOrdering(OrderFixture& f) {
  using Row = OrderFixture::Row;
  std::vector<std::int64_t> byId = f.Expect([](const Row&, const Row&) { return false; });
  EXPECT_EQ(f.Run(""), byId);
  EXPECT_EQ(f.Run(" Order BY QlID"), byId);
  std::vector<std::int64_t> rev(byId.rbegin(), byId.rend());
  EXPECT_EQ(f.Run(" order by qlid DESC"), rev);

  EXPECT_EQ(f.Run(" Order BY g"), f.Expect([](const Row& a, const Row& b) { return Cmp(a.g, b.g) < 0; }));
  EXPECT_EQ(f.Run("ORDER   BY  G  desc "), f.Expect([](const Row& a, const Row& b) { return Cmp(a.g, b.g) > 0; }));
  EXPECT_EQ(f.Run(" Order BY s DESC, g"), f.Expect([](const Row& a, const Row& b) {
    if (a.s != b.s) return a.s > b.s;
    return Cmp(a.g, b.g) < 0;
  }));
  EXPECT_EQ(f.Run(" Order BY d, s ASC, QlID DESC"), f.Expect([](const Row& a, const Row& b) {
    if (a.d != b.d) return a.d < b.d;
    if (a.s != b.s) return a.s < b.s;
    return a.id > b.id;
  }));
  EXPECT_EQ(f.Run(" Order BY \"s\""), f.Expect([](const Row& a, const Row& b) { return a.s < b.s; }));

  // Filter and order together.
  EXPECT_EQ(f.Run(" Order BY s", "g >= 2"),
            f.Expect([](const Row& a, const Row& b) { return a.s < b.s; },
                     [](const Row& r) { return r.g.has_value() && *r.g >= 2; }));
  EXPECT_EQ(f.Run("", "g IS NULL"), f.Expect([](const Row&, const Row&) { return false; },
                                              [](const Row& r) { return !r.g.has_value(); }));
  // The identifier may be named in a filter.
  const std::int64_t cut = f.rows[20].id;
  std::vector<std::int64_t> below(byId.begin(), byId.begin() + 20);
  std::reverse(below.begin(), below.end());
  EXPECT_EQ(f.Run(" Order BY QlID DESC", "QlID < " + std::to_string(cut)), below);
  EXPECT_TRUE(f.Run("", "s = 'zz'").empty());

  // Malformed clauses, unknown fields, bad filters.
  for (const char* bad : {"Order g", "Order BY nosuch", "Order BY g sideways", "Order BY g,", "ORDER BY", "BY g",
                          "g", "Order BY g DESC DESC", "Order BY \"g", "OrderBY g"}) {
    ZoRecordset* rs = f.ds->Query(Q(bad));
    EXPECT_EQ(rs, nullptr) << bad;
    delete rs;
  }
  for (const char* bad : {"g >>> 2", "nosuch = 1", "s = 'unterminated"}) {
    ZoRecordset* rs = f.ds->Query(Q("", bad));
    EXPECT_EQ(rs, nullptr) << bad;
    delete rs;
  }
  ZoQueryDef q;
  q.m_fields.push_back("nosuch");
  EXPECT_EQ(f.ds->Query(q), nullptr);
  q.m_fields.clear();
  q.m_fields.push_back("G");
  q.m_fields.push_back("QlID");
  RsPtr ok(f.ds->Query(q));
  EXPECT_TRUE(ok);
  // A failed query leaves the layer usable.
  EXPECT_EQ(f.Run(""), byId);
  EXPECT_EQ(f.ds->GetRecordCount(), static_cast<std::int64_t>(f.rows.size()));
}

}  // namespace

TEST(HostDataset, OrderedQueriesInMemory) {
  OrderFixture f;
  f.Build(ZoDataSource::CreateMemory());
  CheckOrdering(f);
}

TEST(HostDataset, OrderedQueriesInGeoPackage) {
  satest::TempDir dir;
  OrderFixture f;
  f.Build(ZoDataSource::OpenOrCreate(dir.File("o.gpkg")));
  CheckOrdering(f);
}

TEST(HostDataset, SampleDataColumbus) {
  auto src = ZoDataSource::Open(satest::DataPath("columbus.gpkg"), false);
  ASSERT_TRUE(src);
  ZoDatasetVector* ds = src->GetDataset("columbus");
  ASSERT_TRUE(ds);
  EXPECT_EQ(ds->GetType(), DatasetRegion);
  EXPECT_EQ(ds->GetRecordCount(), 49);
  EXPECT_EQ(ds->GetPrjCoordSys().GetTypeID(), ZoPrjCoordSys::Planar);
  LumaFieldInfo info;
  ASSERT_TRUE(ds->GetFieldInfo("crime", info));
  EXPECT_EQ(info.GetType(), 7);
  ASSERT_TRUE(ds->GetFieldInfo("POLYID", info));
  EXPECT_EQ(info.GetType(), 16);
  ASSERT_TRUE(ds->GetFieldInfo("NEIG", info));
  EXPECT_EQ(info.GetType(), 4);

  RsPtr rs(ds->Query(Q(" Order BY QlID")));
  ASSERT_TRUE(rs);
  ASSERT_EQ(rs->GetRecordCount(), 49);
  std::int64_t expectId = 1;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext(), ++expectId) {
    EXPECT_EQ(rs->GetID(), expectId);
    EXPECT_EQ(Value(rs.get(), "QlID"), LumaVariant(expectId));
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g));
    ASSERT_EQ(g.GetType(), GeoRegion);
    // The AREA field holds each polygon's area: compare with the shoelace
    // area of the converted rings (shell minus holes).
    const auto& pts = g.GetPoints();
    const auto& rings = g.GetPolyCounts();
    double area = 0.0;
    std::size_t at = 0;
    for (int c : rings) {
      EXPECT_EQ(pts[at], pts[at + c - 1]);  // closed
      area += std::fabs(RingArea(pts.data() + at, c)) * (at == 0 ? 1.0 : -1.0);
      at += static_cast<std::size_t>(c);
    }
    EXPECT_EQ(at, pts.size());
    EXPECT_NEAR(area, Value(rs.get(), "AREA").ToDouble(), 1e-4 * area);
  }
  EXPECT_EQ(expectId, 50);
  EXPECT_FALSE(rs->MoveNext());
  EXPECT_EQ(rs->GetID(), -1);
  LumaVariant v;
  EXPECT_FALSE(rs->GetFieldValue("CRIME", v));
  ZoGeometry g;
  EXPECT_FALSE(rs->GetGeometry(g));
  // Seeking by ID.
  ASSERT_TRUE(rs->SeekID(17));
  EXPECT_EQ(rs->GetID(), 17);
  EXPECT_EQ(Value(rs.get(), "POLYID"), LumaVariant(17));
  ASSERT_TRUE(rs->MoveNext());
  EXPECT_EQ(rs->GetID(), 18);
  EXPECT_FALSE(rs->SeekID(500));
  EXPECT_TRUE(rs->IsEOF());
  // Read-only: writes fail.
  ASSERT_TRUE(rs->SeekID(1));
  ASSERT_TRUE(rs->Edit());
  ASSERT_TRUE(rs->SetFieldValue("CRIME", LumaVariant(1.0)));
  EXPECT_FALSE(rs->Update());
}

TEST(HostDataset, SampleDataCycleHire) {
  auto src = ZoDataSource::Open(satest::DataPath("cycle_hire.gpkg"), false);
  ASSERT_TRUE(src);
  ZoDatasetVector* ds = src->GetDataset(0);
  ASSERT_TRUE(ds);
  EXPECT_EQ(ds->GetName().Str(), "cycle_hire");
  EXPECT_EQ(ds->GetType(), DatasetPoint);
  EXPECT_EQ(ds->GetRecordCount(), 742);
  EXPECT_EQ(ds->GetPrjCoordSys().GetTypeID(), ZoPrjCoordSys::Geographic);
  LumaFieldInfo info;
  ASSERT_TRUE(ds->GetFieldInfo("nbikes", info));
  EXPECT_EQ(info.GetType(), 4);
  ASSERT_TRUE(ds->GetFieldInfo("name", info));
  EXPECT_EQ(info.GetType(), 10);
  RsPtr rs(ds->Query(Q(" Order BY QlID")));
  ASSERT_TRUE(rs);
  const std::vector<std::int64_t> ids = Ids(rs.get());
  ASSERT_EQ(ids.size(), 742u);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_EQ(ids.back(), 777);  // IDs have gaps
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) {
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g));
    ASSERT_EQ(g.GetType(), GeoPoint);
    // Longitude first.
    EXPECT_GT(g.GetPoints()[0].x, -0.24);
    EXPECT_LT(g.GetPoints()[0].x, 0.0);
    EXPECT_GT(g.GetPoints()[0].y, 51.45);
    EXPECT_LT(g.GetPoints()[0].y, 51.55);
  }
}

namespace {

// `n` tabular records with v = 3 * QlID.
ZoDatasetVector* MakeCounted(ZoDataSource* src, int n) {
  ZoDatasetVector* ds = src->CreateDatasetVector("c", DatasetPoint, ZoPrjCoordSys());
  if (!ds || !ds->CreateField(LumaFieldInfo("v", 16))) return nullptr;
  RsPtr rs(ds->Query(Q()));
  for (int i = 0; i < n; ++i) {
    if (!rs->AddNew(ZoGeometry::MakePoint({double(i), 1.0}))) return nullptr;
    if (!rs->Update()) return nullptr;
    rs->Edit();
    rs->SetFieldValue("v", LumaVariant(3 * rs->GetID()));
    if (!rs->Update()) return nullptr;
  }
  return ds->Commit() ? ds : nullptr;
}

void CheckInterleaved(ZoDatasetVector* ds) {
  RsPtr all(ds->Query(Q()));
  RsPtr upper(ds->Query(Q("", "v >= 600")));
  RsPtr desc(ds->Query(Q(" Order BY v DESC")));
  ASSERT_TRUE(all && upper && desc);
  const std::vector<std::int64_t> ids = Ids(all.get());
  ASSERT_EQ(ids.size(), 500u);
  std::vector<std::int64_t> upperIds, descIds(ids.rbegin(), ids.rend());
  for (std::int64_t id : ids)
    if (3 * id >= 600) upperIds.push_back(id);
  ASSERT_EQ(upper->GetRecordCount(), static_cast<std::int64_t>(upperIds.size()));

  // Step all three together; every record must be the expected one with its own values.
  all->MoveFirst();
  upper->MoveFirst();
  desc->MoveFirst();
  for (std::size_t i = 0; i < ids.size(); ++i) {
    ASSERT_EQ(all->GetID(), ids[i]);
    EXPECT_EQ(Value(all.get(), "v"), LumaVariant(3 * ids[i]));
    ASSERT_EQ(desc->GetID(), descIds[i]);
    EXPECT_EQ(Value(desc.get(), "v"), LumaVariant(3 * descIds[i]));
    if (i < upperIds.size()) {
      ASSERT_EQ(upper->GetID(), upperIds[i]);
      EXPECT_EQ(Value(upper.get(), "v"), LumaVariant(3 * upperIds[i]));
      upper->MoveNext();
    }
    all->MoveNext();
    desc->MoveNext();
    if (i % 50 == 0) {
      EXPECT_EQ(ds->GetRecordCount(), 500);  // counting in between
    }
  }
  EXPECT_TRUE(all->IsEOF() && upper->IsEOF() && desc->IsEOF());

  // A recordset in ID order reads with the layer's cursor: the cursor sits
  // just after the record read last. Moving the cursor behind its back does
  // not make it read wrong records.
  RsPtr seq(ds->Query(Q(" Order BY QlID")));
  ASSERT_TRUE(seq->MoveNext());
  ASSERT_TRUE(seq->MoveNext());
  OGRFeatureUniquePtr peek(ds->GetOGRLayer()->GetNextFeature());
  ASSERT_TRUE(peek);
  EXPECT_EQ(peek->GetFID(), ids[3]);
  ds->GetOGRLayer()->ResetReading();
  std::size_t i = 2;
  for (; !seq->IsEOF(); seq->MoveNext(), ++i) {
    ASSERT_EQ(seq->GetID(), ids[i]);
    EXPECT_EQ(Value(seq.get(), "v"), LumaVariant(3 * ids[i]));
  }
  EXPECT_EQ(i, ids.size());
}

void CheckWritesDuringIteration(ZoDatasetVector* ds) {
  RsPtr rs(ds->Query(Q()));
  RsPtr adder(ds->Query(Q("", "v < 0")));
  ASSERT_TRUE(rs && adder);
  EXPECT_EQ(adder->GetRecordCount(), 0);
  const std::vector<std::int64_t> ids = Ids(rs.get());
  std::vector<std::int64_t> added;
  std::size_t i = 0;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext(), ++i) {
    ASSERT_LT(i, ids.size());
    ASSERT_EQ(rs->GetID(), ids[i]);
    ASSERT_TRUE(rs->Edit());
    const std::int64_t v = Value(rs.get(), "v").GetInteger();
    ASSERT_EQ(v, 3 * ids[i]);  // not yet changed: each record is edited once
    ASSERT_TRUE(rs->SetFieldValue("v", LumaVariant(v + 1000000)));
    ASSERT_TRUE(rs->Update());
    EXPECT_EQ(Value(rs.get(), "v"), LumaVariant(v + 1000000));
    if (i % 50 == 7) {
      ASSERT_TRUE(adder->AddNew(ZoGeometry::MakePoint({-1, -1})));
      ASSERT_TRUE(adder->SetFieldValue("v", LumaVariant(-static_cast<std::int64_t>(i))));
      ASSERT_TRUE(adder->Update());
      added.push_back(adder->GetID());
      EXPECT_EQ(Value(adder.get(), "v"), LumaVariant(-static_cast<std::int64_t>(i)));
    }
  }
  EXPECT_EQ(i, ids.size());  // the records appended meanwhile are not in `rs`
  EXPECT_EQ(adder->GetRecordCount(), static_cast<std::int64_t>(added.size()));
  EXPECT_EQ(Ids(adder.get()), added);
  ASSERT_TRUE(ds->Commit());
  RsPtr check(ds->Query(Q()));
  EXPECT_EQ(check->GetRecordCount(), static_cast<std::int64_t>(ids.size() + added.size()));
  for (std::int64_t id : ids) {
    ASSERT_TRUE(check->SeekID(id));
    EXPECT_EQ(Value(check.get(), "v"), LumaVariant(3 * id + 1000000));
  }
}

}  // namespace

TEST(HostDataset, ConcurrentRecordsetsInMemory) {
  auto src = ZoDataSource::CreateMemory();
  ZoDatasetVector* ds = MakeCounted(src.get(), 500);
  ASSERT_TRUE(ds);
  CheckInterleaved(ds);
  CheckWritesDuringIteration(ds);
}

TEST(HostDataset, ConcurrentRecordsetsInGeoPackage) {
  satest::TempDir dir;
  const std::string path = dir.File("c.gpkg");
  {
    auto src = ZoDataSource::OpenOrCreate(path);
    ASSERT_TRUE(MakeCounted(src.get(), 500));
  }
  auto src = ZoDataSource::Open(path, true);
  ASSERT_TRUE(src);
  CheckInterleaved(src->GetDataset("c"));
  CheckWritesDuringIteration(src->GetDataset("c"));
}

TEST(HostDataset, OtherFormatsRoundTrip) {
  satest::TempDir dir;
  EXPECT_EQ(ZoDataSource::DriverForPath("a/b.GPKG").Str(), "GPKG");
  EXPECT_EQ(ZoDataSource::DriverForPath("b.shp").Str(), "ESRI Shapefile");
  EXPECT_EQ(ZoDataSource::DriverForPath("b.json").Str(), "GeoJSON");
  EXPECT_EQ(ZoDataSource::DriverForPath("b.geojson").Str(), "GeoJSON");
  EXPECT_EQ(ZoDataSource::DriverForPath("b.fgb").Str(), "FlatGeobuf");
  EXPECT_EQ(ZoDataSource::DriverForPath("x.dir/b").Str(), "GPKG");
  for (const char* file : {"r.geojson", "r.fgb", "r.shp"}) {
    const std::string path = dir.File(file);
    {
      auto src = ZoDataSource::OpenOrCreate(path);
      ASSERT_TRUE(src) << file;
      ZoDatasetVector* ds = src->CreateDatasetVector("r", DatasetRegion, ZoPrjCoordSys());
      ASSERT_TRUE(ds) << file;
      ASSERT_TRUE(ds->CreateField(LumaFieldInfo("k", 4)));
      RsPtr rs(ds->Query(Q()));
      for (int i = 0; i < 3; ++i) {
        ZoGeometry sq = ZoGeometry::MakeRegion({{0, 0}, {1.0 + i, 0}, {1.0 + i, 1}, {0, 1}, {0, 0}}, {5});
        ASSERT_TRUE(rs->AddNew(sq));
        ASSERT_TRUE(rs->SetFieldValue("k", LumaVariant(10 * i)));
        ASSERT_TRUE(rs->Update()) << file;
      }
    }
    auto src = ZoDataSource::Open(path, false);
    ASSERT_TRUE(src) << file;
    ZoDatasetVector* ds = src->GetDataset(0);
    EXPECT_EQ(ds->GetType(), DatasetRegion) << file;
    RsPtr rs(ds->Query(Q(" Order BY k DESC")));
    ASSERT_TRUE(rs) << file;
    ASSERT_EQ(rs->GetRecordCount(), 3) << file;
    for (int i = 2; i >= 0; --i, rs->MoveNext()) {
      EXPECT_EQ(Value(rs.get(), "k").ToInt(), 10 * i) << file;
      ZoGeometry g;
      ASSERT_TRUE(rs->GetGeometry(g));
      ASSERT_EQ(g.GetType(), GeoRegion);
      EXPECT_NEAR(std::fabs(RingArea(g.GetPoints().data(), g.GetPolyCounts()[0])), 1.0 + i, 1e-12) << file;
    }
  }
  LumaUnicodeString error;
  EXPECT_FALSE(ZoDataSource::Open(dir.File("missing.gpkg"), false, &error));
  EXPECT_FALSE(error.IsEmpty());
}

TEST(HostDataset, CoordinateSystemOfNewDatasets) {
  satest::TempDir dir;
  const std::string path = dir.File("cs.gpkg");
  ZoPrjCoordSys utm;
  ASSERT_TRUE(utm.SetFromUserInput("EPSG:32618"));
  {
    auto src = ZoDataSource::OpenOrCreate(path);
    ZoDatasetVector* a = src->CreateDatasetVector("a", DatasetPoint, ZoPrjCoordSys());
    ZoDatasetVector* b = src->CreateDatasetVector("b", DatasetPoint, utm);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->GetPrjCoordSys().GetTypeID(), ZoPrjCoordSys::Planar);
    EXPECT_TRUE(b->GetPrjCoordSys().IsSame(utm));
    ASSERT_TRUE(a->SetPrjCoordSys(utm));  // still empty
    RsPtr rs(b->Query(Q()));
    ASSERT_TRUE(rs->AddNew(ZoGeometry::MakePoint({500000, 4500000})));
    ASSERT_TRUE(rs->Update());
    EXPECT_FALSE(b->SetPrjCoordSys(ZoPrjCoordSys()));  // has records
    EXPECT_TRUE(b->GetPrjCoordSys().IsSame(utm));
  }
  auto src = ZoDataSource::Open(path, false);
  EXPECT_TRUE(src->GetDataset("a")->GetPrjCoordSys().IsSame(utm));
  EXPECT_EQ(src->GetDataset("b")->GetPrjCoordSys().GetTypeID(), ZoPrjCoordSys::Projected);
}

namespace {

class RecordingProgress : public ZoProgress {
 public:
  explicit RecordingProgress(int cancelAt = -1) : m_cancelAt(cancelAt) {}
  void SetBothPosRange(int, int) override {}
  void SetTitleMessage(const LumaUnicodeString&) override {}
  void SetMessage(const LumaUnicodeString&) override {}
  void SetProgressPos(int pos) override { positions.push_back(pos); }
  bool IsCanceled() override { return m_cancelAt >= 0 && !positions.empty() && positions.back() >= m_cancelAt; }
  std::vector<int> positions;

 private:
  int m_cancelAt;
};

}  // namespace

TEST(HostDataset, AppendRecordsCopiesInSourceOrder) {
  auto src = ZoDataSource::Open(satest::DataPath("columbus.gpkg"), false);
  ASSERT_TRUE(src);
  ZoDatasetVector* columbus = src->GetDataset("columbus");
  auto mem = ZoDataSource::CreateMemory();
  ZoDatasetVector* out = mem->CreateDatasetVector("out", DatasetRegion, columbus->GetPrjCoordSys());
  ASSERT_TRUE(out);
  ASSERT_TRUE(out->CreateField(LumaFieldInfo("src_id", 4)));
  ASSERT_TRUE(out->CreateField(LumaFieldInfo("crime", 7)));
  ASSERT_TRUE(out->CreateField(LumaFieldInfo("pid", 4)));   // from a 64-bit field
  ASSERT_TRUE(out->CreateField(LumaFieldInfo("hoval", 10)));  // number to text
  const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>> map = {
      {"QlID", "src_id"}, {"CRIME", "crime"}, {"POLYID", "pid"}, {"HOVAL", "hoval"}};

  RsPtr source(columbus->Query(Q(" Order BY CRIME DESC")));
  ASSERT_TRUE(source);
  RecordingProgress progress;
  ASSERT_TRUE(out->AppendRecords(source.get(), map, &progress));
  ASSERT_FALSE(progress.positions.empty());
  EXPECT_EQ(progress.positions.front(), 0);
  EXPECT_EQ(progress.positions.back(), 100);
  EXPECT_TRUE(std::is_sorted(progress.positions.begin(), progress.positions.end()));
  ASSERT_EQ(out->GetRecordCount(), 49);

  RsPtr copy(out->Query(Q()));
  source->MoveFirst();
  for (copy->MoveFirst(); !copy->IsEOF(); copy->MoveNext(), source->MoveNext()) {
    ASSERT_FALSE(source->IsEOF());
    EXPECT_EQ(Value(copy.get(), "src_id"), LumaVariant(source->GetID()));
    EXPECT_EQ(Value(copy.get(), "crime"), Value(source.get(), "CRIME"));
    EXPECT_EQ(Value(copy.get(), "pid").ToInt64(), Value(source.get(), "POLYID").ToInt64());
    EXPECT_EQ(Value(copy.get(), "hoval").ToDouble(), Value(source.get(), "HOVAL").ToDouble());
    ZoGeometry a, b;
    ASSERT_TRUE(copy->GetGeometry(a));
    ASSERT_TRUE(source->GetGeometry(b));
    EXPECT_EQ(a.GetPoints(), b.GetPoints());
    EXPECT_EQ(a.GetRingCounts(), b.GetRingCounts());
  }
  EXPECT_TRUE(source->IsEOF());

  // Cancelled part way; unknown fields are refused before anything is written.
  RecordingProgress cancel(30);
  EXPECT_FALSE(out->AppendRecords(source.get(), map, &cancel));
  EXPECT_LT(out->GetRecordCount(), 98);
  const std::int64_t before = out->GetRecordCount();
  EXPECT_FALSE(out->AppendRecords(source.get(), {{"nosuch", "crime"}}));
  EXPECT_FALSE(out->AppendRecords(source.get(), {{"CRIME", "QlID"}}));
  EXPECT_FALSE(out->AppendRecords(nullptr, map));
  EXPECT_EQ(out->GetRecordCount(), before);
}

TEST(HostDataset, RecordsetOutlivingItsDatasource) {
  auto mem = ZoDataSource::CreateMemory();
  ZoDatasetVector* ds = MakeCounted(mem.get(), 5);
  ASSERT_TRUE(ds);
  ZoRecordset* rs = ds->Query(Q());
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->GetDataset(), ds);
  mem.reset();
  EXPECT_TRUE(rs->IsEOF());
  EXPECT_FALSE(rs->MoveFirst());
  EXPECT_FALSE(rs->MoveNext());
  EXPECT_EQ(rs->GetID(), -1);
  LumaVariant v;
  EXPECT_FALSE(rs->GetFieldValue("v", v));
  EXPECT_FALSE(rs->AddNew(ZoGeometry()));
  EXPECT_EQ(rs->GetDataset(), nullptr);
  delete rs;
}

// A million records read in ID order: one pass through the layer's cursor,
// no per-record look-ups (the cursor is where the recordset left it).
TEST(HostDataset, MillionRecordsReadSequentially) {
  constexpr int kN = 1000000;
  auto mem = ZoDataSource::CreateMemory();
  ZoDatasetVector* ds = mem->CreateDatasetVector("big", DatasetTabular, ZoPrjCoordSys());
  ASSERT_TRUE(ds->CreateField(LumaFieldInfo("v", 4)));
  {
    RsPtr rs(ds->Query(Q()));
    for (int i = 0; i < kN; ++i) {
      ASSERT_TRUE(rs->AddNew(ZoGeometry()));
      ASSERT_TRUE(rs->SetFieldValue("v", LumaVariant(i % 1000)));
      ASSERT_TRUE(rs->Update());
    }
  }
  RsPtr rs(ds->Query(Q(" Order BY QlID")));
  ASSERT_EQ(rs->GetRecordCount(), kN);
  std::int64_t last = -1, n = 0;
  for (; !rs->IsEOF(); rs->MoveNext(), ++n) {
    const std::int64_t id = rs->GetID();
    ASSERT_GT(id, last);
    last = id;
    LumaVariant v;
    ASSERT_TRUE(rs->GetFieldValue("v", v));
    ASSERT_EQ(v.GetInteger(), n % 1000);
    if (n == kN / 2) {
      // The layer cursor is right behind the current record.
      OGRFeatureUniquePtr next(ds->GetOGRLayer()->GetNextFeature());
      ASSERT_TRUE(next);
      EXPECT_EQ(next->GetFID(), id + 1);
    }
  }
  EXPECT_EQ(n, kN);
  // Ordered on a key with many ties.
  RsPtr byV(ds->Query(Q(" Order BY v DESC")));
  ASSERT_TRUE(byV);
  ASSERT_TRUE(byV->MoveFirst());
  EXPECT_EQ(Value(byV.get(), "v"), LumaVariant(999));
  EXPECT_EQ(byV->GetID(), last - kN + 1000);  // the first record with v = 999
}
