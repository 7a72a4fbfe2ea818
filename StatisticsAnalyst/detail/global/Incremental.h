#pragma once
// Incremental spatial autocorrelation: global Moran's I with fixed distance
// band weights at a series of distances, from one neighbour search.
#include <vector>

#include "StatisticsAnalyst/ZoIncrementalInformation.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::global {

// The bands of `records` (ordered by "QlID"). Every band's numbers are those
// SpatialAutocorrelation gives with a fixed distance band at that distance,
// to the bit. The default distances leave out the nearest-neighbour
// distances of the features flagged in `setAside` (one flag per record; the
// locational outliers of the optimized hot spot analysis). "ESa081" for a
// band count outside 1..50, "ESa082" for a negative or non-finite distance,
// the reading failures of the values and points, "ESa021" for constant
// values, "ESa083" when no default increment exists, "ESa084" when no band
// can be computed, "IMb030" when cancelled.
Status Incremental(ZoRecordset* records, const ZoIncrementalInformation& info, CallProgress& progress,
                   ZoIncrementalResult& result, const std::vector<char>* setAside = nullptr);

// Marks the peaks: bands whose z-score is higher than both neighbouring
// bands' (the first and last bands have one neighbour and are no peaks).
void FindPeaks(ZoIncrementalResult& result);

}  // namespace ZOC::detail::global
