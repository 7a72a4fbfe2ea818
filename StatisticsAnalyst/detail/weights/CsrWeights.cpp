#include "StatisticsAnalyst/detail/weights/CsrWeights.h"

#include <unistd.h>

#include <algorithm>

#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"

namespace ZOC::detail::weights {

namespace {
// How far ahead (in stored weights) the loops that jump from row to row at
// random ask for the memory they will read.
constexpr std::size_t kPrefetch = 16;
}  // namespace

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
  // Each row's bounds and sum, then a column and a weight per entry.
  return static_cast<std::uint64_t>(n) * (sizeof(Span) + sizeof(double)) +
         static_cast<std::uint64_t>(stored) * (sizeof(std::int32_t) + sizeof(double));
}

bool CsrWeights::Start(std::int64_t n, std::uint64_t budget) {
  Release();
  m_budget = budget;
  if (n < 0 || Bytes(n, 0) > budget) return false;
  m_rows.assign(static_cast<std::size_t>(n), Span{});
  m_sums.assign(static_cast<std::size_t>(n), 0.0);
  return true;
}

bool CsrWeights::AppendRows(const std::vector<RowView>& rows) {
  const auto count = static_cast<std::int64_t>(rows.size());
  std::vector<std::int64_t> kept(rows.size());
  bool weighted = false;
#pragma omp parallel for schedule(static) reduction(|| : weighted)
  for (std::int64_t r = 0; r < count; ++r) {
    const RowView& row = rows[static_cast<std::size_t>(r)];
    std::int64_t stored = 0;
    for (std::size_t h = 0; h < row.size; ++h)
      if (weights::IsStoredWeight(row.weights[h])) {
        ++stored;
        weighted = weighted || row.weights[h] != 1.0;
      }
    kept[static_cast<std::size_t>(r)] = stored;
  }
  std::int64_t total = Stored();
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const RowView& row = rows[r];
    if (row.row < 0 || row.row >= Count()) {
      Release();
      return false;
    }
    m_rows[static_cast<std::size_t>(row.row)] = {total, total + kept[r]};
    total += kept[r];
  }
  if (Bytes(Count(), total) > m_budget) {
    Release();
    return false;
  }
  m_rowsSet += count;
  Reserve(total);
  if (weighted && m_binary) {
    m_binary = false;
    m_weights.reserve(m_columns.capacity());
    m_weights.assign(m_columns.size(), 1.0);
  }
  m_columns.resize(static_cast<std::size_t>(total));
  if (!m_binary) m_weights.resize(static_cast<std::size_t>(total));
    // The same filter and the same summation order as the file writer.
#pragma omp parallel for schedule(static)
  for (std::int64_t r = 0; r < count; ++r) {
    const RowView& row = rows[static_cast<std::size_t>(r)];
    std::size_t at = Begin(row.row);
    double sum = 0.0;
    for (std::size_t h = 0; h < row.size; ++h) {
      if (!weights::IsStoredWeight(row.weights[h])) continue;
      m_columns[at] = static_cast<std::int32_t>(row.columns[h]);
      if (!m_binary) m_weights[at] = row.weights[h];
      ++at;
      sum += row.weights[h];
    }
    m_sums[static_cast<std::size_t>(row.row)] = sum;
  }
  return true;
}

// Rows come a block at a time. Left to themselves, the arrays would double
// a dozen times on the way to 10^8 entries, each time into fresh memory that
// the system zeroes and the old entries are copied to. Instead they grow
// once to what the rows set so far foretell for all n (an eighth over, and
// within the budget); pages the rows never reach are never touched.
void CsrWeights::Reserve(std::int64_t total) {
  if (static_cast<std::size_t>(total) <= m_columns.capacity() || m_rowsSet <= 0) return;
  const double perRow = static_cast<double>(total) / static_cast<double>(m_rowsSet);
  const double foretold = perRow * static_cast<double>(Count()) * 1.125;
  const std::uint64_t perEntry = sizeof(std::int32_t) + (m_binary ? 0 : sizeof(double));
  const std::uint64_t fixed = Bytes(Count(), 0);
  const double room = m_budget > fixed ? static_cast<double>((m_budget - fixed) / perEntry) : 0.0;
  const auto want = static_cast<std::size_t>(std::max(static_cast<double>(total), std::min(foretold, room)));
  m_columns.reserve(want);
  if (!m_binary) m_weights.reserve(want);
}

void CsrWeights::Release() {
  std::vector<Span>().swap(m_rows);
  std::vector<std::int32_t>().swap(m_columns);
  std::vector<double>().swap(m_weights);
  std::vector<double>().swap(m_sums);
  std::vector<std::uint8_t>().swap(m_reverse);
  m_binary = true;
  m_next = 0;
  m_rowsSet = 0;
}

void CsrWeights::SetReading(bool standardized, bool normalize, bool transposed, bool symmetric,
                            const std::vector<std::int64_t>* order) {
  m_standardized = standardized;
  m_normalize = normalize;
  m_transposed = transposed;
  m_symmetric = symmetric;
  std::vector<std::uint8_t>().swap(m_reverse);
  if (transposed && !symmetric && m_binary) FindReverse(order);
  InFeatureOrder();
}

void CsrWeights::InFeatureOrder() {
  const auto n = Count();
  bool ordered = true;
  for (std::int64_t i = 0; i < n && ordered; ++i) ordered = Begin(i) == (i == 0 ? 0 : End(i - 1));
  if (ordered) return;
  // Rows set along a spatial order are read in feature order by the sums:
  // laid out that way, each row read continues where the last one ended.
  std::vector<Span> rows(static_cast<std::size_t>(n));
  std::int64_t at = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    const auto size = static_cast<std::int64_t>(End(i) - Begin(i));
    rows[static_cast<std::size_t>(i)] = {at, at + size};
    at += size;
  }
  std::vector<std::int32_t> columns(m_columns.size());
  std::vector<double> weights(m_weights.size());
  std::vector<std::uint8_t> reverse(m_reverse.size());
#pragma omp parallel for schedule(static)
  for (std::int64_t i = 0; i < n; ++i) {
    const auto from = static_cast<std::ptrdiff_t>(Begin(i)), size = static_cast<std::ptrdiff_t>(End(i) - Begin(i)),
               to = static_cast<std::ptrdiff_t>(rows[static_cast<std::size_t>(i)].begin);
    std::copy_n(m_columns.begin() + from, size, columns.begin() + to);
    if (!weights.empty()) std::copy_n(m_weights.begin() + from, size, weights.begin() + to);
    if (!reverse.empty()) std::copy_n(m_reverse.begin() + from, size, reverse.begin() + to);
  }
  m_columns.swap(columns);
  m_weights.swap(weights);
  m_reverse.swap(reverse);
  m_rows.swap(rows);
}

void CsrWeights::FindReverse(const std::vector<std::int64_t>* order) {
  m_reverse.assign(m_columns.size(), 0);
  const auto n = Count();
  const bool ordered = order != nullptr && static_cast<std::int64_t>(order->size()) == n;
  const std::size_t stored = m_columns.size();
  // Each row writes only its own flags, so the threads' share-out changes nothing.
#pragma omp parallel for schedule(static)
  for (std::int64_t k = 0; k < n; ++k) {
    const std::int64_t i = ordered ? (*order)[static_cast<std::size_t>(k)] : k;
    for (std::size_t e = Begin(i), end = End(i); e < end; ++e) {
      // Rows lie in memory in the order they are visited here, so the entry
      // kPrefetch ahead is a neighbour looked up shortly; its bounds, in
      // feature order, are a cache miss each at 10^7 rows unless asked early.
      if (e + kPrefetch < stored) __builtin_prefetch(&m_rows[static_cast<std::size_t>(m_columns[e + kPrefetch])]);
      m_reverse[e] = Raw(m_columns[e], static_cast<std::int32_t>(i)) != 0.0 ? 1 : 0;
    }
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
  const auto first = m_columns.begin() + static_cast<std::ptrdiff_t>(Begin(row));
  const auto last = m_columns.begin() + static_cast<std::ptrdiff_t>(End(row));
  const auto it = std::lower_bound(first, last, column);
  return (it != last && *it == column) ? Stored(static_cast<std::size_t>(it - m_columns.begin())) : 0.0;
}

void CsrWeights::Row(std::int64_t i, SparseRow& row) const {
  const std::size_t begin = Begin(i), end = End(i);
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
  const std::size_t stored = m_columns.size();
  for (std::int64_t i = 0; i < n; ++i)
    for (std::size_t k = Begin(i), end = End(i); k < end; ++k) {
      // Rows are in feature order by now: the entry kPrefetch ahead is summed soon.
      if (k + kPrefetch < stored) __builtin_prefetch(&sums[static_cast<std::size_t>(m_columns[k + kPrefetch])], 1);
      const std::int32_t j = m_columns[k];
      if (withDiagonal || j != i) sums[static_cast<std::size_t>(j)] += Normalized(Stored(k), i);
    }
}

}  // namespace ZOC::detail::weights
