// Result GeoPackages: streamed to disk and given a packed spatial index that
// SQLite, GDAL and later edits all accept as their own.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoResultWriter.h"

using namespace ZOC;

namespace {

struct Box {
  double minx, maxx, miny, maxy;
};

// The box as a polygon (a point when it has no size), in digits that read
// back as the same doubles.
std::string Wkt(const Box& b) {
  char text[256];
  if (b.minx == b.maxx && b.miny == b.maxy)
    std::snprintf(text, sizeof text, "POINT (%.17g %.17g)", b.minx, b.miny);
  else
    std::snprintf(text, sizeof text, "POLYGON ((%.17g %.17g,%.17g %.17g,%.17g %.17g,%.17g %.17g,%.17g %.17g))", b.minx,
                  b.miny, b.maxx, b.miny, b.maxx, b.maxy, b.minx, b.maxy, b.minx, b.miny);
  return text;
}

// A GeoPackage layer "src" of random points (zero-size boxes) or axis-aligned
// rectangles; every 97th feature has no geometry.
std::vector<Box> WriteSource(const std::string& path, int count, bool rectangles) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> at(-1000.0, 1000.0), size(0.0, 40.0);
  std::vector<Box> boxes;
  std::vector<std::string> wkts;
  for (int i = 0; i < count; ++i) {
    const double x = at(random), y = at(random), w = rectangles ? size(random) : 0, h = rectangles ? size(random) : 0;
    boxes.push_back(i % 97 == 5 ? Box{NAN, NAN, NAN, NAN} : Box{x, x + w, y, y + h});
    wkts.push_back(i % 97 == 5 ? "" : Wkt(boxes.back()));
  }
  EXPECT_TRUE(satest::WriteGdalLayer(path, "src", rectangles ? wkbPolygon : wkbPoint, wkts, 32633));
  return boxes;
}

// Streams the source's geometries and a value 0.5·k per feature into layer
// "res" of `path` through the result writer.
void WriteResult(const std::string& sourcePath, const std::string& path, bool overwrite) {
  auto source = ZoDataSource::Open(sourcePath, false);
  ASSERT_TRUE(source);
  ZoResultWriter writer;
  ASSERT_TRUE(satest::FillResult(writer, source->GetDataset(0), path, overwrite) && writer.Commit(nullptr))
      << writer.GetError().Str();
}

std::string Ask(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_stmt* s = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  const bool row = sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW;
  const std::string answer = row ? reinterpret_cast<const char*>(sqlite3_column_text(s, 0)) : sqlite3_errmsg(db);
  sqlite3_finalize(s);
  sqlite3_close(db);
  return answer;
}

// SQLite's own checks of the file and of the R-tree's structure, and that
// the index holds one entry per feature with a geometry.
void ExpectSoundIndex(const std::string& path, const std::vector<Box>& boxes) {
  const auto withGeometry = std::count_if(boxes.begin(), boxes.end(), [](const Box& b) { return !std::isnan(b.minx); });
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

// The geometry blobs of a table in order, a null one as "-": those the
// result writer stores must be the bytes GDAL stores for the same shapes.
std::string Blobs(const std::string& path, const std::string& table) {
  return Ask(path,
             "SELECT group_concat(coalesce(hex(geom), '-'), ',') FROM (SELECT geom FROM " + table + " ORDER BY fid)");
}

}  // namespace

// More features than one write transaction holds: every value and point
// reads back as written, and the packed index is one SQLite and GDAL accept;
// with no feature at all the index exists, empty, and is still sound.
TEST(ResultGeoPackage, StreamedPointsReadBackWithASoundIndex) {
  satest::TempDir dir;
  WriteSource(dir.File("none.gpkg"), 0, false);
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("none.gpkg"), dir.File("empty.gpkg"), false));
  ExpectSoundIndex(dir.File("empty.gpkg"), {});

  const int n = 120000;
  const std::vector<Box> boxes = WriteSource(dir.File("src.gpkg"), n, false);
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), false));
  ExpectSoundIndex(dir.File("out.gpkg"), boxes);
  EXPECT_EQ(Blobs(dir.File("out.gpkg"), "res"), Blobs(dir.File("src.gpkg"), "src"));
  GDALDatasetUniquePtr back(GDALDataset::Open(dir.File("out.gpkg").c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
  OGRLayer* layer = back ? back->GetLayerByName("res") : nullptr;
  ASSERT_TRUE(layer);
  ASSERT_EQ(layer->GetFeatureCount(TRUE), n);
  int k = 0, mismatches = 0;
  for (auto& f : *layer) {
    const OGRGeometry* g = f->GetGeometryRef();
    const bool same = std::isnan(boxes[k].minx)
                          ? g == nullptr
                          : g && g->toPoint()->getX() == boxes[k].minx && g->toPoint()->getY() == boxes[k].miny;
    mismatches += !same || f->GetFID() != k + 1 || f->GetFieldAsDouble("Result_Score") != 0.5 * k;
    ++k;
  }
  EXPECT_EQ(mismatches, 0);
  ExpectFilterMatchesBruteForce(*layer, boxes);
  EXPECT_EQ(satest::FilesIn(dir.path()), (std::vector<std::string>{"empty.gpkg", "none.gpkg", "out.gpkg", "src.gpkg"}));
}

// Rectangles replacing a layer of an existing file: the layer holds the
// rows, count and extent a new file gets, the index follows the layer's new
// name, its triggers and the feature count's keep them right through GDAL's
// own inserts, moves and deletes, and the neighbouring layer is untouched.
TEST(ResultGeoPackage, IndexOfAReplacedLayerFollowsLaterEdits) {
  satest::TempDir dir;
  std::vector<Box> boxes = WriteSource(dir.File("src.gpkg"), 3000, true);
  WriteSource(dir.File("out.gpkg"), 10, false);  // "src", a neighbour
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), false));
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("out.gpkg"), true));
  ExpectSoundIndex(dir.File("out.gpkg"), boxes);
  ASSERT_NO_FATAL_FAILURE(WriteResult(dir.File("src.gpkg"), dir.File("new.gpkg"), false));
  const char* count = "SELECT feature_count FROM gpkg_ogr_contents WHERE table_name = 'res'";
  for (const char* sql :
       {"SELECT group_concat(fid || ':' || hex(geom) || ':' || Result_Score, ',') FROM res", count,
        "SELECT group_concat(name) FROM (SELECT name FROM sqlite_master WHERE tbl_name = 'res' ORDER BY name)",
        "SELECT min_x || ' ' || min_y || ' ' || max_x || ' ' || max_y FROM gpkg_contents WHERE table_name = 'res'"})
    EXPECT_EQ(Ask(dir.File("out.gpkg"), sql), Ask(dir.File("new.gpkg"), sql)) << sql;
  EXPECT_EQ(Blobs(dir.File("out.gpkg"), "res"), Blobs(dir.File("src.gpkg"), "src"));
  EXPECT_EQ(Ask(dir.File("out.gpkg"),
                "SELECT group_concat(table_name) FROM (SELECT table_name FROM gpkg_contents ORDER BY table_name)"),
            "res,src");
  {
    GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File("out.gpkg").c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE));
    OGRLayer* layer = ds ? ds->GetLayerByName("res") : nullptr;
    ASSERT_TRUE(layer);
    const auto place = [&](OGRFeature* f, const Box& b) {
      OGRGeometry* g = nullptr;
      OGRGeometryFactory::createFromWkt(Wkt(b).c_str(), nullptr, &g);
      f->SetGeometryDirectly(g);
    };
    OGRFeatureUniquePtr added(OGRFeature::CreateFeature(layer->GetLayerDefn())), moved(layer->GetFeature(2));
    place(added.get(), boxes.emplace_back(Box{5000, 5001, 5000, 5001}));
    ASSERT_EQ(layer->CreateFeature(added.get()), OGRERR_NONE);
    place(moved.get(), boxes[1] = {-5000, -4999, 7, 8});
    ASSERT_EQ(layer->SetFeature(moved.get()), OGRERR_NONE);
    ASSERT_EQ(layer->DeleteFeature(1), OGRERR_NONE);
    boxes[0] = {NAN, NAN, NAN, NAN};
  }
  ExpectSoundIndex(dir.File("out.gpkg"), boxes);
  EXPECT_EQ(Ask(dir.File("out.gpkg"), count), "3000");
  GDALDatasetUniquePtr back(GDALDataset::Open(dir.File("out.gpkg").c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
  ExpectFilterMatchesBruteForce(*back->GetLayerByName("res"), boxes);
  back->GetLayerByName("res")->SetSpatialFilterRect(4999, 4999, 5000.5, 5000.5);
  EXPECT_EQ(back->GetLayerByName("res")->GetFeatureCount(TRUE), 1);
  EXPECT_EQ(back->GetLayerByName("src")->GetFeatureCount(TRUE), 10);
}
