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

}  // namespace ZOC::detail::weights
