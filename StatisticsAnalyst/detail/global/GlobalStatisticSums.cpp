#include "StatisticsAnalyst/detail/global/GlobalStatisticSums.h"

#include <cmath>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::global {

using limits::IsZero;

// ---------------------------------------------------------------- Moran's I

ZoMoranSums::ZoMoranSums(const LumaArray<double>& values)
    : m_d(values.size()), m_row(values.size(), 0.0), m_col(values.size(), 0.0) {
  double sum = 0;
  for (double x : values) sum += x;
  const double mean = values.empty() ? 0.0 : sum / static_cast<double>(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) m_d[i] = values[i] - mean;
}

void ZoMoranSums::AddRow(std::int64_t i, const ZoSparseRow& row) {
  double lag = 0;
  const auto ii = static_cast<std::size_t>(i);
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    const auto j = static_cast<std::size_t>(row.columns[k]);
    const double w = row.weights[k];
    m_s0 += w;
    m_s1 += w * w + w * row.transposed[k];
    m_row[ii] += w;
    m_col[j] += w;
    lag += w * m_d[j];
  }
  m_cp += m_d[ii] * lag;
}

Status ZoMoranSums::Finish(Exponent& result) const {
  double s2 = 0, d2 = 0, d4 = 0;
  for (std::size_t i = 0; i < m_d.size(); ++i) {
    const double rc = m_row[i] + m_col[i];
    s2 += rc * rc;
    d2 += m_d[i] * m_d[i];
    d4 += m_d[i] * m_d[i] * m_d[i] * m_d[i];
  }
  if (IsZero(m_s0) || IsZero(s2) || IsZero(m_s1)) return Status::Fail(msg::ESa030);
  if (IsZero(d2)) return Status::Fail(msg::ESa021);
  const double n = static_cast<double>(m_d.size());
  const double s1 = m_s1, s0 = m_s0;
  const double b2 = (d4 / n) / ((d2 / n) * (d2 / n));
  const double index = (n / s0) * (m_cp / d2);
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

// ---------------------------------------------------------------- General G

ZoGeneralGSums::ZoGeneralGSums(const LumaArray<double>& values)
    : m_x(values), m_row(values.size(), 0.0), m_col(values.size(), 0.0) {
  for (double x : values) m_total += x;
}

void ZoGeneralGSums::AddRow(std::int64_t i, const ZoSparseRow& row) {
  const auto ii = static_cast<std::size_t>(i);
  bool flagged = false;
  double lag = 0;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    const auto j = static_cast<std::size_t>(row.columns[k]);
    const double w = row.weights[k];
    if (!IsZero(w)) flagged = true;
    if (j == ii) continue;  // the diagonal only decides the flag
    m_s0 += w;
    m_s1 += w * w + w * row.transposed[k];
    m_row[ii] += w;
    m_col[j] += w;
    lag += w * m_x[j];
  }
  if (!flagged) return;
  const double x = m_x[ii];
  m_a += x * lag;
  m_d += x * (m_total - x);
  m_m1 += x;
  m_m2 += x * x;
  m_m3 += x * x * x;
  m_m4 += x * x * x * x;
}

Status ZoGeneralGSums::Finish(Exponent& result) const {
  if (IsZero(m_d)) return Status::Fail(msg::ESa021);
  double s2 = 0;
  for (std::size_t i = 0; i < m_row.size(); ++i) s2 += (m_row[i] + m_col[i]) * (m_row[i] + m_col[i]);
  const double n = static_cast<double>(m_row.size());
  const double s0 = m_s0, s1 = m_s1;
  const double g = m_a / m_d;
  const double expected = s0 / (n * (n - 1));
  const double b0 = (n * n - 3 * n + 3) * s1 - n * s2 + 3 * s0 * s0;
  const double b1 = -((n * n - n) * s1 - 2 * n * s2 + 6 * s0 * s0);
  const double b2 = -(2 * n * s1 - (n + 3) * s2 + 6 * s0 * s0);
  const double b3 = 4 * (n - 1) * s1 - 2 * (n + 1) * s2 + 8 * s0 * s0;
  const double b4 = s1 - s2 + s0 * s0;
  const double m1 = m_m1, m2 = m_m2, m3 = m_m3, m4 = m_m4;
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
