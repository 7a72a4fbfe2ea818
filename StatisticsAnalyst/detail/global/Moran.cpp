#include "StatisticsAnalyst/detail/global/Moran.h"

#include <cmath>

#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::global {

using limits::IsZero;

// ---------------------------------------------------------------- Moran's I

MoranSums::MoranSums(const LumaArray<double>& values)
    : m_d(Deviations(values)), m_row(values.size(), 0.0), m_col(values.size(), 0.0) {}

std::vector<double> MoranSums::Deviations(const LumaArray<double>& values) {
  const double mean = MomentsOf(values).mean;
  std::vector<double> d(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) d[i] = values[i] - mean;
  return d;
}

void MoranSums::RowTerms(std::int64_t i, const SparseRow& row, Block& part) {
  const MoranRow r = MoranRowTerms(row, m_d.data(), [&row](std::size_t k) { return row.transposed[k]; });
  const auto ii = static_cast<std::size_t>(i);
  m_row[ii] = r.s0;
  part.Add(r, m_d[ii]);
}

void MoranSums::AddPart(const Block& part) { m_total.Add(part); }

void MoranSums::AddRow(std::int64_t i, const SparseRow& row) {
  RowTerms(i, row, m_pending);
  for (std::size_t k = 0; k < row.columns.size(); ++k)
    m_col[static_cast<std::size_t>(row.columns[k])] += row.weights[k];
  if ((i + 1) % kSumBlock == 0) {
    AddPart(m_pending);
    m_pending = {};
  }
}

Status MoranSums::Finish(Exponent& result) const {
  // A last block that did not fill up is still pending.
  Block total;
  total.Add(m_total);
  total.Add(m_pending);
  return FinishMoran(m_d, m_row, m_col, total.Value(), result);
}

Status FinishMoran(const std::vector<double>& deviations, const std::vector<double>& rows,
                   const std::vector<double>& columns, const MoranSums::Part& total, Exponent& result) {
  // S2, and the deviations' powers summed exactly as the moments of the values are.
  ExactSum sums[3];
  SumOnEveryCore(
      static_cast<std::int64_t>(deviations.size()), 3,
      [&](std::int64_t i, ExactSum* s) {
        const auto k = static_cast<std::size_t>(i);
        s[0].Add(S2Term(rows[k], columns[k]));
        HighPowers(deviations[k], 0.0, s[1], s[2]);
      },
      sums);
  return FinishMoran(static_cast<double>(deviations.size()), total, sums[0].Value(), sums[1].Value(), sums[2].Value(),
                     result);
}

Status FinishMoran(double n, const MoranSums::Part& total, double s2, double d2, double d4, Exponent& result) {
  const double s0 = total.s0, s1 = total.s1, cp = total.cp;
  if (IsZero(s0) || IsZero(s2) || IsZero(s1)) return Status::Fail(msg::ESa030);
  if (IsZero(d2)) return Status::Fail(msg::ESa021);
  const double b2 = (d4 / n) / ((d2 / n) * (d2 / n));
  const double index = (n / s0) * (cp / d2);
  const double expected = -1.0 / (n - 1.0);
  const double expectedSquare =
      (n * ((n * n - 3 * n + 3) * s1 - n * s2 + 3 * s0 * s0) - b2 * ((n * n - n) * s1 - 2 * n * s2 + 6 * s0 * s0)) /
      ((n - 1) * (n - 2) * (n - 3) * s0 * s0);
  const double variance = expectedSquare - expected * expected;
  if (variance < 0 || IsZero(variance)) return Status::Fail(msg::ESa027);
  const double z = (index - expected) / std::sqrt(variance);
  result = {index, expected, variance, z, ClampedPvalue(z)};
  return Status::Ok();
}

}  // namespace ZOC::detail::global
