#pragma once
// Command-line options of zostat: "--name value" or "--name=value" pairs and
// flags, checked against the options a command declares.
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace zostat {

// A mistake in the command line: reported with the usage, exit status 2.
// The message begins with its identifier ("[EUa052] Unknown option. ...");
// one made from plain text gets the general "EUa050" when printed.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
  UsageError(const char* id, const std::string& detail);
};

// "[ID] catalogue text (detail)".
std::string MessageText(const char* id, const std::string& detail);
// Whether a message already names an identifier such as "[ESa014]".
bool HasIdentifier(const std::string& text);

struct OptionSpec {
  std::string name;  // without the leading "--"
  bool takesValue;
  std::string help;
  bool repeatable = false;  // may be given more than once (GetAll)
};

class Options {
 public:
  // Throws UsageError for an unknown option, a missing value, a repeated
  // option, or a value outside the option's domain (CheckDomain).
  static Options Parse(const std::vector<std::string>& args, const std::vector<OptionSpec>& specs);

  bool Has(const std::string& name) const { return m_values.count(name) != 0; }
  std::string Get(const std::string& name, const std::string& fallback = "") const;
  // Throws UsageError when the option is missing.
  std::string Require(const std::string& name) const;
  // Throw UsageError when the value is not a number / an integer.
  double GetDouble(const std::string& name, double fallback) const;
  long long GetInt(const std::string& name, long long fallback) const;
  // Every value of a repeatable option, in the order given.
  std::vector<std::string> GetAll(const std::string& name) const;

 private:
  // Refuses options that the chosen conceptualization does not read.
  void CheckApplicability(bool takesWeightsFile) const;
  std::map<std::string, std::string> m_values;
  std::map<std::string, std::vector<std::string>> m_all;
};

// The values an option accepts, wherever it is declared: counts are whole
// numbers of at least 1, distances and areas finite and positive, the
// distance band 0 or more or -1, the exponent 0 or more, named choices one of
// their names, and every other value not empty. Throws UsageError.
void CheckDomain(const std::string& name, const std::string& value);

// Formats the option list of a command for its usage text.
std::string DescribeOptions(const std::vector<OptionSpec>& specs);

}  // namespace zostat
