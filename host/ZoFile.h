#pragma once
// ZoFile: file-system helpers, and ZoTempFileGuard, which deletes a file when
// it goes out of scope unless released, so temporary and partial outputs are
// removed on every exit path.
#include "StatisticsAnalyst/Export.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

class SA_API ZoFile {
 public:
  static bool IsExist(const LumaUnicodeString& path);
  // True when no file is left at the path afterwards (a missing file counts).
  static bool Delete(const LumaUnicodeString& path);
  // The temporary folder ($TMPDIR or /tmp), ending with '/'.
  static LumaUnicodeString GetTemporaryPath();
  // A new file in the temporary folder named prefix + unique part + ext
  // (ext with its dot, e.g. ".swmb"). The file is created empty, so the name is
  // reserved; an empty result means it could not be created.
  static LumaUnicodeString GetTemporaryFileName(const LumaUnicodeString& prefix, const LumaUnicodeString& ext);
  // Replaces the extension after the last dot of the file name (or adds one).
  // ext may be given with or without its dot.
  static LumaUnicodeString ChangeExt(const LumaUnicodeString& path, const LumaUnicodeString& ext);
  // Renames, replacing an existing target.
  static bool Rename(const LumaUnicodeString& from, const LumaUnicodeString& to);
  // True when both paths name one file: the same device and inode when both
  // exist (hard links, bind mounts), else the same path once relative parts
  // and links are resolved, including a link to a file not made yet.
  static bool IsSameFile(const LumaUnicodeString& a, const LumaUnicodeString& b);
};

class ZoTempFileGuard {
 public:
  ZoTempFileGuard() = default;
  explicit ZoTempFileGuard(LumaUnicodeString path) : m_path(std::move(path)) {}
  ~ZoTempFileGuard() { Reset(); }
  ZoTempFileGuard(const ZoTempFileGuard&) = delete;
  ZoTempFileGuard& operator=(const ZoTempFileGuard&) = delete;

  // Deletes the guarded file now (if any) and guards the new path.
  void Reset(const LumaUnicodeString& path = LumaUnicodeString()) {
    if (!m_path.IsEmpty()) ZoFile::Delete(m_path);
    m_path = path;
  }
  // Keeps the file: the guard forgets it.
  void Release() { m_path.Empty(); }
  const LumaUnicodeString& Path() const { return m_path; }

 private:
  LumaUnicodeString m_path;
};

}  // namespace ZOC
