#pragma once
// A binary weights file opened for an analysis of a dataset: checked against
// the dataset's features before any row is read, then read row by row.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"

namespace ZOC::detail::weights {

struct FileCloser {
  void operator()(std::FILE* f) const {
    if (f) std::fclose(f);
  }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// What the checked open hands over: the file at its first row and the
// tables before the rows.
struct AnalysisWeightsFile {
  FilePtr file;
  LUMA::LumaUnicodeString uniqueIdField;
  LUMA::LumaArray<ZoSWMFileUniqueIndex> index;
  ZoConceptualizationModel model = SpatialWeightsFile;
  bool standardized = false;
  LUMA::LumaArray<double> rowSums;  // all 1.0 for an unstandardized file
  std::int64_t position = 0;        // the first row
};

// Opens the file at `path` for `dataset` and checks it: path ("ESa076",
// "EAf017", "ESa077", "ESa049"), header ("ESa045", "EUb001"), unique-ID
// field ("ESa078"), ordered query ("EKa013"), record count ("ESa079"),
// unique IDs in the dataset's order ("ESa080"), index, row sums and row
// sizes consistent with the file ("ESa046"); "EEg002" for no dataset and
// "EUc010" when memory runs out. On failure nothing stays open.
Status OpenForAnalysis(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& path, AnalysisWeightsFile& out);

// The next row's `count` records as columns (in stored order) and weights:
// "EEg020" for no file, "ESa046" when the row cannot be read or names a
// column outside 0..n-1.
Status ReadSparseRow(std::FILE* file, int count, int n, LUMA::LumaArray<std::int32_t>& columns,
                     LUMA::LumaArray<double>& weights);

}  // namespace ZOC::detail::weights
