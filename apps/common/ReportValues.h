#pragma once
// Results as named values, in one order, for every front end: zostat
// prints them as JSON, the Python module returns them as dicts, so both use
// the same keys for the same numbers.
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace ZOC::front {

// null, a flag, a count, a number (not finite: null) or a name.
using ReportValue = std::variant<std::monostate, bool, long long, double, std::string>;
using ReportValues = std::vector<std::pair<std::string, ReportValue>>;

}  // namespace ZOC::front
