// HDBSCAN: core distances, the spanning tree of mutual reachability, the
// condensed cluster tree and the excess-of-mass selection, with membership
// probabilities, GLOSH outlier scores and exemplars.
//
// The condensed tree follows R's dbscan package, so that the two agree: the
// single-linkage hierarchy is walked from the top; a merge of two parts that
// both have at least minPoints points is a true split (the parent dies, two
// child clusters are born at that distance); any other merge keeps the
// parent's identity on both sides, and a point leaves its cluster at the
// distance where it first joins the hierarchy (or at the cluster's death,
// once the cluster has split).
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <numeric>

#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::clustering {

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
// 1/0 for coincident points: large but finite, so that sums never turn into NaN.
constexpr double kMaxLambda = 1e100;

double Lambda(double distance) { return distance > 1.0 / kMaxLambda ? 1.0 / distance : kMaxLambda; }

// The single-linkage merges of the spanning tree: merge k joins nodes left
// and right (a point p is node p, merge k is node n + k) at `height`.
struct Merges {
  std::vector<std::uint32_t> left, right, size;
  std::vector<double> height;
};

Merges SingleLinkage(std::size_t n, std::vector<MstEdge>& edges, CancelPoll& poll) {
  std::sort(edges.begin(), edges.end(), [](const MstEdge& a, const MstEdge& b) {
    if (a.weight != b.weight) return a.weight < b.weight;
    return a.a != b.a ? a.a < b.a : a.b < b.b;
  });
  Merges m;
  std::vector<std::uint32_t> parent(n), node(n), size(n, 1);
  std::iota(parent.begin(), parent.end(), 0u);
  std::iota(node.begin(), node.end(), 0u);
  auto find = [&](std::uint32_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
  };
  for (const MstEdge& e : edges) {
    if (poll.Add(1)) break;  // the caller sees the cancellation
    std::uint32_t a = find(e.a), b = find(e.b);
    if (a == b) continue;
    m.left.push_back(node[a]), m.right.push_back(node[b]), m.height.push_back(e.weight);
    if (a > b) std::swap(a, b);
    parent[b] = a;
    size[a] += size[b];
    m.size.push_back(size[a]);
    node[a] = static_cast<std::uint32_t>(n + m.height.size() - 1);
  }
  return m;
}

struct ClusterTree {
  std::vector<std::uint32_t> parent, first;  // first child (the second is first + 1), kNone for leaves
  std::vector<double> birth, death, stability;
  std::vector<std::uint64_t> children;  // points at the split (0 for leaves)
  std::vector<unsigned char> processed;
  std::vector<std::uint32_t> pointCluster;  // per point
  std::vector<double> pointEps;             // per point

  std::uint32_t Add(std::uint32_t parentId, double born, double dies) {
    parent.push_back(parentId), first.push_back(kNone), birth.push_back(born), death.push_back(dies);
    stability.push_back(0.0), children.push_back(0), processed.push_back(0);
    return static_cast<std::uint32_t>(parent.size() - 1);
  }
};

// Walks the merges from the top, handing each point and each merge to its cluster.
ClusterTree Condense(std::size_t n, const Merges& m, std::uint32_t minPoints, CancelPoll& poll) {
  ClusterTree t;
  t.pointCluster.assign(n, 0), t.pointEps.assign(n, 0.0);
  const std::size_t merges = m.height.size();
  t.Add(kNone, merges ? m.height.back() : 0.0, 0.0);
  std::vector<std::uint32_t> owner(merges, 0);
  auto sizeOf = [&](std::uint32_t node) { return node < n ? 1u : m.size[node - n]; };
  for (std::size_t k = merges; k-- > 0;) {
    if (poll.Add(1)) return t;  // the caller sees the cancellation
    const std::uint32_t c = owner[k], l = m.left[k], r = m.right[k];
    const double h = m.height[k];
    const double leave = t.processed[c] ? t.death[c] : h;
    for (std::uint32_t child : {l, r})
      if (child < n) t.pointCluster[child] = c, t.pointEps[child] = leave;
    if (l < n && r < n) {
      if (!t.processed[c]) t.death[c] = std::min(h, t.death[c]);
    } else if (l < n || r < n) {
      owner[(l < n ? r : l) - n] = c;
    } else if (sizeOf(l) >= minPoints && sizeOf(r) >= minPoints) {
      t.death[c] = h;
      t.processed[c] = 1;
      t.children[c] = static_cast<std::uint64_t>(sizeOf(l)) + sizeOf(r);
      const std::uint32_t a = t.Add(c, h, m.height[l - n]);
      t.Add(c, h, m.height[r - n]);
      t.first[c] = a;
      owner[l - n] = a, owner[r - n] = a + 1;
    } else {
      owner[l - n] = c, owner[r - n] = c;
    }
  }
  // Stability: the excess of mass of every point while it is in the cluster,
  // plus that of the points that leave through the split.
  for (std::size_t p = 0; p < n; ++p) {
    const std::uint32_t c = t.pointCluster[p];
    t.stability[c] += Lambda(t.pointEps[p]) - Lambda(t.birth[c]);
  }
  for (std::size_t c = 0; c < t.parent.size(); ++c)
    t.stability[c] += static_cast<double>(t.children[c]) * (Lambda(t.death[c]) - Lambda(t.birth[c]));
  return t;
}

// Excess of mass: a cluster is kept when it is at least as stable as the
// best selection among its descendants. The root is never a cluster.
std::vector<unsigned char> Select(const ClusterTree& t) {
  const std::size_t count = t.parent.size();
  std::vector<double> score(count, 0.0);
  std::vector<unsigned char> own(count, 1), selected(count, 0);
  for (std::size_t c = count; c-- > 1;) {  // children have larger numbers than their parent
    score[c] = t.stability[c];
    if (t.first[c] == kNone) continue;
    const double below = score[t.first[c]] + score[t.first[c] + 1];
    if (t.stability[c] < below) score[c] = below, own[c] = 0;
  }
  std::vector<unsigned char> under(count, 0);  // an ancestor is selected
  for (std::size_t c = 1; c < count; ++c) {
    const std::uint32_t p = t.parent[c];
    under[c] = p != 0 && (under[p] || selected[p]);
    selected[c] = own[c] && !under[c];
  }
  return selected;
}

}  // namespace

Status CondenseAndSelect(std::size_t n, std::vector<MstEdge> edges, const std::vector<double>& core, int minPoints,
                         HdbscanResult& result, ZoProgress* progress) {
  // Each stage is linear in n after the sort, so polls between and inside
  // the two long loops are enough.
  CancelPoll poll(progress);
  const Merges merges = SingleLinkage(n, edges, poll);
  if (poll.Now()) return Cancelled();
  const ClusterTree t = Condense(n, merges, static_cast<std::uint32_t>(std::max(minPoints, 1)), poll);
  if (poll.Now()) return Cancelled();
  const std::vector<unsigned char> selected = Select(t);
  const std::size_t count = t.parent.size();

  // The selected cluster above every cluster, and the smallest death among
  // the leaves below it (the densest level the cluster reaches) for GLOSH.
  std::vector<std::uint32_t> chosen(count, kNone);
  for (std::size_t c = 1; c < count; ++c) chosen[c] = selected[c] ? static_cast<std::uint32_t>(c) : chosen[t.parent[c]];
  std::vector<double> leafDeath(count);
  for (std::size_t c = count; c-- > 0;)
    leafDeath[c] = t.first[c] == kNone ? t.death[c] : std::min(leafDeath[t.first[c]], leafDeath[t.first[c] + 1]);

  // Clusters are numbered in the order of their first point.
  std::vector<std::int32_t> number(count, 0);
  std::vector<double> maxCore(count, 0.0), minEps(count, std::numeric_limits<double>::infinity());
  result = HdbscanResult();
  result.label.assign(n, -1), result.probability.assign(n, 0.0), result.outlier.assign(n, 0.0);
  result.exemplar.assign(n, 0), result.stability.assign(n, 0.0);
  for (std::size_t p = 0; p < n; ++p) {
    const std::uint32_t c = t.pointCluster[p], s = chosen[c];
    const double score = t.pointEps[p] > 0 ? 1.0 - leafDeath[c] / t.pointEps[p] : 0.0;
    result.outlier[p] = std::isfinite(score) ? score : 0.0;
    minEps[c] = std::min(minEps[c], t.pointEps[p]);
    if (s == kNone) continue;
    if (number[s] == 0) number[s] = ++result.clusters;
    result.label[p] = number[s];
    result.stability[p] = t.stability[s];
    maxCore[s] = std::max(maxCore[s], core[p]);
  }
  for (std::size_t p = 0; p < n; ++p) {
    const std::uint32_t c = t.pointCluster[p], s = chosen[c];
    if (s == kNone) continue;
    result.probability[p] = maxCore[s] > 0 ? (maxCore[s] - core[p]) / maxCore[s] : 1.0;
    // Exemplars: the points of a leaf cluster that stay in it longest.
    result.exemplar[p] = t.first[c] == kNone && t.pointEps[p] == minEps[c];
  }
  return Status::Ok();
}

Status CoreDistances(const LumaArray<LumaPoint2D>& points, int minPoints, std::vector<double>& core,
                     ZoProgress* progress) {
  core.assign(points.size(), 0.0);
  if (minPoints <= 1 || points.empty()) return Status::Ok();
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTreec> tree;
  if (!detail::spatial::BuildTree(buffer, points, tree)) return Failed();
  LumaArray<double> distances;
  // The batch search counts the point itself among its k nearest.
  const Status status = KthDistances(tree.get(), points, minPoints, distances, progress);
  if (!status) return status;
  core.assign(distances.begin(), distances.end());
  return Status::Ok();
}

Status Hdbscan(const LumaArray<LumaPoint2D>& points, int minPoints, HdbscanResult& result, ZoProgress* progress) {
  try {
    std::vector<double> core;
    Status status = CoreDistances(points, minPoints, core, progress);
    if (!status) return status;
    if (progress) progress->SetProgressPos(20);
    std::vector<MstEdge> edges;
    status = MutualReachabilityMst(points, core, edges, progress);
    if (!status) return status;
    if (progress) progress->SetProgressPos(80);
    return CondenseAndSelect(points.size(), std::move(edges), core, minPoints, result, progress);
  } catch (const std::bad_alloc&) {
    return Failed();
  }
}

Status DensityRun::HDBSCAN_Method(ZoRecordset* records, ZoDatasetVector* result, int minPoints) {
  if (!records) return Status::Fail(msg::EEg024);
  if (minPoints < 2) return Status::Fail(msg::EUe002);
  LumaArray<LumaPoint2D> points;
  if (Status read = ReadPoints(records, points); !read) return read;
  if (m_bar) {
    m_bar->SetBothPosRange(10, 80);
    m_bar->SetMessage(ZoStringEx::Format(ZoStringEx::LoadResString(msg::IMb391), 2, 3));
  }
  HdbscanResult found;
  const Status status = Hdbscan(points, minPoints, found, m_bar);
  if (!status) return status;
  std::vector<Column> columns;
  columns.push_back({"Cluster_ID", LUMA::FieldInt32, std::vector<double>(found.label.begin(), found.label.end())});
  columns.push_back({"Prob", LUMA::FieldDouble, std::move(found.probability)});
  columns.push_back({"Outlier", LUMA::FieldDouble, std::move(found.outlier)});
  columns.push_back({"Exemplar", LUMA::FieldInt32, std::vector<double>(found.exemplar.begin(), found.exemplar.end())});
  columns.push_back({"Stability", LUMA::FieldDouble, std::move(found.stability)});
  m_summary.Clusters = found.clusters;
  m_summary.Noise = static_cast<long long>(std::count(found.label.begin(), found.label.end(), -1));
  return WriteResult(records, result, columns);
}

}  // namespace ZOC::detail::clustering
