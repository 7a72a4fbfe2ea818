// Result GeoPackages: streamed to disk and given a packed spatial index that
// SQLite, GDAL and later edits all accept as their own.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoRecordset.h"
#include "host/ZoResultWriter.h"

using namespace ZOC;
namespace fs = std::filesystem;

namespace {

struct Box {
  double minx, maxx, miny, maxy;
};

// A GeoPackage layer "src": points (zero-size boxes) or axis-aligned
// rectangles, in one transaction; every 97th feature has no geometry.
std::vector<Box> WriteSource(const std::string& path, int count, bool rectangles) {
  GDALAllRegister();
  GDALDatasetUniquePtr ds(
      GetGDALDriverManager()->GetDriverByName("GPKG")->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
  OGRSpatialReference srs;
  srs.importFromEPSG(32633);
  OGRLayer* layer = ds->CreateLayer("src", &srs, rectangles ? wkbPolygon : wkbPoint, nullptr);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> at(-1000.0, 1000.0), size(0.0, 40.0);
  std::vector<Box> boxes;
  ds->StartTransaction();
  for (int i = 0; i < count; ++i) {
    OGRFeatureUniquePtr f(OGRFeature::CreateFeature(layer->GetLayerDefn()));
    const double x = at(random), y = at(random), w = rectangles ? size(random) : 0, h = rectangles ? size(random) : 0;
    boxes.push_back(i % 97 == 5 ? Box{NAN, NAN, NAN, NAN} : Box{x, x + w, y, y + h});
    if (i % 97 != 5) {
      OGRPolygon polygon;
      OGRLinearRing ring;
      for (auto [px, py] : {std::pair{x, y}, {x + w, y}, {x + w, y + h}, {x, y + h}, {x, y}}) ring.addPoint(px, py);
      polygon.addRing(&ring);
      OGRPoint point(x, y);
      if (rectangles)
        f->SetGeometry(&polygon);
      else
        f->SetGeometry(&point);
    }
    EXPECT_EQ(layer->CreateFeature(f.get()), OGRERR_NONE);
  }
  ds->CommitTransaction();
  return boxes;
}

// Streams the source's geometries and a value 0.5·k per feature into
// `path`, layer "res", through the result writer.
void WriteResult(const std::string& sourcePath, const std::string& path, bool overwrite) {
  auto source = ZoDataSource::Open(sourcePath, false);
  ASSERT_TRUE(source);
  ZoResultWriter writer;
  ASSERT_TRUE(writer.Prepare(path, "res", overwrite, {})) << writer.GetError().Str();
  ZoDatasetVector* result = writer.CreateResult(source->GetDataset(0), 0, ZoPrjCoordSys());
  ASSERT_TRUE(result) << writer.GetError().Str();
  ASSERT_TRUE(result->CreateField(LUMA::LumaFieldInfo("Score", LUMA::FieldDouble)));
  std::unique_ptr<ZoRecordset> records(source->GetDataset(0)->Query(ZoQueryDef()));
  ASSERT_TRUE(result->AppendRecords(records.get(), {}, nullptr, {"Score"},
                                    [](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                                      values[0] = 0.5 * static_cast<double>(k);
                                      return true;
                                    }));
  ASSERT_TRUE(writer.Commit(nullptr)) << writer.GetError().Str();
}

std::string Ask(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* s = nullptr;
  std::string answer = "(no answer)";
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW)
    answer = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
  else
    answer = sqlite3_errmsg(db);
  sqlite3_finalize(s);
  sqlite3_close(db);
  return answer;
}

// SQLite's own checks of the file and of the R-tree's structure, and that
// the index holds one entry per feature with a geometry.
void ExpectSoundIndex(const std::string& path, long long withGeometry) {
  EXPECT_EQ(Ask(path, "PRAGMA integrity_check"), "ok");
  EXPECT_EQ(Ask(path, "SELECT rtreecheck('rtree_res_geom')"), "ok");
  EXPECT_EQ(Ask(path, "SELECT count(*) FROM rtree_res_geom"), std::to_string(withGeometry));
  EXPECT_EQ(Ask(path,
                "SELECT count(*) FROM gpkg_extensions WHERE table_name = 'res' AND column_name = 'geom' AND "
                "extension_name = 'gpkg_rtree_index'"),
            "1");
  EXPECT_EQ(Ask(path, "SELECT count(*) FROM sqlite_master WHERE type = 'trigger' AND name LIKE 'rtree_res_geom_%'"),
            "6");
}

// GDAL's spatial filter (which goes through the index) against a test of
// every box, over windows small and large.
void ExpectFilterMatchesBruteForce(OGRLayer& layer, const std::vector<Box>& boxes) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> at(-1100.0, 1100.0), size(1.0, 300.0);
  for (int window = 0; window < 25; ++window) {
    const double x = at(random), y = at(random), w = size(random), h = size(random);
    std::set<GIntBig> expected, got;
    for (std::size_t k = 0; k < boxes.size(); ++k)
      if (boxes[k].minx <= x + w && boxes[k].maxx >= x && boxes[k].miny <= y + h && boxes[k].maxy >= y)
        expected.insert(static_cast<GIntBig>(k) + 1);
    layer.SetSpatialFilterRect(x, y, x + w, y + h);
    for (auto& f : layer) got.insert(f->GetFID());
    EXPECT_EQ(got, expected) << "window " << x << " " << y << " " << w << " " << h;
  }
  layer.SetSpatialFilter(nullptr);
}

long long WithGeometry(const std::vector<Box>& boxes) {
  return std::count_if(boxes.begin(), boxes.end(), [](const Box& b) { return !std::isnan(b.minx); });
}

}  // namespace

// More features than one write transaction holds: every value and point
// reads back as written, and the packed index is one SQLite and GDAL accept.
TEST(ResultGeoPackage, StreamedPointsReadBackWithASoundIndex) {
  satest::TempDir dir;
  const int n = 120000;
  const std::vector<Box> boxes = WriteSource(dir.File("src.gpkg"), n, false);
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), false));
  ExpectSoundIndex(dir.File("out.gpkg"), WithGeometry(boxes));

  GDALDatasetUniquePtr back(GDALDataset::Open(dir.File("out.gpkg").c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
  ASSERT_TRUE(back);
  OGRLayer* layer = back->GetLayerByName("res");
  ASSERT_TRUE(layer);
  ASSERT_EQ(layer->GetFeatureCount(TRUE), n);
  int k = 0, mismatches = 0;
  for (auto& f : *layer) {
    const OGRGeometry* g = f->GetGeometryRef();
    const bool same = std::isnan(boxes[k].minx)
                          ? g == nullptr
                          : g && g->toPoint()->getX() == boxes[k].minx && g->toPoint()->getY() == boxes[k].miny;
    mismatches += !same || f->GetFID() != k + 1 || f->GetFieldAsDouble("Score") != 0.5 * k;
    ++k;
  }
  EXPECT_EQ(mismatches, 0);
  ExpectFilterMatchesBruteForce(*layer, boxes);
  for (const auto& name : {"src.gpkg", "out.gpkg"}) EXPECT_TRUE(fs::exists(dir.path() / name));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 2);
}

// Rectangles replacing a layer of an existing file: the index follows the
// layer's new name, its triggers keep it right through GDAL's own inserts,
// moves and deletes, and the neighbouring layer is untouched.
TEST(ResultGeoPackage, IndexOfAReplacedLayerFollowsLaterEdits) {
  satest::TempDir dir;
  std::vector<Box> boxes = WriteSource(dir.File("src.gpkg"), 3000, true);
  WriteSource(dir.File("out.gpkg"), 10, false);  // "src", a neighbour
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), false));
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), true));
  ExpectSoundIndex(dir.File("out.gpkg"), WithGeometry(boxes));
  EXPECT_EQ(Ask(dir.File("out.gpkg"),
                "SELECT group_concat(table_name) FROM (SELECT table_name FROM gpkg_contents ORDER BY table_name)"),
            "res,src");
  {
    GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File("out.gpkg").c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE));
    OGRLayer* layer = ds->GetLayerByName("res");
    ASSERT_TRUE(layer);
    auto square = [](double x, double y) {
      OGRGeometry* g = nullptr;
      const std::string wkt = "POLYGON ((" + std::to_string(x) + " " + std::to_string(y) + "," + std::to_string(x + 1) +
                              " " + std::to_string(y) + "," + std::to_string(x + 1) + " " + std::to_string(y + 1) +
                              "," + std::to_string(x) + " " + std::to_string(y) + "))";
      OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &g);
      return g;
    };
    OGRFeatureUniquePtr added(OGRFeature::CreateFeature(layer->GetLayerDefn()));
    added->SetGeometryDirectly(square(5000, 5000));
    ASSERT_EQ(layer->CreateFeature(added.get()), OGRERR_NONE);
    boxes.push_back({5000, 5001, 5000, 5001});
    OGRFeatureUniquePtr moved(layer->GetFeature(2));
    moved->SetGeometryDirectly(square(-5000, 7));
    ASSERT_EQ(layer->SetFeature(moved.get()), OGRERR_NONE);
    boxes[1] = {-5000, -4999, 7, 8};
    ASSERT_EQ(layer->DeleteFeature(1), OGRERR_NONE);
    boxes[0] = {NAN, NAN, NAN, NAN};
  }
  ExpectSoundIndex(dir.File("out.gpkg"), WithGeometry(boxes));
  GDALDatasetUniquePtr back(GDALDataset::Open(dir.File("out.gpkg").c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
  ExpectFilterMatchesBruteForce(*back->GetLayerByName("res"), boxes);
  back->GetLayerByName("res")->SetSpatialFilterRect(4999, 4999, 5000.5, 5000.5);
  EXPECT_EQ(back->GetLayerByName("res")->GetFeatureCount(TRUE), 1);
  EXPECT_EQ(back->GetLayerByName("src")->GetFeatureCount(TRUE), 10);
}

// No feature at all: the index exists, empty, and is still sound.
TEST(ResultGeoPackage, AnEmptyResultHasAnEmptySoundIndex) {
  satest::TempDir dir;
  WriteSource(dir.File("src.gpkg"), 0, false);
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), false));
  ExpectSoundIndex(dir.File("out.gpkg"), 0);
}
