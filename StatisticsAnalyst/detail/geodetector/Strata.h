#pragma once
// What the geographical detector reads and how it forms strata: the
// dependent values and every factor's values in one read of the records,
// each checked (a NULL or a NaN names the feature), then each factor's
// strata, from its categories or from the classes it is cut into.
#include <string>
#include <vector>

#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/geodetector/Detectors.h"

namespace ZOC {
class ZoDatasetVector;
class ZoRecordset;
}  // namespace ZOC

namespace ZOC::detail::geodetector {

struct FactorSpec {
  LUMA::LumaUnicodeString field;
  bool text = false;         // a text field, read as its words
  bool categorical = false;  // one stratum per distinct value
};

// The parameters against the dataset's fields: a dependent field named
// ("ESa005"), existing ("ECd001") and numeric ("ESa006"); at least one
// factor ("ESa096"), each existing ("ECd001"), neither the dependent field
// nor named twice, and every categorical field a factor ("ESa097"), each a
// number or text ("ESa098"); classes ("ESa099"), alpha ("ESa100"), the
// discretization and the detectors ("ESa101").
Status CheckParameters(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info, std::vector<FactorSpec>& specs);

struct DetectorTable {
  std::vector<double> y;
  std::vector<std::vector<double>> numbers;     // per factor (empty for a text factor)
  std::vector<std::vector<std::string>> texts;  // per factor (empty for a number factor)
};

// Every record's values, in the recordset's order: whole columns at once
// where the fields allow it, else record by record. The first record
// (fields in the order named, the dependent field first) holding a NULL
// fails with "ESa103", one holding NaN or an infinite number with "EUc001".
Status ReadTable(ZoRecordset* records, const LUMA::LumaUnicodeString& dependent, const std::vector<FactorSpec>& specs,
                 CallProgress& progress, DetectorTable& table);

struct FactorStrata {
  Stratification strata;
  std::vector<LUMA::LumaUnicodeString> labels;  // per stratum
  bool discretized = false;
  std::vector<double> breaks;
};

// Categories in ascending order (numbers by value, words by their bytes),
// or the non-empty classes of the discretization, in order.
FactorStrata StratifyNumbers(const std::vector<double>& values, bool categorical, ZoDiscretization method, int classes);
FactorStrata StratifyTexts(const std::vector<std::string>& values);

}  // namespace ZOC::detail::geodetector
