#pragma once
// What every step of a partitioned analysis shares: which features of the
// dataset given are the part's own, the options a part refuses, and the
// whole dataset's moments in the scale the statistics use.
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC {
class ZoDatasetVector;
class ZoRecordset;
}  // namespace ZOC

namespace ZOC::detail::partition {

// Whether the representative point `p` is the part's own (half-open box).
inline bool Owns(const ZoPartition& part, const LUMA::LumaPoint2D& p) {
  return p.x >= part.MinX && p.x < part.MaxX && p.y >= part.MinY && p.y < part.MaxY;
}

// One flag per point: 1 for the part's own features (every feature when
// the partition is inactive).
std::vector<char> OwnFlags(const ZoPartition& part, const LUMA::LumaArray<LUMA::LumaPoint2D>& points);

// "ESa110" naming what a part cannot do (permutations, the false discovery
// rate, a weights file, weights reaching every feature, geographic
// coordinates, whose projection centre is the whole dataset's), "ESa111"
// for a record that is not usable. Ok for an inactive partition. The false
// discovery rate needs the whole dataset's levels, unless `tests` (the
// part's candidates for them are asked for).
Status CheckPart(ZoDatasetVector* dataset, const ZoPatternsInformation& info, bool tests = false);

// The whole dataset's moments from the record, for values divided by
// `divisor` (a power of two: the division commutes with every rounding).
ValueMoments GivenMoments(const ZoPartition& part, double divisor);

// The moments the statistics use: the whole dataset's when the records are
// a part of it, else those of `values`.
ValueMoments MomentsFor(const ZoPatternsInformation& info, const LUMA::LumaArray<double>& values, double divisor);

}  // namespace ZOC::detail::partition
