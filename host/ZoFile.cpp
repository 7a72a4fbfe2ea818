#include "host/ZoFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

}  // namespace ZOC
