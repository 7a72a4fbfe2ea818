#include "WeightsOptions.h"

#include <algorithm>

#include <string>

#include "common/OptionDomain.h"

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

ZOC::ZoDistanceMethod ParseDistanceMethod(const Options& options) {
  const std::string method = options.Get("distance-method", "euclidean");
  if (method == "euclidean") return ZOC::Euclidean;
  return method == "manhattan" ? ZOC::Manhattan : ZOC::Euclidean;  // checked as parsed
}

ZOC::ZoPatternsInformation ParseWeightsOptions(const Options& options) {
  ZOC::ZoPatternsInformation info;
  info.FieldName = options.Get("field");
  if (options.Has("conceptualization")) {
    const std::string c = options.Get("conceptualization");
    ZOC::front::ConceptualizationNamed(c, info.Conceptualization);  // checked as parsed
  }
  info.DistanceTolerance = options.GetDouble("distance-band", -1.0);
  info.Exponent = options.GetDouble("exponent", 1.0);
  const long long k = options.GetInt("k", 1);
  if (k < -2147483648LL || k > 2147483647LL) throw UsageError("--k is out of range");
  info.KNeighbors = static_cast<std::int32_t>(k);
  info.SnapTolerance = options.GetDouble("snap-tolerance", 0.0);
  info.Standardization = options.Has("row-standardize");
  info.DistanceMethod = ParseDistanceMethod(options);
  info.WeightsFilePath = options.Get("weights-file");
  if (options.Has("memory-budget")) {
    const double mb = options.GetDouble("memory-budget", 0.0);
    // At least one byte: a tiny budget still means "use the file".
    info.WeightsMemoryBudget = std::max<std::int64_t>(1, static_cast<std::int64_t>(mb * 1048576.0));
  }
  return info;
}

}  // namespace zostat
