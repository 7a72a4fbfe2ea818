#include "Command.h"

#include <cstdio>
#include <filesystem>

namespace zostat {

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
  InputLayer input;
  const std::string path = options.Require("input");
  LUMA::LumaUnicodeString error;
  input.source = ZOC::ZoDataSource::Open(path, false, &error);
  if (!input.source) throw Failure("cannot open '" + path + "': " + error.Str());
  if (options.Has("layer")) {
    input.dataset = input.source->GetDataset(options.Get("layer"));
    if (!input.dataset) throw Failure("'" + path + "' has no layer '" + options.Get("layer") + "'");
  } else {
    if (input.source->GetDatasetCount() < 1) throw Failure("'" + path + "' has no layers");
    input.dataset = input.source->GetDataset(0);
  }
  return input;
}

std::vector<OptionSpec> OutputOptions(const std::string& layerHelp) {
  return {{"output", true, "datasource to write to (created when missing; format from the extension, .gpkg by default)"},
          {"output-layer", true, layerHelp},
          {"overwrite", false, "replace an existing layer of that name"}};
}

OutputLayer::OutputLayer(const Options& options, const std::string& defaultLayer, int datasetType,
                         const ZOC::ZoPrjCoordSys& cs)
    : m_path(options.Require("output")), m_layer(options.Get("output-layer", defaultLayer)) {
  if (m_layer.empty()) throw UsageError("give --output-layer");
  const bool overwrite = options.Has("overwrite");
  std::error_code ec;
  m_existed = std::filesystem::exists(m_path, ec);
  LUMA::LumaUnicodeString error;
  m_source = ZOC::ZoDataSource::OpenOrCreate(m_path, &error);
  if (!m_source) throw Failure("cannot open or create '" + m_path + "': " + error.Str());
  if (m_source->GetDataset(m_layer) && !overwrite) {
    Discard();
    throw Failure("'" + m_path + "' already has a layer '" + m_layer + "'; use --overwrite to replace it");
  }
  m_dataset = m_source->CreateDatasetVector(m_layer, datasetType, cs, overwrite, &error);
  if (!m_dataset) {
    Discard();
    throw Failure("cannot create the layer '" + m_layer + "' in '" + m_path + "': " + error.Str());
  }
}

OutputLayer::~OutputLayer() {
  if (!m_keep) Discard();
}

void OutputLayer::Discard() {
  if (!m_source) return;
  if (m_dataset) m_source->DeleteDataset(m_layer);
  m_dataset = nullptr;
  m_source.reset();
  std::error_code ec;
  if (!m_existed) std::filesystem::remove(m_path, ec);
}

void Print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (text.empty() || text.back() != '\n') std::fputc('\n', stdout);
}

}  // namespace zostat
