// The sequential readers of existing weights files behind the diagnostic
// dumps and the table converters: the binary form through the one binary
// reader, the text form line by line with the same checks.
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

namespace {

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

// The binary form, through the one binary reader: the tables are read and
// the file's size checked at open, the rows on demand.
class BinaryReader : public WeightsFileReader {
 public:
  Status Open(const LumaUnicodeString& path) {
    m_file.reset(std::fopen(path.c_str(), "rb"));
    if (!m_file) return Status::Fail(msg::ESa049);
    BinaryLayout layout;
    if (Status s = ReadBinaryLayout(m_file.get(), layout); !s) return s;
    m_count = layout.count;
    m_standardized = layout.standardization;
    m_rowSums = std::move(layout.rowSums);
    m_index = std::move(layout.index);
    m_rowsStart = layout.rowsStart;
    m_ids.reserve(m_index.size());
    for (const auto& entry : m_index) m_ids.push_back(entry.UniqueID);
    return Status::Ok();
  }

  RowRead Next(std::vector<RowRecord>& records) override {
    records.clear();
    if (m_next >= m_count) return RowRead::End;
    const std::int32_t count = m_index[static_cast<std::size_t>(m_next)].Count;
    ++m_next;
    // The open has checked that the rows fill the file exactly, so a row
    // that cannot be read is damage, not an early end.
    return ReadBinaryRow(m_file.get(), count, m_count, records) ? RowRead::Read : RowRead::Bad;
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
  // Reads everything before the rows.
  Status Open(const LumaUnicodeString& path) {
    if (!m_file.Open(path, ZoTextFile::ModeRead)) return Status::Fail(msg::EAg033);
    std::string line;
    LumaArray<LumaUnicodeString> values;
    if (!m_file.ReadLine(line) || !ReadTextHeader(line, values) || values.size() != kTextHeaderKeys ||
        !ParseInt32(values[kCounts].Str(), m_count) || m_count < 0 ||
        !ParseInt32(values[kStandardization].Str(), m_standardized))
      return Status::Fail(msg::ESa045);

    // The IDs are counted as they are parsed, so a wrong COUNTS value never
    // drives an allocation.
    if (!m_file.ReadLine(line)) return Status::Fail(msg::ESa046);
    const bool idsOk = ForEachPiece(line, ' ', [&](std::string_view piece) {
      std::int32_t id = 0;
      if (static_cast<std::int64_t>(m_ids.size()) >= m_count || !ParseInt32(piece, id)) return false;
      m_ids.push_back(id);
      return true;
    });
    if (!idsOk || static_cast<std::int64_t>(m_ids.size()) != m_count) return Status::Fail(msg::ESa046);

    if (m_standardized != 0) {
      if (!m_file.ReadLine(line)) return Status::Fail(msg::ESa046);
      const bool sumsOk = ForEachPiece(line, ' ', [&](std::string_view piece) {
        double sum = 0.0;
        if (static_cast<std::int64_t>(m_rowSums.size()) >= m_count || !ParseFiniteDouble(piece, sum)) return false;
        m_rowSums.push_back(sum);
        return true;
      });
      if (!sumsOk || static_cast<std::int64_t>(m_rowSums.size()) != m_count) return Status::Fail(msg::ESa046);
    }
    m_rowsStart = m_file.Tell();
    return m_rowsStart < 0 ? Status::Fail(msg::ESa046) : Status::Ok();
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

Status OpenBinaryWeights(const LumaUnicodeString& path, std::unique_ptr<WeightsFileReader>& reader) {
  reader.reset();
  auto opened = std::make_unique<BinaryReader>();
  if (Status s = opened->Open(path); !s) return s;
  reader = std::move(opened);
  return Status::Ok();
}

Status OpenTextWeights(const LumaUnicodeString& path, std::unique_ptr<WeightsFileReader>& reader) {
  reader.reset();
  auto opened = std::make_unique<TextReader>();
  if (Status s = opened->Open(path); !s) return s;
  reader = std::move(opened);
  return Status::Ok();
}

Status CheckAllRows(WeightsFileReader& reader) {
  std::vector<RowRecord> records;
  RowRead read;
  while ((read = reader.Next(records)) == RowRead::Read) {
  }
  if (read != RowRead::End || !reader.RestIsEmpty() || !reader.Rewind()) return Status::Fail(msg::ESa046);
  return Status::Ok();
}

}  // namespace ZOC::detail::weights
