#pragma once
// The values each option accepts, by its command-line name, for every front
// end: zostat checks each option as it parses it, the Python module checks
// its keyword arguments here under the same names, so a value is refused
// with the same identifier and words in both.
#include <cstdint>
#include <string>

#include "StatisticsAnalyst/ZoPatternsInformation.h"

namespace ZOC::front {

// The conceptualization an option value names: its name
// ("contiguity-edges") or its number ("5"); false for anything else.
bool ConceptualizationNamed(const std::string& value, ZoConceptualizationModel& model);

// A seed of the permutation test: a whole number from 0 to 2^64 - 1
// (UsageError "EUa056" otherwise).
std::uint64_t SeedNamed(const std::string& text);

// Throws UsageError when `value` (as typed on a command line) is outside the
// domain of option `name` of `command` ("hdbscan", "gwr", ...; empty when
// the option means the same everywhere). Counts are whole numbers of at
// least 1 (HDBSCAN's --min-points at least 2, "EUe002"); distances, areas
// and widths finite and positive, or 0 or more where 0 asks for a default;
// the distance band 0 or more or -1; named choices one of their names
// ("EUa059"); a GWR bandwidth positive ("EUf008"); permutations from 0 to
// 1000000 ("ESa109"); every other value not
// empty. Numbers that are not numbers get "EUa056", values out of range
// "EUa057". Options it does not know are only checked for a value.
void CheckDomain(const std::string& command, const std::string& name, const std::string& value);

}  // namespace ZOC::front
