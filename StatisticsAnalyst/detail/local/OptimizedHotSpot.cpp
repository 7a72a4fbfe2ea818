#include "StatisticsAnalyst/detail/local/OptimizedHotSpot.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "StatisticsAnalyst/detail/aggregation/FishnetGrid.h"
#include "StatisticsAnalyst/detail/aggregation/IntegrateIncidents.h"
#include "StatisticsAnalyst/detail/aggregation/LocationalOutliers.h"
#include "StatisticsAnalyst/detail/aggregation/PolygonCounts.h"
#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/global/Incremental.h"
#include "StatisticsAnalyst/detail/local/HotSpot.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoDataSource.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoQueryDef.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::local {

namespace {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;
using LUMA::LumaUnicodeString;

// Moran's I and Gi* need four features; fewer is no pattern at all.
constexpr std::size_t kMinimumFeatures = 4;
constexpr std::int32_t kBands = 10;

LumaUnicodeString Number(std::int64_t n) { return LumaUnicodeString(std::to_string(n).c_str()); }

std::int64_t Flagged(const std::vector<char>& flags) { return std::count(flags.begin(), flags.end(), 1); }

// Incidents are aggregated in a plane: as they are for planar data, and
// projected about their centre on the globe (in metres) for geographic
// data, the aggregated features going back to the dataset's coordinates.
class Plane {
 public:
  Status Open(const ZoPrjCoordSys& cs, const LumaArray<LumaPoint2D>& points) {
    m_cs = &cs;
    m_geographic = cs.GetTypeID() == ZoPrjCoordSys::Geographic;
    if (m_geographic && !cs.SphericalCentre(points, m_centre)) return Status::Fail(msg::ESa060);
    return Status::Ok();
  }
  Status Forward(LumaArray<LumaPoint2D>& points) const {
    const bool ok = !m_geographic || m_cs->ForwardAbout(m_centre, points.data(), points.size());
    return ok ? Status::Ok() : Status::Fail(msg::ESa060);
  }
  Status Inverse(LumaArray<LumaPoint2D>& points) const {
    const bool ok = !m_geographic || m_cs->InverseAbout(m_centre, points.data(), points.size());
    return ok ? Status::Ok() : Status::Fail(msg::ESa060);
  }

 private:
  const ZoPrjCoordSys* m_cs = nullptr;
  bool m_geographic = false;
  LumaPoint2D m_centre;
};

// The aggregated features with their counts, in a memory dataset that the
// scale search and Gi* read as they read any layer.
struct AggregatedLayer {
  std::unique_ptr<ZoDataSource> source;
  ZoDatasetVector* dataset = nullptr;
  LumaUnicodeString countField;
};

using FeatureAt = std::function<ZoGeometry(std::size_t)>;

Status WriteLayer(int type, const ZoPrjCoordSys& cs, const std::vector<std::int64_t>& counts,
                  const FeatureAt& geometryOf, CallProgress& progress, AggregatedLayer& out) {
  out.source = ZoDataSource::CreateMemory("aggregated");
  out.dataset = out.source ? out.source->CreateDatasetVector("aggregated", type, cs) : nullptr;
  if (!out.dataset) return Status::Fail(msg::ELc071);
  LUMA::LumaFieldInfos fields{LUMA::LumaFieldInfo("Count", LUMA::FieldInt32)};
  if (!ZoEngineToolkit::CreateValidFields(out.dataset, fields) || fields.size() != 1) return Status::Fail(msg::ELc071);
  out.countField = fields[0].GetName();
  ZoRecordsetPtr records(out.dataset->Query(ZoQueryDef()));
  if (!records) return Status::Fail(msg::EKa013);
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb395) : LumaUnicodeString();
  const auto n = static_cast<std::int64_t>(counts.size());
  for (std::int64_t k = 0; k < n; ++k) {
    if (k % 4096 == 0 && !progress.Step(format, k, n)) return Status::Fail(msg::IMb030);
    const auto count = static_cast<int>(counts[static_cast<std::size_t>(k)]);
    if (!records->AddNew(geometryOf(static_cast<std::size_t>(k))) ||
        !records->SetFieldValue(out.countField, LUMA::LumaVariant(count)) || !records->Update()) {
      records->CancelUpdate();
      return Status::Fail(msg::ELc071);
    }
  }
  records.reset();
  return out.dataset->Commit() ? Status::Ok() : Status::Fail(msg::ELc071);
}

// Every record's point and nothing else, in one column read.
Status ReadPoints(ZoDatasetVector* dataset, LumaArray<LumaPoint2D>& points) {
  ZoRecordsetPtr records;
  if (Status s = QueryOrderedBy(dataset, kSystemIdField, records); !s) return s;
  LumaArray<double> ids, none;
  Status pointsStatus;
  if (Status s = ReadFeatures(records.get(), kSystemIdField, false, ids, {}, none, &points, pointsStatus); !s) return s;
  return pointsStatus;
}

Status ReadPolygons(const ZoOptimizedInformation& info, const ZoPrjCoordSys& cs, std::vector<ZoGeometry>& polygons) {
  ZoDatasetVector* dataset = info.Polygons;
  if (!dataset || (!dataset->IsOpen() && !dataset->Open()) || dataset->GetType() != DatasetRegion)
    return Status::Fail(msg::ESa092);
  if (!dataset->GetPrjCoordSys().IsSame(cs)) return Status::Fail(msg::ESa093);
  ZoRecordsetPtr records;
  if (Status s = QueryOrderedBy(dataset, kSystemIdField, records); !s) return s;
  polygons.clear();
  ZoGeometry geometry;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    if (!records->GetGeometry(geometry)) return Status::Fail(msg::EKa013);
    polygons.push_back(geometry);
  }
  return Status::Ok();
}

// Grid cells as regions, their corners taken back to the dataset's
// coordinates in one projection call.
Status WriteGrid(const aggregation::FishnetCounts& grid, const Plane& plane, const ZoPrjCoordSys& cs,
                 CallProgress& progress, AggregatedLayer& layer) {
  std::vector<std::int64_t> counts(grid.cells.size());
  LumaArray<LumaPoint2D> corners;
  LumaArray<int> ringCounts;
  for (std::size_t k = 0; k < grid.cells.size(); ++k) {
    counts[k] = grid.cells[k].count;
    const ZoGeometry square = grid.CellPolygon(grid.cells[k]);
    corners.insert(corners.end(), square.GetPoints().begin(), square.GetPoints().end());
    ringCounts.push_back(static_cast<int>(square.GetPoints().size()));
  }
  if (Status s = plane.Inverse(corners); !s) return s;
  std::size_t first = 0;
  return WriteLayer(
      DatasetRegion, cs, counts,
      [&](std::size_t k) {
        const auto size = static_cast<std::size_t>(ringCounts[k]);
        LumaArray<LumaPoint2D> ring(corners.begin() + static_cast<std::ptrdiff_t>(first),
                                    corners.begin() + static_cast<std::ptrdiff_t>(first + size));
        first += size;
        return ZoGeometry::MakeRegion(std::move(ring), {static_cast<int>(size)});
      },
      progress, layer);
}

// A size the caller gave, or the default `derive` finds in the spacing of
// the incidents that are not outliers.
using DefaultSize = Status (*)(const LumaArray<LumaPoint2D>&, const std::vector<char>&, ZoDistanceMethod, double&);
Status GivenOrDefault(const std::optional<double>& given, DefaultSize derive, const LumaArray<LumaPoint2D>& planar,
                      const std::vector<char>& outliers, ZoDistanceMethod method, double& size, bool& byDefault) {
  byDefault = !given.has_value();
  size = given.value_or(0.0);
  return byDefault ? derive(planar, outliers, method, size) : Status::Ok();
}

// Aggregates the source's incidents into `layer` and records the choices.
Status Aggregate(ZoDatasetVector* source, const ZoOptimizedInformation& info, CallProgress& progress,
                 ZoOptimizedReport& report, AggregatedLayer& layer) {
  LumaArray<LumaPoint2D> incidents;
  if (Status s = ReadPoints(source, incidents); !s) return s;
  report.Incidents = static_cast<std::int64_t>(incidents.size());
  if (incidents.size() < kMinimumFeatures) return Status::Fail(msg::ESa090, {Number(report.Incidents)});
  const ZoPrjCoordSys& cs = source->GetPrjCoordSys();
  const ZoDistanceMethod method = spatial::EffectiveMethod(info.DistanceMethod, cs);

  if (info.Aggregation == AggregatePolygons) {
    std::vector<ZoGeometry> polygons;
    if (Status s = ReadPolygons(info, cs, polygons); !s) return s;
    std::vector<std::int64_t> counts, polygonOf;
    if (Status s = aggregation::CountInPolygons(incidents, polygons, progress, counts, polygonOf); !s) return s;
    return WriteLayer(
        DatasetRegion, cs, counts, [&](std::size_t k) { return polygons[k]; }, progress, layer);
  }

  Plane plane;
  LumaArray<LumaPoint2D> planar = incidents;
  if (Status s = plane.Open(cs, incidents); !s) return s;
  if (Status s = plane.Forward(planar); !s) return s;
  const std::vector<char> outliers = aggregation::LocationalOutliers(planar, method);
  report.OutlyingIncidents = Flagged(outliers);

  if (info.Aggregation == AggregateFishnetGrid) {
    if (Status s = GivenOrDefault(info.CellSize, aggregation::DefaultCellSize, planar, outliers, method,
                                  report.CellSize, report.DefaultCellSize);
        !s)
      return s;
    aggregation::FishnetCounts grid;
    if (Status s = aggregation::CountInGrid(planar, report.CellSize, grid); !s) return s;
    return WriteGrid(grid, plane, cs, progress, layer);
  }
  if (info.Aggregation == AggregateIntegrate) {
    if (Status s = GivenOrDefault(info.Tolerance, aggregation::DefaultTolerance, planar, outliers, method,
                                  report.Tolerance, report.DefaultTolerance);
        !s)
      return s;
    aggregation::MergedIncidents merged;
    if (Status s = aggregation::Integrate(planar, report.Tolerance, method, progress, merged); !s) return s;
    if (Status s = plane.Inverse(merged.points); !s) return s;
    return WriteLayer(
        DatasetPoint, cs, merged.counts, [&](std::size_t k) { return ZoGeometry::MakePoint(merged.points[k]); },
        progress, layer);
  }
  return Status::Fail(msg::ESa094);
}

ZoPatternsInformation GiParameters(const LumaUnicodeString& field, const ZoOptimizedInformation& info, double band) {
  ZoPatternsInformation gi;
  gi.FieldName = field;
  gi.Conceptualization = FixedDistanceBand;
  gi.DistanceTolerance = band;
  gi.DistanceMethod = info.DistanceMethod;
  gi.FDRCorrection = true;
  gi.Permutations = info.Permutations;
  gi.Seed = info.Seed;
  return gi;
}

// K of the fallback scale: enough neighbours for a stable local sum, from 3
// for small layers to 30 from 600 features on.
int FallbackNeighbours(std::size_t n) {
  const auto k = static_cast<int>(std::lround(0.05 * static_cast<double>(n)));
  return std::min(static_cast<int>(n) - 1, std::clamp(k, 3, 30));
}

// The distance band of the Gi* stage: the first peak of the incremental
// spatial autocorrelation of the field, its default distances found without
// the locational outliers; without a peak, the mean distance from the
// inlying features to their K-th nearest neighbour, never below the first
// band (where every inlying feature has a neighbour).
Status ChooseBand(ZoDatasetVector* analysed, const LumaUnicodeString& field, const ZoOptimizedInformation& info,
                  CallProgress& progress, ZoOptimizedReport& report) {
  ZoRecordsetPtr records;
  if (Status s = OpenAnalysisRecords(analysed, GiParameters(field, info, -1.0), records); !s) return s;
  ZoIncrementalInformation series;
  series.FieldName = field;
  series.Bands = kBands;
  series.Standardization = true;
  series.DistanceMethod = info.DistanceMethod;
  global::IncrementalPoints seen;
  if (Status s = global::Incremental(records.get(), series, progress, report.Incremental,
                                     aggregation::LocationalOutliers, &seen);
      !s)
    return s;
  const LumaArray<LumaPoint2D>& points = seen.planar;
  const std::vector<char>& outliers = seen.setAside;
  report.Features = static_cast<std::int64_t>(points.size());
  report.OutlyingFeatures = Flagged(outliers);
  const ZoIncrementalResult& bands = report.Incremental;
  if (bands.FirstPeak >= 0) {
    report.Scale = ScaleFirstPeak;
    report.DistanceBand = bands.Bands[static_cast<std::size_t>(bands.FirstPeak)].Distance;
    return Status::Ok();
  }
  report.Scale = ScaleNearestNeighbours;
  report.Neighbours = FallbackNeighbours(points.size());
  const ZoDistanceMethod method = spatial::EffectiveMethod(info.DistanceMethod, analysed->GetPrjCoordSys());
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status s = spatial::BuildTree(buffer, points, tree); !s) return s;
  double sum = 0.0;
  std::size_t inlying = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    double distance = 0.0;
    if (outliers[i] || !spatial::KthNeighbourDistance(*tree, points[i], report.Neighbours, method, distance)) continue;
    sum += distance;
    ++inlying;
  }
  report.DistanceBand = std::max(inlying ? sum / static_cast<double>(inlying) : 0.0, bands.BeginDistance);
  return Status::Ok();
}

}  // namespace

int OptimizedResultType(const ZoOptimizedInformation& info, int sourceType) {
  if (!info.FieldName.IsEmpty()) return sourceType;
  return info.Aggregation == AggregateIntegrate ? DatasetPoint : DatasetRegion;
}

Status OptimizedHotSpot(ZoDatasetVector* source, ZoDatasetVector* result, const ZoOptimizedInformation& info,
                        CallProgress& progress, ZoOptimizedReport& report) {
  report = {};
  report.Aggregated = info.FieldName.IsEmpty();
  report.Aggregation = info.Aggregation;
  if (Status s = CheckAnalysisDataset(source); !s) return s;
  if (!result) return Status::Fail(msg::EEg032);
  if (Status s = CheckPermutations(info.Permutations); !s) return s;
  if (!result->IsOpen()) result->Open();
  if (report.Aggregated && source->GetType() != DatasetPoint) return Status::Fail(msg::EEe018);
  if (result->GetType() != OptimizedResultType(info, source->GetType())) return Status::Fail(msg::EEe017);
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb394));
  }

  AggregatedLayer layer;
  ZoDatasetVector* analysed = source;
  LumaUnicodeString field = info.FieldName;
  if (report.Aggregated) {
    if (Status s = Aggregate(source, info, progress, report, layer); !s) return s;
    analysed = layer.dataset;
    field = layer.countField;
  }
  const std::int64_t features = analysed->GetRecordCount();
  if (features < static_cast<std::int64_t>(kMinimumFeatures)) return Status::Fail(msg::ESa090, {Number(features)});

  if (Status s = ChooseBand(analysed, field, info, progress, report); !s) {
    // Equal counts everywhere: the aggregation left nothing to compare.
    if (report.Aggregated && s.id() == std::string(msg::ESa021)) return Status::Fail(msg::ESa091);
    return s;
  }

  const ZoPatternsInformation gi = GiParameters(field, info, report.DistanceBand);
  ZoRecordsetPtr records;
  if (Status s = OpenAnalysisRecords(analysed, gi, records); !s) return s;
  HotSpot statistic({});
  if (Status s = RunLocal(analysed, records.get(), result, gi, progress, statistic); !s) return s;
  for (const int bin : statistic.Bins()) {
    if (bin > 0) ++report.HotSpots[3 - bin];
    if (bin < 0) ++report.ColdSpots[3 + bin];
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::local
