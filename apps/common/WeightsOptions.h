#pragma once
// The weights options of the weight-based analyses, by their command-line
// names, turned into the library's parameter record the same way for every
// front end: zostat hands over its parsed options, the Python module its
// keyword arguments under the options' names.
#include <map>
#include <string>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "common/Input.h"

namespace ZOC::front {

// Options as given, by command-line name: {"conceptualization",
// "k-nearest"}, {"k", "8"}; a flag ("row-standardize", "fdr") is there with
// an empty value.
using OptionValues = std::map<std::string, std::string>;

// The parameter record from "field", "self-weight-field", "fdr" and the
// weights options: "conceptualization" (a name or its number),
// "distance-band", "exponent", "k", "snap-tolerance", "row-standardize",
// "distance-method", "weights-file" and "memory-budget" (MB), and the
// permutation test's "permutations" and "seed". What is left
// out keeps the record's default (inverse distance, band -1, exponent 1,
// k 1, snap tolerance 0, euclidean, no memory budget). Each value is checked
// as CheckDomain checks it, so a bad one throws the same UsageError as on
// the command line. Which options go together is the caller's concern.
ZoPatternsInformation PatternsInformation(const OptionValues& options);

// "euclidean" or "manhattan" (UsageError "EUa059" for anything else).
ZoDistanceMethod DistanceMethodNamed(const std::string& value);

// Refuses the Manhattan distance on geographic data, where distances are
// measured on the ellipsoid (UsageError "EUa058").
void CheckDistanceMethod(ZoDistanceMethod method, const InputLayer& input);

// What a weights build refuses before it reads anything: a flag matrix with
// the text form ("EUa058"), weights that would come from a weights file
// ("EUb007").
void CheckWeightsBuild(const ZoPatternsInformation& info, bool text, bool flagMatrix);

}  // namespace ZOC::front
