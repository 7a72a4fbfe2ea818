#include "StatisticsAnalyst/detail/weights/RowBuilder.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <new>
#include <numeric>

#include <omp.h>
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

namespace {

using limits::kCoincident;

LumaPoint3D To3D(const LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

// Orders a row's neighbours by feature number, weights alongside.
void SortByColumn(std::vector<std::int64_t>& columns, std::vector<double>& weights,
                  std::vector<std::pair<std::int64_t, double>>& pairs) {
  if (std::is_sorted(columns.begin(), columns.end())) return;
  // Equal weights (K nearest, bands, contiguity) need not travel with their columns.
  if (std::adjacent_find(weights.begin(), weights.end(), std::not_equal_to<>()) == weights.end()) {
    std::sort(columns.begin(), columns.end());
    return;
  }
  pairs.clear();
  for (std::size_t k = 0; k < columns.size(); ++k) pairs.emplace_back(columns[k], weights[k]);
  // Columns are distinct, so the weights never decide the order.
  std::sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t k = 0; k < pairs.size(); ++k) columns[k] = pairs[k].first, weights[k] = pairs[k].second;
}

}  // namespace

Status RowBuilder::Prepare(ZoRecordset* records, const ZoPatternsInformation& info) {
  m_info = info;
  m_count = records->GetRecordCount();
  try {
    if (info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners) {
      double tolerance = info.SnapTolerance;
      const ZoPartition& part = info.Partition;
      if (part.Active && !(tolerance > 0.0)) {
        // A part of a dataset snaps as the whole dataset does, by the whole extent.
        const double side = std::max(part.ExtentMaxX - part.ExtentMinX, part.ExtentMaxY - part.ExtentMinY);
        if (side > 0.0 && std::isfinite(side)) tolerance = ContiguityGrid::kRelativeTolerance * side;
      }
      m_grid.SetTolerance(tolerance);
      return m_grid.Build(records);
    }
    LumaArray<LumaPoint2D> points;
    // A feature without a usable geometry is named before the summary.
    Status read = ReadFeaturePoints(records, points);
    if (!read) return read.Then(msg::ESa008);
    if (static_cast<std::int64_t>(points.size()) != m_count) return Status::Fail(msg::ESa008);
    return PrepareFromPoints(std::move(points), records->GetDataset()->GetPrjCoordSys(), info);
  } catch (const std::bad_alloc&) {
    return Status::Fail(msg::EUc010);
  }
}

Status RowBuilder::PrepareFromPoints(LumaArray<LumaPoint2D> points, const ZoPrjCoordSys& cs,
                                     const ZoPatternsInformation& info) {
  m_info = info;
  m_count = static_cast<std::int64_t>(points.size());
  m_points = std::move(points);
  if (!cs.Forward(m_points)) return Status::Fail(msg::ESa060);
  m_method = spatial::EffectiveMethod(info.DistanceMethod, cs);
  return PrepareSearch();
}

Status RowBuilder::PrepareSearch() {
  if (Status built = spatial::BuildTree(m_buffer, m_points, m_tree); !built) return built;
  // Queries in the tree's own leaf order read its points and nodes from cache.
  if (!m_tree->GetSpatialOrder(m_order)) return Status::Fail(msg::ESa032);
  if (m_info.Conceptualization != KNearestNeighbors)
    return spatial::DistanceBand(m_tree.get(), m_points, m_info.DistanceTolerance, m_method, m_band);
  return Status::Ok();
}

void RowBuilder::Row(std::int64_t i, std::vector<std::int64_t>& columns, std::vector<double>& weights) const {
  Scratch s;
  RowInto(i, s);
  columns.swap(s.columns);
  weights.swap(s.weights);
}

void RowBuilder::RowInto(std::int64_t i, Scratch& s) const {
  s.columns.clear();
  s.weights.clear();
  switch (m_info.Conceptualization) {
    case InverseDistance:
    case InverseDistanceSquared:
    case FixedDistanceBand: DistanceRow(i, s); break;
    case ZoneOfIndifference: ZoneRow(i, s); break;
    case ContiguityEdgesOnly:
    case ContiguityEdgesCorners: {
      std::vector<int> ids;
      m_grid.GetContiguityIDs(static_cast<std::size_t>(i), m_info.Conceptualization == ContiguityEdgesOnly, ids);
      s.columns.assign(ids.begin(), ids.end());
      s.weights.assign(ids.size(), 1.0);
      break;
    }
    case KNearestNeighbors: KNearestRow(i, s); break;
    default: break;
  }
  SortByColumn(s.columns, s.weights, s.sorted);
}

void RowBuilder::StartBlock(std::int64_t first, std::int64_t count, Block& block) const {
  block.m_first = first;
  block.m_features = nullptr;
  block.m_spans.assign(static_cast<std::size_t>(count), {});
  const auto parts = static_cast<std::size_t>(std::max(omp_get_max_threads(), 1));
  block.m_columns.resize(parts);
  block.m_weights.resize(parts);
  for (std::size_t t = 0; t < parts; ++t) block.m_columns[t].clear(), block.m_weights[t].clear();
}

void RowBuilder::Keep(Block& block, std::size_t part, std::int64_t k, const Scratch& s) {
  block.m_spans[static_cast<std::size_t>(k)] = {part, block.m_columns[part].size(), s.columns.size()};
  block.m_columns[part].insert(block.m_columns[part].end(), s.columns.begin(), s.columns.end());
  block.m_weights[part].insert(block.m_weights[part].end(), s.weights.begin(), s.weights.end());
}

void RowBuilder::FillBlock(std::int64_t first, Block& block) const {
  const std::int64_t count = std::min(kBlockRows, m_count - first);
  StartBlock(first, count, block);
  // Each block keeps the spatial order for its features (one counting pass).
  std::call_once(m_blockOrderOnce, [this] {
    m_blockOrder.resize(m_order.size());
    std::vector<std::int64_t> next(static_cast<std::size_t>((m_count + kBlockRows - 1) / kBlockRows));
    for (std::size_t b = 0; b < next.size(); ++b) next[b] = static_cast<std::int64_t>(b) * kBlockRows;
    for (const std::int64_t i : m_order)
      m_blockOrder[static_cast<std::size_t>(next[static_cast<std::size_t>(i / kBlockRows)]++)] = i;
  });
  std::vector<std::int64_t> identity;
  if (m_blockOrder.empty()) {
    identity.resize(static_cast<std::size_t>(count));
    std::iota(identity.begin(), identity.end(), first);
  }
  const std::int64_t* order = m_blockOrder.empty() ? identity.data() : m_blockOrder.data() + first;
  // Each row is searched on its own, so the rows do not depend on how the
  // threads share them out; a static schedule over the spatial order gives
  // each thread one compact stretch of the plane.
  // An exception must not leave a parallel region: it is carried out after it.
  bool outOfMemory = false;
#pragma omp parallel num_threads(static_cast <int>(block.m_columns.size()))
  {
    const auto t = static_cast<std::size_t>(omp_get_thread_num());
    Scratch s;
#pragma omp for schedule(static)
    for (std::int64_t k = 0; k < count; ++k) {
      const std::int64_t i = order[static_cast<std::size_t>(k)];
      try {
        RowInto(i, s);
        Keep(block, t, i - first, s);
      } catch (...) {
#pragma omp atomic write
        outOfMemory = true;
      }
    }
  }
  if (outOfMemory) throw std::bad_alloc();
}

void RowBuilder::FillSpatialBlock(std::int64_t first, Block& block) const {
  if (m_order.empty()) return FillBlock(first, block);
  const std::int64_t count = std::min(kBlockRows, m_count - first);
  StartBlock(first, count, block);
  block.m_features = m_order.data();
  // K nearest searches a leaf's features together; the other
  // conceptualizations search feature by feature along the same order.
  const bool nearest = m_info.Conceptualization == KNearestNeighbors && m_info.KNeighbors > 0;
  constexpr std::int64_t kChunk = 256;
  const std::int64_t chunks = (count + kChunk - 1) / kChunk;
  bool failed = false;
#pragma omp parallel num_threads(static_cast <int>(block.m_columns.size()))
  {
    const auto t = static_cast<std::size_t>(omp_get_thread_num());
    Scratch s;
#pragma omp for schedule(static)
    for (std::int64_t c = 0; c < chunks; ++c) {
      const std::int64_t from = first + c * kChunk, to = std::min(first + count, from + kChunk);
      try {
        if (nearest) {
          const auto keep = [&](std::size_t position, const std::size_t* found, const double* distances,
                                std::size_t n) {
            const std::int64_t i = m_order[position];
            s.columns.clear();
            s.weights.clear();
            KNearestColumns(i, found, distances, n, s);
            SortByColumn(s.columns, s.weights, s.sorted);
            Keep(block, t, static_cast<std::int64_t>(position) - first, s);
          };
          if (!m_tree->SearchSpatialRange(static_cast<std::size_t>(from), static_cast<std::size_t>(to),
                                          static_cast<std::size_t>(m_info.KNeighbors) + 1, m_method, keep))
            throw std::bad_alloc();
        } else {
          for (std::int64_t p = from; p < to; ++p) {
            RowInto(m_order[static_cast<std::size_t>(p)], s);
            Keep(block, t, p - first, s);
          }
        }
      } catch (...) {
#pragma omp atomic write
        failed = true;
      }
    }
  }
  if (failed) throw std::bad_alloc();
}

void RowBuilder::DistanceRow(std::int64_t i, Scratch& s) const {
  std::vector<std::size_t>& idx = s.idx;
  std::vector<double>& dist = s.dist;
  m_tree->SearchKdTreeDis2(To3D(m_points[static_cast<std::size_t>(i)]), m_band, idx, dist, m_method);
  for (std::size_t h = 0; h < idx.size(); ++h) {
    const auto j = static_cast<std::int64_t>(idx[h]);
    if (j == i) continue;
    const double d = dist[h];
    double w = 1.0;
    // Coincident features and distances below one unit keep weight 1:
    // inverting them would give weights that grow without bound.
    if (!(std::fabs(d) < kCoincident || d < 1.0)) {
      if (m_info.Conceptualization == InverseDistance)
        w = 1.0 / std::pow(d, m_info.Exponent);
      else if (m_info.Conceptualization == InverseDistanceSquared)
        w = 1.0 / std::pow(d * d, m_info.Exponent);
    }
    s.columns.push_back(j);
    s.weights.push_back(w);
  }
}

void RowBuilder::ZoneRow(std::int64_t i, Scratch& s) const {
  LumaArray<double> dist;
  spatial::DistancesTo(m_points, m_points[static_cast<std::size_t>(i)], m_method, dist);
  s.columns.reserve(static_cast<std::size_t>(m_count));
  s.weights.reserve(static_cast<std::size_t>(m_count));
  for (std::int64_t j = 0; j < m_count; ++j) {
    if (j == i) continue;
    const double d = dist[static_cast<std::size_t>(j)];
    s.columns.push_back(j);
    s.weights.push_back(d <= m_band ? 1.0 : 1.0 / std::pow(d + 1.0 - m_band, m_info.Exponent));
  }
}

void RowBuilder::KNearestRow(std::int64_t i, Scratch& s) const {
  const std::size_t k = static_cast<std::size_t>(std::max(m_info.KNeighbors, 0));
  // k + 1: the feature itself is among the points, at distance 0.
  const std::size_t found =
      m_tree->SearchKdTree(To3D(m_points[static_cast<std::size_t>(i)]), k + 1, s.idx, s.dist, m_method);
  KNearestColumns(i, s.idx.data(), s.dist.data(), found, s);
}

void RowBuilder::KNearestColumns(std::int64_t i, const std::size_t* idx, const double* dist, std::size_t found,
                                 Scratch& s) const {
  const std::size_t k = static_cast<std::size_t>(std::max(m_info.KNeighbors, 0));
  bool allCoincident = found >= k;
  for (std::size_t h = 0; h < k && h < found; ++h)
    if (!(dist[h] > -kCoincident && dist[h] < kCoincident)) allCoincident = false;
  if (allCoincident) {
    m_tree->SearchKdTreeDis2(To3D(m_points[static_cast<std::size_t>(i)]), 0.0, s.same, s.sameDist, m_method);
    const std::size_t others =
        s.same.size() - static_cast<std::size_t>(std::count(s.same.begin(), s.same.end(), static_cast<std::size_t>(i)));
    if (others > k) {
      for (std::size_t j : s.same)
        if (static_cast<std::int64_t>(j) != i) s.columns.push_back(static_cast<std::int64_t>(j));
      s.weights.assign(s.columns.size(), 1.0);
      return;
    }
  }
  for (std::size_t h = 0; h < found; ++h)
    if (static_cast<std::int64_t>(idx[h]) != i) s.columns.push_back(static_cast<std::int64_t>(idx[h]));
  s.weights.assign(s.columns.size(), 1.0);
}

}  // namespace ZOC::detail::weights
