#pragma once
// Conditional randomization of a local statistic: feature i keeps its value
// while its neighbours' values are drawn at random, without replacement, from
// the values of the other n - 1 features, and the neighbours' weighted sum
// (the part of the statistic that the draw changes) is recomputed P times.
// Feature i's draws come from its own random stream (seed, i), so the result
// does not depend on which thread takes the feature or in what order.
//
// The statistics using it (Gi*, local Moran's I) are monotone in that sum,
// so counting the simulated sums at or above and at or below the observed
// one counts the simulated statistics likewise; the observed sum is taken in
// the same order as the simulated ones, so ties (counts, equal weights) are
// seen as ties.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/detail/common/SparseRow.h"

namespace ZOC::detail::permutation {

// What P simulations of one feature gave.
struct Simulated {
  std::int64_t atLeast = 0;  // simulated sums ≥ the observed sum
  std::int64_t atMost = 0;   // simulated sums ≤ the observed sum
  double sum = 0.0;          // Σ of the simulated sums
  double sumSquares = 0.0;   // Σ of their squares
};

// The folded pseudo p-value: (min(at least, at most) + 1) / (P + 1).
double FoldedPseudoP(const Simulated& simulated, std::int32_t permutations);

class ConditionalRandomization {
 public:
  // `values` (n of them) stay owned by the caller and unchanged while in use.
  ConditionalRandomization(const double* values, std::int64_t n, std::int32_t permutations, std::uint64_t seed)
      : m_values(values), m_n(n), m_permutations(permutations), m_seed(seed) {}

  // What one thread reuses from feature to feature.
  struct Scratch {
    std::vector<double> weights;        // the neighbours' weights, diagonal left out
    std::vector<std::int32_t> indices;  // a dense index table for many neighbours
    std::vector<std::int32_t> swaps;    // undo log of that table
    std::vector<std::int32_t> keys;     // the neighbours, then a permutation's draws
  };

  // P simulations for feature i with weights row `row` (a stored diagonal
  // weight is left out: it multiplies the feature's own value, which stays).
  // False, `out` untouched, when the feature has no neighbour to draw.
  bool Simulate(std::int64_t i, const SparseRow& row, Scratch& scratch, Simulated& out) const;

 private:
  const double* m_values;
  std::int64_t m_n;
  std::int32_t m_permutations;
  std::uint64_t m_seed;
};

}  // namespace ZOC::detail::permutation
