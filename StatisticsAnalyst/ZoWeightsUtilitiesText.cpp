// ZoWeightsUtilities: the text weights file (its builder and its header
// line) and the two diagnostic dumps.
#include <cstdio>
#include <new>
#include <stdexcept>

#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"
#include "host/ZoTextFile.h"

namespace ZOC {

namespace wf = detail::weights;

namespace {

// The progress of the text build, visible to WriteRows while it runs.
class TextBuildProgress {
 public:
  TextBuildProgress(detail::CallProgress*& slot, LumaUnicodeString& format, ZoProgress* caller, bool show)
      : m_progress(caller, show), m_slot(slot) {
    if (m_progress) {
      m_progress->SetBothPosRange(0, 100);
      m_progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb330));
      format = ZoStringEx::LoadResString(msg::IMb331);
    }
    m_slot = &m_progress;
  }
  ~TextBuildProgress() { m_slot = nullptr; }
  TextBuildProgress(const TextBuildProgress&) = delete;
  TextBuildProgress& operator=(const TextBuildProgress&) = delete;

 private:
  detail::CallProgress m_progress;
  detail::CallProgress*& m_slot;
};

// Writes the header line, the ID line and, when standardizing, a placeholder
// row-sum line. The row sums are known only after the rows: the placeholder
// has their length and is overwritten in place at the end. Returns where the
// row-sum line starts, or -1 when writing fails.
std::int64_t WriteTextHead(ZoTextFile& file, ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                           const ZoPatternsInformation& info, const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex) {
  const std::size_t n = uniqueIndex.size();
  std::string line =
      wf::HeaderText(dataset->GetName().Str(), dataset->GetType(), static_cast<int>(n), uniqueIdField.Str(),
                     info.Conceptualization, info.Standardization ? 1 : 0, 0, false);
  bool ok = file.WriteLine(line);
  line.clear();
  for (const auto& entry : uniqueIndex) {
    line += std::to_string(entry.UniqueID);
    line += ' ';
  }
  ok = ok && file.WriteLine(line);
  const std::int64_t sumsAt = file.Tell();
  if (info.Standardization) ok = ok && file.WriteLine(std::string(n * wf::kRowSumWidth, '1'));
  return ok ? sumsAt : -1;
}

// Layout of both diagnostic dumps on standard output. A binary file and the
// text file built from the same data print the same lines:
//   the unique IDs in file order, each followed by one blank, on one line;
//   when the file is standardized, the row sums on one line, as the
//   13-character entries of the text form;
//   then one line "i j w" per neighbour record (w with 10 decimals), rows in
//   order; a row without neighbours prints nothing.
// The whole file is checked before the first line is printed, as the
// converters do, so a damaged file prints nothing.
void PrintTables(const wf::WeightsFileReader& reader) {
  std::string line;
  for (std::int32_t id : reader.Ids()) {
    line += std::to_string(id);
    line += ' ';
  }
  line += '\n';
  std::fputs(line.c_str(), stdout);
  if (reader.Standardized()) {
    line.clear();
    for (double sum : reader.RowSums()) line += wf::RowSumEntry(sum);
    line += '\n';
    std::fputs(line.c_str(), stdout);
  }
}

// Prints the rows of a reader whose rows have all been checked. Null on
// success, else the message ID.
const char* PrintRows(wf::WeightsFileReader& reader) {
  std::vector<wf::RowRecord> records;
  wf::RowRead read;
  while ((read = reader.Next(records)) == wf::RowRead::Read) {
    for (const auto& r : records) {
      std::fputs(wf::RecordText(r.row, r.column, r.weight).c_str(), stdout);
      std::fputc('\n', stdout);
    }
  }
  std::fflush(stdout);
  return read == wf::RowRead::End ? nullptr : msg::ESa046;
}

// Checks the whole file, then prints it: a damaged file prints nothing.
const char* PrintChecked(wf::WeightsFileReader& reader) {
  if (const char* id = wf::CheckAllRows(reader)) return id;
  PrintTables(reader);
  return PrintRows(reader);
}

}  // namespace

unsigned char ZoWeightsUtilities::ReadHeader(const std::string& line, LumaArray<LumaUnicodeString>& values) {
  return Guard([&]() -> unsigned char {
    try {
      if (wf::SplitHeader(line, wf::kTextHeaderKeys, values)) return 1;
    } catch (const std::exception&) {
    }
    values.clear();
    return 0;
  });
}

unsigned char ZoWeightsUtilities::BuildWeightMatrixText(ZoDatasetVector* dataset,
                                                        const LumaUnicodeString& uniqueIdField,
                                                        const LumaUnicodeString& path,
                                                        const ZoPatternsInformation& info, unsigned char showProgress) {
  ClearErrorMessage();
  return RunBuild([&]() -> unsigned char {
    LumaArray<ZoSWMFileUniqueIndex> uniqueIndex;
    ZoRecordsetPtr records = PrepareBuild(dataset, uniqueIdField, path, info, uniqueIndex);
    if (!records) return 0;
    const std::size_t n = uniqueIndex.size();
    const bool standardize = info.Standardization;

    // Deliberate choice: the text file is built under a temporary name beside
    // it and renamed at the end, as the binary builders do, so a failed or
    // cancelled build never leaves a file that looks usable. The guard
    // outlives the file object, so the file is closed before it is deleted.
    ZoTempFileGuard guard(wf::SiblingTemporary(path));
    ZoTextFile file;
    if (!file.Open(guard.Path(), ZoTextFile::ModeWrite)) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }

    const std::int64_t sumsAt = WriteTextHead(file, dataset, uniqueIdField, info, uniqueIndex);
    if (sumsAt < 0) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    std::string line;

    TextBuildProgress progress(m_call, m_progressFormat, m_progress, showProgress != 0);
    detail::weights::RowBuilder rows;
    ZoPatternsInformation rowsInfo = info;
    rowsInfo.DistanceMethod = detail::spatial::EffectiveMethod(info.DistanceMethod, dataset->GetPrjCoordSys());
    if (!Report(rows.Prepare(records.get(), rowsInfo))) return 0;
    LumaArray<double> rowSums(n, 0.0);
    auto emit = [&](std::int64_t i, const std::vector<std::int64_t>& columns, const std::vector<double>& weights) {
      line.clear();
      for (std::size_t h = 0; h < columns.size(); ++h) {
        line += wf::RecordText(static_cast<std::int32_t>(i), static_cast<std::int32_t>(columns[h]), weights[h]);
        line += ';';
      }
      if (columns.empty()) line.push_back(';');
      return file.WriteLine(line);
    };
    if (!WriteRows(rows, uniqueIndex, rowSums, standardize, emit)) return 0;

    if (standardize) {
      line.clear();
      for (double sum : rowSums) line += wf::RowSumEntry(sum);
      // The row builder's weights are positive and at most 1, so every sum
      // takes 13 characters; anything longer would overwrite the first row.
      if (line.size() != n * wf::kRowSumWidth || !file.Seek(sumsAt) || !file.Write(line)) {
        AddErrorMessage(msg::ESa049);
        return 0;
      }
    }
    if (!file.Close() || !ZoFile::Rename(guard.Path(), path)) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    guard.Release();
    return 1;
  });
}

unsigned char ZoWeightsUtilities::ReadWeightMatrixText(const LumaUnicodeString& path) {
  return Guard([&]() -> unsigned char {
    return RunReader([&]() -> const char* {
      // The text reader wants ".swmb" exactly, in lower case.
      if (path.IsEmpty() || !wf::HasSwmbExtension(path, false)) return msg::EAf017;
      const char* failedId = nullptr;
      auto reader = wf::OpenTextWeights(*this, path, failedId);
      if (!reader) return failedId;
      return PrintChecked(*reader);
    });
  });
}

unsigned char ZoWeightsUtilities::ReadWeightMatrixTextEx(const LumaUnicodeString& path) {
  return Guard([&]() -> unsigned char {
    return RunReader([&]() -> const char* {
      if (path.IsEmpty() || !wf::HasSwmbExtension(path, true)) return msg::EAf017;
      const char* failedId = nullptr;
      auto reader = wf::OpenBinaryWeights(path, failedId);
      if (!reader) return failedId;
      return PrintChecked(*reader);
    });
  });
}

}  // namespace ZOC
