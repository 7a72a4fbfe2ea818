#include "StatisticsAnalyst/ZoSpatialRelModeling.h"

#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/regression/MatrixToolkit.h"
#include "StatisticsAnalyst/detail/regression/Run.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

ZoRecordsetPtr ZoSpatialRelModeling::OpenRegression(ZoDatasetVector* source, ZoDatasetVector* result,
                                                    const LumaUnicodeString& dependent,
                                                    const LumaArray<LumaUnicodeString>& explanatory) {
  if (!source) {
    AddErrorMessage(msg::EEg002);
    return nullptr;
  }
  // A null result asks for the model's summary alone.
  if (result && !result->IsOpen()) result->Open();
  if (!CheckAnalysisDataset(source)) return nullptr;
  if (result && result->GetType() != source->GetType()) {
    AddErrorMessage(msg::EEe017);
    return nullptr;
  }
  if (dependent.IsEmpty()) {
    AddErrorMessage(msg::ESa005);
    return nullptr;
  }
  if (explanatory.empty()) {
    AddErrorMessage(msg::EUf001);
    return nullptr;
  }
  if (!CheckFieldValid(source, dependent)) return nullptr;
  for (const auto& name : explanatory) {
    if (name.IsEmpty()) {
      AddErrorMessage(msg::ESa005);
      return nullptr;
    }
    if (!CheckFieldValid(source, name)) return nullptr;
  }
  return QueryOrderedBy(source, kSystemIdField);
}

template <class Fit>
unsigned char ZoSpatialRelModeling::Regress(ZoDatasetVector* source, ZoDatasetVector* result,
                                            const LumaUnicodeString& dependent,
                                            const LumaArray<LumaUnicodeString>& explanatory, unsigned char showProgress,
                                            const char* summaryId, Fit&& fit) {
  ClearErrorMessage();
  // Anything that escapes the run (memory included) becomes a message.
  const bool ok = Guard(
      [&] {
        ZoRecordsetPtr records = OpenRegression(source, result, dependent, explanatory);
        if (!records) {
          AddErrorMessage(summaryId);
          return false;
        }
        detail::CallProgress progress(m_progress, showProgress != 0);
        return Report(fit(records.get(), progress).Then(summaryId));
      },
      summaryId);
  return ok ? 1 : 0;
}

unsigned char ZoSpatialRelModeling::OrdinaryLeastSquares(ZoDatasetVector* source, ZoDatasetVector* result,
                                                         const ZoOLSInformation& info, ZoOLSResult& out,
                                                         unsigned char showProgress) {
  return Regress(source, result, info.DependentField, info.ExplanatoryFields, showProgress, msg::EUf012,
                 [&](ZoRecordset* records, detail::CallProgress& progress) {
                   return detail::regression::RunOls(records, result, info, out, progress);
                 });
}

unsigned char ZoSpatialRelModeling::GeographicWeightedRegression(ZoDatasetVector* source, ZoDatasetVector* result,
                                                                 const ZoGWRInformation& info, ZoGWRResult& out,
                                                                 unsigned char showProgress) {
  return Regress(source, result, info.DependentField, info.ExplanatoryFields, showProgress, msg::EUf013,
                 [&](ZoRecordset* records, detail::CallProgress& progress) {
                   return detail::regression::RunGwr(records, result, info, out, progress);
                 });
}

unsigned char ZoSpatialRelModeling::InvsMatrix(ZoMatrix& a) { return detail::regression::InvsMatrix(a); }

void ZoSpatialRelModeling::cov(ZoMatrix& x, ZoMatrix& c) { detail::regression::cov(x, c); }

void ZoSpatialRelModeling::corroef(ZoMatrix& x, ZoMatrix& r) { detail::regression::corroef(x, r); }

unsigned char ZoSpatialRelModeling::Eigen(ZoMatrix& a, const double& eps, const int& limit, ZoMatrix& vectors,
                                          LumaArray<double>& values) {
  return detail::regression::JacobiEigen(a, eps, limit, vectors, values);
}

unsigned char ZoSpatialRelModeling::GetConditionIndex(const LumaArray<double>& weights, const ZoMatrix& x,
                                                      double& index) {
  if (detail::regression::ConditionIndex(weights, x, index)) return 1;
  AddErrorMessage(msg::ESa047);
  return 0;
}

}  // namespace ZOC
