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

void GeneralGSums::RowTerms(std::int64_t i, const SparseRow& row, Part& part) {
  const auto ii = static_cast<std::size_t>(i);
  bool flagged = false;
  double lag = 0, rowSum = 0;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    const auto j = static_cast<std::size_t>(row.columns[k]);
    const double w = row.weights[k];
    if (!IsZero(w)) flagged = true;
    if (j == ii) continue;  // the diagonal only decides the flag
    part.s0 += w;
    part.s1 += w * w + w * row.transposed[k];
    rowSum += w;
    lag += w * m_x[j];
  }
  m_row[ii] = rowSum;
  if (!flagged) return;
  const double x = m_x[ii];
  part.a += x * lag;
  part.d += x * (m_total - x);
  part.m1 += x;
  part.m2 += x * x;
  part.m3 += x * x * x;
  part.m4 += x * x * x * x;
}

void GeneralGSums::AddPart(const Part& part) {
  m_sum.s0 += part.s0, m_sum.s1 += part.s1, m_sum.a += part.a, m_sum.d += part.d;
  m_sum.m1 += part.m1, m_sum.m2 += part.m2, m_sum.m3 += part.m3, m_sum.m4 += part.m4;
}

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
  Part sum = m_sum;
  const Part& p = m_pending;
  sum.s0 += p.s0, sum.s1 += p.s1, sum.a += p.a, sum.d += p.d;
  sum.m1 += p.m1, sum.m2 += p.m2, sum.m3 += p.m3, sum.m4 += p.m4;
  double s2 = 0;
  for (std::size_t i = 0; i < m_row.size(); ++i) s2 += (m_row[i] + m_col[i]) * (m_row[i] + m_col[i]);
  return Finish(static_cast<double>(m_row.size()), sum, s2, result);
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
