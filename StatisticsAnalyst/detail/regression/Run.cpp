#include "StatisticsAnalyst/detail/regression/Run.h"

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/regression/Gwr.h"
#include "StatisticsAnalyst/detail/regression/Ols.h"
#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::regression {

namespace {

LUMA::LumaVariant Value(double v) { return std::isfinite(v) ? LUMA::LumaVariant(v) : LUMA::LumaVariant(); }

// Starts a stage of the call's progress.
void Stage(detail::CallProgress& progress, int from, int to, const char* title) {
  if (!progress) return;
  progress->SetBothPosRange(from, to);
  progress->SetTitleMessage(ZoStringEx::LoadResString(title));
}

// The residual Moran's I's weights; the checks want a numeric field of the
// source, and the dependent field is one.
ZoPatternsInformation MoranWeights(const ZoOLSInformation& info) {
  ZoPatternsInformation weights = info.MoranWeights;
  weights.FieldName = info.DependentField;
  return weights;
}

// Checks the residual Moran's I's weights against the source before anything
// is written, and names the weights file's unique-ID field, which the result
// must then carry.
Status PrepareMoran(ZoRecordset* records, const ZoOLSInformation& info, LumaUnicodeString& uniqueField) {
  if (Status s = CheckWeightParameters(records, MoranWeights(info)); !s) return s;
  if (info.MoranWeights.Conceptualization != SpatialWeightsFile) return Status::Ok();
  weights::AnalysisWeightsFile file;
  if (Status s = weights::OpenForAnalysis(records->GetDataset(), info.MoranWeights.WeightsFilePath, file); !s)
    return s.Then(msg::ESa046);
  uniqueField = file.uniqueIdField;
  return Status::Ok();
}

// The fields the result copies from the source.
std::vector<LumaUnicodeString> CopiedFields(const ZoOLSInformation& info, const LumaUnicodeString& uniqueField) {
  std::vector<LumaUnicodeString> copied;
  if (!uniqueField.IsEmpty()) copied.push_back(uniqueField);
  copied.push_back(info.DependentField);
  for (const auto& name : info.ExplanatoryFields) copied.push_back(name);
  return copied;
}

}  // namespace

// The model's fields must be there before anything is computed: enough
// features for every statistic to be finite, then the values themselves.
Status ReadModel(ZoRecordset* records, const LumaUnicodeString& dependent,
                 const LumaArray<LumaUnicodeString>& explanatory, detail::CallProgress& progress, Design& design,
                 DesignExtras* extras) {
  if (records->GetRecordCount() < static_cast<std::int64_t>(explanatory.size()) + 4) return Status::Fail(msg::EUf005);
  return ReadDesign(records, dependent, explanatory, progress, design, extras);
}

Status RunOls(ZoRecordset* records, ZoDatasetVector* result, const ZoOLSInformation& info, ZoOLSResult& out,
              detail::CallProgress& progress) {
  LumaUnicodeString uniqueField;
  Status status = info.ResidualMoran ? PrepareMoran(records, info, uniqueField) : Status::Ok();
  if (!status) return status;
  Stage(progress, 0, 40, msg::IMf001);
  Design design;
  DesignExtras extras;
  extras.wantPoints = info.ResidualMoran && info.MoranWeights.Conceptualization != SpatialWeightsFile;
  status = ReadModel(records, info.DependentField, info.ExplanatoryFields, progress, design,
                     info.ResidualMoran ? &extras : nullptr);
  if (!status) return status;
  ZoOLSResult fit;
  OlsFeatures features;
  status = FitOls(design, fit, features);
  if (!status) return status;
  design = Design();  // the values are done with: the writer and the weights need the room
  Stage(progress, 41, 70, msg::IMf001);
  LUMA::LumaFieldInfos own = {LUMA::LumaFieldInfo("Predicted", LUMA::FieldDouble),
                              LUMA::LumaFieldInfo("Residual", LUMA::FieldDouble),
                              LUMA::LumaFieldInfo("StdResid", LUMA::FieldDouble)};
  if (result)
    status = WriteResult(records, result, CopiedFields(info, uniqueField), own, progress,
                         [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                           const auto i = static_cast<std::size_t>(k);
                           values[0] = Value(features.predicted[i]), values[1] = Value(features.residual[i]);
                           values[2] = Value(features.standardized[i]);  // null where the leverage is 1
                         });
  if (!status) return status;
  if (info.ResidualMoran) {
    Stage(progress, 71, 100, msg::IMf006);
    features.predicted = {}, features.standardized = {};
    status = ResidualMoran(records, MoranWeights(info), features.residual, extras, progress, fit.ResidualMoran);
    // The fit stands on its own: a residual test that cannot be computed
    // under these weights is reported as missing, with its reason.
    if (!status && progress && progress->IsCanceled()) return status;
    fit.HasResidualMoran = status.ok();
    if (!status) fit.ResidualMoranMessage = status.Text();
  }
  out = fit;
  return Status::Ok();
}

}  // namespace ZOC::detail::regression
