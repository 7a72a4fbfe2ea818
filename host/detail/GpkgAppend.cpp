#include "host/detail/GpkgAppend.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ZOC::detail {

namespace {

using sqlite::Exec;
using sqlite::Ident;

bool Storable(OGRFieldType type) {
  return type == OFTInteger || type == OFTInteger64 || type == OFTReal || type == OFTString;
}

void PutDouble(unsigned char* at, double d) { std::memcpy(at, &d, 8); }  // little-endian, as the flags say

// The GeoPackage geometry blob: "GP", version 0, flags (little-endian; an
// XY envelope except for points and empty geometries), the coordinate
// system id, then ISO WKB. Its box extends `extent`.
void Encode(const OGRGeometry& g, std::int32_t srsId, std::vector<unsigned char>& blob, std::optional<Extent>& extent) {
  const bool empty = g.IsEmpty();
  const bool point = wkbFlatten(g.getGeometryType()) == wkbPoint;
  const int envelope = empty || point ? 0 : 1;
  const std::size_t head = 8 + (envelope ? 32 : 0);
  blob.resize(head + g.WkbSize());
  blob[0] = 'G';
  blob[1] = 'P';
  blob[2] = 0;
  blob[3] = static_cast<unsigned char>(1 | envelope << 1 | (empty ? 0x10 : 0));
  std::memcpy(blob.data() + 4, &srsId, 4);
  OGREnvelope e;
  if (!empty) {
    if (point) {
      const auto* p = g.toPoint();
      e.MinX = e.MaxX = p->getX();
      e.MinY = e.MaxY = p->getY();
    } else {
      g.getEnvelope(&e);
      PutDouble(blob.data() + 8, e.MinX);
      PutDouble(blob.data() + 16, e.MaxX);
      PutDouble(blob.data() + 24, e.MinY);
      PutDouble(blob.data() + 32, e.MaxY);
    }
    if (!extent) extent = Extent{e.MinX, e.MinY, e.MaxX, e.MaxY};
    Extent& x = *extent;
    x = {std::min(x[0], e.MinX), std::min(x[1], e.MinY), std::max(x[2], e.MaxX), std::max(x[3], e.MaxY)};
  }
  g.exportToWkb(wkbNDR, blob.data() + head, wkbVariantIso);
}

}  // namespace

GpkgAppend::~GpkgAppend() {
  if (!m_open) return;
  std::string ignored;
  Exec(m_db.get(), "ROLLBACK", ignored);
}

bool GpkgAppend::Fail() {
  if (m_error.empty() && m_db) m_error = sqlite3_errmsg(m_db.get());
  return false;
}

bool GpkgAppend::Start(const std::string& path, OGRLayer& layer, bool withIds) {
  OGRFeatureDefn& defn = *layer.GetLayerDefn();
  if (defn.GetGeomFieldCount() > 1) return false;
  m_geometry = defn.GetGeomFieldCount() == 1;
  for (int i = 0; i < defn.GetFieldCount(); ++i) {
    m_types.push_back(defn.GetFieldDefn(i)->GetType());
    if (!Storable(m_types.back())) return false;
  }
  m_table = layer.GetName();
  const std::string geometry = m_geometry ? layer.GetGeometryColumn() : "";
  m_db = sqlite::OpenForWriting(path, m_error);
  if (!m_db) return false;
  sqlite3* db = m_db.get();
  sqlite3_busy_timeout(db, 0);  // a file someone else is writing goes to GDAL at once
  std::vector<std::string> found;
  if (!GeometrySrsIds(db, "main", m_table, found, m_error) || found.size() != (m_geometry ? 1u : 0u)) return false;
  if (m_geometry) m_srsId = static_cast<std::int32_t>(std::strtol(found.front().c_str(), nullptr, 10));
  found.clear();
  if (!sqlite::Texts(db, "SELECT name FROM sqlite_master WHERE lower(name) = lower(?1)",
                     "rtree_" + m_table + "_" + geometry, found, m_error) ||
      !found.empty())
    return false;
  // Rows numbered on from 1 need an empty table; rows with their own ids
  // join those there (a taken id fails the insert), and the count and
  // extent recorded at the end include them.
  if (!IsEmptyTable(db, "main", m_table)) {
    if (!withIds) return false;
    std::vector<std::string> count;
    if (!sqlite::Texts(db, "SELECT CAST(COUNT(*) AS TEXT) FROM " + Ident(m_table), {}, count, m_error) ||
        count.size() != 1)
      return false;
    m_existing = std::strtoll(count.front().c_str(), nullptr, 10);
    m_extent = RecordedExtent(db, "main", m_table);
  }

  std::string columns, values;
  auto column = [&](const std::string& name) {
    columns += (columns.empty() ? "" : ", ") + Ident(name);
    values += values.empty() ? "?" : ", ?";
  };
  m_withIds = withIds && layer.GetFIDColumn() && *layer.GetFIDColumn();
  if (withIds && !m_withIds) return false;
  if (m_withIds) column(layer.GetFIDColumn());
  if (m_geometry) column(geometry);
  for (int i = 0; i < defn.GetFieldCount(); ++i) column(defn.GetFieldDefn(i)->GetNameRef());
  if (columns.empty()) return false;
  if (!Exec(db, "BEGIN IMMEDIATE", m_error)) return false;
  m_open = true;
  m_insert =
      sqlite::Prepare(db, "INSERT INTO " + Ident(m_table) + " (" + columns + ") VALUES (" + values + ")", m_error);
  if (!m_insert || !SetTriggersAside(db, "main", m_table, m_triggers, m_error)) {
    m_insert.reset();
    Exec(db, "ROLLBACK", m_error);
    m_open = false;
    return false;
  }
  return true;
}

bool GpkgAppend::Add(const OGRFeature& feature) {
  sqlite3_stmt* s = m_insert.get();
  int at = 1;
  if (m_withIds) sqlite3_bind_int64(s, at++, feature.GetFID());
  if (m_geometry) {
    if (const OGRGeometry* g = feature.GetGeometryRef()) {
      Encode(*g, m_srsId, m_blob, m_extent);
      sqlite3_bind_blob(s, at, m_blob.data(), static_cast<int>(m_blob.size()), SQLITE_STATIC);
    } else {
      sqlite3_bind_null(s, at);
    }
    ++at;
  }
  for (std::size_t i = 0; i < m_types.size(); ++i, ++at) {
    const int field = static_cast<int>(i);
    if (!feature.IsFieldSetAndNotNull(field)) {
      sqlite3_bind_null(s, at);
    } else if (m_types[i] == OFTReal) {
      sqlite3_bind_double(s, at, feature.GetFieldAsDouble(field));
    } else if (m_types[i] == OFTString) {
      sqlite3_bind_text(s, at, feature.GetFieldAsString(field), -1, SQLITE_STATIC);
    } else {
      sqlite3_bind_int64(s, at, feature.GetFieldAsInteger64(field));
    }
  }
  const bool ok = sqlite3_step(s) == SQLITE_DONE;
  sqlite3_reset(s);
  if (!ok) return Fail();
  ++m_added;
  return true;
}

bool GpkgAppend::Finish() {
  if (!m_open) return false;
  m_insert.reset();
  if (!RecordContents(m_db.get(), m_table, m_existing + m_added, m_extent, m_error) ||
      !RestoreTriggers(m_db.get(), m_triggers, m_error) || !Exec(m_db.get(), "COMMIT", m_error))
    return Fail();
  m_open = false;
  return true;
}

}  // namespace ZOC::detail
