#pragma once
// The sums behind global Moran's I and General G, accumulated one sparse
// weights row at a time. Both the in-memory weights and the rows streamed
// from a weights file feed them, so both paths give the same numbers.
//
// A row of feature i lists its stored weights w(i, j) and, for each, the
// weight w(j, i) at the transposed position (0 when none is stored). With
// these, every sum over all pairs runs over the stored weights only:
//   S1 = ½ Σ_{i≠j} (w(i,j) + w(j,i))² = Σ w(i,j)² + Σ w(i,j)·w(j,i),
// the second sum taken over stored weights (the cross term is 0 elsewhere),
// and the column sums are gathered by adding w(i, j) to column j.
//
// The values are expected finite and within a range whose squares and
// fourth powers do not overflow (see ScaleToUnitRange).
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/detail/common/SparseRow.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC::detail::global {

using Exponent = ZoAnalyzingPatterns::ZoAnalyzingExponent;

// Moran's I under the randomization assumption.
class ZoMoranSums {
 public:
  explicit ZoMoranSums(const LumaArray<double>& values);
  void AddRow(std::int64_t i, const ZoSparseRow& row);
  // Fails with "ESa030", "ESa021" or "ESa027".
  Status Finish(Exponent& result) const;

 private:
  std::vector<double> m_d;  // deviations from the mean
  std::vector<double> m_row, m_col;
  double m_s0 = 0, m_s1 = 0, m_cp = 0;
};

// General G, with the flag rule: a feature counts in the numerator, the
// denominator and the value moments only when its row holds a weight outside
// (-1e-20, 1e-20); its weights enter S0, S1 and S2 in any case.
class ZoGeneralGSums {
 public:
  explicit ZoGeneralGSums(const LumaArray<double>& values);
  void AddRow(std::int64_t i, const ZoSparseRow& row);
  // Fails with "ESa021" or "ESa027".
  Status Finish(Exponent& result) const;

 private:
  const LumaArray<double>& m_x;
  double m_total = 0;  // Σ x over all features
  std::vector<double> m_row, m_col;
  double m_s0 = 0, m_s1 = 0, m_a = 0, m_d = 0, m_m1 = 0, m_m2 = 0, m_m3 = 0, m_m4 = 0;
};

}  // namespace ZOC::detail::global
