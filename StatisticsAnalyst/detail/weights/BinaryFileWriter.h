#pragma once
// The binary weights file writer: the file head, the rows, the back-patched
// tables and the whole build. The layout is described with the public class
// that documents it (ZoWeightsUtilities.h).
//
// Builders delete an existing output first, write under a temporary name
// beside it and rename that at the end, so no partial file ever stands under
// the output's name; the temporary goes on any failure or cancellation.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/RowWriter.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

// Writes L, the header text, the unique-index table (counts as given) and,
// when standardizing, N zero row sums; `offset` becomes 4 + L, the position
// of the unique-index table. "ESa049" when writing fails or there is no file
// or dataset.
Status WriteFileHead(std::FILE* file, ZoDatasetVector* dataset, int count, const LumaUnicodeString& uniqueIdField,
                     ZoConceptualizationModel model, bool standardize, ZoDistanceMethod method,
                     const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, std::int64_t& offset);
// Back-patch: the unique-index table at `offset`, then the row sums when
// standardizing, flushed. "ESa049" when writing fails.
Status WriteFileTables(std::FILE* file, std::int64_t offset, const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                       bool standardize, const LumaArray<double>& rowSums);
// The rows of the parameters' conceptualization as binary records at the
// file's position, setting each entry's neighbour count and, when
// standardizing, each row sum; also marks the flag matrix when `flags` is
// open. The row builder's failures, "IMb030" when cancelled, "ESa049" when
// writing fails.
// `columnCounts`, when given, is filled with the number of rows holding each
// column (one entry per row of the file).
Status WriteBinaryRows(std::FILE* file, std::FILE* flags, ZoRecordset* records, const ZoPatternsInformation& info,
                       LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums,
                       BuildProgress* progress, std::vector<std::int64_t>* columnCounts = nullptr);

// Builds the binary weights file of the dataset at `path`, with the K-nearest
// flag matrix at `flagPath` when that is given: the checks of PrepareBuild,
// then the file ("ESa049" when it cannot be written, "IMb030" when
// cancelled, "EUc010" when memory runs out). Nothing stays behind on failure.
Status BuildBinaryFile(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField, const LumaUnicodeString& path,
                       const LumaUnicodeString* flagPath, const ZoPatternsInformation& info, ZoProgress* progress,
                       bool show, std::vector<std::int64_t>* columnCounts = nullptr);

// Builds the binary weights file at `path` from weights made elsewhere (by
// another program, or edited by hand), given as the rows the converter to
// tables writes: entry h says that feature uniqueIds[h] has neighbour
// neighborIds[h] with weight weights[h]. `ids` lists every feature, those
// without neighbours included; the file orders them by ID as the builders
// do. The header names `datasetName` and `uniqueIdField` and the
// conceptualization "weights file", so readers assume no symmetry. Weights
// the builders would not store (inside ±1e-20) are left out. "EAf017" for a
// path without ".swmb", "EUb005" for fewer than 2 IDs, "ESa044" for a
// repeated ID, "ESa080" for an entry naming an ID not in `ids`, "ESa046" for
// a weight that is not finite or entry columns of unequal lengths, "ESa049"
// when the file cannot be written. Nothing stays behind on failure, and an
// existing file at `path` is replaced only on success.
Status BuildBinaryFileFromRows(const LumaUnicodeString& path, const LumaUnicodeString& datasetName,
                               const LumaUnicodeString& uniqueIdField, const std::vector<std::int32_t>& ids,
                               const std::vector<std::int32_t>& uniqueIds, const std::vector<std::int32_t>& neighborIds,
                               const std::vector<double>& weights, bool standardize);

}  // namespace ZOC::detail::weights
