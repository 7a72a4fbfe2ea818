#include "StatisticsAnalyst/detail/weights/TextFileWriter.h"

#include <string>
#include <vector>

#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/weights/BuildChecks.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "StatisticsAnalyst/detail/weights/RowWriter.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoTextFile.h"

namespace ZOC::detail::weights {

namespace {

// Writes the header line, the ID line and, when standardizing, a placeholder
// row-sum line. The row sums are known only after the rows: the placeholder
// has their length and is overwritten in place at the end. Returns where the
// row-sum line starts, or -1 when writing fails.
std::int64_t WriteTextHead(ZoTextFile& file, ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                           const ZoPatternsInformation& info, const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex) {
  const std::size_t n = uniqueIndex.size();
  std::string line = HeaderText(dataset->GetName().Str(), dataset->GetType(), static_cast<int>(n), uniqueIdField.Str(),
                                info.Conceptualization, info.Standardization ? 1 : 0, 0, false);
  bool ok = file.WriteLine(line);
  line.clear();
  for (const auto& entry : uniqueIndex) {
    line += std::to_string(entry.UniqueID);
    line += ' ';
  }
  ok = ok && file.WriteLine(line);
  const std::int64_t sumsAt = file.Tell();
  if (info.Standardization) ok = ok && file.WriteLine(std::string(n * kRowSumWidth, '1'));
  return ok ? sumsAt : -1;
}

}  // namespace

Status BuildTextFile(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField, const LumaUnicodeString& path,
                     const ZoPatternsInformation& info, ZoProgress* progress, bool show) {
  return Guarded([&]() -> Status {
    LumaArray<ZoSWMFileUniqueIndex> uniqueIndex;
    ZoRecordsetPtr records;
    if (Status s = PrepareBuild(dataset, uniqueIdField, path, info, nullptr, uniqueIndex, records); !s) return s;
    const std::size_t n = uniqueIndex.size();
    const bool standardize = info.Standardization;

    // Deliberate choice: the text file is built under a temporary name beside
    // it and renamed at the end, as the binary builders do, so a failed or
    // cancelled build never leaves a file that looks usable. The guard
    // outlives the file object, so the file is closed before it is deleted.
    ZoTempFileGuard guard(SiblingTemporary(path));
    ZoTextFile file;
    if (!file.Open(guard.Path(), ZoTextFile::ModeWrite)) return Status::Fail(msg::ESa049);

    const std::int64_t sumsAt = WriteTextHead(file, dataset, uniqueIdField, info, uniqueIndex);
    if (sumsAt < 0) return Status::Fail(msg::ESa049);
    std::string line;

    BuildProgress buildProgress(progress, show, true);
    RowBuilder rows;
    ZoPatternsInformation rowsInfo = info;
    rowsInfo.DistanceMethod = spatial::EffectiveMethod(info.DistanceMethod, dataset->GetPrjCoordSys());
    if (Status s = rows.Prepare(records.get(), rowsInfo); !s) return s;
    LumaArray<double> rowSums(n, 0.0);
    auto emit = [&](std::int64_t i, const std::vector<std::int64_t>& columns, const std::vector<double>& weights) {
      line.clear();
      for (std::size_t h = 0; h < columns.size(); ++h) {
        line += RecordText(static_cast<std::int32_t>(i), static_cast<std::int32_t>(columns[h]), weights[h]);
        line += ';';
      }
      if (columns.empty()) line.push_back(';');
      return file.WriteLine(line);
    };
    if (Status s = WriteRows(rows, uniqueIndex, rowSums, standardize, &buildProgress, emit); !s) return s;

    if (standardize) {
      line.clear();
      for (double sum : rowSums) line += RowSumEntry(sum);
      // The row builder's weights are positive and at most 1, so every sum
      // takes 13 characters; anything longer would overwrite the first row.
      if (line.size() != n * kRowSumWidth || !file.Seek(sumsAt) || !file.Write(line)) return Status::Fail(msg::ESa049);
    }
    if (!file.Close() || !ZoFile::Rename(guard.Path(), path)) return Status::Fail(msg::ESa049);
    guard.Release();
    return Status::Ok();
  });
}

}  // namespace ZOC::detail::weights
