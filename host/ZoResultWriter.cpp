#include "host/ZoResultWriter.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"
#include "host/ZoStringEx.h"
#include "host/detail/DatasetInternals.h"
#include "host/detail/GdalSession.h"
#include "host/detail/GeometryConversion.h"
#include "host/detail/GpkgRowCopy.h"
#include "host/detail/GpkgSpatialIndex.h"
#include "host/detail/PrjAccess.h"

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
  // (detail::BuildGpkgSpatialIndex): far cheaper than updating it on each insert.
  if (driver == "GPKG" && geometry) options.SetNameValue("SPATIAL_INDEX", "NO");
  if (driver == "CSV") {
    if (geometry) options.SetNameValue("GEOMETRY", "AS_WKT");
    options.SetNameValue("CREATE_CSVT", "YES");
  }
  return options;
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
  // A new GeoPackage or SQLite output is written straight into its final
  // file in the scratch folder. Anything else is staged in a scratch
  // GeoPackage and copied on commit: into the output's format, or into a
  // temporary layer of the existing file (which must stay exactly as it was,
  // byte for byte, should the analysis fail). Either way it lives on disk.
  bool direct = false;
  fs::path scratch;       // hidden folder beside the target; empty when none
  int scratchEntry = -1;  // its entry in ZoTempRegistry
  fs::path stage;         // the scratch GeoPackage's own folder inside it, when staged
  fs::path file;          // the file the result is being written into
  std::string temporary;  // the temporary layer in an existing output, while it exists
  detail::SrsPtr srs;     // the result's coordinate system as given
  OGRwkbGeometryType type = wkbNone;
  std::unique_ptr<ZoDataSource> source;  // open on `file` until commit
  ZoDatasetVector* result = nullptr;
  bool committed = false;  // the result is in place; it stays readable
  long long written = 0;

  std::string detail;  // the last failure's detail, without its identifier

  ~Impl() { Discard(); }
  bool Fail(const char* id, const std::string& why) {
    error = Message(id, why);
    detail = why;
    return false;
  }
  bool CheckTarget(const std::vector<LumaUnicodeString>& protectedFiles);
  // The output (or a file in its format) opened with the output's driver; null when it cannot be.
  GDALDataset* OpenOutput(const fs::path& at, bool update) const;
  bool InspectExisting();
  OGRLayer* NewLayer(GDALDataset& target, const std::string& format, const std::string& name);
  bool OpenTarget();
  bool CreateFile(const fs::path& at, const std::string& format);
  void Discard();
  // With `rows` false only the layer and its fields are made.
  OGRLayer* Copy(OGRLayer& from, GDALDataset& target, const std::string& name, ZoProgress* progress, bool rows = true);
  bool CopyStagedRows(OGRLayer& from, const std::string& name, long long expected, ZoProgress* progress);
  bool CopyFeatures(OGRLayer& from, OGRLayer& to, GDALDataset& target, ZoProgress* progress);
  bool Holds(long long expected, int fields, OGRLayer& written);
  bool TrialWrite();
  bool CommitDirect(ZoProgress* progress);
  bool Reopen();
  bool CommitInPlace(ZoProgress* progress);
  bool CommitCopy(ZoProgress* progress);
  void RemoveStaleLayers(GDALDataset& ds);
  // Progress runs from `from` to `to` percent while the index is built.
  bool BuildIndex(const detail::GpkgIndexTarget& target, long long count, ZoProgress* progress, int from, int to);
  bool CheckAndSwap(const fs::path& at, const std::string& name, long long expected, int fields);
  bool SwapLayers(GDALDataset& ds, OGRLayer* temporary);
  // A new scratch folder, listed in ZoTempRegistry under `entry`.
  bool MakeScratch(fs::path& folder, int& entry);
  // Removes a scratch folder made by MakeScratch and takes it off the list.
  static void RemoveScratch(fs::path& folder, int& entry);
  bool CommitStaged(ZoProgress* progress);
  // `expected`: the features `from` holds.
  bool WriteFile(OGRLayer& from, long long expected, const fs::path& target, ZoProgress* progress);
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

GDALDataset* ZoResultWriter::Impl::OpenOutput(const fs::path& at, bool update) const {
  const char* drivers[] = {driver.c_str(), nullptr};
  // A SQLite file lists only its spatial tables unless asked for all; a
  // table result (or an existing table of that name) must be found too.
  CPLStringList options;
  if (driver == "SQLite") options.SetNameValue("LIST_ALL_TABLES", "YES");
  return GDALDataset::Open(at.c_str(), GDAL_OF_VECTOR | (update ? GDAL_OF_UPDATE : GDAL_OF_READONLY), drivers,
                           options.List(), nullptr);
}

// An existing output: layers are replaced inside files that hold several and
// can change them; any other file is replaced as a whole.
bool ZoResultWriter::Impl::InspectExisting() {
  if (!exists) return true;
  detail::QuietErrors quiet;
  GdalPtr ds(OpenOutput(path, false));
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
  try {
    m.Discard();
    m.committed = false;
    OGRLayer* model = like ? detail::HostAccess::Layer(*like) : nullptr;
    m.type = model ? model->GetGeomType() : detail::OGRTypeForDataset(datasetType);
    if (!model && m.type == wkbUnknown) {
      m.Fail(msg::EUa016, "unknown dataset type " + std::to_string(datasetType));
      return nullptr;
    }
    const OGRSpatialReference* srs = m.type == wkbNone ? nullptr
                                     : model           ? model->GetSpatialRef()
                                                       : detail::PrjAccess::Get(cs);
    m.srs.reset(srs ? srs->Clone() : nullptr);
    const bool holdsAny = m.driver == "GPKG" || m.driver == "SQLite";
    m.direct = holdsAny && !m.inPlace;
    if (!holdsAny && !m.TrialWrite()) return nullptr;
    if (!m.OpenTarget()) {
      m.Discard();
      return nullptr;
    }
    return m.result;
  } catch (const std::exception& e) {
    m.Fail(msg::EUa016, e.what());
    m.Discard();
    return nullptr;
  }
}

// The file and layer the analysis writes into, in a new scratch folder: the
// output itself when it is a new GeoPackage or SQLite file, else a
// GeoPackage standing in for it.
bool ZoResultWriter::Impl::OpenTarget() {
  if (!MakeScratch(scratch, scratchEntry)) return false;
  if (!direct) {
    std::error_code ec;
    stage = scratch / ".stage";
    if (!fs::create_directory(stage, ec)) return Fail(msg::EUa014, "cannot create " + stage.string());
  }
  if (!CreateFile(direct ? scratch / path.filename() : stage / "stage.gpkg", direct ? driver : "GPKG")) return false;
  GDALDataset& ds = *detail::HostAccess::Gdal(*source);
  OGRLayer* created = NewLayer(ds, direct ? driver : "GPKG", layer);
  if (!created) return false;
  result = detail::HostAccess::Adopt(*source, created);
  return true;
}

bool ZoResultWriter::Impl::CreateFile(const fs::path& at, const std::string& format) {
  detail::QuietErrors quiet;
  GDALDriver* gdalDriver = GetGDALDriverManager()->GetDriverByName(format.c_str());
  GDALDataset* ds = gdalDriver ? gdalDriver->Create(at.c_str(), 0, 0, 0, GDT_Unknown, nullptr) : nullptr;
  if (!ds) return Fail(msg::EUa014, quiet.Message());
  file = at;
  source = detail::HostAccess::Wrap(ds, at.string());
  // A new file is built in a scratch folder and moved into place only when
  // complete, so it needs no protection against a crash half-way: SQLite may
  // hand its pages to the system without waiting for them to reach the disk.
  if (OGRLayer* answer = ds->ExecuteSQL("PRAGMA synchronous = OFF", nullptr, nullptr)) ds->ReleaseResultSet(answer);
  return true;
}

// Creates `name` in `target` with the result's geometry kind, coordinate
// system and the creation options of `format`; null after a failure.
OGRLayer* ZoResultWriter::Impl::NewLayer(GDALDataset& target, const std::string& format, const std::string& name) {
  detail::QuietErrors quiet;
  detail::SrsPtr layerSrs(type != wkbNone && srs ? srs->Clone() : nullptr);
  // Without a definition GeoPackage would record "undefined geographic"; the
  // host reads a layer without one as planar, so say so.
  if (!layerSrs && type != wkbNone && format == "GPKG") {
    layerSrs.reset(new OGRSpatialReference());
    layerSrs->SetLocalCS("Undefined Cartesian SRS");
  }
  CPLStringList options = LayerOptions(format, type != wkbNone);
  OGRLayer* created = target.CreateLayer(name.c_str(), layerSrs.get(), type, options.List());
  if (!created) Fail(msg::EUa016, quiet.Message());
  return created;
}

// Closes what the writer has open and removes whatever it wrote that has
// not been put in place: the temporary layer, the scratch folder.
void ZoResultWriter::Impl::Discard() {
  try {
    detail::QuietErrors quiet;
    result = nullptr;
    source.reset();
    stage.clear();
    if (!temporary.empty()) {
      GdalPtr ds(OpenOutput(path, true));
      if (OGRLayer* left = ds ? FindLayer(*ds, temporary) : nullptr) ds->DeleteLayer(LayerIndex(*ds, left));
      temporary.clear();
    }
    if (!scratch.empty()) RemoveScratch(scratch, scratchEntry);
  } catch (...) {
  }
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
bool ZoResultWriter::Impl::TrialWrite() {
  detail::QuietErrors quiet;
  GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("Memory");
  GdalPtr ds(memory ? memory->Create("trial", 0, 0, 0, GDT_Unknown, nullptr) : nullptr);
  OGRLayer* trial = ds ? ds->CreateLayer("trial", srs.get(), type, nullptr) : nullptr;
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

  fs::path folder;
  int entry = -1;
  if (!MakeScratch(folder, entry)) return false;
  const bool ok = WriteFile(*trial, 1, folder / path.filename(), nullptr);
  RemoveScratch(folder, entry);
  writtenLayer.clear();
  written = 0;
  // Whatever went wrong, the format cannot hold such a result.
  if (ok) return true;
  if (type != wkbNone) return Fail(msg::EUa017, driver + ": " + detail);
  // Shapefile and FlatGeobuf files are made of geometries; a Shapefile's
  // table alone is its .dbf file.
  const std::string hint = driver == "ESRI Shapefile" ? "; write the table as .dbf" : "";
  return Fail(msg::EUa017, driver + " cannot hold a table without geometries (" + detail + ")" + hint);
}

bool ZoResultWriter::Commit(ZoProgress* progress) {
  Impl& m = *m_impl;
  if (!m.result) return m.Fail(msg::EUa016, "no result");
  if (m.committed) return m.Fail(msg::EUa016, "the result is already in place");
  try {
    if (progress) {
      progress->SetBothPosRange(0, 100);
      progress->SetMessage(m.path.string());
      progress->SetProgressPos(0);
    }
    if (!m.result->Commit()) return m.Fail(msg::EUa016, "the last features could not be written");
    if (progress && progress->IsCanceled()) return m.Fail(msg::IMb030, "");
    const bool ok = m.direct                            ? m.CommitDirect(progress)
                    : m.inPlace && m.driver == "SQLite" ? m.CommitCopy(progress)
                    : m.inPlace                         ? m.CommitInPlace(progress)
                                                        : m.CommitStaged(progress);
    // After a success the result stays readable: from the output itself when
    // written in its format, else from the stage, removed with the writer.
    if (!ok) m.Discard();
    if (ok && progress) progress->SetProgressPos(100);
    m.committed = ok;
    return ok;
  } catch (const std::exception& e) {
    m.Discard();
    return m.Fail(msg::EUa016, e.what());
  }
}

// The result is already in its format: close it, index it, check it from a
// fresh opening, and move it into place.
bool ZoResultWriter::Impl::CommitDirect(ZoProgress* progress) {
  OGRLayer& ogr = *detail::HostAccess::Layer(*result);
  const long long expected = result->GetRecordCount();
  const int fields = ogr.GetLayerDefn()->GetFieldCount();
  const detail::GpkgIndexTarget index{file.string(), layer, ogr.GetFIDColumn(), ogr.GetGeometryColumn(), true};
  // The result's dataset waits, closed, while GDAL lets go of the file and
  // writes what it still holds; it is reopened on the finished output.
  std::unique_ptr<ZoDataSource> parked = detail::HostAccess::Wrap(nullptr, "");
  if (!detail::HostAccess::Move(*source, result, *parked, nullptr)) return Fail(msg::EUa016, "the result is not open");
  source = std::move(parked);
  if (driver == "GPKG" && type != wkbNone && !BuildIndex(index, expected, progress, 0, 90)) return false;
  if (!CheckAndSwap(file, layer, expected, fields) || !MoveIntoPlace(scratch)) return false;
  written = expected;
  RemoveScratch(scratch, scratchEntry);
  return Reopen();
}

// Puts the result's dataset on the output now in place, read-only.
bool ZoResultWriter::Impl::Reopen() {
  detail::QuietErrors quiet;
  GDALDataset* ds = OpenOutput(path, false);
  std::unique_ptr<ZoDataSource> output = ds ? detail::HostAccess::Wrap(ds, path.string()) : nullptr;
  OGRLayer* back = ds ? FindLayer(*ds, writtenLayer) : nullptr;
  if (!back || !detail::HostAccess::Move(*source, result, *output, back))
    return Fail(msg::EUa017, "the written file cannot be read back: " + quiet.Message());
  source = std::move(output);
  return true;
}

// Copies the staged result into a temporary layer of the existing output,
// indexes it, checks it from a fresh opening and swaps it for the old layer.
bool ZoResultWriter::Impl::CommitInPlace(ZoProgress* progress) {
  OGRLayer& from = *detail::HostAccess::Layer(*result);
  const long long expected = result->GetRecordCount();
  const int fields = from.GetLayerDefn()->GetFieldCount();
  detail::GpkgIndexTarget index{path.string(), "", "", "", false};
  {
    detail::QuietErrors quiet;
    GdalPtr ds(OpenOutput(path, true));
    if (!ds) return Fail(msg::EUa014, quiet.Message());
    RemoveStaleLayers(*ds);
    std::string name = layer + "_zostat_tmp_" + TemporarySuffix();
    while (FindLayer(*ds, name)) name += "_";
    temporary = name;
    // A GeoPackage's rows are copied by SQLite once GDAL has made the layer
    // and let go of the file.
    OGRLayer* copy = Copy(from, *ds, name, progress, driver != "GPKG");
    if (!copy) return false;
    index = {path.string(), name, copy->GetFIDColumn(), copy->GetGeometryColumn(), false};
  }
  if (driver == "GPKG" && !CopyStagedRows(from, index.table, expected, progress)) return false;
  if (driver == "GPKG" && type != wkbNone && !BuildIndex(index, expected, progress, 90, 99)) return false;
  if (!CheckAndSwap(path, index.table, expected, fields)) return false;
  temporary.clear();  // it has the layer's own name now
  written = expected;
  return true;
}

// GDAL cannot rename a layer of a SQLite file, so no temporary layer can
// take the old one's place there. The whole file is copied into the scratch
// folder instead, the layer is replaced in the copy, and the copy, once read
// back whole, takes the file's place in one rename: the other layers come
// along unchanged, and a failure at any point leaves the original as it was.
bool ZoResultWriter::Impl::CommitCopy(ZoProgress* progress) {
  OGRLayer& from = *detail::HostAccess::Layer(*result);
  const long long expected = result->GetRecordCount();
  const int fields = from.GetLayerDefn()->GetFieldCount();
  const fs::path copy = scratch / path.filename();
  std::error_code ec;
  if (!fs::copy_file(path, copy, ec) || ec)
    return Fail(msg::EUa014, "cannot copy " + path.string() + ": " + ec.message());
  {
    detail::QuietErrors quiet;
    GdalPtr ds(OpenOutput(copy, true));
    if (!ds) return Fail(msg::EUa014, quiet.Message());
    if (OGRLayer* old = FindLayer(*ds, layer))
      if (ds->DeleteLayer(LayerIndex(*ds, old)) != OGRERR_NONE) return Fail(msg::EUa018, quiet.Message());
    if (!Copy(from, *ds, layer, progress)) return false;
    ds.reset();
    if (quiet.Failed()) return Fail(msg::EUa016, quiet.Message());
  }
  if (progress && progress->IsCanceled()) return Fail(msg::IMb030, "");
  if (!CheckAndSwap(copy, layer, expected, fields) || !MoveIntoPlace(scratch)) return false;
  written = expected;
  return true;
}

bool ZoResultWriter::Impl::BuildIndex(const detail::GpkgIndexTarget& target, long long count, ZoProgress* progress,
                                      int from, int to) {
  std::function<bool(double)> keepGoing;
  if (progress)
    keepGoing = [&](double done) {
      progress->SetProgressPos(from + static_cast<int>((to - from) * done));
      return !progress->IsCanceled();
    };
  bool cancelled = false;
  std::string why;
  if (detail::BuildGpkgSpatialIndex(target, count, keepGoing, cancelled, why)) return true;
  return cancelled ? Fail(msg::IMb030, "") : Fail(msg::EUa100, why);
}

// Opens the written file afresh: it must hold the result whole. A temporary
// layer in an existing output then takes the old layer's place.
bool ZoResultWriter::Impl::CheckAndSwap(const fs::path& at, const std::string& name, long long expected, int fields) {
  detail::QuietErrors quiet;
  // A temporary layer in the output itself still has to take its place.
  const bool swap = inPlace && name != layer;
  GdalPtr ds(OpenOutput(at, swap));
  if (!ds) return Fail(msg::EUa017, "the written file cannot be read back: " + quiet.Message());
  OGRLayer* back = FindLayer(*ds, name);
  if (!back) return Fail(msg::EUa017, "the written layer cannot be found");
  if (!Holds(expected, fields, *back)) return false;
  if (swap) {
    if (!back->TestCapability(OLCRename)) return Fail(msg::EUa018, "the format cannot rename layers");
    if (!SwapLayers(*ds, back)) return false;
  }
  writtenLayer = back->GetName();
  ds.reset();
  return !quiet.Failed() || Fail(msg::EUa016, quiet.Message());
}

// Copies the staged result into the output's format, next to it, and moves
// the finished file into place.
bool ZoResultWriter::Impl::CommitStaged(ZoProgress* progress) {
  if (!WriteFile(*detail::HostAccess::Layer(*result), result->GetRecordCount(), scratch / path.filename(), progress))
    return false;
  return MoveIntoPlace(scratch);
}

// Creates `name` in `target` with the result's schema and copies every
// feature into it; null after a failure (the caller removes what was made).
OGRLayer* ZoResultWriter::Impl::Copy(OGRLayer& from, GDALDataset& target, const std::string& name, ZoProgress* progress,
                                     bool rows) {
  detail::QuietErrors quiet;
  OGRLayer* to = NewLayer(target, driver, name);
  if (!to) return nullptr;
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
  return !rows || CopyFeatures(from, *to, target, progress) ? to : nullptr;
}

// The staged rows into the empty layer `name` of the output, as SQLite
// stores them; through GDAL when the tables do not match column for column.
bool ZoResultWriter::Impl::CopyStagedRows(OGRLayer& from, const std::string& name, long long expected,
                                          ZoProgress* progress) {
  std::function<bool(double)> keepGoing;
  if (progress)
    keepGoing = [&](double done) {
      progress->SetProgressPos(static_cast<int>(90 * done));
      return !progress->IsCanceled();
    };
  // GDAL keeps the staged layer's extent in memory until it closes the file.
  std::optional<detail::Extent> extent;
  OGREnvelope e;
  if (type != wkbNone && from.GetExtent(&e, FALSE) == OGRERR_NONE)
    extent = detail::Extent{e.MinX, e.MinY, e.MaxX, e.MaxY};
  std::string why;
  long long copied = 0;
  switch (detail::CopyGpkgRows({file.string(), from.GetName()}, {path.string(), name}, extent, expected, keepGoing,
                               copied, why)) {
    case detail::RowCopy::Copied: written = copied; return true;
    case detail::RowCopy::Cancelled: return Fail(msg::IMb030, "");
    case detail::RowCopy::Failed: return Fail(msg::EUa016, why);
    case detail::RowCopy::Unsuitable: break;
  }
  detail::QuietErrors quiet;
  GdalPtr ds(OpenOutput(path, true));
  OGRLayer* to = ds ? FindLayer(*ds, name) : nullptr;
  if (!to) return Fail(msg::EUa014, quiet.Message());
  return CopyFeatures(from, *to, *ds, progress);
}

bool ZoResultWriter::Impl::CopyFeatures(OGRLayer& from, OGRLayer& to, GDALDataset& target, ZoProgress* progress) {
  detail::QuietErrors quiet;
  std::vector<int> map(static_cast<std::size_t>(from.GetLayerDefn()->GetFieldCount()));
  for (std::size_t i = 0; i < map.size(); ++i) map[i] = static_cast<int>(i);
  const bool transaction = target.TestCapability(ODsCTransactions) && target.StartTransaction(FALSE) == OGRERR_NONE;
  const long long total = from.GetFeatureCount(TRUE);
  long long done = 0;
  bool ok = true;
  from.ResetReading();
  while (OGRFeatureUniquePtr in{from.GetNextFeature()}) {
    OGRFeatureUniquePtr out(OGRFeature::CreateFeature(to.GetLayerDefn()));
    if (out->SetFrom(in.get(), map.data(), TRUE) != OGRERR_NONE || to.CreateFeature(out.get()) != OGRERR_NONE) {
      ok = Fail(msg::EUa016, quiet.Message());
      break;
    }
    if ((++done & 1023) == 0 && progress) {
      progress->SetProgressPos(static_cast<int>(done * 90 / std::max(total, done)));
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
bool ZoResultWriter::Impl::Holds(long long expected, int fields, OGRLayer& layer) {
  const long long got = layer.GetFeatureCount(TRUE);
  if (got != expected)
    return Fail(msg::EUa017, std::to_string(got) + " of " + std::to_string(expected) + " features read back");
  if (layer.GetLayerDefn()->GetFieldCount() < fields) return Fail(msg::EUa017, "fields missing when read back");
  if (type != wkbNone && layer.GetLayerDefn()->GetGeomFieldCount() < 1)
    return Fail(msg::EUa017, "no geometries when read back");
  return true;
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

namespace {

// Whether `suffix` ("PID_N...", as TemporarySuffix makes them) names a
// process that is gone. A live process, or one we may not signal, is not.
bool OfDeadProcess(const std::string& suffix) {
  const std::size_t digits = suffix.find_first_not_of("0123456789");
  if (digits == 0 || digits == std::string::npos || suffix[digits] != '_' || digits > 9) return false;
  const long pid = std::stol(suffix.substr(0, digits));
  if (pid <= 0 || pid == static_cast<long>(getpid())) return false;
  return kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

// A run killed outright (a second Ctrl-C, SIGKILL) cannot remove its scratch
// folder, so the next run that writes the same target removes every scratch
// folder whose process is gone.
void RemoveStaleScratch(const fs::path& parent, const std::string& prefix) {
  std::error_code ec;
  for (fs::directory_iterator it(parent, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.compare(0, prefix.size(), prefix) != 0 || !OfDeadProcess(name.substr(prefix.size()))) continue;
    std::error_code removeError;
    fs::remove_all(it->path(), removeError);
  }
}

}  // namespace

// Nor can such a run drop the temporary layer it was copying into an
// existing file: the next run that writes into the file drops every
// temporary layer whose process is gone.
void ZoResultWriter::Impl::RemoveStaleLayers(GDALDataset& ds) {
  static const std::string marker = "_zostat_tmp_";
  for (int i = ds.GetLayerCount() - 1; i >= 0; --i) {
    const std::string name = ds.GetLayer(i)->GetName();
    const std::size_t at = name.rfind(marker);
    if (at != std::string::npos && OfDeadProcess(name.substr(at + marker.size()))) ds.DeleteLayer(i);
  }
}

// A new hidden folder beside the target: files written there are on the
// target's file system, so moving them into place is a rename.
//
// The folder is listed in ZoTempRegistry before it is made: a process ended
// by a second signal then removes it from its handler, not only the next run.
bool ZoResultWriter::Impl::MakeScratch(fs::path& folder, int& entry) {
  const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
  // The output's name with its dots as underscores: GDAL reads a path with
  // ".xlsx", ".ods" or ".zip" in it as a file inside that archive, so a folder
  // named ".out.xlsx..." would make the spreadsheet drivers fail to save.
  std::string name = path.filename().string();
  std::replace(name.begin(), name.end(), '.', '_');
  const std::string prefix = "." + name + ".zostat_tmp_";
  RemoveStaleScratch(parent, prefix);
  folder = parent / (prefix + TemporarySuffix());
  entry = ZoTempRegistry::Add(folder.string(), true);
  std::error_code ec;
  if (!fs::create_directory(folder, ec) || ec) {
    ZoTempRegistry::Remove(entry);
    entry = -1;
    return Fail(msg::EUa014, "cannot create " + folder.string());
  }
  return true;
}

void ZoResultWriter::Impl::RemoveScratch(fs::path& folder, int& entry) {
  std::error_code ec;
  fs::remove_all(folder, ec);
  folder.clear();
  ZoTempRegistry::Remove(entry);
  entry = -1;
}

bool ZoResultWriter::Impl::WriteFile(OGRLayer& from, long long expected, const fs::path& target, ZoProgress* progress) {
  detail::QuietErrors quiet;
  GDALDriver* gdalDriver = GetGDALDriverManager()->GetDriverByName(driver.c_str());
  GdalPtr ds(gdalDriver ? gdalDriver->Create(target.c_str(), 0, 0, 0, GDT_Unknown, nullptr) : nullptr);
  if (!ds) return Fail(msg::EUa014, quiet.Message());
  if (!Copy(from, *ds, layer, progress)) return false;
  ds.reset();  // formats such as FlatGeobuf write their index and header on close
  if (quiet.Failed()) return Fail(msg::EUa016, quiet.Message());
  GdalPtr back(OpenOutput(target, false));
  if (!back || back->GetLayerCount() < 1) return Fail(msg::EUa017, "the written file cannot be read back");
  OGRLayer* read = FindLayer(*back, layer);
  if (!read) read = back->GetLayerCount() == 1 ? back->GetLayer(0) : nullptr;
  if (!read) return Fail(msg::EUa017, "the written layer cannot be found");
  if (!Holds(expected, from.GetLayerDefn()->GetFieldCount(), *read)) return false;
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
    if (entry.path() == stage) continue;
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
