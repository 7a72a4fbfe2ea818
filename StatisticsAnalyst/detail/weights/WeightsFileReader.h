#pragma once
// WeightsFileReader: sequential reading of an existing weights file, shared
// by the diagnostic dumps and the table converters. The binary form goes
// through the one binary reader (BinaryWeightsReader.h); the text form is
// read line by line. Both validate everything they hand out: counts are
// checked against the file (binary) or against the IDs actually present
// (text) before anything is allocated from them, and every record's row and
// column index lies in 0..N−1, so callers may index the ID table with them
// directly.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "StatisticsAnalyst/detail/common/Guard.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/ZoMessageIds.h"
#include "host/ZoTextFile.h"

namespace ZOC::detail::weights {

// Characters of one row-sum entry of the text form.
inline constexpr std::size_t kRowSumWidth = 13;

// The 13-character row-sum entry of the text form: "%12.{11-d}f" and a blank,
// d being the number of digits of the sum's integer part (1 when it is 0).
// Non-negative sums below 10^11 always take exactly 13 characters.
std::string RowSumEntry(double sum);
// One neighbour record as the text form and the dumps write it: "i j w"
// with w to 10 decimals.
std::string RecordText(std::int32_t row, std::int32_t column, double weight);
// A whole finite decimal number, nothing else.
bool ParseFiniteDouble(std::string_view text, double& value);

// What reading the next row gave.
enum class RowRead {
  Read,       // the row is in `records`
  End,        // all N rows have been read
  Truncated,  // the file ends before this row (or inside it)
  Bad,        // the row is malformed or indexes outside 0..N−1
};

// A file whose header, ID table and row sums have been read; the rows follow.
class WeightsFileReader {
 public:
  virtual ~WeightsFileReader() = default;
  // Reads the next row's records.
  virtual RowRead Next(std::vector<RowRecord>& records) = 0;
  // Goes back to the first row.
  virtual bool Rewind() = 0;
  // True when nothing but blank lines follows the last row (text form); the
  // binary form ignores what follows its rows.
  virtual bool RestIsEmpty() { return true; }

  std::int32_t Count() const { return m_count; }
  bool Standardized() const { return m_standardized != 0; }
  const std::vector<std::int32_t>& Ids() const { return m_ids; }
  // Row sums when standardized, else empty.
  const LumaArray<double>& RowSums() const { return m_rowSums; }

 protected:
  // True when every record's indices lie in 0..N−1.
  bool InRange(const std::vector<RowRecord>& records) const;

  std::int32_t m_count = 0;
  std::int32_t m_standardized = 0;
  std::vector<std::int32_t> m_ids;
  LumaArray<double> m_rowSums;
  std::int64_t m_next = 0;  // the row Next reads
};

// Opens a binary weights file (the caller has checked the extension):
// "ESa049" when it cannot be opened, else the checks of ReadBinaryLayout
// ("EUb001", "ESa045", "ESa046"). `reader` is null on failure.
Status OpenBinaryWeights(const LumaUnicodeString& path, std::unique_ptr<WeightsFileReader>& reader);
// Opens a text weights file: "EAg033" when it cannot be opened, "ESa045" for
// a missing or unusable header line, "ESa046" for a missing, malformed or
// inconsistent ID or row-sum line. `reader` is null on failure.
Status OpenTextWeights(const LumaUnicodeString& path, std::unique_ptr<WeightsFileReader>& reader);

// Reads every row once and goes back to the first: "ESa046" unless all N
// rows are whole and well formed and nothing but blank lines follows them,
// so a damaged file is refused before anything is written from it.
Status CheckAllRows(WeightsFileReader& reader);

// Runs a step that reads a weights file: any error escaping it other than
// running out of memory means the file made the reading fail, "ESa046".
template <class Step>
Status GuardReading(Step&& step) {
  return Guarded(std::forward<Step>(step), msg::ESa046);
}

}  // namespace ZOC::detail::weights
