#include "StatisticsAnalyst/detail/partition/GlobalParts.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/global/GlobalStatistic.h"
#include "StatisticsAnalyst/detail/partition/Part.h"
#include "StatisticsAnalyst/detail/weights/WeightRows.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::partition {

namespace {

// What both steps read from the part: values, points, own flags, QlIDs
// and the rows (w(j, i) beside each weight).
struct PartRows {
  LumaArray<double> values;
  LumaArray<LumaPoint2D> points;
  std::vector<char> own;
  std::vector<std::int64_t> ids;
  weights::WeightRows rows;

  Status Open(ZoRecordset* records, const ZoPatternsInformation& info, bool generalG) {
    if (Status s = CheckPart(records->GetDataset(), info); !s) return s;
    const bool fromPoints =
        (info.Conceptualization >= InverseDistance && info.Conceptualization <= FixedDistanceBand) ||
        info.Conceptualization == KNearestNeighbors;
    weights::WeightRows::GivenPoints given;
    LumaArray<double> none;
    if (Status s = ReadFeatures(records, info.FieldName, generalG, values, {}, none,
                                fromPoints ? &given.points : nullptr, given.status);
        !s)
      return s;
    if (fromPoints) {
      if (!given.status) return given.status;
      points = given.points;
    } else if (Status s = ReadFeaturePoints(records, points); !s) {
      return s;
    }
    own = OwnFlags(info.Partition, points);
    ids.resize(values.size());
    for (std::size_t k = 0; k < ids.size(); ++k) ids[k] = records->GetIDAt(static_cast<std::int64_t>(k));
    if (Status s = global::OpenRows(records, info, nullptr, rows, fromPoints ? &given : nullptr); !s) return s;
    if (rows.Count() != static_cast<std::int64_t>(values.size())) return Status::Fail(msg::ESa026);
    return Status::Ok();
  }

  // The position of QlID `id` in the part, or -1.
  std::int64_t Find(std::int64_t id) const {
    const auto at = std::lower_bound(ids.begin(), ids.end(), id);
    return at != ids.end() && *at == id ? at - ids.begin() : -1;
  }
};

// The incoming weights of the part's own features: (feature, w(from, it),
// position of `from` in the part or -1), by feature.
struct Incoming {
  std::int64_t to, from;
  double weight;
  bool operator<(const Incoming& o) const { return to < o.to; }
};

Status Route(const PartRows& part, const ZoPartitionEdges& edges, std::vector<Incoming>& out) {
  const std::size_t m = edges.From.size();
  if (edges.To.size() != m || edges.Weight.size() != m) return Status::Fail(msg::ESa111);
  out.reserve(m);
  for (std::size_t e = 0; e < m; ++e) {
    const std::int64_t to = part.Find(edges.To[e]);
    // An edge must point at one of this part's own features.
    if (to < 0 || !part.own[static_cast<std::size_t>(to)]) return Status::Fail(msg::ESa111);
    out.push_back({to, part.Find(edges.From[e]), edges.Weight[e]});
  }
  std::stable_sort(out.begin(), out.end());
  return Status::Ok();
}

}  // namespace

Status Edges(ZoRecordset* records, const ZoPatternsInformation& info, bool generalG, ZoPartitionEdges& edges) {
  edges = ZoPartitionEdges{};
  PartRows part;
  if (Status s = part.Open(records, info, generalG); !s) return s;
  SparseRow row;
  for (std::int64_t i = 0; i < part.rows.Count(); ++i) {
    if (Status s = part.rows.Next(i, row); !s) return s;
    if (!part.own[static_cast<std::size_t>(i)]) continue;
    for (std::size_t k = 0; k < row.columns.size(); ++k) {
      const auto j = static_cast<std::size_t>(row.columns[k]);
      if (part.own[j]) continue;
      edges.From.push_back(part.ids[static_cast<std::size_t>(i)]);
      edges.To.push_back(part.ids[j]);
      edges.Weight.push_back(row.weights[k]);
      edges.ToX.push_back(part.points[j].x);
      edges.ToY.push_back(part.points[j].y);
    }
  }
  return Status::Ok();
}

Status Sums(ZoRecordset* records, const ZoPatternsInformation& info, bool generalG, const ZoPartitionEdges& incoming,
            ZoPartitionSums& sums) {
  sums = ZoPartitionSums{};
  PartRows part;
  if (Status s = part.Open(records, info, generalG); !s) return s;
  std::vector<Incoming> in;
  if (Status s = Route(part, incoming, in); !s) return s;

  const ZoPartition& whole = info.Partition;
  const double mean = whole.Sum / static_cast<double>(whole.Count);
  const std::size_t n = part.values.size();
  // Moran's I reads deviations from the whole dataset's mean, General G the values.
  std::vector<double> v(part.values.begin(), part.values.end());
  if (!generalG)
    for (double& x : v) x -= mean;
  std::vector<double> rowSums(n, 0.0), columnSums(n, 0.0);
  auto next = in.begin();
  SparseRow row;
  for (std::int64_t i = 0; i < static_cast<std::int64_t>(n); ++i) {
    if (Status s = part.rows.Next(i, row); !s) return s;
    const auto ii = static_cast<std::size_t>(i);
    if (!part.own[ii]) continue;
    bool flagged = false;
    double lag = 0.0, rowSum = 0.0;
    for (std::size_t k = 0; k < row.columns.size(); ++k) {
      const auto j = static_cast<std::size_t>(row.columns[k]);
      const double w = row.weights[k];
      if (!limits::IsZero(w)) flagged = true;
      if (generalG && j == ii) continue;  // General G: the diagonal only decides the flag
      sums.S0 += w;
      sums.S1 += w * w;
      // A pair within the part is counted here; a pair with another part's
      // feature there, from this row's edge.
      if (part.own[j]) sums.S1 += w * row.transposed[k], columnSums[j] += w;
      rowSum += w;
      lag += w * v[j];
    }
    for (; next != in.end() && next->to == i; ++next) {
      columnSums[ii] += next->weight;
      if (next->from < 0) continue;  // not in the part: not a neighbour of i, so w(i, from) = 0
      const auto at = std::lower_bound(row.columns.begin(), row.columns.end(), static_cast<std::int32_t>(next->from));
      if (at != row.columns.end() && *at == next->from)
        sums.S1 += next->weight * row.weights[static_cast<std::size_t>(at - row.columns.begin())];
    }
    rowSums[ii] = rowSum;
    if (!generalG) {
      sums.Cross += v[ii] * lag;
    } else if (flagged) {
      const double x = v[ii];
      sums.Cross += x * lag;
      sums.Pairs += x * (whole.Sum - x);
      sums.M1 += x, sums.M2 += x * x, sums.M3 += x * x * x, sums.M4 += x * x * x * x;
    }
  }
  for (std::size_t i = 0; i < n; ++i)
    if (part.own[i]) sums.S2 += (rowSums[i] + columnSums[i]) * (rowSums[i] + columnSums[i]);
  return Status::Ok();
}

}  // namespace ZOC::detail::partition
