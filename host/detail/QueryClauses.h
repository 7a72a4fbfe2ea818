#pragma once
// Host-internal: the text clauses of a query. The order clause is parsed
// into keys over the layer's fields; the filter goes to the layer's driver
// as it is, but for the name of the record identifier. Not installed.
#include <string>
#include <vector>

#include "host/detail/DatasetInternals.h"

namespace ZOC::detail {

// One key of an order clause: the system identifier or an OGR field index.
struct OrderKey {
  int field = kFieldSystemId;
  bool desc = false;
};

// Order clause: " Order BY f1 [ASC|DESC], f2 [ASC|DESC], ..." (keywords and
// names case-insensitive, names double-quoted where needed). No keys for an
// empty clause; false when the clause is malformed or names an unknown field.
bool ParseOrder(const std::string& clause, LayerState& state, std::vector<OrderKey>& keys);

// The record identifier may be named "QlID" in a filter: rewrite it to what
// the layer's query language calls its feature ID. SQLite-backed drivers see
// the filter as SQL over the table, with the FID column under its own name;
// OGR's own SQL has the special field FID.
std::string TranslateFilter(const std::string& filter, LayerState& state);

}  // namespace ZOC::detail
