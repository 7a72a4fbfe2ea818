#pragma once
// The normal, chi-square, t and F tail probabilities the statistics report,
// and the non-central F distribution and the F and t quantiles (Rmath).
namespace ZOC::detail::probability {

// Two-sided normal p-value of a z-score (Abramowitz–Stegun 26.2.17);
// exactly 0 beyond |z| > 6.
double NormalTwoSided(double z);
// Chi-square tail probability (upper ≠ 0) or its complement; -1 for x < 0
// or df < 1. For odd df the start term is twice the classic one.
double ChiSquareTail(double x, int df, int upper);
// Student t tail by a rational approximation: tails = 2 two-sided, other
// values one-sided (1 − p for t ≥ 0 with tails = 0); -1 for df < 2.
double StudentTail(double t, int df, int tails);
// F distribution tail (upper ≠ 0) or its complement, integer degrees of freedom.
double FTail(double F, int df1, int df2, int upper);
double NoncentralF(double x, double df1, double df2, double ncp, int lower_tail, int log_p);
double FQuantile(double p, double df1, double df2, int lower_tail, int log_p);
double TQuantile(double p, double df, int lower_tail, int log_p);
// Rmath's t and F distribution functions, for real degrees of freedom.
double TDistribution(double t, double df, int lower_tail, int log_p);
double FDistribution(double x, double df1, double df2, int lower_tail, int log_p);
// Halves away from zero: 2.5 gives 3, -2.5 gives -3; saturates, NaN gives 0.
int RoundHalfAway(double x);

}  // namespace ZOC::detail::probability
