#include "StatisticsAnalyst/Version.h"

namespace ZOC {

const char* Version() { return SA_VERSION_STRING; }

}  // namespace ZOC
