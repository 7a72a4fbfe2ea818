#include "Command.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "common/WeightsOptions.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"

namespace zostat {

namespace msg = ZOC::msg;

std::vector<OptionSpec> CommonOptions() {
  return {{"json", false, "print machine-readable JSON on stdout"},
          {"quiet", false, "no progress bar"},
          {"help", false, "show this command's usage"}};
}

std::vector<OptionSpec> InputOptions() {
  return {{"input", true, "input datasource (any vector format GDAL reads)"},
          {"layer", true, "layer of the input (default: the first layer)"}};
}

InputLayer OpenInput(const Options& options) {
  return ZOC::front::OpenInput(options.Require("input"), options.Get("layer"));
}

std::vector<OptionSpec> OutputOptions(const std::string& layerHelp) {
  return {{"output", true,
           "file to write to; the format comes from its extension (.gpkg, .shp, .geojson, .fgb, .csv, ...)"},
          {"output-layer", true, layerHelp},
          {"overwrite", false,
           "replace an existing layer of that name (or a single-layer file) once the result is complete"}};
}

namespace {

// The files a command reads besides its input layer's: the output must be none of them.
std::vector<std::string> ReadFiles(const Options& options) {
  std::vector<std::string> reads;
  for (const char* name : {"input", "weights", "weights-file", "flag-matrix"})
    if (options.Has(name)) reads.push_back(options.Get(name));
  return reads;
}

}  // namespace

OutputLayer::OutputLayer(const Options& options, const std::string& defaultLayer, const InputLayer& input)
    : Output(options.Require("output"), options.Get("output-layer", defaultLayer), options.Has("overwrite"), &input,
             ReadFiles(options)) {
  Create(input.dataset, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
}

OutputLayer::OutputLayer(const Options& options, const std::string& defaultLayer, int datasetType,
                         const ZOC::ZoPrjCoordSys& cs, const InputLayer* input)
    : Output(options.Require("output"), options.Get("output-layer", defaultLayer), options.Has("overwrite"), input,
             ReadFiles(options)) {
  Create(nullptr, datasetType, cs);
}

void OutputLayer::Keep() {
  const std::unique_ptr<ZOC::ZoProgress> progress = ZOC::ZoProgress::Create();
  Commit(progress.get());
}

std::unique_ptr<OutputLayer> OptionalOutput(const Options& options, const std::string& defaultLayer, int datasetType,
                                            const ZOC::ZoPrjCoordSys& cs) {
  if (options.Has("output")) return std::make_unique<OutputLayer>(options, defaultLayer, datasetType, cs);
  for (const char* name : {"output-layer", "overwrite"})
    if (options.Has(name)) throw UsageError(msg::EUa058, std::string("--") + name + " needs --output");
  return nullptr;
}

void CheckDistanceMethod(const Options& options, const InputLayer& input) {
  if (options.Get("distance-method", "euclidean") == "manhattan")
    ZOC::front::CheckDistanceMethod(ZOC::Manhattan, input);
}

void Print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (text.empty() || text.back() != '\n') std::fputc('\n', stdout);
}

StagedPicture::StagedPicture(std::string target) : m_target(std::move(target)) {
  namespace fs = std::filesystem;
  const fs::path path(m_target);
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  m_guard.Reset((folder / ("." + path.stem().string() + ".zostat_picture_" + std::to_string(getpid()) +
                           path.extension().string()))
                    .string());
}

void StagedPicture::Keep() {
  if (!ZOC::ZoFile::Rename(m_guard.Path(), m_target))
    throw Failure(MessageText(ZOC::msg::EUa014, "the picture '" + m_target + "' could not be put in place"));
  m_guard.Release();
}

}  // namespace zostat
