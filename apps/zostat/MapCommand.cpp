// zostat map: draws a field of a result layer as an SVG or PNG map; the
// --map option of the per-feature analyses; and the checks of every picture
// a command writes (maps, incremental's chart).
#include <filesystem>

#include "Command.h"
#include "MapRenderer.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"

namespace zostat {

void CheckPictureTarget(const Options& options, const std::string& what, const std::string& picture,
                        const std::vector<std::string>& keep) {
  // A picture must never replace a dataset it was drawn from or written
  // beside, whatever its extension says.
  for (const auto& path : keep)
    if (!path.empty() && ZOC::ZoFile::IsSameFile(picture, path))
      throw Failure(MessageText(ZOC::msg::EUa011, "the " + what + " '" + picture + "' is '" + path + "'"));
  namespace fs = std::filesystem;
  std::error_code ec;
  if (fs::exists(fs::symlink_status(picture, ec))) {
    if (!options.Has("overwrite"))
      throw Failure(MessageText(ZOC::msg::EUa010, "the " + what + " '" + picture + "' exists"));
    return;
  }
  const fs::path folder = fs::path(picture).has_parent_path() ? fs::path(picture).parent_path() : fs::path(".");
  if (!fs::is_directory(folder, ec))
    throw Failure(MessageText(ZOC::msg::EUa014, "no folder " + folder.string() + " for '" + picture + "'"));
}

void CheckRequestedMap(const Options& options, const OutputLayer& out) {
  if (options.Has("map"))
    CheckPictureTarget(options, "map", options.Require("map"), {options.Require("input"), out.path()});
}

void WriteRequestedMap(const Options& options, ZOC::ZoDatasetVector* result, const std::string& field,
                       const std::string& title) {
  if (!options.Has("map")) return;
  map::MapRequest request;
  request.field = field;
  request.output = options.Require("map");
  request.title = title;
  const std::unique_ptr<ZOC::ZoProgress> progress = ZOC::ZoProgress::Create();
  request.cancelled = [&] { return progress->IsCanceled(); };
  std::string error;
  if (!map::RenderMap(result, request, error)) throw Failure(error);
}

namespace {

int RunMap(const Options& options) {
  InputLayer input = OpenInput(options);
  map::MapRequest request;
  request.field = options.Require("field");
  request.output = options.Require("output");
  CheckPictureTarget(options, "map", request.output, {options.Require("input")});
  request.title = options.Get("title");
  // Drawing a large layer takes seconds: a signal stops it like any run.
  const std::unique_ptr<ZOC::ZoProgress> progress = ZOC::ZoProgress::Create();
  request.cancelled = [&] { return progress->IsCanceled(); };
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
  options.push_back({"overwrite", false, "replace an existing map file"});
  options.push_back({"quiet", false, "print nothing on success"});
  options.push_back({"help", false, "show this command's usage"});
  return {"map", "draw a result layer's field as an SVG or PNG map with legend",
          "--input RESULT [--layer L] --field FIELD --output FILE.svg|FILE.png [--title T]", options, RunMap};
}

}  // namespace zostat
