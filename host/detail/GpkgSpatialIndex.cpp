#include "host/detail/GpkgSpatialIndex.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <ogr_geometry.h>

#include "host/detail/Sqlite.h"

namespace ZOC::detail {

namespace {

// SQLite's R-tree: at most 51 cells a node, each a 64-bit id and four 32-bit
// floats (min x, max x, min y, max y), all big-endian, after a 4-byte header
// (the tree's depth in the root node, then the number of cells).
constexpr int kMaxCells = 51;
constexpr int kCellBytes = 8 + 4 * 4;
constexpr int kHeaderBytes = 4;

struct Entry {
  std::int64_t id;
  float box[4];  // min x, max x, min y, max y
};

using sqlite::Exec;
using sqlite::Ident;
using sqlite::Literal;
using sqlite::Prepare;
using sqlite::Statement;

// The nearest floats at or beyond a double, so that a stored box always
// holds the geometry's exact box.
float Down(double d) {
  float f = static_cast<float>(d);
  if (static_cast<double>(f) > d) f = std::nextafter(f, -std::numeric_limits<float>::infinity());
  return f;
}
float Up(double d) {
  float f = static_cast<float>(d);
  if (static_cast<double>(f) < d) f = std::nextafter(f, std::numeric_limits<float>::infinity());
  return f;
}

double ReadDouble(const unsigned char* p, bool little) {
  unsigned char b[8];
  for (int i = 0; i < 8; ++i) b[i] = little ? p[i] : p[7 - i];
  double d;
  std::memcpy(&d, b, 8);  // this host is little-endian, as GDAL's GeoPackage writer assumes too
  return d;
}

std::uint32_t ReadUint32(const unsigned char* p, bool little) {
  return little ? (p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24)
                : (p[3] | p[2] << 8 | p[1] << 16 | static_cast<std::uint32_t>(p[0]) << 24);
}

// The box of the geometry in a GeoPackage geometry blob: from the header's
// envelope when it has one, from the coordinates of a point, else from the
// parsed geometry. False for a null, empty or unreadable geometry (which the
// index does not hold).
bool BlobBox(const unsigned char* p, int n, double box[4]) {
  if (n < 8 || p[0] != 'G' || p[1] != 'P') return false;
  const unsigned flags = p[3];
  if (flags & 0x10) return false;  // empty
  const unsigned envelope = (flags >> 1) & 7;
  const int envelopeBytes = envelope == 0 ? 0 : envelope == 1 ? 32 : envelope <= 3 ? 48 : 64;
  if (envelope > 4 || n < 8 + envelopeBytes) return false;
  if (envelope > 0) {
    for (int i = 0; i < 4; ++i) box[i] = ReadDouble(p + 8 + 8 * i, flags & 1);
  } else {
    const unsigned char* wkb = p + 8;
    const int size = n - 8;
    if (size >= 21 && (wkb[0] == 0 || wkb[0] == 1) && ReadUint32(wkb + 1, wkb[0] == 1) % 1000 == 1) {
      box[0] = box[1] = ReadDouble(wkb + 5, wkb[0] == 1);
      box[2] = box[3] = ReadDouble(wkb + 13, wkb[0] == 1);
    } else {
      OGRGeometry* g = nullptr;
      if (OGRGeometryFactory::createFromWkb(wkb, nullptr, &g, size) != OGRERR_NONE || !g) return false;
      std::unique_ptr<OGRGeometry> owned(g);
      if (g->IsEmpty()) return false;
      OGREnvelope e;
      g->getEnvelope(&e);
      box[0] = e.MinX, box[1] = e.MaxX, box[2] = e.MinY, box[3] = e.MaxY;
    }
  }
  for (int i = 0; i < 4; ++i)
    if (std::isnan(box[i])) return false;  // an empty point
  return box[0] <= box[1] && box[2] <= box[3];
}

bool ReadBoxes(sqlite3* db, const GpkgIndexTarget& t, std::size_t features,
               const std::function<bool(double)>& keepGoing, bool& cancelled, std::vector<Entry>& entries,
               std::string& error) {
  Statement read = Prepare(db, "SELECT " + Ident(t.fid) + ", " + Ident(t.geometry) + " FROM " + Ident(t.table), error);
  if (!read) return false;
  int rc;
  std::size_t rows = 0;
  while ((rc = sqlite3_step(read.get())) == SQLITE_ROW) {
    if ((++rows & 0xFFF) == 0 && keepGoing && !keepGoing(0.5 * static_cast<double>(rows) / std::max(features, rows)))
      return !(cancelled = true);
    if (sqlite3_column_type(read.get(), 1) != SQLITE_BLOB) continue;
    const auto* blob = static_cast<const unsigned char*>(sqlite3_column_blob(read.get(), 1));
    double box[4];
    if (!BlobBox(blob, sqlite3_column_bytes(read.get(), 1), box)) continue;
    entries.push_back({sqlite3_column_int64(read.get(), 0), {Down(box[0]), Up(box[1]), Down(box[2]), Up(box[3])}});
  }
  if (rc != SQLITE_DONE) error = sqlite3_errmsg(db);
  return rc == SQLITE_DONE;
}

// Sort-tile-recursive order: vertical slices of about sqrt(nodes) nodes
// each, by the boxes' centres in x, and within each slice by centre in y;
// consecutive runs of kMaxCells then make compact nodes.
void TileOrder(std::vector<Entry>& entries) {
  auto centre = [](const Entry& e, int axis) { return e.box[2 * axis] + e.box[2 * axis + 1]; };
  const std::size_t nodes = (entries.size() + kMaxCells - 1) / kMaxCells;
  const auto slices = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(nodes))));
  const std::size_t perSlice = slices * kMaxCells;
  std::sort(entries.begin(), entries.end(),
            [&](const Entry& a, const Entry& b) { return centre(a, 0) < centre(b, 0); });
  for (std::size_t at = 0; at < entries.size(); at += perSlice)
    std::sort(entries.begin() + static_cast<std::ptrdiff_t>(at),
              entries.begin() + static_cast<std::ptrdiff_t>(std::min(entries.size(), at + perSlice)),
              [&](const Entry& a, const Entry& b) { return centre(a, 1) < centre(b, 1); });
}

void PutBigEndian(unsigned char* p, std::uint64_t v, int bytes) {
  for (int i = bytes - 1; i >= 0; --i, v >>= 8) p[i] = static_cast<unsigned char>(v & 0xFF);
}

// Writes nodes and their links into the shadow tables of one R-tree.
class NodeWriter {
 public:
  bool Open(sqlite3* db, const std::string& rtree, int nodeSize, std::string& error) {
    m_blob.assign(static_cast<std::size_t>(nodeSize), 0);
    m_node = Prepare(db, "INSERT OR REPLACE INTO " + Ident(rtree + "_node") + "(nodeno, data) VALUES (?, ?)", error);
    m_rowid = Prepare(db, "INSERT INTO " + Ident(rtree + "_rowid") + "(rowid, nodeno) VALUES (?, ?)", error);
    m_parent = Prepare(db, "INSERT INTO " + Ident(rtree + "_parent") + "(nodeno, parentnode) VALUES (?, ?)", error);
    return m_node && m_rowid && m_parent;
  }

  // A node of `cells`; `depth` is written in the root only (node 1). Each
  // cell's id is linked to the node: a feature through _rowid on the leaf
  // level, a child node through _parent above it (written by Links).
  bool Node(std::int64_t number, int depth, const Entry* cells, std::size_t count, bool leaf) {
    std::fill(m_blob.begin(), m_blob.end(), 0);
    if (number == 1) PutBigEndian(m_blob.data(), static_cast<std::uint64_t>(depth), 2);
    PutBigEndian(m_blob.data() + 2, count, 2);
    for (std::size_t c = 0; c < count; ++c) {
      unsigned char* cell = m_blob.data() + kHeaderBytes + c * kCellBytes;
      PutBigEndian(cell, static_cast<std::uint64_t>(cells[c].id), 8);
      for (int k = 0; k < 4; ++k) {
        std::uint32_t bits;
        std::memcpy(&bits, &cells[c].box[k], 4);
        PutBigEndian(cell + 8 + 4 * k, bits, 4);
      }
      (leaf ? m_rowids : m_parents).emplace_back(cells[c].id, number);
    }
    sqlite3_bind_int64(m_node.get(), 1, number);
    sqlite3_bind_blob(m_node.get(), 2, m_blob.data(), static_cast<int>(m_blob.size()), SQLITE_STATIC);
    return Step(m_node.get());
  }

  // The links in key order: the tables are then filled by appending, where
  // keys in the tree's order would scatter a million inserts over the
  // table's pages.
  bool Links() {
    for (auto* links : {&m_rowids, &m_parents}) {
      std::sort(links->begin(), links->end());
      for (const auto& [key, node] : *links)
        if (!Link(links == &m_rowids ? m_rowid.get() : m_parent.get(), key, node)) return false;
    }
    return true;
  }

 private:
  static bool Step(sqlite3_stmt* s) {
    const bool ok = sqlite3_step(s) == SQLITE_DONE;
    sqlite3_reset(s);
    return ok;
  }
  static bool Link(sqlite3_stmt* s, std::int64_t key, std::int64_t node) {
    sqlite3_bind_int64(s, 1, key);
    sqlite3_bind_int64(s, 2, node);
    return Step(s);
  }
  std::vector<unsigned char> m_blob;
  std::vector<std::pair<std::int64_t, std::int64_t>> m_rowids, m_parents;  // key, node
  Statement m_node, m_rowid, m_parent;
};

// Packs the entries level by level into full nodes, numbered from 2, until
// one node's worth is left: that is the root, node 1.
bool Pack(NodeWriter& writer, std::vector<Entry> level, const std::function<bool(double)>& keepGoing, bool& cancelled) {
  std::int64_t next = 2;
  int depth = 0;
  // Each level holds about 1/51 of the one below: the leaves are most of the work.
  double done = 0.5;
  while (level.size() > static_cast<std::size_t>(kMaxCells)) {
    if (keepGoing && !keepGoing(done)) return !(cancelled = true);
    done += (1.0 - done) * 0.95;
    TileOrder(level);
    std::vector<Entry> up;
    up.reserve(level.size() / kMaxCells + 1);
    for (std::size_t at = 0; at < level.size(); at += kMaxCells) {
      const std::size_t count = std::min<std::size_t>(kMaxCells, level.size() - at);
      Entry parent{next++, {level[at].box[0], level[at].box[1], level[at].box[2], level[at].box[3]}};
      for (std::size_t c = at + 1; c < at + count; ++c) {
        parent.box[0] = std::min(parent.box[0], level[c].box[0]);
        parent.box[1] = std::max(parent.box[1], level[c].box[1]);
        parent.box[2] = std::min(parent.box[2], level[c].box[2]);
        parent.box[3] = std::max(parent.box[3], level[c].box[3]);
      }
      if (!writer.Node(parent.id, 0, &level[at], count, depth == 0)) return false;
      up.push_back(parent);
    }
    level = std::move(up);
    ++depth;
  }
  return writer.Node(1, depth, level.data(), level.size(), depth == 0) && writer.Links();
}

// The triggers the GeoPackage standard gives the gpkg_rtree_index extension:
// inserts, geometry updates, id changes and deletes keep the index in step.
std::vector<std::string> Triggers(const GpkgIndexTarget& t, const std::string& rtree) {
  const std::string name = "rtree_" + t.table + "_" + t.geometry, T = Ident(t.table), c = Ident(t.geometry),
                    i = Ident(t.fid), R = Ident(rtree);
  const std::string values = "VALUES (NEW." + i + ", ST_MinX(NEW." + c + "), ST_MaxX(NEW." + c + "), ST_MinY(NEW." + c +
                             "), ST_MaxY(NEW." + c + "))";
  const std::string present = "(NEW." + c + " NOTNULL AND NOT ST_IsEmpty(NEW." + c + "))";
  const std::string absent = "(NEW." + c + " ISNULL OR ST_IsEmpty(NEW." + c + "))";
  auto trigger = [&](const char* suffix, const std::string& when, const std::string& body) {
    return "CREATE TRIGGER " + Ident(name + suffix) + " AFTER " + when + " BEGIN " + body + "; END";
  };
  return {
      trigger("_insert", "INSERT ON " + T + " WHEN " + present, "INSERT OR REPLACE INTO " + R + " " + values),
      trigger("_update1", "UPDATE OF " + c + " ON " + T + " WHEN OLD." + i + " = NEW." + i + " AND " + present,
              "INSERT OR REPLACE INTO " + R + " " + values),
      trigger("_update2", "UPDATE OF " + c + " ON " + T + " WHEN OLD." + i + " = NEW." + i + " AND " + absent,
              "DELETE FROM " + R + " WHERE id = OLD." + i),
      trigger("_update3", "UPDATE ON " + T + " WHEN OLD." + i + " != NEW." + i + " AND " + present,
              "DELETE FROM " + R + " WHERE id = OLD." + i + "; INSERT OR REPLACE INTO " + R + " " + values),
      trigger("_update4", "UPDATE ON " + T + " WHEN OLD." + i + " != NEW." + i + " AND " + absent,
              "DELETE FROM " + R + " WHERE id IN (OLD." + i + ", NEW." + i + ")"),
      trigger("_delete", "DELETE ON " + T + " WHEN OLD." + c + " NOT NULL",
              "DELETE FROM " + R + " WHERE id = OLD." + i),
  };
}

// The virtual table, the extension's registration and the triggers.
bool Declare(sqlite3* db, const GpkgIndexTarget& t, const std::string& rtree, std::string& error) {
  const char* extensions =
      "CREATE TABLE IF NOT EXISTS gpkg_extensions (table_name TEXT, column_name TEXT, extension_name TEXT NOT NULL, "
      "definition TEXT NOT NULL, scope TEXT NOT NULL, CONSTRAINT ge_tce UNIQUE (table_name, column_name, "
      "extension_name))";
  if (!Exec(db, "CREATE VIRTUAL TABLE " + Ident(rtree) + " USING rtree(id, minx, maxx, miny, maxy)", error) ||
      !Exec(db, extensions, error) ||
      !Exec(db,
            "INSERT INTO gpkg_extensions (table_name, column_name, extension_name, definition, scope) VALUES (" +
                Literal(t.table) + ", " + Literal(t.geometry) +
                ", 'gpkg_rtree_index', 'http://www.geopackage.org/spec120/#extension_rtree', 'write-only')",
            error))
    return false;
  for (const std::string& sql : Triggers(t, rtree))
    if (!Exec(db, sql, error)) return false;
  return true;
}

int PageSize(sqlite3* db) {
  std::string ignored;
  Statement s = Prepare(db, "PRAGMA page_size", ignored);
  return s && sqlite3_step(s.get()) == SQLITE_ROW ? sqlite3_column_int(s.get(), 0) : 4096;
}

bool Build(sqlite3* db, const GpkgIndexTarget& t, std::size_t features, const std::function<bool(double)>& keepGoing,
           bool& cancelled, std::string& error) {
  const std::string rtree = "rtree_" + t.table + "_" + t.geometry;
  std::vector<Entry> entries;
  entries.reserve(features);
  if (!ReadBoxes(db, t, features, keepGoing, cancelled, entries, error)) return false;
  if (!Declare(db, t, rtree, error)) return false;
  if (entries.empty()) return true;  // the new table's empty root node stands
  NodeWriter writer;
  if (!writer.Open(db, rtree, RtreeNodeSize(PageSize(db)), error)) return false;
  if (!Pack(writer, std::move(entries), keepGoing, cancelled)) {
    if (!cancelled) error = sqlite3_errmsg(db);
    return false;
  }
  return true;
}

}  // namespace

int RtreeNodeSize(int pageSize) { return std::min(pageSize - 64, kHeaderBytes + kCellBytes * kMaxCells); }

bool BuildGpkgSpatialIndex(const GpkgIndexTarget& target, long long features,
                           const std::function<bool(double)>& keepGoing, bool& cancelled, std::string& error) {
  cancelled = false;
  sqlite::Connection db = sqlite::OpenForWriting(target.path, error);
  if (!db) return false;
  if (target.scratch && !Exec(db.get(), "PRAGMA synchronous = OFF", error)) return false;
  if (!Exec(db.get(), "BEGIN IMMEDIATE", error)) return false;
  const auto hint = static_cast<std::size_t>(std::clamp<long long>(features, 0, 1LL << 32));
  if (Build(db.get(), target, hint, keepGoing, cancelled, error) && Exec(db.get(), "COMMIT", error)) return true;
  std::string ignored;
  Exec(db.get(), "ROLLBACK", ignored);
  return false;
}

}  // namespace ZOC::detail
