// ZoResultWriter: a result reaches the output whole, in every format, or not
// at all. (Refusals in Prepare are run through zostat by tests/hostile.)
#include <gtest/gtest.h>

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
using satest::FilesIn;
using satest::FillResult;

namespace {

constexpr int kFeatures = 25;

std::string PointWkt(int i) {
  const double x = 500000 + 37.5 * i, y = 4000000 + 11.25 * (i % 7);
  return "MULTIPOINT Z ((" + std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(i) + "),(" +
         std::to_string(x + 1) + " " + std::to_string(y + 2) + " " + std::to_string(i + 0.5) + "))";
}

// A GeoPackage layer of 3-D multipoints in UTM zone 33N.
void WriteSource(const std::string& path, int count) {
  std::vector<std::string> wkts;
  for (int i = 0; i < count; ++i) wkts.push_back(PointWkt(i));
  ASSERT_TRUE(satest::WriteGdalLayer(path, "src", wkbMultiPoint25D, wkts, 32633));
}

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
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
  for (const std::string file : {"r.gpkg", "r.shp", "r.geojson", "r.fgb", "r.csv", "r.gml", "r.sqlite"}) {
    SCOPED_TRACE(file);
    ZoResultWriter writer;
    ZoDatasetVector* result = FillResult(writer, source->GetDataset(0), dir.File(file), false);
    ASSERT_TRUE(result && writer.Commit(nullptr)) << writer.GetError().Str();
    EXPECT_EQ(writer.GetWrittenCount(), kFeatures);
    EXPECT_EQ(result->GetRecordCount(), kFeatures);  // still readable after the commit

    GDALDatasetUniquePtr back(GDALDataset::Open(dir.File(file).c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    ASSERT_TRUE(back && back->GetLayerCount() == 1);
    OGRLayer* layer = back->GetLayer(0);
    EXPECT_EQ(std::string(layer->GetName()), writer.GetLayerName().Str());
    ASSERT_EQ(layer->GetFeatureCount(TRUE), kFeatures);
    const int score = layer->GetLayerDefn()->GetFieldIndex(file == "r.shp" ? "Result_Sco" : "Result_Score");
    ASSERT_GE(score, 0);
    int k = 0;
    for (auto& f : *layer) {
      OGRGeometry* expected = nullptr;
      OGRGeometryFactory::createFromWkt(PointWkt(k).c_str(), nullptr, &expected);
      const OGRGeometry* got = f->GetGeometryRef();
      ASSERT_TRUE(got);
      EXPECT_TRUE(wkbFlatten(got->getGeometryType()) == wkbMultiPoint && got->Is3D() && got->Equals(expected))
          << got->exportToWkt();
      EXPECT_DOUBLE_EQ(f->GetFieldAsDouble(score), 0.5 * k++);
      OGRGeometryFactory::destroyGeometry(expected);
    }
    if (file == "r.csv") continue;  // a CSV file keeps no coordinate system of its own
    ASSERT_TRUE(layer->GetSpatialRef());
    OGRSpatialReference srs(*layer->GetSpatialRef());
    srs.AutoIdentifyEPSG();
    const char* code = srs.GetAuthorityCode(nullptr);
    EXPECT_STREQ(code ? code : "", "32633");
  }
  // Nothing but the outputs (and their companion files) in the folder.
  for (const auto& name : FilesIn(dir.path())) EXPECT_NE(name.front(), '.') << name;
}

// Abandoned after the analysis wrote its result, or cancelled while the
// result is being put in place: the old output stays as it was (byte for
// byte when abandoned), and no temporary layer or file is left.
TEST(ZoResultWriter, CancelledCommitLeavesTheOutputAsItWas) {
  satest::TempDir dir;
  WriteSource(dir.File("big.gpkg"), 5000);
  WriteSource(dir.File("small.gpkg"), 3);
  auto source = ZoDataSource::Open(dir.File("big.gpkg"), false),
       few = ZoDataSource::Open(dir.File("small.gpkg"), false);
  ASSERT_TRUE(source && few);
  std::filesystem::create_directory(dir.path() / "out");
  const std::vector<std::string> paths = {dir.File("out/o.gpkg"), dir.File("out/o.shp")};
  for (const std::string& path : paths) {
    ZoResultWriter first;
    ASSERT_TRUE(FillResult(first, few->GetDataset(0), path, false) && first.Commit(nullptr)) << first.GetError().Str();
  }
  const std::vector<std::string> before = FilesIn(dir.path() / "out");
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    const std::string old = Bytes(path);
    {
      ZoResultWriter abandoned;
      ASSERT_TRUE(FillResult(abandoned, source->GetDataset(0), path, true)) << abandoned.GetError().Str();
    }
    EXPECT_EQ(FilesIn(dir.path() / "out"), before);
    EXPECT_TRUE(Bytes(path) == old);
    ZoResultWriter writer;
    ASSERT_TRUE(FillResult(writer, source->GetDataset(0), path, true)) << writer.GetError().Str();
    ZoCallbackProgress cancelAfterAFifth([](const ZoProgressState& s) { return s.percent < 20.0; });
    EXPECT_FALSE(writer.Commit(&cancelAfterAFifth));
    EXPECT_EQ(satest::MessageIds(writer.GetError()), std::vector<std::string>{"IMb030"}) << writer.GetError().Str();
    GDALDatasetUniquePtr back(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    ASSERT_TRUE(back && back->GetLayerCount() == 1);
    EXPECT_EQ(back->GetLayer(0)->GetFeatureCount(TRUE), 3);
  }
  EXPECT_EQ(FilesIn(dir.path() / "out"), before);
}

// A result without geometries (a table), the way the front ends write one, in
// every format that holds one, new and replacing an older table in the same
// file; read back with GDAL, null values included. FlatGeobuf (and Shapefile,
// whose table would go to a .dbf) refuse it before any work, leaving nothing.
TEST(ZoResultWriter, TablesReachEveryFormatThatHoldsThem) {
  // "Distance" (a real, k/4, null in every third row) and "Valid" (k % 2).
  const auto writeTable = [](ZoResultWriter& writer, const std::string& path, bool overwrite, int rows) {
    ZoDatasetVector* table = writer.Prepare(path, "bands", overwrite, {})
                                 ? writer.CreateResult(nullptr, DatasetTabular, ZoPrjCoordSys())
                                 : nullptr;
    if (!table) return false;
    EXPECT_TRUE(table->CreateField(LUMA::LumaFieldInfo("Distance", LUMA::FieldDouble)) &&
                table->CreateField(LUMA::LumaFieldInfo("Valid", LUMA::FieldInt32)));
    std::unique_ptr<ZoRecordset> records(table->Query(ZoQueryDef()));
    for (int k = 0; records && k < rows; ++k)
      EXPECT_TRUE(records->AddNew(ZoGeometry()) &&
                  records->SetFieldValue("Distance", k % 3 == 2 ? LUMA::LumaVariant() : LUMA::LumaVariant(k / 4.0)) &&
                  records->SetFieldValue("Valid", LUMA::LumaVariant(k % 2)) && records->Update());
    return records != nullptr;
  };
  satest::TempDir dir;
  for (const std::string file : {"t.gpkg", "t.sqlite", "t.csv", "t.geojson", "t.dbf", "t.xlsx", "t.ods"}) {
    SCOPED_TRACE(file);
    for (const int rows : {5, 9}) {  // the second run replaces the first
      ZoResultWriter writer;
      ASSERT_TRUE(writeTable(writer, dir.File(file), rows == 9, rows) && writer.Commit(nullptr))
          << writer.GetError().Str();
      EXPECT_EQ(writer.GetWrittenCount(), rows);
    }
    // SQLite lists its tables without geometries only when asked to.
    const char* listAll[] = {"LIST_ALL_TABLES=YES", nullptr};
    GDALDatasetUniquePtr back(GDALDataset::Open(dir.File(file).c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr,
                                                file == "t.sqlite" ? listAll : nullptr, nullptr));
    ASSERT_TRUE(back);
    OGRLayer* layer = back->GetLayerCount() == 1 ? back->GetLayer(0) : back->GetLayerByName("bands");
    ASSERT_TRUE(layer);
    ASSERT_EQ(layer->GetFeatureCount(TRUE), 9);
    const int distance = layer->GetLayerDefn()->GetFieldIndex("Distance");
    const int valid = layer->GetLayerDefn()->GetFieldIndex("Valid");
    ASSERT_TRUE(distance >= 0 && valid >= 0);
    int k = 0;
    for (auto& f : *layer) {
      EXPECT_EQ(f->IsFieldSetAndNotNull(distance), k % 3 != 2) << k;
      EXPECT_TRUE(k % 3 == 2 || f->GetFieldAsDouble(distance) == k / 4.0) << k;
      EXPECT_EQ(f->GetFieldAsInteger(valid), k++ % 2);
    }
  }
  for (const char* file : {"t.shp", "t.fgb"}) {
    ZoResultWriter writer;
    EXPECT_FALSE(writeTable(writer, dir.File(file), false, 3));
    EXPECT_EQ(satest::MessageIds(writer.GetError()), std::vector<std::string>{"EUa017"}) << writer.GetError().Str();
  }
  for (const auto& name : FilesIn(dir.path()))
    EXPECT_TRUE(name.rfind("t.", 0) == 0 && name.find(".shp") == std::string::npos &&
                name.find(".fgb") == std::string::npos)
        << name;
}
