#include "StatisticsAnalyst/detail/weights/WeightsRowBuilder.h"

#include "StatisticsAnalyst/detail/common/SpatialOrder.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numeric>

#include <omp.h>
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace {

using limits::kCoincident;

LumaPoint3D To3D(const LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

// Orders a row's neighbours by feature number, weights alongside.
void SortByColumn(std::vector<std::int64_t>& columns, std::vector<double>& weights,
                  std::vector<std::pair<std::int64_t, double>>& pairs) {
  if (std::is_sorted(columns.begin(), columns.end())) return;
  pairs.clear();
  for (std::size_t k = 0; k < columns.size(); ++k) pairs.emplace_back(columns[k], weights[k]);
  // Columns are distinct, so the weights never decide the order.
  std::sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t k = 0; k < pairs.size(); ++k) columns[k] = pairs[k].first, weights[k] = pairs[k].second;
}

}  // namespace

bool ZoWeightsRowBuilder::Prepare(ZoRecordset* records, const ZoPatternsInformation& info) {
  m_info = info;
  m_count = records->GetRecordCount();
  try {
    if (info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners)
      return m_utilities.BuildContiguityGird(records, m_grid);  // adds its own message
    LumaArray<LumaPoint2D> points;
    if (!m_utilities.PickUpBaryCenters(records, points)) {
      m_failedId = msg::ESa008;
      return false;
    }
    return PrepareFromPoints(std::move(points), records->GetDataset()->GetPrjCoordSys(), info);
  } catch (const std::bad_alloc&) {
    m_failedId = msg::EUb002;
    return false;
  }
}

bool ZoWeightsRowBuilder::PrepareFromPoints(LumaArray<LumaPoint2D> points, const ZoPrjCoordSys& cs,
                                            const ZoPatternsInformation& info) {
  m_info = info;
  m_count = static_cast<std::int64_t>(points.size());
  m_points = std::move(points);
  if (!ZoStatisticsUtilities::Forward(m_points, cs)) {
    m_failedId = msg::ESa060;
    return false;
  }
  m_method = ZoStatisticsUtilities::ValidateDistanceMethod(info.DistanceMethod, cs);
  return PrepareSearch();
}

bool ZoWeightsRowBuilder::PrepareSearch() {
  m_tree.reset(m_utilities.CreateKDTree(&m_buffer, m_points));
  if (!m_tree) return false;  // the utilities already hold "ESa032"
  m_keys = SpatialKeys(m_points);
  if (m_info.Conceptualization != KNearestNeighbors)
    m_band = m_utilities.CalculateTolerance(m_tree.get(), m_points, m_info.DistanceTolerance, m_method);
  return true;
}

void ZoWeightsRowBuilder::Row(std::int64_t i, std::vector<std::int64_t>& columns, std::vector<double>& weights) const {
  Scratch s;
  RowInto(i, s);
  columns.swap(s.columns);
  weights.swap(s.weights);
}

void ZoWeightsRowBuilder::RowInto(std::int64_t i, Scratch& s) const {
  s.columns.clear();
  s.weights.clear();
  switch (m_info.Conceptualization) {
    case InverseDistance:
    case InverseDistanceSquared:
    case FixedDistanceBand: DistanceRow(i, s); break;
    case ZoneOfIndifference: ZoneRow(i, s); break;
    case ContiguityEdgesOnly:
    case ContiguityEdgesCorners: {
      LumaArray<std::int64_t> ids;
      ZoStatisticsUtilities::GetContiguityIDs(m_grid, i, m_info.Conceptualization == ContiguityEdgesOnly, ids);
      s.columns.assign(ids.begin(), ids.end());
      s.weights.assign(ids.size(), 1.0);
      break;
    }
    case KNearestNeighbors: KNearestRow(i, s); break;
    default: break;
  }
  SortByColumn(s.columns, s.weights, s.sorted);
}

std::vector<std::int64_t> ZoWeightsRowBuilder::SpatialOrder() const {
  std::vector<std::int64_t> order(m_keys.size());
  std::iota(order.begin(), order.end(), std::int64_t{0});
  std::sort(order.begin(), order.end(), [this](std::int64_t a, std::int64_t b) {
    const auto ka = m_keys[static_cast<std::size_t>(a)], kb = m_keys[static_cast<std::size_t>(b)];
    return ka < kb || (ka == kb && a < b);
  });
  return order;
}

void ZoWeightsRowBuilder::FillBlock(std::int64_t first, std::int64_t count, Block& block) const {
  block.m_first = first;
  block.m_spans.assign(static_cast<std::size_t>(count), {});
  std::vector<std::int64_t> order(static_cast<std::size_t>(count));
  std::iota(order.begin(), order.end(), first);
  if (!m_keys.empty())
    std::sort(order.begin(), order.end(), [this](std::int64_t a, std::int64_t b) {
      const auto ka = m_keys[static_cast<std::size_t>(a)], kb = m_keys[static_cast<std::size_t>(b)];
      return ka < kb || (ka == kb && a < b);
    });
  // Each row is searched on its own, so the rows do not depend on how the
  // threads share them out; a static schedule over the spatial order gives
  // each thread one compact stretch of the plane.
  const auto parts = static_cast<std::size_t>(std::max(omp_get_max_threads(), 1));
  block.m_columns.resize(parts);
  block.m_weights.resize(parts);
  for (std::size_t t = 0; t < parts; ++t) block.m_columns[t].clear(), block.m_weights[t].clear();
  // An exception must not leave a parallel region: it is carried out after it.
  bool outOfMemory = false;
#pragma omp parallel num_threads(static_cast <int>(parts))
  {
    const auto t = static_cast<std::size_t>(omp_get_thread_num());
    Scratch s;
#pragma omp for schedule(static)
    for (std::int64_t k = 0; k < count; ++k) {
      const std::int64_t i = order[static_cast<std::size_t>(k)];
      try {
        RowInto(i, s);
        Block::Span& span = block.m_spans[static_cast<std::size_t>(i - first)];
        span = {t, block.m_columns[t].size(), s.columns.size()};
        block.m_columns[t].insert(block.m_columns[t].end(), s.columns.begin(), s.columns.end());
        block.m_weights[t].insert(block.m_weights[t].end(), s.weights.begin(), s.weights.end());
      } catch (...) {
#pragma omp atomic write
        outOfMemory = true;
      }
    }
  }
  if (outOfMemory) throw std::bad_alloc();
}

void ZoWeightsRowBuilder::DistanceRow(std::int64_t i, Scratch& s) const {
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

void ZoWeightsRowBuilder::ZoneRow(std::int64_t i, Scratch& s) const {
  LumaArray<double> dist;
  ZoStatisticsUtilities::CalculateDistance(m_points, m_points[static_cast<std::size_t>(i)], m_method, dist);
  s.columns.reserve(static_cast<std::size_t>(m_count));
  s.weights.reserve(static_cast<std::size_t>(m_count));
  for (std::int64_t j = 0; j < m_count; ++j) {
    if (j == i) continue;
    const double d = dist[static_cast<std::size_t>(j)];
    s.columns.push_back(j);
    s.weights.push_back(d <= m_band ? 1.0 : 1.0 / std::pow(d + 1.0 - m_band, m_info.Exponent));
  }
}

void ZoWeightsRowBuilder::KNearestRow(std::int64_t i, Scratch& s) const {
  const std::size_t k = static_cast<std::size_t>(std::max(m_info.KNeighbors, 0));
  const LumaPoint3D q = To3D(m_points[static_cast<std::size_t>(i)]);
  // k + 1: the feature itself is among the points, at distance 0.
  const std::size_t found = m_tree->SearchKdTree(q, k + 1, s.idx, s.dist, m_method);
  bool allCoincident = found >= k;
  for (std::size_t h = 0; h < k && h < found; ++h)
    if (!(s.dist[h] > -kCoincident && s.dist[h] < kCoincident)) allCoincident = false;
  if (allCoincident) {
    m_tree->SearchKdTreeDis2(q, 0.0, s.same, s.sameDist, m_method);
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
    if (static_cast<std::int64_t>(s.idx[h]) != i) s.columns.push_back(static_cast<std::int64_t>(s.idx[h]));
  s.weights.assign(s.columns.size(), 1.0);
}

}  // namespace ZOC
