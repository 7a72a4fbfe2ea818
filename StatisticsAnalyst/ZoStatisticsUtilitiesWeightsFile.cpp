// ZoStatisticsUtilities: opening a binary weights file for an analysis,
// checked against the dataset, and reading its rows, through the one binary
// reader.
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

std::FILE* ZoStatisticsUtilities::CheckSWMFileValid(ZoDatasetVector* dataset, const LumaUnicodeString& path,
                                                    LumaUnicodeString& uniqueIdField,
                                                    LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                                    ZoConceptualizationModel& model, unsigned char& standardization,
                                                    LumaArray<double>& rowSums, std::int64_t& position) {
  return Guard([&]() -> std::FILE* {
    detail::weights::AnalysisWeightsFile opened;
    if (!Report(detail::weights::OpenForAnalysis(dataset, path, opened))) return nullptr;
    uniqueIdField = opened.uniqueIdField;
    uniqueIndex = std::move(opened.index);
    model = opened.model;
    standardization = opened.standardized ? 1 : 0;
    rowSums = std::move(opened.rowSums);
    position = opened.position;
    return opened.file.release();
  });
}

unsigned char ZoStatisticsUtilities::ReadWeightMatrixBinarySparse(std::FILE* file, int count, int n,
                                                                  LumaArray<std::int32_t>& columns,
                                                                  LumaArray<double>& weights) {
  return Guard([&]() -> unsigned char {
    return Report(detail::weights::ReadSparseRow(file, count, n, columns, weights)) ? 1 : 0;
  });
}
unsigned char ZoStatisticsUtilities::ReadWeightMatrixBinary(std::FILE* file, int count, int n, LumaArray<double>& row) {
  return Guard([&]() -> unsigned char {
    if (!file) {
      AddErrorMessage(msg::EEg020);
      return 0;
    }
    row.assign(n > 0 ? static_cast<std::size_t>(n) : 0u, 0.0);
    LumaArray<std::int32_t> columns;
    LumaArray<double> weights;
    if (!ReadWeightMatrixBinarySparse(file, count, n, columns, weights)) return 0;
    for (std::size_t h = 0; h < columns.size(); ++h) row[static_cast<std::size_t>(columns[h])] = weights[h];
    return 1;
  });
}

}  // namespace ZOC
