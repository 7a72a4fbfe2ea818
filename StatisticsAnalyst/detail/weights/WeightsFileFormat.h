#pragma once
// Pieces of the weights file formats shared by the binary and text code:
// little-endian numbers, the header text, strict number parsing, and the
// row loop every builder runs.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

// The header keys in their fixed order; the text form has all but the last.
inline constexpr std::array<const char*, 8> kHeaderKeys = {"QUILLARD",        "DATASETNAME",   "DATASETTYPE",
                                                           "COUNTS",          "UNIQUEID",      "CONCEPTUALIZATION",
                                                           "STANDARDIZATION", "DISTANCEMETHOD"};
inline constexpr std::size_t kTextHeaderKeys = 7;
// Headers of this many UTF-16 code units or more are refused by the readers.
inline constexpr std::size_t kMaxHeaderUnits = 200;
// Weights inside (-1e-20, 1e-20) are not stored.
inline constexpr double kZeroWeight = limits::kZero;
inline bool IsStoredWeight(double w) { return !(w > -kZeroWeight && w < kZeroWeight); }

// Value indices in the header.
enum HeaderValue {
  kProduct = 0,
  kDatasetName,
  kDatasetType,
  kCounts,
  kUniqueId,
  kConceptualization,
  kStandardization,
  kDistanceMethod
};

// The header text; withDistanceMethod false gives the text form's seven parts.
std::string HeaderText(const std::string& datasetName, int datasetType, int count, const std::string& uniqueIdField,
                       int conceptualization, int standardization, int distanceMethod, bool withDistanceMethod);
// Splits "KEY@value;..." into values, checking each key against kHeaderKeys
// in order. Empty parts are skipped. False for a key out of place, a part
// without "@", or more parts than `keyCount`.
bool SplitHeader(std::string_view text, std::size_t keyCount, LumaArray<LumaUnicodeString>& values);

// A whole decimal 32-bit integer (optional sign), nothing else.
bool ParseInt32(std::string_view text, std::int32_t& value);
// ".swmb" at the end of the path, ignoring case or not.
bool HasSwmbExtension(const LumaUnicodeString& path, bool ignoreCase);

// A free name in the folder of `path` to build it under, so the file under
// its real name is only ever complete: builders write here and rename the
// result onto `path` at the end. Hidden, and unique to this process.
LumaUnicodeString SiblingTemporary(const LumaUnicodeString& path);

bool WriteInt32(std::FILE* f, std::int32_t v);
bool WriteDouble(std::FILE* f, double v);
bool ReadInt32(std::FILE* f, std::int32_t& v);
bool ReadDouble(std::FILE* f, double& v);
bool Seek(std::FILE* f, std::int64_t offset);
std::int64_t Tell(std::FILE* f);
// Size of the open file in bytes, or -1.
std::int64_t FileSize(std::FILE* f);
// False when `count` items of `itemBytes` cannot fit between the position
// and the end of the file, so a count read from a file never drives a huge
// allocation. Counts up to 1 MiB of items pass unchecked: the read that
// follows must still check that it got every byte.
bool Fits(std::FILE* f, std::int64_t count, std::int64_t itemBytes);
bool WriteUniqueIndex(std::FILE* f, const LumaArray<ZoSWMFileUniqueIndex>& index);
bool ReadUniqueIndex(std::FILE* f, LumaArray<ZoSWMFileUniqueIndex>& index, std::size_t count);
bool WriteDoubles(std::FILE* f, const LumaArray<double>& values);
bool ReadDoubles(std::FILE* f, LumaArray<double>& values, std::size_t count);

// One neighbour record of a binary row.
struct RowRecord {
  std::int32_t row = 0;
  std::int32_t column = 0;
  double weight = 0.0;
};
inline constexpr std::size_t kRecordBytes = 16;
bool WriteRecords(std::FILE* f, const std::vector<RowRecord>& records);
// Reads `count` records; false unless all of them could be read.
bool ReadRecords(std::FILE* f, std::size_t count, std::vector<RowRecord>& records);

}  // namespace ZOC::detail::weights

namespace ZOC {

// The row loop of every builder: for each feature in order, report progress
// and poll for cancellation ("IMb030"), take the row's neighbours, keep
// those with a stored weight, set the feature's count and row sum, and hand
// the kept neighbours to `emit(i, columns, weights)`, which returns false
// when writing fails.
template <class Emit>
bool ZoWeightsUtilities::WriteRows(const detail::weights::RowBuilder& rows,
                                   LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums,
                                   bool standardize, Emit&& emit) {
  // Rows are computed a block at a time in spatial order and written in
  // feature order; a block holds a bounded number of rows.
  const std::int64_t n = rows.Count();
  detail::weights::RowBuilder::Block block;
  std::vector<std::int64_t> kept;
  std::vector<double> keptWeights;
  for (std::int64_t first = 0; first < n; first += detail::weights::RowBuilder::kBlockRows) {
    rows.FillBlock(first, block);
    for (std::int64_t k = 0; k < block.Count(); ++k) {
      const std::int64_t i = first + k;
      if (m_call && !m_call->Step(m_progressFormat, i, n)) {
        AddErrorMessage(msg::IMb030);
        return false;
      }
      kept.clear();
      keptWeights.clear();
      double sum = 0.0;
      const std::int64_t* columns = block.Columns(k);
      const double* weights = block.Weights(k);
      for (std::size_t h = 0; h < block.Size(k); ++h) {
        if (!detail::weights::IsStoredWeight(weights[h])) continue;
        kept.push_back(columns[h]);
        keptWeights.push_back(weights[h]);
        sum += weights[h];
      }
      uniqueIndex[static_cast<std::size_t>(i)].Count = static_cast<std::int32_t>(kept.size());
      if (standardize) rowSums[static_cast<std::size_t>(i)] = sum;
      if (!emit(i, kept, keptWeights)) {
        AddErrorMessage(msg::ESa049);
        return false;
      }
    }
  }
  return true;
}

}  // namespace ZOC
