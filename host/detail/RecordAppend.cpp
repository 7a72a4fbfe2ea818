#include "host/detail/RecordAppend.h"

#include <algorithm>

#include "host/ZoProgress.h"
#include "host/detail/FieldConversion.h"

namespace ZOC::detail {

bool MapFields(LayerState& src, LayerState& st,
               const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>>& fieldMap,
               std::vector<FieldPair>& pairs) {
  OGRFeatureDefn* defn = st.layer->GetLayerDefn();
  OGRFeatureDefn* srcDefn = src.layer->GetLayerDefn();
  for (const auto& [from, to] : fieldMap) {
    FieldPair p{};
    p.from = src.FindField(from.Str());
    p.to = st.FindField(to.Str());
    if (p.from == kFieldUnknown || p.to < 0) return false;
    p.toType = st.HostType(p.to);
    p.fromType = p.from >= 0 ? src.HostType(p.from) : LUMA::FieldInt32;
    p.raw = p.from >= 0 && srcDefn->GetFieldDefn(p.from)->GetType() == defn->GetFieldDefn(p.to)->GetType();
    pairs.push_back(p);
  }
  return true;
}

void CopyFields(const OGRFeature* in, std::int64_t id, const std::vector<FieldPair>& pairs, OGRFeature& out) {
  for (const FieldPair& p : pairs) {
    if (p.from == kFieldSystemId) {
      WriteFieldValue(out, p.to, p.toType, LumaVariant(id));
    } else if (!in || !in->IsFieldSetAndNotNull(p.from)) {
      out.SetFieldNull(p.to);
    } else if (p.raw) {
      out.SetField(p.to, in->GetRawFieldRef(p.from));
    } else {
      LumaVariant v;
      ReadFieldValue(*in, p.from, p.fromType, v);
      if (!WriteFieldValue(out, p.to, p.toType, v)) out.SetFieldNull(p.to);
    }
  }
}

bool ExtraTargets::Map(LayerState& st, const std::vector<LumaUnicodeString>& names) {
  for (const auto& name : names) {
    const int i = st.FindField(name.Str());
    if (i < 0) return false;
    index.push_back(i);
    type.push_back(st.HostType(i));
  }
  values.resize(names.size());
  return true;
}

bool ExtraTargets::Fill(std::int64_t k, const ZoDatasetVector::ExtraValues& fill, OGRFeature& out) {
  if (index.empty()) return true;
  if (!fill || !fill(k, values)) return false;
  for (std::size_t e = 0; e < index.size(); ++e)
    if (values[e].IsNull() || !WriteFieldValue(out, index[e], type[e], values[e])) out.SetFieldNull(index[e]);
  return true;
}

bool AppendProgress::Start() {
  if (!progress) return true;
  progress->SetProgressPos(0);
  return !progress->IsCanceled();
}

bool AppendProgress::Step(std::int64_t done) {
  if (!progress) return true;
  const int pct = total > 0 ? static_cast<int>(std::min<std::int64_t>(100, done * 100 / total)) : 100;
  if (pct == shown && (done & 4095) != 0) return true;
  if (pct != shown) progress->SetProgressPos(pct);
  shown = pct;
  return !progress->IsCanceled();
}

void AppendProgress::Finish() {
  if (progress && shown != 100) progress->SetProgressPos(100);
}

}  // namespace ZOC::detail
