#pragma once
// The weights options every weight-based command shares.
#include <vector>

#include "Options.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"

namespace zostat {

std::vector<OptionSpec> WeightsOptions();
// --permutations and --seed of the statistics with a permutation test.
std::vector<OptionSpec> PermutationOptions();
// The parameter record from --field, --self-weight-field, --fdr and the
// weights options (common/WeightsOptions.h); the library checks the rest.
ZOC::ZoPatternsInformation ParseWeightsOptions(const Options& options);
// --distance-method: "euclidean" or "manhattan" (default euclidean).
ZOC::ZoDistanceMethod ParseDistanceMethod(const Options& options);

}  // namespace zostat
