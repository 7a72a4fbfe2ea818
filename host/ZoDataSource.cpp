#include "host/ZoDataSource.h"

#include <algorithm>
#include <cctype>

#include <cpl_vsi.h>

#include "host/detail/DatasetInternals.h"
#include "host/detail/GdalSession.h"
#include "host/detail/GeometryConversion.h"
#include "host/detail/PrjAccess.h"

namespace ZOC {

struct ZoDataSource::Impl {
  GDALDataset* gdal = nullptr;
  std::string path;
  std::unique_ptr<detail::WriteBatch> batch;
  std::vector<std::unique_ptr<ZoDatasetVector>> datasets;

  // Builds the dataset object of one layer; its coordinate system carries
  // the layer's extent.
  static std::unique_ptr<ZoDatasetVector> MakeDataset(ZoDataSource* owner, GDALDataset* gdal, detail::WriteBatch* batch,
                                                      OGRLayer* layer);
  // A datasource over an opened GDAL dataset, which it then owns; no
  // datasets listed yet.
  static std::unique_ptr<ZoDataSource> Wrap(GDALDataset* gdal, const std::string& path);
  // Adds a dataset for a layer of the datasource.
  ZoDatasetVector* Adopt(ZoDataSource* owner, OGRLayer* layer);
  // Creates a layer (replacing one of that name when `overwrite` is set) and
  // its dataset; null with a reason in *error.
  ZoDatasetVector* AddLayer(ZoDataSource* owner, const LumaUnicodeString& name, OGRwkbGeometryType type,
                            const OGRSpatialReference* srs, bool overwrite, LumaUnicodeString* error);
};

namespace {

std::string LowerExtension(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  const std::size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string ext = path.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

void SetError(LumaUnicodeString* error, const std::string& what, const detail::QuietErrors& quiet) {
  if (!error) return;
  const std::string detail = quiet.Message();
  *error = detail.empty() ? what : what + ": " + detail;
}

}  // namespace

ZoDataSource::ZoDataSource(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

ZoDataSource::~ZoDataSource() {
  if (!m_impl || !m_impl->gdal) return;
  try {
    detail::QuietErrors quiet;
    m_impl->batch->Commit();
    m_impl->datasets.clear();
    GDALClose(m_impl->gdal);
  } catch (...) {
  }
  m_impl->gdal = nullptr;
}

std::unique_ptr<ZoDataSource> ZoDataSource::Open(const LumaUnicodeString& path, bool update, LumaUnicodeString* error) {
  try {
    detail::EnsureGdal();
    detail::QuietErrors quiet;
    const unsigned flags = GDAL_OF_VECTOR | (update ? GDAL_OF_UPDATE : GDAL_OF_READONLY);
    GDALDataset* gdal = GDALDataset::Open(path.c_str(), flags, nullptr, nullptr, nullptr);
    if (!gdal) {
      SetError(error, "cannot open " + path.Str(), quiet);
      return nullptr;
    }
    std::unique_ptr<ZoDataSource> ds = Impl::Wrap(gdal, path.Str());
    for (int i = 0; i < gdal->GetLayerCount(); ++i) ds->m_impl->Adopt(ds.get(), gdal->GetLayer(i));
    return ds;
  } catch (...) {
    if (error) *error = "cannot open " + path.Str();
    return nullptr;
  }
}

std::unique_ptr<ZoDataSource> ZoDataSource::OpenOrCreate(const LumaUnicodeString& path, LumaUnicodeString* error) {
  try {
    detail::EnsureGdal();
    VSIStatBufL st;
    if (VSIStatL(path.c_str(), &st) == 0) return Open(path, true, error);
    detail::QuietErrors quiet;
    const LumaUnicodeString driverName = DriverForPath(path);
    GDALDriver* driver = driverName.IsEmpty() ? nullptr : GetGDALDriverManager()->GetDriverByName(driverName.c_str());
    if (!driver) {
      SetError(error, "no driver for " + path.Str(), quiet);
      return nullptr;
    }
    GDALDataset* gdal = driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
    if (!gdal) {
      SetError(error, "cannot create " + path.Str(), quiet);
      return nullptr;
    }
    return Impl::Wrap(gdal, path.Str());
  } catch (...) {
    if (error) *error = "cannot create " + path.Str();
    return nullptr;
  }
}

std::unique_ptr<ZoDataSource> ZoDataSource::CreateMemory(const LumaUnicodeString& name) {
  try {
    detail::EnsureGdal();
    detail::QuietErrors quiet;
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("Memory");
    if (!driver) return nullptr;
    GDALDataset* gdal = driver->Create(name.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
    if (!gdal) return nullptr;
    return Impl::Wrap(gdal, name.Str());
  } catch (...) {
    return nullptr;
  }
}

LumaUnicodeString ZoDataSource::DriverForPath(const LumaUnicodeString& path) {
  try {
    detail::EnsureGdal();
    GDALDriver* driver = detail::VectorDriverForExtension(LowerExtension(path.Str()), true);
    return driver ? driver->GetDescription() : "";
  } catch (...) {
    return "";
  }
}

LumaUnicodeString ZoDataSource::GetPath() const { return m_impl->path; }

LumaUnicodeString ZoDataSource::GetDriverName() const {
  GDALDriver* driver = m_impl->gdal->GetDriver();
  return driver ? driver->GetDescription() : "";
}

int ZoDataSource::GetDatasetCount() const { return static_cast<int>(m_impl->datasets.size()); }

ZoDatasetVector* ZoDataSource::GetDataset(int index) {
  if (index < 0 || index >= GetDatasetCount()) return nullptr;
  return m_impl->datasets[static_cast<std::size_t>(index)].get();
}

ZoDatasetVector* ZoDataSource::GetDataset(const LumaUnicodeString& name) {
  for (auto& ds : m_impl->datasets)
    if (name.EqualsNoCase(detail::HostAccess::Layer(*ds)->GetName())) return ds.get();
  return nullptr;
}

ZoDatasetVector* ZoDataSource::CreateDatasetVector(const LumaUnicodeString& name, int datasetType,
                                                   const ZoPrjCoordSys& cs, bool overwrite, LumaUnicodeString* error) {
  const OGRwkbGeometryType type = detail::OGRTypeForDataset(datasetType);
  if (type == wkbUnknown) {
    if (error) *error = "unknown dataset type " + std::to_string(datasetType);
    return nullptr;
  }
  return m_impl->AddLayer(this, name, type, type == wkbNone ? nullptr : detail::PrjAccess::Get(cs), overwrite, error);
}

ZoDatasetVector* ZoDataSource::CreateDatasetVector(const LumaUnicodeString& name, const ZoDatasetVector& like,
                                                   bool overwrite, LumaUnicodeString* error) {
  OGRLayer* model = detail::HostAccess::Layer(like);
  if (!model) {
    if (error) *error = "no model dataset";
    return nullptr;
  }
  const OGRwkbGeometryType type = model->GetGeomType();
  return m_impl->AddLayer(this, name, type, type == wkbNone ? nullptr : model->GetSpatialRef(), overwrite, error);
}

ZoDatasetVector* ZoDataSource::Impl::AddLayer(ZoDataSource* owner, const LumaUnicodeString& name,
                                              OGRwkbGeometryType type, const OGRSpatialReference* srs, bool overwrite,
                                              LumaUnicodeString* error) {
  try {
    detail::QuietErrors quiet;
    if (name.IsEmpty()) {
      if (error) *error = "empty dataset name";
      return nullptr;
    }
    if (owner->GetDataset(name)) {
      if (!overwrite) {
        if (error) *error = "dataset " + name.Str() + " exists";
        return nullptr;
      }
      if (!owner->DeleteDataset(name)) {
        SetError(error, "cannot replace dataset " + name.Str(), quiet);
        return nullptr;
      }
    }
    batch->Commit();  // schema changes outside the write transaction
    CPLStringList options;
    if (owner->GetDriverName().Str() == "ESRI Shapefile") options.SetNameValue("ENCODING", "UTF-8");
    detail::SrsPtr copy(srs ? srs->Clone() : nullptr);
    OGRLayer* layer = gdal->CreateLayer(name.c_str(), copy.get(), type, options.List());
    if (!layer) {
      SetError(error, "cannot create dataset " + name.Str(), quiet);
      return nullptr;
    }
    return Adopt(owner, layer);
  } catch (...) {
    if (error) *error = "cannot create dataset " + name.Str();
    return nullptr;
  }
}

bool ZoDataSource::DeleteDataset(const LumaUnicodeString& name) {
  try {
    detail::QuietErrors quiet;
    for (std::size_t i = 0; i < m_impl->datasets.size(); ++i) {
      if (!name.EqualsNoCase(detail::HostAccess::Layer(*m_impl->datasets[i])->GetName())) continue;
      m_impl->batch->Commit();
      // The OGR layer index follows the dataset list, which mirrors it.
      int index = -1;
      for (int k = 0; k < m_impl->gdal->GetLayerCount(); ++k)
        if (m_impl->gdal->GetLayer(k) == detail::HostAccess::Layer(*m_impl->datasets[i])) index = k;
      if (index < 0) return false;
      // Cut recordsets loose while the layer still exists, then drop it.
      std::unique_ptr<ZoDatasetVector> gone = std::move(m_impl->datasets[i]);
      m_impl->datasets.erase(m_impl->datasets.begin() + static_cast<std::ptrdiff_t>(i));
      gone.reset();
      return m_impl->gdal->DeleteLayer(index) == OGRERR_NONE;
    }
    return false;
  } catch (...) {
    return false;
  }
}

std::vector<LumaUnicodeString> ZoDataSource::GetFileList() const {
  std::vector<LumaUnicodeString> files;
  try {
    detail::QuietErrors quiet;
    char** list = m_impl->gdal->GetFileList();
    for (char** p = list; p && *p; ++p) files.emplace_back(*p);
    CSLDestroy(list);
  } catch (...) {
  }
  return files;
}

GDALDataset* detail::HostAccess::Gdal(const ZoDataSource& source) { return source.m_impl->gdal; }

std::unique_ptr<ZoDataSource> detail::HostAccess::Wrap(GDALDataset* gdal, const std::string& path) {
  return ZoDataSource::Impl::Wrap(gdal, path);
}

ZoDatasetVector* detail::HostAccess::Adopt(ZoDataSource& source, OGRLayer* layer) {
  return source.m_impl->Adopt(&source, layer);
}

bool detail::HostAccess::Move(ZoDataSource& from, ZoDatasetVector* dataset, ZoDataSource& to, OGRLayer* layer) {
  auto& list = from.m_impl->datasets;
  const auto at = std::find_if(list.begin(), list.end(), [&](const auto& d) { return d.get() == dataset; });
  if (at == list.end()) return false;
  std::unique_ptr<ZoDatasetVector> moving = std::move(*at);
  list.erase(at);
  ZoDatasetVector::Impl& impl = *moving->m_impl;
  const auto live = impl.state.live;
  for (RecordsetLink* link : live) link->Detach();
  impl.state.live.clear();
  impl.owner = &to;
  impl.state.layer = layer;
  impl.state.gdal = to.m_impl->gdal;
  impl.state.batch = to.m_impl->batch.get();
  impl.state.cursorOwner = nullptr;
  impl.state.appliedFilter.clear();
  impl.state.rowsBesideGdal = 0;
  if (layer) {
    impl.state.RefreshFieldTypes();
    layer->ResetReading();
  }
  to.m_impl->datasets.push_back(std::move(moving));
  return true;
}

std::unique_ptr<ZoDataSource> ZoDataSource::Impl::Wrap(GDALDataset* gdal, const std::string& path) {
  auto impl = std::make_unique<Impl>();
  impl->gdal = gdal;
  impl->path = path;
  impl->batch = std::make_unique<detail::WriteBatch>(gdal);
  return std::unique_ptr<ZoDataSource>(new ZoDataSource(std::move(impl)));
}

ZoDatasetVector* ZoDataSource::Impl::Adopt(ZoDataSource* owner, OGRLayer* layer) {
  datasets.push_back(MakeDataset(owner, gdal, batch.get(), layer));
  return datasets.back().get();
}

std::unique_ptr<ZoDatasetVector> ZoDataSource::Impl::MakeDataset(ZoDataSource* owner, GDALDataset* gdal,
                                                                 detail::WriteBatch* batch, OGRLayer* layer) {
  auto impl = std::make_unique<ZoDatasetVector::Impl>();
  impl->owner = owner;
  impl->state.layer = layer;
  impl->state.gdal = gdal;
  impl->state.batch = batch;
  impl->state.RefreshFieldTypes();
  detail::PrjAccess::Set(impl->cs, layer->GetSpatialRef());
  OGREnvelope env;
  if (layer->GetGeomType() != wkbNone && layer->GetExtent(&env, TRUE) == OGRERR_NONE && env.IsInit())
    impl->cs.SetExtent(env.MinX, env.MinY, env.MaxX, env.MaxY);
  layer->ResetReading();
  return std::unique_ptr<ZoDatasetVector>(new ZoDatasetVector(std::move(impl)));
}

}  // namespace ZOC
