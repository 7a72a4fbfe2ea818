#include "host/ZoRecordset.h"

#include <algorithm>

#include "host/ZoDatasetVector.h"
#include "host/detail/ColumnRead.h"
#include "host/detail/DatasetInternals.h"
#include "host/detail/FieldConversion.h"
#include "host/detail/GdalSession.h"
#include "host/detail/GeometryConversion.h"

namespace ZOC {

using detail::kFieldSystemId;
using detail::kFieldUnknown;

void ZoRecordset::Impl::Detach() {
  current.reset();
  DropPending();
  state = nullptr;
  dataset = nullptr;
  sequential = false;
}

bool ZoRecordset::Impl::Load() {
  current.reset();
  if (!state || pos >= fids.size()) return false;
  const GIntBig want = fids[pos];
  if (sequential) {
    if (state->cursorOwner == this) {
      OGRFeatureUniquePtr f(state->layer->GetNextFeature());
      if (f && f->GetFID() == want) {
        current = std::move(f);
        return true;
      }
      // Someone moved the cursor (a write, a count, a driver reset): from
      // here on read by ID.
      state->cursorOwner = nullptr;
    }
    sequential = false;
  }
  current.reset(state->layer->GetFeature(want));
  return true;
}

ZoRecordset::ZoRecordset(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

ZoRecordset::~ZoRecordset() {
  if (!m_impl || !m_impl->state) return;
  try {
    detail::QuietErrors quiet;
    detail::LayerState& st = *m_impl->state;
    st.live.erase(std::remove(st.live.begin(), st.live.end(), static_cast<detail::RecordsetLink*>(m_impl.get())),
                  st.live.end());
    if (st.cursorOwner == m_impl.get()) st.cursorOwner = nullptr;
    // Leave the layer unfiltered for whoever reads it next.
    if (!st.appliedFilter.empty() && st.appliedFilter == m_impl->filter) st.ApplyFilter(std::string());
    m_impl->current.reset();
    m_impl->DropPending();
    st.batch->Commit();
  } catch (...) {
  }
}

ZoDatasetVector* ZoRecordset::GetDataset() const { return m_impl->dataset; }

std::int64_t ZoRecordset::GetRecordCount() const { return static_cast<std::int64_t>(m_impl->fids.size()); }

bool ZoRecordset::MoveFirst() {
  try {
    Impl& r = *m_impl;
    if (!r.state) return false;
    detail::QuietErrors quiet;
    r.DropPending();
    r.pos = 0;
    r.sequential = false;
    r.current.reset();
    if (r.fids.empty()) return false;
    if (r.natural && r.state->ApplyFilter(r.filter)) {
      r.state->cursorOwner = &r;
      r.state->layer->ResetReading();
      r.sequential = true;
    }
    return r.Load();
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::MoveNext() {
  try {
    Impl& r = *m_impl;
    if (!r.state || r.pos >= r.fids.size()) return false;
    detail::QuietErrors quiet;
    r.DropPending();
    ++r.pos;
    return r.Load();
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::IsEOF() const { return !m_impl->state || m_impl->pos >= m_impl->fids.size(); }

bool ZoRecordset::SeekID(std::int64_t id) {
  try {
    Impl& r = *m_impl;
    if (!r.state) return false;
    detail::QuietErrors quiet;
    r.DropPending();
    r.sequential = false;
    std::size_t found = r.fids.size();
    if (r.ascending) {
      const auto it = std::lower_bound(r.fids.begin(), r.fids.end(), static_cast<GIntBig>(id));
      if (it != r.fids.end() && *it == id) found = static_cast<std::size_t>(it - r.fids.begin());
    } else {
      if (r.seekIndex.size() != r.fids.size()) {
        r.seekIndex.clear();
        r.seekIndex.reserve(r.fids.size());
        for (std::size_t i = 0; i < r.fids.size(); ++i) r.seekIndex.emplace_back(r.fids[i], i);
        std::sort(r.seekIndex.begin(), r.seekIndex.end());
      }
      const auto it = std::lower_bound(r.seekIndex.begin(), r.seekIndex.end(),
                                       std::make_pair(static_cast<GIntBig>(id), std::size_t{0}));
      if (it != r.seekIndex.end() && it->first == id) found = it->second;
    }
    r.pos = found;
    if (found == r.fids.size()) {
      r.current.reset();
      return false;
    }
    return r.Load();
  } catch (...) {
    return false;
  }
}

std::int64_t ZoRecordset::GetID() const {
  const Impl& r = *m_impl;
  if (!r.state || r.pos >= r.fids.size()) return -1;
  return static_cast<std::int64_t>(r.fids[r.pos]);
}

std::int64_t ZoRecordset::GetIDAt(std::int64_t k) const {
  const Impl& r = *m_impl;
  if (!r.state || k < 0 || static_cast<std::size_t>(k) >= r.fids.size()) return -1;
  return static_cast<std::int64_t>(r.fids[static_cast<std::size_t>(k)]);
}

namespace {

// The columns of `request` (its fields named in `fields` and `texts`) for
// every record of a recordset (its implementation `r`) in the layer's own
// order.
template <class Records>
bool ReadRecordColumns(Records& r, const std::vector<LumaUnicodeString>& fields,
                       const std::vector<LumaUnicodeString>& texts, detail::ColumnRequest& request,
                       detail::ColumnData& data) {
  if (!r.state || !r.natural || r.pending) return false;
  detail::QuietErrors quiet;
  detail::LayerState& st = *r.state;
  request.expected = r.fids.size();
  for (const auto* names : {&fields, &texts})
    for (const LumaUnicodeString& name : *names) {
      const int field = st.FindField(name.Str());
      if (field < 0) return false;
      (names == &fields ? request.fields : request.texts).push_back(field);
    }
  if ((request.points && !st.HasGeometry()) || !st.ApplyFilter(r.filter)) return false;
  // The stream moves the layer's cursor: record-by-record reading resumes by ID.
  st.cursorOwner = nullptr;
  r.sequential = false;
  // The layer must still hold exactly the records the query found.
  return detail::ReadColumns(*st.layer, request, data) && !quiet.Failed() && data.fids == r.fids;
}

}  // namespace

bool ZoRecordset::ReadColumns(const std::vector<LumaUnicodeString>& fields, bool points, Columns& columns) {
  try {
    detail::ColumnRequest request;
    request.points = points;
    detail::ColumnData data;
    if (!ReadRecordColumns(*m_impl, fields, {}, request, data)) return false;
    columns.values = std::move(data.values);
    columns.nulls = std::move(data.nulls);
    columns.points = std::move(data.points);
    columns.hasPoint = std::move(data.hasPoint);
    return true;
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::ReadTextColumn(const LumaUnicodeString& field, std::vector<std::string>& values,
                                 std::vector<std::uint8_t>& nulls) {
  try {
    detail::ColumnRequest request;
    detail::ColumnData data;
    if (!ReadRecordColumns(*m_impl, {}, {field}, request, data)) return false;
    values = std::move(data.texts[0]);
    nulls = std::move(data.textNulls[0]);
    return true;
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::GetFieldValue(const LumaUnicodeString& name, LumaVariant& value) {
  try {
    Impl& r = *m_impl;
    if (!r.state) return false;
    const int field = r.state->FindField(name.Str());
    if (field == kFieldUnknown) return false;
    const OGRFeature* f = r.pending ? r.pending.get() : r.current.get();
    if (field == kFieldSystemId) {
      if (r.mode == Impl::Mode::Add) {
        value = LumaVariant();
        return true;
      }
      if (r.pos >= r.fids.size()) return false;
      value = LumaVariant(static_cast<std::int64_t>(r.fids[r.pos]));
      return true;
    }
    if (!f) return false;
    detail::ReadFieldValue(*f, field, r.state->HostType(field), value);
    return true;
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::GetGeometry(ZoGeometry& geometry) {
  try {
    const Impl& r = *m_impl;
    if (!r.state) return false;
    const OGRFeature* f = r.pending ? r.pending.get() : r.current.get();
    if (!f) return false;
    geometry = detail::GeometryFromOGR(f->GetGeometryRef());
    return true;
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::AddNew(const ZoGeometry& geometry) {
  try {
    Impl& r = *m_impl;
    if (!r.state) return false;
    r.pending.reset(OGRFeature::CreateFeature(r.state->layer->GetLayerDefn()));
    r.mode = Impl::Mode::Add;
    if (!SetGeometry(geometry)) {
      r.DropPending();
      return false;
    }
    return true;
  } catch (...) {
    m_impl->DropPending();
    return false;
  }
}

bool ZoRecordset::Edit() {
  try {
    Impl& r = *m_impl;
    if (!r.state || !r.current) return false;
    r.pending.reset(r.current->Clone());
    r.mode = Impl::Mode::Edit;
    return true;
  } catch (...) {
    m_impl->DropPending();
    return false;
  }
}

bool ZoRecordset::SetFieldValue(const LumaUnicodeString& name, const LumaVariant& value) {
  try {
    Impl& r = *m_impl;
    if (!r.state || !r.pending) return false;
    const int field = r.state->FindField(name.Str());
    if (field < 0) return false;  // unknown, or the system identifier
    return detail::WriteFieldValue(*r.pending, field, r.state->HostType(field), value);
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::SetGeometry(const ZoGeometry& geometry) {
  try {
    Impl& r = *m_impl;
    if (!r.state || !r.pending) return false;
    // Tabular datasets hold no geometry: it is dropped.
    if (!r.state->HasGeometry()) return true;
    if (geometry.IsEmpty()) {
      r.pending->SetGeometryDirectly(nullptr);
      return true;
    }
    std::unique_ptr<OGRGeometry> g = detail::GeometryToOGR(geometry, r.state->layer->GetGeomType());
    if (!g) return false;
    return r.pending->SetGeometryDirectly(g.release()) == OGRERR_NONE;
  } catch (...) {
    return false;
  }
}

bool ZoRecordset::Update() {
  try {
    Impl& r = *m_impl;
    if (!r.state || !r.pending) return false;
    detail::QuietErrors quiet;
    detail::LayerState& st = *r.state;
    st.batch->BeforeWrite();
    OGRErr err;
    if (r.mode == Impl::Mode::Add) {
      r.pending->SetFID(OGRNullFID);
      err = st.layer->CreateFeature(r.pending.get());
    } else {
      err = st.layer->SetFeature(r.pending.get());
    }
    st.batch->AfterWrite();
    if (err != OGRERR_NONE) {
      r.DropPending();
      return false;
    }
    if (r.mode == Impl::Mode::Add) {
      // The new record joins the end of this recordset and becomes current.
      const GIntBig fid = r.pending->GetFID();
      if (r.ascending && !r.fids.empty() && r.fids.back() >= fid) r.ascending = false;
      r.fids.push_back(fid);
      r.seekIndex.clear();
      r.pos = r.fids.size() - 1;
      r.sequential = false;
    }
    r.current = std::move(r.pending);
    r.mode = Impl::Mode::None;
    return true;
  } catch (...) {
    m_impl->DropPending();
    return false;
  }
}

void ZoRecordset::CancelUpdate() { m_impl->DropPending(); }

}  // namespace ZOC
