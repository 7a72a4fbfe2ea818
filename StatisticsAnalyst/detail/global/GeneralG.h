#pragma once
// The sums of General G, one sparse weights row at a time.
#include "StatisticsAnalyst/detail/global/BlockedSums.h"

namespace ZOC::detail::global {

// General G, with the flag rule: a feature counts in the numerator, the
// denominator and the value moments only when its row holds a weight outside
// (-1e-20, 1e-20); its weights enter S0, S1 and S2 in any case.
class GeneralGSums {
 public:
  struct Part {
    double s0 = 0, s1 = 0, a = 0, d = 0, m1 = 0, m2 = 0, m3 = 0, m4 = 0;
  };
  explicit GeneralGSums(const LumaArray<double>& values);
  void AddRow(std::int64_t i, const SparseRow& row);
  // Fails with "ESa021" or "ESa027".
  Status Finish(Exponent& result) const;
  // The same from the totals alone: n, the summed parts and S2.
  static Status Finish(double n, const Part& sum, double s2, Exponent& result);

  void RowTerms(std::int64_t i, const SparseRow& row, Part& part);
  void AddPart(const Part& part);
  std::vector<double>& Columns() { return m_col; }
  static constexpr bool kDiagonalInColumns = false;
  // The per-feature values RowTerms reads at each row's columns.
  const double* Gathered() const { return m_x.data(); }

 private:
  const LumaArray<double>& m_x;
  double m_total = 0;  // Σ x over all features
  std::vector<double> m_row, m_col;
  Part m_sum, m_pending;
};

}  // namespace ZOC::detail::global
