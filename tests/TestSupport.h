#pragma once
// Shared helpers for the test suites.
#include <filesystem>
#include <string>

namespace satest {

// Path of a bundled sample dataset in data/.
std::string DataPath(const std::string& file);

// A fresh directory under the temporary folder, removed with everything in it
// when the object goes out of scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return m_path; }
  std::string File(const std::string& name) const { return (m_path / name).string(); }

 private:
  std::filesystem::path m_path;
};

// Runs a shell command, returning its exit status; stdout (and stderr when
// mergeStderr) goes to *output.
int RunCommand(const std::string& command, std::string* output, bool mergeStderr = false);

}  // namespace satest
