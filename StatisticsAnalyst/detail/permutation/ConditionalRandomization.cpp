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

// Σ w[m] value(m), m < k, in four interleaved partial sums: the additions of
// one chain overlap those of the others instead of waiting on each other.
// The observed sum is taken by the same function, so that it is rounded as
// the simulated ones are and an equal draw is seen as a tie.
template <class Value>
double WeightedSum(const double* w, std::size_t k, Value value) {
  double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
  std::size_t m = 0;
  for (; m + 4 <= k; m += 4) {
    s0 += w[m] * value(m);
    s1 += w[m + 1] * value(m + 1);
    s2 += w[m + 2] * value(m + 2);
    s3 += w[m + 3] * value(m + 3);
  }
  for (; m < k; ++m) s0 += w[m] * value(m);
  return (s0 + s1) + (s2 + s3);
}

}  // namespace

bool ConditionalRandomization::Simulate(std::int64_t i, const SparseRow& row, Scratch& scratch, Simulated& out) const {
  scratch.weights.clear();
  scratch.keys.clear();
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    if (row.columns[k] == i) continue;
    scratch.weights.push_back(row.weights[k]);
    scratch.keys.push_back(row.columns[k]);
  }
  const std::size_t k = scratch.weights.size();
  if (k == 0 || m_n < 2) return false;
  const double observed =
      WeightedSum(scratch.weights.data(), k, [&](std::size_t m) { return m_values[scratch.keys[m]]; });
  // Draws are taken from positions 0 .. n-2, which skip feature i.
  const auto others = static_cast<std::int32_t>(m_n - 1);
  const auto self = static_cast<std::int32_t>(i);
  const std::size_t draws = std::min<std::size_t>(k, static_cast<std::size_t>(others));
  CounterStream stream(m_seed, static_cast<std::uint64_t>(i));
  const bool dense = draws > kRejectionDraws;
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
      }
      sum = WeightedSum(w, draws, [&](std::size_t m) { return m_values[table[m] + (table[m] >= self)]; });
      for (std::size_t m = draws; m-- > 0;) std::swap(table[m], table[scratch.swaps[m]]);
    } else {
      // The keys held the neighbours of the observed sum and now take the
      // draws: all of them first, then all values, so that the loads do not
      // wait on each other. A 256-bit filter of the positions drawn so far
      // (by their low bits) settles most draws as new without comparing
      // them to the earlier ones.
      std::int32_t* drawn = scratch.keys.data();
      std::uint64_t seen[4] = {0, 0, 0, 0};
      for (std::size_t m = 0; m < draws; ++m) {
        std::int32_t r;
        for (;;) {
          r = static_cast<std::int32_t>(stream.Below(static_cast<std::uint32_t>(others)));
          std::uint64_t& word = seen[(r >> 6) & 3];
          const std::uint64_t bit = std::uint64_t{1} << (r & 63);
          if ((word & bit) == 0) {
            word |= bit;
            break;
          }
          bool repeated = false;
          for (std::size_t q = 0; q < m; ++q) repeated |= drawn[q] == r;
          if (!repeated) break;
        }
        drawn[m] = r;
      }
      sum = WeightedSum(w, draws, [&](std::size_t m) { return m_values[drawn[m] + (drawn[m] >= self)]; });
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
