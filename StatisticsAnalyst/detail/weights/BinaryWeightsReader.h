#pragma once
// The one reader of binary weights files. The analyses' checked open, the
// diagnostic dump, the converter to tables and the flag-matrix builder all
// read the header, the unique-index table and the row sums here, and read
// their rows through ReadBinaryRow, so a file that one of them refuses is
// refused by all of them, with the same identifier.
//
// Nothing is allocated from a number read in the file before that number has
// been checked against the file's size, and the file must hold exactly the
// records its index announces: a file cut short, or one with bytes after its
// last row, is refused before any row is handed out.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"

namespace ZOC::detail::weights {

// What comes before the rows of a binary weights file.
struct BinaryLayout {
  LumaArray<LumaUnicodeString> values;  // the eight header values, in key order
  std::int32_t count = 0;               // N, the COUNTS value
  std::int32_t standardization = 0;     // the STANDARDIZATION value
  std::int32_t conceptualization = 0;   // the CONCEPTUALIZATION value
  LumaArray<ZoSWMFileUniqueIndex> index;
  LumaArray<double> rowSums;    // N stored sums when standardized, else empty
  std::int64_t indexStart = 0;  // 4 + L
  std::int64_t rowsStart = 0;   // the first neighbour row
  std::int64_t records = 0;     // the sum of all neighbour counts
};

// Reads the header from the file's start: the values in key order and the
// position 4 + L of the unique-index table, where the file is left.
// "EUb001" for a text weights file, "ESa045" for any other header
// that is unreadable, 200 code units or longer, has a key out of place, a
// part without a value, or not exactly the eight parts.
Status ReadBinaryHeader(std::FILE* file, LumaArray<LumaUnicodeString>& values, std::int64_t& position);

// Reads and checks everything before the rows and leaves the file at the
// first row: ReadBinaryHeaderValues, then ReadBinaryTables. The analyses'
// open calls the two steps itself, to compare the header with the dataset
// in between.
Status ReadBinaryLayout(std::FILE* file, BinaryLayout& layout);
// The header, then its COUNTS, STANDARDIZATION and CONCEPTUALIZATION
// values: "ESa045" when one is not a whole number or COUNTS is negative.
Status ReadBinaryHeaderValues(std::FILE* file, BinaryLayout& layout);
// The unique-index table and the row sums after a header read by
// ReadBinaryHeaderValues: "ESa046" when they do not fit in the file, a
// neighbour count is negative, or the rows are not exactly the rest of the
// file.
Status ReadBinaryTables(std::FILE* file, BinaryLayout& layout);

// Reads the `count` records of the next row: "ESa046" when
// they are not all there or a row or column index lies outside 0..n−1.
Status ReadBinaryRow(std::FILE* file, std::int32_t count, std::int32_t n, std::vector<RowRecord>& records);

}  // namespace ZOC::detail::weights
