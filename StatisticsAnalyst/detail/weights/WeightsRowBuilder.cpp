#include "StatisticsAnalyst/detail/weights/WeightsRowBuilder.h"

#include "StatisticsAnalyst/detail/common/SpatialOrder.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numeric>
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace {

using limits::kCoincident;

LumaPoint3D To3D(const LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

// Orders a row's neighbours by feature number, weights alongside.
void SortByColumn(std::vector<std::int64_t>& columns, std::vector<double>& weights) {
  if (std::is_sorted(columns.begin(), columns.end())) return;
  std::vector<std::size_t> order(columns.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return columns[a] < columns[b]; });
  std::vector<std::int64_t> c(columns.size());
  std::vector<double> w(weights.size());
  for (std::size_t k = 0; k < order.size(); ++k) {
    c[k] = columns[order[k]];
    w[k] = weights[order[k]];
  }
  columns.swap(c);
  weights.swap(w);
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
  columns.clear();
  weights.clear();
  switch (m_info.Conceptualization) {
    case InverseDistance:
    case InverseDistanceSquared:
    case FixedDistanceBand: DistanceRow(i, columns, weights); break;
    case ZoneOfIndifference: ZoneRow(i, columns, weights); break;
    case ContiguityEdgesOnly:
    case ContiguityEdgesCorners: {
      LumaArray<std::int64_t> ids;
      ids.clear();
      ZoStatisticsUtilities::GetContiguityIDs(m_grid, i, m_info.Conceptualization == ContiguityEdgesOnly, ids);
      columns.assign(ids.begin(), ids.end());
      weights.assign(ids.size(), 1.0);
      break;
    }
    case KNearestNeighbors: KNearestRow(i, columns, weights); break;
    default: break;
  }
  SortByColumn(columns, weights);
}

void ZoWeightsRowBuilder::FillBlock(std::int64_t first, std::int64_t count, Block& block) const {
  block.m_first = first;
  block.m_spans.assign(static_cast<std::size_t>(count), {0, 0});
  block.m_columns.clear();
  block.m_weights.clear();
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
  std::vector<std::vector<std::int64_t>> columns(static_cast<std::size_t>(count));
  std::vector<std::vector<double>> weights(static_cast<std::size_t>(count));
  // An exception must not leave a parallel region: it is carried out after it.
  bool outOfMemory = false;
#pragma omp parallel for schedule(static)
  for (std::int64_t k = 0; k < count; ++k) {
    const auto r = static_cast<std::size_t>(order[static_cast<std::size_t>(k)] - first);
    try {
      Row(order[static_cast<std::size_t>(k)], columns[r], weights[r]);
    } catch (...) {
#pragma omp atomic write
      outOfMemory = true;
    }
  }
  if (outOfMemory) throw std::bad_alloc();
  for (std::int64_t i : order) {
    const auto r = static_cast<std::size_t>(i - first);
    block.m_spans[r] = {block.m_columns.size(), columns[r].size()};
    block.m_columns.insert(block.m_columns.end(), columns[r].begin(), columns[r].end());
    block.m_weights.insert(block.m_weights.end(), weights[r].begin(), weights[r].end());
  }
}

void ZoWeightsRowBuilder::DistanceRow(std::int64_t i, std::vector<std::int64_t>& columns,
                                      std::vector<double>& weights) const {
  std::vector<std::size_t> idx;
  std::vector<double> dist;
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
    columns.push_back(j);
    weights.push_back(w);
  }
}

void ZoWeightsRowBuilder::ZoneRow(std::int64_t i, std::vector<std::int64_t>& columns,
                                  std::vector<double>& weights) const {
  LumaArray<double> dist;
  ZoStatisticsUtilities::CalculateDistance(m_points, m_points[static_cast<std::size_t>(i)], m_method, dist);
  columns.reserve(static_cast<std::size_t>(m_count));
  weights.reserve(static_cast<std::size_t>(m_count));
  for (std::int64_t j = 0; j < m_count; ++j) {
    if (j == i) continue;
    const double d = dist[static_cast<std::size_t>(j)];
    columns.push_back(j);
    weights.push_back(d <= m_band ? 1.0 : 1.0 / std::pow(d + 1.0 - m_band, m_info.Exponent));
  }
}

void ZoWeightsRowBuilder::KNearestRow(std::int64_t i, std::vector<std::int64_t>& columns,
                                      std::vector<double>& weights) const {
  std::vector<std::size_t> idx, same;
  std::vector<double> dist, sameDist;
  const std::size_t k = static_cast<std::size_t>(std::max(m_info.KNeighbors, 0));
  const LumaPoint3D q = To3D(m_points[static_cast<std::size_t>(i)]);
  // k + 1: the feature itself is among the points, at distance 0.
  const std::size_t found = m_tree->SearchKdTree(q, k + 1, idx, dist, m_method);
  bool allCoincident = found >= k;
  for (std::size_t h = 0; h < k && h < found; ++h)
    if (!(dist[h] > -kCoincident && dist[h] < kCoincident)) allCoincident = false;
  if (allCoincident) {
    m_tree->SearchKdTreeDis2(q, 0.0, same, sameDist, m_method);
    const std::size_t others =
        same.size() - static_cast<std::size_t>(std::count(same.begin(), same.end(), static_cast<std::size_t>(i)));
    if (others > k) {
      for (std::size_t j : same)
        if (static_cast<std::int64_t>(j) != i) columns.push_back(static_cast<std::int64_t>(j));
      weights.assign(columns.size(), 1.0);
      return;
    }
  }
  for (std::size_t h = 0; h < found; ++h)
    if (static_cast<std::int64_t>(idx[h]) != i) columns.push_back(static_cast<std::int64_t>(idx[h]));
  weights.assign(columns.size(), 1.0);
}

}  // namespace ZOC
