#pragma once
// The row loop every weights-file builder runs, and the progress it reports.
// While writing, one row, the unique-index table and the row sums are in
// memory; the rows come from the neighbour search, never from a dense row of
// N weights.
#include <cstdint>
#include <exception>
#include <new>
#include <vector>

#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Guard.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"

namespace ZOC::detail::weights {

// The progress of one build: the caller's progress object, or one from the
// host's factory, titled as a weights build, when the call asks to show it.
class BuildProgress {
 public:
  // With `fullRange` the build sets the whole 0..100 range; otherwise the
  // range is left to the caller: an analysis that builds a temporary file
  // gives the build its own slice of the run.
  BuildProgress(ZoProgress* caller, bool show, bool fullRange);
  BuildProgress(const BuildProgress&) = delete;
  BuildProgress& operator=(const BuildProgress&) = delete;
  // Reports row i of n; false when the user cancelled.
  bool Step(std::int64_t i, std::int64_t n) { return m_call.Step(m_format, i, n); }

 private:
  CallProgress m_call;
  LumaUnicodeString m_format;
};

// The row loop of every builder: for each feature in order, report progress
// and poll for cancellation ("IMb030") when `progress` is given, take the
// row's neighbours, keep those with a stored weight, set the feature's count
// and row sum, and hand the kept neighbours to `emit(i, columns, weights)`,
// which returns false when writing fails ("ESa049").
template <class Emit>
Status WriteRows(const RowBuilder& rows, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums,
                 bool standardize, BuildProgress* progress, Emit&& emit) {
  // Rows are computed a block at a time in spatial order and written in
  // feature order; a block holds a bounded number of rows.
  const std::int64_t n = rows.Count();
  RowBuilder::Block block;
  std::vector<std::int64_t> kept;
  std::vector<double> keptWeights;
  for (std::int64_t first = 0; first < n; first += RowBuilder::kBlockRows) {
    rows.FillBlock(first, block);
    for (std::int64_t k = 0; k < block.Count(); ++k) {
      const std::int64_t i = first + k;
      if (progress && !progress->Step(i, n)) return Status::Fail(msg::IMb030);
      kept.clear();
      keptWeights.clear();
      double sum = 0.0;
      const std::int64_t* columns = block.Columns(k);
      const double* weights = block.Weights(k);
      for (std::size_t h = 0; h < block.Size(k); ++h) {
        if (!IsStoredWeight(weights[h])) continue;
        kept.push_back(columns[h]);
        keptWeights.push_back(weights[h]);
        sum += weights[h];
      }
      uniqueIndex[static_cast<std::size_t>(i)].Count = static_cast<std::int32_t>(kept.size());
      if (standardize) rowSums[static_cast<std::size_t>(i)] = sum;
      if (!emit(i, kept, keptWeights)) return Status::Fail(msg::ESa049);
    }
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::weights
