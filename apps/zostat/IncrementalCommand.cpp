// zostat incremental: global Moran's I of a field over a series of fixed
// distance bands, with the first and the highest peak of the z-scores; the
// bands also as a table (--output) and as a chart of the z-scores (--chart).
#include <cstdio>
#include <string>

#include "ChartRenderer.h"
#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "WeightsOptions.h"
#include "common/IncrementalTable.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

void BandObject(JsonWriter& json, const ZOC::ZoIncrementalBand& band) {
  json.BeginObject().Values(ZOC::front::IncrementalBandValues(band)).EndObject();
}

void PeakObject(JsonWriter& json, const ZOC::ZoIncrementalResult& r, int peak) {
  if (peak < 0)
    json.Null();
  else
    BandObject(json, r.Bands[static_cast<std::size_t>(peak)]);
}

std::string Defaults(const ZOC::ZoIncrementalResult& r) {
  std::string text;
  if (r.DefaultBegin)
    text += "beginning distance = the largest nearest-neighbour distance (every feature has a neighbour)";
  if (r.DefaultIncrement)
    text += std::string(text.empty() ? "" : "; ") + "increment = the mean nearest-neighbour distance";
  return text;
}

void PrintResult(const Options& options, const ZOC::ZoIncrementalResult& r, const OutputLayer* out) {
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject().Key("bands").BeginArray();
    for (const auto& band : r.Bands) BandObject(json, band);
    json.EndArray().Key("first_peak");
    PeakObject(json, r, r.FirstPeak);
    json.Key("max_peak");
    PeakObject(json, r, r.MaxPeak);
    json.Values(ZOC::front::IncrementalSeriesValues(r)).EndObject();
    Print(json.str());
    return;
  }
  std::string text = "Incremental spatial autocorrelation of " + options.Get("field") + "\n";
  char line[256];
  std::snprintf(line, sizeof line, "  %-16s %-14s %-14s %-14s %-14s %s\n", "distance", "Moran's I", "expected",
                "variance", "z-score", "p-value");
  text += line;
  for (std::size_t k = 0; k < r.Bands.size(); ++k) {
    const auto& b = r.Bands[k];
    const char* mark = static_cast<int>(k) == r.MaxPeak     ? "  max peak"
                       : static_cast<int>(k) == r.FirstPeak ? "  peak"
                                                            : "";
    if (static_cast<int>(k) == r.FirstPeak && r.FirstPeak == r.MaxPeak) mark = "  first and max peak";
    if (!b.Valid) {
      std::snprintf(line, sizeof line, "  %-16.10g (not computed at this distance)\n", b.Distance);
    } else {
      std::snprintf(line, sizeof line, "  %-16.10g %-14.8g %-14.8g %-14.8g %-14.8g %.8g%s\n", b.Distance, b.Moran.Index,
                    b.Moran.ExpectedIndex, b.Moran.Variance, b.Moran.ZScore, b.Moran.PValue, mark);
    }
    text += line;
  }
  if (r.FirstPeak < 0) {
    text += "No peak: no band's z-score is higher than both its neighbours'.";
  } else {
    std::snprintf(line, sizeof line, "First peak at %.10g, highest peak at %.10g.",
                  r.Bands[static_cast<std::size_t>(r.FirstPeak)].Distance,
                  r.Bands[static_cast<std::size_t>(r.MaxPeak)].Distance);
    text += line;
  }
  const std::string defaults = Defaults(r);
  if (!defaults.empty()) text += "\nNote: " + defaults + ".";
  if (out)
    text +=
        "\nWrote " + std::to_string(r.Bands.size()) + " bands to layer '" + out->layer() + "' of " + out->path() + ".";
  if (options.Has("chart")) text += "\nDrew the z-scores in " + options.Get("chart") + ".";
  Print(text);
}

// The table of bands when --output is given. --overwrite also applies to the
// chart, so it needs --output or --chart.
std::unique_ptr<OutputLayer> TableOutput(const Options& options, const InputLayer& input) {
  if (options.Has("output"))
    return std::make_unique<OutputLayer>(options, input.dataset->GetName().Str() + "_incremental", ZOC::DatasetTabular,
                                         ZOC::ZoPrjCoordSys(), &input);
  if (options.Has("output-layer")) throw UsageError(ZOC::msg::EUa058, "--output-layer needs --output");
  if (options.Has("overwrite") && !options.Has("chart"))
    throw UsageError(ZOC::msg::EUa058, "--overwrite needs --output or --chart");
  return nullptr;
}

// The chart of z-scores against distance: the first and the highest peak
// marked apart (a band that is both in a third colour).
zostat::map::ChartRequest Chart(const Options& options, const ZOC::ZoIncrementalResult& r, const std::string& path) {
  zostat::map::ChartRequest chart;
  chart.output = path;
  chart.title = "Incremental spatial autocorrelation of " + options.Get("field");
  chart.xLabel = "Distance";
  chart.yLabel = "z-score of Moran's I";
  chart.missingLabel = "not computed";
  chart.marks = {{"first peak", zostat::map::Rgb::Hex("#ff7f0e")},
                 {"highest peak", zostat::map::Rgb::Hex("#d62728")},
                 {"first and highest peak", zostat::map::Rgb::Hex("#9467bd")}};
  for (std::size_t k = 0; k < r.Bands.size(); ++k) {
    const auto& band = r.Bands[k];
    const int peak = ZOC::front::IncrementalPeakCode(r, k);
    chart.points.push_back({band.Distance, band.Moran.ZScore, band.Valid, peak - 1});
  }
  return chart;
}

int RunIncremental(const Options& options) {
  options.Require("field");
  const std::string chart = options.Get("chart");
  if (options.Has("chart") && !zostat::map::HasCanvasExtension(chart))
    throw UsageError(ZOC::msg::EUa059, "--chart must name a .svg or .png file, not '" + chart + "'");
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
  const std::unique_ptr<OutputLayer> out = TableOutput(options, input);
  if (options.Has("chart"))
    CheckPictureTarget(options, "chart", chart, {options.Require("input"), out ? out->path() : ""});
  ZOC::ZoIncrementalInformation info;
  info.FieldName = options.Get("field");
  info.BeginDistance = options.GetDouble("begin-distance", 0.0);
  info.Increment = options.GetDouble("increment", 0.0);
  info.Bands = static_cast<std::int32_t>(options.GetInt("bands", 10));
  info.Standardization = options.Has("row-standardize");
  info.DistanceMethod = ParseDistanceMethod(options);
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoIncrementalResult result;
  if (!patterns.IncrementalSpatialAutocorrelation(input.dataset, info, result, ShowProgress(options)))
    throw Failure(patterns.GetStrErrorMes().Str());
  if (out) ZOC::front::WriteIncrementalTable(out->dataset(), result);
  std::unique_ptr<StagedPicture> staged;
  if (options.Has("chart")) {
    staged = std::make_unique<StagedPicture>(chart);
    std::string error;
    if (!zostat::map::RenderChart(Chart(options, result, staged->path()), error)) throw Failure(error);
  }
  if (out) out->Keep();
  if (staged) staged->Keep();
  PrintResult(options, result, out.get());
  return 0;
}

std::vector<OptionSpec> IncrementalOptions() {
  auto options = InputOptions();
  options.push_back({"field", true, "numeric analysis field"});
  options.push_back({"begin-distance", true,
                     "first band, dataset units (default: the largest nearest-neighbour distance, so every feature "
                     "has a neighbour)"});
  options.push_back({"increment", true, "step between bands (default: the mean nearest-neighbour distance)"});
  options.push_back({"bands", true, "number of bands, 1-50 (default 10)"});
  options.push_back({"row-standardize", false, "divide each weight by its row's sum"});
  options.push_back({"distance-method", true, "euclidean (default) or manhattan"});
  auto output = OutputOptions("name of the table (default: the input layer's name with _incremental)");
  output[0].help =
      "also write the bands as a table, in a format that holds one (.gpkg, .sqlite, .csv, .xlsx, .ods, .dbf, ...): "
      "Distance, MoransI, ExpectedI, Variance, ZScore, PValue (empty where Valid is 0), Valid (1 or 0), Peak (1 the "
      "first peak, 2 the highest, 3 both, 0 neither)";
  for (auto& o : output) options.push_back(o);
  options.push_back({"chart", true, "also draw the z-scores against distance, peaks marked (.svg or .png)"});
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command IncrementalCommand() {
  return {"incremental", "global Moran's I over a series of distance bands, with its peaks",
          "--input PATH --field F [--begin-distance D] [--increment D] [--bands N] [--row-standardize] "
          "[--output PATH [--output-layer L]] [--chart FILE.svg|FILE.png] [--overwrite] [--json]",
          IncrementalOptions(), RunIncremental};
}

}  // namespace zostat
