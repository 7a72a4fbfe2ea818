// zostat optimized-hotspot: Gi* hot spots with the aggregation, the cell
// size or tolerance and the distance band chosen from the data, and a
// report of every choice.
#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "WeightsOptions.h"
#include "common/OptimizedReport.h"
#include "host/ZoMessageIds.h"
#include "host/ZoPrjCoordSys.h"

namespace zostat {

// Draws the result's map when --map FILE is given (MapCommand.cpp).
void WriteRequestedMap(const Options& options, ZOC::ZoDatasetVector* result, const std::string& field,
                       const std::string& title);

namespace {

// The peak's z-score, when the band is a peak.
const ZOC::ZoIncrementalBand* PeakBand(const ZOC::ZoOptimizedReport& r) {
  if (r.Scale != ZOC::ScaleFirstPeak) return nullptr;
  return &r.Incremental.Bands[static_cast<std::size_t>(r.Incremental.FirstPeak)];
}

void PrintJson(const ZOC::ZoOptimizedReport& r, const OutputLayer& out) {
  JsonWriter json;
  json.BeginObject().Values(ZOC::front::OptimizedReportValues(r));
  json.Key("output").String(out.path()).Key("layer").String(out.layer()).EndObject();
  Print(json.str());
}

std::string Format(const char* format, double a, double b = 0.0) {
  char text[200];
  std::snprintf(text, sizeof text, format, a, b);
  return text;
}

void PrintText(const ZOC::ZoOptimizedReport& r, const OutputLayer& out, const std::string& units,
               const std::string& what) {
  std::string text = "Optimized hot spot analysis of " + what + "\n";
  if (r.Aggregated) {
    text += "  incidents:            " + std::to_string(r.Incidents) + "\n";
    if (r.Aggregation == ZOC::AggregateFishnetGrid)
      text += "  aggregation:          fishnet grid, cells of " + Format("%.6g", r.CellSize) + units +
              (r.DefaultCellSize ? " (default: 4 x the mean nearest-neighbour distance of the incidents)" : "") + "\n";
    else if (r.Aggregation == ZOC::AggregateIntegrate)
      text += "  aggregation:          integration within " + Format("%.6g", r.Tolerance) + units +
              (r.DefaultTolerance ? " (default: the mean nearest-neighbour distance of the incidents)" : "") + "\n";
    else
      text += "  aggregation:          incidents counted per polygon\n";
    text += "  outlying incidents:   " + std::to_string(r.OutlyingIncidents) +
            " set aside from the default cell size or tolerance\n";
  }
  text += "  features analysed:    " + std::to_string(r.Features) + "\n";
  text += "  outlying features:    " + std::to_string(r.OutlyingFeatures) + " set aside from the default bands\n";
  const auto& bands = r.Incremental.Bands;
  if (const ZOC::ZoIncrementalBand* peak = PeakBand(r))
    text += "  distance band:        " + Format("%.6g", r.DistanceBand) + units +
            Format(", the first peak of Moran's I (z = %.4g) over 10 bands from %.6g", peak->Moran.ZScore,
                   bands.front().Distance) +
            "\n";
  else
    text += "  distance band:        " + Format("%.6g", r.DistanceBand) + units +
            ", the mean distance to the K-th nearest neighbour, K = " + std::to_string(r.Neighbours) +
            " (no peak over 10 bands from " + Format("%.6g to %.6g", bands.front().Distance, bands.back().Distance) +
            ")\n";
  text += "  hot spots:            " + std::to_string(r.HotSpots[0]) + " at 99%, " + std::to_string(r.HotSpots[1]) +
          " at 95%, " + std::to_string(r.HotSpots[2]) + " at 90% confidence (FDR-corrected)\n";
  text += "  cold spots:           " + std::to_string(r.ColdSpots[0]) + " at 99%, " + std::to_string(r.ColdSpots[1]) +
          " at 95%, " + std::to_string(r.ColdSpots[2]) + " at 90% confidence\n";
  text += "Wrote " + std::to_string(r.Features) + " features to layer '" + out.layer() + "' of " + out.path();
  Print(text);
}

int RunOptimizedHotSpot(const Options& options) {
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
  ZOC::ZoOptimizedInformation info;
  info.FieldName = options.Get("field");
  info.Aggregation = ZOC::front::AggregationNamed(options.Get("aggregation", "grid"));
  if (options.Has("cell-size")) info.CellSize = options.GetDouble("cell-size", 0.0);
  if (options.Has("tolerance")) info.Tolerance = options.GetDouble("tolerance", 0.0);
  info.DistanceMethod = ParseDistanceMethod(options);
  const ZOC::ZoPatternsInformation permutations = ParseWeightsOptions(options);
  info.Permutations = permutations.Permutations;
  info.Seed = permutations.Seed;
  InputLayer polygons;
  if (info.FieldName.IsEmpty() && info.Aggregation == ZOC::AggregatePolygons) {
    if (!options.Has("polygons"))
      throw ZOC::front::UsageError(ZOC::msg::ESa092, "--aggregation polygons needs --polygons FILE");
    polygons = ZOC::front::OpenInput(options.Get("polygons"), options.Get("polygons-layer"));
    info.Polygons = polygons.dataset;
  }
  const std::string layer = input.dataset->GetName().Str() + "_optimized_hotspots";
  const int type = ZOC::ZoClusteringDistributions::OptimizedResultType(info, input.dataset->GetType());
  // Aggregated incidents become cells, points or polygons; features with a
  // field keep the input's shape.
  auto out = info.FieldName.IsEmpty()
                 ? std::make_unique<OutputLayer>(options, layer, type, input.dataset->GetPrjCoordSys())
                 : std::make_unique<OutputLayer>(options, layer, input);
  CheckRequestedMap(options, *out);
  ZOC::ZoClusteringDistributions clustering;
  ZOC::ZoOptimizedReport report;
  if (!clustering.OptimizedHotSpotAnalyst(input.dataset, out->dataset(), info, ShowProgress(options), &report))
    throw Failure(clustering.GetStrErrorMes().Str());
  const std::string what = info.FieldName.IsEmpty() ? "incidents" : info.FieldName.Str();
  WriteRequestedMap(options, out->dataset(), "Gi_ConfInvl", "Optimized hot spots of " + what);
  out->Keep();
  const bool geographic = input.dataset->GetPrjCoordSys().GetTypeID() == ZOC::ZoPrjCoordSys::Geographic;
  if (options.Has("json"))
    PrintJson(report, *out);
  else
    PrintText(report, *out, geographic ? " m" : "", what);
  return 0;
}

std::vector<OptionSpec> OptimizedOptions() {
  auto options = InputOptions();
  options.push_back({"field", true, "numeric analysis field (default: none; the points are incidents to aggregate)"});
  options.push_back({"aggregation", true, "how incidents become counts: grid (default), integrate or polygons"});
  options.push_back({"cell-size", true,
                     "grid cell side, dataset units, metres for geographic data (default: 4 x the mean "
                     "nearest-neighbour distance of the incidents)"});
  options.push_back({"tolerance", true,
                     "integration distance, 0 merges coincident incidents only (default: the mean "
                     "nearest-neighbour distance of the incidents)"});
  options.push_back({"polygons", true, "polygons to count incidents in, with --aggregation polygons"});
  options.push_back({"polygons-layer", true, "layer of --polygons (default: the first layer)"});
  for (auto& o : OutputOptions("name of the result layer (default: the input layer's name + _optimized_hotspots)"))
    options.push_back(o);
  options.push_back({"distance-method", true, "euclidean (default) or manhattan"});
  for (auto& o : PermutationOptions()) options.push_back(o);
  options.push_back({"map", true, "also draw the result as a map (.svg or .png)"});
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command OptimizedHotSpotCommand() {
  return {"optimized-hotspot",
          "hot spot analysis with its aggregation and distance band chosen from the data, and a report of each choice",
          "--input PATH --output OUT [--field F | --aggregation grid|integrate|polygons [--cell-size D] "
          "[--tolerance D] [--polygons FILE]] [--permutations P [--seed S]] [--map FILE] [--json]",
          OptimizedOptions(), RunOptimizedHotSpot};
}

}  // namespace zostat
