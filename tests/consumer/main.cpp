// Validates a parameter record on a memory dataset through the installed headers.
#include <cstdio>

#include <StatisticsAnalyst/ZoAnalyzingPatterns.h>
#include <host/ZoStringEx.h>

int main() {
  ZOC::ZoPatternsInformation info;
  ZOC::ZoAnalyzingPatterns patterns;
  if (patterns.CheckParameterValid(nullptr, info)) return 1;  // a null recordset must fail
  const std::string message = patterns.GetStrErrorMes().Str();
  std::printf("%s\n", message.c_str());
  return message.find("EEg024") != std::string::npos ? 0 : 1;
}
