#include "StatisticsAnalyst/detail/weights/BinaryFileWriter.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"
#include "StatisticsAnalyst/detail/weights/BuildChecks.h"
#include "StatisticsAnalyst/detail/weights/FlagMatrix.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

namespace {
// Writes a kept row as binary records and, for the flag matrix, marks its columns.
struct BinaryRowSink {
  std::FILE* file;
  std::FILE* flags;  // null unless the K-nearest flag matrix is written too
  std::int64_t n;
  std::vector<std::int64_t>* columnCounts;  // null unless asked for
  std::vector<RowRecord> records;

  bool operator()(std::int64_t i, const std::vector<std::int64_t>& columns, const std::vector<double>& weights) {
    records.resize(columns.size());
    for (std::size_t h = 0; h < columns.size(); ++h)
      records[h] = {static_cast<std::int32_t>(i), static_cast<std::int32_t>(columns[h]), weights[h]};
    if (!WriteRecords(file, records)) return false;
    if (columnCounts)
      for (std::int64_t j : columns) ++(*columnCounts)[static_cast<std::size_t>(j)];
    if (flags) {
      for (std::int64_t j : columns)
        if (!SetFlag(flags, n, i, j)) return false;
    }
    return true;
  }
};

// L and the header text as UTF-16LE; `length` becomes L.
bool WriteHeader(std::FILE* file, const std::string& text, std::int32_t& length) {
  const std::u16string units = LumaUnicodeString(text).ToUtf16();
  length = static_cast<std::int32_t>(units.size() * 2);
  bool ok = WriteInt32(file, length);
  for (char16_t u : units) {
    const unsigned char bytes[2] = {static_cast<unsigned char>(u & 0xFF), static_cast<unsigned char>(u >> 8)};
    ok = ok && std::fwrite(bytes, 1, 2, file) == 2;
  }
  return ok;
}
}  // namespace

Status WriteFileHead(std::FILE* file, ZoDatasetVector* dataset, int count, const LumaUnicodeString& uniqueIdField,
                     ZoConceptualizationModel model, bool standardize, ZoDistanceMethod method,
                     const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, std::int64_t& offset) {
  offset = -1;
  if (!file || !dataset) return Status::Fail(msg::ESa049);
  const std::string text = HeaderText(dataset->GetName().Str(), dataset->GetType(), count, uniqueIdField.Str(), model,
                                      standardize ? 1 : 0, method, true);
  std::int32_t length = 0;
  bool ok = WriteHeader(file, text, length) && WriteUniqueIndex(file, uniqueIndex);
  if (standardize) ok = ok && WriteDoubles(file, LumaArray<double>(uniqueIndex.size(), 0.0));
  if (!ok) return Status::Fail(msg::ESa049);
  offset = 4 + static_cast<std::int64_t>(length);
  return Status::Ok();
}

Status WriteFileTables(std::FILE* file, std::int64_t offset, const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                       bool standardize, const LumaArray<double>& rowSums) {
  const bool ok = file && Seek(file, offset) && WriteUniqueIndex(file, uniqueIndex) &&
                  (!standardize || WriteDoubles(file, rowSums)) && std::fflush(file) == 0;
  return ok ? Status::Ok() : Status::Fail(msg::ESa049);
}

Status WriteBinaryRows(std::FILE* file, std::FILE* flags, ZoRecordset* records, const ZoPatternsInformation& info,
                       LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums,
                       BuildProgress* progress, std::vector<std::int64_t>* columnCounts) {
  RowBuilder rows;
  if (Status s = rows.Prepare(records, info); !s) return s;
  if (columnCounts) columnCounts->assign(static_cast<std::size_t>(rows.Count()), 0);
  BinaryRowSink sink{file, flags, rows.Count(), columnCounts, {}};
  return WriteRows(rows, uniqueIndex, rowSums, info.Standardization, progress, sink);
}

Status BuildBinaryFile(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField, const LumaUnicodeString& path,
                       const LumaUnicodeString* flagPath, const ZoPatternsInformation& info, ZoProgress* progress,
                       bool show, std::vector<std::int64_t>* columnCounts) {
  return Guarded([&]() -> Status {
    LumaArray<ZoSWMFileUniqueIndex> uniqueIndex;
    ZoRecordsetPtr records;
    if (Status s = PrepareBuild(dataset, uniqueIdField, path, info, flagPath, uniqueIndex, records); !s) return s;
    const ZoDistanceMethod method = spatial::EffectiveMethod(info.DistanceMethod, dataset->GetPrjCoordSys());
    const auto n = static_cast<std::int64_t>(uniqueIndex.size());

    // Both outputs are built under temporary names beside them, deleted on
    // every way out but success, which renames them onto their real names.
    ZoTempFileGuard flagGuard, fileGuard;
    FilePtr flags;
    if (flagPath) {
      flagGuard.Reset(SiblingTemporary(*flagPath));
      flags.reset(std::fopen(flagGuard.Path().c_str(), "w+b"));
      if (!flags) return Status::Fail(msg::ESa049);
    }
    fileGuard.Reset(SiblingTemporary(path));
    FilePtr file(std::fopen(fileGuard.Path().c_str(), "w+b"));
    if (!file) return Status::Fail(msg::ESa049);

    std::int64_t offset = -1;
    if (!WriteFileHead(file.get(), dataset, static_cast<int>(n), uniqueIdField, info.Conceptualization,
                       info.Standardization, method, uniqueIndex, offset) ||
        (flags && !StartFlagMatrix(flags.get(), n)))
      return Status::Fail(msg::ESa049);
    LumaArray<double> rowSums(static_cast<std::size_t>(n), 0.0);

    BuildProgress buildProgress(progress, show, false);
    ZoPatternsInformation rowsInfo = info;
    rowsInfo.DistanceMethod = method;
    if (Status s = WriteBinaryRows(file.get(), flags.get(), records.get(), rowsInfo, uniqueIndex, rowSums,
                                   &buildProgress, columnCounts);
        !s)
      return s;
    if (!WriteFileTables(file.get(), offset, uniqueIndex, info.Standardization, rowSums) ||
        std::fclose(file.release()) != 0 || (flags && std::fclose(flags.release()) != 0) ||
        (flagPath && !ZoFile::Rename(flagGuard.Path(), *flagPath)) || !ZoFile::Rename(fileGuard.Path(), path)) {
      if (flagPath) ZoFile::Delete(*flagPath);  // never a flag matrix without its weights file
      return Status::Fail(msg::ESa049);
    }
    fileGuard.Release();
    flagGuard.Release();
    return Status::Ok();
  });
}

Status BuildBinaryFileFromRows(const LumaUnicodeString& path, const LumaUnicodeString& datasetName,
                               const LumaUnicodeString& uniqueIdField, const std::vector<std::int32_t>& ids,
                               const std::vector<std::int32_t>& uniqueIds, const std::vector<std::int32_t>& neighborIds,
                               const std::vector<double>& weights, bool standardize) {
  return Guarded([&]() -> Status {
    if (!HasSwmbExtension(path, true)) return Status::Fail(msg::EAf017);
    if (uniqueIdField.IsEmpty()) return Status::Fail(msg::ECb005);
    if (ids.size() < 2) return Status::Fail(msg::EUb005);
    if (uniqueIds.size() != neighborIds.size() || uniqueIds.size() != weights.size()) return Status::Fail(msg::ESa046);
    // Rows in ascending unique-ID order, as the analyses' check expects them.
    std::vector<std::int32_t> sorted(ids);
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) return Status::Fail(msg::ESa044);
    std::unordered_map<std::int32_t, std::int32_t> position;
    position.reserve(sorted.size());
    for (std::size_t i = 0; i < sorted.size(); ++i) position.emplace(sorted[i], static_cast<std::int32_t>(i));
    std::vector<RowRecord> records;
    records.reserve(uniqueIds.size());
    for (std::size_t h = 0; h < uniqueIds.size(); ++h) {
      const auto row = position.find(uniqueIds[h]), column = position.find(neighborIds[h]);
      if (row == position.end() || column == position.end()) return Status::Fail(msg::ESa080);
      if (!std::isfinite(weights[h])) return Status::Fail(msg::ESa046);
      if (IsStoredWeight(weights[h])) records.push_back({row->second, column->second, weights[h]});
    }
    // Entries grouped by row, each row's entries in the order given.
    std::stable_sort(records.begin(), records.end(),
                     [](const RowRecord& a, const RowRecord& b) { return a.row < b.row; });
    LumaArray<ZoSWMFileUniqueIndex> uniqueIndex(sorted.size());
    LumaArray<double> rowSums(sorted.size(), 0.0);
    for (std::size_t i = 0; i < sorted.size(); ++i) uniqueIndex[i].UniqueID = sorted[i];
    for (const RowRecord& r : records) {
      ++uniqueIndex[static_cast<std::size_t>(r.row)].Count;
      rowSums[static_cast<std::size_t>(r.row)] += r.weight;
    }

    const std::string header =
        HeaderText(datasetName.Str(), DatasetTabular, static_cast<int>(sorted.size()), uniqueIdField.Str(),
                   SpatialWeightsFile, standardize ? 1 : 0, Euclidean, true);
    ZoTempFileGuard fileGuard(SiblingTemporary(path));
    FilePtr file(std::fopen(fileGuard.Path().c_str(), "wb"));
    std::int32_t length = 0;
    const bool ok = file && WriteHeader(file.get(), header, length) && WriteUniqueIndex(file.get(), uniqueIndex) &&
                    (!standardize || WriteDoubles(file.get(), rowSums)) && WriteRecords(file.get(), records) &&
                    std::fclose(file.release()) == 0 && ZoFile::Rename(fileGuard.Path(), path);
    if (!ok) return Status::Fail(msg::ESa049);
    fileGuard.Release();
    return Status::Ok();
  });
}

}  // namespace ZOC::detail::weights
