#include "StatisticsAnalyst/detail/global/Incremental.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include <omp.h>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/global/Moran.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::global {

namespace {

constexpr std::int32_t kMaxBands = 50;

// Every feature's neighbours within the largest band, nearest first (ties by
// feature number, as the tree returns them): the neighbours of a smaller
// band are a prefix of each row.
struct Neighbours {
  std::vector<std::int64_t> offsets;  // row i is [offsets[i], offsets[i + 1])
  std::vector<std::int32_t> columns;
  std::vector<double> distances;

  std::int64_t CountWithin(std::int64_t i, double band) const {
    const auto first = distances.begin() + offsets[static_cast<std::size_t>(i)];
    const auto last = distances.begin() + offsets[static_cast<std::size_t>(i) + 1];
    return std::upper_bound(first, last, band) - first;
  }
};

LUMA::LumaPoint3D To3D(const LUMA::LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

// The rows within `band`: one radius search per feature, on every core, each
// row kept apart and then laid out in feature order.
Status FindNeighbours(const ZoKdTree& tree, const LumaArray<LUMA::LumaPoint2D>& points, double band,
                      ZoDistanceMethod method, CallProgress& progress, Neighbours& out) {
  const auto n = static_cast<std::int64_t>(points.size());
  out.offsets.assign(static_cast<std::size_t>(n) + 1, 0);
  out.columns.clear();
  out.distances.clear();
  constexpr std::int64_t kChunk = 1 << 15;
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb331) : LumaUnicodeString();
  std::vector<std::vector<std::size_t>> indices(static_cast<std::size_t>(std::min(n, kChunk)));
  std::vector<std::vector<double>> distances(indices.size());
  for (std::int64_t first = 0; first < n; first += kChunk) {
    if (!progress.Step(format, first, n)) return Status::Fail(msg::IMb030);
    const std::int64_t last = std::min(n, first + kChunk);
#pragma omp parallel for schedule(dynamic, 256)
    for (std::int64_t i = first; i < last; ++i) {
      const auto k = static_cast<std::size_t>(i - first);
      tree.SearchKdTreeDis2(To3D(points[static_cast<std::size_t>(i)]), band, indices[k], distances[k], method);
    }
    for (std::int64_t i = first; i < last; ++i) {
      const auto k = static_cast<std::size_t>(i - first);
      for (std::size_t h = 0; h < indices[k].size(); ++h) {
        if (static_cast<std::int64_t>(indices[k][h]) == i) continue;
        out.columns.push_back(static_cast<std::int32_t>(indices[k][h]));
        out.distances.push_back(distances[k][h]);
      }
      out.offsets[static_cast<std::size_t>(i) + 1] = static_cast<std::int64_t>(out.columns.size());
    }
  }
  return Status::Ok();
}

// Moran's I of one band. The rows are those the fixed distance band gives
// (columns ascending, weight 1, or 1/count when row-standardized, and the
// same for the transposed weight), summed exactly as the global statistic
// sums them.
Status BandMoran(const Neighbours& neighbours, const LumaArray<double>& values, double band, bool standardize,
                 ZoAnalyzingExponent& result) {
  const auto n = static_cast<std::int64_t>(values.size());
  std::vector<std::int64_t> counts(static_cast<std::size_t>(n));
#pragma omp parallel for schedule(static)
  for (std::int64_t i = 0; i < n; ++i) counts[static_cast<std::size_t>(i)] = neighbours.CountWithin(i, band);
  auto weightOf = [&](std::int64_t row) {
    return standardize ? 1.0 / static_cast<double>(counts[static_cast<std::size_t>(row)]) : 1.0;
  };
  auto fetch = [&](std::int64_t i, SparseRow& row) {
    const std::int64_t begin = neighbours.offsets[static_cast<std::size_t>(i)];
    const std::int64_t count = counts[static_cast<std::size_t>(i)];
    row.columns.assign(neighbours.columns.begin() + begin, neighbours.columns.begin() + begin + count);
    std::sort(row.columns.begin(), row.columns.end());
    row.weights.assign(static_cast<std::size_t>(count), count ? weightOf(i) : 0.0);
    row.transposed.resize(static_cast<std::size_t>(count));
    for (std::size_t k = 0; k < row.columns.size(); ++k) row.transposed[k] = weightOf(row.columns[k]);
  };
  MoranSums sums(values);
  FeedParallel(sums, n, fetch, [](std::int64_t) { return true; });
  // Column sums in row order, as the global statistic gathers them. A row
  // adds to each of its columns once, so the prefix needs no sorting here.
  std::vector<double>& columns = sums.Columns();
  for (std::int64_t i = 0; i < n; ++i) {
    const std::int64_t begin = neighbours.offsets[static_cast<std::size_t>(i)];
    const double w = weightOf(i);
    for (std::int64_t k = begin; k < begin + counts[static_cast<std::size_t>(i)]; ++k)
      columns[static_cast<std::size_t>(neighbours.columns[static_cast<std::size_t>(k)])] += w;
  }
  return sums.Finish(result);
}

}  // namespace

void FindPeaks(ZoIncrementalResult& result) {
  result.FirstPeak = result.MaxPeak = -1;
  const auto& b = result.Bands;
  for (std::size_t k = 1; k + 1 < b.size(); ++k) {
    if (!b[k].Valid || !b[k - 1].Valid || !b[k + 1].Valid) continue;
    const double z = b[k].Moran.ZScore;
    if (!(z > b[k - 1].Moran.ZScore && z > b[k + 1].Moran.ZScore)) continue;
    if (result.FirstPeak < 0) result.FirstPeak = static_cast<std::int32_t>(k);
    if (result.MaxPeak < 0 || z > b[static_cast<std::size_t>(result.MaxPeak)].Moran.ZScore)
      result.MaxPeak = static_cast<std::int32_t>(k);
  }
}

Status Incremental(ZoRecordset* records, const ZoIncrementalInformation& info, CallProgress& progress,
                   ZoIncrementalResult& result) {
  if (info.Bands < 1 || info.Bands > kMaxBands) return Status::Fail(msg::ESa081);
  if (!std::isfinite(info.BeginDistance) || info.BeginDistance < 0.0 || !std::isfinite(info.Increment) ||
      info.Increment < 0.0)
    return Status::Fail(msg::ESa082);
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb392));
  }
  LumaArray<double> values, none;
  LumaArray<LUMA::LumaPoint2D> points;
  Status pointsStatus;
  if (Status s = ReadFeatures(records, info.FieldName, false, values, {}, none, &points, pointsStatus); !s) return s;
  if (!pointsStatus) return pointsStatus.Then(msg::ESa008);
  ScaleToUnitRange(values);
  const ZoPrjCoordSys& cs = records->GetDataset()->GetPrjCoordSys();
  if (!cs.Forward(points)) return Status::Fail(msg::ESa060);
  const ZoDistanceMethod method = spatial::EffectiveMethod(info.DistanceMethod, cs);
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status s = spatial::BuildTree(buffer, points, tree); !s) return s;

  ZoIncrementalResult out;
  double largestNearest = 0.0, meanNearest = 0.0;
  if (info.BeginDistance <= 0.0 || info.Increment <= 0.0)
    spatial::NearestNeighbourSummary(*tree, points.size(), method, largestNearest, meanNearest);
  out.DefaultBegin = !(info.BeginDistance > 0.0);
  out.DefaultIncrement = !(info.Increment > 0.0);
  out.BeginDistance = out.DefaultBegin ? largestNearest : info.BeginDistance;
  out.Increment = out.DefaultIncrement ? meanNearest : info.Increment;
  if (!(out.Increment > 0.0)) return Status::Fail(msg::ESa083);

  out.Bands.resize(static_cast<std::size_t>(info.Bands));
  for (std::size_t b = 0; b < out.Bands.size(); ++b)
    out.Bands[b].Distance = out.BeginDistance + static_cast<double>(b) * out.Increment;
  Neighbours neighbours;
  if (Status s = FindNeighbours(*tree, points, out.Bands.back().Distance, method, progress, neighbours); !s) return s;
  tree.reset();

  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb393) : LumaUnicodeString();
  bool any = false;
  const auto count = static_cast<long long>(out.Bands.size());
  for (std::size_t b = 0; b < out.Bands.size(); ++b) {
    if (!progress.Step(format, static_cast<long long>(b), count)) return Status::Fail(msg::IMb030);
    ZoIncrementalBand& band = out.Bands[b];
    band.Valid = static_cast<bool>(BandMoran(neighbours, values, band.Distance, info.Standardization, band.Moran));
    any = any || band.Valid;
  }
  if (!any) return Status::Fail(msg::ESa084);
  FindPeaks(out);
  result = std::move(out);
  return Status::Ok();
}

}  // namespace ZOC::detail::global
