#include "StatisticsAnalyst/detail/global/GeneralG.h"

#include <cmath>

#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::global {

using limits::IsZero;

// ---------------------------------------------------------------- General G

GeneralGSums::GeneralGSums(const LumaArray<double>& values)
    : m_x(values), m_row(values.size(), 0.0), m_col(values.size(), 0.0) {
  m_total = SumExactly(values);
}

void GeneralGSums::RowTerms(std::int64_t i, const SparseRow& row, Block& part) {
  const GeneralGRow r = GeneralGRowTerms(i, row, m_x.data(), [&row](std::size_t k) { return row.transposed[k]; });
  const auto ii = static_cast<std::size_t>(i);
  m_row[ii] = r.s0;
  part.Add(r, m_x[ii], m_total);
}

void GeneralGSums::AddPart(const Block& part) { m_sum.Add(part); }

void GeneralGSums::AddRow(std::int64_t i, const SparseRow& row) {
  RowTerms(i, row, m_pending);
  for (std::size_t k = 0; k < row.columns.size(); ++k)
    if (row.columns[k] != i) m_col[static_cast<std::size_t>(row.columns[k])] += row.weights[k];
  if ((i + 1) % kSumBlock == 0) {
    AddPart(m_pending);
    m_pending = {};
  }
}

Status GeneralGSums::Finish(Exponent& result) const {
  // A last block that did not fill up is still pending.
  Block sum;
  sum.Add(m_sum);
  sum.Add(m_pending);
  ExactSum s2;
  SumOnEveryCore(
      static_cast<std::int64_t>(m_row.size()), 1,
      [&](std::int64_t i, ExactSum* s) {
        s->Add(S2Term(m_row[static_cast<std::size_t>(i)], m_col[static_cast<std::size_t>(i)]));
      },
      &s2);
  return Finish(static_cast<double>(m_row.size()), sum.Value(), s2.Value(), result);
}

Status GeneralGSums::Finish(double n, const Part& sum, double s2, Exponent& result) {
  if (IsZero(sum.d)) return Status::Fail(msg::ESa021);
  const double s0 = sum.s0, s1 = sum.s1;
  const double g = sum.a / sum.d;
  const double expected = s0 / (n * (n - 1));
  const double b0 = (n * n - 3 * n + 3) * s1 - n * s2 + 3 * s0 * s0;
  const double b1 = -((n * n - n) * s1 - 2 * n * s2 + 6 * s0 * s0);
  const double b2 = -(2 * n * s1 - (n + 3) * s2 + 6 * s0 * s0);
  const double b3 = 4 * (n - 1) * s1 - 2 * (n + 1) * s2 + 8 * s0 * s0;
  const double b4 = s1 - s2 + s0 * s0;
  const double m1 = sum.m1, m2 = sum.m2, m3 = sum.m3, m4 = sum.m4;
  const double q = (m1 * m1 - m2) * (m1 * m1 - m2) * n * (n - 1) * (n - 2) * (n - 3);
  if (IsZero(q)) return Status::Fail(msg::ESa021);
  const double expectedSquare =
      (b0 * m2 * m2 + b1 * m4 + b2 * m1 * m1 * m2 + b3 * m1 * m3 + b4 * m1 * m1 * m1 * m1) / q;
  const double variance = expectedSquare - expected * expected;
  if (variance < 0 || IsZero(variance)) return Status::Fail(msg::ESa027);
  const double z = (g - expected) / std::sqrt(variance);
  result = {g, expected, variance, z, ClampedPvalue(z)};
  return Status::Ok();
}

}  // namespace ZOC::detail::global
