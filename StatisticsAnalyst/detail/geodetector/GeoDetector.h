#pragma once
// The geographical detector from a dataset to its result: the parameters
// checked, the values read once, each factor's strata formed, the four
// detectors computed, and, when a strata dataset is given, every feature
// written to it with its stratum and the stratum's mean of each factor.
#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC {
class ZoDatasetVector;
}

namespace ZOC::detail::geodetector {

// Risk detector comparisons are all pairs of strata: a factor with more
// strata than this is refused for it.
inline constexpr int kRiskStrataLimit = 1000;

// Messages: "EEg002", "EEe017" (strata dataset of another type), the
// parameter checks (see Strata.h), "EKa013", the reading's, "ESa108" (fewer
// than 3 features), "ESa104" (a constant dependent field), "ESa102" (one
// stratum), "ESa105" (as many strata as features), "ESa106" (too many
// strata for the risk detector), "ELc071" (writing the strata), "IMb030".
Status Run(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info, CallProgress& progress,
           ZoGeoDetectorResult& result, ZoDatasetVector* strata);

}  // namespace ZOC::detail::geodetector
