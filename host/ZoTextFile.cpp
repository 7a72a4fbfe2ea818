#include "host/ZoTextFile.h"

#include <stdio.h>

namespace ZOC {

bool ZoTextFile::Open(const LumaUnicodeString& path, Mode mode) {
  Close();
  const char* how = mode == ModeRead ? "rb" : mode == ModeWrite ? "wb" : "ab";
  m_file = std::fopen(path.c_str(), how);
  m_good = m_file != nullptr;
  m_tooLong = false;
  if (m_file) std::setvbuf(m_file, nullptr, _IOFBF, 1 << 16);
  return m_file != nullptr;
}

bool ZoTextFile::Close() {
  if (!m_file) return m_good;
  if (std::fclose(m_file) != 0) m_good = false;
  m_file = nullptr;
  return m_good;
}

bool ZoTextFile::ReadLine(std::string& line) {
  line.clear();
  if (!m_file) return false;
  int c;
  bool any = false;
  while ((c = getc_unlocked(m_file)) != EOF) {
    any = true;
    if (c == '\n') break;
    if (line.size() >= m_maxLine) {
      m_tooLong = true;
      return false;
    }
    line += static_cast<char>(c);
  }
  if (!any) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

bool ZoTextFile::Write(std::string_view text) {
  if (!m_file) return false;
  if (!text.empty() && std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) m_good = false;
  return m_good;
}

std::int64_t ZoTextFile::Tell() const { return m_file ? static_cast<std::int64_t>(ftello(m_file)) : -1; }

bool ZoTextFile::Seek(std::int64_t position) {
  return m_file && fseeko(m_file, static_cast<off_t>(position), SEEK_SET) == 0;
}

bool ZoTextFile::WriteLine(std::string_view line) { return Write(line) && Write("\n"); }

}  // namespace ZOC
