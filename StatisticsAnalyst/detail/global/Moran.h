#pragma once
// The sums of global Moran's I, one sparse weights row at a time.
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/global/BlockedSums.h"

namespace ZOC::detail::global {

// One row's terms of Moran's I: its weight sum (S0's share and the row sum),
// its share of S1, Σ w(i, j)² + w(i, j)·w(j, i), and the lag Σ w(i, j) d(j).
// `transposed(k)` is w(j, i) for the row's k-th weight. Every caller forms a
// row's terms with this one expression, and the rows' terms are summed
// exactly, so any split of the rows gives the same bits.
struct MoranRow {
  double s0 = 0, s1 = 0, lag = 0;
};
template <class Transposed>
MoranRow MoranRowTerms(const SparseRow& row, const double* d, const Transposed& transposed) {
  MoranRow r;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    const double w = row.weights[k];
    r.s0 += w;
    r.s1 += w * w + w * transposed(k);
    r.lag += w * d[static_cast<std::size_t>(row.columns[k])];
  }
  return r;
}

// Moran's I under the randomization assumption.
class MoranSums {
 public:
  // The pairs' totals, as FinishMoran takes them.
  struct Part {
    double s0 = 0, s1 = 0, cp = 0;
  };
  // Rows' terms summed exactly: S0, S1 and the cross product Σ d(i)·lag(i).
  struct Block {
    ExactSum s0, s1, cp;
    void Add(const MoranRow& r, double di) { s0.Add(r.s0), s1.Add(r.s1), cp.Add(di * r.lag); }
    void Add(const Block& o) { s0.Add(o.s0), s1.Add(o.s1), cp.Add(o.cp); }
    Part Value() const { return {s0.Value(), s1.Value(), cp.Value()}; }
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
  void RowTerms(std::int64_t i, const SparseRow& row, Block& part);
  void AddPart(const Block& part);
  std::vector<double>& Columns() { return m_col; }
  static constexpr bool kDiagonalInColumns = true;
  // The per-feature values RowTerms reads at each row's columns.
  const double* Gathered() const { return m_d.data(); }

 private:
  std::vector<double> m_d;  // deviations from the mean
  std::vector<double> m_row, m_col;
  Block m_total, m_pending;
};

// Moran's I from its finished sums: the deviations, every feature's row and
// column weight sums and the pairs' totals. Fails with "ESa030", "ESa021" or
// "ESa027".
Status FinishMoran(const std::vector<double>& deviations, const std::vector<double>& rows,
                   const std::vector<double>& columns, const MoranSums::Part& total, Exponent& result);
// The same from the totals alone: n, the pairs' sums, S2 and the exact
// Σ d², Σ d⁴ of the deviations. S2 = Σ (row sum + column sum)², each
// feature's term formed by S2Term and the terms summed exactly.
Status FinishMoran(double n, const MoranSums::Part& total, double s2, double d2, double d4, Exponent& result);

}  // namespace ZOC::detail::global
