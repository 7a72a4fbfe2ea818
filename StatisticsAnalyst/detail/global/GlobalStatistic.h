#pragma once
// Global Moran's I and General G over a whole dataset: the weights held in
// memory as sorted units up to limits::kInMemoryFeatures features, or
// streamed row by row from a binary weights file (a temporary one, or the
// caller's file for conceptualization 8). Both paths feed the same sums.
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/global/GeneralG.h"
#include "StatisticsAnalyst/detail/global/Moran.h"
#include "StatisticsAnalyst/detail/weights/WeightRows.h"

namespace ZOC::detail::global {

enum class Kind { Moran, GeneralG };

// The statistic of the analysis field of `records` (ordered by QlID and
// already checked by the frame). Progress, when the call shows any, runs
// 0-60 over the weights and 61-100 over the statistic. On failure the status
// carries the weights' or the sums' messages; the kind's summary ("ESa041",
// "ESa035") follows every failure except those of the in-memory weights and,
// for General G, a negative value found before any weights were made.
Status Run(ZoRecordset* records, const ZoPatternsInformation& info, Kind kind, detail::CallProgress& progress,
           Exponent& result);

// The rows of `info`'s weights for a statistic over `records`: the caller's
// file for conceptualization 8, else built here from `given` points (when
// not null) or the records' geometries, in memory within the budget or
// through a temporary file.
Status OpenRows(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* progress,
                weights::WeightRows& file, weights::WeightRows::GivenPoints* given);
// Every row of `file` into Moran's sums: rows in memory on every core, rows
// of a file one by one (the same bits either way). Progress shows the
// statistic's per-feature text.
Status FeedMoran(weights::WeightRows& file, MoranSums& sums, detail::CallProgress& progress);

}  // namespace ZOC::detail::global
