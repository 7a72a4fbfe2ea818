#include "common/OptimizedReport.h"

namespace ZOC::front {

namespace {

const char* AggregationName(ZoIncidentAggregation a) {
  switch (a) {
    case AggregateFishnetGrid: return "grid";
    case AggregateIntegrate: return "integrate";
    case AggregatePolygons: return "polygons";
  }
  return "";
}

}  // namespace

ZoIncidentAggregation AggregationNamed(const std::string& name) {
  if (name == "integrate") return AggregateIntegrate;
  if (name == "polygons") return AggregatePolygons;
  return AggregateFishnetGrid;  // the option's domain admits nothing else
}

ReportValues OptimizedReportValues(const ZoOptimizedReport& r) {
  const bool grid = r.Aggregated && r.Aggregation == AggregateFishnetGrid;
  const bool integrate = r.Aggregated && r.Aggregation == AggregateIntegrate;
  const bool peak = r.Scale == ScaleFirstPeak;
  auto nothing = ReportValue();
  ReportValues values = {
      {"incidents", r.Aggregated ? ReportValue(static_cast<long long>(r.Incidents)) : nothing},
      {"aggregation", r.Aggregated ? ReportValue(std::string(AggregationName(r.Aggregation))) : nothing},
      {"cell_size", grid ? ReportValue(r.CellSize) : nothing},
      {"default_cell_size", r.DefaultCellSize},
      {"tolerance", integrate ? ReportValue(r.Tolerance) : nothing},
      {"default_tolerance", r.DefaultTolerance},
      {"outlying_incidents", static_cast<long long>(r.OutlyingIncidents)},
      {"outlying_features", static_cast<long long>(r.OutlyingFeatures)},
      {"features", static_cast<long long>(r.Features)},
      {"distance_band", r.DistanceBand},
      {"scale", std::string(peak ? "first_peak" : "nearest_neighbours")},
      {"peak_z_score",
       peak ? ReportValue(r.Incremental.Bands[static_cast<std::size_t>(r.Incremental.FirstPeak)].Moran.ZScore)
            : nothing},
      {"neighbours", peak ? nothing : ReportValue(static_cast<long long>(r.Neighbours))},
      {"first_band", r.Incremental.Bands.empty() ? nothing : ReportValue(r.Incremental.Bands.front().Distance)},
      {"last_band", r.Incremental.Bands.empty() ? nothing : ReportValue(r.Incremental.Bands.back().Distance)},
  };
  const char* levels[] = {"99", "95", "90"};
  for (int k = 0; k < 3; ++k)
    values.emplace_back(std::string("hot_spots_") + levels[k], static_cast<long long>(r.HotSpots[k]));
  for (int k = 0; k < 3; ++k)
    values.emplace_back(std::string("cold_spots_") + levels[k], static_cast<long long>(r.ColdSpots[k]));
  return values;
}

}  // namespace ZOC::front
