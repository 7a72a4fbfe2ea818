#include "StatisticsAnalyst/detail/permutation/ConditionalRandomization.h"

#include <algorithm>
#include <numeric>

#include "StatisticsAnalyst/detail/permutation/CounterRandom.h"

namespace ZOC::detail::permutation {

double FoldedPseudoP(const Simulated& simulated, std::int32_t permutations) {
  return static_cast<double>(std::min(simulated.atLeast, simulated.atMost) + 1) /
         (static_cast<double>(permutations) + 1.0);
}

namespace {

// Up to this many neighbours, a permutation's draws are taken one by one
// and a draw that repeats an earlier one is drawn again (few neighbours
// among many features rarely repeat); beyond, a partial Fisher-Yates shuffle
// of a table of all n - 1 positions per thread, put back after each
// permutation. Both give every ordered set of distinct neighbours the same
// chance; which one runs depends on the number of neighbours only.
constexpr std::size_t kRejectionDraws = 24;

}  // namespace

bool ConditionalRandomization::Simulate(std::int64_t i, const SparseRow& row, Scratch& scratch, Simulated& out) const {
  scratch.weights.clear();
  double observed = 0.0;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    if (row.columns[k] == i) continue;
    const double v = m_values[row.columns[k]];
    scratch.weights.push_back(row.weights[k]);
    observed += row.weights[k] * v;
  }
  const std::size_t k = scratch.weights.size();
  if (k == 0 || m_n < 2) return false;
  // Draws are taken from positions 0 .. n-2, which skip feature i.
  const auto others = static_cast<std::int32_t>(m_n - 1);
  const auto self = static_cast<std::int32_t>(i);
  const std::size_t draws = std::min<std::size_t>(k, static_cast<std::size_t>(others));
  CounterStream stream(m_seed, static_cast<std::uint64_t>(i));
  const bool dense = draws > kRejectionDraws;
  scratch.keys.resize(std::max<std::size_t>(scratch.keys.size(), draws));
  if (dense && scratch.indices.size() != static_cast<std::size_t>(others)) {
    scratch.indices.resize(static_cast<std::size_t>(others));
    std::iota(scratch.indices.begin(), scratch.indices.end(), 0);
  }
  Simulated result;
  const double* w = scratch.weights.data();
  for (std::int32_t p = 0; p < m_permutations; ++p) {
    double sum = 0.0;
    if (dense) {
      std::int32_t* table = scratch.indices.data();
      scratch.swaps.clear();
      for (std::size_t m = 0; m < draws; ++m) {
        const auto r = static_cast<std::int32_t>(m + stream.Below(static_cast<std::uint32_t>(others - m)));
        const std::int32_t picked = table[r];
        table[r] = table[m];
        table[m] = picked;
        scratch.swaps.push_back(r);
        sum += w[m] * m_values[picked + (picked >= self)];
      }
      for (std::size_t m = draws; m-- > 0;) std::swap(table[m], table[scratch.swaps[m]]);
    } else {
      // All draws first, then all values: the loads do not wait on each other.
      std::int32_t* drawn = scratch.keys.data();
      for (std::size_t m = 0; m < draws; ++m) {
        std::int32_t r;
        bool repeated;
        do {
          r = static_cast<std::int32_t>(stream.Below(static_cast<std::uint32_t>(others)));
          repeated = false;
          for (std::size_t q = 0; q < m; ++q) repeated |= drawn[q] == r;
        } while (repeated);
        drawn[m] = r;
      }
      for (std::size_t m = 0; m < draws; ++m) sum += w[m] * m_values[drawn[m] + (drawn[m] >= self)];
    }
    result.atLeast += sum >= observed;
    result.atMost += sum <= observed;
    result.sum += sum;
    result.sumSquares += sum * sum;
  }
  out = result;
  return true;
}

}  // namespace ZOC::detail::permutation
