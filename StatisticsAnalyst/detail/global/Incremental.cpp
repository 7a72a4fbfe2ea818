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

// Every feature's neighbours within the largest band, each with the first
// band it belongs to. A band's row is the entries whose first band is at
// most that band; rows are kept by column, which is the order in which the
// fixed distance band's rows are summed, so filtering a row keeps each
// band's order.
struct BandNeighbours {
  std::size_t bands = 0;
  std::vector<std::int64_t> offsets;  // row i is [offsets[i], offsets[i + 1])
  std::vector<std::int32_t> columns;
  std::vector<std::uint8_t> firstBand;
  std::vector<std::int32_t> counts;  // counts[i * bands + b]: row i's neighbours within band b

  const std::int32_t* Counts(std::int64_t i) const { return counts.data() + static_cast<std::size_t>(i) * bands; }
};

LUMA::LumaPoint3D To3D(const LUMA::LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

// The rows within the largest band: one radius search per feature, on every
// core, each row sorted by column and counted per band apart, then laid out
// in feature order. A neighbour belongs to the bands whose distance it does
// not exceed, as the fixed distance band decides.
Status FindNeighbours(const ZoKdTree& tree, const LumaArray<LUMA::LumaPoint2D>& points,
                      const std::vector<double>& distances, ZoDistanceMethod method, CallProgress& progress,
                      BandNeighbours& out) {
  const auto n = static_cast<std::int64_t>(points.size());
  const std::size_t bands = distances.size();
  out.bands = bands;
  out.offsets.assign(static_cast<std::size_t>(n) + 1, 0);
  out.columns.clear();
  out.firstBand.clear();
  out.counts.assign(static_cast<std::size_t>(n) * bands, 0);
  constexpr std::int64_t kChunk = 1 << 15;
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb331) : LumaUnicodeString();
  // An entry is its column above its first band, so sorting the numbers
  // sorts the row by column.
  using Entry = std::uint64_t;
  std::vector<std::vector<Entry>> rows(static_cast<std::size_t>(std::min(n, kChunk)));
  for (std::int64_t first = 0; first < n; first += kChunk) {
    if (!progress.Step(format, first, n)) return Status::Fail(msg::IMb030);
    const std::int64_t last = std::min(n, first + kChunk);
#pragma omp parallel
    {
      std::vector<std::size_t> found;
      std::vector<double> foundDistances;
#pragma omp for schedule(dynamic, 256)
      for (std::int64_t i = first; i < last; ++i) {
        std::vector<Entry>& row = rows[static_cast<std::size_t>(i - first)];
        row.clear();
        tree.SearchKdTreeDis2(To3D(points[static_cast<std::size_t>(i)]), distances.back(), found, foundDistances,
                              method);
        std::int32_t* counts = out.counts.data() + static_cast<std::size_t>(i) * bands;
        for (std::size_t h = 0; h < found.size(); ++h) {
          const auto band = static_cast<std::size_t>(
              std::lower_bound(distances.begin(), distances.end(), foundDistances[h]) - distances.begin());
          if (static_cast<std::int64_t>(found[h]) == i || band == bands) continue;
          row.push_back(static_cast<Entry>(found[h]) << 8 | band);
          ++counts[band];
        }
        for (std::size_t b = 1; b < bands; ++b) counts[b] += counts[b - 1];
        std::sort(row.begin(), row.end());
      }
    }
    for (std::int64_t i = first; i < last; ++i) {
      for (const Entry e : rows[static_cast<std::size_t>(i - first)]) {
        out.columns.push_back(static_cast<std::int32_t>(e >> 8));
        out.firstBand.push_back(static_cast<std::uint8_t>(e & 0xff));
      }
      out.offsets[static_cast<std::size_t>(i) + 1] = static_cast<std::int64_t>(out.columns.size());
    }
  }
  return Status::Ok();
}

// Moran's I of every band in one sweep over the rows. Each band's sums take
// exactly the terms, in exactly the order and blocks, that the global
// statistic takes from the fixed distance band's rows at that distance
// (weight 1, or 1/count when row-standardized, and the same for the
// transposed weight), so every band has its bits. Distances are symmetric:
// j is in row i exactly when i is in row j, so row i's transposed weights,
// taken by column, are what the rows add to column i in row order, and each
// column sum comes from its own row without a pass of its own.
Status SweepBands(const BandNeighbours& neighbours, const std::vector<double>& d, bool standardize,
                  CallProgress& progress, std::vector<ZoIncrementalBand>& out) {
  const auto n = static_cast<std::int64_t>(d.size());
  const std::size_t bands = neighbours.bands;
  using Block = MoranSums::Block;
  std::vector<double> rows(static_cast<std::size_t>(n) * bands), columns(rows.size());
  std::vector<Block> totals(bands);
  auto weights = [&](std::int64_t i, std::vector<double>& w) {
    const std::int32_t* counts = neighbours.Counts(i);
    for (std::size_t b = 0; b < bands; ++b) w[b] = standardize ? 1.0 / static_cast<double>(counts[b]) : 1.0;
  };
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb393) : LumaUnicodeString();
  constexpr std::int64_t kChunk = 64 * kSumBlock;
  for (std::int64_t first = 0; first < n; first += kChunk) {
    if (!progress.Step(format, first, n)) return Status::Fail(msg::IMb030);
    const std::int64_t last = std::min(n, first + kChunk);
    const std::int64_t blocks = (last - first + kSumBlock - 1) / kSumBlock;
    std::vector<Block> parts(static_cast<std::size_t>(blocks) * bands);
#pragma omp parallel
    {
      std::vector<double> lag(bands), rowSum(bands), columnSum(bands), w(bands), s1(bands);
#pragma omp for schedule(dynamic)
      for (std::int64_t block = 0; block < blocks; ++block) {
        Block* part = parts.data() + static_cast<std::size_t>(block) * bands;
        const std::int64_t end = std::min(last, first + (block + 1) * kSumBlock);
        for (std::int64_t i = first + block * kSumBlock; i < end; ++i) {
          std::fill(lag.begin(), lag.end(), 0.0);
          std::fill(rowSum.begin(), rowSum.end(), 0.0);
          std::fill(columnSum.begin(), columnSum.end(), 0.0);
          std::fill(s1.begin(), s1.end(), 0.0);
          const std::int64_t begin = neighbours.offsets[static_cast<std::size_t>(i)];
          const std::int64_t stop = neighbours.offsets[static_cast<std::size_t>(i) + 1];
          if (standardize) {
            weights(i, w);
            for (std::int64_t k = begin; k < stop; ++k) {
              const auto j = static_cast<std::size_t>(neighbours.columns[static_cast<std::size_t>(k)]);
              const std::int32_t* counts = neighbours.Counts(static_cast<std::int64_t>(j));
              for (std::size_t b = neighbours.firstBand[static_cast<std::size_t>(k)]; b < bands; ++b) {
                const double transposed = 1.0 / static_cast<double>(counts[b]);
                s1[b] += w[b] * w[b] + w[b] * transposed;
                rowSum[b] += w[b];
                columnSum[b] += transposed;
                lag[b] += w[b] * d[j];
              }
            }
          } else {
            // Weights of 1: the sums of ones and twos are whole numbers,
            // exact in any order, so they come from the counts; only the
            // lag needs every neighbour, in column order.
            for (std::int64_t k = begin; k < stop; ++k) {
              const double dj = d[static_cast<std::size_t>(neighbours.columns[static_cast<std::size_t>(k)])];
              for (std::size_t b = neighbours.firstBand[static_cast<std::size_t>(k)]; b < bands; ++b) lag[b] += dj;
            }
            const std::int32_t* counts = neighbours.Counts(i);
            for (std::size_t b = 0; b < bands; ++b) {
              const auto c = static_cast<double>(counts[b]);
              s1[b] = 2.0 * c;
              rowSum[b] = columnSum[b] = c;
            }
          }
          for (std::size_t b = 0; b < bands; ++b) {
            rows[static_cast<std::size_t>(i) * bands + b] = rowSum[b];
            columns[static_cast<std::size_t>(i) * bands + b] = columnSum[b];
            // The row's terms as MoranRowTerms forms them for a fixed band.
            part[b].Add(MoranRow{rowSum[b], s1[b], lag[b]}, d[static_cast<std::size_t>(i)]);
          }
        }
      }
    }
    for (std::int64_t block = 0; block < blocks; ++block)
      for (std::size_t b = 0; b < bands; ++b) {
        totals[b].Add(parts[static_cast<std::size_t>(block) * bands + b]);
      }
  }
  std::vector<double> bandRows(static_cast<std::size_t>(n)), bandColumns(static_cast<std::size_t>(n));
  for (std::size_t b = 0; b < bands; ++b) {
    for (std::size_t i = 0; i < bandRows.size(); ++i) {
      bandRows[i] = rows[i * bands + b];
      bandColumns[i] = columns[i * bands + b];
    }
    out[b].Valid = static_cast<bool>(FinishMoran(d, bandRows, bandColumns, totals[b].Value(), out[b].Moran));
  }
  return Status::Ok();
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
                   ZoIncrementalResult& result, SetAsideRule setAside, IncrementalPoints* points) {
  if (info.Bands < 1 || info.Bands > kMaxBands) return Status::Fail(msg::ESa081);
  if (!std::isfinite(info.BeginDistance) || info.BeginDistance < 0.0 || !std::isfinite(info.Increment) ||
      info.Increment < 0.0)
    return Status::Fail(msg::ESa082);
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb392));
  }
  LumaArray<double> values, none;
  IncrementalPoints seen;
  LumaArray<LUMA::LumaPoint2D>& planar = seen.planar;
  Status pointsStatus;
  if (Status s = ReadFeatures(records, info.FieldName, false, values, {}, none, &planar, pointsStatus); !s) return s;
  if (!pointsStatus) return pointsStatus.Then(msg::ESa008);
  // Constant values have no autocorrelation at any distance; say so once
  // rather than as a series of invalid bands.
  if (std::all_of(values.begin(), values.end(), [&](double v) { return v == values.front(); }))
    return Status::Fail(msg::ESa021);
  ScaleToUnitRange(values);
  const ZoPrjCoordSys& cs = records->GetDataset()->GetPrjCoordSys();
  if (!cs.Forward(planar)) return Status::Fail(msg::ESa060);
  const ZoDistanceMethod method = spatial::EffectiveMethod(info.DistanceMethod, cs);
  if (setAside) seen.setAside = setAside(planar, method);
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status s = spatial::BuildTree(buffer, planar, tree); !s) return s;

  ZoIncrementalResult out;
  double largestNearest = 0.0, meanNearest = 0.0;
  if (info.BeginDistance <= 0.0 || info.Increment <= 0.0)
    spatial::NearestNeighbourSummary(*tree, planar.size(), method, largestNearest, meanNearest,
                                     setAside ? &seen.setAside : nullptr);
  out.DefaultBegin = !(info.BeginDistance > 0.0);
  out.DefaultIncrement = !(info.Increment > 0.0);
  out.BeginDistance = out.DefaultBegin ? largestNearest : info.BeginDistance;
  out.Increment = out.DefaultIncrement ? meanNearest : info.Increment;
  if (!(out.Increment > 0.0)) return Status::Fail(msg::ESa083);

  out.Bands.resize(static_cast<std::size_t>(info.Bands));
  for (std::size_t b = 0; b < out.Bands.size(); ++b)
    out.Bands[b].Distance = out.BeginDistance + static_cast<double>(b) * out.Increment;
  std::vector<double> distances(out.Bands.size());
  for (std::size_t b = 0; b < out.Bands.size(); ++b) distances[b] = out.Bands[b].Distance;
  BandNeighbours neighbours;
  if (Status s = FindNeighbours(*tree, planar, distances, method, progress, neighbours); !s) return s;
  tree.reset();
  if (Status s = SweepBands(neighbours, MoranSums::Deviations(values), info.Standardization, progress, out.Bands); !s)
    return s;
  if (std::none_of(out.Bands.begin(), out.Bands.end(), [](const ZoIncrementalBand& b) { return b.Valid; }))
    return Status::Fail(msg::ESa084);
  FindPeaks(out);
  result = std::move(out);
  if (points) *points = std::move(seen);
  return Status::Ok();
}

}  // namespace ZOC::detail::global
