#pragma once
// The sums of global Moran's I, one sparse weights row at a time.
#include "StatisticsAnalyst/detail/global/BlockedSums.h"

namespace ZOC::detail::global {

// Moran's I under the randomization assumption.
class MoranSums {
 public:
  struct Part {
    double s0 = 0, s1 = 0, cp = 0;
  };
  explicit MoranSums(const LumaArray<double>& values);
  // The values' deviations from their mean, as the sums use them.
  static std::vector<double> Deviations(const LumaArray<double>& values);
  // Rows in order 0, 1, ..., one at a time.
  void AddRow(std::int64_t i, const SparseRow& row);
  // Fails with "ESa030", "ESa021" or "ESa027".
  Status Finish(Exponent& result) const;

  // The parallel feed (FeedParallel): row i's own terms into `part`, a
  // finished block's part, and the column sums (diagonal included).
  void RowTerms(std::int64_t i, const SparseRow& row, Part& part);
  void AddPart(const Part& part);
  std::vector<double>& Columns() { return m_col; }
  static constexpr bool kDiagonalInColumns = true;
  // The per-feature values RowTerms reads at each row's columns.
  const double* Gathered() const { return m_d.data(); }

 private:
  std::vector<double> m_d;  // deviations from the mean
  std::vector<double> m_row, m_col;
  Part m_total, m_pending;
};

// Moran's I from its finished sums: the deviations, every feature's row and
// column weight sums and the pairs' totals. Fails with "ESa030", "ESa021" or
// "ESa027".
Status FinishMoran(const std::vector<double>& deviations, const std::vector<double>& rows,
                   const std::vector<double>& columns, const MoranSums::Part& total, Exponent& result);
// The same from the totals alone: n, the pairs' sums, S2 and the exact
// Σ d², Σ d⁴ of the deviations.
Status FinishMoran(double n, const MoranSums::Part& total, double s2, double d2, double d4, Exponent& result);

}  // namespace ZOC::detail::global
