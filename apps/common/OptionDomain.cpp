#include "common/OptionDomain.h"

#include <charconv>
#include <cmath>
#include <initializer_list>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "common/Errors.h"
#include "common/GeoDetectorOptions.h"
#include "host/ZoMessageIds.h"

namespace ZOC::front {

namespace {

struct NamedConceptualization {
  const char* name;
  ZoConceptualizationModel model;
};
constexpr NamedConceptualization kConceptualizations[] = {
    {"inverse-distance", InverseDistance},      {"inverse-distance-squared", InverseDistanceSquared},
    {"fixed-distance-band", FixedDistanceBand}, {"zone-of-indifference", ZoneOfIndifference},
    {"contiguity-edges", ContiguityEdgesOnly},  {"contiguity-edges-corners", ContiguityEdgesCorners},
    {"k-nearest", KNearestNeighbors},           {"weights-file", SpatialWeightsFile},
};

double Number(const std::string& name, const std::string& text) {
  double value = 0.0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size() || !std::isfinite(value))
    throw UsageError(msg::EUa056, "--" + name + " needs a finite number, not '" + text + "'");
  return value;
}

long long Whole(const std::string& name, const std::string& text) {
  long long value = 0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size())
    throw UsageError(msg::EUa056, "--" + name + " needs a whole number, not '" + text + "'");
  return value;
}

}  // namespace

std::uint64_t SeedNamed(const std::string& text) {
  unsigned long long value = 0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || ptr != text.data() + text.size())
    throw UsageError(msg::EUa056, "--seed needs a whole number from 0 to 18446744073709551615, not '" + text + "'");
  return value;
}

namespace {

void OneOf(const std::string& name, const std::string& value, std::initializer_list<const char*> choices) {
  std::string list;
  for (const char* choice : choices) {
    if (value == choice) return;
    list += (list.empty() ? "" : ", ") + std::string(choice);
  }
  throw UsageError(msg::EUa059, "--" + name + " must be one of " + list + ", not '" + value + "'");
}

void AtLeast(const std::string& name, const std::string& value, double least, bool inclusive, const char* what) {
  const double v = Number(name, value);
  if (inclusive ? v < least : !(v > least))
    throw UsageError(msg::EUa057, "--" + name + " must be " + what + ", not " + value);
}

}  // namespace

bool ConceptualizationNamed(const std::string& value, ZoConceptualizationModel& model) {
  for (const auto& named : kConceptualizations)
    if (value == named.name || value == std::to_string(static_cast<int>(named.model))) {
      model = named.model;
      return true;
    }
  return false;
}

void CheckDomain(const std::string& command, const std::string& name, const std::string& value) {
  if (value.empty()) throw UsageError(msg::EUa053, "option '--" + name + "' needs a value");
  if (name == "k") {
    const long long k = Whole(name, value);
    if (k < 1 || k > 2147483647LL) throw UsageError(msg::EUa057, "--k must be at least 1, not " + value);
  } else if (name == "permutations") {
    const long long p = Whole(name, value);
    if (p < 0 || p > ZOC::kMaxPermutations) throw UsageError(msg::ESa109, "--permutations " + value);
  } else if (name == "seed") {
    SeedNamed(value);
  } else if (name == "min-points") {
    const long long m = Whole(name, value);
    if (m < 1 || m > 2147483647LL) throw UsageError(msg::EUa057, "--min-points must be at least 1, not " + value);
    // A core distance is the distance to other points, so HDBSCAN needs two.
    if (command == "hdbscan" && m < 2) throw UsageError(msg::EUe002, "--min-points " + value + " for hdbscan");
  } else if (name == "xi") {
    const long long xi = Whole(name, value);
    if (xi < 1 || xi > 99) throw UsageError(msg::EUa057, "--xi must be a whole percentage from 1 to 99, not " + value);
  } else if (name == "ellipse-size") {
    OneOf(name, value, {"1", "2", "3"});
  } else if (name == "bands") {
    const long long b = Whole(name, value);
    if (b < 1 || b > 50) throw UsageError(msg::ESa081, "--bands " + value);
  } else if (name == "begin-distance" || name == "increment") {
    AtLeast(name, value, 0.0, false, "a positive distance (leave it out for the default)");
  } else if (name == "cell-size") {
    const double size = Number(name, value);
    if (!(size > 0.0)) throw UsageError(msg::ESa086, "--cell-size " + value);
  } else if (name == "classes") {
    const long long c = Whole(name, value);
    if (c < 2 || c > 30) throw UsageError(msg::ESa099, "--classes " + value);
  } else if (name == "alpha") {
    const double a = Number(name, value);
    if (!(a > 0.0 && a < 1.0)) throw UsageError(msg::ESa100, "--alpha " + value);
  } else if (name == "discretize") {
    DiscretizationNamed(value);
  } else if (name == "detectors") {
    DetectorsNamed(SplitList(value));
  } else if (name == "aggregation") {
    OneOf(name, value, {"grid", "integrate", "polygons"});
  } else if (name == "width" || name == "area") {
    AtLeast(name, value, 0.0, false, "positive");
  } else if (name == "distance" || name == "tolerance" || name == "snap-tolerance") {
    AtLeast(name, value, 0.0, true, "0 or more");
  } else if (name == "distance-band") {
    const double band = Number(name, value);
    if (band < 0.0 && band != -1.0)
      throw UsageError(msg::EUa057, "--distance-band must be 0 or more, or -1 for the default, not " + value);
  } else if (name == "exponent") {
    AtLeast(name, value, 0.0, true, "0 or more");
  } else if (name == "memory-budget") {
    const double mb = Number(name, value);
    if (!(mb > 0.0) || mb > 1e12)
      throw UsageError(msg::EUa057, "--memory-budget must be a positive number of MB, not " + value);
  } else if (name == "bandwidth") {
    // Leaving it out is how the search is asked for; a given one must be usable.
    const double b = Number(name, value);
    if (!(b > 0.0)) throw UsageError(msg::EUf008, "--bandwidth " + value + "; leave it out to search for one");
  } else if (name == "distance-method") {
    OneOf(name, value, {"euclidean", "manhattan"});
  } else if (name == "kernel") {
    OneOf(name, value, {"gaussian", "bisquare"});
  } else if (name == "bandwidth-type") {
    OneOf(name, value, {"fixed", "adaptive"});
  } else if (name == "conceptualization") {
    ZoConceptualizationModel model;
    if (!ConceptualizationNamed(value, model)) {
      std::string list;
      for (const auto& named : kConceptualizations) list += std::string(named.name) + ", ";
      throw UsageError(msg::EUa059, "--conceptualization must be one of " + list + "or 1-8, not '" + value + "'");
    }
  } else if (name == "stat") {
    const auto colon = value.rfind(':');
    if (colon == std::string::npos || colon == 0)
      throw UsageError(msg::EUa059, "--stat needs FIELD:TYPE, not '" + value + "'");
    std::string type = value.substr(colon + 1);
    for (char& c : type) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    OneOf("stat type", type, {"max", "min", "sum", "mean", "first", "last", "median"});
  }
}

}  // namespace ZOC::front
