#include "host/ZoFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/syscall.h>
#endif
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

namespace ZOC {

bool ZoFile::IsExist(const LumaUnicodeString& path) {
  struct stat st;
  return !path.IsEmpty() && ::stat(path.c_str(), &st) == 0;
}

bool ZoFile::Delete(const LumaUnicodeString& path) {
  if (path.IsEmpty()) return true;
  return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

LumaUnicodeString ZoFile::GetTemporaryPath() {
  const char* dir = std::getenv("TMPDIR");
  std::string path = (dir && *dir) ? dir : "/tmp";
  if (path.back() != '/') path += '/';
  return path;
}

LumaUnicodeString ZoFile::GetTemporaryFileName(const LumaUnicodeString& prefix, const LumaUnicodeString& ext) {
  static thread_local std::mt19937_64 rng{std::random_device{}() ^ static_cast<unsigned long long>(::getpid())};
  static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  const std::string dir = GetTemporaryPath().Str();
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = dir + prefix.Str();
    for (int k = 0; k < 12; ++k) name += kDigits[rng() % 36];
    name += ext.Str();
    // O_EXCL reserves the name: no other process can be handed the same file.
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd >= 0) {
      ::close(fd);
      return name;
    }
    if (errno != EEXIST) break;
  }
  return LumaUnicodeString();
}

LumaUnicodeString ZoFile::ChangeExt(const LumaUnicodeString& path, const LumaUnicodeString& ext) {
  std::string p = path.Str();
  const auto slash = p.find_last_of('/');
  const auto dot = p.find_last_of('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) p.erase(dot);
  if (!ext.IsEmpty() && ext.Str()[0] != '.') p += '.';
  return p + ext.Str();
}

bool ZoFile::Rename(const LumaUnicodeString& from, const LumaUnicodeString& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

namespace {
// A path with its links followed, also a link to a file not made yet.
std::filesystem::path Resolved(std::filesystem::path p) {
  namespace fs = std::filesystem;
  std::error_code ec;
  p = fs::absolute(p, ec);
  for (int hops = 0; hops < 40 && fs::is_symlink(p, ec); ++hops) {
    const fs::path target = fs::read_symlink(p, ec);
    if (ec) break;
    p = target.is_absolute() ? target : p.parent_path() / target;
  }
  return fs::weakly_canonical(p, ec);
}
}  // namespace

bool ZoFile::IsSameFile(const LumaUnicodeString& a, const LumaUnicodeString& b) {
  if (a.IsEmpty() || b.IsEmpty()) return false;
  struct stat sa, sb;
  if (::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0)
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  return Resolved(a.Str()) == Resolved(b.Str());
}

// ---- ZoTempRegistry ----

namespace {

constexpr std::size_t kPathSize = 4096;
constexpr int kFolderDepth = 3;

// An entry is written only by Add while its state is Writing; a reader (the
// handler) copies the path while the state is Listed and keeps the copy only
// if the state and the generation have not changed meanwhile, so an entry
// taken off and reused under it is skipped, never read half-written.
struct Entry {
  enum : int { Free, Writing, Listed };
  std::atomic<int> state{Free};
  std::atomic<unsigned> generation{0};
  bool folder = false;
  char path[kPathSize] = {};
};

Entry g_entries[ZoTempRegistry::kEntries];

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<unsigned>::is_always_lock_free,
              "the registry is read in signal handlers");

// Unlinks everything in the folder open as `fd`, descending `depth` more
// levels. Only async-signal-safe calls: the directory is read with the raw
// getdents64 system call (opendir and readdir may allocate), and a pass
// that removed something is followed by another from the start, since
// removing entries while reading may make the reading skip some.
void EmptyFolder(int fd, int depth) {
#if defined(__linux__)
  alignas(8) char buffer[4096];
  for (int pass = 0; pass < 4; ++pass) {
    bool removed = false;
    if (::lseek(fd, 0, SEEK_SET) != 0) return;
    for (;;) {
      const long got = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
      if (got <= 0) break;
      // struct linux_dirent64: inode (8 bytes), offset (8), record length
      // (2), type (1), then the name.
      for (long at = 0; at < got;) {
        unsigned short length;
        std::memcpy(&length, buffer + at + 16, sizeof length);
        const unsigned char type = static_cast<unsigned char>(buffer[at + 18]);
        const char* name = buffer + at + 19;
        at += length;
        if (length == 0) return;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        if (type != DT_DIR && ::unlinkat(fd, name, 0) == 0) {
          removed = true;
          continue;
        }
        if (depth <= 0) continue;
        const int sub = ::openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (sub < 0) continue;
        EmptyFolder(sub, depth - 1);
        ::close(sub);
        if (::unlinkat(fd, name, AT_REMOVEDIR) == 0) removed = true;
      }
    }
    if (!removed) return;
  }
#else
  // Elsewhere a folder is removed only when it is empty already.
  (void)fd;
  (void)depth;
#endif
}

void RemovePath(const char* path, bool folder) {
  if (!folder) {
    ::unlink(path);
    return;
  }
  const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd >= 0) {
    EmptyFolder(fd, kFolderDepth);
    ::close(fd);
  }
  ::rmdir(path);
}

}  // namespace

int ZoTempRegistry::Add(const LumaUnicodeString& path, bool folder) noexcept {
  if (path.IsEmpty()) return -1;
  // The absolute path, from the working folder as it is now.
  char full[kPathSize];
  std::size_t used = 0;
  if (path.c_str()[0] != '/') {
    if (!::getcwd(full, sizeof full)) return -1;
    used = std::strlen(full);
    if (used + 1 >= sizeof full) return -1;
    if (used == 0 || full[used - 1] != '/') full[used++] = '/';
  }
  if (used + path.GetLength() + 1 > sizeof full) return -1;
  std::memcpy(full + used, path.c_str(), path.GetLength() + 1);
  for (int k = 0; k < kEntries; ++k) {
    Entry& e = g_entries[k];
    int expected = Entry::Free;
    if (!e.state.compare_exchange_strong(expected, Entry::Writing)) continue;
    e.generation.fetch_add(1);
    e.folder = folder;
    std::memcpy(e.path, full, std::strlen(full) + 1);
    e.state.store(Entry::Listed);
    return k;
  }
  return -1;
}

void ZoTempRegistry::Remove(int entry) noexcept {
  if (entry >= 0 && entry < kEntries) g_entries[entry].state.store(Entry::Free);
}

void ZoTempRegistry::RemoveAllNow() noexcept {
  char path[kPathSize];
  for (Entry& e : g_entries) {
    const unsigned generation = e.generation.load();
    if (e.state.load() != Entry::Listed) continue;
    const bool folder = e.folder;
    std::memcpy(path, e.path, sizeof path);
    path[sizeof path - 1] = '\0';
    if (e.state.load() != Entry::Listed || e.generation.load() != generation) continue;
    RemovePath(path, folder);
  }
}

}  // namespace ZOC
