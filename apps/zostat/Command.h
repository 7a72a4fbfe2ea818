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

// Prints to stdout.
void Print(const std::string& text);

}  // namespace zostat
