#pragma once
// The road every local (per-feature) statistic runs: read the analysis
// values (and any per-feature extra such as a self weight), take the weights
// row by row from memory or from a binary weights file, compute each
// feature's statistic from its row, classify all features, then copy every
// source record into the result dataset with the statistic's fields in one
// pass. A statistic supplies only what is its own (LocalStatistic below),
// so a new local statistic is one small class.
#include <cstdint>
#include <memory>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/SparseRow.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/permutation/ConditionalRandomization.h"
#include "host/LumaArray.h"
#include "host/LumaFieldInfo.h"
#include "host/LumaVariant.h"

namespace ZOC::detail::local {

using LUMA::LumaArray;

class LocalStatistic {
 public:
  virtual ~LocalStatistic() = default;

  // Progress title and per-feature format ("%1 of %2") of the statistic stage.
  virtual const char* Title() const = 0;
  virtual const char* Format() const = 0;
  // A field copied beside the analysis field and read per feature (Gi*'s
  // self weight), with the fixed name the copy gets when it is a system
  // field; empty for none.
  virtual LumaUnicodeString ExtraField() const { return {}; }
  virtual const char* ExtraFieldCopyName() const { return ""; }
  // Whether the caller's row standardization applies to the weights.
  virtual bool Standardizes() const = 0;
  // The statistic's own result fields, in write order.
  virtual void AddFields(LUMA::LumaFieldInfos& fields) const = 0;

  // Called once with every feature's value (finite, possibly scaled by a
  // power of two: the statistic must not depend on the scale), the extra
  // field's values (empty when there is none) and the moments of the values
  // (of the whole dataset, in the same scale, when these features are only
  // a part of it).
  virtual Status Prepare(const LumaArray<double>& values, const LumaArray<double>& extra,
                         const ValueMoments& moments) = 0;
  // Feature i's statistic from its weights row. Rows come in order, or, when
  // the weights are in memory, several features' rows at once from several
  // threads: Row must touch nothing shared but feature i's results.
  virtual Status Row(std::int64_t i, const SparseRow& row) = 0;
  // Classifies every feature once all rows are in.
  virtual Status Classify(bool falseDiscoveryRate) = 0;
  // Feature i's values for the fields of AddFields.
  virtual void Values(std::size_t i, std::vector<LUMA::LumaVariant>& values) const = 0;

  // Permutation inference, asked for before Prepare: P conditional
  // randomizations of every feature under `seed` (0: none, the default).
  void SetPermutations(std::int32_t permutations, std::uint64_t seed) { m_permutations = permutations, m_seed = seed; }
  std::int32_t Permutations() const { return m_permutations; }
  // After Prepare: the simulations of feature i once Row(i) succeeded. Safe
  // from several threads at once for different features.
  void StartSimulations(std::size_t n);
  void Simulate(std::int64_t i, const SparseRow& row, permutation::ConditionalRandomization::Scratch& scratch);
  // After Prepare: the per-feature values Row reads at a row's columns.
  const double* Gathered() const { return DrawnValues().data(); }
  // In a part of a larger dataset, the features whose statistics are
  // computed (1) and those that only lend their values (0); empty: all.
  void SetOwn(std::vector<char> own) { m_own = std::move(own); }
  bool Own(std::int64_t i) const { return m_own.empty() || m_own[static_cast<std::size_t>(i)] != 0; }
  // In a part, the whole dataset's false discovery rate: every feature's
  // level (0 for none) and the mean of the finite statistics.
  void SetGivenFdr(std::vector<int> levels, double mean) { m_fdrLevels = std::move(levels), m_fdrMean = mean; }
  // After the rows: the statistic whose sign the corrected bins take (Gi*
  // z, local I) and the p-values that decide them.
  virtual void Tested(LumaArray<double>& statistic, LumaArray<double>& p) = 0;

 protected:
  // The values the neighbours' draws are taken from, as Prepare left them.
  virtual const LumaArray<double>& DrawnValues() const = 0;
  // Whether feature i's statistic is the same whatever its neighbours hold
  // (its pseudo p-value is then 1).
  virtual bool Unchanging(std::size_t) const { return false; }
  // The p-values that decide the bins or types: with simulations, the
  // pseudo p-values (1 where a feature had none), else `analytic`.
  const LumaArray<double>& Significance(const LumaArray<double>& analytic);
  // The bins of `statistic` decided by `p`: plain, or corrected for the
  // false discovery rate over all features (by the given levels in a part).
  bool BinsOf(const LumaArray<double>& statistic, const LumaArray<double>& p, bool falseDiscoveryRate,
              LumaArray<int>& bins) const;
  // With simulations, the field of the pseudo p-values (after the others),
  // and feature i's value for it: null when it had no neighbour to draw.
  void AddPseudoField(LUMA::LumaFieldInfos& fields, const char* name) const;
  void PseudoValue(std::size_t i, LUMA::LumaVariant& value) const;

 private:
  std::int32_t m_permutations = 0;
  std::uint64_t m_seed = 0;
  std::unique_ptr<permutation::ConditionalRandomization> m_randomization;
  LumaArray<double> m_pseudo;  // NaN: no pseudo p-value
  LumaArray<double> m_significance;
  std::vector<char> m_own;
  std::vector<int> m_fdrLevels;
  double m_fdrMean = 0.0;
};

// Runs the statistic on the source's records (ordered by QlID and checked by
// the caller) into the empty result dataset. Failures carry the steps'
// messages.
Status RunLocal(ZoDatasetVector* source, ZoRecordset* records, ZoDatasetVector* result,
                const ZoPatternsInformation& info, detail::CallProgress& progress, LocalStatistic& statistic);
// The same up to the classification, for a part of a larger dataset
// (`info.Partition`): the own features' candidates for the false discovery
// rate, nothing written.
Status RunLocalTests(ZoDatasetVector* source, ZoRecordset* records, const ZoPatternsInformation& info,
                     detail::CallProgress& progress, LocalStatistic& statistic, ZoPartitionTests& tests);

}  // namespace ZOC::detail::local
