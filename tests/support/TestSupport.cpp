#include "TestSupport.h"

#include <sys/wait.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "host/ZoRecordset.h"
#include "host/ZoResultWriter.h"

namespace satest {

std::string DataPath(const std::string& file) { return std::string(SA_DATA_DIR) + "/" + file; }

TempDir::TempDir() {
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (;;) {
    m_path = base / ("sa_test_" + std::to_string(rd()));
    if (std::filesystem::create_directory(m_path)) break;
  }
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(m_path, ec);
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : m_name(name) {
  const char* old = std::getenv(name);
  m_wasSet = old != nullptr;
  if (old) m_saved = old;
  setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  if (m_wasSet) {
    setenv(m_name.c_str(), m_saved.c_str(), 1);
  } else {
    unsetenv(m_name.c_str());
  }
}

int RunCommand(const std::string& command, std::string* output, bool mergeStderr) {
  const std::string full = command + (mergeStderr ? " 2>&1" : "");
  FILE* pipe = popen(full.c_str(), "r");
  if (!pipe) return -1;
  char buf[4096];
  std::size_t n;
  if (output) output->clear();
  while ((n = fread(buf, 1, sizeof buf, pipe)) > 0)
    if (output) output->append(buf, n);
  const int status = pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

MemoryLayer MakePointLayer(const std::vector<LUMA::LumaPoint2D>& points, const std::vector<double>& values,
                           const char* crs) {
  MemoryLayer layer;
  layer.source = ZOC::ZoDataSource::CreateMemory();
  ZOC::ZoPrjCoordSys cs;
  if (crs) cs.SetFromUserInput(crs);
  layer.dataset = layer.source->CreateDatasetVector("points", ZOC::DatasetPoint, cs);
  layer.dataset->CreateField(LUMA::LumaFieldInfo("VALUE", LUMA::FieldDouble));
  ZOC::ZoRecordset* writer = layer.dataset->Query(ZOC::ZoQueryDef());
  for (std::size_t i = 0; i < points.size(); ++i) {
    writer->AddNew(ZOC::ZoGeometry::MakePoint(points[i]));
    writer->SetFieldValue("VALUE", LUMA::LumaVariant(values.empty() ? double(i) : values[i]));
    writer->Update();
  }
  layer.dataset->ReleaseRecordset(writer);
  layer.dataset->Commit();
  return layer;
}

bool WriteGdalLayer(const std::string& path, const std::string& name, int geometryType,
                    const std::vector<std::string>& wkts, int epsg) {
  GDALAllRegister();
  GDALDatasetUniquePtr ds(
      std::filesystem::exists(path)
          ? GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE)
          : GetGDALDriverManager()->GetDriverByName("GPKG")->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
  OGRSpatialReference srs;
  if (!ds || (epsg && srs.importFromEPSG(epsg) != OGRERR_NONE)) return false;
  OGRLayer* layer =
      ds->CreateLayer(name.c_str(), epsg ? &srs : nullptr, static_cast<OGRwkbGeometryType>(geometryType), nullptr);
  if (!layer || ds->StartTransaction() != OGRERR_NONE) return false;
  for (const std::string& wkt : wkts) {
    OGRFeature f(layer->GetLayerDefn());
    OGRGeometry* g = nullptr;
    if (!wkt.empty() && OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &g) != OGRERR_NONE) return false;
    f.SetGeometryDirectly(g);
    if (layer->CreateFeature(&f) != OGRERR_NONE) return false;
  }
  return ds->CommitTransaction() == OGRERR_NONE;
}

ZOC::ZoDatasetVector* FillResult(ZOC::ZoResultWriter& writer, ZOC::ZoDatasetVector* source, const std::string& path,
                                 bool overwrite) {
  ZOC::ZoDatasetVector* result =
      writer.Prepare(path, "res", overwrite, {}) ? writer.CreateResult(source, 0, ZOC::ZoPrjCoordSys()) : nullptr;
  if (!result || !result->CreateField(LUMA::LumaFieldInfo("Result_Score", LUMA::FieldDouble))) return nullptr;
  std::unique_ptr<ZOC::ZoRecordset> records(source->Query(ZOC::ZoQueryDef()));
  const bool ok = result->AppendRecords(records.get(), {}, nullptr, {"Result_Score"},
                                        [](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                                          values[0] = 0.5 * static_cast<double>(k);
                                          return true;
                                        });
  return ok ? result : nullptr;
}

std::vector<std::string> FilesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(folder)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<LUMA::LumaPoint2D> RandomPoints(std::size_t n, double size, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, size);
  std::vector<LUMA::LumaPoint2D> points(n);
  for (auto& p : points) p = {u(rng), u(rng)};
  return points;
}

namespace {
template <class T, class Get>
std::vector<T> ReadField(ZOC::ZoDatasetVector* dataset, const char* field, Get get) {
  std::vector<T> out;
  ZOC::ZoRecordset* r = dataset->Query(ZOC::ZoQueryDef());
  LUMA::LumaVariant v;
  for (r->MoveFirst(); !r->IsEOF(); r->MoveNext()) r->GetFieldValue(field, v), out.push_back(get(v));
  dataset->ReleaseRecordset(r);
  return out;
}
}  // namespace

std::vector<double> Column(ZOC::ZoDatasetVector* dataset, const char* field) {
  return ReadField<double>(dataset, field, [](const LUMA::LumaVariant& v) { return v.ToDouble(); });
}

std::vector<std::string> Texts(ZOC::ZoDatasetVector* dataset, const char* field) {
  return ReadField<std::string>(dataset, field, [](const LUMA::LumaVariant& v) { return v.ToString().Str(); });
}

std::vector<std::string> MessageIds(const LUMA::LumaUnicodeString& message) {
  std::vector<std::string> ids;
  const std::string& s = message.Str();
  for (std::size_t p = s.find('['); p != std::string::npos; p = s.find('[', p + 1)) {
    const auto q = s.find(']', p);
    if (q != std::string::npos) ids.push_back(s.substr(p + 1, q - p - 1));
  }
  return ids;
}

// ---- Shared setup of the library tests (tests/StatisticsAnalyst) ----

void AddField(ZOC::ZoDatasetVector* dataset, const char* field, int type, const std::vector<double>& values) {
  dataset->CreateField(LUMA::LumaFieldInfo(field, type));
  ZOC::ZoRecordset* records = dataset->Query(ZOC::ZoQueryDef());
  std::size_t k = 0;
  for (records->MoveFirst(); !records->IsEOF(); records->MoveNext(), ++k) {
    records->Edit();
    records->SetFieldValue(field, type == LUMA::FieldInt32 ? LUMA::LumaVariant(static_cast<int>(values[k]))
                                                           : LUMA::LumaVariant(values[k]));
    records->Update();
  }
  dataset->ReleaseRecordset(records);
  dataset->Commit();
}

bool HasMessageId(const LUMA::LumaUnicodeString& message, const char* id) {
  return message.Str().find(std::string("[") + id + "]") != std::string::npos;
}

std::vector<std::vector<double>> DenseWeights(ZOC::ZoDatasetVector* dataset, const ZOC::ZoPatternsInformation& info) {
  ZOC::ZoRecordsetPtr records(dataset->Query(ZOC::ZoQueryDef()));
  ZOC::ZoStatisticsUtilities u;
  LUMA::LumaArray<ZOC::WeightMatrixUnit> units;
  if (!u.GetSpatialWeight(records.get(), info, units, false)) return {};
  const std::size_t n = static_cast<std::size_t>(records->GetRecordCount());
  std::vector<std::vector<double>> w(n, std::vector<double>(n, 0.0));
  for (const auto& unit : units) w[unit.Index / n][unit.Index % n] = unit.Weight;
  return w;
}

}  // namespace satest
