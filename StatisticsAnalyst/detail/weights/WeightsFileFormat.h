#pragma once
// Pieces of the weights file formats shared by the binary and text code:
// little-endian numbers, the header text and strict number parsing.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC::detail::weights {

using LUMA::LumaArray;
using LUMA::LumaUnicodeString;

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
// The text form's header line: the seven keys without DISTANCEMETHOD, in
// order. A line with no part at all is accepted (no values). False, with no
// values, for a key out of place or a line that cannot be split.
bool ReadTextHeader(std::string_view line, LumaArray<LumaUnicodeString>& values);

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
