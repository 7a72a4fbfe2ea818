#pragma once
// The bands of an incremental spatial autocorrelation as a table, one row
// per band in order, written alike by every front end into the tabular
// result of an Output (common/Output.h).
#include <cstddef>

namespace ZOC {
class ZoDatasetVector;
struct ZoIncrementalResult;
}  // namespace ZOC

namespace ZOC::front {

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
