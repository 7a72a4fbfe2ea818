#pragma once
// Copies the rows of one GeoPackage table into an empty table of another
// with the same columns, in one INSERT ... SELECT. Not installed.
//
// A result staged in a scratch GeoPackage has to reach a layer of the
// user's existing file. Through GDAL every feature is read, decoded,
// encoded and inserted again; here SQLite moves the stored geometry blobs
// and values as they are, at the cost of a plain insert.
#include <functional>
#include <optional>
#include <string>

#include "host/detail/GpkgTables.h"

namespace ZOC::detail {

struct GpkgTable {
  std::string path;   // the GeoPackage file
  std::string table;  // a feature or attribute table in it
};

enum class RowCopy {
  Copied,
  // Nothing was written: the tables differ in their columns or their
  // geometries' coordinate system id, or the target is not empty. A copy
  // through GDAL still can be made.
  Unsuitable,
  Failed,     // nothing was written; the reason is in `error`
  Cancelled,  // nothing was written
};

// Copies every row of `from` into `to` (whose file no GDAL dataset has
// open) in one transaction, and records the count copied and `extent` (the
// source's; when not given, the one the source's file records) as the
// target's. `keepGoing` (may be empty) is told about the
// share done, from 0 to 1, reckoned on `rows` (a hint only); false cancels.
RowCopy CopyGpkgRows(const GpkgTable& from, const GpkgTable& to, const std::optional<Extent>& extent, long long rows,
                     const std::function<bool(double)>& keepGoing, long long& copied, std::string& error);

}  // namespace ZOC::detail
