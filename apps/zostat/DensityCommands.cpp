// zostat dbscan, zostat hdbscan and zostat optics: density-based clustering
// of a point layer into a new layer, with a summary of what was found.
#include <cstdio>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

int RunDensity(const Options& options, int method, const std::string& suffix) {
  InputLayer input = OpenInput(options);
  ZOC::ZoClusterInformation info;
  info.Method = method;
  // The values were checked as the options were parsed (common/OptionDomain.h).
  info.MinPoints = static_cast<int>(options.GetInt("min-points", 5));
  info.SearchDistance = options.GetDouble("distance", 0.0);
  info.DistanceUnit = 0;  // the layer's own unit
  info.OpticsParameter = static_cast<int>(options.GetInt("xi", 5));
  OutputLayer out(options, input.dataset->GetName().Str() + suffix, input.dataset->GetType(),
                  input.dataset->GetPrjCoordSys());
  ZOC::ZoClusteringDistributions clustering;
  ZOC::ZoClusterSummary summary;
  if (!clustering.DensityBasedClustering(input.dataset, out.dataset(), info, ShowProgress(options), &summary))
    throw Failure(clustering.GetStrErrorMes().Str());
  out.Keep();
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("clusters")
        .Integer(summary.Clusters)
        .Key("noise")
        .Integer(summary.Noise)
        .Key("distance")
        .Number(summary.Distance)
        .Key("output")
        .String(out.path())
        .Key("layer")
        .String(out.layer())
        .EndObject();
    Print(json.str());
    return 0;
  }
  char text[512];
  std::snprintf(text, sizeof text, "Wrote layer '%s' of %s\n  clusters  %d\n  noise     %lld\n  distance  %.10g%s\n",
                out.layer().c_str(), out.path().c_str(), summary.Clusters, summary.Noise, summary.Distance,
                method == 2 ? " (not used)" : "");
  Print(text);
  return 0;
}

std::vector<OptionSpec> DensityOptions(int method, const std::string& layerHelp) {
  auto options = InputOptions();
  for (auto& o : OutputOptions(layerHelp)) options.push_back(o);
  options.push_back({"min-points", true,
                     method == 2 ? "points of a core neighbourhood (the point included) and smallest cluster size "
                                   "(default 5, at least 2)"
                                 : "points within the distance, the point included, that make a core point "
                                   "(default 5)"});
  if (method == 1)
    options.push_back({"distance", true,
                       "search radius in the layer's units (metres for geographic data); 0 or absent: the median "
                       "distance to the (min-points − 1)-th nearest neighbour"});
  if (method == 3) {
    options.push_back({"distance", true,
                       "largest radius in the layer's units (metres for geographic data); 0 or absent: the "
                       "largest distance to a point's min-points-th neighbour, so every point is a core point"});
    options.push_back({"xi", true, "steepness of the cluster extraction in percent (1..99, default 5)"});
  }
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command DbscanCommand() {
  return {"dbscan", "DBSCAN density-based clustering of points: Cluster_ID per point (-1 noise)",
          "--input PATH --output OUT [--output-layer L] [--min-points N] [--distance D] [--json]",
          DensityOptions(1, "name of the result layer (default: the input layer's name + _dbscan)"),
          [](const Options& o) { return RunDensity(o, 1, "_dbscan"); }};
}

Command HdbscanCommand() {
  return {"hdbscan", "HDBSCAN clustering of points: cluster, membership probability, outlier score per point",
          "--input PATH --output OUT [--output-layer L] [--min-points N] [--json]",
          DensityOptions(2, "name of the result layer (default: the input layer's name + _hdbscan)"),
          [](const Options& o) { return RunDensity(o, 2, "_hdbscan"); }};
}

Command OpticsCommand() {
  return {"optics", "OPTICS ordering of points with reachability distances and xi clusters",
          "--input PATH --output OUT [--output-layer L] [--min-points N] [--distance D] [--xi PERCENT] [--json]",
          DensityOptions(3, "name of the result layer (default: the input layer's name + _optics)"),
          [](const Options& o) { return RunDensity(o, 3, "_optics"); }};
}

}  // namespace zostat
