// zostat ann: average nearest neighbour.
#include <cstdio>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "WeightsOptions.h"

namespace zostat {

namespace {

int RunAnn(const Options& options) {
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
  const double area = options.GetDouble("area", 0.0);
  const bool defaultWidth = !options.Has("width");
  const double width = options.GetDouble("width", 0.0);
  const ZOC::ZoDistanceMethod method = ParseDistanceMethod(options);

  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoAnalyzingPatterns::ZoAnalyzingExponent r;
  if (!patterns.AverageNearestNeighbor(input.dataset, area, method, r, defaultWidth, width, ShowProgress(options)))
    throw Failure(patterns.GetStrErrorMes().Str());

  if (options.Has("json")) {
    JsonWriter json;
    json.NumberObject({{"ratio", r.Index},
                       {"expected_mean_distance", r.ExpectedIndex},
                       {"observed_mean_distance", r.Variance},
                       {"z_score", r.ZScore},
                       {"p_value", r.PValue}});
    Print(json.str());
    return 0;
  }
  const char* pattern = r.ZScore < -1.96 ? "clustered" : r.ZScore > 1.96 ? "dispersed" : "random";
  char text[1024];
  std::snprintf(text, sizeof text,
                "Average nearest neighbour of %s\n"
                "  Observed mean distance:  %.10g\n"
                "  Expected mean distance:  %.10g\n"
                "  Nearest neighbour ratio: %.10g\n"
                "  z-score:                 %.10g\n"
                "  p-value:                 %.10g\n"
                "The pattern looks %s%s.\n",
                input.dataset->GetName().c_str(), r.Variance, r.ExpectedIndex, r.Index, r.ZScore, r.PValue, pattern,
                r.ZScore < -2.58 || r.ZScore > 2.58   ? " (significant at the 1% level)"
                : r.ZScore < -1.96 || r.ZScore > 1.96 ? " (significant at the 5% level)"
                                                      : " (not significant at the 5% level)");
  Print(text);
  return 0;
}

}  // namespace

Command AnnCommand() {
  auto options = InputOptions();
  options.push_back({"area", true, "study area (default: the minimum-area rectangle around the features)"});
  options.push_back({"distance-method", true, "euclidean (default) or manhattan"});
  options.push_back({"width", true, "rectangle width for degenerate layouts (default 2, or ~2 m on geographic data)"});
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"ann", "average nearest neighbour: ratio, expected and observed distances, z-score, p-value",
          "--input PATH [--layer L] [--area A] [--distance-method euclidean|manhattan] [--width W] [--json]", options,
          RunAnn};
}

}  // namespace zostat
