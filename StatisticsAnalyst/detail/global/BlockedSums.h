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
#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/RowsAhead.h"
#include "StatisticsAnalyst/detail/common/SparseRow.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"

namespace ZOC::detail::global {

using Exponent = ZoAnalyzingExponent;
using LUMA::LumaArray;

// Rows are summed in blocks of kSumBlock features: each block's partial sums
// start from zero and take its rows' terms, and the blocks' partials are
// added in block order. Each row's terms are formed in the row's order and
// summed exactly (detail::ExactSum), so sequential and parallel feeding, and
// any split of the rows over processes, give the same bits. The column sums
// are gathered apart, in ascending row order, on both ways.
inline constexpr std::int64_t kSumBlock = 4096;

// A feature's term of S2 = Σ (row sum + column sum)², summed exactly.
inline double S2Term(double row, double column) { return (row + column) * (row + column); }

// Feeds rows 0 .. n-1 to `sums` from `fetch(i, row)` (safe to call from
// several threads at once) on every core; `columns(sums)` fills the column
// sums as the rows would have; `step(i)` reports progress and returns false
// to stop (then the sums are incomplete and false is returned).
template <class Sums, class Fetch, class Step>
bool FeedParallel(Sums& sums, std::int64_t n, const Fetch& fetch, const Step& step) {
  using Part = typename Sums::Block;
  constexpr std::int64_t kChunk = 64 * kSumBlock;  // progress between chunks
  for (std::int64_t first = 0; first < n; first += kChunk) {
    if (!step(first)) return false;
    const std::int64_t last = std::min(n, first + kChunk);
    const std::int64_t blocks = (last - first + kSumBlock - 1) / kSumBlock;
    std::vector<Part> parts(static_cast<std::size_t>(blocks));
    bool outOfMemory = false;  // an exception must not leave the parallel region
#pragma omp parallel
    {
      RowsAhead rows(sums.Gathered());
#pragma omp for schedule(dynamic)
      for (std::int64_t b = 0; b < blocks; ++b) {
        const std::int64_t begin = first + b * kSumBlock, end = std::min(last, first + (b + 1) * kSumBlock);
        try {
          rows.Run(
              begin, end,
              [&](std::int64_t i, SparseRow& buffer) -> const SparseRow& {
                fetch(i, buffer);
                return buffer;
              },
              [&](std::int64_t i, const SparseRow& row) { sums.RowTerms(i, row, parts[static_cast<std::size_t>(b)]); });
        } catch (...) {
#pragma omp atomic write
          outOfMemory = true;
        }
      }
    }
    if (outOfMemory) throw std::bad_alloc();
    for (const Part& part : parts) sums.AddPart(part);
  }
  return n == 0 || step(n - 1);  // the last row's position, as the sequential loop shows it
}

}  // namespace ZOC::detail::global
