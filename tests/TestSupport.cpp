#include "TestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <sys/wait.h>

namespace satest {

std::string DataPath(const std::string& file) { return std::string(SA_DATA_DIR) + "/" + file; }

TempDir::TempDir() {
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (;;) {
    m_path = base / ("sa_test_" + std::to_string(rd()));
    if (std::filesystem::create_directory(m_path)) break;
  }
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(m_path, ec);
}

int RunCommand(const std::string& command, std::string* output, bool mergeStderr) {
  const std::string full = command + (mergeStderr ? " 2>&1" : "");
  FILE* pipe = popen(full.c_str(), "r");
  if (!pipe) return -1;
  char buf[4096];
  std::size_t n;
  if (output) output->clear();
  while ((n = fread(buf, 1, sizeof buf, pipe)) > 0)
    if (output) output->append(buf, n);
  const int status = pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace satest
