#pragma once
// The bookkeeping of a GeoPackage feature table that rows reach through
// SQLite instead of GDAL: its triggers set aside for the bulk insert (GDAL's
// feature count triggers would update gpkg_ogr_contents once per row) and
// the count and extent GDAL would have recorded. Not installed.
#include <sqlite3.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace ZOC::detail {

// The extent of a layer: min x, min y, max x, max y.
using Extent = std::array<double, 4>;

// Drops every trigger on `table` of `schema`, keeping their SQL in `saved`.
bool SetTriggersAside(sqlite3* db, const std::string& schema, const std::string& table, std::vector<std::string>& saved,
                      std::string& error);
bool RestoreTriggers(sqlite3* db, const std::vector<std::string>& saved, std::string& error);

// Records `count` as the table's feature count (where the file keeps one)
// and `extent`, when given, as its extent.
bool RecordContents(sqlite3* db, const std::string& table, long long count, const std::optional<Extent>& extent,
                    std::string& error);

// The coordinate system ids of the table's geometry columns, as text (none
// for an attribute table); false when they cannot be read.
bool GeometrySrsIds(sqlite3* db, const std::string& schema, const std::string& table, std::vector<std::string>& ids,
                    std::string& error);

// Whether `table` of `schema` holds no row (false when it cannot be read).
bool IsEmptyTable(sqlite3* db, const std::string& schema, const std::string& table);

// The extent recorded for `table` in `schema`'s gpkg_contents, if any.
std::optional<Extent> RecordedExtent(sqlite3* db, const std::string& schema, const std::string& table);

}  // namespace ZOC::detail
