#pragma once
// The command table of zostat and the helpers every command shares.
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Options.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDataSource.h"

namespace zostat {

// A failure to report on stderr with exit status 1 (library messages included).
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Command {
  std::string name;     // "info", or two words such as "weights show"
  std::string summary;  // one line for the command list
  std::string usage;    // the argument synopsis
  std::vector<OptionSpec> options;
  std::function<int(const Options&)> run;
};

// Every command, in the order the help lists them.
const std::vector<Command>& Commands();

// Options every command takes.
std::vector<OptionSpec> CommonOptions();
// --input and --layer, for commands that read a dataset.
std::vector<OptionSpec> InputOptions();

// An opened input layer: --input, and --layer or the first layer.
struct InputLayer {
  std::unique_ptr<ZOC::ZoDataSource> source;
  ZOC::ZoDatasetVector* dataset = nullptr;
};
InputLayer OpenInput(const Options& options);

// --output and --output-layer (and --overwrite), for commands that write.
std::vector<OptionSpec> OutputOptions(const std::string& layerHelp);

// A new layer in the --output datasource (created when missing; the format
// comes from the extension, GeoPackage by default). An existing layer of the
// name is refused unless --overwrite. If the command fails, Discard removes
// the layer, and the datasource too when this object created it.
class OutputLayer {
 public:
  OutputLayer(const Options& options, const std::string& defaultLayer, int datasetType,
              const ZOC::ZoPrjCoordSys& cs);
  ~OutputLayer();
  ZOC::ZoDatasetVector* dataset() const { return m_dataset; }
  const std::string& path() const { return m_path; }
  const std::string& layer() const { return m_layer; }
  void Discard();
  // The command succeeded: keep what was written.
  void Keep() { m_keep = true; }

 private:
  std::string m_path, m_layer;
  bool m_existed = false, m_keep = false;
  std::unique_ptr<ZOC::ZoDataSource> m_source;
  ZOC::ZoDatasetVector* m_dataset = nullptr;
};

// Prints to stdout.
void Print(const std::string& text);

}  // namespace zostat
