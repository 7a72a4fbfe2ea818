#pragma once
// The command table of zostat and the helpers every command shares.
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Options.h"
#include "common/Errors.h"
#include "common/Input.h"
#include "common/Output.h"
#include "common/Progress.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDataSource.h"
#include "host/ZoFile.h"

namespace zostat {

// A failure to report on stderr with exit status 1 (library messages included).
using ZOC::front::Failure;

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
using ZOC::front::InputLayer;
InputLayer OpenInput(const Options& options);

// --output and --output-layer (and --overwrite), for commands that write.
std::vector<OptionSpec> OutputOptions(const std::string& layerHelp);

// The result layer of a command (common/Output.h): --output, --output-layer
// or `defaultLayer`, --overwrite; the files the command reads (--input and
// its other files, --weights, --weights-file, --flag-matrix) are protected.
// Keep() writes the finished result.
class OutputLayer : public ZOC::front::Output {
 public:
  // Shaped like `input`'s layer (geometry kind and coordinate system as read).
  OutputLayer(const Options& options, const std::string& defaultLayer, const InputLayer& input);
  // A layer of `datasetType` in `cs`. The files of `input`, when given, are
  // protected too (a Shapefile's .dbf besides the --input path).
  OutputLayer(const Options& options, const std::string& defaultLayer, int datasetType, const ZOC::ZoPrjCoordSys& cs,
              const InputLayer* input = nullptr);
  // The command succeeded: write the result; throws Failure when that fails.
  void Keep();
};

// The result layer when --output is given, else null: for commands whose
// summary stands on its own. --output-layer and --overwrite without --output
// are refused (exit status 2).
std::unique_ptr<OutputLayer> OptionalOutput(const Options& options, const std::string& defaultLayer, int datasetType,
                                            const ZOC::ZoPrjCoordSys& cs);

// Whether analyses should run with a progress object. Always
// (common/Progress.h): it is also how they see Ctrl-C and SIGTERM; --json and
// --quiet only stop the drawing.
inline bool ShowProgress(const Options&) { return ZOC::front::kReportProgress; }

// Refuses a picture (`what`: "map", "chart") that would be one of the files in
// `keep` (the input, the result; "EUa011"), that exists without --overwrite
// ("EUa010"), or whose folder does not exist ("EUa014"); called before any
// work is done.
void CheckPictureTarget(const Options& options, const std::string& what, const std::string& picture,
                        const std::vector<std::string>& keep);

// A picture drawn into a hidden file beside its target (path(); the
// extension kept, since it chooses the format) and renamed into place by
// Keep(), once everything else of the run is in place too: a run that fails
// or is stopped before then leaves no picture behind.
class StagedPicture {
 public:
  explicit StagedPicture(std::string target);
  std::string path() const { return m_guard.Path().Str(); }
  // Throws Failure ("EUa014") when the picture cannot be put in place.
  void Keep();

 private:
  std::string m_target;
  ZOC::ZoTempFileGuard m_guard;
};

// CheckPictureTarget for --map, kept apart from the input and `out`'s file.
void CheckRequestedMap(const Options& options, const OutputLayer& out);

// Refuses --distance-method manhattan on geographic data, where distances
// are measured along the ellipsoid (exit status 2).
void CheckDistanceMethod(const Options& options, const InputLayer& input);

// Prints to stdout.
void Print(const std::string& text);

}  // namespace zostat
