#include "WeightsOptions.h"

#include "common/WeightsOptions.h"

namespace zostat {

std::vector<OptionSpec> WeightsOptions() {
  return {
      {"conceptualization", true,
       "inverse-distance (default), inverse-distance-squared, fixed-distance-band, zone-of-indifference, "
       "contiguity-edges, contiguity-edges-corners, k-nearest, weights-file, or 1-8"},
      {"distance-band", true,
       "distance band in dataset units; -1 (default) = every feature gets a neighbour, 0 = no limit"},
      {"exponent", true, "power of the distance for inverse distance (default 1)"},
      {"k", true,
       "neighbours per feature for k-nearest (default 1; ties by QlID; when more than k features share a "
       "location, all of them)"},
      {"snap-tolerance", true,
       "contiguity: boundaries closer than this distance (dataset units) touch; default 1e-9 of the extent"},
      {"row-standardize", false, "divide each weight by its row's sum"},
      {"distance-method", true, "euclidean (default) or manhattan"},
      {"weights-file", true, "weights matrix file for --conceptualization weights-file"},
      {"memory-budget", true,
       "MB the weights built for the run may take in memory (default a quarter of physical memory); "
       "beyond it they go through a temporary file"},
  };
}

std::vector<OptionSpec> PermutationOptions() {
  return {
      {"permutations", true,
       "also test by P random permutations (0 to 1000000; 0, the default, = none; 999 is usual): pseudo p-values "
       "beside the analytic ones"},
      {"seed", true, "seed of the permutations (default 0); the same seed gives the same results on any machine"},
  };
}

ZOC::ZoDistanceMethod ParseDistanceMethod(const Options& options) {
  return ZOC::front::DistanceMethodNamed(options.Get("distance-method", "euclidean"));
}

ZOC::ZoPatternsInformation ParseWeightsOptions(const Options& options) {
  return ZOC::front::PatternsInformation(options.Values());
}

}  // namespace zostat
