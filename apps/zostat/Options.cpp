#include "Options.h"

#include <cctype>
#include <charconv>
#include <cmath>

#include "common/OptionDomain.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace msg = ZOC::msg;

Options Options::Parse(const std::string& command, const std::vector<std::string>& args,
                       const std::vector<OptionSpec>& specs) {
  Options options;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg.rfind("--", 0) != 0) throw UsageError(msg::EUa050, "unexpected argument '" + arg + "'");
    std::string name = arg.substr(2);
    std::string value;
    bool inlineValue = false;
    if (const auto eq = name.find('='); eq != std::string::npos) {
      value = name.substr(eq + 1);
      name.erase(eq);
      inlineValue = true;
    }
    const OptionSpec* spec = nullptr;
    for (const auto& s : specs)
      if (s.name == name) spec = &s;
    if (!spec) throw UsageError(msg::EUa052, "unknown option '--" + name + "'");
    if (options.Has(name) && !spec->repeatable) throw UsageError(msg::EUa054, "option '--" + name + "' given twice");
    if (spec->takesValue) {
      if (!inlineValue) {
        if (i + 1 >= args.size()) throw UsageError(msg::EUa053, "option '--" + name + "' needs a value");
        value = args[++i];
      }
      ZOC::front::CheckDomain(command, name, value);
    } else if (inlineValue) {
      throw UsageError(msg::EUa053, "option '--" + name + "' takes no value");
    }
    options.m_values[name] = value;
    options.m_all[name].push_back(value);
  }
  bool takesWeightsFile = false;
  for (const auto& s : specs) takesWeightsFile = takesWeightsFile || s.name == "weights-file";
  options.CheckApplicability(takesWeightsFile);
  return options;
}

// Weights options that only one family of conceptualizations reads.
void Options::CheckApplicability(bool takesWeightsFile) const {
  if (!Has("conceptualization") && !Has("weights-file") && !Has("k") && !Has("exponent") && !Has("snap-tolerance"))
    return;
  const std::string c = Get("conceptualization", "inverse-distance");
  auto is = [&](const char* name, const char* code) { return c == name || c == code; };
  if (Has("weights-file") && !is("weights-file", "8"))
    throw UsageError(msg::EUa058, "--weights-file goes with --conceptualization weights-file");
  if (is("weights-file", "8") && takesWeightsFile && !Has("weights-file"))
    throw UsageError(msg::EUa055, "--conceptualization weights-file needs --weights-file");
  if (is("weights-file", "8") && Has("distance-band"))
    throw UsageError(msg::EUa058, "--distance-band does not apply to a weights file");
  if (Has("snap-tolerance") && !is("contiguity-edges", "5") && !is("contiguity-edges-corners", "6"))
    throw UsageError(msg::EUa058, "--snap-tolerance goes with contiguity-edges or contiguity-edges-corners");
  if (Has("k") && !is("k-nearest", "7")) throw UsageError(msg::EUa058, "--k goes with --conceptualization k-nearest");
  if (Has("exponent") && !is("inverse-distance", "1") && !is("inverse-distance-squared", "2") &&
      !is("zone-of-indifference", "4"))
    throw UsageError(msg::EUa058,
                     "--exponent goes with inverse-distance, inverse-distance-squared or zone-of-indifference");
}

std::string Options::Get(const std::string& name, const std::string& fallback) const {
  const auto it = m_values.find(name);
  return it == m_values.end() ? fallback : it->second;
}

std::string Options::Require(const std::string& name) const {
  const auto it = m_values.find(name);
  if (it == m_values.end() || it->second.empty()) throw UsageError(msg::EUa055, "option '--" + name + "' is required");
  return it->second;
}

double Options::GetDouble(const std::string& name, double fallback) const {
  if (!Has(name)) return fallback;
  const std::string text = Get(name);
  double value = 0.0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size() || std::isnan(value))
    throw UsageError(msg::EUa056, "option '--" + name + "' needs a number, not '" + text + "'");
  return value;
}

long long Options::GetInt(const std::string& name, long long fallback) const {
  if (!Has(name)) return fallback;
  const std::string text = Get(name);
  long long value = 0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size())
    throw UsageError(msg::EUa056, "option '--" + name + "' needs a whole number, not '" + text + "'");
  return value;
}

std::vector<std::string> Options::GetAll(const std::string& name) const {
  const auto it = m_all.find(name);
  return it == m_all.end() ? std::vector<std::string>() : it->second;
}

std::string DescribeOptions(const std::vector<OptionSpec>& specs) {
  std::string out;
  for (const auto& s : specs) {
    std::string left = "  --" + s.name + (s.takesValue ? " VALUE" : "");
    if (left.size() < 28)
      left.resize(28, ' ');
    else
      left += "  ";
    out += left + s.help + "\n";
  }
  return out;
}

}  // namespace zostat
