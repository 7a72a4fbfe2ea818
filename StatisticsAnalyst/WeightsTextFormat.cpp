// The text weights file: its builder, its header line, the readers shared
// with the table converters, and the two diagnostic dumps.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <new>
#include <stdexcept>

#include "StatisticsAnalyst/WeightsFileFormat.h"
#include "StatisticsAnalyst/WeightsFileReaders.h"
#include "StatisticsAnalyst/WeightsRowBuilder.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "host/ZoFile.h"
#include "host/ZoStringEx.h"
#include "host/ZoTextFile.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace wf = weightsfile;

namespace weightsfile {

namespace {

constexpr std::size_t kRowSumWidth = 13;

// Calls f(piece) for each non-blank piece of `text` between separators.
template <class F>
bool ForEachPiece(std::string_view text, char separator, F&& f) {
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(separator, start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view piece = text.substr(start, end - start);
    start = end + 1;
    if (piece.find_first_not_of(' ') == std::string_view::npos) continue;
    if (!f(piece)) return false;
  }
  return true;
}

struct FileCloser {
  void operator()(std::FILE* f) const {
    if (f) std::fclose(f);
  }
};

// The binary form: the tables are read at open, the rows on demand.
class BinaryReader : public WeightsFileReader {
 public:
  // Reads everything before the rows; null on success, else the message ID
  // (also null with `reported` set when the header reader added its own).
  const char* Open(ZoWeightsUtilities& owner, const LumaUnicodeString& path, bool& reported) {
    reported = false;
    m_file.reset(std::fopen(path.c_str(), "rb"));
    if (!m_file) return msg::ESa049;
    std::FILE* f = m_file.get();
    LumaArray<LumaUnicodeString> values;
    std::int64_t position = 0;
    if (!owner.ReadHeader(f, values, position)) {
      reported = true;
      return nullptr;
    }
    if (values.size() != kHeaderKeys.size() || !ParseInt32(values[kCounts].Str(), m_count) || m_count < 0 ||
        !ParseInt32(values[kStandardization].Str(), m_standardized))
      return msg::ESa045;
    // Both tables must lie inside the file before they are allocated.
    const auto n = static_cast<std::size_t>(m_count);
    if (!Seek(f, position) || !Fits(f, m_count, 8) || !ReadUniqueIndex(f, m_index, n) ||
        (m_standardized != 0 && (!Fits(f, m_count, 8) || !ReadDoubles(f, m_rowSums, n))))
      return msg::ESa046;
    m_ids.reserve(n);
    for (const auto& entry : m_index) {
      if (entry.Count < 0) return msg::ESa046;
      m_ids.push_back(entry.UniqueID);
    }
    m_rowsStart = Tell(f);
    return m_rowsStart < 0 ? msg::ESa046 : nullptr;
  }

  RowRead Next(std::vector<RowRecord>& records) override {
    records.clear();
    if (m_next >= m_count) return RowRead::End;
    const std::int32_t count = m_index[static_cast<std::size_t>(m_next)].Count;
    // The count was checked non-negative at open; its bytes must be there.
    if (!Fits(m_file.get(), count, static_cast<std::int64_t>(kRecordBytes)) ||
        !ReadRecords(m_file.get(), static_cast<std::size_t>(count), records))
      return RowRead::Truncated;
    ++m_next;
    return InRange(records) ? RowRead::Read : RowRead::Bad;
  }

  bool Rewind() override {
    m_next = 0;
    return Seek(m_file.get(), m_rowsStart);
  }

 private:
  std::unique_ptr<std::FILE, FileCloser> m_file;
  std::int64_t m_rowsStart = 0;
  LumaArray<ZoSWMFileUniqueIndex> m_index;
};

// The text form, line by line: header, IDs, row sums when standardized, rows.
class TextReader : public WeightsFileReader {
 public:
  // Reads everything before the rows; null on success, else the message ID.
  const char* Open(ZoWeightsUtilities& owner, const LumaUnicodeString& path) {
    if (!m_file.Open(path, ZoTextFile::ModeRead)) return msg::EAg033;
    std::string line;
    LumaArray<LumaUnicodeString> values;
    if (!m_file.ReadLine(line) || !owner.ReadHeader(line, values) || values.size() != kTextHeaderKeys ||
        !ParseInt32(values[kCounts].Str(), m_count) || m_count < 0 ||
        !ParseInt32(values[kStandardization].Str(), m_standardized))
      return msg::ESa045;

    // The IDs are counted as they are parsed, so a wrong COUNTS value never
    // drives an allocation.
    if (!m_file.ReadLine(line)) return msg::ESa046;
    const bool idsOk = ForEachPiece(line, ' ', [&](std::string_view piece) {
      std::int32_t id = 0;
      if (static_cast<std::int64_t>(m_ids.size()) >= m_count || !ParseInt32(piece, id)) return false;
      m_ids.push_back(id);
      return true;
    });
    if (!idsOk || static_cast<std::int64_t>(m_ids.size()) != m_count) return msg::ESa046;

    if (m_standardized != 0) {
      if (!m_file.ReadLine(line)) return msg::ESa046;
      const bool sumsOk = ForEachPiece(line, ' ', [&](std::string_view piece) {
        double sum = 0.0;
        if (static_cast<std::int64_t>(m_rowSums.size()) >= m_count || !ParseFiniteDouble(piece, sum)) return false;
        m_rowSums.push_back(sum);
        return true;
      });
      if (!sumsOk || static_cast<std::int64_t>(m_rowSums.size()) != m_count) return msg::ESa046;
    }
    m_rowsStart = m_file.Tell();
    return m_rowsStart < 0 ? msg::ESa046 : nullptr;
  }

  RowRead Next(std::vector<RowRecord>& records) override {
    records.clear();
    if (m_next >= m_count) return RowRead::End;
    std::string line;
    if (!m_file.ReadLine(line)) return m_file.LineTooLong() ? RowRead::Bad : RowRead::Truncated;
    // "i j w" records separated by ";"; a row without neighbours is ";" alone.
    const bool ok = ForEachPiece(line, ';', [&](std::string_view piece) {
      std::string_view tokens[3];
      std::size_t n = 0;
      const bool fits = ForEachPiece(piece, ' ', [&](std::string_view token) {
        if (n == 3) return false;
        tokens[n++] = token;
        return true;
      });
      RowRecord r;
      if (!fits || n != 3 || !ParseInt32(tokens[0], r.row) || !ParseInt32(tokens[1], r.column) ||
          !ParseFiniteDouble(tokens[2], r.weight))
        return false;
      records.push_back(r);
      return true;
    });
    ++m_next;
    return ok && InRange(records) ? RowRead::Read : RowRead::Bad;
  }

  bool Rewind() override {
    m_next = 0;
    return m_file.Seek(m_rowsStart);
  }

  bool RestIsEmpty() override {
    std::string line;
    while (m_file.ReadLine(line))
      if (line.find_first_not_of(" \t") != std::string::npos) return false;
    return !m_file.LineTooLong();
  }

 private:
  ZoTextFile m_file;
  std::int64_t m_rowsStart = 0;
};

}  // namespace

std::string RowSumEntry(double sum) {
  // Digits of the integer part, truncated toward zero; 0 counts as one digit.
  int digits = 1;
  for (double whole = std::trunc(std::fabs(sum)); whole >= 10.0 && digits < 400; whole = std::trunc(whole / 10.0))
    ++digits;
  const int precision = 11 - digits;
  char text[512];
  // Sums of 10^11 or more are outside the format (their precision would be
  // negative): they are written without decimals, 13 characters or more.
  std::snprintf(text, sizeof text, "%12.*f ", precision < 0 ? 0 : precision, sum);
  return text;
}

std::string RecordText(std::int32_t row, std::int32_t column, double weight) {
  char text[512];
  std::snprintf(text, sizeof text, "%d %d %.10f", row, column, weight);
  return text;
}

bool ParseFiniteDouble(std::string_view text, double& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && ec == std::errc() && ptr == text.data() + text.size() && std::isfinite(value);
}

bool WeightsFileReader::InRange(const std::vector<RowRecord>& records) const {
  for (const auto& r : records)
    if (r.row < 0 || r.row >= m_count || r.column < 0 || r.column >= m_count) return false;
  return true;
}

std::unique_ptr<WeightsFileReader> OpenBinaryWeights(ZoWeightsUtilities& owner, const LumaUnicodeString& path,
                                                     const char*& failedId) {
  auto reader = std::make_unique<BinaryReader>();
  bool reported = false;
  failedId = reader->Open(owner, path, reported);
  if (failedId || reported) return nullptr;
  return reader;
}

std::unique_ptr<WeightsFileReader> OpenTextWeights(ZoWeightsUtilities& owner, const LumaUnicodeString& path,
                                                   const char*& failedId) {
  auto reader = std::make_unique<TextReader>();
  failedId = reader->Open(owner, path);
  if (failedId) return nullptr;
  return reader;
}

}  // namespace weightsfile

namespace {

// The progress of the text build, visible to WriteRows while it runs.
class TextBuildProgress {
 public:
  TextBuildProgress(ZoCallProgress*& slot, LumaUnicodeString& format, ZoProgress* caller, bool show)
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
  ZoCallProgress m_progress;
  ZoCallProgress*& m_slot;
};

// Layout of both diagnostic dumps on standard output. A binary file and the
// text file built from the same data print the same lines:
//   the unique IDs in file order, each followed by one blank, on one line;
//   when the file is standardized, the row sums on one line, as the
//   13-character entries of the text form;
//   then one line "i j w" per neighbour record (w with 10 decimals), rows in
//   order; a row without neighbours prints nothing.
// Lines are printed as they are read, so a damaged file shows everything up
// to the damage before the dump fails.
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

// Prints the rows; `truncatedIsEnd` accepts a file that ends before its
// last row. Null on success, else the message ID.
const char* PrintRows(wf::WeightsFileReader& reader, bool truncatedIsEnd) {
  std::vector<wf::RowRecord> records;
  for (;;) {
    const wf::RowRead read = reader.Next(records);
    if (read == wf::RowRead::Bad || (read == wf::RowRead::Truncated && !truncatedIsEnd)) return msg::ESa046;
    if (read != wf::RowRead::Read) break;
    for (const auto& r : records) {
      std::fputs(wf::RecordText(r.row, r.column, r.weight).c_str(), stdout);
      std::fputc('\n', stdout);
    }
  }
  std::fflush(stdout);
  return reader.RestIsEmpty() ? nullptr : msg::ESa046;
}

}  // namespace

unsigned char ZoWeightsUtilities::ReadHeader(const std::string& line, LumaArray<LumaUnicodeString>& values) {
  try {
    if (wf::SplitHeader(line, wf::kTextHeaderKeys, values)) return 1;
  } catch (const std::exception&) {
  }
  values.clear();
  return 0;
}

unsigned char ZoWeightsUtilities::BuildWeightMatrixText(ZoDatasetVector* dataset,
                                                        const LumaUnicodeString& uniqueIdField,
                                                        const LumaUnicodeString& path,
                                                        const ZoPatternsInformation& info,
                                                        unsigned char showProgress) {
  ClearErrorMessage();
  try {
    LumaArray<ZoSWMFileUniqueIndex> uniqueIndex;
    ZoRecordsetPtr records = PrepareBuild(dataset, uniqueIdField, path, info, uniqueIndex);
    if (!records) return 0;
    const std::size_t n = uniqueIndex.size();
    const bool standardize = info.Standardization;

    // Deliberate choice: the partial text file is deleted on every failure,
    // cancellation included, as the binary builders do, so a failed build
    // never leaves a file that looks usable. The guard outlives the file
    // object, so the file is closed before it is deleted.
    ZoTempFileGuard guard;
    ZoTextFile file;
    if (!file.Open(path, ZoTextFile::ModeWrite)) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    guard.Reset(path);

    std::string line = wf::HeaderText(dataset->GetName().Str(), dataset->GetType(), static_cast<int>(n),
                                      uniqueIdField.Str(), info.Conceptualization, standardize ? 1 : 0, 0, false);
    bool ok = file.WriteLine(line);
    line.clear();
    for (const auto& entry : uniqueIndex) {
      line += std::to_string(entry.UniqueID);
      line += ' ';
    }
    ok = ok && file.WriteLine(line);
    // The row sums are known only after the rows: a placeholder of the same
    // length is overwritten in place at the end.
    const std::int64_t sumsAt = file.Tell();
    if (standardize) ok = ok && file.WriteLine(std::string(n * wf::kRowSumWidth, '1'));
    if (!ok || sumsAt < 0) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }

    TextBuildProgress progress(m_call, m_progressFormat, m_progress, showProgress != 0);
    ZoStatisticsUtilities utilities;
    ZoWeightsRowBuilder rows(utilities);
    ZoPatternsInformation rowsInfo = info;
    rowsInfo.DistanceMethod = ZoStatisticsUtilities::ValidateDistanceMethod(info.DistanceMethod,
                                                                            dataset->GetPrjCoordSys());
    if (!rows.Prepare(records.get(), rowsInfo)) {
      AppendErrorText(utilities.GetStrErrorMes());
      if (rows.FailedId()) AddErrorMessage(rows.FailedId());
      return 0;
    }
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
    if (!file.Close()) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    guard.Release();
    return 1;
  } catch (const std::bad_alloc&) {
    AddErrorMessage(msg::EBa003);
  } catch (const std::exception&) {
    AddErrorMessage(msg::ESa049);
  }
  return 0;
}

unsigned char ZoWeightsUtilities::ReadWeightMatrixText(const LumaUnicodeString& path) {
  return RunReader([&]() -> const char* {
    // The text reader wants ".swmb" exactly, in lower case.
    if (path.IsEmpty() || !wf::HasSwmbExtension(path, false)) return msg::EAf017;
    const char* failedId = nullptr;
    auto reader = wf::OpenTextWeights(*this, path, failedId);
    if (!reader) return failedId;
    PrintTables(*reader);
    // The text form is dumped up to the end of the file, however many rows it holds.
    return PrintRows(*reader, true);
  });
}

unsigned char ZoWeightsUtilities::ReadWeightMatrixTextEx(const LumaUnicodeString& path) {
  return RunReader([&]() -> const char* {
    if (path.IsEmpty() || !wf::HasSwmbExtension(path, true)) return msg::EAf017;
    const char* failedId = nullptr;
    auto reader = wf::OpenBinaryWeights(*this, path, failedId);
    if (!reader) return failedId ? failedId : "";  // "" : the header reader has reported it
    PrintTables(*reader);
    return PrintRows(*reader, false);
  });
}

}  // namespace ZOC
