#include "host/ZoResultWriter.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <string>
#include <system_error>

#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"
#include "host/ZoStringEx.h"
#include "host/detail/DatasetInternals.h"
#include "host/detail/OgrBridge.h"

namespace fs = std::filesystem;

namespace ZOC {

namespace {

struct GdalClose {
  void operator()(GDALDataset* ds) const {
    if (ds) GDALClose(ds);
  }
};
using GdalPtr = std::unique_ptr<GDALDataset, GdalClose>;

std::string Message(const char* id, std::string detail) {
  while (!detail.empty() && std::isspace(static_cast<unsigned char>(detail.back()))) detail.pop_back();
  std::string text = ZoStringEx::LoadResString(id).Str();
  if (!detail.empty()) text += " (" + detail + ")";
  return text;
}

std::string LowerExtension(const fs::path& path) {
  std::string ext = path.extension().string();
  if (!ext.empty()) ext.erase(0, 1);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

bool SameFile(const fs::path& a, const fs::path& b) {
  std::error_code ec;
  return fs::equivalent(a, b, ec) && !ec;
}

OGRLayer* FindLayer(GDALDataset& ds, const std::string& name) {
  for (int i = 0; i < ds.GetLayerCount(); ++i)
    if (EQUAL(ds.GetLayer(i)->GetName(), name.c_str())) return ds.GetLayer(i);
  return nullptr;
}

int LayerIndex(GDALDataset& ds, const OGRLayer* layer) {
  for (int i = 0; i < ds.GetLayerCount(); ++i)
    if (ds.GetLayer(i) == layer) return i;
  return -1;
}

// Creation options that make a format keep what a result holds: text
// encodings, geometries as WKT in CSV files with the field types beside, and
// the features' order (FlatGeobuf's spatial index would sort them along a
// curve, and a result's rows follow its input's).
CPLStringList LayerOptions(const std::string& driver, bool geometry) {
  CPLStringList options;
  if (driver == "ESRI Shapefile") options.SetNameValue("ENCODING", "UTF-8");
  if (driver == "FlatGeobuf") options.SetNameValue("SPATIAL_INDEX", "NO");
  // A GeoPackage's R-tree is built in one statement once every feature is in
  // (BuildSpatialIndex): far cheaper than updating it on each insert.
  if (driver == "GPKG" && geometry) options.SetNameValue("SPATIAL_INDEX", "NO");
  if (driver == "CSV") {
    if (geometry) options.SetNameValue("GEOMETRY", "AS_WKT");
    options.SetNameValue("CREATE_CSVT", "YES");
  }
  return options;
}

// Builds the R-tree of a GeoPackage layer written without one, so the
// result is as any GeoPackage writer leaves it.
bool BuildSpatialIndex(GDALDataset& ds, OGRLayer& layer) {
  if (layer.GetGeomType() == wkbNone) return true;
  auto quoted = [](std::string text) {
    for (std::size_t at = text.find('\''); at != std::string::npos; at = text.find('\'', at + 2))
      text.insert(at, 1, '\'');
    return "'" + text + "'";
  };
  const std::string sql =
      "SELECT CreateSpatialIndex(" + quoted(layer.GetName()) + ", " + quoted(layer.GetGeometryColumn()) + ")";
  CPLErrorReset();
  if (OGRLayer* answer = ds.ExecuteSQL(sql.c_str(), nullptr, nullptr)) ds.ReleaseResultSet(answer);
  return CPLGetLastErrorType() < CE_Failure;
}

// A unique suffix for temporary names within this process.
std::string TemporarySuffix() {
  static std::atomic<int> counter{0};
  return std::to_string(static_cast<long>(getpid())) + "_" + std::to_string(counter++);
}

}  // namespace

struct ZoResultWriter::Impl {
  fs::path path;
  std::string layer, driver, error, writtenLayer;
  bool overwrite = false, usage = false, exists = false, inPlace = false;
  std::vector<fs::path> oldFiles;  // the files of the output being replaced
  std::unique_ptr<ZoDataSource> memory;
  ZoDatasetVector* result = nullptr;
  long long written = 0;

  std::string detail;  // the last failure's detail, without its identifier

  bool Fail(const char* id, const std::string& why) {
    error = Message(id, why);
    detail = why;
    return false;
  }
  bool CheckTarget(const std::vector<LumaUnicodeString>& protectedFiles);
  bool InspectExisting();
  OGRLayer* Copy(OGRLayer& from, GDALDataset& target, const std::string& name, ZoProgress* progress);
  bool CopyFeatures(OGRLayer& from, OGRLayer& to, GDALDataset& target, ZoProgress* progress);
  bool Holds(OGRLayer& from, OGRLayer& written);
  bool TrialWrite(OGRLayer& shape);
  bool CommitInPlace(ZoProgress* progress);
  bool SwapLayers(GDALDataset& ds, OGRLayer* temporary);
  bool MakeScratch(fs::path& scratch);
  bool CommitNewFile(OGRLayer& from, ZoProgress* progress);
  bool WriteFile(OGRLayer& from, const fs::path& file, ZoProgress* progress);
  bool MoveIntoPlace(const fs::path& folder);
};

ZoResultWriter::ZoResultWriter() : m_impl(std::make_unique<Impl>()) {}
ZoResultWriter::~ZoResultWriter() = default;

bool ZoResultWriter::Prepare(const LumaUnicodeString& path, const LumaUnicodeString& layer, bool overwrite,
                             const std::vector<LumaUnicodeString>& protectedFiles) {
  Impl& m = *m_impl;
  try {
    detail::EnsureGdal();
    m.path = fs::path(path.Str());
    m.layer = layer.Str();
    m.overwrite = overwrite;
    const std::string ext = LowerExtension(m.path);
    GDALDriver* driver = detail::VectorDriverForExtension(ext, true);
    if (!driver) {
      m.usage = true;
      return m.Fail(detail::VectorDriverForExtension(ext, false) ? msg::EUa013 : msg::EUa012,
                    ext.empty() ? path.Str() + " has no extension" : "." + ext);
    }
    m.driver = driver->GetDescription();
    if (m.layer.empty()) return m.Fail(msg::EUa014, "no layer name");
    return m.CheckTarget(protectedFiles) && m.InspectExisting();
  } catch (const std::exception& e) {
    return m.Fail(msg::EUa014, e.what());
  }
}

bool ZoResultWriter::Impl::CheckTarget(const std::vector<LumaUnicodeString>& protectedFiles) {
  std::error_code ec;
  const fs::file_status status = fs::status(path, ec);
  exists = fs::exists(status);
  if (exists && fs::is_directory(status)) return Fail(msg::EUa014, path.string() + " is a directory");
  for (const auto& file : protectedFiles)
    if (!file.IsEmpty() && SameFile(path, fs::path(file.Str()))) return Fail(msg::EUa011, path.string());
  if (!exists) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, ec)) return Fail(msg::EUa014, "no folder " + folder.string());
  }
  return true;
}

// An existing output: layers are replaced inside files that hold several and
// can change them; any other file is replaced as a whole.
bool ZoResultWriter::Impl::InspectExisting() {
  if (!exists) return true;
  detail::QuietErrors quiet;
  const char* drivers[] = {driver.c_str(), nullptr};
  GdalPtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers, nullptr, nullptr));
  if (!ds) return Fail(msg::EUa014, path.string() + " exists and is not a " + driver + " datasource GDAL can open");
  char** files = ds->GetFileList();
  for (char** f = files; f && *f; ++f) oldFiles.emplace_back(*f);
  CSLDestroy(files);
  const bool hasLayer = FindLayer(*ds, layer) != nullptr;
  const int layers = ds->GetLayerCount();
  // GDAL publishes no capability for deleting and renaming layers of an
  // existing file; these are the file formats that do both, in transactions.
  inPlace = driver == "GPKG" || driver == "SQLite";
  ds.reset();
  if (inPlace) {
    if (hasLayer && !overwrite) return Fail(msg::EUa010, path.string() + " has a layer " + layer);
    return true;
  }
  if (layers > 1) return Fail(msg::EUa015, path.string());
  if (!overwrite) return Fail(msg::EUa010, path.string() + " exists");
  return true;
}

bool ZoResultWriter::IsUsageError() const { return m_impl->usage; }

ZoDatasetVector* ZoResultWriter::CreateResult(const ZoDatasetVector* like, int datasetType, const ZoPrjCoordSys& cs) {
  Impl& m = *m_impl;
  m.memory = ZoDataSource::CreateMemory("result");
  if (!m.memory) {
    m.Fail(msg::EUa016, "no in-memory datasource");
    return nullptr;
  }
  LumaUnicodeString error;
  m.result = like ? m.memory->CreateDatasetVector(m.layer, *like, false, &error)
                  : m.memory->CreateDatasetVector(m.layer, datasetType, cs, false, &error);
  if (!m.result) {
    m.Fail(msg::EUa016, error.Str());
    return nullptr;
  }
  return m.TrialWrite(*detail::HostAccess::Layer(*m.result)) ? m.result : nullptr;
}

namespace {

// A small geometry of `type` (its kind, multi or not, with Z and M as asked).
OGRGeometry* SampleGeometry(OGRwkbGeometryType type) {
  const OGRwkbGeometryType flat = OGR_GT_GetLinear(wkbFlatten(type));
  const char* wkt = flat == wkbLineString || flat == wkbMultiLineString ? "LINESTRING (0 0,1 1)"
                    : flat == wkbPolygon || flat == wkbMultiPolygon     ? "POLYGON ((0 0,1 0,1 1,0 0))"
                                                                        : "POINT (0 0)";
  OGRGeometry* g = nullptr;
  OGRGeometryFactory::createFromWkt(wkt, nullptr, &g);
  if (!g || wkbFlatten(type) == wkbUnknown) return g;
  return OGRGeometryFactory::forceTo(g, type);
}

}  // namespace

// Writes and reads back, in a scratch folder, one feature shaped like the
// result (its geometry type, a real, an integer and a text field): a format
// that cannot hold a result is refused before the analysis runs, not after.
// Files that hold several layers in place (GeoPackage, SQLite) hold any.
bool ZoResultWriter::Impl::TrialWrite(OGRLayer& shape) {
  if (inPlace) return true;
  detail::QuietErrors quiet;
  GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("Memory");
  GdalPtr ds(memory ? memory->Create("trial", 0, 0, 0, GDT_Unknown, nullptr) : nullptr);
  const OGRwkbGeometryType type = shape.GetGeomType();
  OGRLayer* trial = ds ? ds->CreateLayer("trial", shape.GetSpatialRef(), type, nullptr) : nullptr;
  if (!trial) return Fail(msg::EUa016, quiet.Message());
  const std::pair<const char*, OGRFieldType> fields[] = {
      {"Trial_Real", OFTReal}, {"Trial_Int", OFTInteger}, {"Trial_Text", OFTString}};
  for (const auto& [name, fieldType] : fields) {
    OGRFieldDefn defn(name, fieldType);
    trial->CreateField(&defn);
  }
  OGRFeature feature(trial->GetLayerDefn());
  feature.SetField(0, 1.5);
  feature.SetField(1, 2);
  feature.SetField(2, "x");
  if (type != wkbNone) feature.SetGeometryDirectly(SampleGeometry(type));
  if (trial->CreateFeature(&feature) != OGRERR_NONE) return Fail(msg::EUa016, quiet.Message());

  fs::path scratch;
  if (!MakeScratch(scratch)) return false;
  const bool ok = WriteFile(*trial, scratch / path.filename(), nullptr);
  std::error_code ec;
  fs::remove_all(scratch, ec);
  writtenLayer.clear();
  written = 0;
  // Whatever went wrong, the format cannot hold such a result.
  return ok || Fail(msg::EUa017, driver + ": " + detail);
}

bool ZoResultWriter::Commit(ZoProgress* progress) {
  Impl& m = *m_impl;
  if (!m.result) return m.Fail(msg::EUa016, "no result");
  try {
    m.result->Commit();
    return m.inPlace ? m.CommitInPlace(progress) : m.CommitNewFile(*detail::HostAccess::Layer(*m.result), progress);
  } catch (const std::exception& e) {
    return m.Fail(msg::EUa016, e.what());
  }
}

// Creates `name` in `target` with the result's schema and copies every
// feature into it; null after a failure (the caller removes what was made).
OGRLayer* ZoResultWriter::Impl::Copy(OGRLayer& from, GDALDataset& target, const std::string& name,
                                     ZoProgress* progress) {
  detail::QuietErrors quiet;
  const OGRwkbGeometryType type = from.GetGeomType();
  const OGRSpatialReference* fromSrs = type == wkbNone ? nullptr : from.GetSpatialRef();
  detail::SrsPtr srs(fromSrs ? fromSrs->Clone() : nullptr);
  // Without a definition GeoPackage would record "undefined geographic"; the
  // host reads a layer without one as planar, so say so.
  if (!srs && type != wkbNone && driver == "GPKG") {
    srs.reset(new OGRSpatialReference());
    srs->SetLocalCS("Undefined Cartesian SRS");
  }
  CPLStringList options = LayerOptions(driver, type != wkbNone);
  OGRLayer* to = target.CreateLayer(name.c_str(), srs.get(), type, options.List());
  if (!to) {
    Fail(msg::EUa016, quiet.Message());
    return nullptr;
  }
  OGRFeatureDefn* defn = from.GetLayerDefn();
  for (int i = 0; i < defn->GetFieldCount(); ++i) {
    if (to->CreateField(defn->GetFieldDefn(i), TRUE) != OGRERR_NONE) {
      Fail(msg::EUa017, "field " + std::string(defn->GetFieldDefn(i)->GetNameRef()) + ": " + quiet.Message());
      return nullptr;
    }
  }
  if (to->GetLayerDefn()->GetFieldCount() != defn->GetFieldCount()) {
    Fail(msg::EUa017, "the format did not keep every field");
    return nullptr;
  }
  if (!CopyFeatures(from, *to, target, progress)) return nullptr;
  if (driver == "GPKG" && !BuildSpatialIndex(target, *to)) {
    Fail(msg::EUa016, "spatial index: " + quiet.Message());
    return nullptr;
  }
  return to;
}

bool ZoResultWriter::Impl::CopyFeatures(OGRLayer& from, OGRLayer& to, GDALDataset& target, ZoProgress* progress) {
  detail::QuietErrors quiet;
  std::vector<int> map(static_cast<std::size_t>(from.GetLayerDefn()->GetFieldCount()));
  for (std::size_t i = 0; i < map.size(); ++i) map[i] = static_cast<int>(i);
  const bool transaction = target.TestCapability(ODsCTransactions) && target.StartTransaction(FALSE) == OGRERR_NONE;
  const long long total = from.GetFeatureCount(TRUE);
  long long done = 0;
  bool ok = true;
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetMessage(path.string());
    progress->SetProgressPos(0);
  }
  from.ResetReading();
  while (OGRFeatureUniquePtr in{from.GetNextFeature()}) {
    OGRFeatureUniquePtr out(OGRFeature::CreateFeature(to.GetLayerDefn()));
    if (out->SetFrom(in.get(), map.data(), TRUE) != OGRERR_NONE || to.CreateFeature(out.get()) != OGRERR_NONE) {
      ok = Fail(msg::EUa016, quiet.Message());
      break;
    }
    if ((++done & 1023) == 0 && progress) {
      progress->SetProgressPos(static_cast<int>(done * 100 / std::max(total, done)));
      if (progress->IsCanceled()) {
        ok = Fail(msg::IMb030, "");
        break;
      }
    }
  }
  if (transaction) {
    if (ok && target.CommitTransaction() != OGRERR_NONE) ok = Fail(msg::EUa016, quiet.Message());
    if (!ok) target.RollbackTransaction();
  }
  if (ok && progress && progress->IsCanceled()) ok = Fail(msg::IMb030, "");
  written = done;
  return ok;
}

// Whether a layer read back holds the result: every feature, as many fields,
// and a geometry column when the result has geometries.
bool ZoResultWriter::Impl::Holds(OGRLayer& from, OGRLayer& layer) {
  const long long expected = from.GetFeatureCount(TRUE);
  const long long got = layer.GetFeatureCount(TRUE);
  if (got != expected)
    return Fail(msg::EUa017, std::to_string(got) + " of " + std::to_string(expected) + " features read back");
  if (layer.GetLayerDefn()->GetFieldCount() < from.GetLayerDefn()->GetFieldCount())
    return Fail(msg::EUa017, "fields missing when read back");
  if (from.GetGeomType() != wkbNone && layer.GetLayerDefn()->GetGeomFieldCount() < 1)
    return Fail(msg::EUa017, "no geometries when read back");
  return true;
}

bool ZoResultWriter::Impl::CommitInPlace(ZoProgress* progress) {
  detail::QuietErrors quiet;
  const char* drivers[] = {driver.c_str(), nullptr};
  GdalPtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE, drivers, nullptr, nullptr));
  if (!ds) return Fail(msg::EUa014, quiet.Message());
  std::string temporary = layer + "_zostat_tmp_" + TemporarySuffix();
  while (FindLayer(*ds, temporary)) temporary += "_";
  OGRLayer& from = *detail::HostAccess::Layer(*result);
  OGRLayer* written = Copy(from, *ds, temporary, progress);
  bool ok = written && Holds(from, *written);
  if (ok && !written->TestCapability(OLCRename)) ok = Fail(msg::EUa018, "the format cannot rename layers");
  if (ok) ok = SwapLayers(*ds, written);
  if (!ok) {
    // The temporary layer goes; the old one was never touched.
    if (OGRLayer* left = FindLayer(*ds, temporary)) ds->DeleteLayer(LayerIndex(*ds, left));
    ds.reset();
    return false;
  }
  writtenLayer = layer;
  ds.reset();
  return !quiet.Failed() || Fail(msg::EUa016, quiet.Message());
}

// Drops the old layer and gives the temporary one its name, in one
// transaction where the format has them, so a reader sees either.
bool ZoResultWriter::Impl::SwapLayers(GDALDataset& ds, OGRLayer* temporary) {
  detail::QuietErrors quiet;
  const bool transaction = ds.TestCapability(ODsCTransactions) && ds.StartTransaction(FALSE) == OGRERR_NONE;
  bool ok = true;
  if (OGRLayer* old = FindLayer(ds, layer)) ok = ds.DeleteLayer(LayerIndex(ds, old)) == OGRERR_NONE;
  if (ok) ok = temporary->Rename(layer.c_str()) == OGRERR_NONE;
  if (transaction) {
    if (ok)
      ok = ds.CommitTransaction() == OGRERR_NONE;
    else
      ds.RollbackTransaction();
  }
  return ok || Fail(msg::EUa018, quiet.Message());
}

// A new hidden folder beside the target: files written there are on the
// target's file system, so moving them into place is a rename.
bool ZoResultWriter::Impl::MakeScratch(fs::path& scratch) {
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  scratch = folder / ("." + path.filename().string() + ".zostat_tmp_" + TemporarySuffix());
  std::error_code ec;
  if (!fs::create_directory(scratch, ec) || ec) return Fail(msg::EUa014, "cannot create " + scratch.string());
  return true;
}

bool ZoResultWriter::Impl::CommitNewFile(OGRLayer& from, ZoProgress* progress) {
  fs::path scratch;
  if (!MakeScratch(scratch)) return false;
  std::error_code ec;
  bool ok = WriteFile(from, scratch / path.filename(), progress) && MoveIntoPlace(scratch);
  fs::remove_all(scratch, ec);
  return ok;
}

bool ZoResultWriter::Impl::WriteFile(OGRLayer& from, const fs::path& file, ZoProgress* progress) {
  detail::QuietErrors quiet;
  GDALDriver* gdalDriver = GetGDALDriverManager()->GetDriverByName(driver.c_str());
  GdalPtr ds(gdalDriver ? gdalDriver->Create(file.c_str(), 0, 0, 0, GDT_Unknown, nullptr) : nullptr);
  if (!ds) return Fail(msg::EUa014, quiet.Message());
  // A new file is built in a scratch folder and moved into place only when
  // complete, so it needs no protection against a crash half-way: SQLite may
  // hand its pages to the system without waiting for them to reach the disk.
  // The R-tree built at the end inserts every feature's box at a random
  // place in the tree: with SQLite's default 2 MB page cache, a million
  // features spend more time moving pages to and from the system than
  // building; 64 MB holds the tree of a few million points.
  if (driver == "GPKG") {
    ds->ExecuteSQL("PRAGMA synchronous = OFF", nullptr, nullptr);
    ds->ExecuteSQL("PRAGMA cache_size = -65536", nullptr, nullptr);
  }
  if (!Copy(from, *ds, layer, progress)) return false;
  ds.reset();  // formats such as FlatGeobuf write their index and header on close
  if (quiet.Failed()) return Fail(msg::EUa016, quiet.Message());
  const char* drivers[] = {driver.c_str(), nullptr};
  GdalPtr back(GDALDataset::Open(file.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers, nullptr, nullptr));
  if (!back || back->GetLayerCount() < 1) return Fail(msg::EUa017, "the written file cannot be read back");
  OGRLayer* read = FindLayer(*back, layer);
  if (!read) read = back->GetLayerCount() == 1 ? back->GetLayer(0) : nullptr;
  if (!read) return Fail(msg::EUa017, "the written layer cannot be found");
  if (!Holds(from, *read)) return false;
  writtenLayer = read->GetName();
  return !(progress && progress->IsCanceled()) || Fail(msg::IMb030, "");
}

// Moves every file of the finished output from the scratch folder next to
// the target, then removes files of the replaced output that the new one
// does not have (a Shapefile's old index, say).
bool ZoResultWriter::Impl::MoveIntoPlace(const fs::path& scratch) {
  const fs::path folder = scratch.parent_path();
  std::error_code ec;
  std::vector<fs::path> moved;
  for (const auto& entry : fs::directory_iterator(scratch, ec)) {
    const fs::path target = folder / entry.path().filename();
    fs::rename(entry.path(), target, ec);
    if (ec) return Fail(msg::EUa018, target.string() + ": " + ec.message());
    moved.push_back(target);
  }
  if (ec) return Fail(msg::EUa018, ec.message());
  for (const fs::path& old : oldFiles) {
    bool replaced = false;
    for (const fs::path& now : moved) replaced = replaced || SameFile(old, now);
    if (!replaced) fs::remove(old, ec);
  }
  return true;
}

LumaUnicodeString ZoResultWriter::GetError() const { return m_impl->error; }

LumaUnicodeString ZoResultWriter::GetPath() const { return m_impl->path.string(); }

LumaUnicodeString ZoResultWriter::GetLayerName() const {
  return m_impl->writtenLayer.empty() ? m_impl->layer : m_impl->writtenLayer;
}

long long ZoResultWriter::GetWrittenCount() const { return m_impl->written; }

}  // namespace ZOC
