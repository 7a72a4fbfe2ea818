#include "StatisticsAnalyst/ZoPatternsInformation.h"

namespace ZOC {

// Out of line so that the record's special members are part of the library's
// exported interface rather than inlined into callers.
ZoPatternsInformation::ZoPatternsInformation() = default;
ZoPatternsInformation::ZoPatternsInformation(const ZoPatternsInformation& other) = default;
ZoPatternsInformation& ZoPatternsInformation::operator=(const ZoPatternsInformation& other) = default;
ZoPatternsInformation::~ZoPatternsInformation() = default;

}  // namespace ZOC
