#include "StatisticsAnalyst/detail/local/HotSpot.h"

#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/local/Classification.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::local {

void GiStar(const LumaArray<double>& x, const SparseRow& row, std::int64_t i, double selfWeight, double n, double mean,
            double sd, double out[2]) {
  // The self weight always stands on the diagonal.
  double w = selfWeight, w2 = selfWeight * selfWeight, wx = selfWeight * x[static_cast<std::size_t>(i)];
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    if (row.columns[k] == i) continue;
    const double wk = row.weights[k];
    w += wk;
    w2 += wk * wk;
    wx += wk * x[static_cast<std::size_t>(row.columns[k])];
  }
  const double z = (wx - mean * w) / (sd * std::sqrt((n * w2 - w * w) / (n - 1)));
  out[0] = z;
  out[1] = ClampedPvalue(z);
}

const char* HotSpot::Title() const { return msg::IMb336; }
const char* HotSpot::Format() const { return msg::IMb337; }

void HotSpot::AddFields(LUMA::LumaFieldInfos& fields) const {
  fields.push_back(LUMA::LumaFieldInfo("Gi_Zscore", LUMA::FieldDouble));
  fields.push_back(LUMA::LumaFieldInfo("Gi_Pvalue", LUMA::FieldDouble));
  fields.push_back(LUMA::LumaFieldInfo("Gi_ConfInvl", LUMA::FieldInt32));
  AddPseudoField(fields, "Gi_PseudoP");
}

Status HotSpot::Prepare(const LumaArray<double>& values, const LumaArray<double>& extra, const ValueMoments& moments) {
  m_x = values;
  const std::size_t n = values.size();
  m_self.assign(n, 1.0);
  // Zero and negative self weights are 0.
  for (std::size_t i = 0; i < extra.size() && i < n; ++i) m_self[i] = extra[i] > 0 ? extra[i] : 0.0;
  m_count = moments.count;
  m_mean = moments.mean;
  m_sd = std::sqrt(moments.sumSquares / m_count - m_mean * m_mean);
  // Equal values give every draw the observed sum: nothing to test. (The
  // standard deviation of equal values need not come out exactly 0.)
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  if (Permutations() > 0 && (values.empty() || *low == *high)) return Status::Fail(msg::ESa021).Then(msg::ESa035);
  m_z.assign(n, 0.0);
  m_p.assign(n, 0.0);
  return Status::Ok();
}

Status HotSpot::Row(std::int64_t i, const SparseRow& row) {
  const auto k = static_cast<std::size_t>(i);
  double out[2];
  GiStar(m_x, row, i, m_self[k], m_count, m_mean, m_sd, out);
  m_z[k] = out[0], m_p[k] = out[1];
  return Status::Ok();
}

Status HotSpot::Classify(bool falseDiscoveryRate) {
  const LumaArray<double>& p = Significance(m_p);
  return BinsOf(m_z, p, falseDiscoveryRate, m_bins) ? Status::Ok() : Status::Fail(msg::ESa043);
}

void HotSpot::Values(std::size_t i, std::vector<LUMA::LumaVariant>& values) const {
  values[0] = m_z[i], values[1] = m_p[i], values[2] = LUMA::LumaVariant(m_bins[i]);
  if (Permutations() > 0) PseudoValue(i, values[3]);
}

}  // namespace ZOC::detail::local
