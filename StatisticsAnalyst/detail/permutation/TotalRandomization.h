#pragma once
// Total randomization of a global statistic: the values are shuffled over
// all features P times and the statistic is recomputed on each shuffle with
// the same weights. Shuffle p comes from its own random stream (seed, p) and
// starts from the observed order, so the simulations do not depend on the
// number of threads that run them.
#include <cstdint>
#include <functional>
#include <vector>

#include "StatisticsAnalyst/detail/common/SparseRow.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC::detail::permutation {

// A whole dataset's weights rows, laid end to end in feature order: held
// once so that every shuffle reads them from memory.
struct RowStore {
  // Row i (rows come in order 0, 1, ...); `withDiagonal` false leaves a
  // stored w(i, i) out of the row but still lets it flag the row.
  void Add(std::int64_t i, const SparseRow& row, bool withDiagonal);
  std::int64_t Count() const { return static_cast<std::int64_t>(offsets.size()) - 1; }

  std::vector<std::int64_t> offsets{0};
  std::vector<std::int32_t> columns;
  std::vector<double> weights;
  // Whether the row held a weight outside (-1e-20, 1e-20), the diagonal included.
  std::vector<std::uint8_t> flagged;
};

// The statistic a shuffle is scored with.
enum class GlobalForm {
  // Σ_i y_i Σ_j w(i, j) y_j: Moran's I up to the constant n / (S0 Σ d²),
  // with y the deviations from the mean.
  CrossProduct,
  // Σ_flagged y_i Σ_{j≠i} w(i, j) y_j over Σ_flagged y_i (Σ y − y_i):
  // General G, with y the values.
  GeneralG,
};

// The permutation test of a global statistic beside its analytic one.
struct GlobalSimulation {
  std::int32_t permutations = 0;
  double observed = 0.0;  // the statistic as the shuffles score it
  double pseudoP = 0.0;   // folded: (min(#sim ≥ obs, #sim ≤ obs) + 1) / (P + 1)
  double mean = 0.0;      // of the simulated statistics
  double variance = 0.0;  // of the simulated statistics (divisor P - 1)
  double zScore = 0.0;    // (observed - mean) / sqrt(variance)
};

// P shuffles of `values` over `rows`, each statistic multiplied by `scale`.
// `step(done, total)` reports progress between batches of shuffles and
// returns false to stop ("IMb030").
Status SimulateGlobal(GlobalForm form, const std::vector<double>& values, const RowStore& rows, double scale,
                      std::int32_t permutations, std::uint64_t seed,
                      const std::function<bool(std::int64_t, std::int64_t)>& step, GlobalSimulation& out);

}  // namespace ZOC::detail::permutation
