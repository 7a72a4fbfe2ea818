#pragma once
// Reading whole columns of a layer through GDAL's column-oriented stream
// (the Arrow C data interface, ogr_recordbatch.h): the feature IDs, plain
// numeric fields and point coordinates, a batch of tens of thousands of
// features at a time, without building an OGRFeature per record. Only the
// plain C structures are used; no Arrow library is needed.
#include <cstdint>
#include <string>
#include <vector>

#include <ogrsf_frmts.h>

#include "host/LumaPoint.h"

namespace ZOC::detail {

struct ColumnRequest {
  std::vector<int> fields;   // layer field indices, each a plain number
  std::vector<int> texts;    // layer field indices, each plain text
  bool points = false;       // also the point of every feature
  std::size_t expected = 0;  // how many records the stream should bring, to size the columns once
};

struct ColumnData {
  std::vector<GIntBig> fids;
  std::vector<std::vector<double>> values;       // per requested field; null reads as 0
  std::vector<std::vector<std::uint8_t>> nulls;  // per requested field: 1 where the value is null
  std::vector<std::vector<std::string>> texts;   // per requested text field; null reads as ""
  std::vector<std::vector<std::uint8_t>> textNulls;
  std::vector<LUMA::LumaPoint2D> points;
  std::vector<std::uint8_t> hasPoint;  // 0: no geometry or an empty point
};

// Whether field `index` of the layer can be read as a column of doubles
// that equal what the record-by-record read converts it to.
bool IsColumnField(const OGRFieldDefn& field);

// Whether field `index` can be read as a column of text equal to what the
// record-by-record read gives.
bool IsTextColumnField(const OGRFieldDefn& field);

// Reads the requested columns (at least a field or the points) of every
// feature under the layer's current filters, in the layer's own order. False (and `out` partly filled) when the
// stream is not available or holds something other than expected, e.g. a
// geometry that is not a point: the caller then reads record by record. The
// layer's ignored fields are set for the read and cleared afterwards, and
// its cursor is moved.
bool ReadColumns(OGRLayer& layer, const ColumnRequest& request, ColumnData& out);

}  // namespace ZOC::detail
