// zostat incremental: global Moran's I of a field over a series of fixed
// distance bands, with the first and the highest peak of the z-scores.
#include <cstdio>
#include <string>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "WeightsOptions.h"

namespace zostat {

namespace {

void BandObject(JsonWriter& json, const ZOC::ZoIncrementalBand& band) {
  if (!band.Valid) {
    json.BeginObject().Key("distance").Number(band.Distance).Key("index").Null().EndObject();
    return;
  }
  const ZOC::ZoAnalyzingExponent& m = band.Moran;
  json.NumberObject({{"distance", band.Distance},
                     {"index", m.Index},
                     {"expected_index", m.ExpectedIndex},
                     {"variance", m.Variance},
                     {"z_score", m.ZScore},
                     {"p_value", m.PValue}});
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

void PrintResult(const Options& options, const ZOC::ZoIncrementalResult& r) {
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject().Key("bands").BeginArray();
    for (const auto& band : r.Bands) BandObject(json, band);
    json.EndArray().Key("first_peak");
    PeakObject(json, r, r.FirstPeak);
    json.Key("max_peak");
    PeakObject(json, r, r.MaxPeak);
    json.Key("begin_distance").Number(r.BeginDistance).Key("increment").Number(r.Increment);
    json.Key("default_begin_distance").Bool(r.DefaultBegin).Key("default_increment").Bool(r.DefaultIncrement);
    json.EndObject();
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
      std::snprintf(line, sizeof line, "  %-16.10g (no feature has a neighbour)\n", b.Distance);
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
  Print(text);
}

int RunIncremental(const Options& options) {
  options.Require("field");
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
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
  PrintResult(options, result);
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
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command IncrementalCommand() {
  return {"incremental", "global Moran's I over a series of distance bands, with its peaks",
          "--input PATH --field F [--begin-distance D] [--increment D] [--bands N] [--row-standardize] [--json]",
          IncrementalOptions(), RunIncremental};
}

}  // namespace zostat
