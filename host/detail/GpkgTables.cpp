#include "host/detail/GpkgTables.h"

#include "host/detail/Sqlite.h"

namespace ZOC::detail {

using sqlite::Exec;
using sqlite::Ident;
using sqlite::Literal;
using sqlite::Prepare;
using sqlite::Statement;

bool SetTriggersAside(sqlite3* db, const std::string& schema, const std::string& table, std::vector<std::string>& saved,
                      std::string& error) {
  std::vector<std::string> names;
  const std::string of =
      " FROM " + Ident(schema) + ".sqlite_master WHERE type = 'trigger' AND lower(tbl_name) = lower(?1) ORDER BY name";
  if (!sqlite::Texts(db, "SELECT name" + of, table, names, error) ||
      !sqlite::Texts(db, "SELECT sql" + of, table, saved, error))
    return false;
  for (const std::string& name : names)
    if (!Exec(db, "DROP TRIGGER " + Ident(schema) + "." + Ident(name), error)) return false;
  return true;
}

bool RestoreTriggers(sqlite3* db, const std::vector<std::string>& saved, std::string& error) {
  for (const std::string& sql : saved)
    if (!Exec(db, sql, error)) return false;
  return true;
}

bool RecordContents(sqlite3* db, const std::string& table, long long count, const std::optional<Extent>& extent,
                    std::string& error) {
  const std::string which = " WHERE lower(table_name) = lower(" + Literal(table) + ")";
  std::vector<std::string> counted;
  if (!sqlite::Texts(db, "SELECT name FROM main.sqlite_master WHERE type = 'table' AND name = ?1", "gpkg_ogr_contents",
                     counted, error))
    return false;
  if (!counted.empty() &&
      !Exec(db, "UPDATE main.gpkg_ogr_contents SET feature_count = " + std::to_string(count) + which, error))
    return false;
  if (!extent) return true;
  Statement update =
      Prepare(db, "UPDATE main.gpkg_contents SET min_x = ?1, min_y = ?2, max_x = ?3, max_y = ?4" + which, error);
  if (!update) return false;
  for (int i = 0; i < 4; ++i) sqlite3_bind_double(update.get(), i + 1, (*extent)[static_cast<std::size_t>(i)]);
  if (sqlite3_step(update.get()) == SQLITE_DONE) return true;
  error = sqlite3_errmsg(db);
  return false;
}

bool GeometrySrsIds(sqlite3* db, const std::string& schema, const std::string& table, std::vector<std::string>& ids,
                    std::string& error) {
  return sqlite::Texts(db,
                       "SELECT CAST(srs_id AS TEXT) FROM " + Ident(schema) +
                           ".gpkg_geometry_columns WHERE lower(table_name) = lower(?1)",
                       table, ids, error);
}

bool IsEmptyTable(sqlite3* db, const std::string& schema, const std::string& table) {
  std::string ignored;
  Statement s = Prepare(db, "SELECT 1 FROM " + Ident(schema) + "." + Ident(table) + " LIMIT 1", ignored);
  return s && sqlite3_step(s.get()) == SQLITE_DONE;
}

std::optional<Extent> RecordedExtent(sqlite3* db, const std::string& schema, const std::string& table) {
  std::string ignored;
  Statement s = Prepare(
      db,
      "SELECT min_x, min_y, max_x, max_y FROM " + Ident(schema) + ".gpkg_contents WHERE lower(table_name) = lower(?1)",
      ignored);
  if (!s) return std::nullopt;
  sqlite3_bind_text(s.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  if (sqlite3_step(s.get()) != SQLITE_ROW) return std::nullopt;
  Extent e{};
  for (int i = 0; i < 4; ++i) {
    if (sqlite3_column_type(s.get(), i) == SQLITE_NULL) return std::nullopt;
    e[static_cast<std::size_t>(i)] = sqlite3_column_double(s.get(), i);
  }
  return e;
}

}  // namespace ZOC::detail
