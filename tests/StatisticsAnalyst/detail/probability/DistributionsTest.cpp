// Probability functions of ZoStatisticsUtilities, checked against Rmath's
// exact distribution functions. The tests named Quirk… pin results the
// system must keep as they are although an exact function would differ: the
// statistics report these very values.
#include <Rmath.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <tuple>
#include <utility>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"

using ZOC::ZoStatisticsUtilities;

namespace {

// Two-sided normal tail, exact.
double TwoSidedNormal(double z) { return 2.0 * pnorm(-std::fabs(z), 0.0, 1.0, 1, 0); }
double ChiUpper(double x, int df) { return pchisq(x, df, 0, 0); }

// The polynomial normal tail is accurate to 7.5e-8 one-sided; the largest
// two-sided error measured over [-6, 6] is 1.52e-7 (near |z| = 0.31).
constexpr double kPvalueError = 1.6e-7;

}  // namespace

TEST(Probability, QuirkPvalueIsAPolynomialCutToZeroBeyondSix) {
  double worst = 0.0;
  for (int i = -6000; i <= 6000; ++i) {
    const double z = i * 1e-3;
    const double p = ZoStatisticsUtilities::GetPvalue(z);
    worst = std::max(worst, std::fabs(p - TwoSidedNormal(z)));
    EXPECT_EQ(p, ZoStatisticsUtilities::GetPvalue(-z)) << z;
  }
  EXPECT_LT(worst, kPvalueError);
  EXPECT_GT(worst, 1e-8);  // it is the polynomial, not an exact tail

  EXPECT_GT(ZoStatisticsUtilities::GetPvalue(6.0), 0.0);
  EXPECT_GT(ZoStatisticsUtilities::GetPvalue(-6.0), 0.0);
  EXPECT_EQ(ZoStatisticsUtilities::GetPvalue(6.0000001), 0.0);
  EXPECT_EQ(ZoStatisticsUtilities::GetPvalue(-6.0000001), 0.0);
  EXPECT_EQ(ZoStatisticsUtilities::GetPvalue(std::numeric_limits<double>::infinity()), 0.0);
}

TEST(Probability, QuirkOddChiSquareStartsFromTheDoubledNormalTail) {
  // Even df: the exact tail, except that for x/2 > 18 the series drops the
  // e^(-x/2) term. Odd df: the start term is the doubled normal tail, so the
  // result is the exact tail plus the df = 1 tail (to within twice the
  // p-value polynomial's error); beyond x/2 > 18 that start term is the
  // cut-off p-value 0, so the df = 1 tail is missing instead.
  for (int df = 1; df <= 30; ++df) {
    for (int i = 0; i <= 1600; ++i) {
      const double x = i * 0.0625;  // up to 100, well into the x/2 > 18 branch
      const double a = x / 2.0;
      const double upper = ZoStatisticsUtilities::chiProb(x, df, 1);
      double expected = 0.0;
      double tolerance = 1e-12;
      if (df % 2 == 0) {
        expected = ChiUpper(x, df) - (a > 18.0 ? std::exp(-a) : 0.0);
      } else if (a > 18.0) {
        expected = ChiUpper(x, df) - ChiUpper(x, 1);
      } else {
        // The series alone is exact: compare it without the start term, and
        // the start term against the exact df = 1 tail.
        const double start = 2.0 * ZoStatisticsUtilities::GetPvalue(-std::sqrt(x));
        ASSERT_NEAR(upper - start, ChiUpper(x, df) - ChiUpper(x, 1), 1e-12) << "x=" << x << " df=" << df;
        expected = ChiUpper(x, df) + ChiUpper(x, 1);
        tolerance = 2.0 * kPvalueError;
      }
      ASSERT_NEAR(upper, expected, tolerance) << "x=" << x << " df=" << df;
      ASSERT_EQ(ZoStatisticsUtilities::chiProb(x, df, 0), 1.0 - upper);
    }
  }
  // df = 2 has no series terms: past x/2 = 18 nothing is left of its tail.
  EXPECT_EQ(ZoStatisticsUtilities::chiProb(36.2, 2, 1), 0.0);

  // x = 0 leaves the start term: 1 for even df, the doubled p-value 2·p(0) ≈ 2 for odd df.
  EXPECT_DOUBLE_EQ(ZoStatisticsUtilities::chiProb(0.0, 4, 1), 1.0);
  EXPECT_DOUBLE_EQ(ZoStatisticsUtilities::chiProb(0.0, 5, 1), 2.0 * ZoStatisticsUtilities::GetPvalue(0.0));

  for (const auto& [x, df, tails] : {std::tuple{-0.5, 3, 1}, {-0.5, 3, 0}, {2.0, 0, 1}, {2.0, -3, 0}})
    EXPECT_EQ(ZoStatisticsUtilities::chiProb(x, df, tails), -1.0) << x << " " << df;
}

TEST(Probability, QuirkStudentTIsARationalApproximation) {
  // Largest absolute error of the one-sided tail measured over t in
  // [-10, 10] (step 0.05), with about 10% headroom. The approximation is
  // coarse at very small df, where the true tail is heavy. {largest df, bound}:
  const std::pair<int, double> bounds[] = {{2, 0.030}, {3, 0.0092},  {4, 0.0017},  {5, 3.5e-4},  {7, 1.75e-4},
                                           {9, 4e-5},  {14, 1.1e-5}, {19, 2.5e-6}, {100, 4.2e-6}};
  for (int df = 2; df <= 100; ++df) {
    const double bound =
        std::find_if(std::begin(bounds), std::end(bounds), [&](auto b) { return df <= b.first; })->second;
    for (int i = -200; i <= 200; ++i) {
      const double t = i * 0.05;
      const double oneSided = ZoStatisticsUtilities::tProb(t, df, 1, false);
      ASSERT_NEAR(oneSided, pt(-std::fabs(t), df, 1, 0), bound) << "t=" << t << " df=" << df;
      // Two-sided doubles the tail; tails = 0 is the distribution function.
      ASSERT_EQ(ZoStatisticsUtilities::tProb(t, df, 2, false), 2.0 * oneSided);
      ASSERT_EQ(ZoStatisticsUtilities::tProb(t, df, 0, false), t >= 0.0 ? 1.0 - oneSided : oneSided);
      ASSERT_EQ(ZoStatisticsUtilities::tProb(t, df, 1, true), oneSided);
    }
  }
  // The approximation itself, evaluated in exact rational arithmetic: other
  // results are reported with these very values, not just near the true tail.
  EXPECT_NEAR(ZoStatisticsUtilities::tProb(1.0, 2, 1, false), 0.19363801301117564, 1e-15);
  EXPECT_NEAR(ZoStatisticsUtilities::tProb(-2.5, 30, 1, false), 0.0090590459123509128, 1e-16);
  EXPECT_NEAR(ZoStatisticsUtilities::tProb(0.7, 7, 1, false), 0.25319643263077010, 1e-15);
  EXPECT_DOUBLE_EQ(ZoStatisticsUtilities::tProb(0.0, 7, 1, false), 0.5);

  EXPECT_EQ(ZoStatisticsUtilities::tProb(1.5, 1, 2, false), -1.0);
  EXPECT_EQ(ZoStatisticsUtilities::tProb(1.5, 0, 0, false), -1.0);
}

TEST(Probability, FDistributionIsExactForIntegerDegreesOfFreedom) {
  for (int df1 = 1; df1 <= 40; ++df1) {
    for (int df2 = 1; df2 <= 40; ++df2) {
      for (int i = 1; i <= 60; ++i) {
        // 0.05 .. 2.5 finely, then out to 1e5.
        const double F = i <= 50 ? i * 0.05 : 2.5 * std::pow(10.0, (i - 50) * 0.47);
        ASSERT_NEAR(ZoStatisticsUtilities::fProb(F, df1, df2, 1), pf(F, df1, df2, 0, 0), 1e-12)
            << "F=" << F << " df=" << df1 << "," << df2;
        ASSERT_NEAR(ZoStatisticsUtilities::fProb(F, df1, df2, 0), pf(F, df1, df2, 1, 0), 1e-12)
            << "F=" << F << " df=" << df1 << "," << df2;
      }
    }
  }
  // Large degrees of freedom of every parity: long runs of the recurrences,
  // whose first terms underflow a plain double.
  for (const auto& [df1, df2] : {std::pair{3, 1000001}, {20000, 100000}, {20001, 100001}, {999, 5000}}) {
    for (const double F : {0.97, 1.0, 1.02, 1.05}) {
      EXPECT_NEAR(ZoStatisticsUtilities::fProb(F, df1, df2, 1), pf(F, df1, df2, 0, 0), 1e-9)
          << "F=" << F << " df=" << df1 << "," << df2;
    }
  }

  EXPECT_EQ(ZoStatisticsUtilities::fProb(0.0, 3, 4, 1), 1.0);
  EXPECT_EQ(ZoStatisticsUtilities::fProb(0.0, 3, 4, 0), 0.0);
  EXPECT_EQ(ZoStatisticsUtilities::fProb(std::numeric_limits<double>::infinity(), 3, 4, 1), 0.0);
  EXPECT_EQ(ZoStatisticsUtilities::fProb(2.0, 0, 4, 1), -1.0);
  EXPECT_EQ(ZoStatisticsUtilities::fProb(2.0, 3, 0, 0), -1.0);
}

TEST(Probability, RmathQuantilesAndNoncentralF) {
  // Thin passages to Rmath: checked only for the order of their arguments,
  // against table values and the non-central F as a Poisson(ncp/2) mixture of
  // beta distribution functions.
  EXPECT_NEAR(ZoStatisticsUtilities::qt(0.975, 10, 1, 0), 2.228138852, 1e-9);
  EXPECT_NEAR(ZoStatisticsUtilities::qt(std::log(0.025), 10, 0, 1), 2.228138852, 1e-9);
  EXPECT_NEAR(ZoStatisticsUtilities::qf(0.95, 5, 10, 1, 0), 3.325834530, 1e-8);
  EXPECT_NEAR(ZoStatisticsUtilities::qf(0.05, 5, 10, 0, 0), 3.325834530, 1e-8);
  const double x = 1.7, df1 = 5, df2 = 30, ncp = 3.5, y = df1 * x / (df1 * x + df2);
  double mixture = 0.0;
  for (int j = 0; j < 200; ++j) mixture += dpois(j, ncp / 2.0, 0) * pbeta(y, df1 / 2.0 + j, df2 / 2.0, 1, 0);
  EXPECT_NEAR(ZoStatisticsUtilities::pnf(x, df1, df2, ncp, 1, 0), mixture, 1e-9);
  EXPECT_NEAR(ZoStatisticsUtilities::pnf(x, df1, df2, ncp, 0, 0), 1.0 - mixture, 1e-9);
}

TEST(Probability, QuirkRoundAddsAHalfInDouble) {
  // 0.49999999999999994 + 0.5 is 1 in double; out of range saturates; NaN is 0.
  constexpr int kMax = std::numeric_limits<int>::max(), kMin = std::numeric_limits<int>::min();
  const double x[] = {2.5,         -2.5,   -0.5, 0.49999999999999994, -0.49999999999999994,
                      0.4999,      2.4999, -7.6, 4503599627370497.0,  -1e300,
                      std::nan("")};
  const int rounded[] = {3, -3, -1, 1, -1, 0, 2, -8, kMax, kMin, 0};
  for (std::size_t k = 0; k < std::size(x); ++k) EXPECT_EQ(ZoStatisticsUtilities::round(x[k]), rounded[k]) << x[k];
}
