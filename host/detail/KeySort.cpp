#include "host/detail/KeySort.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include <cpl_string.h>

#include "host/detail/FieldConversion.h"

namespace ZOC::detail {

void KeyColumn::Read(const OGRFeature& f) {
  if (kind == Fid) return;
  const bool isNull = !f.IsFieldSetAndNotNull(field);
  nulls.push_back(isNull ? 1 : 0);
  switch (kind) {
    case Int: ints.push_back(isNull ? 0 : f.GetFieldAsInteger64(field)); break;
    case Real: {
      double v = 0.0;
      if (!isNull) {
        const OGRFieldType t = f.GetFieldDefnRef(field)->GetType();
        if (t == OFTDate || t == OFTDateTime || t == OFTTime) {
          const OGRField* raw = f.GetRawFieldRef(field);
          v = DateTimeKey(raw->Date.Year, raw->Date.Month, raw->Date.Day, raw->Date.Hour, raw->Date.Minute,
                          raw->Date.Second);
        } else {
          v = f.GetFieldAsDouble(field);
        }
      }
      reals.push_back(v);
      break;
    }
    case Text: {
      if (isNull) {
        texts.emplace_back();
      } else if (f.GetFieldDefnRef(field)->GetType() == OFTBinary) {
        int n = 0;
        const GByte* b = f.GetFieldAsBinary(field, &n);
        texts.emplace_back(reinterpret_cast<const char*>(b), static_cast<std::size_t>(n > 0 ? n : 0));
      } else {
        texts.emplace_back(f.GetFieldAsString(field));
      }
      break;
    }
    default: break;
  }
}

int KeyColumn::Compare(std::size_t a, std::size_t b, const std::vector<GIntBig>& fids) const {
  if (kind == Fid) return fids[a] < fids[b] ? -1 : (fids[a] > fids[b] ? 1 : 0);
  if (nulls[a] || nulls[b]) return nulls[a] && nulls[b] ? 0 : (nulls[a] ? -1 : 1);
  switch (kind) {
    case Int: return ints[a] < ints[b] ? -1 : (ints[a] > ints[b] ? 1 : 0);
    case Real: {
      const double x = reals[a], y = reals[b];
      const bool nx = std::isnan(x), ny = std::isnan(y);
      if (nx || ny) return nx && ny ? 0 : (nx ? -1 : 1);
      return x < y ? -1 : (x > y ? 1 : 0);
    }
    case Text: {
      const int c = texts[a].compare(texts[b]);
      return c < 0 ? -1 : (c > 0 ? 1 : 0);
    }
    default: return 0;
  }
}

namespace {

KeyColumn::Kind KindOf(const OGRFieldDefn& f) {
  switch (f.GetType()) {
    case OFTInteger:
    case OFTInteger64: return KeyColumn::Int;
    case OFTReal:
    case OFTDate:
    case OFTDateTime:
    case OFTTime: return KeyColumn::Real;
    default: return KeyColumn::Text;
  }
}

// Restores a layer's ignored fields when the key pass ends, however it ends.
struct IgnoredFieldsGuard {
  OGRLayer* layer;
  ~IgnoredFieldsGuard() { layer->SetIgnoredFields(nullptr); }
};

}  // namespace

std::vector<KeyColumn> KeyColumns(const std::vector<OrderKey>& order, OGRFeatureDefn& defn) {
  std::vector<KeyColumn> keys;
  for (const OrderKey& k : order) {
    KeyColumn col;
    col.field = k.field;
    col.desc = k.desc;
    if (k.field >= 0) col.kind = KindOf(*defn.GetFieldDefn(k.field));
    keys.push_back(std::move(col));
  }
  while (!keys.empty() && keys.back().kind == KeyColumn::Fid && !keys.back().desc) keys.pop_back();
  return keys;
}

void ReadKeys(OGRLayer& layer, std::vector<KeyColumn>& keys, std::vector<GIntBig>& fids) {
  fids.clear();
  OGRFeatureDefn* defn = layer.GetLayerDefn();
  std::vector<char> keep(static_cast<std::size_t>(defn->GetFieldCount()), 0);
  for (const KeyColumn& k : keys)
    if (k.field >= 0) keep[static_cast<std::size_t>(k.field)] = 1;
  CPLStringList ignored;
  for (int i = 0; i < defn->GetFieldCount(); ++i)
    if (!keep[static_cast<std::size_t>(i)]) ignored.AddString(defn->GetFieldDefn(i)->GetNameRef());
  ignored.AddString("OGR_GEOMETRY");
  ignored.AddString("OGR_STYLE");
  for (int i = 0; i < defn->GetGeomFieldCount(); ++i) ignored.AddString(defn->GetGeomFieldDefn(i)->GetNameRef());
  IgnoredFieldsGuard guard{&layer};
  layer.SetIgnoredFields(const_cast<const char**>(ignored.List()));
  layer.ResetReading();
  while (OGRFeatureUniquePtr f{layer.GetNextFeature()}) {
    fids.push_back(f->GetFID());
    for (KeyColumn& k : keys) k.Read(*f);
  }
}

bool SortByKeys(const std::vector<KeyColumn>& keys, std::vector<GIntBig>& fids) {
  if (keys.empty() && std::is_sorted(fids.begin(), fids.end())) return true;
  const std::size_t n = fids.size();
  std::vector<std::size_t> perm(n);
  std::iota(perm.begin(), perm.end(), std::size_t{0});
  std::sort(perm.begin(), perm.end(), [&](std::size_t a, std::size_t b) {
    for (const KeyColumn& k : keys) {
      const int c = k.Compare(a, b, fids);
      if (c != 0) return k.desc ? c > 0 : c < 0;
    }
    return fids[a] < fids[b];
  });
  bool identity = true;
  for (std::size_t i = 0; i < n && identity; ++i) identity = perm[i] == i;
  if (identity) return true;
  std::vector<GIntBig> sorted(n);
  for (std::size_t i = 0; i < n; ++i) sorted[i] = fids[perm[i]];
  fids.swap(sorted);
  return false;
}

}  // namespace ZOC::detail
