#include "StatisticsAnalyst/LocalStatistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "host/ZoMessageIds.h"

namespace ZOC::local {

namespace {
constexpr double kZero = 1e-20;
bool IsZero(double v) { return v > -kZero && v < kZero; }
}  // namespace

void GiStar(const LumaArray<double>& x, const ZoSparseRow& row, std::int64_t i, double selfWeight, double mean,
            double sd, double out[2]) {
  const double n = static_cast<double>(x.size());
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
  out[1] = ZoStatisticsUtilities::GetPvalue(z);
}

bool Confidence(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins) {
  if (z.size() != p.size()) return false;
  if (bins.size() != z.size()) bins.assign(z.size(), 0);
  for (std::size_t i = 0; i < z.size(); ++i) {
    const int level = p[i] < 0.01 ? 3 : p[i] < 0.05 ? 2 : p[i] < 0.1 ? 1 : 0;
    if (z[i] < 0) bins[i] = -level;
    else if (z[i] > 0) bins[i] = level;
  }
  return true;
}

bool FdrAdjusted(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins) {
  const std::size_t n = z.size();
  if (p.size() != n) return false;
  if (bins.size() != n) bins.assign(n, 0);
  if (n == 0) return true;
  std::vector<std::size_t> order(n);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return p[a] > p[b]; });
  double zMean = 0;
  for (double v : z) zMean += v;
  zMean /= static_cast<double>(n);
  int level = 0;
  for (std::size_t k = 0; k < n; ++k) {
    const std::size_t i = order[k];
    if (level != 3) {
      const double m = static_cast<double>(n - k), nn = static_cast<double>(n);
      const int passed = (m * 0.1 / nn >= p[i]) + (m * 0.05 / nn >= p[i]) + (m * 0.01 / nn >= p[i]);
      if (passed > 0) level = passed;
    }
    bins[i] = zMean > z[i] ? -level : level;
  }
  return true;
}

MoranMoments::MoranMoments(const LumaArray<double>& x) : d(x.size()) {
  for (double v : x) mean += v;
  mean /= static_cast<double>(x.size());
  for (std::size_t j = 0; j < x.size(); ++j) {
    d[j] = x[j] - mean;
    m2 += d[j] * d[j];
    m4 += d[j] * d[j] * d[j] * d[j];
  }
}

const char* LocalMoran(const LumaArray<double>& x, const MoranMoments& moments, const ZoSparseRow& row,
                       std::int64_t i, double out[4]) {
  const double n = static_cast<double>(x.size());
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
    return nullptr;
  }
  const double lag = wx / w - moments.mean;
  if (IsZero(moments.m2) || IsZero(moments.m4)) return msg::ESa021;
  const double m2 = moments.m2 / (n - 1);
  const double b2 = (moments.m4 / (n - 1)) / (m2 * m2);
  const double I = moments.d[static_cast<std::size_t>(i)] / m2 * swd;
  const double expected = -w / (n - 1);
  const double variance =
      (w * w - w2) * (2 * b2 - n) / ((n - 2) * (n - 1)) + (n - b2) * w2 / (n - 1) - expected * expected;
  if (variance < 0 || IsZero(variance)) return msg::ESa027;
  const double z = (I - expected) / std::sqrt(variance);
  out[0] = I, out[1] = z, out[2] = ZoStatisticsUtilities::GetPvalue(z), out[3] = lag;
  return nullptr;
}

const char* ClusterOutlierTypes(const LumaArray<double>& I, const LumaArray<double>& p, const LumaArray<double>& d,
                                const LumaArray<double>& lag, const LumaArray<int>& bins,
                                LumaArray<LumaUnicodeString>& types) {
  const std::size_t n = I.size();
  if (p.size() != n || d.size() != n || lag.size() != n) return msg::ESa039;
  if (!bins.empty() && bins.size() != n) return msg::ESa040;
  if (types.empty()) types.resize(n);
  if (types.size() != n) return msg::ESa039;
  for (std::size_t i = 0; i < n; ++i) {
    // The FDR bins narrow the 0.05 test; they never widen it.
    const bool candidate = p[i] < 0.05 && (bins.empty() || std::abs(bins[i]) >= 2);
    if (!candidate) continue;
    if (I[i] < 0) types[i] = d[i] < 0 && lag[i] >= 0 ? "LH" : "HL";
    else if (I[i] > 0) types[i] = d[i] >= 0 && lag[i] >= 0 ? "HH" : "LL";
  }
  return nullptr;
}

}  // namespace ZOC::local
