#include "common/GeoDetectorOptions.h"

#include "common/Errors.h"
#include "host/ZoMessageIds.h"

namespace ZOC::front {

std::vector<std::string> SplitList(const std::string& list) {
  std::vector<std::string> items;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t end = list.find(',', begin);
    std::string item = list.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
    const auto first = item.find_first_not_of(" \t");
    item = first == std::string::npos ? std::string() : item.substr(first, item.find_last_not_of(" \t") - first + 1);
    items.push_back(item);
    if (end == std::string::npos) return items;
    begin = end + 1;
  }
}

ZoDiscretization DiscretizationNamed(const std::string& name) {
  if (name == "quantile") return DiscretizeQuantile;
  if (name == "equal") return DiscretizeEqualInterval;
  if (name == "jenks") return DiscretizeNaturalBreaks;
  if (name == "stddev") return DiscretizeStandardDeviation;
  throw UsageError(msg::EUa059, "the discretization must be quantile, equal, jenks or stddev, not '" + name + "'");
}

std::int32_t DetectorsNamed(const std::vector<std::string>& names) {
  std::int32_t set = 0;
  for (const std::string& name : names) {
    if (name == "factor")
      set |= DetectFactor;
    else if (name == "interaction")
      set |= DetectInteraction;
    else if (name == "risk")
      set |= DetectRisk;
    else if (name == "ecological")
      set |= DetectEcological;
    else
      throw UsageError(msg::EUa059, "the detectors are factor, interaction, risk and ecological, not '" + name + "'");
  }
  if (set == 0) throw UsageError(msg::EUa059, "name at least one detector: factor, interaction, risk, ecological");
  return set;
}

}  // namespace ZOC::front
