#pragma once
// The text weights file writer. One item per line: the header without
// DISTANCEMETHOD; the unique IDs, each followed by a blank; when
// standardized, the row sums as 13-character entries; then one line per
// feature: "i j w;" per neighbour with w as "%.10f", or ";".
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoProgress.h"

namespace ZOC::detail::weights {

// Builds the text weights file of the dataset at `path`, with the checks and
// rows of the binary builder: the checks of PrepareBuild, then the file
// ("ESa049" when it cannot be written, "IMb030" when cancelled, "EUc010"
// when memory runs out). Nothing stays behind on failure.
Status BuildTextFile(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& uniqueIdField,
                     const LUMA::LumaUnicodeString& path, const ZoPatternsInformation& info, ZoProgress* progress,
                     bool show);

}  // namespace ZOC::detail::weights
