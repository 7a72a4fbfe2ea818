#pragma once
// The spatial index of a GeoPackage layer, built in one pass over a file no
// other connection has open. Not installed.
//
// GDAL (and SQLite itself) build a GeoPackage R-tree by inserting one box at
// a time into SQLite's R*-tree, which at a million features costs several
// times the writing of the features. Here the boxes are read once, packed
// bottom-up into full nodes (sort-tile-recursive), and the nodes are written
// straight into the R-tree's shadow tables in SQLite's own node format. The
// virtual table, the gpkg_extensions row and the triggers that keep the
// index in step with later edits are those the GeoPackage standard lists, so
// the result is the same valid index an insert-by-insert build leaves.
#include <cstdint>
#include <functional>
#include <string>

namespace ZOC::detail {

struct GpkgIndexTarget {
  std::string path;      // the GeoPackage file
  std::string table;     // the feature table
  std::string fid;       // its integer primary key column
  std::string geometry;  // its geometry column
  // A file in a scratch folder, not yet visible to anyone: written without
  // waiting for the disk. A user's file keeps SQLite's usual durability.
  bool scratch = false;
};

// Creates and fills rtree_<table>_<geometry> in one transaction; nothing
// changes when it fails (reason in `error`) or when `keepGoing` returns
// false, in which case `cancelled` is set. `keepGoing` (may be empty) is
// told the share of the work done, from 0 to 1, reckoned on `features`
// (the table's row count, a hint only).
bool BuildGpkgSpatialIndex(const GpkgIndexTarget& target, long long features,
                           const std::function<bool(double)>& keepGoing, bool& cancelled, std::string& error);

// SQLite's node size for an R-tree of two dimensions in a file of `pageSize`:
// the number of bytes of every node blob.
int RtreeNodeSize(int pageSize);

}  // namespace ZOC::detail
