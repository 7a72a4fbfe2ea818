#pragma once
// Getis–Ord Gi*: hot and cold spots. Fields "Gi_Zscore", "Gi_Pvalue"
// (doubles) and "Gi_ConfInvl" (int32 bin -3..3), and with permutations
// "Gi_PseudoP", whose values then decide the bins. Weights are raw (row
// standardization does not apply); the self weight on the diagonal is 1, or
// the self-weight field's value when positive (0 otherwise).
#include "StatisticsAnalyst/detail/local/LocalPipeline.h"

namespace ZOC::detail::local {

// Gi* of feature i: the row's weights with the self weight on the diagonal
// (a stored diagonal weight is replaced). n, mean and sd are the count,
// population mean and standard deviation of all values. No guard: constant
// values give an infinite or NaN z, as the arithmetic has it
// (Classification bins it 0). out = {z, p}.
void GiStar(const LumaArray<double>& x, const SparseRow& row, std::int64_t i, double selfWeight, double n, double mean,
            double sd, double out[2]);

class HotSpot : public LocalStatistic {
 public:
  explicit HotSpot(LumaUnicodeString selfWeightField) : m_selfField(std::move(selfWeightField)) {}

  const char* Title() const override;
  const char* Format() const override;
  LumaUnicodeString ExtraField() const override { return m_selfField; }
  const char* ExtraFieldCopyName() const override { return "SelfWeight"; }
  bool Standardizes() const override { return false; }
  void AddFields(LUMA::LumaFieldInfos& fields) const override;
  Status Prepare(const LumaArray<double>& values, const LumaArray<double>& extra, const ValueMoments& moments) override;
  Status Row(std::int64_t i, const SparseRow& row) override;
  Status Classify(bool falseDiscoveryRate) override;
  void Values(std::size_t i, std::vector<LUMA::LumaVariant>& values) const override;
  void Tested(LumaArray<double>& statistic, LumaArray<double>& p) override { statistic = m_z, p = Significance(m_p); }
  // Every feature's confidence bin, once classified.
  const LumaArray<int>& Bins() const { return m_bins; }

 protected:
  const LumaArray<double>& DrawnValues() const override { return m_x; }

 private:
  LumaUnicodeString m_selfField;
  LumaArray<double> m_x, m_self, m_z, m_p;
  LumaArray<int> m_bins;
  double m_count = 0.0, m_mean = 0.0, m_sd = 0.0;
};

}  // namespace ZOC::detail::local
