#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"

#include <sys/stat.h>
#include <unistd.h>
#include <atomic>
#include <bit>
#include <charconv>
#include <cstring>
#include <exception>
#include <filesystem>

#include "host/ZoFile.h"

namespace ZOC::detail::weights {

static_assert(std::endian::native == std::endian::little || std::endian::native == std::endian::big);

namespace {
// The file is little-endian whatever the machine.
template <class T>
T ToLittle(T v) {
  if constexpr (std::endian::native == std::endian::little) {
    return v;
  } else {
    unsigned char b[sizeof(T)];
    std::memcpy(b, &v, sizeof(T));
    for (std::size_t k = 0; k < sizeof(T) / 2; ++k) std::swap(b[k], b[sizeof(T) - 1 - k]);
    std::memcpy(&v, b, sizeof(T));
    return v;
  }
}

template <class T>
bool WriteValue(std::FILE* f, T v) {
  v = ToLittle(v);
  return std::fwrite(&v, sizeof(T), 1, f) == 1;
}

template <class T>
bool ReadValue(std::FILE* f, T& v) {
  if (std::fread(&v, sizeof(T), 1, f) != 1) return false;
  v = ToLittle(v);
  return true;
}
}  // namespace

std::string HeaderText(const std::string& datasetName, int datasetType, int count, const std::string& uniqueIdField,
                       int conceptualization, int standardization, int distanceMethod, bool withDistanceMethod) {
  std::string text = "QUILLARD@QUILLARD;";
  text += "DATASETNAME@" + datasetName + ";";
  text += "DATASETTYPE@" + std::to_string(datasetType) + ";";
  text += "COUNTS@" + std::to_string(count) + ";";
  text += "UNIQUEID@" + uniqueIdField + ";";
  text += "CONCEPTUALIZATION@" + std::to_string(conceptualization) + ";";
  text += "STANDARDIZATION@" + std::to_string(standardization) + ";";
  if (withDistanceMethod) text += "DISTANCEMETHOD@" + std::to_string(distanceMethod) + ";";
  return text;
}

bool SplitHeader(std::string_view text, std::size_t keyCount, LumaArray<LumaUnicodeString>& values) {
  values.clear();
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(';', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view part = text.substr(start, end - start);
    start = end + 1;
    if (part.empty()) continue;
    const std::size_t k = values.size();
    if (k >= keyCount) return false;
    const std::size_t at = part.find('@');
    if (at == std::string_view::npos) return false;
    if (part.substr(0, at) != kHeaderKeys[k]) return false;
    std::string_view value = part.substr(at + 1);
    value = value.substr(0, value.find('@'));  // a further "@" starts a piece nobody reads
    values.push_back(LumaUnicodeString(value));
  }
  return true;
}

bool ReadTextHeader(std::string_view line, LumaArray<LumaUnicodeString>& values) {
  try {
    if (SplitHeader(line, kTextHeaderKeys, values)) return true;
  } catch (const std::exception&) {
  }
  values.clear();
  return false;
}

bool ParseInt32(std::string_view text, std::int32_t& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && ec == std::errc() && ptr == text.data() + text.size();
}

bool HasSwmbExtension(const LumaUnicodeString& path, bool ignoreCase) {
  const std::string& p = path.Str();
  if (p.size() < 5) return false;
  const LumaUnicodeString ext(p.substr(p.size() - 5));
  return ignoreCase ? ext.EqualsNoCase(".swmb") : ext == ".swmb";
}

LumaUnicodeString SiblingTemporary(const LumaUnicodeString& path) {
  static std::atomic<unsigned> counter{0};
  const std::filesystem::path target(path.Str());
  for (;;) {
    const std::string name =
        "." + target.filename().string() + "." + std::to_string(getpid()) + "." + std::to_string(counter++) + ".tmp";
    const LumaUnicodeString candidate((target.parent_path() / name).string());
    if (!ZoFile::IsExist(candidate)) return candidate;
  }
}

bool WriteInt32(std::FILE* f, std::int32_t v) { return WriteValue(f, v); }
bool WriteDouble(std::FILE* f, double v) { return WriteValue(f, v); }
bool ReadInt32(std::FILE* f, std::int32_t& v) { return ReadValue(f, v); }
bool ReadDouble(std::FILE* f, double& v) { return ReadValue(f, v); }

bool Seek(std::FILE* f, std::int64_t offset) { return fseeko(f, static_cast<off_t>(offset), SEEK_SET) == 0; }
std::int64_t Tell(std::FILE* f) { return static_cast<std::int64_t>(ftello(f)); }

std::int64_t FileSize(std::FILE* f) {
  struct stat st;
  if (fflush(f) != 0 || fstat(fileno(f), &st) != 0) return -1;
  return static_cast<std::int64_t>(st.st_size);
}

bool Fits(std::FILE* f, std::int64_t count, std::int64_t itemBytes) {
  if (count < 0) return false;
  // Small reads are simply attempted: the read itself notices a short file,
  // and asking the system for the size on every row would cost more than
  // the row. Only counts that would drive a large allocation are checked.
  if (count <= (std::int64_t{1} << 20) / itemBytes) return true;
  const std::int64_t size = FileSize(f), position = Tell(f);
  if (count < 0 || size < 0 || position < 0 || position > size) return false;
  return count <= (size - position) / itemBytes;
}

bool WriteUniqueIndex(std::FILE* f, const LumaArray<ZoSWMFileUniqueIndex>& index) {
  std::vector<unsigned char> bytes(index.size() * 8);
  for (std::size_t k = 0; k < index.size(); ++k) {
    const std::int32_t id = ToLittle(index[k].UniqueID), count = ToLittle(index[k].Count);
    std::memcpy(&bytes[k * 8], &id, 4);
    std::memcpy(&bytes[k * 8 + 4], &count, 4);
  }
  return bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
}

bool ReadUniqueIndex(std::FILE* f, LumaArray<ZoSWMFileUniqueIndex>& index, std::size_t count) {
  index.resize(count);
  for (auto& entry : index)
    if (!ReadValue(f, entry.UniqueID) || !ReadValue(f, entry.Count)) return false;
  return true;
}

bool WriteDoubles(std::FILE* f, const LumaArray<double>& values) {
  for (double v : values)
    if (!WriteValue(f, v)) return false;
  return true;
}

bool ReadDoubles(std::FILE* f, LumaArray<double>& values, std::size_t count) {
  values.resize(count);
  for (double& v : values)
    if (!ReadValue(f, v)) return false;
  return true;
}

bool WriteRecords(std::FILE* f, const std::vector<RowRecord>& records) {
  if (records.empty()) return true;
  std::vector<unsigned char> bytes(records.size() * kRecordBytes);
  for (std::size_t k = 0; k < records.size(); ++k) {
    const std::int32_t i = ToLittle(records[k].row), j = ToLittle(records[k].column);
    const double w = ToLittle(records[k].weight);
    std::memcpy(&bytes[k * kRecordBytes], &i, 4);
    std::memcpy(&bytes[k * kRecordBytes + 4], &j, 4);
    std::memcpy(&bytes[k * kRecordBytes + 8], &w, 8);
  }
  return std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
}

bool ReadRecords(std::FILE* f, std::size_t count, std::vector<RowRecord>& records) {
  records.resize(count);
  if (count == 0) return true;
  std::vector<unsigned char> bytes(count * kRecordBytes);
  if (std::fread(bytes.data(), 1, bytes.size(), f) != bytes.size()) return false;
  for (std::size_t k = 0; k < count; ++k) {
    std::memcpy(&records[k].row, &bytes[k * kRecordBytes], 4);
    std::memcpy(&records[k].column, &bytes[k * kRecordBytes + 4], 4);
    std::memcpy(&records[k].weight, &bytes[k * kRecordBytes + 8], 8);
    records[k].row = ToLittle(records[k].row);
    records[k].column = ToLittle(records[k].column);
    records[k].weight = ToLittle(records[k].weight);
  }
  return true;
}

}  // namespace ZOC::detail::weights
