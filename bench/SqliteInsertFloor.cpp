// The floor of any GeoPackage result write: N rows shaped like a hot spot
// result (a point blob, the input value, z-score, p-value and bin) inserted
// into a fresh SQLite table by one prepared statement in one transaction,
// with no GDAL, no feature objects and no spatial index. Prints the seconds
// the inserts and the commit took.
//   sqlite_insert_floor FILE N
#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: sqlite_insert_floor FILE N\n");
    return 2;
  }
  const long n = std::atol(argv[2]);
  std::filesystem::remove(argv[1]);
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr) !=
          SQLITE_OK ||
      sqlite3_exec(db,
                   "CREATE TABLE t (fid INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, geom POINT, VALUE REAL, "
                   "Gi_Zscore REAL, Gi_Pvalue REAL, Gi_ConfInvl MEDIUMINT)",
                   nullptr, nullptr, nullptr) != SQLITE_OK) {
    std::fprintf(stderr, "%s\n", sqlite3_errmsg(db));
    return 1;
  }
  const auto start = std::chrono::steady_clock::now();
  sqlite3_stmt* insert = nullptr;
  sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  sqlite3_prepare_v2(db, "INSERT INTO t (geom, VALUE, Gi_Zscore, Gi_Pvalue, Gi_ConfInvl) VALUES (?, ?, ?, ?, ?)", -1,
                     &insert, nullptr);
  // A little-endian GeoPackage point: header, srs 0, ISO WKB point.
  unsigned char blob[29] = {'G', 'P', 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0};
  for (long i = 0; i < n; ++i) {
    const double x = static_cast<double>(i) / static_cast<double>(n), y = 1.0 - x;
    std::memcpy(blob + 13, &x, 8);
    std::memcpy(blob + 21, &y, 8);
    sqlite3_bind_blob(insert, 1, blob, sizeof blob, SQLITE_STATIC);
    sqlite3_bind_double(insert, 2, x);
    sqlite3_bind_double(insert, 3, 2 * x - 1);
    sqlite3_bind_double(insert, 4, y);
    sqlite3_bind_int64(insert, 5, i % 7 - 3);
    if (sqlite3_step(insert) != SQLITE_DONE) {
      std::fprintf(stderr, "%s\n", sqlite3_errmsg(db));
      return 1;
    }
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  const bool committed = sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  sqlite3_close(db);
  if (!committed) return 1;
  std::printf("%.2f\n", seconds);
  return 0;
}
