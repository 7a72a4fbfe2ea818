#include "Options.h"

#include <charconv>
#include <cmath>

namespace zostat {

Options Options::Parse(const std::vector<std::string>& args, const std::vector<OptionSpec>& specs) {
  Options options;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg.rfind("--", 0) != 0) throw UsageError("unexpected argument '" + arg + "'");
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
    if (!spec) throw UsageError("unknown option '--" + name + "'");
    if (options.Has(name) && !spec->repeatable) throw UsageError("option '--" + name + "' given twice");
    if (spec->takesValue) {
      if (!inlineValue) {
        if (i + 1 >= args.size()) throw UsageError("option '--" + name + "' needs a value");
        value = args[++i];
      }
    } else if (inlineValue) {
      throw UsageError("option '--" + name + "' takes no value");
    }
    options.m_values[name] = value;
    options.m_all[name].push_back(value);
  }
  return options;
}

std::string Options::Get(const std::string& name, const std::string& fallback) const {
  const auto it = m_values.find(name);
  return it == m_values.end() ? fallback : it->second;
}

std::string Options::Require(const std::string& name) const {
  const auto it = m_values.find(name);
  if (it == m_values.end() || it->second.empty()) throw UsageError("option '--" + name + "' is required");
  return it->second;
}

double Options::GetDouble(const std::string& name, double fallback) const {
  if (!Has(name)) return fallback;
  const std::string text = Get(name);
  double value = 0.0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size() || std::isnan(value))
    throw UsageError("option '--" + name + "' needs a number, not '" + text + "'");
  return value;
}

long long Options::GetInt(const std::string& name, long long fallback) const {
  if (!Has(name)) return fallback;
  const std::string text = Get(name);
  long long value = 0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size())
    throw UsageError("option '--" + name + "' needs a whole number, not '" + text + "'");
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
    if (left.size() < 28) left.resize(28, ' ');
    else left += "  ";
    out += left + s.help + "\n";
  }
  return out;
}

}  // namespace zostat
