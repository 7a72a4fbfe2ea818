// Rmath.h defines macros that should not reach other code: it is included
// here only.
#include <Rmath.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "StatisticsAnalyst/detail/probability/Distributions.h"

namespace ZOC::detail::probability {

namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kTwoOverPi = 2.0 * std::numbers::inv_pi;

// A positive series term held as mantissa · 2^exponent. The terms of the F
// series are products of thousands of ratios when the degrees of freedom are
// large: a plain double would underflow to 0 early in a run whose later terms
// (near the mode) matter, and carrying logarithms instead would lose about
// 1e-10 of relative precision over such runs.
class ScaledTerm {
 public:
  explicit ScaledTerm(double value) { m_mantissa = std::frexp(value, &m_exponent); }
  void Multiply(double factor) {
    int shift = 0;
    m_mantissa = std::frexp(m_mantissa * factor, &shift);
    m_exponent += shift;
  }
  double Value() const { return std::ldexp(m_mantissa, m_exponent); }

 private:
  double m_mantissa = 0.0;
  int m_exponent = 0;
};

// The regularized incomplete beta function I_y(df1/2, df2/2) for integer
// degrees of freedom, with yc = 1 - y passed separately so that neither
// y nor its complement loses precision when it is tiny.
//
// Start at I_y(a0, b0) with a0, b0 in {1/2, 1} (closed forms), raise b in
// steps of 1 to df2/2 with
//     I(a, b + 1) = I(a, b) + T(a, b),  T(a, b) = y^a yc^b Γ(a + b) / (Γ(a) Γ(b + 1)),
//     T(a, b + 1) = T(a, b) · yc (a + b) / (b + 1),
// then raise a in steps of 1 to df1/2 with
//     I(a + 1, b) = I(a, b) - S(a, b),  S(a, b) = y^a yc^b Γ(a + b) / (Γ(a + 1) Γ(b)),
//     S(a + 1, b) = S(a, b) · y (a + b) / (a + 1),   S(a0, b) = T(a0, b) · b / a0.
// Every intermediate value is itself a probability in [0, 1], so the
// alternating updates stay within a few rounding errors of the result in
// absolute terms; a tail far below 1e-15 is not resolved relatively.
double IncompleteBetaHalfIntegers(double y, double yc, int df1, int df2) {
  const double a0 = (df1 % 2 == 0) ? 1.0 : 0.5;
  const double b0 = (df2 % 2 == 0) ? 1.0 : 0.5;
  const double sy = std::sqrt(y);
  const double syc = std::sqrt(yc);

  double value = 0.0;
  double firstTerm = 0.0;  // T(a0, b0)
  if (a0 == 0.5 && b0 == 0.5) {
    // I_y(1/2, 1/2) = (2/π) atan(sqrt(y / yc)); T = (2/π) sqrt(y yc).
    value = std::atan2(sy, syc) * kTwoOverPi;
    firstTerm = kTwoOverPi * sy * syc;
  } else if (a0 == 0.5) {
    // I_y(1/2, 1) = sqrt(y); T = sqrt(y) yc / 2.
    value = sy;
    firstTerm = 0.5 * sy * yc;
  } else if (b0 == 0.5) {
    // I_y(1, 1/2) = 1 - sqrt(yc) = y / (1 + sqrt(yc)); T = y sqrt(yc).
    value = y / (1.0 + syc);
    firstTerm = y * syc;
  } else {
    // I_y(1, 1) = y; T = y yc.
    value = y;
    firstTerm = y * yc;
  }

  const double aEnd = 0.5 * df1;
  const double bEnd = 0.5 * df2;
  ScaledTerm up(firstTerm);
  for (double b = b0; b < bEnd; b += 1.0) {
    value += up.Value();
    up.Multiply(yc * (a0 + b) / (b + 1.0));
  }

  ScaledTerm down = up;  // T(a0, bEnd)
  down.Multiply(bEnd / a0);
  for (double a = a0; a < aEnd; a += 1.0) {
    value -= down.Value();
    down.Multiply(y * (a + bEnd) / (a + 1.0));
  }

  if (value < 0.0) return 0.0;
  if (value > 1.0) return 1.0;
  return value;
}

}  // namespace

double NormalTwoSided(double z) {
  // Scores beyond ±6 are reported as exactly 0.
  if (z > 6.0 || z < -6.0) return 0.0;
  const double t = 1.0 / (1.0 + 0.2316419 * std::fabs(z));
  const double phi = std::exp(-z * z / 2.0) / std::sqrt(kTwoPi);
  const double poly = t * (0.31938153 + t * (-0.356563782 + t * (1.781477973 + t * (-1.821255978 + t * 1.330274429))));
  return 2.0 * (1.0 - (1.0 - phi * poly));
}

double ChiSquareTail(double x, int df, int upper) {
  if (x < 0.0 || df < 1) return -1.0;
  const double a = x / 2.0;
  const bool even = (df % 2 == 0);
  const double y = (a > 18.0) ? 0.0 : std::exp(-a);
  // For odd df the start term is the two-sided normal p-value doubled: the
  // reported chi-square probabilities of odd df carry this extra tail.
  double s = even ? y : 2.0 * NormalTwoSided(-std::sqrt(x));

  if (df > 1) {
    double z = even ? 1.0 : 0.5;
    const double limit = (df - 1) / 2.0;
    if (a > 18.0) {
      double e = even ? 0.0 : 0.572364942925;  // log(sqrt(pi))
      const double lg = std::log(a);
      while (z <= limit) {
        e += std::log(z);
        s += std::exp(lg * z - a - e);
        z += 1.0;
      }
    } else if (a > 0.0) {
      // At x = 0 every series term vanishes (the odd start e would be
      // infinite times zero), so the series is skipped there.
      double e = even ? 1.0 : 0.564189583548 / std::sqrt(a);  // 1/sqrt(pi)
      double acc = 0.0;
      while (z <= limit) {
        e = e * a / z;
        acc += e;
        z += 1.0;
      }
      s = acc * y + s;
    }
  }
  return upper != 0 ? s : 1.0 - s;
}

double StudentTail(double t, int df, int tails) {
  if (df < 2) return -1.0;
  const double u = 1.0 / df;
  const double k1 = ((((5.127212 * u - 2.657697) * u + 0.4517029) * u - 0.02763334) * u + 0.000579602) /
                    (1.0 - (0.5657187 - 21.83269 * u) * u);
  const double k2 = ((((9.249528 - 19.08115 * u) * u - 1.280346) * u + 0.03789901) * u - 9.187228e-5) /
                    (1.0 - (2.777816 - 16.46132 * u) * u);
  const double k3 = ((((25.77532 * u - 12.75532) * u + 1.88993) * u - 0.1408854) * u + 0.009694901) /
                    (1.0 - (4.233736 - 14.3963 * u) * u);
  const double k4 = ((((5.679969 - 12.96519 * u) * u - 0.03317253) * u - 0.2206018) * u + 0.04431742) /
                    (1.0 - (5.166733 - 13.49862 * u) * u);
  const double k5 = ((((2.151185 * u - 1.222452) * u + 1.390993) * u - 0.581821) * u + 0.09979441) /
                    (1.0 - (5.537409 - 11.42343 * u) * u);

  const double a = std::fabs(t);
  double q = ((((k1 * a + k2) * a + k3) * a + k4) * a + k5) * a + 1.0;
  q *= q;  // q^2
  q *= q;  // q^4
  q *= q;  // q^8
  const double p = 0.5 / q;

  if (t >= 0.0 && tails == 0) return 1.0 - p;
  if (tails == 2) return 2.0 * p;
  return p;
}

double FTail(double F, int df1, int df2, int upper) {
  if (df1 < 1 || df2 < 1 || std::isnan(F)) return -1.0;
  double lower = 0.0;
  double upperTail = 1.0;
  if (F > 0.0) {
    // x = df1 F / df2; the lower tail is I_y(df1/2, df2/2) with
    // y = x / (1 + x) and the upper tail I_w(df2/2, df1/2) with w = 1 / (1 + x).
    const double x = df1 * F / df2;
    if (std::isinf(x)) {
      lower = 1.0;
      upperTail = 0.0;
    } else {
      const double w = 1.0 / (1.0 + x);
      const double wx = x / (1.0 + x);
      // The series runs in the tail on the near side of the mean of the
      // beta variable; the other tail is its complement.
      const double mean = static_cast<double>(df1) / (df1 + df2);
      if (wx <= mean) {
        lower = IncompleteBetaHalfIntegers(wx, w, df1, df2);
        upperTail = 1.0 - lower;
      } else {
        upperTail = IncompleteBetaHalfIntegers(w, wx, df2, df1);
        lower = 1.0 - upperTail;
      }
    }
  }
  return upper != 0 ? upperTail : lower;
}

double NoncentralF(double x, double df1, double df2, double ncp, int lower_tail, int log_p) {
  return ::pnf(x, df1, df2, ncp, lower_tail, log_p);
}

double FQuantile(double p, double df1, double df2, int lower_tail, int log_p) {
  return ::qf(p, df1, df2, lower_tail, log_p);
}

double TQuantile(double p, double df, int lower_tail, int log_p) { return ::qt(p, df, lower_tail, log_p); }

double TDistribution(double t, double df, int lower_tail, int log_p) { return ::pt(t, df, lower_tail, log_p); }

double FDistribution(double x, double df1, double df2, int lower_tail, int log_p) {
  return ::pf(x, df1, df2, lower_tail, log_p);
}

int RoundHalfAway(double x) {
  // Truncation of x + 0.5 (x - 0.5 below zero): halves go away from zero.
  // The sum is formed in double, so 0.49999999999999994 + 0.5 rounds to 1
  // and gives 1; callers rely on this exact rule. Out-of-range values
  // saturate and NaN gives 0 instead of an undefined conversion.
  if (std::isnan(x)) return 0;
  const double r = std::trunc(x >= 0.0 ? x + 0.5 : x - 0.5);
  if (r >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
  if (r <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
  return static_cast<int>(r);
}

}  // namespace ZOC::detail::probability
