#include "StatisticsAnalyst/detail/local/ClusterOutlier.h"

#include <cmath>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/local/Classification.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::local {

using limits::IsZero;

MoranMoments::MoranMoments(const LumaArray<double>& x, const ValueMoments& moments)
    : count(moments.count), mean(moments.mean), m2(moments.m2), m4(moments.m4), d(x.size()) {
  for (std::size_t j = 0; j < x.size(); ++j) d[j] = x[j] - mean;
}

Status LocalMoran(const LumaArray<double>& x, const MoranMoments& moments, const SparseRow& row, std::int64_t i,
                  double out[4]) {
  const double n = moments.count;
  double swd = 0, w = 0, w2 = 0, wx = 0;
  for (std::size_t k = 0; k < row.columns.size(); ++k) {
    const auto j = static_cast<std::size_t>(row.columns[k]);
    const double wk = row.weights[k];
    swd += wk * moments.d[j];
    w += wk;
    w2 += wk * wk;
    wx += wk * x[j];
  }
  if (IsZero(w)) {
    out[0] = 0, out[1] = 0, out[2] = 1.0, out[3] = 0;
    return Status::Ok();
  }
  const double lag = wx / w - moments.mean;
  if (IsZero(moments.m2) || IsZero(moments.m4)) return Status::Fail(msg::ESa021);
  const double m2 = moments.m2 / (n - 1);
  const double b2 = (moments.m4 / (n - 1)) / (m2 * m2);
  const double I = moments.d[static_cast<std::size_t>(i)] / m2 * swd;
  const double expected = -w / (n - 1);
  const double variance =
      (w * w - w2) * (2 * b2 - n) / ((n - 2) * (n - 1)) + (n - b2) * w2 / (n - 1) - expected * expected;
  if (variance < 0 || IsZero(variance)) return Status::Fail(msg::ESa027);
  const double z = (I - expected) / std::sqrt(variance);
  out[0] = I, out[1] = z, out[2] = ClampedPvalue(z), out[3] = lag;
  return Status::Ok();
}

Status ClusterOutlierTypes(const LumaArray<double>& I, const LumaArray<double>& p, const LumaArray<double>& d,
                           const LumaArray<double>& lag, const LumaArray<int>& bins,
                           LumaArray<LumaUnicodeString>& types) {
  const std::size_t n = I.size();
  if (p.size() != n || d.size() != n || lag.size() != n) return Status::Fail(msg::ESa039);
  if (!bins.empty() && bins.size() != n) return Status::Fail(msg::ESa040);
  if (types.empty()) types.resize(n);
  if (types.size() != n) return Status::Fail(msg::ESa039);
  for (std::size_t i = 0; i < n; ++i) {
    // The FDR bins narrow the 0.05 test; they never widen it.
    const bool candidate = p[i] < 0.05 && std::isfinite(I[i]) && (bins.empty() || std::abs(bins[i]) >= 2);
    if (!candidate) continue;
    if (I[i] < 0)
      types[i] = d[i] < 0 && lag[i] >= 0 ? "LH" : "HL";
    else if (I[i] > 0)
      types[i] = d[i] >= 0 && lag[i] >= 0 ? "HH" : "LL";
  }
  return Status::Ok();
}

const char* ClusterOutlier::Title() const { return msg::IMb338; }
const char* ClusterOutlier::Format() const { return msg::IMb339; }

void ClusterOutlier::AddFields(LUMA::LumaFieldInfos& fields) const {
  fields.push_back(LUMA::LumaFieldInfo("ALMI_MoranI", LUMA::FieldDouble));
  fields.push_back(LUMA::LumaFieldInfo("ALMI_Zscore", LUMA::FieldDouble));
  fields.push_back(LUMA::LumaFieldInfo("ALMI_Pvalue", LUMA::FieldDouble));
  LUMA::LumaFieldInfo typeField("ALMI_Type", LUMA::FieldText);
  typeField.SetSize(2);
  fields.push_back(typeField);
  AddPseudoField(fields, "ALMI_PseudoP");
}

Status ClusterOutlier::Prepare(const LumaArray<double>& values, const LumaArray<double>&, const ValueMoments& moments) {
  m_x = values;
  m_moments = std::make_unique<MoranMoments>(values, moments);
  const std::size_t n = values.size();
  m_I.assign(n, 0.0), m_z.assign(n, 0.0), m_p.assign(n, 0.0), m_lag.assign(n, 0.0);
  return Status::Ok();
}

Status ClusterOutlier::Row(std::int64_t i, const SparseRow& row) {
  double out[4];
  if (Status status = LocalMoran(m_x, *m_moments, row, i, out); !status) return status.Then(msg::ESa034);
  const auto k = static_cast<std::size_t>(i);
  m_I[k] = out[0], m_z[k] = out[1], m_p[k] = out[2], m_lag[k] = out[3];
  return Status::Ok();
}

Status ClusterOutlier::Classify(bool falseDiscoveryRate) {
  LumaArray<int> bins;
  const LumaArray<double>& p = Significance(m_p);
  if (falseDiscoveryRate && !BinsOf(m_I, p, true, bins)) return Status::Fail(msg::ESa036);
  return ClusterOutlierTypes(m_I, p, m_moments->d, m_lag, bins, m_types).Then(msg::ESa037);
}

void ClusterOutlier::Values(std::size_t i, std::vector<LUMA::LumaVariant>& values) const {
  values[0] = m_I[i], values[1] = m_z[i], values[2] = m_p[i], values[3] = m_types[i];
  if (Permutations() > 0) PseudoValue(i, values[4]);
}

}  // namespace ZOC::detail::local
