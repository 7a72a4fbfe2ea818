#pragma once
// ZoSpatialRelModeling: regression of one field on others: ordinary least
// squares, and geographically weighted regression (a least-squares fit
// around every feature, its neighbours weighted by a distance kernel).
//
// The result must be an empty vector dataset of the source's type; it gets
// a copy of every source record (geometry, the dependent and explanatory
// fields) with the computed fields, in "QlID" order. Nothing is written when
// the fit fails. A null result asks for the summary record alone.
#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoGWRInformation.h"
#include "StatisticsAnalyst/ZoOLSInformation.h"
#include "host/LumaArray.h"
#include "host/ZoMatrix.h"

namespace ZOC {

class SA_API ZoSpatialRelModeling : public ZoAnalysisFrame {
 public:
  ZoSpatialRelModeling() = default;

  // Fields: "Predicted", "Residual", "StdResid" (the residual over
  // σ·sqrt(1 − leverage)). The result record holds the coefficients with
  // classical and robust inference and the model's diagnostics; the residual
  // Moran's I is computed on the residuals under info.MoranWeights. When
  // that test cannot be computed (no feature has a neighbour, say) the fit
  // still succeeds, without it: HasResidualMoran is false and
  // ResidualMoranMessage says why. Cancelling fails the whole call.
  // Messages: "EEg002", "EEg032", "EEe018", "EEe017", "EKa013", "ESa005",
  // "ECd001", "ESa006", "EUf001" (no explanatory field), "EUf003" (null
  // value), "EUf004" (non-finite value), "EUf005" (too few features),
  // "EUf006" (singular design), "EUf007" (exact fit), "ESa046", "ELc071",
  // "IMb030", the residual Moran's I's own; then "EUf012".
  unsigned char OrdinaryLeastSquares(ZoDatasetVector* source, ZoDatasetVector* result, const ZoOLSInformation& info,
                                     ZoOLSResult& out, unsigned char showProgress);
  // Fields: "Coef_Intercept", "Coef_<field>"..., "SE_Intercept",
  // "SE_<field>"..., "LocalR2", "Predicted", "Residual", "StdResid",
  // "CondNumber" (names shortened and made unique where the format needs).
  // Messages: as above without the weights ones, "EUf008" (bad bandwidth or
  // kernel), "EUf009" (a local design is singular), "EUf010" (a local fit
  // passes through its own feature), "EUf011" (no bandwidth of the search
  // gives a valid fit), "ESa008", "ESa032"; then "EUf013".
  unsigned char GeographicWeightedRegression(ZoDatasetVector* source, ZoDatasetVector* result,
                                             const ZoGWRInformation& info, ZoGWRResult& out,
                                             unsigned char showProgress);

 private:
  // The matrix toolkit (see detail/regression/MatrixToolkit.h).
  unsigned char InvsMatrix(ZoMatrix& a);
  void cov(ZoMatrix& x, ZoMatrix& c);
  void corroef(ZoMatrix& x, ZoMatrix& r);
  unsigned char Eigen(ZoMatrix& a, const double& eps, const int& limit, ZoMatrix& vectors, LumaArray<double>& values);
  // "ESa047" when weights is empty or does not match x's rows.
  unsigned char GetConditionIndex(const LumaArray<double>& weights, const ZoMatrix& x, double& index);

  // The opening checks both regressions share; the records in "QlID" order.
  ZoRecordsetPtr OpenRegression(ZoDatasetVector* source, ZoDatasetVector* result, const LumaUnicodeString& dependent,
                                const LumaArray<LumaUnicodeString>& explanatory);
  // The frame of both regressions: the opening checks, then fit(records,
  // progress); any failure ends with `summaryId`.
  template <class Fit>
  unsigned char Regress(ZoDatasetVector* source, ZoDatasetVector* result, const LumaUnicodeString& dependent,
                        const LumaArray<LumaUnicodeString>& explanatory, unsigned char showProgress,
                        const char* summaryId, Fit&& fit);
};

}  // namespace ZOC
