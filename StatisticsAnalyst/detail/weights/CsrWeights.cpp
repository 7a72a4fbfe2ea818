#include "StatisticsAnalyst/detail/weights/CsrWeights.h"

#include <unistd.h>

#include <algorithm>

#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"

namespace ZOC::detail::weights {

std::uint64_t DefaultBudget() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long size = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || size <= 0) return std::uint64_t{1} << 30;  // unknown: 1 GiB
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) / 4;
}

std::uint64_t ResolveBudget(std::int64_t requested) {
  return requested > 0 ? static_cast<std::uint64_t>(requested) : DefaultBudget();
}

std::uint64_t CsrWeights::Bytes(std::int64_t n, std::int64_t stored) {
  // Offsets (n + 1) and row sums (n), then a column and a weight per entry.
  return static_cast<std::uint64_t>(n + 1) * sizeof(std::int64_t) + static_cast<std::uint64_t>(n) * sizeof(double) +
         static_cast<std::uint64_t>(stored) * (sizeof(std::int32_t) + sizeof(double));
}

bool CsrWeights::Start(std::int64_t n, std::uint64_t budget) {
  Release();
  m_budget = budget;
  if (n < 0 || Bytes(n, 0) > budget) return false;
  m_offsets.reserve(static_cast<std::size_t>(n) + 1);
  m_sums.reserve(static_cast<std::size_t>(n));
  m_offsets.push_back(0);
  return true;
}

bool CsrWeights::Append(const std::int64_t* columns, const double* weights, std::size_t size) {
  const std::int64_t rows = Count() + 1;
  if (Bytes(rows, Stored() + static_cast<std::int64_t>(size)) > m_budget) {
    Release();
    return false;
  }
  // The same filter and the same summation order as the file writer.
  double sum = 0.0;
  for (std::size_t h = 0; h < size; ++h) {
    if (!weightsfile::IsStoredWeight(weights[h])) continue;
    if (m_binary && weights[h] != 1.0) {
      m_binary = false;
      m_weights.assign(m_columns.size(), 1.0);
    }
    m_columns.push_back(static_cast<std::int32_t>(columns[h]));
    if (!m_binary) m_weights.push_back(weights[h]);
    sum += weights[h];
  }
  m_sums.push_back(sum);
  m_offsets.push_back(static_cast<std::int64_t>(m_columns.size()));
  return true;
}

void CsrWeights::Release() {
  std::vector<std::int64_t>().swap(m_offsets);
  std::vector<std::int32_t>().swap(m_columns);
  std::vector<double>().swap(m_weights);
  std::vector<double>().swap(m_sums);
  std::vector<std::uint8_t>().swap(m_reverse);
  m_binary = true;
}

void CsrWeights::SetReading(bool standardized, bool normalize, bool transposed, bool symmetric,
                            const std::vector<std::int64_t>* order) {
  m_standardized = standardized;
  m_normalize = normalize;
  m_transposed = transposed;
  m_symmetric = symmetric;
  std::vector<std::uint8_t>().swap(m_reverse);
  if (transposed && !symmetric && m_binary) FindReverse(order);
}

void CsrWeights::FindReverse(const std::vector<std::int64_t>* order) {
  m_reverse.assign(m_columns.size(), 0);
  const auto n = Count();
  const bool ordered = order != nullptr && static_cast<std::int64_t>(order->size()) == n;
  // Each row writes only its own flags, so the threads' share-out changes nothing.
#pragma omp parallel for schedule(static)
  for (std::int64_t k = 0; k < n; ++k) {
    const std::int64_t i = ordered ? (*order)[static_cast<std::size_t>(k)] : k;
    const auto end = static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(i) + 1]);
    for (auto e = static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(i)]); e < end; ++e)
      m_reverse[e] = Raw(m_columns[e], static_cast<std::int32_t>(i)) != 0.0 ? 1 : 0;
  }
}

double CsrWeights::Normalized(double raw, std::int64_t row) const {
  if (!m_normalize) return raw;
  // A file without row sums reads them as 1.
  const double s = m_standardized ? m_sums[static_cast<std::size_t>(row)] : 1.0;
  return limits::IsZero(s) ? 0.0 : raw / s;
}

double CsrWeights::Raw(std::int64_t row, std::int32_t column) const {
  // Rows hold their neighbours in ascending order.
  const auto first = m_columns.begin() + m_offsets[static_cast<std::size_t>(row)];
  const auto last = m_columns.begin() + m_offsets[static_cast<std::size_t>(row) + 1];
  const auto it = std::lower_bound(first, last, column);
  return (it != last && *it == column) ? Stored(static_cast<std::size_t>(it - m_columns.begin())) : 0.0;
}

void CsrWeights::Row(std::int64_t i, ZoSparseRow& row) const {
  const auto begin = static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(i)]);
  const auto end = static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(i) + 1]);
  row.columns.assign(m_columns.begin() + static_cast<std::ptrdiff_t>(begin),
                     m_columns.begin() + static_cast<std::ptrdiff_t>(end));
  row.weights.resize(end - begin);
  row.transposed.resize(m_transposed ? end - begin : 0);
  const bool reverse = !m_reverse.empty();
  for (std::size_t k = begin; k < end; ++k) {
    const std::int32_t j = m_columns[k];
    row.weights[k - begin] = Normalized(Stored(k), i);
    if (!m_transposed) continue;
    double rawTransposed;
    if (m_symmetric)
      rawTransposed = Stored(k);
    else if (reverse)
      rawTransposed = m_reverse[k] ? 1.0 : 0.0;
    else
      rawTransposed = Raw(j, static_cast<std::int32_t>(i));
    row.transposed[k - begin] = Normalized(rawTransposed, j);
  }
}

void CsrWeights::ColumnSums(bool withDiagonal, std::vector<double>& sums) const {
  sums.assign(m_sums.size(), 0.0);
  const auto n = Count();
  for (std::int64_t i = 0; i < n; ++i) {
    const auto end = static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(i) + 1]);
    for (auto k = static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(i)]); k < end; ++k) {
      const std::int32_t j = m_columns[k];
      if (withDiagonal || j != i) sums[static_cast<std::size_t>(j)] += Normalized(Stored(k), i);
    }
  }
}

}  // namespace ZOC::detail::weights
