#include "host/detail/GpkgRowCopy.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include "host/detail/Sqlite.h"

namespace ZOC::detail {

namespace {

using sqlite::Exec;
using sqlite::Ident;
using sqlite::Prepare;
using sqlite::Statement;

constexpr const char* kStage = "zo_stage";

std::vector<std::string> Columns(sqlite3* db, const char* schema, const std::string& table, std::string& error) {
  std::vector<std::string> names;
  sqlite::Texts(db, std::string("SELECT name FROM pragma_table_info(?1, '") + schema + "')", table, names, error);
  return names;
}

bool Unsuitable(sqlite3* db, const GpkgTable& from, const GpkgTable& to, std::string& error) {
  const std::vector<std::string> source = Columns(db, kStage, from.table, error);
  const std::vector<std::string> target = Columns(db, "main", to.table, error);
  auto same = [](const std::string& a, const std::string& b) {
    return a.size() == b.size() && sqlite3_stricmp(a.c_str(), b.c_str()) == 0;
  };
  if (source.empty() || !std::equal(source.begin(), source.end(), target.begin(), target.end(), same)) return true;
  // Each geometry blob names its coordinate system by the file's own id.
  std::vector<std::string> sourceIds, targetIds;
  if (!GeometrySrsIds(db, kStage, from.table, sourceIds, error) ||
      !GeometrySrsIds(db, "main", to.table, targetIds, error) || sourceIds != targetIds)
    return true;
  return !IsEmptyTable(db, "main", to.table);
}

// A file URI for `path` that opens it read-only: every byte outside the
// unreserved characters and '/' percent-encoded.
std::string ReadOnlyUri(const std::string& path) {
  static const char* hex = "0123456789ABCDEF";
  std::string uri = "file:";
  for (unsigned char c : path) {
    if (std::isalnum(c) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
      uri += static_cast<char>(c);
    } else {
      uri += '%';
      uri += hex[c >> 4];
      uri += hex[c & 15];
    }
  }
  return uri + "?mode=ro";
}

// Polled by SQLite every few thousand steps of the copy.
struct Poll {
  const std::function<bool(double)>* keepGoing;
  double steps = 0, expected = 1;
  bool cancelled = false;
};
constexpr int kStepsPerPoll = 1 << 14;

int OnProgress(void* p) {
  auto& poll = *static_cast<Poll*>(p);
  poll.steps += kStepsPerPoll;
  if ((*poll.keepGoing)(std::min(0.99, poll.steps / poll.expected))) return 0;
  poll.cancelled = true;
  return 1;
}

// Inside the open transaction: the target's triggers are set aside for the
// copy and made again after it.
RowCopy Copy(sqlite3* db, const GpkgTable& from, const GpkgTable& to, std::optional<Extent> extent, long long rows,
             const std::function<bool(double)>& keepGoing, long long& copied, std::string& error) {
  std::vector<std::string> triggers;
  if (!SetTriggersAside(db, "main", to.table, triggers, error)) return RowCopy::Failed;
  std::string columns;
  for (const std::string& c : Columns(db, "main", to.table, error)) columns += (columns.empty() ? "" : ", ") + Ident(c);
  Poll poll{&keepGoing};
  poll.expected = std::max(1.0, static_cast<double>(rows)) * 12.0;  // about a dozen steps a row
  if (keepGoing) sqlite3_progress_handler(db, kStepsPerPoll, OnProgress, &poll);
  const bool inserted = Exec(db,
                             "INSERT INTO main." + Ident(to.table) + " (" + columns + ") SELECT " + columns + " FROM " +
                                 kStage + "." + Ident(from.table),
                             error);
  sqlite3_progress_handler(db, 0, nullptr, nullptr);
  if (poll.cancelled) return RowCopy::Cancelled;
  if (!inserted) return RowCopy::Failed;
  copied = sqlite3_changes64(db);
  if (!extent) extent = RecordedExtent(db, kStage, from.table);
  return RecordContents(db, to.table, copied, extent, error) && RestoreTriggers(db, triggers, error) ? RowCopy::Copied
                                                                                                     : RowCopy::Failed;
}

}  // namespace

RowCopy CopyGpkgRows(const GpkgTable& from, const GpkgTable& to, const std::optional<Extent>& extent, long long rows,
                     const std::function<bool(double)>& keepGoing, long long& copied, std::string& error) {
  copied = 0;
  sqlite::Connection db = sqlite::OpenForWriting(to.path, error);
  if (!db) return RowCopy::Failed;
  {
    // Read-only: the copy's write transaction then takes no lock on the
    // stage, which GDAL still has open.
    Statement attach = Prepare(db.get(), std::string("ATTACH DATABASE ?1 AS ") + kStage, error);
    if (!attach) return RowCopy::Failed;
    const std::string uri = ReadOnlyUri(from.path);
    sqlite3_bind_text(attach.get(), 1, uri.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(attach.get()) != SQLITE_DONE) {
      error = sqlite3_errmsg(db.get());
      return RowCopy::Failed;
    }
  }
  if (Unsuitable(db.get(), from, to, error)) return RowCopy::Unsuitable;
  error.clear();
  if (!Exec(db.get(), "BEGIN IMMEDIATE", error)) return RowCopy::Failed;
  const RowCopy done = Copy(db.get(), from, to, extent, rows, keepGoing, copied, error);
  if (done == RowCopy::Copied && Exec(db.get(), "COMMIT", error)) return done;
  std::string ignored;
  Exec(db.get(), "ROLLBACK", ignored);
  copied = 0;
  return done == RowCopy::Copied ? RowCopy::Failed : done;
}

}  // namespace ZOC::detail
