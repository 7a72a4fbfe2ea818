// zostat weights to-table: a weights file as a table of (unique ID, neighbour
// unique ID, weight) rows in a new tabular layer.
#include <filesystem>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

int RunWeightsToTable(const Options& options) {
  const std::string weights = options.Require("weights");
  const std::string output = options.Require("output");
  const bool text = options.Has("text");
  std::string layer = options.Get("output-layer");
  if (layer.empty()) layer = std::filesystem::path(weights).stem().string();
  if (layer.empty())
    throw UsageError(ZOC::msg::EUa055, "cannot take a layer name from '" + weights + "'; give --output-layer");
  OutputLayer out(options, layer, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
  ZOC::ZoDatasetVector* table = out.dataset();
  ZOC::ZoWeightsUtilities utilities;
  const bool progress = ShowProgress(options);
  const bool ok = text ? utilities.TextConverToTable(table, weights, progress)
                       : utilities.BinaryConverToTable(table, weights, progress);
  if (!ok) throw Failure(utilities.GetStrErrorMes().Str());
  out.Keep();
  const long long rows = table->GetRecordCount();
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("output")
        .String(output)
        .Key("layer")
        .String(layer)
        .Key("format")
        .String(text ? "text" : "binary")
        .Key("rows")
        .Integer(rows)
        .EndObject();
    Print(json.str());
  } else {
    Print("Wrote " + std::to_string(rows) + " neighbour rows of " + weights + " to layer '" + layer + "' of " + output);
  }
  return 0;
}

}  // namespace

Command WeightsToTableCommand() {
  std::vector<OptionSpec> options = {
      {"weights", true, "weights file to convert (.swmb)"},
      {"text", false, "the weights file is in the text form (its name must end in lower-case .swmb)"}};
  for (auto& o : OutputOptions("name of the new table (default: the weights file's base name)")) options.push_back(o);
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"weights to-table", "convert a weights file to a table of unique ID, neighbour ID and weight",
          "--weights FILE.swmb [--text] --output PATH [--output-layer L] [--overwrite] [--json]", options,
          RunWeightsToTable};
}

}  // namespace zostat
