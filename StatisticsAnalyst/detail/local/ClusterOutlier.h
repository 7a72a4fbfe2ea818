#pragma once
// Anselin's local Moran's I: clusters and outliers. Fields "ALMI_MoranI",
// "ALMI_Zscore", "ALMI_Pvalue" (doubles) and "ALMI_Type" ("HH", "LL", "HL",
// "LH" or empty), and with permutations "ALMI_PseudoP", whose values then
// decide the types. Row standardization applies when asked. A feature without
// neighbours gets I = 0, z = 0, p = 1 and no type.
#include <memory>

#include "StatisticsAnalyst/detail/local/LocalPipeline.h"

namespace ZOC::detail::local {

// The moments of the values that every feature's local Moran's I shares.
struct MoranMoments {
  MoranMoments(const LumaArray<double>& x, const ValueMoments& moments);
  double count = 0, mean = 0, m2 = 0, m4 = 0;  // n, Σ d², Σ d⁴ over all features
  LumaArray<double> d;                         // deviations from the mean
};
// Local Moran's I of feature i: out = {I, z, p, lag}. A row without weight
// gives {0, 0, 1, 0}. Fails with "ESa021" for constant values, "ESa027" for
// a variance that is not positive.
Status LocalMoran(const LumaArray<double>& x, const MoranMoments& moments, const SparseRow& row, std::int64_t i,
                  double out[4]);
// "HH", "LL", "HL", "LH" for features with p < 0.05 (and |bin| ≥ 2 when FDR
// bins are given), by the sign of I, the deviation and the lag; others keep
// their type. Fails with "ESa039" / "ESa040" for unequal lengths.
Status ClusterOutlierTypes(const LumaArray<double>& I, const LumaArray<double>& p, const LumaArray<double>& d,
                           const LumaArray<double>& lag, const LumaArray<int>& bins,
                           LumaArray<LumaUnicodeString>& types);

class ClusterOutlier : public LocalStatistic {
 public:
  const char* Title() const override;
  const char* Format() const override;
  bool Standardizes() const override { return true; }
  void AddFields(LUMA::LumaFieldInfos& fields) const override;
  Status Prepare(const LumaArray<double>& values, const LumaArray<double>& extra, const ValueMoments& moments) override;
  Status Row(std::int64_t i, const SparseRow& row) override;
  Status Classify(bool falseDiscoveryRate) override;
  void Tested(LumaArray<double>& statistic, LumaArray<double>& p) override { statistic = m_I, p = Significance(m_p); }
  void Values(std::size_t i, std::vector<LUMA::LumaVariant>& values) const override;

 protected:
  // The neighbours' deviations are drawn; a feature at the mean has I = 0
  // whatever they hold.
  const LumaArray<double>& DrawnValues() const override { return m_moments->d; }
  bool Unchanging(std::size_t i) const override { return m_moments->d[i] == 0; }

 private:
  LumaArray<double> m_x, m_I, m_z, m_p, m_lag;
  std::unique_ptr<MoranMoments> m_moments;
  LumaArray<LumaUnicodeString> m_types;
};

}  // namespace ZOC::detail::local
