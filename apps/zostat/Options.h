#pragma once
// Command-line options of zostat: "--name value" or "--name=value" pairs and
// flags, checked against the options a command declares.
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/Errors.h"

namespace zostat {

// A mistake in the command line: reported with the usage, exit status 2.
using ZOC::front::HasIdentifier;
using ZOC::front::MessageText;
using ZOC::front::UsageError;

struct OptionSpec {
  std::string name;  // without the leading "--"
  bool takesValue;
  std::string help;
  bool repeatable = false;  // may be given more than once (GetAll)
};

class Options {
 public:
  // Throws UsageError for an unknown option, a missing value, a repeated
  // option, or a value outside the option's domain for `command` (see
  // common/OptionDomain.h).
  static Options Parse(const std::string& command, const std::vector<std::string>& args,
                       const std::vector<OptionSpec>& specs);

  bool Has(const std::string& name) const { return m_values.count(name) != 0; }
  std::string Get(const std::string& name, const std::string& fallback = "") const;
  // Throws UsageError when the option is missing.
  std::string Require(const std::string& name) const;
  // Throw UsageError when the value is not a number / an integer.
  double GetDouble(const std::string& name, double fallback) const;
  long long GetInt(const std::string& name, long long fallback) const;
  // Every option given, by name, with its (last) value; flags with an empty one.
  const std::map<std::string, std::string>& Values() const { return m_values; }
  // Every value of a repeatable option, in the order given.
  std::vector<std::string> GetAll(const std::string& name) const;

 private:
  // Refuses options that the chosen conceptualization does not read.
  void CheckApplicability(bool takesWeightsFile) const;
  std::map<std::string, std::string> m_values;
  std::map<std::string, std::vector<std::string>> m_all;
};

// Formats the option list of a command for its usage text.
std::string DescribeOptions(const std::vector<OptionSpec>& specs);

}  // namespace zostat
