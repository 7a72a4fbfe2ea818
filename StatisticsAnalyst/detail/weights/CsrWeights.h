#pragma once
// CsrWeights: the weights of a whole dataset held in memory as compressed
// sparse rows (row offsets, column numbers, weights, row sums), within a
// memory budget. It serves rows exactly as a binary weights file's rows are
// read back (WeightRows): the same stored weights in the same order,
// the same row sums and the same normalization, so an analysis gives the same
// numbers whichever of the two holds its weights.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/detail/common/SparseRow.h"

namespace ZOC::detail::weights {

// The budget for in-memory weights when the caller gives none (0 or less):
// a quarter of the machine's physical memory.
std::uint64_t DefaultBudget();
// `requested` bytes when positive, else DefaultBudget().
std::uint64_t ResolveBudget(std::int64_t requested);

class CsrWeights {
 public:
  // Bytes held for n rows with `stored` weights in all.
  static std::uint64_t Bytes(std::int64_t n, std::int64_t stored);

  // Starts n empty rows within `budget` bytes; false (nothing held) when even
  // the row tables do not fit.
  bool Start(std::int64_t n, std::uint64_t budget);
  // A row as its producer holds it: its feature number, neighbours and their
  // weights.
  struct RowView {
    std::int64_t row;
    const std::int64_t* columns;
    const double* weights;
    std::size_t size;
  };
  // Sets the given rows, in any order (each row once): of each, the weights
  // a weights file would store (those not counted as zero) and their sum.
  // The rows are copied on every core; each row's sum is taken in its own
  // order, as the file writer does. False, and everything released, when
  // the rows would take the weights over the budget.
  bool AppendRows(const std::vector<RowView>& rows);
  // Sets the row after the last one set by Append.
  bool Append(const std::int64_t* columns, const double* weights, std::size_t size) {
    return AppendRows({RowView{m_next++, columns, weights, size}});
  }
  void Release();

  std::int64_t Count() const { return static_cast<std::int64_t>(m_sums.size()); }
  std::int64_t Stored() const { return static_cast<std::int64_t>(m_columns.size()); }

  // How Row reads: `normalize` divides each weight by its row's sum (a zero
  // sum gives zeros) when `standardized`; `transposed` also gives each w(j, i),
  // taken from row j unless `symmetric`, where w(j, i) is w(i, j) over row
  // j's sum. `order`, when given, lists the rows in an order where
  // neighbours lie close together (spatial order): the transposed weights are
  // then looked up along it, so that the rows consulted are still in cache.
  void SetReading(bool standardized, bool normalize, bool transposed, bool symmetric,
                  const std::vector<std::int64_t>* order = nullptr);
  // Row i (0 ≤ i < Count()). Safe to call from several threads at once.
  void Row(std::int64_t i, SparseRow& row) const;
  // Σ_i w(i, j) for every column j, summed in ascending i as rows are read
  // (with the normalization of Row), the diagonal left out when asked.
  void ColumnSums(bool withDiagonal, std::vector<double>& sums) const;

 private:
  double Normalized(double raw, std::int64_t row) const;
  double Raw(std::int64_t row, std::int32_t column) const;
  double Stored(std::size_t k) const { return m_binary ? 1.0 : m_weights[k]; }
  std::size_t Begin(std::int64_t row) const {
    return static_cast<std::size_t>(m_rows[static_cast<std::size_t>(row)].begin);
  }
  std::size_t End(std::int64_t row) const {
    return static_cast<std::size_t>(m_rows[static_cast<std::size_t>(row)].end);
  }
  void FindReverse(const std::vector<std::int64_t>* order);
  // Lays the rows out in feature order, if they are not already.
  void InFeatureOrder();
  // Room for the entries of all rows, foreseen when `total` passes the arrays' capacity.
  void Reserve(std::int64_t total);

  std::uint64_t m_budget = 0;
  std::int64_t m_next = 0;     // the row Append sets
  std::int64_t m_rowsSet = 0;  // rows set so far, which foretell the entries of all
  // Row i's weights are at [begin, end) of the arrays below; rows lie in the
  // order they were set, which need not be feature order. Both bounds share
  // a cache line, since rows are looked up at random for w(j, i).
  struct Span {
    std::int64_t begin = 0, end = 0;
  };
  std::vector<Span> m_rows;
  std::vector<std::int32_t> m_columns;
  // Every stored weight is 1 (K nearest, fixed band, contiguity): the weights
  // are not held, only the columns.
  bool m_binary = true;
  std::vector<double> m_weights;
  std::vector<double> m_sums;
  // For binary asymmetric weights: whether row j holds column i, for the
  // stored w(i, j) at the same position (1 byte a weight instead of a search
  // through row j per weight read).
  std::vector<std::uint8_t> m_reverse;
  bool m_standardized = false, m_normalize = false, m_transposed = false, m_symmetric = true;
};

}  // namespace ZOC::detail::weights
