#include "common/WeightsOptions.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "common/Errors.h"
#include "common/OptionDomain.h"
#include "host/ZoMessageIds.h"

namespace ZOC::front {

namespace {

// The value of `name` once CheckDomain has accepted it, or null when absent.
const std::string* Checked(const OptionValues& options, const char* name) {
  const auto it = options.find(name);
  if (it == options.end()) return nullptr;
  CheckDomain("", name, it->second);
  return &it->second;
}

// A number CheckDomain accepted: it parses in full.
double Number(const std::string& text) {
  double value = 0.0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

ZoDistanceMethod DistanceMethodNamed(const std::string& value) {
  CheckDomain("", "distance-method", value);
  return value == "manhattan" ? ZOC::Manhattan : ZOC::Euclidean;
}

void CheckDistanceMethod(ZoDistanceMethod method, const InputLayer& input) {
  if (method == ZOC::Manhattan && input.dataset &&
      input.dataset->GetPrjCoordSys().GetTypeID() == ZOC::ZoPrjCoordSys::Geographic)
    throw UsageError(msg::EUa058,
                     "--distance-method manhattan does not apply to geographic data; "
                     "distances there are measured on the ellipsoid");
}

ZoPatternsInformation PatternsInformation(const OptionValues& options) {
  ZoPatternsInformation info;
  auto text = [&](const char* name) {
    const auto it = options.find(name);
    return it == options.end() ? std::string() : it->second;
  };
  info.FieldName = text("field");
  info.SecondFieldName = text("self-weight-field");
  info.FDRCorrection = options.count("fdr") != 0;
  if (const std::string* c = Checked(options, "conceptualization")) ConceptualizationNamed(*c, info.Conceptualization);
  if (const std::string* band = Checked(options, "distance-band")) info.DistanceTolerance = Number(*band);
  if (const std::string* exponent = Checked(options, "exponent")) info.Exponent = Number(*exponent);
  if (const std::string* snap = Checked(options, "snap-tolerance")) info.SnapTolerance = Number(*snap);
  if (const std::string* k = Checked(options, "k")) {
    long long value = 0;
    std::from_chars(k->data(), k->data() + k->size(), value);  // 1 to 2^31 - 1, as checked
    info.KNeighbors = static_cast<std::int32_t>(value);
  }
  info.Standardization = options.count("row-standardize") != 0;
  if (const auto it = options.find("distance-method"); it != options.end())
    info.DistanceMethod = DistanceMethodNamed(it->second);
  info.WeightsFilePath = text("weights-file");
  if (const std::string* p = Checked(options, "permutations"))
    info.Permutations = static_cast<std::int32_t>(Number(*p));
  if (const auto it = options.find("seed"); it != options.end()) info.Seed = SeedNamed(it->second);
  if (const std::string* mb = Checked(options, "memory-budget")) {
    // At least one byte: a tiny budget still means "use the file".
    info.WeightsMemoryBudget = std::max<std::int64_t>(1, static_cast<std::int64_t>(Number(*mb) * 1048576.0));
  }
  return info;
}

void CheckWeightsBuild(const ZoPatternsInformation& info, bool text, bool flagMatrix) {
  if (text && flagMatrix) throw UsageError(msg::EUa058, "--flag-matrix goes with binary files, not --text");
  if (info.Conceptualization == ZOC::SpatialWeightsFile)
    throw UsageError(msg::EUb007, "--conceptualization weights-file");
}

}  // namespace ZOC::front
