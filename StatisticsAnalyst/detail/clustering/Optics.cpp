// OPTICS: the cluster ordering with reachability distances, and the ξ
// extraction of clusters from the reachability plot (Ankerst et al. 1999,
// with the corrections R's dbscan package and ELKI apply).
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <queue>

#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::clustering {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// The seeds: (reachability, index) pairs, smallest first, ties to the lower
// index. A point's entry is stale once it was processed or improved.
using Seed = std::pair<double, std::uint32_t>;
using Seeds = std::priority_queue<Seed, std::vector<Seed>, std::greater<Seed>>;

struct Ordering {
  const ZoKdTree& tree;
  const LumaArray<LUMA::LumaPoint3D>& points;
  double radius;
  std::size_t minPoints;
  OpticsResult& out;
  std::vector<unsigned char> done;
  std::vector<std::size_t> neighbours;
  std::vector<double> distances;
  Seeds seeds;

  // Appends point p to the ordering and, when it is a core point, updates
  // the reachability of its unprocessed neighbours.
  void Process(std::uint32_t p) {
    done[p] = 1;
    out.order.push_back(p);
    tree.SearchKdTreeDis2(points[p], radius, neighbours, distances, 1);
    if (neighbours.size() < minPoints) return;
    // The radius search is ordered by distance; the point itself is first.
    out.core[p] = distances[minPoints - 1];
    for (std::size_t k = 0; k < neighbours.size(); ++k) {
      const auto o = static_cast<std::uint32_t>(neighbours[k]);
      if (done[o]) continue;
      const double reach = std::max(out.core[p], distances[k]);
      if (reach < out.reachability[o]) {
        out.reachability[o] = reach;
        out.predecessor[o] = p;
        seeds.push({reach, o});
      }
    }
  }
};

}  // namespace

Status Optics(const LumaArray<LumaPoint2D>& points, int minPoints, double maxDistance, OpticsResult& result,
              ZoProgress* progress) {
  try {
    const std::size_t n = points.size();
    result = OpticsResult();
    result.reachability.assign(n, kInf), result.core.assign(n, kInf), result.predecessor.assign(n, -1);
    result.order.reserve(n);
    LumaArray<LUMA::LumaPoint3D> buffer(n);
    for (std::size_t i = 0; i < n; ++i) buffer[i] = {points[i].x, points[i].y, 0.0};
    ZoKdTree tree(buffer.data(), n);
    tree.SetMaxBucketSize(30);
    if (!tree.Build()) return Failed();
    Ordering run{tree,        buffer,
                 maxDistance, static_cast<std::size_t>(std::max(minPoints, 1)),
                 result,      std::vector<unsigned char>(n, 0),
                 {},          {},
                 {}};
    // A point's cost is its neighbourhood, which the largest radius can make
    // the whole layer: polls go by the neighbours seen, not by the points.
    CancelPoll poll(progress);
    auto processed = [&]() {
      if (!poll.Add(run.neighbours.size() + 1)) return true;
      if (progress) progress->SetProgressPos(static_cast<int>(90.0 * static_cast<double>(result.order.size()) / n));
      return !poll.Now();
    };
    if (poll.Now()) return Cancelled();
    for (std::uint32_t start = 0; start < n; ++start) {
      if (run.done[start]) continue;
      run.Process(start);
      if (!processed()) return Cancelled();
      while (!run.seeds.empty()) {
        const auto [reach, q] = run.seeds.top();
        run.seeds.pop();
        if (run.done[q] || reach != result.reachability[q]) continue;
        run.Process(q);
        if (!processed()) return Cancelled();
      }
    }
    return Status::Ok();
  } catch (const std::bad_alloc&) {
    return Failed();
  }
}

namespace {

// A steep-down area of the reachability plot and the largest reachability
// seen since it ended (mib).
struct SteepDown {
  std::size_t start, end;
  double maximum, mib;
};

// The reachability plot with its steepness tests; positions past the end are
// invalid, infinite reachabilities are never steep.
struct Plot {
  std::vector<double> r;
  double ixi;  // 1 − ξ
  std::size_t n() const { return r.size(); }
  bool SteepDown(std::size_t i, double f) const {
    if (i + 1 >= n() || r[i + 1] >= kInf) return false;
    return r[i] * f >= r[i + 1];
  }
  bool SteepUp(std::size_t i, double f) const {
    if (r[i] >= kInf) return false;
    if (i + 1 >= n()) return true;
    return r[i] <= r[i + 1] * f;
  }
};

// Reads a steep-down area starting at `index`; returns the area and leaves
// `index` at its end.
SteepDown ReadSteepDown(const Plot& plot, std::size_t& index, std::size_t minPoints) {
  SteepDown area{index, index + 1, plot.r[index], 0.0};
  while (index + 1 < plot.n()) {
    ++index;
    if (plot.SteepDown(index, plot.ixi)) {
      area.end = index + 1;
      continue;
    }
    if (!plot.SteepDown(index, 1.0) || index - area.end > minPoints) break;
  }
  return area;
}

// Reads a steep-up area starting at `index`: its end, the smallest
// reachability at its end (mib) and the reachability after it (maximum).
void ReadSteepUp(const Plot& plot, std::size_t& index, std::size_t minPoints, std::size_t& end, double& mib,
                 double& maximum) {
  end = index + 1;
  mib = plot.r[index];
  maximum = index + 1 < plot.n() ? plot.r[index + 1] : kInf;
  if (maximum == kInf) {
    --end;
    ++index;
    return;
  }
  while (index + 1 < plot.n()) {
    ++index;
    if (plot.SteepUp(index, plot.ixi)) {
      end = index + 1;
      mib = plot.r[index];
      maximum = index + 1 < plot.n() ? plot.r[index + 1] : kInf;
      if (maximum == kInf) {
        --end;
        break;
      }
      continue;
    }
    if (!plot.SteepUp(index, 1.0) || index - end > minPoints) break;
  }
}

void Filter(std::vector<SteepDown>& areas, double mib, double ixi) {
  std::erase_if(areas, [&](const SteepDown& a) { return !(a.maximum * ixi > mib); });
  for (SteepDown& a : areas) a.mib = std::max(a.mib, mib);
}

}  // namespace

void ExtractXi(double xi, int minPointsIn, OpticsResult& result) {
  const std::size_t n = result.order.size(), minPoints = static_cast<std::size_t>(std::max(minPointsIn, 1));
  Plot plot{std::vector<double>(n), 1.0 - xi};
  std::vector<std::size_t> position(n);
  for (std::size_t i = 0; i < n; ++i) plot.r[i] = result.reachability[result.order[i]], position[result.order[i]] = i;
  std::vector<SteepDown> areas;
  std::vector<std::pair<std::size_t, std::size_t>> found;
  double mib = 0.0;
  for (std::size_t index = 0; index < n;) {
    mib = std::max(mib, plot.r[index]);
    if (index + 1 >= n) break;
    if (plot.SteepDown(index, plot.ixi)) {
      Filter(areas, mib, plot.ixi);
      areas.push_back(ReadSteepDown(plot, index, minPoints));
      mib = 0.0;
      continue;
    }
    if (!plot.SteepUp(index, plot.ixi)) {
      ++index;
      continue;
    }
    Filter(areas, mib, plot.ixi);
    std::size_t upEnd;
    double upMaximum;
    ReadSteepUp(plot, index, minPoints, upEnd, mib, upMaximum);
    for (auto a = areas.rbegin(); a != areas.rend(); ++a) {
      if (mib * plot.ixi < a->mib) continue;
      std::size_t start = a->start, end = upEnd;
      while (end > start && plot.r[end] == kInf) --end;
      if (a->maximum * plot.ixi >= upMaximum) {
        while (start < end && plot.r[start + 1] > upMaximum) ++start;
      } else if (upMaximum * plot.ixi >= a->maximum) {
        while (end > start && plot.r[end - 1] > a->maximum) --end;
      }
      // The cluster ends at the last point reached from inside it.
      while (end > start) {
        const std::int64_t pre = result.predecessor[result.order[end]];
        if (pre >= 0 && position[pre] >= start && position[pre] < end) break;
        --end;
      }
      if (index >= 1 && plot.SteepUp(index - 1, plot.ixi)) --end;
      if (end + 1 < start + minPoints) continue;
      found.push_back({start, end});
    }
  }
  // Larger clusters first, so that the nested ones keep their points.
  std::sort(found.begin(), found.end());
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.second - a.first > b.second - b.first; });
  std::vector<std::int32_t> byPosition(n, 0);
  for (std::size_t c = 0; c < found.size(); ++c)
    for (std::size_t i = found[c].first; i <= found[c].second && i < n; ++i)
      byPosition[i] = static_cast<std::int32_t>(c + 1);
  // Numbered in the order of their first point.
  std::vector<std::int32_t> number(found.size() + 1, 0);
  result.label.assign(n, -1);
  result.clusters = 0;
  for (std::size_t p = 0; p < n; ++p) {
    const std::int32_t c = byPosition[position[p]];
    if (c == 0) continue;
    if (number[c] == 0) number[c] = ++result.clusters;
    result.label[p] = number[c];
  }
}

Status DensityRun::OPTICS_Method(ZoRecordset* records, ZoDatasetVector* result, int minPoints, double distance,
                                 int unit, double parameter) {
  if (!records) return Status::Fail(msg::EEg024);
  if (minPoints < 1) return Status::Fail(msg::EUe001);
  LumaArray<LumaPoint2D> points;
  if (Status read = ReadPoints(records, points); !read) return read;
  if (distance > 0) {
    distance = InPointUnits(records, distance, unit);
  } else {
    // No limit: the largest distance at which every point is a core point.
    LumaArray<LUMA::LumaPoint3D> buffer;
    std::unique_ptr<ZoKdTreec> tree;
    if (!detail::spatial::BuildTree(buffer, points, tree)) return Status::Fail(msg::ESa032);
    LumaArray<double> kth;
    const Status searched = KthDistances(tree.get(), points, minPoints, kth, m_bar);
    if (IsCancelled(searched)) return searched;
    if (!searched) return Status::Fail(msg::ESa024);
    distance = kth.empty() ? 0.0 : *std::max_element(kth.begin(), kth.end());
  }
  if (m_bar) {
    m_bar->SetBothPosRange(10, 80);
    m_bar->SetMessage(ZoStringEx::Format(ZoStringEx::LoadResString(msg::IMb391), 2, 3));
  }
  OpticsResult found;
  const Status status = Optics(points, minPoints, distance, found, m_bar);
  if (!status) return status;
  const double xi = parameter >= 1 && parameter <= 99 ? parameter / 100.0 : 0.05;
  ExtractXi(xi, minPoints, found);

  const std::size_t n = points.size();
  Column cluster{"Cluster_ID", LUMA::FieldInt32, std::vector<double>(found.label.begin(), found.label.end())};
  Column reach{"Reachability", LUMA::FieldDouble, std::vector<double>(n)};
  Column order{"Order", LUMA::FieldInt32, std::vector<double>(n)};
  for (std::size_t i = 0; i < n; ++i) {
    reach.values[i] = found.reachability[i] < kInf ? found.reachability[i] : -1.0;
    order.values[found.order[i]] = static_cast<double>(i + 1);
  }
  m_summary.Clusters = found.clusters;
  m_summary.Noise = static_cast<long long>(std::count(found.label.begin(), found.label.end(), -1));
  m_summary.Distance = distance;
  std::vector<Column> columns;
  columns.push_back(std::move(cluster));
  columns.push_back(std::move(reach));
  columns.push_back(std::move(order));
  return WriteResult(records, result, columns);
}

}  // namespace ZOC::detail::clustering
