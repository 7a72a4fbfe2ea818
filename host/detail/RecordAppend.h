#pragma once
// Host-internal: the parts of appending the records of a recordset to a
// dataset: which source field is copied to which target field and how, the
// extra fields the caller fills for each record, and per-record progress.
// Not installed.
#include <cstdint>
#include <utility>
#include <vector>

#include <ogr_feature.h>

#include "host/LumaUnicodeString.h"
#include "host/LumaVariant.h"
#include "host/ZoDatasetVector.h"
#include "host/detail/DatasetInternals.h"

namespace ZOC {
class ZoProgress;
}

namespace ZOC::detail {

// How one mapped field is copied.
struct FieldPair {
  int from, to, fromType, toType;
  bool raw;  // same OGR type: copy the raw value
};

// The pairs of a field mapping; false when a source field is unknown or a
// target is not an attribute field of the dataset.
bool MapFields(LayerState& src, LayerState& st,
               const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>>& fieldMap,
               std::vector<FieldPair>& pairs);

// The mapped values of the source record `in` (null at a gap) with QlID `id`.
void CopyFields(const OGRFeature* in, std::int64_t id, const std::vector<FieldPair>& pairs, OGRFeature& out);

// The extra fields' targets and the values the caller fills for each record.
struct ExtraTargets {
  std::vector<int> index, type;
  std::vector<LumaVariant> values;

  bool Map(LayerState& st, const std::vector<LumaUnicodeString>& names);
  bool Fill(std::int64_t k, const ZoDatasetVector::ExtraValues& fill, OGRFeature& out);
};

// Per-record progress: the position when it moves (and every 4096 records a
// cancellation poll). False when cancelled.
struct AppendProgress {
  ZoProgress* progress;
  std::int64_t total;
  int shown = 0;

  bool Start();
  bool Step(std::int64_t done);
  void Finish();
};

}  // namespace ZOC::detail
