// zostat weights build: a binary or text weights file from a dataset.
#include <filesystem>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "WeightsOptions.h"

namespace zostat {

namespace {

int RunWeightsBuild(const Options& options) {
  InputLayer input = OpenInput(options);
  const std::string idField = options.Require("id-field");
  const std::string output = options.Require("output");
  const bool text = options.Has("text");
  const std::string flags = options.Get("flag-matrix");
  if (text && options.Has("flag-matrix")) throw UsageError("--flag-matrix goes with binary files, not --text");
  const ZOC::ZoPatternsInformation info = ParseWeightsOptions(options);
  const bool progress = ShowProgress(options);

  ZOC::ZoWeightsUtilities weights;
  const bool ok = text ? weights.BuildWeightMatrixText(input.dataset, idField, output, info, progress)
                  : options.Has("flag-matrix")
                      ? weights.BuildWeightMatrixBinaryK(input.dataset, idField, output, flags, info, progress)
                      : weights.BuildWeightMatrixBinary(input.dataset, idField, output, info, progress);
  if (!ok) throw Failure(weights.GetStrErrorMes().Str());

  std::error_code ec;
  const auto bytes = std::filesystem::file_size(output, ec);
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("output").String(output)
        .Key("format").String(text ? "text" : "binary")
        .Key("features").Integer(input.dataset->GetRecordCount())
        .Key("bytes").Integer(ec ? -1 : static_cast<long long>(bytes));
    json.Key("flag_matrix");
    if (options.Has("flag-matrix")) json.String(flags);
    else json.Null();
    Print(json.EndObject().str());
  } else {
    Print("Wrote " + std::string(text ? "text" : "binary") + " weights of " +
          std::to_string(input.dataset->GetRecordCount()) + " features to " + output +
          (options.Has("flag-matrix") ? " and the flag matrix to " + flags : std::string()));
  }
  return 0;
}

}  // namespace

Command WeightsBuildCommand() {
  auto options = InputOptions();
  options.push_back({"id-field", true, "integer field with a unique ID per feature (QlID works)"});
  options.push_back({"output", true, "weights file to write (.swmb)"});
  options.push_back({"text", false, "write the text form instead of the binary one"});
  options.push_back({"flag-matrix", true, "also write the K-nearest flag matrix (k-nearest only)"});
  for (auto& o : WeightsOptions()) options.push_back(o);
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"weights build", "write a spatial weights file (.swmb) for a dataset",
          "--input PATH --id-field F --output FILE.swmb [--text] [--flag-matrix FILE] [weights options] [--json]",
          options, RunWeightsBuild};
}

}  // namespace zostat
