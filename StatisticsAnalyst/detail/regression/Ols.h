#pragma once
// Ordinary least squares on a Design.
#include <vector>

#include "StatisticsAnalyst/ZoOLSInformation.h"
#include "StatisticsAnalyst/detail/regression/Regression.h"

namespace ZOC::detail::regression {

// Per-feature values of the fit. A standardized residual is NaN where the
// feature's leverage is 1 (it is written as a null value).
struct OlsFeatures {
  std::vector<double> predicted, residual, standardized;
};

// Fits y = Xβ + e with an intercept and fills every statistic of `out`
// except the residual Moran's I. Fails with "EUf006" (singular design) or
// "EUf007" (exact fit). The design is fitted normalized (see Normalize) and
// handed back as it came.
Status FitOls(Design& design, ZoOLSResult& out, OlsFeatures& features);

// Whether the global design (1, x) is numerically singular: collinear
// fields, or a constant one. Call it on a normalized design.
bool SingularDesign(const Design& design);

}  // namespace ZOC::detail::regression
