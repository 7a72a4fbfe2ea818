// zostat hotspot and zostat cluster-outlier: per-feature statistics written
// to a new layer, with a summary of the bins or types.
#include <map>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "WeightsOptions.h"
#include "host/ZoRecordset.h"

namespace zostat {

// Draws the result's map when --map FILE is given (MapCommand.cpp).
void WriteRequestedMap(const Options& options, ZOC::ZoDatasetVector* result, const std::string& field,
                       const std::string& title);

namespace {

// How many result features hold each value of a field, read from the
// result as computed (in memory, before any output format shortens names).
std::map<std::string, long long> Tally(ZOC::ZoDatasetVector* dataset, const std::string& field) {
  std::map<std::string, long long> counts;
  ZOC::ZoRecordsetPtr records(dataset->Query(ZOC::ZoQueryDef()));
  // The field (the bins, or the cluster types' text) is read as one column:
  // at 10^7 features record by record takes seconds.
  ZOC::ZoRecordset::Columns column;
  if (records && records->ReadColumns({field.c_str()}, false, column)) {
    for (std::size_t k = 0; k < column.values[0].size(); ++k)
      ++counts[column.nulls[0][k] ? std::string() : std::to_string(static_cast<long long>(column.values[0][k]))];
    return counts;
  }
  std::vector<std::string> texts;
  std::vector<std::uint8_t> nulls;
  if (records && records->ReadTextColumn(field.c_str(), texts, nulls)) {
    for (const std::string& text : texts) ++counts[text];
    return counts;
  }
  LUMA::LumaVariant value;
  for (bool more = records && records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(field, value);
    ++counts[value.ToString().Str()];
  }
  return counts;
}

void PrintSummary(const Options& options, const OutputLayer& out, const std::string& key,
                  const std::vector<std::string>& order, const std::map<std::string, long long>& counts,
                  const std::map<std::string, std::string>& meaning) {
  long long total = 0;
  for (const auto& [k, c] : counts) total += c;
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject().Key("features").Integer(total).Key(key).BeginObject();
    for (const auto& k : order) json.Key(k).Integer(counts.count(k) ? counts.at(k) : 0);
    json.EndObject();
    if (options.Has("permutations")) json.Key("permutations").Integer(std::stoll(options.Get("permutations")));
    json.Key("output").String(out.path()).Key("layer").String(out.layer()).EndObject();
    Print(json.str());
    return;
  }
  std::string text =
      "Wrote " + std::to_string(total) + " features to layer '" + out.layer() + "' of " + out.path() + "\n";
  for (const auto& k : order) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-4s %-44s %lld\n", k.empty() ? "\"\"" : k.c_str(), meaning.at(k).c_str(),
                  counts.count(k) ? counts.at(k) : 0LL);
    text += line;
  }
  if (options.Has("permutations") && options.Get("permutations") != "0")
    text += "Significance from pseudo p-values of " + options.Get("permutations") + " permutations (seed " +
            options.Get("seed", "0") + ")\n";
  Print(text);
}

int RunHotSpot(const Options& options) {
  options.Require("field");
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
  const ZOC::ZoPatternsInformation info = ParseWeightsOptions(options);
  OutputLayer out(options, input.dataset->GetName().Str() + "_hotspots", input);
  CheckRequestedMap(options, out);
  ZOC::ZoClusteringDistributions clustering;
  if (!clustering.HotSpotAnalyst(input.dataset, out.dataset(), info, ShowProgress(options)))
    throw Failure(clustering.GetStrErrorMes().Str());
  WriteRequestedMap(options, out.dataset(), "Gi_ConfInvl", "Hot spots of " + info.FieldName.Str());
  const auto bins = Tally(out.dataset(), "Gi_ConfInvl");
  out.Keep();
  PrintSummary(options, out, "bins", {"-3", "-2", "-1", "0", "1", "2", "3"}, bins,
               {{"-3", "cold spot, 99% confidence"},
                {"-2", "cold spot, 95% confidence"},
                {"-1", "cold spot, 90% confidence"},
                {"0", "not significant"},
                {"1", "hot spot, 90% confidence"},
                {"2", "hot spot, 95% confidence"},
                {"3", "hot spot, 99% confidence"}});
  return 0;
}

int RunClusterOutlier(const Options& options) {
  options.Require("field");
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
  const ZOC::ZoPatternsInformation info = ParseWeightsOptions(options);
  OutputLayer out(options, input.dataset->GetName().Str() + "_clusters", input);
  CheckRequestedMap(options, out);
  ZOC::ZoClusteringDistributions clustering;
  if (!clustering.ClusterOutlier(input.dataset, out.dataset(), info, ShowProgress(options)))
    throw Failure(clustering.GetStrErrorMes().Str());
  WriteRequestedMap(options, out.dataset(), "ALMI_Type", "Clusters and outliers of " + info.FieldName.Str());
  const auto types = Tally(out.dataset(), "ALMI_Type");
  out.Keep();
  PrintSummary(options, out, "types", {"HH", "LL", "HL", "LH", ""}, types,
               {{"HH", "high values among high neighbours (cluster)"},
                {"LL", "low values among low neighbours (cluster)"},
                {"HL", "high value among low neighbours (outlier)"},
                {"LH", "low value among high neighbours (outlier)"},
                {"", "not significant"}});
  return 0;
}

std::vector<OptionSpec> LocalOptions(bool selfWeight, const std::string& layerHelp) {
  auto options = InputOptions();
  options.push_back({"field", true, "numeric analysis field"});
  for (auto& o : OutputOptions(layerHelp)) options.push_back(o);
  if (selfWeight) options.push_back({"self-weight-field", true, "numeric field with each feature's self weight"});
  options.push_back({"fdr", false, "correct the confidence for the false discovery rate"});
  for (auto& o : PermutationOptions()) options.push_back(o);
  options.push_back({"map", true, "also draw the result as a map (.svg or .png)"});
  for (auto& o : WeightsOptions()) options.push_back(o);
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command HotSpotCommand() {
  return {"hotspot", "hot spot analysis (Getis-Ord Gi*): z-score, p-value and confidence bin per feature",
          "--input PATH --field F --output OUT [--output-layer L] [--self-weight-field S] [--fdr] "
          "[--permutations P [--seed S]] [weights options] [--map FILE] [--json]",
          LocalOptions(true, "name of the result layer (default: the input layer's name + _hotspots)"), RunHotSpot};
}

Command ClusterOutlierCommand() {
  return {"cluster-outlier", "cluster and outlier analysis (Anselin local Moran's I) per feature",
          "--input PATH --field F --output OUT [--output-layer L] [--fdr] [--permutations P [--seed S]] "
          "[weights options] [--map FILE] [--json]",
          LocalOptions(false, "name of the result layer (default: the input layer's name + _clusters)"),
          RunClusterOutlier};
}

}  // namespace zostat
