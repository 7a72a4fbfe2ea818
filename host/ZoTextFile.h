#pragma once
// ZoTextFile: a buffered, line-oriented text file.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

class SA_HOST_API ZoTextFile {
 public:
  enum Mode { ModeRead, ModeWrite, ModeAppend };

  ZoTextFile() = default;
  ~ZoTextFile() { Close(); }
  ZoTextFile(const ZoTextFile&) = delete;
  ZoTextFile& operator=(const ZoTextFile&) = delete;

  bool Open(const LumaUnicodeString& path, Mode mode);
  // Flushes and closes; false when a buffered write failed.
  bool Close();
  bool IsOpen() const { return m_file != nullptr; }

  // Reads the next line without its "\n" or "\r\n". False at the end of the
  // file, on a read error, or for a line longer than the maximum length
  // (which sets LineTooLong), so a malformed file cannot exhaust memory.
  bool ReadLine(std::string& line);
  bool LineTooLong() const { return m_tooLong; }
  void SetMaxLineLength(std::size_t bytes) { m_maxLine = bytes; }

  bool Write(std::string_view text);
  bool WriteLine(std::string_view line);  // appends "\n"
  // Byte position, and moving to one (for overwriting a line in place).
  std::int64_t Tell() const;
  bool Seek(std::int64_t position);
  // False once any write has failed since opening.
  bool Good() const { return m_good; }

 private:
  std::FILE* m_file = nullptr;
  std::size_t m_maxLine = std::size_t{256} << 20;
  bool m_tooLong = false;
  bool m_good = true;
};

}  // namespace ZOC
