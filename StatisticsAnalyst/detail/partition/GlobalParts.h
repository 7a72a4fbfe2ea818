#pragma once
// A part's share of Moran's I or General G. Each part holds the rows of its
// own features exactly (its halo reaches every neighbour), but a weight
// w(j, i) pointing into the part from another part's feature j is known
// only there: Edges gives those weights away, and Sums, given the edges
// pointing into the part, takes them as its rows' transposed weights and
// into its column sums. Each row is summed by the part that owns it.
#include "StatisticsAnalyst/ZoPartitionInformation.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC {
class ZoRecordset;
}

namespace ZOC::detail::partition {

// `records` in QlID order, checked as the statistic would be.
Status Edges(ZoRecordset* records, const ZoPatternsInformation& info, bool generalG, ZoPartitionEdges& edges);
Status Sums(ZoRecordset* records, const ZoPatternsInformation& info, bool generalG, const ZoPartitionEdges& incoming,
            ZoPartitionSums& sums);

}  // namespace ZOC::detail::partition
