#pragma once
// The first pass over a part of a dataset: what the part contributes to the
// whole dataset's moments, extent and default band, and whether its halo
// holds every own feature's k nearest neighbours.
#include "StatisticsAnalyst/ZoPartitionInformation.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC {
class ZoRecordset;
}

namespace ZOC::detail::partition {

// `records` in QlID order, checked as an analysis of `info` would be. The
// power sums are taken about `centre`; with `reach`, the reach (of the k-th
// neighbour for K nearest, of the nearest otherwise, none for contiguity)
// and the extent too.
Status Scan(ZoRecordset* records, const ZoPatternsInformation& info, double centre, bool reach, ZoPartitionScan& scan);

}  // namespace ZOC::detail::partition
