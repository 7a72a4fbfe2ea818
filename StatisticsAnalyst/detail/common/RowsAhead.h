#pragma once
// Rows of a sparse weights matrix consumed in order, each fetched a few rows
// before its use while the values at its columns are asked for. A row's
// neighbours are features anywhere in the dataset: beyond the caches (10^7
// features) every value read at a column is otherwise a wait on memory,
// whereas asked for early, the waits of several rows overlap. Which rows are
// used, and in what order, is unchanged.
#include <cstddef>
#include <cstdint>

#include "StatisticsAnalyst/detail/common/SparseRow.h"

namespace ZOC::detail {

class RowsAhead {
 public:
  // `gathered`: the per-feature values the rows' users read at the columns.
  explicit RowsAhead(const double* gathered) : m_gathered(gathered) {}

  // use(i, row) for i in [begin, end), in order, with row i from
  // fetch(i, buffer) (which fills `buffer` or returns a row it holds).
  template <class Fetch, class Use>
  void Run(std::int64_t begin, std::int64_t end, const Fetch& fetch, const Use& use) {
    const auto ahead = [&](std::int64_t i) {
      const auto slot = static_cast<std::size_t>(i % kAhead);
      const SparseRow& row = fetch(i, m_buffers[slot]);
      m_rows[slot] = &row;
      for (const std::int32_t j : row.columns) __builtin_prefetch(m_gathered + j);
    };
    for (std::int64_t i = begin; i < end && i < begin + kAhead - 1; ++i) ahead(i);
    for (std::int64_t i = begin; i < end; ++i) {
      if (i + kAhead - 1 < end) ahead(i + kAhead - 1);
      use(i, *m_rows[static_cast<std::size_t>(i % kAhead)]);
    }
  }

 private:
  static constexpr std::int64_t kAhead = 4;
  const double* m_gathered;
  SparseRow m_buffers[kAhead];
  const SparseRow* m_rows[kAhead] = {};
};

}  // namespace ZOC::detail
