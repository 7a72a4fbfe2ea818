// The test distributions of the regressions, from Rmath (kept in this file:
// Rmath.h defines macros that should not reach other code).
#include <cmath>

#include <Rmath.h>

#include "StatisticsAnalyst/detail/regression/Regression.h"

namespace ZOC::detail::regression {

double TwoSidedT(double t, double df) { return 2.0 * pt(std::fabs(t), df, 0, 0); }

double UpperF(double f, double df1, double df2) { return pf(f, df1, df2, 0, 0); }

double UpperChiSquare(double x, double df) { return pchisq(x, df, 0, 0); }

}  // namespace ZOC::detail::regression
