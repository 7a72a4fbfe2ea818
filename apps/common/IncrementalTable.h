#pragma once
// The result of an incremental spatial autocorrelation as every front end
// gives it: named values (common/ReportValues.h) and a table, one row per
// band in order, written into the tabular result of an Output
// (common/Output.h).
#include <cstddef>

#include "common/ReportValues.h"

namespace ZOC {
class ZoDatasetVector;
struct ZoIncrementalBand;
struct ZoIncrementalResult;
}  // namespace ZOC

namespace ZOC::front {

// A band: "distance", then "index", "expected_index", "variance", "z_score"
// and "p_value" as the global Moran's I names them; a band that is not valid
// has its distance and a null "index" only.
ReportValues IncrementalBandValues(const ZoIncrementalBand& band);
// What follows the bands and the peaks: "begin_distance", "increment",
// "default_begin_distance", "default_increment".
ReportValues IncrementalSeriesValues(const ZoIncrementalResult& result);

// The "Peak" field: the library reports the first and the highest peak of
// the z-scores, so a band is 1 the first peak, 2 the highest, 3 both, 0
// neither.
int IncrementalPeakCode(const ZoIncrementalResult& result, std::size_t band);

// Adds the fields "Distance", "MoransI", "ExpectedI", "Variance", "ZScore",
// "PValue" (reals; null but for the distance in a band that is not valid),
// "Valid" (1 or 0) and "Peak" (IncrementalPeakCode) to `table` and one row
// per band. Throws Failure ("EUa016") when the table does not take them.
void WriteIncrementalTable(ZoDatasetVector* table, const ZoIncrementalResult& result);

}  // namespace ZOC::front
