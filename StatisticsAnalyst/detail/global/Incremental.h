#pragma once
// Incremental spatial autocorrelation: global Moran's I with fixed distance
// band weights at a series of distances, from one neighbour search.
#include <vector>

#include "StatisticsAnalyst/ZoIncrementalInformation.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::global {

// Features whose nearest-neighbour distances the default distances leave
// out (the locational outliers of the optimized hot spot analysis): one flag
// per point, from the points in the plane distances are measured in.
using SetAsideRule = std::vector<char> (*)(const LUMA::LumaArray<LUMA::LumaPoint2D>& planar, ZoDistanceMethod method);
// What the series was measured on, for a caller that goes on from it: the
// points in that plane, in record order, and the flags of `setAside`.
struct IncrementalPoints {
  LUMA::LumaArray<LUMA::LumaPoint2D> planar;
  std::vector<char> setAside;
};

// The bands of `records` (ordered by "QlID"). Every band's numbers are those
// SpatialAutocorrelation gives with a fixed distance band at that distance,
// to the bit. With `setAside`, the default distances leave out the features
// it flags; `points`, when given, receives the points and flags. "ESa081" for a
// band count outside 1..50, "ESa082" for a negative or non-finite distance,
// the reading failures of the values and points, "ESa021" for constant
// values, "ESa083" when no default increment exists, "ESa084" when no band
// can be computed, "IMb030" when cancelled.
Status Incremental(ZoRecordset* records, const ZoIncrementalInformation& info, CallProgress& progress,
                   ZoIncrementalResult& result, SetAsideRule setAside = nullptr, IncrementalPoints* points = nullptr);

// Marks the peaks: bands whose z-score is higher than both neighbouring
// bands' (the first and last bands have one neighbour and are no peaks).
void FindPeaks(ZoIncrementalResult& result);

}  // namespace ZOC::detail::global
