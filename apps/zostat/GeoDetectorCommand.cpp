// zostat geodetector: the geographical detector of a dependent field
// against factor fields: the factor, interaction, risk and ecological
// detectors as tables a person can read (the interaction as a matrix), as
// JSON, as tables in a file (--tables), the features with their strata
// (--output) and a heat map of the interaction q (--chart).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <variant>

#include "Command.h"
#include "HeatmapRenderer.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "common/GeoDetectorOptions.h"
#include "common/GeoDetectorReport.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

using ZOC::front::ReportTable;
using ZOC::front::ReportValue;

std::string Cell(const ReportValue& v) {
  if (const auto* b = std::get_if<bool>(&v)) return *b ? "yes" : "no";
  if (const auto* n = std::get_if<long long>(&v)) return std::to_string(*n);
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  if (const auto* x = std::get_if<double>(&v)) {
    if (std::isnan(*x)) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", *x);
    return text;
  }
  return "-";
}

// A table with a column per key, each as wide as its widest cell.
std::string TableText(const ReportTable& table) {
  if (table.rows.empty()) return "  (none)\n";
  const std::size_t columns = table.columns.size();
  std::vector<std::size_t> width(columns);
  for (std::size_t c = 0; c < columns; ++c) {
    width[c] = table.columns[c].size();
    for (const auto& row : table.rows) width[c] = std::max(width[c], Cell(row[c].second).size());
  }
  auto line = [&](auto cellAt) {
    std::string text = " ";
    for (std::size_t c = 0; c < columns; ++c) {
      const std::string cell = cellAt(c);
      text += " " + cell + std::string(width[c] - cell.size(), ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text + "\n";
  };
  std::string text = line([&](std::size_t c) { return table.columns[c]; });
  for (const auto& row : table.rows) text += line([&](std::size_t c) { return Cell(row[c].second); });
  return text;
}

// The interaction q of every pair of factors as a lower-triangular matrix,
// each factor's own q on the diagonal.
std::string InteractionMatrix(const ZOC::ZoGeoDetectorResult& r) {
  const std::size_t k = r.Factors.size();
  std::size_t width = 8;
  for (const auto& f : r.Factors) width = std::max(width, f.Field.Str().size() + 1);
  auto padded = [&](const std::string& s) { return s + std::string(width > s.size() ? width - s.size() : 1, ' '); };
  std::string text = "  " + padded("");
  for (const auto& f : r.Factors) text += padded(f.Field.Str());
  while (text.back() == ' ') text.pop_back();
  text += "\n";
  for (std::size_t a = 0; a < k; ++a) {
    std::string row = "  " + padded(r.Factors[a].Field.Str());
    for (std::size_t b = 0; b <= a; ++b) {
      double q = r.Factors[a].Q;
      for (const auto& i : r.Interactions)
        if (static_cast<std::size_t>(i.First) == b && static_cast<std::size_t>(i.Second) == a) q = i.Q;
      char cell[32];
      std::snprintf(cell, sizeof cell, "%.4f", q);
      row += padded(cell);
    }
    while (!row.empty() && row.back() == ' ') row.pop_back();
    text += row + "\n";
  }
  return text;
}

const char* TableTitle(const std::string& name) {
  if (name == "factor") return "Factor detector (q: share of the variance the strata explain)";
  if (name == "strata") return "Strata (the risk detector's means)";
  if (name == "risk") return "Risk detector (Welch's t-test of every pair of strata)";
  if (name == "interaction") return "Interaction detector";
  return "Ecological detector (significant: the second factor explains significantly more than the first)";
}

void PrintResult(const Options& options, const ZOC::ZoGeoDetectorResult& r, std::int32_t detectors,
                 const std::vector<std::string>& wrote) {
  const auto tables = ZOC::front::GeoDetectorTables(r, detectors);
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject().Values(ZOC::front::GeoDetectorSummary(r));
    for (const auto& t : tables) {
      json.Key(t.name).BeginArray();
      for (const auto& row : t.rows) json.BeginObject().Values(row).EndObject();
      json.EndArray();
    }
    Print(json.EndObject().str());
    return;
  }
  char head[512];
  std::snprintf(head, sizeof head, "Geographical detector of %s: %lld features, mean %.8g, variance %.8g\n",
                options.Get("dependent").c_str(), static_cast<long long>(r.Count), r.Mean, r.Variance);
  std::string text = head;
  for (const auto& t : tables) {
    text += std::string("\n") + TableTitle(t.name) + "\n";
    if (t.name == "interaction") text += InteractionMatrix(r) + "\n";
    text += TableText(t);
  }
  for (const auto& w : wrote) text += "\n" + w;
  Print(text);
}

// The detector tables into --tables: a layer each in a GeoPackage or a
// SQLite file, else a file each beside the path, named after the table.
struct TableTarget {
  std::string path, layer;
};
std::vector<TableTarget> TableTargets(const std::string& path, const std::vector<ReportTable>& tables) {
  namespace fs = std::filesystem;
  std::string extension = fs::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const bool layers = extension == ".gpkg" || extension == ".sqlite" || extension == ".db";
  std::vector<TableTarget> targets;
  for (const auto& t : tables) {
    if (layers) {
      targets.push_back({path, "geodetector_" + t.name});
    } else {
      const fs::path p(path);
      targets.push_back({(p.parent_path() / (p.stem().string() + "_" + t.name + p.extension().string())).string(),
                         p.stem().string() + "_" + t.name});
    }
  }
  return targets;
}

// The heat map of the interaction q: each factor's own q on the diagonal,
// the q of each pair off it (the matrix is symmetric).
zostat::map::HeatmapRequest Heatmap(const Options& options, const ZOC::ZoGeoDetectorResult& r,
                                    const std::string& path) {
  zostat::map::HeatmapRequest map;
  map.output = path;
  map.title = "Interaction detector: q of " + options.Get("dependent");
  map.valueLabel = "q";
  const std::size_t k = r.Factors.size();
  map.values.assign(k * k, 0.0);
  for (std::size_t f = 0; f < k; ++f)
    map.labels.push_back(r.Factors[f].Field.Str()), map.values[f * k + f] = r.Factors[f].Q;
  for (const auto& i : r.Interactions) {
    const auto a = static_cast<std::size_t>(i.First), b = static_cast<std::size_t>(i.Second);
    map.values[a * k + b] = map.values[b * k + a] = i.Q;
  }
  return map;
}

int RunGeoDetector(const Options& options) {
  ZOC::ZoGeoDetectorInformation info;
  info.DependentField = options.Require("dependent");
  for (const auto& f : ZOC::front::SplitList(options.Require("factors"))) {
    if (f.empty()) throw UsageError(ZOC::msg::EUa059, "--factors has an empty name");
    info.FactorFields.push_back(f);
  }
  if (options.Has("categorical"))
    for (const auto& f : ZOC::front::SplitList(options.Get("categorical"))) info.CategoricalFields.push_back(f);
  info.Discretization = ZOC::front::DiscretizationNamed(options.Get("discretize", "quantile"));
  info.Classes = static_cast<std::int32_t>(options.GetInt("classes", 5));
  info.Alpha = options.GetDouble("alpha", 0.05);
  if (options.Has("detectors"))
    info.Detectors = ZOC::front::DetectorsNamed(ZOC::front::SplitList(options.Get("detectors")));
  if (options.Has("output-layer") && !options.Has("output"))
    throw UsageError(ZOC::msg::EUa058, "--output-layer needs --output");
  if (options.Has("overwrite") && !options.Has("output") && !options.Has("tables") && !options.Has("chart"))
    throw UsageError(ZOC::msg::EUa058, "--overwrite needs --output, --tables or --chart");
  const std::string chart = options.Get("chart");
  if (options.Has("chart")) {
    if (!zostat::map::HasCanvasExtension(chart))
      throw UsageError(ZOC::msg::EUa059, "--chart must name a .svg or .png file, not '" + chart + "'");
    if (!(info.Detectors & ZOC::DetectInteraction))
      throw UsageError(ZOC::msg::EUa058, "--chart draws the interaction detector, which --detectors leaves out");
  }

  InputLayer input = OpenInput(options);
  std::unique_ptr<OutputLayer> out;
  if (options.Has("output"))
    out = std::make_unique<OutputLayer>(options, input.dataset->GetName().Str() + "_strata", input);
  // Every table's target is checked before any work: an existing one
  // without --overwrite, or one of the input's files, is refused now.
  ZOC::ZoGeoDetectorResult empty;
  empty.Factors.resize(1);
  const auto planned = options.Has("tables")
                           ? TableTargets(options.Get("tables"), ZOC::front::GeoDetectorTables(empty, info.Detectors))
                           : std::vector<TableTarget>();
  for (const auto& t : planned) ZOC::front::Output(t.path, t.layer, options.Has("overwrite"), &input, {});
  if (options.Has("chart"))
    CheckPictureTarget(options, "chart", chart,
                       {options.Require("input"), out ? out->path() : "", options.Get("tables")});

  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoGeoDetectorResult result;
  if (!patterns.GeographicalDetector(input.dataset, info, result, ShowProgress(options),
                                     out ? out->dataset() : nullptr))
    throw Failure(patterns.GetStrErrorMes().Str());
  // The heat map is drawn aside and put in place only after every result.
  std::unique_ptr<StagedPicture> staged;
  if (options.Has("chart")) {
    staged = std::make_unique<StagedPicture>(chart);
    std::string error;
    if (!zostat::map::RenderHeatmap(Heatmap(options, result, staged->path()), error)) throw Failure(error);
  }
  std::vector<std::string> wrote;
  if (out) {
    out->Keep();
    wrote.push_back("Wrote " + std::to_string(result.Count) + " features with their strata to layer '" + out->layer() +
                    "' of " + out->path() + ".");
  }
  const auto tables = ZOC::front::GeoDetectorTables(result, info.Detectors);
  const auto targets = options.Has("tables") ? TableTargets(options.Get("tables"), tables) : std::vector<TableTarget>();
  for (std::size_t t = 0; t < targets.size(); ++t) {
    ZOC::front::Output table(targets[t].path, targets[t].layer, options.Has("overwrite"), &input, {});
    table.Create(nullptr, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
    ZOC::front::WriteReportTable(table.dataset(), tables[t]);
    table.Commit(nullptr);
    wrote.push_back("Wrote the " + tables[t].name + " table to layer '" + table.layer() + "' of " + table.path() + ".");
  }
  if (staged) {
    staged->Keep();
    wrote.push_back("Drew the interaction q in " + chart + ".");
  }
  PrintResult(options, result, info.Detectors, wrote);
  return 0;
}

std::vector<OptionSpec> GeoDetectorOptions() {
  auto options = InputOptions();
  options.push_back({"dependent", true, "the numeric field whose variance the factors explain"});
  options.push_back({"factors", true,
                     "the explanatory fields, comma-separated: integer and text fields are categories, real fields "
                     "are cut into classes"});
  options.push_back({"categorical", true, "real factor fields to take as categories rather than cut into classes"});
  options.push_back({"discretize", true, "how real factors are cut: quantile (default), equal, jenks or stddev"});
  options.push_back({"classes", true, "number of classes of a real factor, 2-30 (default 5)"});
  options.push_back({"alpha", true, "significance of the risk and ecological detectors (default 0.05)"});
  options.push_back(
      {"detectors", true, "which to run, comma-separated: factor,interaction,risk,ecological (default all)"});
  auto output = OutputOptions("name of the strata layer (default: the input layer's name with _strata)");
  output[0].help =
      "also write every feature with, per factor, its stratum (<factor>_Stratum) and the stratum's mean of the "
      "dependent field (<factor>_Mean)";
  for (auto& o : output) options.push_back(o);
  options.push_back({"tables", true,
                     "also write one table per detector: layers geodetector_factor, ... of a .gpkg or .sqlite file, "
                     "else files beside the path named <name>_factor.<ext>, ..."});
  options.push_back(
      {"chart", true, "also draw the interaction q of every pair of factors as a heat map (.svg or .png)"});
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command GeoDetectorCommand() {
  return {"geodetector", "the geographical detector: factor, interaction, risk and ecological detectors",
          "--input PATH --dependent Y --factors X1,X2,... [--categorical X1,...] "
          "[--discretize quantile|equal|jenks|stddev] [--classes 5] [--alpha 0.05] "
          "[--detectors factor,interaction,risk,ecological] [--output PATH [--output-layer L]] [--tables PATH] "
          "[--chart FILE.svg|FILE.png] [--overwrite] [--json]",
          GeoDetectorOptions(), RunGeoDetector};
}

}  // namespace zostat
