// zostat info: what a layer holds, with the host's type codes.
#include <cstdio>

#include "Command.h"
#include "Json.h"
#include "host/ZoDatasetVector.h"

namespace zostat {

namespace {

const char* DatasetTypeName(int type) {
  switch (type) {
    case ZOC::DatasetPoint: return "point";
    case ZOC::DatasetLine: return "line";
    case ZOC::DatasetRegion: return "region";
    case ZOC::DatasetTabular: return "tabular";
    default: return "unknown";
  }
}

int RunInfo(const Options& options) {
  InputLayer input = OpenInput(options);
  ZOC::ZoDatasetVector& ds = *input.dataset;
  const ZOC::ZoPrjCoordSys& cs = ds.GetPrjCoordSys();
  const bool geographic = cs.GetTypeID() == ZOC::ZoPrjCoordSys::Geographic;
  const std::string csName = cs.IsUndefined() ? std::string() : cs.GetName().Str();
  const LUMA::LumaFieldInfos fields = ds.GetFieldInfos();

  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("dataset_type")
        .Integer(ds.GetType())
        .Key("record_count")
        .Integer(ds.GetRecordCount())
        .Key("geographic")
        .Bool(geographic)
        .Key("coordinate_system")
        .String(csName)
        .Key("fields")
        .BeginArray();
    for (const auto& f : fields) {
      json.BeginObject()
          .Key("name")
          .String(f.GetName().Str())
          .Key("type")
          .Integer(f.GetType())
          .Key("system")
          .Bool(f.IsSystemField())
          .EndObject();
    }
    json.EndArray().Key("layer").String(ds.GetName().Str()).EndObject();
    Print(json.str());
    return 0;
  }

  std::string out;
  char line[512];
  std::snprintf(line, sizeof line, "Layer:             %s\n", ds.GetName().c_str());
  out += line;
  std::snprintf(line, sizeof line, "Dataset type:      %d (%s)\n", ds.GetType(), DatasetTypeName(ds.GetType()));
  out += line;
  std::snprintf(line, sizeof line, "Records:           %lld\n", static_cast<long long>(ds.GetRecordCount()));
  out += line;
  std::snprintf(line, sizeof line, "Coordinate system: %s (%s)\n", csName.empty() ? "undefined" : csName.c_str(),
                geographic ? "geographic" : "planar");
  out += line;
  out += "Fields (name, host type code):\n";
  for (const auto& f : fields) {
    std::snprintf(line, sizeof line, "  %-24s %3d%s\n", f.GetName().c_str(), f.GetType(),
                  f.IsSystemField() ? "  system" : "");
    out += line;
  }
  Print(out);
  return 0;
}

}  // namespace

Command InfoCommand() {
  auto options = InputOptions();
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"info", "describe a layer: dataset type, record count, coordinate system, fields",
          "--input PATH [--layer NAME] [--json]", options, RunInfo};
}

}  // namespace zostat
