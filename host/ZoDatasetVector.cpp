#include "host/ZoDatasetVector.h"

#include <algorithm>

#include "host/ZoDataSource.h"
#include "host/ZoRecordset.h"
#include "host/detail/DatasetInternals.h"
#include "host/detail/FieldConversion.h"
#include "host/detail/GdalSession.h"
#include "host/detail/GeometryConversion.h"
#include "host/detail/GpkgAppend.h"
#include "host/detail/KeySort.h"
#include "host/detail/PrjAccess.h"
#include "host/detail/QueryClauses.h"
#include "host/detail/RecordAppend.h"

namespace ZOC {

namespace detail {

// ---------------------------------------------------------------------------
// WriteBatch

WriteBatch::WriteBatch(GDALDataset* ds) : m_ds(ds) {
  m_canTransact = ds && ds->GetAccess() == GA_Update && ds->TestCapability(ODsCTransactions);
}

void WriteBatch::BeforeWrite() {
  if (m_canTransact && !m_active) m_active = m_ds->StartTransaction(FALSE) == OGRERR_NONE;
}

void WriteBatch::AfterWrite() {
  if (m_active && ++m_pending >= kBatchSize) Commit();
}

bool WriteBatch::Commit() {
  if (!m_active) return true;
  m_active = false;
  m_pending = 0;
  return m_ds->CommitTransaction() == OGRERR_NONE;
}

// ---------------------------------------------------------------------------
// LayerState

bool LayerState::ApplyFilter(const std::string& filter) {
  if (filter == appliedFilter) return true;
  cursorOwner = nullptr;
  const OGRErr err = layer->SetAttributeFilter(filter.empty() ? nullptr : filter.c_str());
  if (err != OGRERR_NONE) {
    layer->SetAttributeFilter(nullptr);
    appliedFilter.clear();
    return false;
  }
  appliedFilter = filter;
  return true;
}

void LayerState::RefreshFieldTypes() {
  OGRFeatureDefn* defn = layer->GetLayerDefn();
  const int n = defn->GetFieldCount();
  hostTypes.resize(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) hostTypes[static_cast<std::size_t>(i)] = HostFieldType(*defn->GetFieldDefn(i), gdal);
}

int LayerState::HostType(int field) {
  if (static_cast<std::size_t>(layer->GetLayerDefn()->GetFieldCount()) != hostTypes.size()) RefreshFieldTypes();
  if (field < 0 || static_cast<std::size_t>(field) >= hostTypes.size()) return LUMA::FieldOther;
  return hostTypes[static_cast<std::size_t>(field)];
}

int LayerState::FindField(std::string_view name) {
  if (LUMA::LumaUnicodeString(name).EqualsNoCase(kSystemIdField)) return kFieldSystemId;
  OGRFeatureDefn* defn = layer->GetLayerDefn();
  const int n = defn->GetFieldCount();
  for (int i = 0; i < n; ++i)
    if (LUMA::LumaUnicodeString(defn->GetFieldDefn(i)->GetNameRef()).EqualsNoCase(name)) return i;
  return kFieldUnknown;
}

bool LayerState::HasGeometry() const { return layer->GetLayerDefn()->GetGeomFieldCount() > 0; }

}  // namespace detail

namespace {

using detail::kFieldSystemId;
using detail::kFieldUnknown;

}  // namespace

// ---------------------------------------------------------------------------
// ZoDatasetVector

ZoDatasetVector::ZoDatasetVector(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

ZoDatasetVector::~ZoDatasetVector() {
  if (!m_impl) return;
  // Recordsets still open on this dataset lose it; their calls then fail.
  const auto live = m_impl->state.live;
  for (detail::RecordsetLink* link : live) link->Detach();
  m_impl->state.live.clear();
  if (m_impl->state.layer && !m_impl->state.appliedFilter.empty()) m_impl->state.layer->SetAttributeFilter(nullptr);
}

bool ZoDatasetVector::IsOpen() const { return m_impl && m_impl->state.layer != nullptr; }

bool ZoDatasetVector::Open() { return IsOpen(); }

LumaUnicodeString ZoDatasetVector::GetName() const { return m_impl->state.layer->GetName(); }

int ZoDatasetVector::GetType() const { return detail::DatasetTypeFromOGR(m_impl->state.layer->GetGeomType()); }

namespace {

// The rows of the layer as its file holds them, asked of GDAL's own
// connection, for a layer GDAL's cached count is behind on.
std::int64_t CountedBySql(detail::LayerState& st) {
  const std::string sql = "SELECT COUNT(*) FROM \"" + CPLString(st.layer->GetName()).replaceAll("\"", "\"\"") + "\"";
  OGRLayer* result = st.gdal->ExecuteSQL(sql.c_str(), nullptr, nullptr);
  if (!result) return 0;
  OGRFeatureUniquePtr row(result->GetNextFeature());
  const std::int64_t n = row ? row->GetFieldAsInteger64(0) : 0;
  st.gdal->ReleaseResultSet(result);
  return n;
}

}  // namespace

std::int64_t ZoDatasetVector::GetRecordCount() const {
  try {
    detail::QuietErrors quiet;
    detail::LayerState& st = m_impl->state;
    st.ApplyFilter(std::string());
    if (st.rowsBesideGdal > 0) return CountedBySql(st);
    // Counting without a fast path walks the layer with its cursor.
    if (!st.layer->TestCapability(OLCFastFeatureCount)) st.cursorOwner = nullptr;
    const GIntBig n = st.layer->GetFeatureCount(TRUE);
    return n < 0 ? 0 : static_cast<std::int64_t>(n);
  } catch (...) {
    return 0;
  }
}

ZoDataSource* ZoDatasetVector::GetDataSource() const { return m_impl->owner; }

bool ZoDatasetVector::GetFieldInfo(const LumaUnicodeString& name, LumaFieldInfo& info) const {
  detail::LayerState& st = m_impl->state;
  const int index = st.FindField(name.Str());
  if (index == kFieldUnknown) return false;
  if (index == kFieldSystemId) {
    info = LumaFieldInfo(kSystemIdField, LUMA::FieldInt32, true);
    return true;
  }
  const OGRFieldDefn* defn = st.layer->GetLayerDefn()->GetFieldDefn(index);
  info = LumaFieldInfo(defn->GetNameRef(), st.HostType(index), false);
  if (defn->GetType() == OFTString && defn->GetWidth() > 0) info.SetSize(defn->GetWidth());
  return true;
}

LumaFieldInfos ZoDatasetVector::GetFieldInfos() const {
  detail::LayerState& st = m_impl->state;
  LumaFieldInfos infos;
  infos.push_back(LumaFieldInfo(kSystemIdField, LUMA::FieldInt32, true));
  OGRFeatureDefn* defn = st.layer->GetLayerDefn();
  for (int i = 0; i < defn->GetFieldCount(); ++i) {
    const OGRFieldDefn* f = defn->GetFieldDefn(i);
    LumaFieldInfo info(f->GetNameRef(), st.HostType(i), false);
    if (f->GetType() == OFTString && f->GetWidth() > 0) info.SetSize(f->GetWidth());
    infos.push_back(info);
  }
  return infos;
}

bool ZoDatasetVector::CreateField(const LumaFieldInfo& info) {
  try {
    detail::QuietErrors quiet;
    detail::LayerState& st = m_impl->state;
    if (info.GetName().IsEmpty() || st.FindField(info.GetName().Str()) != kFieldUnknown) return false;
    std::unique_ptr<OGRFieldDefn> defn = detail::MakeFieldDefn(info, st.gdal);
    if (!defn) return false;
    st.batch->Commit();  // schema changes outside the write transaction
    st.cursorOwner = nullptr;
    const OGRErr err = st.layer->CreateField(defn.get(), FALSE);
    st.RefreshFieldTypes();
    return err == OGRERR_NONE && st.FindField(info.GetName().Str()) >= 0;
  } catch (...) {
    return false;
  }
}

const ZoPrjCoordSys& ZoDatasetVector::GetPrjCoordSys() const { return m_impl->cs; }

bool ZoDatasetVector::SetPrjCoordSys(const ZoPrjCoordSys& cs) {
  try {
    detail::QuietErrors quiet;
    if (GetRecordCount() > 0) return false;
    detail::LayerState& st = m_impl->state;
    if (st.HasGeometry() && st.layer->TestCapability(OLCAlterGeomFieldDefn)) {
      st.batch->Commit();
      OGRGeomFieldDefn changed(st.layer->GetLayerDefn()->GetGeomFieldDefn(0));
      detail::SrsPtr srs(detail::PrjAccess::Get(cs) ? detail::PrjAccess::Get(cs)->Clone() : nullptr);
      changed.SetSpatialRef(srs.get());
      st.layer->AlterGeomFieldDefn(0, &changed, ALTER_GEOM_FIELD_DEFN_SRS_FLAG);
      st.cursorOwner = nullptr;
    }
    m_impl->cs = cs;
    return true;
  } catch (...) {
    return false;
  }
}

ZoRecordset* ZoDatasetVector::Query(const ZoQueryDef& query) {
  try {
    detail::QuietErrors quiet;
    detail::LayerState& st = m_impl->state;
    st.RefreshFieldTypes();
    for (const LumaUnicodeString& f : query.m_fields)
      if (st.FindField(f.Str()) == kFieldUnknown) return nullptr;
    std::vector<detail::OrderKey> order;
    if (!detail::ParseOrder(query.m_order.Str(), st, order)) return nullptr;
    if (!std::is_sorted(query.m_ids.begin(), query.m_ids.end())) return nullptr;

    auto impl = std::make_unique<ZoRecordset::Impl>();
    impl->dataset = this;
    impl->state = &st;
    impl->filter = detail::TranslateFilter(query.m_filter.Str(), st);
    if (!st.ApplyFilter(impl->filter)) return nullptr;
    std::vector<detail::KeyColumn> keys = detail::KeyColumns(order, *st.layer->GetLayerDefn());
    st.cursorOwner = impl.get();
    detail::ReadKeys(*st.layer, keys, impl->fids);
    st.cursorOwner = nullptr;
    if (quiet.Failed()) {  // e.g. a filter the driver's SQL engine rejected
      st.ApplyFilter(std::string());
      return nullptr;
    }
    if (!query.m_ids.empty()) {
      const auto& wanted = query.m_ids;
      std::erase_if(impl->fids, [&](GIntBig fid) {
        return !std::binary_search(wanted.begin(), wanted.end(), static_cast<std::int64_t>(fid));
      });
    }
    const std::vector<GIntBig>& fids = impl->fids;
    impl->natural = detail::SortByKeys(keys, impl->fids);
    impl->ascending =
        std::adjacent_find(fids.begin(), fids.end(), [](GIntBig a, GIntBig b) { return a >= b; }) == fids.end();

    ZoRecordset* rs = new ZoRecordset(std::move(impl));
    st.live.push_back(rs->m_impl.get());
    rs->MoveFirst();
    return rs;
  } catch (...) {
    return nullptr;
  }
}

void ZoDatasetVector::ReleaseRecordset(ZoRecordset* recordset) { delete recordset; }

bool ZoDatasetVector::AppendRecords(ZoRecordset* source,
                                    const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>>& fieldMap,
                                    ZoProgress* progress) {
  return AppendRecords(source, fieldMap, progress, {}, nullptr);
}

bool ZoDatasetVector::AppendRecords(ZoRecordset* source,
                                    const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>>& fieldMap,
                                    ZoProgress* progress, const std::vector<LumaUnicodeString>& extraFields,
                                    const ExtraValues& fill) {
  try {
    if (!source || !source->m_impl || !source->m_impl->state) return false;
    detail::QuietErrors quiet;
    detail::LayerState& st = m_impl->state;
    std::vector<detail::FieldPair> pairs;
    detail::ExtraTargets extra;
    if (!detail::MapFields(*source->m_impl->state, st, fieldMap, pairs) || !extra.Map(st, extraFields)) return false;
    OGRFeatureDefn* defn = st.layer->GetLayerDefn();
    const bool withGeometry = st.HasGeometry();
    const OGRwkbGeometryType layerType = st.layer->GetGeomType();
    detail::AppendProgress shown{progress, source->GetRecordCount()};
    if (!shown.Start()) return false;
    // An empty GeoPackage table is filled through SQLite directly, once
    // GDAL has written what it holds; anything else through GDAL.
    detail::GpkgAppend direct;
    const bool besideGdal = st.gdal->GetDriver() && EQUAL(st.gdal->GetDriver()->GetDescription(), "GPKG") &&
                            st.batch->Commit() && st.layer->SyncToDisk() == OGRERR_NONE &&
                            direct.Start(st.gdal->GetDescription(), *st.layer, st.keepSourceIds);
    std::int64_t done = 0;
    // One feature is filled again for every record, and each source
    // geometry of the layer's kind moves over rather than being copied: the
    // source record is read afresh whenever it is visited again.
    OGRFeatureUniquePtr out(OGRFeature::CreateFeature(defn));
    for (source->MoveFirst(); !source->IsEOF(); source->MoveNext()) {
      OGRFeature* in = source->m_impl->current.get();
      out->Reset();
      if (withGeometry && in && in->GetGeometryRef()) {
        const OGRwkbGeometryType kind = in->GetGeometryRef()->getGeometryType();
        if (layerType == wkbUnknown || wkbFlatten(layerType) == wkbFlatten(kind))
          out->SetGeometryDirectly(in->StealGeometry());
        else if (OGRGeometry* g = detail::GeometryForLayer(*in->GetGeometryRef(), layerType))
          out->SetGeometryDirectly(g);
      }
      detail::CopyFields(in, source->GetID(), pairs, *out);
      if (st.keepSourceIds) out->SetFID(source->GetID());
      if (!extra.Fill(done, fill, *out)) return false;
      if (besideGdal) {
        if (!direct.Add(*out)) return false;
      } else {
        st.batch->BeforeWrite();
        const OGRErr err = st.layer->CreateFeature(out.get());
        st.batch->AfterWrite();
        if (err != OGRERR_NONE) return false;
      }
      if (!shown.Step(++done)) return false;
    }
    if (besideGdal) {
      if (!direct.Finish()) return false;
      st.rowsBesideGdal += direct.Added();
    }
    shown.Finish();
    return true;
  } catch (...) {
    return false;
  }
}

void ZoDatasetVector::KeepSourceIds(bool keep) { m_impl->state.keepSourceIds = keep; }

bool ZoDatasetVector::Commit() {
  try {
    detail::QuietErrors quiet;
    detail::LayerState& st = m_impl->state;
    const bool ok = st.batch->Commit();
    // Formats without transactions write their headers on sync.
    if (!st.gdal->TestCapability(ODsCTransactions)) st.layer->SyncToDisk();
    return ok;
  } catch (...) {
    return false;
  }
}

OGRLayer* detail::HostAccess::Layer(const ZoDatasetVector& dataset) { return dataset.m_impl->state.layer; }

}  // namespace ZOC
