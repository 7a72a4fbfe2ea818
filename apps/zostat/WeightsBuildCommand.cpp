// zostat weights build: a binary or text weights file from a dataset.
//
// The files are built under temporary names beside their real ones and
// renamed only when the whole build succeeded, so a failed or interrupted
// build leaves neither a partial file nor a damaged older one. An existing
// file is replaced only with --overwrite, and never when it is one of the
// build's inputs or its other output.
#include <unistd.h>
#include <filesystem>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "WeightsOptions.h"
#include "common/WeightsOptions.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

namespace fs = std::filesystem;

Failure Refusal(const char* id, const std::string& path) { return Failure(MessageText(id, path)); }

// A free name beside `path` ending in `extension`, for building it.
std::string Beside(const std::string& path, const std::string& extension) {
  const fs::path target(path);
  for (int n = 0;; ++n) {
    const fs::path candidate = target.parent_path() / ("." + target.stem().string() + "." + std::to_string(getpid()) +
                                                       "." + std::to_string(n) + extension);
    std::error_code ec;
    if (!fs::exists(candidate, ec)) return candidate.string();
  }
}

// Refuses an output that is an input or the other output, or that exists
// without --overwrite.
void CheckOutputs(const Options& options, const std::string& input, const std::string& output,
                  const std::string* flags) {
  std::error_code ec;
  if (ZOC::ZoFile::IsSameFile(output, input)) throw Refusal(ZOC::msg::EUb004, output);
  if (flags && (ZOC::ZoFile::IsSameFile(*flags, input) || ZOC::ZoFile::IsSameFile(*flags, output)))
    throw Refusal(ZOC::msg::EUb004, *flags);
  if (options.Has("overwrite")) return;
  if (fs::exists(output, ec)) throw Refusal(ZOC::msg::EUb006, output);
  if (flags && fs::exists(*flags, ec)) throw Refusal(ZOC::msg::EUb006, *flags);
}

int RunWeightsBuild(const Options& options) {
  const bool text = options.Has("text");
  const ZOC::ZoPatternsInformation info = ParseWeightsOptions(options);
  ZOC::front::CheckWeightsBuild(info, text, options.Has("flag-matrix"));
  const std::string input = options.Require("input");
  const std::string idField = options.Require("id-field");
  const std::string output = options.Require("output");
  const bool withFlags = options.Has("flag-matrix");
  const std::string flags = options.Get("flag-matrix");
  CheckOutputs(options, input, output, withFlags ? &flags : nullptr);
  InputLayer in = OpenInput(options);
  const bool progress = ShowProgress(options);

  // The library checks the output's extension: the temporary keeps it.
  const std::string extension = fs::path(output).extension().string();
  ZOC::ZoTempFileGuard built(Beside(output, extension.empty() ? ".swmb" : extension));
  ZOC::ZoTempFileGuard builtFlags(withFlags ? Beside(flags, ".tmp") : std::string());
  ZOC::ZoWeightsUtilities weights;
  const std::string to = built.Path().Str();
  const bool ok = text ? weights.BuildWeightMatrixText(in.dataset, idField, to, info, progress)
                  : withFlags
                      ? weights.BuildWeightMatrixBinaryK(in.dataset, idField, to, builtFlags.Path(), info, progress)
                      : weights.BuildWeightMatrixBinary(in.dataset, idField, to, info, progress);
  if (!ok) throw Failure(weights.GetStrErrorMes().Str());
  if ((withFlags && !ZOC::ZoFile::Rename(builtFlags.Path(), flags)) || !ZOC::ZoFile::Rename(to, output)) {
    if (withFlags) ZOC::ZoFile::Delete(flags);  // never a flag matrix without its weights file
    throw Refusal(ZOC::msg::ESa049, output);
  }
  built.Release();
  builtFlags.Release();

  std::error_code ec;
  const auto bytes = fs::file_size(output, ec);
  const long long features = in.dataset->GetRecordCount();
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("output")
        .String(output)
        .Key("format")
        .String(text ? "text" : "binary")
        .Key("features")
        .Integer(features)
        .Key("bytes")
        .Integer(ec ? -1 : static_cast<long long>(bytes));
    json.Key("flag_matrix");
    if (withFlags)
      json.String(flags);
    else
      json.Null();
    Print(json.EndObject().str());
  } else {
    Print("Wrote " + std::string(text ? "text" : "binary") + " weights of " + std::to_string(features) +
          " features to " + output + (withFlags ? " and the flag matrix to " + flags : std::string()));
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
  options.push_back({"overwrite", false, "replace an existing weights file or flag matrix"});
  // A weights file is what this command makes, not something it reads.
  for (auto& o : WeightsOptions()) {
    if (o.name == "weights-file") continue;
    if (o.name == "conceptualization") o.help = o.help.replace(o.help.find(", weights-file, or 1-8"), 22, ", or 1-7");
    options.push_back(o);
  }
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"weights build", "write a spatial weights file (.swmb) for a dataset",
          "--input PATH --id-field F --output FILE.swmb [--text] [--flag-matrix FILE] [--overwrite] "
          "[weights options] [--json]",
          options, RunWeightsBuild};
}

}  // namespace zostat
