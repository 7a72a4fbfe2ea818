#pragma once
// The sums of General G, one sparse weights row at a time.
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/global/BlockedSums.h"

namespace ZOC::detail::global {

// One row's terms of General G (see MoranRowTerms): the weight sum and S1
// share without the diagonal, the lag Σ w(i, j) x(j), and whether the row
// holds any weight (diagonal included) outside (-1e-20, 1e-20).
struct GeneralGRow {
  double s0 = 0, s1 = 0, lag = 0;
  bool flagged = false;
};
template <class Transposed>
GeneralGRow GeneralGRowTerms(std::int64_t i, const SparseRow& row, const double* x, const Transposed& transposed) {
  GeneralGRow r;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    const double w = row.weights[k];
    if (!limits::IsZero(w)) r.flagged = true;
    if (row.columns[k] == i) continue;  // the diagonal only decides the flag
    r.s0 += w;
    r.s1 += w * w + w * transposed(k);
    r.lag += w * x[static_cast<std::size_t>(row.columns[k])];
  }
  return r;
}

// General G, with the flag rule: a feature counts in the numerator, the
// denominator and the value moments only when its row holds a weight outside
// (-1e-20, 1e-20); its weights enter S0, S1 and S2 in any case.
class GeneralGSums {
 public:
  // The totals, as Finish takes them.
  struct Part {
    double s0 = 0, s1 = 0, a = 0, d = 0, m1 = 0, m2 = 0, m3 = 0, m4 = 0;
  };
  // Rows' terms summed exactly: S0, S1, and over the flagged rows the
  // numerator Σ x(i)·lag(i), the denominator Σ x(i)(Σx − x(i)) and the
  // value moments.
  struct Block {
    ExactSum s0, s1, a, d, m1, m2, m3, m4;
    void Add(const GeneralGRow& r, double x, double total) {
      s0.Add(r.s0), s1.Add(r.s1);
      if (!r.flagged) return;
      a.Add(x * r.lag), d.Add(x * (total - x));
      m1.Add(x), m2.Add(x * x), m3.Add(x * x * x), m4.Add(x * x * x * x);
    }
    void Add(const Block& o) {
      s0.Add(o.s0), s1.Add(o.s1), a.Add(o.a), d.Add(o.d), m1.Add(o.m1), m2.Add(o.m2), m3.Add(o.m3), m4.Add(o.m4);
    }
    Part Value() const {
      return {s0.Value(), s1.Value(), a.Value(), d.Value(), m1.Value(), m2.Value(), m3.Value(), m4.Value()};
    }
  };
  explicit GeneralGSums(const LumaArray<double>& values);
  void AddRow(std::int64_t i, const SparseRow& row);
  // Fails with "ESa021" or "ESa027".
  Status Finish(Exponent& result) const;
  // The same from the totals alone: n, the summed parts and S2.
  static Status Finish(double n, const Part& sum, double s2, Exponent& result);

  void RowTerms(std::int64_t i, const SparseRow& row, Block& part);
  void AddPart(const Block& part);
  std::vector<double>& Columns() { return m_col; }
  static constexpr bool kDiagonalInColumns = false;
  // The per-feature values RowTerms reads at each row's columns.
  const double* Gathered() const { return m_x.data(); }

 private:
  const LumaArray<double>& m_x;
  double m_total = 0;  // Σ x over all features
  std::vector<double> m_row, m_col;
  Block m_sum, m_pending;
};

}  // namespace ZOC::detail::global
