#include <algorithm>
#include <cmath>
#include <functional>

#include "StatisticsAnalyst/detail/regression/Gwr.h"
#include "StatisticsAnalyst/detail/regression/Ols.h"
#include "StatisticsAnalyst/detail/regression/Run.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::regression {

namespace {

// The kernel and bandwidth settings; -1 asks for the search.
bool ValidSettings(const ZoGWRInformation& info, std::int64_t n) {
  if (info.Kernel != GWRGaussian && info.Kernel != GWRBisquare) return false;
  if (info.BandwidthType != GWRFixed && info.BandwidthType != GWRAdaptive) return false;
  const double b = info.Bandwidth;
  if (b == -1.0) return true;
  if (!std::isfinite(b) || !(b > 0.0)) return false;
  if (info.BandwidthType == GWRFixed) return true;
  return b == std::floor(b) && b >= 2.0 && b <= static_cast<double>(n);
}

// The features' points, read with the model's values, in the plane of the
// distance method.
Status FeaturePoints(ZoRecordset* records, DesignExtras& extras, std::vector<LUMA::LumaPoint3D>& points,
                     ZoDistanceMethod& method) {
  const ZoPrjCoordSys& cs = records->GetDataset()->GetPrjCoordSys();
  if (!extras.status) return Status(extras.status).Then(msg::ESa008);
  if (!cs.Forward(extras.points)) return Status::Fail(msg::ESa008);
  method = spatial::EffectiveMethod(method, cs);
  points.resize(extras.points.size());
  for (std::size_t i = 0; i < extras.points.size(); ++i) points[i] = {extras.points[i].x, extras.points[i].y, 0.0};
  return Status::Ok();
}

// The bandwidth: the caller's, or the one the search finds.
Status ChooseBandwidth(const GwrModel& model, const ZoGWRInformation& info, detail::CallProgress& progress,
                       double& bandwidth) {
  bandwidth = info.Bandwidth;
  if (bandwidth != -1.0) return Status::Ok();
  if (progress) {
    progress->SetBothPosRange(0, 60);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMf003));
  }
  const LumaUnicodeString format = ZoStringEx::LoadResString(msg::IMf005);
  const int most = model.MaxTrials();
  return model.Search(
      bandwidth, [&](int trial) { return progress.Step(format, std::min(trial, most - 1), most); },
      [&](std::int64_t) { return !progress || !progress->IsCanceled(); });
}

// The result fields, named after the coefficients.
LUMA::LumaFieldInfos ResultFields(const Design& design) {
  LUMA::LumaFieldInfos fields;
  for (const char* prefix : {"Coef_", "SE_"})
    for (const auto& name : design.names) fields.push_back(LUMA::LumaFieldInfo(prefix + name, LUMA::FieldDouble));
  for (const char* name : {"LocalR2", "Predicted", "Residual", "StdResid", "CondNumber"})
    fields.push_back(LUMA::LumaFieldInfo(name, LUMA::FieldDouble));
  return fields;
}

// The full fit at the chosen bandwidth.
Status FitAt(const GwrModel& model, double bandwidth, std::int64_t n, detail::CallProgress& progress,
             GwrFeatures& features, GwrSummary& summary) {
  if (progress) {
    progress->SetBothPosRange(61, 85);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMf003));
  }
  const LumaUnicodeString format = ZoStringEx::LoadResString(msg::IMf004);
  return model.Fit(bandwidth, features, summary,
                   [&](std::int64_t done) { return progress.Step(format, std::min(done, n - 1), n); });
}

// Takes the fit of the normalized design back to the fields' own units, as
// for OLS: coefficients and errors by y's factor over their field's, values
// by y's, the residual sum by its square; R², the trace, the standardized
// residuals and the condition numbers are unchanged.
void Unscale(const DesignScale& scale, std::size_t p, GwrFeatures& features, GwrSummary& summary, std::int64_t n) {
  for (std::size_t i = 0; i < features.beta.size(); ++i) {
    const std::size_t j = i % p;
    const double factor = j == 0 ? scale.y : scale.y / scale.x[j - 1];
    features.beta[i] *= factor, features.se[i] *= factor;
  }
  for (double& v : features.predicted) v *= scale.y;
  for (double& v : features.residual) v *= scale.y;
  summary.rss *= scale.y * scale.y, summary.sigma *= scale.y;
  summary.aicc += 2.0 * static_cast<double>(n) * std::log(scale.y);
}

}  // namespace

Status RunGwr(ZoRecordset* records, ZoDatasetVector* result, const ZoGWRInformation& info, ZoGWRResult& out,
              detail::CallProgress& progress) {
  if (!ValidSettings(info, records->GetRecordCount())) return Status::Fail(msg::EUf008);
  Design design;
  DesignExtras extras;
  extras.wantPoints = true;
  Status status = ReadModel(records, info.DependentField, info.ExplanatoryFields, progress, design, &extras);
  std::vector<LUMA::LumaPoint3D> points;
  ZoDistanceMethod method = info.DistanceMethod;
  if (status) status = FeaturePoints(records, extras, points, method);
  if (!status) return status;
  // A constant dependent field leaves nothing to explain: every local fit is
  // exact and what it reports is rounding noise, so it fails as OLS does.
  if (std::adjacent_find(design.y.begin(), design.y.end(), std::not_equal_to<>()) == design.y.end())
    return Status::Fail(msg::EUf007);
  const DesignScale scale = Normalize(design);
  // Collinear fields leave every local design singular too: say so, as OLS
  // does, rather than let the search report that no bandwidth fits.
  if (SingularDesign(design)) return Status::Fail(msg::EUf006);
  GwrModel model(design, std::move(points), info.Kernel, info.BandwidthType, method == Euclidean ? 1 : 2);
  if (!model.Build(info.Bandwidth == -1.0)) return Status::Fail(msg::ESa032);
  double bandwidth = 0.0;
  GwrFeatures features;
  GwrSummary summary;
  status = ChooseBandwidth(model, info, progress, bandwidth);
  if (status) status = FitAt(model, bandwidth, design.n, progress, features, summary);
  if (!status) return status;
  if (progress) progress->SetBothPosRange(86, 100);
  const auto p = static_cast<std::size_t>(design.p());
  Unscale(scale, p, features, summary, design.n);
  std::vector<LumaUnicodeString> copied = {info.DependentField};
  for (const auto& name : info.ExplanatoryFields) copied.push_back(name);
  LUMA::LumaFieldInfos own = ResultFields(design);
  if (result)
    status = WriteResult(records, result, copied, own, progress,
                         [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                           const auto i = static_cast<std::size_t>(k);
                           for (std::size_t j = 0; j < p; ++j)
                             values[j] = features.beta[i * p + j], values[p + j] = features.se[i * p + j];
                           values[2 * p] = features.localR2[i], values[2 * p + 1] = features.predicted[i];
                           values[2 * p + 2] = features.residual[i], values[2 * p + 3] = features.standardized[i];
                           values[2 * p + 4] = features.condition[i];
                         });
  if (!status) return status;
  out.FeatureCount = design.n, out.Bandwidth = bandwidth, out.BandwidthSearched = info.Bandwidth == -1.0;
  out.AICc = summary.aicc, out.EffectiveParameters = summary.trace, out.RSS = summary.rss;
  out.Sigma = summary.sigma, out.R2 = summary.r2, out.AdjustedR2 = summary.adjustedR2;
  return Status::Ok();
}

}  // namespace ZOC::detail::regression
