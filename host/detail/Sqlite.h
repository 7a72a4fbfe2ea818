#pragma once
// Thin RAII over SQLite's C API for the GeoPackage work done beside GDAL's
// own connection (the packed spatial index, the copy of a staged result's
// rows). Not installed.
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

namespace ZOC::detail::sqlite {

struct Close {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct Finalize {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using Connection = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

inline std::string Quoted(const std::string& text, char quote) {
  std::string out(1, quote);
  for (char c : text) {
    if (c == quote) out += quote;
    out += c;
  }
  return out + quote;
}
inline std::string Ident(const std::string& name) { return Quoted(name, '"'); }
inline std::string Literal(const std::string& text) { return Quoted(text, '\''); }

inline bool Exec(sqlite3* db, const std::string& sql, std::string& error) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return true;
  error = message ? message : sqlite3_errmsg(db);
  sqlite3_free(message);
  return false;
}

inline Statement Prepare(sqlite3* db, const std::string& sql, std::string& error) {
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) error = sqlite3_errmsg(db);
  return Statement(s);
}

// Each text of a one-column query, with `arg` bound to ?1.
inline bool Texts(sqlite3* db, const std::string& sql, const std::string& arg, std::vector<std::string>& out,
                  std::string& error) {
  Statement s = Prepare(db, sql, error);
  if (!s) return false;
  sqlite3_bind_text(s.get(), 1, arg.c_str(), -1, SQLITE_TRANSIENT);
  int rc;
  while ((rc = sqlite3_step(s.get())) == SQLITE_ROW) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s.get(), 0));
    out.emplace_back(text ? text : "");
  }
  if (rc != SQLITE_DONE) error = sqlite3_errmsg(db);
  return rc == SQLITE_DONE;
}

// A connection that can write `path`, waiting up to five seconds for another
// connection's lock; null with the reason in `error` when it cannot open.
// `path` is a plain file name; files it attaches may be given as URIs.
inline Connection OpenForWriting(const std::string& path, std::string& error) {
  sqlite3* raw = nullptr;
  // A name not starting with "file:" stays a plain name under SQLITE_OPEN_URI.
  const std::string name = path.rfind("file:", 0) == 0 ? "./" + path : path;
  // One thread uses each connection: SQLite's own locking of it is not needed.
  const int rc =
      sqlite3_open_v2(name.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX, nullptr);
  Connection db(raw);
  if (rc != SQLITE_OK) {
    error = raw ? sqlite3_errmsg(raw) : "cannot open " + path;
    return nullptr;
  }
  sqlite3_busy_timeout(db.get(), 5000);
  return db;
}

}  // namespace ZOC::detail::sqlite
