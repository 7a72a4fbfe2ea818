#pragma once
// The parameter and result records of ordinary least squares
// (ZoSpatialRelModeling::OrdinaryLeastSquares).
#include <cstdint>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaArray;

struct ZoOLSInformation {
  // The modelled field and the fields that explain it (numeric, no nulls).
  // An intercept is always part of the model.
  LumaUnicodeString DependentField;
  LumaArray<LumaUnicodeString> ExplanatoryFields;
  // Moran's I of the residuals under these weights (their FieldName is
  // ignored: the residuals are the analysed values). Off skips it.
  bool ResidualMoran = true;
  ZoPatternsInformation MoranWeights;
};

// One coefficient: the intercept ("Intercept") first, then one per
// explanatory field in the order given.
struct ZoOLSCoefficient {
  LumaUnicodeString Name;
  double Estimate = 0.0;
  double StdError = 0.0;        // classical, σ² (XᵀX)⁻¹
  double TValue = 0.0;          // Estimate / StdError
  double PValue = 0.0;          // two-sided, Student t with n − p degrees of freedom
  double RobustStdError = 0.0;  // White's heteroskedasticity-consistent (HC0)
  double RobustTValue = 0.0;
  double RobustPValue = 0.0;
  double VIF = 0.0;  // variance inflation factor; NaN for the intercept
};

struct ZoOLSResult {
  std::int64_t FeatureCount = 0;
  LumaArray<ZoOLSCoefficient> Coefficients;
  double Sigma2 = 0.0;  // residual variance RSS / (n − p)
  double RSS = 0.0;
  double R2 = 0.0, AdjustedR2 = 0.0;
  double AICc = 0.0;
  double FStatistic = 0.0, FPValue = 0.0;           // joint F, (p − 1, n − p) degrees of freedom
  double WaldStatistic = 0.0, WaldPValue = 0.0;     // joint Wald (robust), χ² with p − 1 df
  double KoenkerBP = 0.0, KoenkerBPPValue = 0.0;    // studentized Breusch–Pagan, χ² with p − 1 df
  double JarqueBera = 0.0, JarqueBeraPValue = 0.0;  // residual normality, χ² with 2 df
  double ConditionIndex = 0.0;
  bool HasResidualMoran = false;
  ZoAnalyzingPatterns::ZoAnalyzingExponent ResidualMoran;
  // Why the residual Moran's I is missing when it was asked for (the
  // messages of the failed test); empty otherwise.
  LumaUnicodeString ResidualMoranMessage;
};

}  // namespace ZOC
