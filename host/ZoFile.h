#pragma once
// ZoFile: file-system helpers; ZoTempFileGuard, which deletes a file when it
// goes out of scope unless released, so temporary and partial outputs are
// removed on every exit path; and ZoTempRegistry, the list of such files and
// folders that a signal handler can still remove when the process is ended
// before its destructors run.
#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

class SA_HOST_API ZoFile {
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

// The files and folders that exist only while a run uses them. The run
// removes them itself on every way out it controls; the list is for the one
// it does not control: a process ended by a signal before its destructors
// run (zostat's second Ctrl-C), whose handler calls RemoveAllNow and exits.
// The list lives in static storage, and RemoveAllNow makes only
// async-signal-safe calls (open, getdents64, unlink, unlinkat, rmdir,
// close), so a handler may call it at any point of the run, also while
// another thread is entering or leaving a path.
class SA_HOST_API ZoTempRegistry {
 public:
  static constexpr int kEntries = 64;
  // Lists a file, or a folder to be removed with its contents, under its
  // absolute path. Returns the entry for Remove, or -1 when the list is full
  // or the path too long: the path is then only not removed by a handler.
  static int Add(const LumaUnicodeString& path, bool folder) noexcept;
  // Takes an entry off the list (-1 does nothing).
  static void Remove(int entry) noexcept;
  // Removes every listed file and folder, a folder with its contents three
  // levels down (symbolic links are removed, never followed). Async-signal-safe.
  static void RemoveAllNow() noexcept;
};

class ZoTempFileGuard {
 public:
  ZoTempFileGuard() = default;
  explicit ZoTempFileGuard(LumaUnicodeString path) { Reset(path); }
  ~ZoTempFileGuard() { Reset(); }
  ZoTempFileGuard(const ZoTempFileGuard&) = delete;
  ZoTempFileGuard& operator=(const ZoTempFileGuard&) = delete;

  // Deletes the guarded file now (if any) and guards the new path.
  void Reset(const LumaUnicodeString& path = LumaUnicodeString()) {
    if (!m_path.IsEmpty()) ZoFile::Delete(m_path);
    ZoTempRegistry::Remove(m_entry);
    m_path = path;
    m_entry = m_path.IsEmpty() ? -1 : ZoTempRegistry::Add(m_path, false);
  }
  // Keeps the file: the guard forgets it.
  void Release() {
    ZoTempRegistry::Remove(m_entry);
    m_entry = -1;
    m_path.Empty();
  }
  const LumaUnicodeString& Path() const { return m_path; }

 private:
  LumaUnicodeString m_path;
  int m_entry = -1;
};

}  // namespace ZOC
