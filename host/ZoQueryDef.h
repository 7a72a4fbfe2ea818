#pragma once
// ZoQueryDef: what a recordset query selects.
//   m_filter: an attribute filter in OGR SQL (empty = all records).
//   m_fields: the fields to read (empty = all); "QlID" is always available.
//   m_order:  an ordering clause " Order BY " followed by one or more fields
//             separated by commas, each optionally followed by ASC or DESC
//             (keywords in any case). Records with equal keys keep ascending
//             "QlID" order. Empty = ascending "QlID".
//   m_ids:    when not empty, only the records with these QlIDs (ascending)
//             among those the filter selects.
#include <cstdint>

#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaUnicodeString;

struct ZoQueryDef {
  LumaUnicodeString m_filter;
  LumaArray<LumaUnicodeString> m_fields;
  LumaUnicodeString m_order;
  LumaArray<std::int64_t> m_ids;
};

}  // namespace ZOC
