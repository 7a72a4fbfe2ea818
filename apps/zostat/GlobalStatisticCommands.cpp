// zostat moran and zostat general-g: the two global statistics of a field.
#include <cstdio>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "WeightsOptions.h"

namespace zostat {

namespace {

using Exponent = ZOC::ZoAnalyzingPatterns::ZoAnalyzingExponent;

// The usual reading of a z-score, in one sentence.
std::string Interpretation(double z, const char* high, const char* low) {
  const double a = z < 0 ? -z : z;
  const char* level = a > 2.58 ? "1%" : a > 1.96 ? "5%" : a > 1.65 ? "10%" : nullptr;
  if (!level) return "The pattern does not differ significantly from random (|z| <= 1.65).";
  return std::string("The pattern is ") + (z > 0 ? high : low) + ", significant at the " + level + " level.";
}

void PrintResult(const Options& options, const Exponent& r, const char* name, const char* statistic, const char* high,
                 const char* low) {
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject();
    json.Key("index").Number(r.Index).Key("expected_index").Number(r.ExpectedIndex);
    json.Key("variance").Number(r.Variance).Key("z_score").Number(r.ZScore).Key("p_value").Number(r.PValue);
    if (r.Permutations > 0) {
      json.Key("permutations").Integer(r.Permutations).Key("pseudo_p_value").Number(r.PseudoPValue);
      json.Key("simulated_mean").Number(r.SimulatedMean).Key("simulated_variance").Number(r.SimulatedVariance);
      json.Key("simulated_z_score").Number(r.SimulatedZScore);
    }
    json.EndObject();
    Print(json.str());
    return;
  }
  char text[1024];
  std::snprintf(text, sizeof text,
                "%s of %s\n"
                "  %-18s %.10g\n"
                "  Expected value:    %.10g\n"
                "  Variance:          %.10g\n"
                "  z-score:           %.10g\n"
                "  p-value:           %.10g\n",
                name, options.Get("field").c_str(), statistic, r.Index, r.ExpectedIndex, r.Variance, r.ZScore,
                r.PValue);
  std::string permutation;
  if (r.Permutations > 0) {
    char lines[512];
    std::snprintf(lines, sizeof lines,
                  "Permutation test (%d permutations, seed %s)\n"
                  "  Pseudo p-value:     %.10g\n"
                  "  Simulated mean:     %.10g\n"
                  "  Simulated variance: %.10g\n"
                  "  Simulated z-score:  %.10g\n",
                  r.Permutations, options.Get("seed", "0").c_str(), r.PseudoPValue, r.SimulatedMean,
                  r.SimulatedVariance, r.SimulatedZScore);
    permutation = lines;
  }
  Print(std::string(text) + permutation + Interpretation(r.ZScore, high, low));
}

// Runs one global statistic on --input with the weights options and prints it.
template <class Analysis>
int RunGlobal(const Options& options, Analysis analysis, const char* name, const char* statistic, const char* high,
              const char* low) {
  options.Require("field");
  InputLayer input = OpenInput(options);
  CheckDistanceMethod(options, input);
  const ZOC::ZoPatternsInformation info = ParseWeightsOptions(options);
  ZOC::ZoAnalyzingPatterns patterns;
  Exponent r;
  if (!analysis(patterns, input.dataset, info, r, ShowProgress(options)))
    throw Failure(patterns.GetStrErrorMes().Str());
  PrintResult(options, r, name, statistic, high, low);
  return 0;
}

int RunMoran(const Options& options) {
  return RunGlobal(
      options,
      [](ZOC::ZoAnalyzingPatterns& p, ZOC::ZoDatasetVector* ds, const ZOC::ZoPatternsInformation& info, Exponent& r,
         bool progress) { return p.SpatialAutocorrelation(ds, info, r, progress); },
      "Global Moran's I", "Moran's I:", "clustered (similar values lie together)",
      "dispersed (dissimilar values lie together)");
}

int RunGeneralG(const Options& options) {
  return RunGlobal(
      options,
      [](ZOC::ZoAnalyzingPatterns& p, ZOC::ZoDatasetVector* ds, const ZOC::ZoPatternsInformation& info, Exponent& r,
         bool progress) { return p.HighOrLowCluster(ds, info, r, progress) != 0; },
      "General G", "General G:", "clustered with high values (hot spots)", "clustered with low values (cold spots)");
}

std::vector<OptionSpec> StatisticOptions() {
  auto options = InputOptions();
  options.push_back({"field", true, "numeric analysis field"});
  for (auto& o : WeightsOptions()) options.push_back(o);
  for (auto& o : PermutationOptions()) options.push_back(o);
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

}  // namespace

Command MoranCommand() {
  return {"moran", "global Moran's I: index, expectation, variance, z-score, p-value",
          "--input PATH --field F [weights options] [--permutations P [--seed S]] [--json]", StatisticOptions(),
          RunMoran};
}

Command GeneralGCommand() {
  return {"general-g", "high/low clustering (Getis-Ord General G) of a non-negative field",
          "--input PATH --field F [weights options] [--permutations P [--seed S]] [--json]", StatisticOptions(),
          RunGeneralG};
}

}  // namespace zostat
