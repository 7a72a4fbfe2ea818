// zostat weights to-table: a weights file as a table of (unique ID, neighbour
// unique ID, weight) rows in a new tabular layer.
#include <filesystem>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "host/ZoDatasetVector.h"

namespace zostat {

namespace {

int RunWeightsToTable(const Options& options) {
  const std::string weights = options.Require("weights");
  const std::string output = options.Require("output");
  const bool text = options.Has("text");
  const bool overwrite = options.Has("overwrite");
  std::string layer = options.Get("output-layer");
  if (layer.empty()) layer = std::filesystem::path(weights).stem().string();
  if (layer.empty()) throw UsageError("cannot take a layer name from '" + weights + "'; give --output-layer");

  // A datasource this command creates goes again if the conversion fails.
  std::error_code ec;
  const bool existed = std::filesystem::exists(output, ec);
  LUMA::LumaUnicodeString error;
  std::unique_ptr<ZOC::ZoDataSource> source = ZOC::ZoDataSource::OpenOrCreate(output, &error);
  if (!source) throw Failure("cannot open or create '" + output + "': " + error.Str());
  auto discard = [&] {
    source.reset();
    if (!existed) std::filesystem::remove(output, ec);
  };
  if (source->GetDataset(layer) && !overwrite) {
    discard();
    throw Failure("'" + output + "' already has a layer '" + layer + "'; use --overwrite to replace it");
  }
  ZOC::ZoDatasetVector* table =
      source->CreateDatasetVector(layer, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys(), overwrite, &error);
  if (!table) {
    discard();
    throw Failure("cannot create the layer '" + layer + "' in '" + output + "': " + error.Str());
  }

  ZOC::ZoWeightsUtilities utilities;
  const bool progress = !options.Has("json");
  const bool ok = text ? utilities.TextConverToTable(table, weights, progress)
                       : utilities.BinaryConverToTable(table, weights, progress);
  if (!ok) {
    source->DeleteDataset(layer);
    discard();
    throw Failure(utilities.GetStrErrorMes().Str());
  }
  const long long rows = table->GetRecordCount();
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("output").String(output)
        .Key("layer").String(layer)
        .Key("format").String(text ? "text" : "binary")
        .Key("rows").Integer(rows)
        .EndObject();
    Print(json.str());
  } else {
    Print("Wrote " + std::to_string(rows) + " neighbour rows of " + weights + " to layer '" + layer + "' of " +
          output);
  }
  return 0;
}

}  // namespace

Command WeightsToTableCommand() {
  std::vector<OptionSpec> options = {
      {"weights", true, "weights file to convert (.swmb)"},
      {"text", false, "the weights file is in the text form (its name must end in lower-case .swmb)"},
      {"output", true, "datasource to write the table to (created when missing; .gpkg by default)"},
      {"output-layer", true, "name of the new table (default: the weights file's base name)"},
      {"overwrite", false, "replace an existing layer of that name"}};
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"weights to-table", "convert a weights file to a table of unique ID, neighbour ID and weight",
          "--weights FILE.swmb [--text] --output PATH [--output-layer L] [--overwrite] [--json]", options,
          RunWeightsToTable};
}

}  // namespace zostat
