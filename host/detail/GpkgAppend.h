#pragma once
// Features appended to an empty GeoPackage table through SQLite, beside the
// GDAL dataset that made the table. Not installed.
//
// GDAL's insert path costs several times SQLite's own insert per feature
// (a feature's fields and geometry are checked, converted and bound one by
// one through layers of generic code). A result is written once, in one
// go, into a table no one else reads yet: here each feature becomes one
// prepared statement's step, with the geometry encoded once as the
// GeoPackage blob GDAL would store. GDAL does not learn of these rows, so
// its cached count and extent for the layer are stale until the file is
// opened again; the appender records the true ones in the file.
#include <sqlite3.h>

#include <optional>
#include <string>
#include <vector>

#include <ogr_feature.h>
#include <ogrsf_frmts.h>

#include "host/detail/GpkgTables.h"
#include "host/detail/Sqlite.h"

namespace ZOC::detail {

class GpkgAppend {
 public:
  GpkgAppend() = default;
  ~GpkgAppend();  // rolls back what was not finished
  GpkgAppend(const GpkgAppend&) = delete;
  GpkgAppend& operator=(const GpkgAppend&) = delete;

  // Starts on `layer` of the GeoPackage at `path`, which GDAL has open with
  // nothing pending. False, with nothing changed, unless the table exists
  // and is empty (or rows keep their ids), has no spatial index yet, every
  // field is an integer, real or text, and no other connection is writing
  // the file: GDAL then appends.
  // With `withIds` every row takes its feature's FID, else rows are numbered
  // on from 1.
  bool Start(const std::string& path, OGRLayer& layer, bool withIds = false);
  // The feature's geometry and fields as GDAL would store them.
  bool Add(const OGRFeature& feature);
  // Records the count and extent, puts the table's triggers back and commits.
  bool Finish();
  long long Added() const { return m_added; }
  const std::string& Error() const { return m_error; }

 private:
  bool Fail();

  sqlite::Connection m_db;
  sqlite::Statement m_insert;
  std::string m_table, m_error;
  std::vector<std::string> m_triggers;
  std::vector<OGRFieldType> m_types;
  bool m_geometry = false, m_open = false, m_withIds = false;
  std::int32_t m_srsId = 0;
  std::vector<unsigned char> m_blob;
  std::optional<Extent> m_extent;
  long long m_added = 0, m_existing = 0;
};

}  // namespace ZOC::detail
