// Validates a parameter record through the installed headers, and checks that
// the library loaded is the one the headers describe.
#include <cstdio>
#include <cstring>

#include <StatisticsAnalyst/Version.h>
#include <StatisticsAnalyst/ZoAnalyzingPatterns.h>
#include <host/ZoStringEx.h>

int main() {
  if (std::strcmp(ZOC::Version(), SA_VERSION_STRING) != 0) return 1;
  ZOC::ZoPatternsInformation info;
  ZOC::ZoAnalyzingPatterns patterns;
  if (patterns.CheckParameterValid(nullptr, info)) return 1;  // a null recordset must fail
  const std::string message = patterns.GetStrErrorMes().Str();
  std::printf("%s\n", message.c_str());
  return message.find("EEg024") != std::string::npos ? 0 : 1;
}
