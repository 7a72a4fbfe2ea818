#pragma once
// Shared helpers for the test suites.
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaPoint.h"
#include "host/ZoDataSource.h"
#include "host/ZoProgress.h"

namespace ZOC {
class ZoResultWriter;
}

namespace satest {

// Path of a bundled sample dataset in data/.
std::string DataPath(const std::string& file);

// A fresh directory under the temporary folder, removed with everything in it
// when the object goes out of scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return m_path; }
  std::string File(const std::string& name) const { return (m_path / name).string(); }

 private:
  std::filesystem::path m_path;
};

// Sets an environment variable for the object's life and restores the previous
// value, or its absence, however the scope is left (a failed ASSERT included).
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string m_name, m_saved;
  bool m_wasSet;
};

// Installs a progress factory for the object's life; the default comes back
// however the scope is left.
class ScopedProgressFactory {
 public:
  explicit ScopedProgressFactory(ZOC::ZoProgress::Factory factory) { ZOC::ZoProgress::SetFactory(std::move(factory)); }
  ~ScopedProgressFactory() { ZOC::ZoProgress::SetFactory(nullptr); }
  ScopedProgressFactory(const ScopedProgressFactory&) = delete;
  ScopedProgressFactory& operator=(const ScopedProgressFactory&) = delete;
};

// Runs a shell command, returning its exit status; stdout (and stderr when
// mergeStderr) goes to *output.
int RunCommand(const std::string& command, std::string* output, bool mergeStderr = false);

// A point dataset in GDAL's memory driver with a double field "VALUE"
// (values[i], or i when values is empty), features in the given order.
struct MemoryLayer {
  std::unique_ptr<ZOC::ZoDataSource> source;
  ZOC::ZoDatasetVector* dataset = nullptr;
};
MemoryLayer MakePointLayer(const std::vector<LUMA::LumaPoint2D>& points, const std::vector<double>& values = {},
                           const char* crs = nullptr);

// An empty point layer in GDAL's memory driver to receive a result.
struct MemoryResult {
  std::unique_ptr<ZOC::ZoDataSource> source = ZOC::ZoDataSource::CreateMemory("result");
  ZOC::ZoDatasetVector* dataset = source->CreateDatasetVector("result", ZOC::DatasetPoint, ZOC::ZoPrjCoordSys());
};

// A field of every record in "QlID" order, as doubles or as text.
std::vector<double> Column(ZOC::ZoDatasetVector* dataset, const char* field);
std::vector<std::string> Texts(ZOC::ZoDatasetVector* dataset, const char* field);

// The message identifiers in a message text ("[ESa014] ..."), in order.
std::vector<std::string> MessageIds(const LUMA::LumaUnicodeString& message);

// Writes a layer of OGR geometry type `geometryType` into the GeoPackage at
// `path` (created if missing) with GDAL directly, one feature per WKT text
// (an empty one has no geometry), in one transaction; epsg 0 leaves the layer
// without a coordinate system. False when GDAL refuses any of it.
bool WriteGdalLayer(const std::string& path, const std::string& layer, int geometryType,
                    const std::vector<std::string>& wkts, int epsg = 0);

// Prepares `writer` for layer "res" of `path` and fills its result from
// `source`: every geometry, and a double field "Result_Score" (long enough
// for a Shapefile to shorten) holding 0.5·k for the k-th feature. Null on
// failure, with the writer's error when it was the one to fail.
ZOC::ZoDatasetVector* FillResult(ZOC::ZoResultWriter& writer, ZOC::ZoDatasetVector* source, const std::string& path,
                                 bool overwrite);

// The names of the entries of a folder, sorted.
std::vector<std::string> FilesIn(const std::filesystem::path& folder);

// Uniformly random points in [0, size)², reproducible from the seed.
std::vector<LUMA::LumaPoint2D> RandomPoints(std::size_t n, double size, unsigned seed);

// ---- Shared setup of the library tests (tests/StatisticsAnalyst) ----

// Adds a field of the type (LUMA::FieldInt32 or LUMA::FieldDouble) holding
// values[k] in the k-th record in "QlID" order: keys that run against QlID,
// for weights files keyed by an ordinary field.
void AddField(ZOC::ZoDatasetVector* dataset, const char* field, int type, const std::vector<double>& values);

// Whether a message text carries the identifier ("[ESa014] ...").
bool HasMessageId(const LUMA::LumaUnicodeString& message, const char* id);

// The in-memory weights of every record as a dense matrix (0 off the list);
// empty when they cannot be built.
std::vector<std::vector<double>> DenseWeights(ZOC::ZoDatasetVector* dataset, const ZOC::ZoPatternsInformation& info);

}  // namespace satest
