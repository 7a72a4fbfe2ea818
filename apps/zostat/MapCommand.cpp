// zostat map: draws a field of a result layer as an SVG or PNG map; and the
// --map option of the per-feature analyses.
#include "Command.h"
#include "MapRenderer.h"

namespace zostat {

void WriteRequestedMap(const Options& options, ZOC::ZoDatasetVector* result, const std::string& field,
                       const std::string& title) {
  if (!options.Has("map")) return;
  map::MapRequest request;
  request.field = field;
  request.output = options.Require("map");
  request.title = title;
  std::string error;
  if (!map::RenderMap(result, request, error)) throw Failure("cannot draw the map: " + error);
}

namespace {

int RunMap(const Options& options) {
  InputLayer input = OpenInput(options);
  map::MapRequest request;
  request.field = options.Require("field");
  request.output = options.Require("output");
  request.title = options.Get("title");
  std::string error;
  if (!map::RenderMap(input.dataset, request, error)) throw Failure(error);
  if (!options.Has("quiet")) Print("Wrote the map of " + request.field + " to " + request.output);
  return 0;
}

}  // namespace

Command MapCommand() {
  auto options = InputOptions();
  options.push_back({"field", true, "field to map: Gi_ConfInvl bins, ALMI_Type, cluster ids, or any number"});
  options.push_back({"output", true, "map file to write (.svg or .png)"});
  options.push_back({"title", true, "map title (default: layer name and field)"});
  options.push_back({"quiet", false, "print nothing on success"});
  options.push_back({"help", false, "show this command's usage"});
  return {"map", "draw a result layer's field as an SVG or PNG map with legend",
          "--input RESULT [--layer L] --field FIELD --output FILE.svg|FILE.png [--title T]", options, RunMap};
}

}  // namespace zostat
