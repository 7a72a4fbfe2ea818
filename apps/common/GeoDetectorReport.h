#pragma once
// The result of the geographical detector as every front end gives it:
// named values (common/ReportValues.h) for the whole, and one table per
// detector, each a list of rows with the same keys in the same order, which
// zostat prints and writes, and the Python module turns into DataFrames.
#include <cstdint>
#include <string>
#include <vector>

#include "common/ReportTable.h"

namespace ZOC {
struct ZoGeoDetectorResult;
}  // namespace ZOC

namespace ZOC::front {

// "count", "mean" and "variance" (population) of the dependent field.
ReportValues GeoDetectorSummary(const ZoGeoDetectorResult& result);

// The tables of the detectors asked (ZoDetectorSet bits), columns known
// also for an empty result, in this order:
//   "factor"       field, strata, q, f, noncentrality, p_value, discretized,
//                  breaks (the class limits, "; "-separated, or null);
//                  with the factor or the risk detector
//   "strata"       field, stratum (1-based), label, count, mean, variance;
//                  with the factor or the risk detector
//   "risk"         field, first, second (stratum labels), tested, t, df,
//                  critical, p_value, significant; with the risk detector
//   "interaction"  first, second (fields), q_first, q_second, q, strata,
//                  relationship; with the interaction detector
//   "ecological"   first, second, f, critical, p_value, significant; with
//                  the ecological detector
std::vector<ReportTable> GeoDetectorTables(const ZoGeoDetectorResult& result, std::int32_t detectors);

// "nonlinear-weaken", "uni-weaken", "bi-enhance", "independent",
// "nonlinear-enhance".
const char* InteractionName(std::int32_t kind);

}  // namespace ZOC::front
