// Density-based clustering: DBSCAN, the HDBSCAN spanning tree and OPTICS
// against brute-force computations, the automatic search distance on
// hand-built point sets, and the call's checks and failure paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "TestSupport.h"
#include "host/ZoAggregation.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
using LUMA::LumaPoint2D;

namespace {

using Result = satest::MemoryResult;
using satest::Column;

// The distance as the KD tree computes it, so that equal values compare equal.
double Dist(const LumaPoint2D& a, const LumaPoint2D& b) {
  const double dx = a.x - b.x, dy = a.y - b.y;
  return std::sqrt(dx * dx + dy * dy);
}

// Points in clumps with scattered points between them, some coincident.
std::vector<LumaPoint2D> Clumps(unsigned seed) {
  std::vector<LumaPoint2D> p = satest::RandomPoints(120, 100.0, seed);
  for (const LumaPoint2D& c : {LumaPoint2D{20, 20}, LumaPoint2D{70, 30}, LumaPoint2D{40, 80}})
    for (const LumaPoint2D& q : satest::RandomPoints(60, 10.0, seed + 1)) p.push_back({c.x + q.x, c.y + q.y});
  for (int i = 0; i < 5; ++i) p.push_back(p[3]);
  return p;
}

ZoClusterInformation Info(int method, int minPoints, double distance = 0.0) {
  ZoClusterInformation info;
  info.Method = method;
  info.MinPoints = minPoints;
  info.SearchDistance = distance;
  info.DistanceUnit = 0;
  return info;
}

// The summary of the public call on the points, whose fields go to result;
// the call must succeed.
ZoClusterSummary Cluster(ZoDatasetVector* points, const ZoClusterInformation& info, Result& result) {
  ZoClusteringDistributions analysis;
  ZoClusterSummary summary;
  EXPECT_TRUE(analysis.DensityBasedClustering(points, result.dataset, info, false, &summary))
      << analysis.GetStrErrorMes().Str();
  return summary;
}

}  // namespace

TEST(DensityClustering, PercentileInterpolatesLinearly) {
  EXPECT_DOUBLE_EQ(detail::clustering::percentile({4, 1, 3, 2}, 50.0), 2.5);
  EXPECT_DOUBLE_EQ(detail::clustering::percentile({4, 1, 3, 2}, 0.0), 1.0);
  EXPECT_DOUBLE_EQ(detail::clustering::percentile({4, 1, 3, 2}, 100.0), 4.0);
  EXPECT_DOUBLE_EQ(detail::clustering::percentile({10, 0, 5}, 25.0), 2.5);
}

// DBSCAN by its definition, over all pairs: the core points, the components
// of the core points within eps of each other, and the non-core points that
// no core point reaches.
TEST(DensityClustering, AggregationMatchesBruteForceDbscan) {
  const std::vector<LumaPoint2D> p = Clumps(7);
  const std::size_t n = p.size();
  for (const auto& [eps, minPts] : {std::pair{4.0, 5}, std::pair{6.0, 10}, std::pair{2.0, 1}}) {
    LumaArray<std::int32_t> ids;
    ASSERT_EQ(ZoAggregation::AggregatePoints(LumaArray<LumaPoint2D>(p.begin(), p.end()), eps, minPts, ids), 1);
    std::vector<char> core(n);
    for (std::size_t i = 0; i < n; ++i) {
      int count = 0;
      for (std::size_t j = 0; j < n; ++j) count += Dist(p[i], p[j]) <= eps;
      core[i] = count >= minPts;
    }
    std::int32_t lastNew = 0;
    for (std::size_t i = 0; i < n; ++i) {
      bool reached = false;
      for (std::size_t j = 0; j < n; ++j) {
        if (!core[j] || Dist(p[i], p[j]) > eps) continue;
        reached = true;
        if (core[i]) {
          EXPECT_EQ(ids[i], ids[j]) << "core points " << i << " and " << j;
        }
      }
      EXPECT_EQ(ids[i] == 0, !reached) << "point " << i;
      if (!core[i]) continue;
      // Clusters are numbered in the order of their first core point.
      EXPECT_LE(ids[i], lastNew + 1);
      lastNew = std::max(lastNew, ids[i]);
    }
    for (std::size_t i = 0; i < n; ++i) {  // a border point joins a cluster that reaches it
      if (core[i] || ids[i] == 0) continue;
      bool ok = false;
      for (std::size_t j = 0; j < n; ++j) ok |= core[j] && ids[j] == ids[i] && Dist(p[i], p[j]) <= eps;
      EXPECT_TRUE(ok) << "border point " << i;
    }
  }
}

// The written clusters and Source_ID are compared with R's dbscan in
// tests/crosscheck/density.R; here the summary's counts.
TEST(DensityClustering, DbscanSummaryCountsClustersAndNoise) {
  Result result;
  const ZoClusterSummary summary = Cluster(satest::MakePointLayer(Clumps(11)).dataset, Info(1, 6, 3.0), result);
  const std::vector<double> written = Column(result.dataset, "Cluster_ID");
  EXPECT_GT(std::count(written.begin(), written.end(), -1.0), 0);
  EXPECT_EQ(summary.Noise, std::count(written.begin(), written.end(), -1.0));
  EXPECT_EQ(summary.Clusters, *std::max_element(written.begin(), written.end()));
}

// The median distance to the (minimum points − 1)-th neighbour is compared
// with R's kNNdist in tests/crosscheck/density.R; here the degenerate sets.
TEST(DensityClustering, AutomaticDistanceOfCoincidentPoints) {
  // More than half of the points coincide: the median is 0, and the second
  // smallest distinct neighbour distance (after 0) is used.
  std::vector<LumaPoint2D> q(7, LumaPoint2D{5, 5});
  for (double x : {8.0, 9.5, 12.0, 20.0, 27.0}) q.push_back({x, 5});
  Result first;
  // Nearest-neighbour distances: 0 ×7, 1.5, 1.5, 2.5, 7, 7.
  EXPECT_DOUBLE_EQ(Cluster(satest::MakePointLayer(q).dataset, Info(1, 2), first).Distance, 1.5);
  // All points coincide: 0.0001, and they form one cluster.
  satest::MemoryLayer layer = satest::MakePointLayer(std::vector<LumaPoint2D>(6, LumaPoint2D{1, 2}));
  Result result;
  EXPECT_DOUBLE_EQ(Cluster(layer.dataset, Info(1, 6), result).Distance, 0.0001);
  EXPECT_EQ(Column(result.dataset, "Cluster_ID"), std::vector<double>(6, 1.0));
  for (int method : {2, 3}) {  // no distance to split on: one level, no cluster below the whole
    Result other;
    Cluster(layer.dataset, Info(method, 3), other);
    for (const char* field : {"Cluster_ID", method == 2 ? "Outlier" : "Reachability"})
      for (double v : Column(other.dataset, field)) EXPECT_TRUE(std::isfinite(v)) << field;
  }
}

TEST(DensityClustering, ChecksFailInOrderAndLeaveTheResultEmpty) {
  satest::MemoryLayer layer = satest::MakePointLayer(satest::RandomPoints(12, 10.0, 5));
  ZoClusteringDistributions analysis;
  {
    Result result;  // minimum points equal to the count is accepted
    EXPECT_TRUE(analysis.DensityBasedClustering(layer.dataset, result.dataset, Info(1, 12), false));
  }
  for (int method : {1, 2, 3}) {
    Result result;  // one more is refused, the message replaced by the formatted text
    EXPECT_FALSE(analysis.DensityBasedClustering(layer.dataset, result.dataset, Info(method, 13), false));
    EXPECT_EQ(analysis.GetStrErrorMes().Str().rfind("[ESa074] ", 0), 0u);
    EXPECT_NE(analysis.GetStrErrorMes().Str().find("13"), std::string::npos);
    EXPECT_EQ(result.dataset->GetRecordCount(), 0);
  }
  for (int method : {0, 4}) {
    Result result;
    EXPECT_FALSE(analysis.DensityBasedClustering(layer.dataset, result.dataset, Info(method, 3), false));
    EXPECT_TRUE(analysis.GetStrErrorMes().IsEmpty());
    EXPECT_EQ(result.dataset->GetRecordCount(), 0);
  }
  Result result;
  EXPECT_FALSE(analysis.DensityBasedClustering(nullptr, result.dataset, Info(1, 3), false));
  EXPECT_NE(analysis.GetStrErrorMes().Str().find("[EEg002]"), std::string::npos);
  EXPECT_FALSE(analysis.DensityBasedClustering(layer.dataset, nullptr, Info(1, 3), false));
  EXPECT_NE(analysis.GetStrErrorMes().Str().find("[EEg032]"), std::string::npos);
  auto lines = ZoDataSource::CreateMemory();
  ZoDatasetVector* line = lines->CreateDatasetVector("l", DatasetLine, ZoPrjCoordSys());
  ZoDatasetVector* lineResult = lines->CreateDatasetVector("r", DatasetLine, ZoPrjCoordSys());
  EXPECT_FALSE(analysis.DensityBasedClustering(line, lineResult, Info(1, 3), false));
  EXPECT_NE(analysis.GetStrErrorMes().Str().find("[EEe018]"), std::string::npos);
  EXPECT_FALSE(analysis.DensityBasedClustering(layer.dataset, lineResult, Info(1, 3), false));
  EXPECT_NE(analysis.GetStrErrorMes().Str().find("[EEe017]"), std::string::npos);
  EXPECT_EQ(result.dataset->GetRecordCount(), 0);
}

namespace {

// Cancels at its `at`-th poll (never for 0) and counts the polls until then.
struct CancelAt : ZoProgressBase {
  explicit CancelAt(long long at) : at(at) {}
  void OnChange(const ZoProgressState&) override {}
  bool PollCancel() override { return ++polls == at; }
  long long at, polls = 0;
};

// `run(progress)` computes a result, or nothing when it was cancelled. The
// run must give the same result with a progress object as without, poll it
// at least `least` times, and stop at whichever poll cancels.
template <class Run>
void ExpectPolledAndHonoured(const char* what, long long least, Run run) {
  const auto plain = run(nullptr);
  CancelAt counting(0);
  const auto watched = run(&counting);
  ASSERT_TRUE(plain && watched) << what;
  EXPECT_EQ(*plain, *watched) << what;
  EXPECT_GE(counting.polls, least) << what;
  std::set<long long> at = {1, 2, counting.polls / 4, counting.polls / 2, counting.polls - 1, counting.polls};
  for (long long k : at) {
    if (k < 1) continue;
    CancelAt cancel(k);
    EXPECT_FALSE(run(&cancel)) << what << ": not stopped by poll " << k << " of " << counting.polls;
  }
}

}  // namespace

// Neighbourhoods of some 700 of 1,500 points: the work of each method grows
// with them, not with the number of points, and so must its polls for
// cancellation (one every 4,096 points would never come).
TEST(DensityClustering, CancellationIsPolledByWorkAndHonouredAtEveryPoll) {
  const std::vector<LumaPoint2D> p = satest::RandomPoints(1500, 100.0, 21);
  const LumaArray<LumaPoint2D> points(p.begin(), p.end());
  using Values = std::optional<std::vector<double>>;
  ExpectPolledAndHonoured("DBSCAN", 3, [&](ZoProgress* progress) -> Values {
    LumaArray<std::int32_t> ids;
    if (ZoAggregation::AggregatePoints(points, 40.0, 50, ids, progress) != 1) return std::nullopt;
    return std::vector<double>(ids.begin(), ids.end());
  });
  ExpectPolledAndHonoured("HDBSCAN", 3, [&](ZoProgress* progress) -> Values {
    detail::clustering::HdbscanResult found;
    if (!detail::clustering::Hdbscan(points, 300, found, progress)) return std::nullopt;
    std::vector<double> all(found.label.begin(), found.label.end());
    all.insert(all.end(), found.probability.begin(), found.probability.end());
    all.insert(all.end(), found.outlier.begin(), found.outlier.end());
    return all;
  });
  ExpectPolledAndHonoured("OPTICS", 3, [&](ZoProgress* progress) -> Values {
    detail::clustering::OpticsResult found;
    if (!detail::clustering::Optics(points, 50, 40.0, found, progress)) return std::nullopt;
    std::vector<double> all(found.order.begin(), found.order.end());
    all.insert(all.end(), found.reachability.begin(), found.reachability.end());
    return all;
  });
  ZoStatisticsUtilities utilities;
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTreec> tree(utilities.CreateKDTreec(&buffer, points));
  ExpectPolledAndHonoured("k-th distances", 3, [&](ZoProgress* progress) -> Values {
    LumaArray<double> kth;
    if (!detail::clustering::KthDistances(tree.get(), points, 700, kth, progress)) return std::nullopt;
    return std::vector<double>(kth.begin(), kth.end());
  });
}

// Prim's algorithm over all pairs gives the weight of the minimum spanning
// tree of mutual reachability; Borůvka's tree must weigh the same, and be a tree.
TEST(DensityClustering, BoruvkaTreeWeighsAsMuchAsPrims) {
  for (unsigned seed : {1u, 2u}) {
    const std::vector<LumaPoint2D> p = Clumps(seed);
    const LumaArray<LumaPoint2D> points(p.begin(), p.end());
    const std::size_t n = p.size();
    for (int minPoints : {2, 5}) {
      std::vector<double> core;
      ASSERT_TRUE(detail::clustering::CoreDistances(points, minPoints, core));
      std::vector<detail::clustering::MstEdge> edges;
      ASSERT_TRUE(detail::clustering::MutualReachabilityMst(points, core, edges, nullptr));
      ASSERT_EQ(edges.size(), n - 1);
      auto mrd = [&](std::size_t a, std::size_t b) { return std::max({core[a], core[b], Dist(p[a], p[b])}); };
      std::vector<double> key(n, std::numeric_limits<double>::infinity());
      std::vector<char> in(n, 0);
      double prim = 0.0;
      key[0] = 0.0;
      for (std::size_t step = 0; step < n; ++step) {
        std::size_t v = n;
        for (std::size_t i = 0; i < n; ++i)
          if (!in[i] && (v == n || key[i] < key[v])) v = i;
        in[v] = 1, prim += key[v];
        for (std::size_t i = 0; i < n; ++i)
          if (!in[i]) key[i] = std::min(key[i], mrd(v, i));
      }
      double boruvka = 0.0;
      std::set<std::pair<std::uint32_t, std::uint32_t>> seen;
      for (const auto& e : edges) {
        boruvka += e.weight;
        EXPECT_DOUBLE_EQ(e.weight, mrd(e.a, e.b));
        EXPECT_TRUE(seen.insert({e.a, e.b}).second);
      }
      EXPECT_NEAR(boruvka, prim, 1e-9 * prim) << "seed " << seed << " minPoints " << minPoints;
    }
  }
}

// Probabilities, stabilities and outlier scores are compared with R's
// hdbscan in tests/crosscheck/density.R.
TEST(DensityClustering, HdbscanFindsTheClumpsAndScoresTheStrays) {
  std::vector<LumaPoint2D> p;
  for (const LumaPoint2D& c : {LumaPoint2D{0, 0}, LumaPoint2D{100, 0}})
    for (const LumaPoint2D& q : satest::RandomPoints(50, 10.0, 4)) p.push_back({c.x + q.x, c.y + q.y});
  p.push_back({50, 300});  // far from both, farther than they are from each other
  Result result;
  const ZoClusterSummary summary = Cluster(satest::MakePointLayer(p).dataset, Info(2, 5), result);
  const auto label = Column(result.dataset, "Cluster_ID"), prob = Column(result.dataset, "Prob");
  const auto outlier = Column(result.dataset, "Outlier"), exemplar = Column(result.dataset, "Exemplar");
  EXPECT_EQ(summary.Clusters, 2);
  EXPECT_EQ(label[100], -1);
  EXPECT_EQ(prob[100], 0.0);
  EXPECT_EQ(*std::max_element(outlier.begin(), outlier.end()), outlier[100]);
  std::map<int, int> exemplars;
  for (std::size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(label[i], i < 50 ? 1 : 2);
    exemplars[static_cast<int>(label[i])] += exemplar[i] == 1;
  }
  EXPECT_GE(exemplars[1], 1);
  EXPECT_GE(exemplars[2], 1);
}

// OPTICS by its definition over all pairs, lowest index first among equal
// reachabilities; its ξ clusters are compared with R's extractXi in
// tests/crosscheck/optics_xi.R.
TEST(DensityClustering, OpticsMatchesBruteForceOrdering) {
  const std::vector<LumaPoint2D> p = Clumps(5);
  const std::size_t n = p.size();
  const double eps = 6.0;
  const int minPoints = 4;
  detail::clustering::OpticsResult found;
  ASSERT_TRUE(detail::clustering::Optics(LumaArray<LumaPoint2D>(p.begin(), p.end()), minPoints, eps, found, nullptr));
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> core(n, inf), reach(n, inf);
  for (std::size_t i = 0; i < n; ++i) {
    std::vector<double> d;
    for (const LumaPoint2D& q : p)
      if (Dist(p[i], q) <= eps) d.push_back(Dist(p[i], q));
    std::sort(d.begin(), d.end());
    if (d.size() >= static_cast<std::size_t>(minPoints)) core[i] = d[minPoints - 1];
  }
  std::vector<char> done(n, 0);
  std::vector<std::uint32_t> order;
  while (order.size() < n) {
    std::size_t next = n;
    for (std::size_t i = 0; i < n; ++i)
      if (!done[i] && reach[i] < inf && (next == n || reach[i] < reach[next])) next = i;
    if (next == n)
      for (std::size_t i = 0; i < n && next == n; ++i)
        if (!done[i]) next = i;
    done[next] = 1;
    order.push_back(static_cast<std::uint32_t>(next));
    if (core[next] == inf) continue;
    for (std::size_t i = 0; i < n; ++i)
      if (!done[i] && Dist(p[next], p[i]) <= eps)
        reach[i] = std::min(reach[i], std::max(core[next], Dist(p[next], p[i])));
  }
  EXPECT_EQ(found.order, order);
  for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(found.reachability[i], reach[i]) << i;
}

// A distance in kilometres on metre data clusters as the same distance in
// the layer's own unit.
TEST(DensityClustering, DistanceUnitsConvertToTheLayersUnit) {
  std::vector<LumaPoint2D> p;
  for (const LumaPoint2D& q : Clumps(13)) p.push_back({500000 + q.x * 100, 200000 + q.y * 100});
  satest::MemoryLayer layer = satest::MakePointLayer(p, {}, "EPSG:27700");
  std::vector<std::vector<double>> labels;
  for (const auto& [distance, unit] : {std::pair{400.0, 0}, std::pair{0.4, 10000000}, std::pair{400.0, 10000}}) {
    for (int method : {1, 3}) {
      ZoClusterInformation info = Info(method, 5, distance);
      info.DistanceUnit = unit;
      Result result;
      EXPECT_DOUBLE_EQ(Cluster(layer.dataset, info, result).Distance, 400.0);
      labels.push_back(Column(result.dataset, "Cluster_ID"));
    }
  }
  for (std::size_t k = 2; k < 6; ++k) EXPECT_EQ(labels[k], labels[k % 2]) << k;
}
