// ZoResultWriter: a result reaches the output whole, in every format, or not
// at all.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"
#include "host/ZoResultWriter.h"

using namespace ZOC;
namespace fs = std::filesystem;

namespace {

constexpr int kFeatures = 25;

std::string PointWkt(int i) {
  const double x = 500000 + 37.5 * i, y = 4000000 + 11.25 * (i % 7);
  return "MULTIPOINT Z ((" + std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(i) + "),(" +
         std::to_string(x + 1) + " " + std::to_string(y + 2) + " " + std::to_string(i + 0.5) + "))";
}

// A GeoPackage layer of 3-D multipoints in UTM zone 33N, written with GDAL.
void WriteSource(const std::string& path, int count) {
  GDALAllRegister();
  GDALDatasetUniquePtr ds(
      GetGDALDriverManager()->GetDriverByName("GPKG")->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
  ASSERT_TRUE(ds);
  OGRSpatialReference srs;
  srs.importFromEPSG(32633);
  OGRLayer* layer = ds->CreateLayer("src", &srs, wkbMultiPoint25D, nullptr);
  ASSERT_TRUE(layer);
  for (int i = 0; i < count; ++i) {
    OGRFeatureUniquePtr f(OGRFeature::CreateFeature(layer->GetLayerDefn()));
    OGRGeometry* g = nullptr;
    const std::string wkt = PointWkt(i);
    ASSERT_EQ(OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &g), OGRERR_NONE);
    f->SetGeometryDirectly(g);
    ASSERT_EQ(layer->CreateFeature(f.get()), OGRERR_NONE);
  }
}

// Prepares `writer` for `path` and fills its result from the source: every
// geometry and a field "Result_Score" (long enough to be shortened by some
// formats) holding 0.5·k.
ZoDatasetVector* FillResult(ZoResultWriter& writer, ZoDatasetVector* source, const std::string& path, bool overwrite) {
  if (!writer.Prepare(path, "res", overwrite, {})) {
    ADD_FAILURE() << writer.GetError().Str();
    return nullptr;
  }
  ZoDatasetVector* result = writer.CreateResult(source, 0, ZoPrjCoordSys());
  EXPECT_TRUE(result) << writer.GetError().Str();
  if (!result || !result->CreateField(LUMA::LumaFieldInfo("Result_Score", LUMA::FieldDouble))) return nullptr;
  std::unique_ptr<ZoRecordset> records(source->Query(ZoQueryDef()));
  const bool ok = result->AppendRecords(records.get(), {}, nullptr, {"Result_Score"},
                                        [](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                                          values[0] = 0.5 * static_cast<double>(k);
                                          return true;
                                        });
  EXPECT_TRUE(ok);
  return ok ? result : nullptr;
}

std::vector<std::string> FilesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

// Each format read back with GDAL directly: every feature with its 3-D
// multipoint as the source had it, the value written for it, and the
// coordinate system with its EPSG code.
TEST(ZoResultWriter, EveryFormatHoldsTheWholeResult) {
  satest::TempDir dir;
  WriteSource(dir.File("src.gpkg"), kFeatures);
  auto source = ZoDataSource::Open(dir.File("src.gpkg"), false);
  ASSERT_TRUE(source);
  for (const char* file : {"r.gpkg", "r.shp", "r.geojson", "r.fgb", "r.csv", "r.gml", "r.sqlite"}) {
    SCOPED_TRACE(file);
    ZoResultWriter writer;
    ZoDatasetVector* result = FillResult(writer, source->GetDataset(0), dir.File(file), false);
    ASSERT_TRUE(result);
    ASSERT_TRUE(writer.Commit(nullptr)) << writer.GetError().Str();
    EXPECT_EQ(writer.GetWrittenCount(), kFeatures);
    EXPECT_EQ(result->GetRecordCount(), kFeatures);  // still readable after the commit

    GDALDatasetUniquePtr back(GDALDataset::Open(dir.File(file).c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->GetLayerCount(), 1);
    OGRLayer* layer = back->GetLayer(0);
    EXPECT_EQ(std::string(layer->GetName()), writer.GetLayerName().Str());
    ASSERT_EQ(layer->GetFeatureCount(TRUE), kFeatures);
    const int scoreField =
        layer->GetLayerDefn()->GetFieldIndex(std::string(file) == "r.shp" ? "Result_Sco" : "Result_Score");
    ASSERT_GE(scoreField, 0);
    int k = 0;
    for (auto& f : *layer) {
      OGRGeometry* expected = nullptr;
      const std::string wkt = PointWkt(k);
      OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &expected);
      const OGRGeometry* got = f->GetGeometryRef();
      ASSERT_TRUE(got);
      EXPECT_EQ(wkbFlatten(got->getGeometryType()), wkbMultiPoint);
      EXPECT_TRUE(got->Is3D());
      EXPECT_TRUE(got->Equals(expected)) << got->exportToWkt();
      EXPECT_DOUBLE_EQ(f->GetFieldAsDouble(scoreField), 0.5 * k);
      OGRGeometryFactory::destroyGeometry(expected);
      ++k;
    }
    if (std::string(file) == "r.csv") continue;  // a CSV file keeps no coordinate system of its own
    ASSERT_TRUE(layer->GetSpatialRef());
    OGRSpatialReference srs(*layer->GetSpatialRef());
    srs.AutoIdentifyEPSG();
    const char* code = srs.GetAuthorityCode(nullptr);
    EXPECT_STREQ(code ? code : "", "32633");
  }
  // Nothing but the outputs (and their companion files) in the folder.
  for (const auto& name : FilesIn(dir.path())) EXPECT_NE(name.front(), '.') << name;
}

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Abandoned after the analysis wrote its result, or cancelled while the
// result is being put in place: the old output stays as it was (byte for
// byte when abandoned), and no temporary layer or file is left.
TEST(ZoResultWriter, CancelledCommitLeavesTheOutputAsItWas) {
  satest::TempDir dir;
  WriteSource(dir.File("big.gpkg"), 5000);
  auto source = ZoDataSource::Open(dir.File("big.gpkg"), false);
  ASSERT_TRUE(source);
  fs::create_directory(dir.path() / "out");
  const std::string gpkg = (dir.path() / "out" / "o.gpkg").string(), shp = (dir.path() / "out" / "o.shp").string();
  {
    satest::TempDir small;
    WriteSource(small.File("s.gpkg"), 3);
    auto few = ZoDataSource::Open(small.File("s.gpkg"), false);
    for (const std::string& path : {gpkg, shp}) {
      ZoResultWriter first;
      ASSERT_TRUE(FillResult(first, few->GetDataset(0), path, false));
      ASSERT_TRUE(first.Commit(nullptr)) << first.GetError().Str();
    }
  }
  const std::vector<std::string> before = FilesIn(dir.path() / "out");
  for (const std::string& path : {gpkg, shp}) {
    SCOPED_TRACE(path);
    const std::string old = Bytes(path);
    {
      ZoResultWriter abandoned;
      ASSERT_TRUE(FillResult(abandoned, source->GetDataset(0), path, true));
    }
    EXPECT_EQ(FilesIn(dir.path() / "out"), before);
    EXPECT_TRUE(Bytes(path) == old);
    ZoResultWriter writer;
    ASSERT_TRUE(FillResult(writer, source->GetDataset(0), path, true));
    ZoCallbackProgress cancelAfterAFifth([](const ZoProgressState& s) { return s.percent < 20.0; });
    EXPECT_FALSE(writer.Commit(&cancelAfterAFifth));
    EXPECT_NE(writer.GetError().Str().find("[IMb030]"), std::string::npos) << writer.GetError().Str();

    GDALDatasetUniquePtr back(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->GetLayerCount(), 1);
    EXPECT_EQ(back->GetLayer(0)->GetFeatureCount(TRUE), 3);
  }
  EXPECT_EQ(FilesIn(dir.path() / "out"), before);
}

// Refusals happen in Prepare, before anything is created.
TEST(ZoResultWriter, RefusesBeforeWriting) {
  satest::TempDir dir;
  WriteSource(dir.File("in.gpkg"), 3);
  fs::create_symlink(dir.path() / "in.gpkg", dir.path() / "link.gpkg");
  ZoResultWriter same;
  EXPECT_FALSE(same.Prepare(dir.File("link.gpkg"), "x", true, {dir.File("in.gpkg")}));
  EXPECT_NE(same.GetError().Str().find("[EUa011]"), std::string::npos);
  EXPECT_FALSE(same.IsUsageError());

  ZoResultWriter unknown;
  EXPECT_FALSE(unknown.Prepare(dir.File("out.nosuchformat"), "x", false, {}));
  EXPECT_TRUE(unknown.IsUsageError());
  EXPECT_NE(unknown.GetError().Str().find("[EUa012]"), std::string::npos);

  ZoResultWriter existing;
  EXPECT_FALSE(existing.Prepare(dir.File("in.gpkg"), "SRC", false, {}));
  EXPECT_NE(existing.GetError().Str().find("[EUa010]"), std::string::npos);

  // DXF keeps no attribute fields: found on the trial feature, before any work.
  auto source = ZoDataSource::Open(dir.File("in.gpkg"), false);
  ZoResultWriter dxf;
  ASSERT_TRUE(dxf.Prepare(dir.File("out.dxf"), "x", false, {}));
  EXPECT_FALSE(dxf.CreateResult(source->GetDataset(0), 0, ZoPrjCoordSys()));
  EXPECT_NE(dxf.GetError().Str().find("[EUa017]"), std::string::npos) << dxf.GetError().Str();
  EXPECT_EQ(FilesIn(dir.path()), (std::vector<std::string>{"in.gpkg", "link.gpkg"}));
}

namespace {

// Prepares `writer` for a table of `rows` rows: "Distance" (a real, k/4, null
// in every third row) and "Valid" (an integer, k % 2), the way the front ends
// write a result that has no geometries.
bool WriteTable(ZoResultWriter& writer, const std::string& path, bool overwrite, int rows) {
  if (!writer.Prepare(path, "bands", overwrite, {})) return false;
  ZoDatasetVector* table = writer.CreateResult(nullptr, DatasetTabular, ZoPrjCoordSys());
  if (!table) return false;
  EXPECT_TRUE(table->CreateField(LUMA::LumaFieldInfo("Distance", LUMA::FieldDouble)));
  EXPECT_TRUE(table->CreateField(LUMA::LumaFieldInfo("Valid", LUMA::FieldInt32)));
  std::unique_ptr<ZoRecordset> records(table->Query(ZoQueryDef()));
  for (int k = 0; records && k < rows; ++k) {
    EXPECT_TRUE(records->AddNew(ZoGeometry()));
    records->SetFieldValue("Distance", k % 3 == 2 ? LUMA::LumaVariant() : LUMA::LumaVariant(k / 4.0));
    records->SetFieldValue("Valid", LUMA::LumaVariant(k % 2));
    EXPECT_TRUE(records->Update());
  }
  return records != nullptr;
}

}  // namespace

// A result without geometries (a table) in every format that holds one, new
// and replacing an older table in the same file; read back with GDAL, null
// values included. Shapefile and FlatGeobuf are refused before any work,
// with nothing left behind (a Shapefile's table is written as .dbf).
TEST(ZoResultWriter, TablesReachEveryFormatThatHoldsThem) {
  satest::TempDir dir;
  for (const char* file : {"t.gpkg", "t.sqlite", "t.csv", "t.geojson", "t.dbf", "t.xlsx", "t.ods"}) {
    SCOPED_TRACE(file);
    for (const int rows : {5, 9}) {  // the second run replaces the first
      ZoResultWriter writer;
      ASSERT_TRUE(WriteTable(writer, dir.File(file), rows == 9, rows)) << writer.GetError().Str();
      ASSERT_TRUE(writer.Commit(nullptr)) << writer.GetError().Str();
      EXPECT_EQ(writer.GetWrittenCount(), rows);
    }
    // SQLite lists its tables without geometries only when asked to.
    const char* listAll[] = {"LIST_ALL_TABLES=YES", nullptr};
    const bool sqlite = std::string(file) == "t.sqlite";
    GDALDatasetUniquePtr back(GDALDataset::Open(dir.File(file).c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr,
                                                sqlite ? listAll : nullptr, nullptr));
    ASSERT_TRUE(back);
    OGRLayer* layer = back->GetLayerCount() == 1 ? back->GetLayer(0) : back->GetLayerByName("bands");
    ASSERT_TRUE(layer);
    ASSERT_EQ(layer->GetFeatureCount(TRUE), 9);
    const int distance = layer->GetLayerDefn()->GetFieldIndex("Distance");
    const int valid = layer->GetLayerDefn()->GetFieldIndex("Valid");
    ASSERT_GE(distance, 0);
    ASSERT_GE(valid, 0);
    int k = 0;
    for (auto& f : *layer) {
      EXPECT_EQ(f->IsFieldSetAndNotNull(distance), k % 3 != 2) << k;
      if (k % 3 != 2) {
        EXPECT_DOUBLE_EQ(f->GetFieldAsDouble(distance), k / 4.0);
      }
      EXPECT_EQ(f->GetFieldAsInteger(valid), k % 2);
      ++k;
    }
  }
  for (const char* file : {"t.shp", "t.fgb"}) {
    SCOPED_TRACE(file);
    ZoResultWriter writer;
    EXPECT_FALSE(WriteTable(writer, dir.File(file), false, 3));
    EXPECT_NE(writer.GetError().Str().find("[EUa017]"), std::string::npos) << writer.GetError().Str();
  }
  for (const auto& name : FilesIn(dir.path())) {
    EXPECT_NE(name.front(), '.') << name;
    EXPECT_EQ(name.rfind("t.", 0), 0u) << name;
    EXPECT_EQ(name.find(".shp"), std::string::npos) << name;
    EXPECT_EQ(name.find(".fgb"), std::string::npos) << name;
  }
}
