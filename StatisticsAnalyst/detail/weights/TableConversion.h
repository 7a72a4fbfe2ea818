#pragma once
// Weights files to tables: one table row per stored neighbour record, with
// the unique IDs of the feature and of its neighbour and the weight.
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoProgress.h"

namespace ZOC::detail::weights {

// Appends one row per stored neighbour record of the binary weights file at
// `path` to the tabular dataset `target`, with fields "UniqueID",
// "NeighborsID" (int32) and "Weight" (double; the stored weight divided by
// its row's sum when the file is standardized). "EEg002" for no target,
// "EAf017" unless the path ends in ".swmb" (any case), "ELb001" for a target
// that is not tabular, the binary reader's failures, "EKa013" when the table
// cannot be written, "IMb030" when cancelled, "EUc010" when memory runs out.
// A damaged file is refused before the table gains fields or rows.
Status BinaryFileToTable(ZoDatasetVector* target, const LUMA::LumaUnicodeString& path, ZoProgress* progress, bool show);
// The same for a text weights file, whose path must end in ".swmb" exactly.
Status TextFileToTable(ZoDatasetVector* target, const LUMA::LumaUnicodeString& path, ZoProgress* progress, bool show);

}  // namespace ZOC::detail::weights
