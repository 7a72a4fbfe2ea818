#include "Command.h"

#include <cstdio>

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

void Print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (text.empty() || text.back() != '\n') std::fputc('\n', stdout);
}

}  // namespace zostat
