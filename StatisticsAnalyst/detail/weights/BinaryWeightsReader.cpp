#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"

#include <cstring>
#include <string>

#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

namespace {

// The text form starts with its header line, where the binary form starts
// with the header's length: such a file is a text weights file handed to a
// binary reader, which deserves its own message.
bool StartsAsText(std::FILE* file) {
  static constexpr char kStart[] = "QUILLARD@";
  char bytes[sizeof kStart - 1];
  return Seek(file, 0) && std::fread(bytes, 1, sizeof bytes, file) == sizeof bytes &&
         std::memcmp(bytes, kStart, sizeof bytes) == 0;
}

// True when `count` items of `itemBytes` lie between the position and the
// end of the file, whatever their number.
bool InFile(std::FILE* file, std::int64_t count, std::int64_t itemBytes) {
  const std::int64_t size = FileSize(file), position = Tell(file);
  return count >= 0 && size >= 0 && position >= 0 && position <= size && count <= (size - position) / itemBytes;
}

}  // namespace

Status ReadBinaryHeaderValues(std::FILE* file, BinaryLayout& layout) {
  layout = BinaryLayout();
  if (Status s = ReadBinaryHeader(file, layout.values, layout.indexStart); !s) return s;
  if (!ParseInt32(layout.values[kCounts].Str(), layout.count) || layout.count < 0 ||
      !ParseInt32(layout.values[kStandardization].Str(), layout.standardization) ||
      !ParseInt32(layout.values[kConceptualization].Str(), layout.conceptualization))
    return Status::Fail(msg::ESa045);
  return Status::Ok();
}

Status ReadBinaryHeader(std::FILE* file, LumaArray<LumaUnicodeString>& values, std::int64_t& position) {
  values.clear();
  position = 0;
  if (StartsAsText(file)) return Status::Fail(msg::EUb001);
  std::int32_t length = 0;
  if (!Seek(file, 0) || !ReadInt32(file, length)) return Status::Fail(msg::ESa045);
  // Headers are short; a length beyond the limit means a foreign or damaged file.
  const std::int64_t units = length >> 1;
  if (length < 0 || units >= static_cast<std::int64_t>(kMaxHeaderUnits)) return Status::Fail(msg::ESa045);
  std::u16string text(static_cast<std::size_t>(units), u'\0');
  for (auto& u : text) {
    unsigned char bytes[2];
    if (std::fread(bytes, 1, 2, file) != 2) return Status::Fail(msg::ESa045);
    u = static_cast<char16_t>(bytes[0] | (bytes[1] << 8));
  }
  // An odd length leaves one byte of the text unread; the tables start at 4 + L.
  const std::int64_t end = static_cast<std::int64_t>(length) + 4;
  if (!Seek(file, end) || !SplitHeader(LumaUnicodeString::FromUtf16(text).Str(), kHeaderKeys.size(), values) ||
      values.size() != kHeaderKeys.size()) {
    values.clear();
    return Status::Fail(msg::ESa045);
  }
  position = end;
  return Status::Ok();
}

Status ReadBinaryTables(std::FILE* file, BinaryLayout& layout) {
  if (!Seek(file, layout.indexStart)) return Status::Fail(msg::ESa046);
  const auto n = static_cast<std::size_t>(layout.count);
  if (!InFile(file, layout.count, 8) || !ReadUniqueIndex(file, layout.index, n)) return Status::Fail(msg::ESa046);
  if (layout.standardization != 0 && (!InFile(file, layout.count, 8) || !ReadDoubles(file, layout.rowSums, n)))
    return Status::Fail(msg::ESa046);
  for (const auto& entry : layout.index) {
    if (entry.Count < 0) return Status::Fail(msg::ESa046);
    layout.records += entry.Count;
  }
  layout.rowsStart = Tell(file);
  const std::int64_t size = FileSize(file);
  if (layout.rowsStart < 0 || size < 0 ||
      size - layout.rowsStart != layout.records * static_cast<std::int64_t>(kRecordBytes))
    return Status::Fail(msg::ESa046);
  return Status::Ok();
}

Status ReadBinaryLayout(std::FILE* file, BinaryLayout& layout) {
  if (Status s = ReadBinaryHeaderValues(file, layout); !s) return s;
  return ReadBinaryTables(file, layout);
}

Status ReadBinaryRow(std::FILE* file, std::int32_t count, std::int32_t n, std::vector<RowRecord>& records) {
  records.clear();
  if (count < 0 || !Fits(file, count, static_cast<std::int64_t>(kRecordBytes)) ||
      !ReadRecords(file, static_cast<std::size_t>(count), records))
    return Status::Fail(msg::ESa046);
  for (const auto& r : records)
    if (r.row < 0 || r.row >= n || r.column < 0 || r.column >= n) return Status::Fail(msg::ESa046);
  return Status::Ok();
}

}  // namespace ZOC::detail::weights
