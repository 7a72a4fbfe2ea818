#include "StatisticsAnalyst/detail/partition/GlobalParts.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/global/GeneralG.h"
#include "StatisticsAnalyst/detail/global/GlobalStatistic.h"
#include "StatisticsAnalyst/detail/global/Moran.h"
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

// A weight w(from, to) of another part's row pointing at own feature `to`:
// `to` as a position in the part, `from` as a QlID.
struct Incoming {
  std::int64_t to, from;
  double weight;
};

// The incoming weights, by feature and source (to look up w(j, i) for a
// row) and by source row (to add them to the column sums in row order).
Status Route(const PartRows& part, const ZoPartitionEdges& edges, std::vector<Incoming>& byTo,
             std::vector<Incoming>& byFrom) {
  const std::size_t m = edges.From.size();
  if (edges.To.size() != m || edges.Weight.size() != m) return Status::Fail(msg::ESa111);
  byTo.reserve(m);
  for (std::size_t e = 0; e < m; ++e) {
    const std::int64_t to = part.Find(edges.To[e]);
    // An edge must point at one of this part's own features, from another part's.
    const std::int64_t from = part.Find(edges.From[e]);
    if (to < 0 || !part.own[static_cast<std::size_t>(to)] || (from >= 0 && part.own[static_cast<std::size_t>(from)]))
      return Status::Fail(msg::ESa111);
    byTo.push_back({to, edges.From[e], edges.Weight[e]});
  }
  auto key = [](const Incoming& e) { return std::pair{e.to, e.from}; };
  std::sort(byTo.begin(), byTo.end(), [&](const Incoming& a, const Incoming& b) { return key(a) < key(b); });
  if (std::adjacent_find(byTo.begin(), byTo.end(),
                         [&](const Incoming& a, const Incoming& b) { return key(a) == key(b); }) != byTo.end())
    return Status::Fail(msg::ESa111);
  byFrom = byTo;
  std::sort(byFrom.begin(), byFrom.end(), [](const Incoming& a, const Incoming& b) {
    return std::pair{a.from, a.to} < std::pair{b.from, b.to};
  });
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

// Each own row's terms formed as one process forms them: a weight's
// transposed w(j, i) is the part's own when j is an own feature (its row is
// whole here), else the one j's part sent (0 when none came). The column
// sums take every row's weights in ascending row order, own rows and the
// incoming ones merged, so they too have one process's bits.
Status Sums(ZoRecordset* records, const ZoPatternsInformation& info, bool generalG, const ZoPartitionEdges& incoming,
            ZoPartitionSums& sums) {
  sums = ZoPartitionSums{};
  PartRows part;
  if (Status s = part.Open(records, info, generalG); !s) return s;
  std::vector<Incoming> byTo, byFrom;
  if (Status s = Route(part, incoming, byTo, byFrom); !s) return s;

  const ZoPartition& whole = info.Partition;
  const double mean = whole.Sum / static_cast<double>(whole.Count);
  const std::size_t n = part.values.size();
  // Moran's I reads deviations from the whole dataset's mean, General G the values.
  std::vector<double> v(part.values.begin(), part.values.end());
  if (!generalG)
    for (double& x : v) x -= mean;
  std::vector<double> rowSums(n, 0.0), columnSums(n, 0.0);
  global::MoranSums::Block moran;
  global::GeneralGSums::Block g;
  auto nextTo = byTo.begin();
  auto nextFrom = byFrom.begin();
  SparseRow row;
  for (std::int64_t i = 0; i < static_cast<std::int64_t>(n); ++i) {
    const auto ii = static_cast<std::size_t>(i);
    for (; nextFrom != byFrom.end() && nextFrom->from < part.ids[ii]; ++nextFrom)
      columnSums[static_cast<std::size_t>(nextFrom->to)] += nextFrom->weight;
    if (Status s = part.rows.Next(i, row); !s) return s;
    if (!part.own[ii]) continue;
    const auto first = nextTo;
    while (nextTo != byTo.end() && nextTo->to == i) ++nextTo;
    auto transposed = [&](std::size_t k) {
      const auto j = static_cast<std::size_t>(row.columns[k]);
      if (part.own[j]) return row.transposed[k];
      const auto at =
          std::lower_bound(first, nextTo, part.ids[j], [](const Incoming& e, std::int64_t id) { return e.from < id; });
      return at != nextTo && at->from == part.ids[j] ? at->weight : 0.0;
    };
    for (std::size_t k = 0; k < row.columns.size(); ++k) {
      const auto j = static_cast<std::size_t>(row.columns[k]);
      if (part.own[j] && (!generalG || j != ii)) columnSums[j] += row.weights[k];
    }
    if (generalG) {
      const global::GeneralGRow r = global::GeneralGRowTerms(i, row, v.data(), transposed);
      rowSums[ii] = r.s0;
      g.Add(r, v[ii], whole.Sum);
    } else {
      const global::MoranRow r = global::MoranRowTerms(row, v.data(), transposed);
      rowSums[ii] = r.s0;
      moran.Add(r, v[ii]);
    }
  }
  for (; nextFrom != byFrom.end(); ++nextFrom) columnSums[static_cast<std::size_t>(nextFrom->to)] += nextFrom->weight;
  ExactSum s2;
  for (std::size_t i = 0; i < n; ++i)
    if (part.own[i]) s2.Add(global::S2Term(rowSums[i], columnSums[i]));
  sums.S2 = s2.Partials();
  if (generalG) {
    sums.S0 = g.s0.Partials(), sums.S1 = g.s1.Partials(), sums.Cross = g.a.Partials(), sums.Pairs = g.d.Partials();
    sums.M1 = g.m1.Partials(), sums.M2 = g.m2.Partials(), sums.M3 = g.m3.Partials(), sums.M4 = g.m4.Partials();
  } else {
    sums.S0 = moran.s0.Partials(), sums.S1 = moran.s1.Partials(), sums.Cross = moran.cp.Partials();
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::partition
