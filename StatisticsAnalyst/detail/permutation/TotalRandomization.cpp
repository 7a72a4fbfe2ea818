#include "StatisticsAnalyst/detail/permutation/TotalRandomization.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/permutation/ConditionalRandomization.h"
#include "StatisticsAnalyst/detail/permutation/CounterRandom.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::permutation {

void RowStore::Add(std::int64_t i, const SparseRow& row, bool withDiagonal) {
  bool weighted = false;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    if (!limits::IsZero(row.weights[k])) weighted = true;
    if (!withDiagonal && row.columns[k] == i) continue;
    columns.push_back(row.columns[k]);
    weights.push_back(row.weights[k]);
  }
  flagged.push_back(weighted ? 1 : 0);
  offsets.push_back(static_cast<std::int64_t>(columns.size()));
}

namespace {

double Score(GlobalForm form, const double* y, const RowStore& rows) {
  const std::int64_t n = rows.Count();
  double numerator = 0.0, total = 0.0, denominator = 0.0;
  if (form == GlobalForm::GeneralG)
    for (std::int64_t i = 0; i < n; ++i) total += y[i];
  for (std::int64_t i = 0; i < n; ++i) {
    if (form == GlobalForm::GeneralG && !rows.flagged[static_cast<std::size_t>(i)]) continue;
    double lag = 0.0;
    for (auto k = rows.offsets[static_cast<std::size_t>(i)]; k < rows.offsets[static_cast<std::size_t>(i) + 1]; ++k)
      lag += rows.weights[static_cast<std::size_t>(k)] * y[rows.columns[static_cast<std::size_t>(k)]];
    numerator += y[i] * lag;
    if (form == GlobalForm::GeneralG) denominator += y[i] * (total - y[i]);
  }
  return form == GlobalForm::GeneralG ? numerator / denominator : numerator;
}

// Shuffle p of the values: a full Fisher-Yates shuffle from stream (seed, p).
void Shuffle(const std::vector<double>& values, std::uint64_t seed, std::int64_t p, std::vector<double>& y) {
  y = values;
  CounterStream stream(seed, static_cast<std::uint64_t>(p));
  for (std::size_t m = y.size(); m > 1; --m) std::swap(y[m - 1], y[stream.Below(static_cast<std::uint32_t>(m))]);
}

}  // namespace

Status SimulateGlobal(GlobalForm form, const std::vector<double>& values, const RowStore& rows, double scale,
                      std::int32_t permutations, std::uint64_t seed,
                      const std::function<bool(std::int64_t, std::int64_t)>& step, GlobalSimulation& out) {
  std::vector<double> simulated(static_cast<std::size_t>(permutations));
  constexpr std::int32_t kBatch = 16;  // shuffles between progress steps
  for (std::int32_t first = 0; first < permutations; first += kBatch) {
    if (!step(first, permutations)) return Status::Fail(msg::IMb030);
    const std::int32_t last = std::min(permutations, first + kBatch);
    bool outOfMemory = false;  // an exception must not leave the parallel region
#pragma omp parallel
    {
      std::vector<double> y;
#pragma omp for schedule(dynamic)
      for (std::int32_t p = first; p < last; ++p) {
        try {
          Shuffle(values, seed, p, y);
          simulated[static_cast<std::size_t>(p)] = scale * Score(form, y.data(), rows);
        } catch (...) {
#pragma omp atomic write
          outOfMemory = true;
        }
      }
    }
    if (outOfMemory) throw std::bad_alloc();
  }
  GlobalSimulation result;
  result.permutations = permutations;
  result.observed = scale * Score(form, values.data(), rows);
  Simulated counts;
  for (double s : simulated) {
    counts.atLeast += s >= result.observed;
    counts.atMost += s <= result.observed;
    counts.sum += s;
  }
  const double p = permutations;
  result.mean = counts.sum / p;
  for (double s : simulated) result.variance += (s - result.mean) * (s - result.mean);
  result.variance = permutations > 1 ? result.variance / (p - 1) : 0.0;
  result.pseudoP = FoldedPseudoP(counts, permutations);
  result.zScore = (result.observed - result.mean) / std::sqrt(result.variance);
  out = result;
  return Status::Ok();
}

}  // namespace ZOC::detail::permutation
