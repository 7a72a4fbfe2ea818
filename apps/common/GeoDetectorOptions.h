#pragma once
// The geographical detector's choices by the names every front end takes:
// the discretization ("quantile", "equal", "jenks", "stddev") and the
// detectors ("factor", "interaction", "risk", "ecological").
#include <cstdint>
#include <string>
#include <vector>

#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"

namespace ZOC::front {

// The items of a comma-separated list, blanks around them removed; empty
// items are kept (as empty strings) for the caller to refuse.
std::vector<std::string> SplitList(const std::string& list);

// Throw UsageError ("EUa059") for a name that is not one of the above.
ZoDiscretization DiscretizationNamed(const std::string& name);
std::int32_t DetectorsNamed(const std::vector<std::string>& names);

}  // namespace ZOC::front
