#include "StatisticsAnalyst/detail/regression/Run.h"

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/regression/Gwr.h"
#include "StatisticsAnalyst/detail/regression/Ols.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::regression {

namespace {

LUMA::LumaVariant Value(double v) { return std::isfinite(v) ? LUMA::LumaVariant(v) : LUMA::LumaVariant(); }

// Starts a stage of the call's progress.
void Stage(ZoCallProgress& progress, int from, int to, const char* title) {
  if (!progress) return;
  progress->SetBothPosRange(from, to);
  progress->SetTitleMessage(ZoStringEx::LoadResString(title));
}

// Checks the residual Moran's I's weights against the source before anything
// is written, and names the weights file's unique-ID field, which the result
// must then carry.
bool PrepareMoran(ZoRecordset* records, const ZoOLSInformation& info, LumaUnicodeString& uniqueField,
                  Messages& messages) {
  ZoPatternsInformation weights = info.MoranWeights;
  weights.FieldName = info.DependentField;
  ZoStatisticsUtilities utilities;
  if (!utilities.CheckParameterValid(records, weights)) {
    messages.AddText(utilities.GetStrErrorMes());
    return false;
  }
  if (weights.Conceptualization != SpatialWeightsFile) return true;
  LumaArray<ZoSWMFileUniqueIndex> index;
  ZoConceptualizationModel model;
  unsigned char standardized;
  LumaArray<double> sums;
  std::int64_t position;
  std::FILE* file = utilities.CheckSWMFileValid(records->GetDataset(), weights.WeightsFilePath, uniqueField, index,
                                                model, standardized, sums, position);
  if (!file) {
    messages.AddText(utilities.GetStrErrorMes());
    messages.Add(msg::ESa046);
    return false;
  }
  std::fclose(file);
  return true;
}

bool ResidualMoran(ZoDatasetVector* result, const ZoOLSInformation& info, const LumaUnicodeString& residualField,
                   bool showProgress, ZoOLSResult& out, Messages& messages) {
  ZoPatternsInformation weights = info.MoranWeights;
  weights.FieldName = residualField;
  ZoAnalyzingPatterns patterns;
  if (!patterns.SpatialAutocorrelation(result, weights, out.ResidualMoran, showProgress)) {
    messages.AddText(patterns.GetStrErrorMes());
    return false;
  }
  out.HasResidualMoran = true;
  return true;
}

}  // namespace

// The model's fields must be there before anything is computed: enough
// features for every statistic to be finite, then the values themselves.
bool ReadModel(ZoRecordset* records, const LumaUnicodeString& dependent,
               const LumaArray<LumaUnicodeString>& explanatory, ZoCallProgress& progress, Design& design,
               Messages& messages) {
  if (records->GetRecordCount() < static_cast<std::int64_t>(explanatory.size()) + 4) {
    messages.Add(msg::EUf005);
    return false;
  }
  if (const char* id = ReadDesign(records, dependent, explanatory, progress, design)) {
    messages.Add(id);
    return false;
  }
  return true;
}

bool RunOls(ZoRecordset* records, ZoDatasetVector* result, const ZoOLSInformation& info, ZoOLSResult& out,
            ZoCallProgress& progress, Messages& messages) {
  LumaUnicodeString uniqueField;
  if (info.ResidualMoran && !PrepareMoran(records, info, uniqueField, messages)) return false;
  Stage(progress, 0, 40, msg::IMf001);
  Design design;
  if (!ReadModel(records, info.DependentField, info.ExplanatoryFields, progress, design, messages)) return false;
  ZoOLSResult fit;
  OlsFeatures features;
  if (const char* id = FitOls(design, fit, features)) {
    messages.Add(id);
    return false;
  }
  Stage(progress, 41, 70, msg::IMf001);
  std::vector<LumaUnicodeString> copied;
  if (!uniqueField.IsEmpty()) copied.push_back(uniqueField);
  copied.push_back(info.DependentField);
  for (const auto& name : info.ExplanatoryFields) copied.push_back(name);
  LUMA::LumaFieldInfos own = {LUMA::LumaFieldInfo("Predicted", LUMA::FieldDouble),
                              LUMA::LumaFieldInfo("Residual", LUMA::FieldDouble),
                              LUMA::LumaFieldInfo("StdResid", LUMA::FieldDouble)};
  const bool written = WriteResult(
      records, result, copied, own, progress,
      [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
        const auto i = static_cast<std::size_t>(k);
        values[0] = Value(features.predicted[i]), values[1] = Value(features.residual[i]);
        values[2] = Value(features.standardized[i]);  // null where the leverage is 1
      },
      messages);
  if (!written) return false;
  if (info.ResidualMoran) {
    Stage(progress, 71, 100, msg::IMf006);
    if (!ResidualMoran(result, info, own[1].GetName(), static_cast<bool>(progress), fit, messages)) return false;
  }
  out = fit;
  return true;
}

}  // namespace ZOC::regression
