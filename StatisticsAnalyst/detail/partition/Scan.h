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
// power sums are taken about `centre`; the reach is that of the k-th
// neighbour for K nearest, of the nearest otherwise, and none for
// contiguity.
Status Scan(ZoRecordset* records, const ZoPatternsInformation& info, double centre, ZoPartitionScan& scan);

}  // namespace ZOC::detail::partition
