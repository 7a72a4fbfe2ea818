#pragma once
// Host-internal: the order of a query's records. One sequential pass reads
// only the feature IDs and the order keys, column-wise; the IDs are then
// sorted by the keys. Not installed.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <ogrsf_frmts.h>

#include "host/detail/QueryClauses.h"

namespace ZOC::detail {

// Key values of one order field, column-wise for all records of the pass.
struct KeyColumn {
  enum Kind { Fid, Int, Real, Text };
  int field = kFieldSystemId;
  bool desc = false;
  Kind kind = Fid;
  std::vector<std::int64_t> ints;
  std::vector<double> reals;
  std::vector<std::string> texts;
  std::vector<char> nulls;

  void Read(const OGRFeature& f);
  // Three-way comparison of the values of records a and b, ascending. Nulls
  // are the lowest values (first in ascending order, last in descending
  // order, as in SQLite), then NaN, then numbers.
  int Compare(std::size_t a, std::size_t b, const std::vector<GIntBig>& fids) const;
};

// The key columns of an order clause; ORDER BY QlID ASC at the end is the
// sequence itself once sorted by ID, so it is dropped.
std::vector<KeyColumn> KeyColumns(const std::vector<OrderKey>& order, OGRFeatureDefn& defn);
// One sequential pass reading only the feature IDs and the order keys.
void ReadKeys(OGRLayer& layer, std::vector<KeyColumn>& keys, std::vector<GIntBig>& fids);
// Sorts the IDs by the keys, ties (and everything when there are no keys) by
// ascending ID. True when the layer's own sequence already was that order.
bool SortByKeys(const std::vector<KeyColumn>& keys, std::vector<GIntBig>& fids);

}  // namespace ZOC::detail
