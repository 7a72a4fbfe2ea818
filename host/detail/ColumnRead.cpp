#include "host/detail/ColumnRead.h"

#include <ogr_recordbatch.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

namespace ZOC::detail {

namespace {

// Releases what the stream handed out, on every path.
struct StreamGuard {
  ArrowArrayStream stream{};
  ~StreamGuard() {
    if (stream.release) stream.release(&stream);
  }
};
struct SchemaGuard {
  ArrowSchema schema{};
  ~SchemaGuard() {
    if (schema.release) schema.release(&schema);
  }
};
struct BatchGuard {
  ArrowArray array{};
  ~BatchGuard() {
    if (array.release) array.release(&array);
  }
};
struct IgnoredGuard {
  OGRLayer& layer;
  ~IgnoredGuard() { layer.SetIgnoredFields(nullptr); }
};

bool IsValid(const ArrowArray& a, std::int64_t k) {
  if (a.null_count == 0 || a.buffers[0] == nullptr) return true;
  const std::int64_t bit = a.offset + k;
  return (static_cast<const std::uint8_t*>(a.buffers[0])[bit >> 3] >> (bit & 7)) & 1;
}

// A numeric child column's value k as a double (null as 0).
double NumberAt(const ArrowArray& a, char format, std::int64_t k) {
  if (!IsValid(a, k)) return 0.0;
  const std::int64_t at = a.offset + k;
  switch (format) {
    case 'g': return static_cast<const double*>(a.buffers[1])[at];
    case 'l': return static_cast<double>(static_cast<const std::int64_t*>(a.buffers[1])[at]);
    case 'i': return static_cast<double>(static_cast<const std::int32_t*>(a.buffers[1])[at]);
    default: return static_cast<double>(static_cast<const std::int16_t*>(a.buffers[1])[at]);
  }
}

template <class T>
T ReadAs(const unsigned char* p, bool swap) {
  unsigned char b[sizeof(T)];
  std::memcpy(b, p, sizeof(T));
  if (swap)
    for (std::size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(b[i], b[sizeof(T) - 1 - i]);
  T v;
  std::memcpy(&v, b, sizeof(T));
  return v;
}

// Point k of a WKB column: 1 a point, 0 none (null or empty), -1 something
// other than a point.
int PointAt(const ArrowArray& a, bool large, std::int64_t k, LUMA::LumaPoint2D& p) {
  if (!IsValid(a, k)) return 0;
  const std::int64_t at = a.offset + k;
  std::int64_t begin, end;
  if (large) {
    begin = static_cast<const std::int64_t*>(a.buffers[1])[at];
    end = static_cast<const std::int64_t*>(a.buffers[1])[at + 1];
  } else {
    begin = static_cast<const std::int32_t*>(a.buffers[1])[at];
    end = static_cast<const std::int32_t*>(a.buffers[1])[at + 1];
  }
  const auto* wkb = static_cast<const unsigned char*>(a.buffers[2]) + begin;
  if (end - begin < 5) return -1;
  const bool swap = (wkb[0] == 1) != (std::endian::native == std::endian::little);
  const std::uint32_t type = ReadAs<std::uint32_t>(wkb + 1, swap);
  // ISO codes 1, 1001, 2001, 3001; the high bits of the older Z/M flags.
  if ((type & 0x0fffffffu) % 1000 != 1 || (type & 0x0fffffffu) >= 4000) return -1;
  if (end - begin < 21) return 0;
  p.x = ReadAs<double>(wkb + 5, swap);
  p.y = ReadAs<double>(wkb + 13, swap);
  return std::isnan(p.x) && std::isnan(p.y) ? 0 : 1;  // empty points are NaN
}

// Where each requested field comes in the stream (the FID first, then the
// kept fields in layer order, then the geometry when asked) and its type.
struct Layout {
  std::vector<std::int64_t> slots;      // per requested field
  std::vector<std::int64_t> textSlots;  // per requested text field
  std::vector<char> formats;            // per requested field
  std::int64_t columns = 0;
  bool large = false;  // 64-bit offsets in the geometry column
};

bool CheckSchema(const ArrowSchema& schema, const ColumnRequest& request, std::int64_t kept, Layout& layout) {
  layout.columns = 1 + kept + (request.points ? 1 : 0);
  if (schema.n_children != layout.columns || std::string_view(schema.children[0]->format) != "l") return false;
  layout.formats.clear();
  for (std::int64_t slot : layout.slots) {
    const std::string_view format = schema.children[slot]->format;
    if (format != "g" && format != "l" && format != "i" && format != "s") return false;
    layout.formats.push_back(format[0]);
  }
  for (std::int64_t slot : layout.textSlots)
    if (std::string_view(schema.children[slot]->format) != "u") return false;
  if (!request.points) return true;
  const std::string_view geometry = schema.children[layout.columns - 1]->format;
  layout.large = geometry == "Z";
  return geometry == "z" || geometry == "Z";
}

bool TakeBatch(const ArrowArray& batch, const ColumnRequest& request, const Layout& layout, ColumnData& out) {
  if (batch.n_children != layout.columns) return false;
  const ArrowArray& fid = *batch.children[0];
  for (std::int64_t k = 0; k < batch.length; ++k)
    out.fids.push_back(static_cast<const std::int64_t*>(fid.buffers[1])[fid.offset + k]);
  for (std::size_t f = 0; f < layout.slots.size(); ++f) {
    const ArrowArray& column = *batch.children[layout.slots[f]];
    for (std::int64_t k = 0; k < batch.length; ++k) {
      out.values[f].push_back(NumberAt(column, layout.formats[f], k));
      out.nulls[f].push_back(IsValid(column, k) ? 0 : 1);
    }
  }
  for (std::size_t f = 0; f < layout.textSlots.size(); ++f) {
    const ArrowArray& column = *batch.children[layout.textSlots[f]];
    const auto* offsets = static_cast<const std::int32_t*>(column.buffers[1]);
    const auto* chars = static_cast<const char*>(column.buffers[2]);
    for (std::int64_t k = 0; k < batch.length; ++k) {
      const bool valid = IsValid(column, k);
      const std::int64_t at = column.offset + k;
      out.texts[f].emplace_back(valid ? std::string(chars + offsets[at], chars + offsets[at + 1]) : std::string());
      out.textNulls[f].push_back(valid ? 0 : 1);
    }
  }
  if (!request.points) return true;
  const ArrowArray& geometry = *batch.children[layout.columns - 1];
  LUMA::LumaPoint2D p{};
  for (std::int64_t k = 0; k < batch.length; ++k) {
    const int kind = PointAt(geometry, layout.large, k, p);
    if (kind < 0) return false;
    out.points.push_back(kind ? p : LUMA::LumaPoint2D{});
    out.hasPoint.push_back(kind ? 1 : 0);
  }
  return true;
}

}  // namespace

bool IsColumnField(const OGRFieldDefn& field) {
  switch (field.GetType()) {
    case OFTInteger: return field.GetSubType() == OFSTNone || field.GetSubType() == OFSTInt16;
    case OFTInteger64: return true;
    case OFTReal: return field.GetSubType() == OFSTNone;
    default: return false;
  }
}

bool IsTextColumnField(const OGRFieldDefn& field) {
  return field.GetType() == OFTString && field.GetSubType() == OFSTNone;
}

bool ReadColumns(OGRLayer& layer, const ColumnRequest& request, ColumnData& out) {
  OGRFeatureDefn* defn = layer.GetLayerDefn();
  if (request.points && defn->GetGeomFieldCount() != 1) return false;
  if (request.fields.empty() && request.texts.empty() && !request.points) return false;  // see the empty batches below
  const int fieldCount = defn->GetFieldCount();
  std::vector<std::int64_t> slotOf(static_cast<std::size_t>(fieldCount), 0);
  for (int f : request.fields) {
    if (f < 0 || f >= fieldCount || !IsColumnField(*defn->GetFieldDefn(f))) return false;
    slotOf[static_cast<std::size_t>(f)] = 1;
  }
  for (int f : request.texts) {
    if (f < 0 || f >= fieldCount || !IsTextColumnField(*defn->GetFieldDefn(f))) return false;
    slotOf[static_cast<std::size_t>(f)] = 1;
  }
  CPLStringList ignored;
  std::int64_t kept = 0;
  for (int i = 0; i < fieldCount; ++i) {
    if (slotOf[static_cast<std::size_t>(i)])
      slotOf[static_cast<std::size_t>(i)] = 1 + kept++;
    else
      ignored.AddString(defn->GetFieldDefn(i)->GetNameRef());
  }
  Layout layout;
  for (int f : request.fields) layout.slots.push_back(slotOf[static_cast<std::size_t>(f)]);
  for (int f : request.texts) layout.textSlots.push_back(slotOf[static_cast<std::size_t>(f)]);
  ignored.AddString("OGR_STYLE");
  if (!request.points) {
    ignored.AddString("OGR_GEOMETRY");
    for (int i = 0; i < defn->GetGeomFieldCount(); ++i) ignored.AddString(defn->GetGeomFieldDefn(i)->GetNameRef());
  }
  IgnoredGuard restore{layer};
  if (layer.SetIgnoredFields(const_cast<const char**>(ignored.List())) != OGRERR_NONE) return false;
  layer.ResetReading();
  CPLStringList options;
  options.SetNameValue("INCLUDE_FID", "YES");
  StreamGuard stream;
  if (!layer.GetArrowStream(&stream.stream, options.List())) return false;
  SchemaGuard schema;
  if (stream.stream.get_schema(&stream.stream, &schema.schema) != 0 ||
      !CheckSchema(schema.schema, request, kept, layout))
    return false;
  out = ColumnData();
  out.values.resize(request.fields.size());
  out.nulls.resize(request.fields.size());
  out.texts.resize(request.texts.size());
  out.textNulls.resize(request.texts.size());
  // Sized once: growing by doubling would touch (and have the system zero)
  // about twice the memory of the columns at 10^7 records.
  out.fids.reserve(request.expected);
  for (std::size_t f = 0; f < request.fields.size(); ++f)
    out.values[f].reserve(request.expected), out.nulls[f].reserve(request.expected);
  if (request.points) out.points.reserve(request.expected), out.hasPoint.reserve(request.expected);
  for (;;) {
    BatchGuard batch;
    if (stream.stream.get_next(&stream.stream, &batch.array) != 0) return false;
    if (batch.array.release == nullptr) return true;  // the end of the stream
    // GDAL 3.6's GeoPackage stream repeats an empty batch without end when
    // every column but the FID is ignored; a sound stream never sends one.
    if (batch.array.length == 0) return false;
    if (!TakeBatch(batch.array, request, layout, out)) return false;
  }
}

}  // namespace ZOC::detail
