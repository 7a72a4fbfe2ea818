#include "StatisticsAnalyst/detail/local/Classification.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

namespace ZOC::detail::local {

bool Confidence(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins) {
  if (z.size() != p.size()) return false;
  if (bins.size() != z.size()) bins.assign(z.size(), 0);
  for (std::size_t i = 0; i < z.size(); ++i) {
    const int level = p[i] < 0.01 ? 3 : p[i] < 0.05 ? 2 : p[i] < 0.1 ? 1 : 0;
    if (std::isinf(z[i]))
      bins[i] = 0;
    else if (z[i] < 0)
      bins[i] = -level;
    else if (z[i] > 0)
      bins[i] = level;
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
  std::size_t finite = 0;
  for (double v : z)
    if (std::isfinite(v)) zMean += v, ++finite;
  if (finite > 0) zMean /= static_cast<double>(finite);
  int level = 0;
  for (std::size_t k = 0; k < n; ++k) {
    const std::size_t i = order[k];
    if (level != 3) {
      const double m = static_cast<double>(n - k), nn = static_cast<double>(n);
      const int passed = (m * 0.1 / nn >= p[i]) + (m * 0.05 / nn >= p[i]) + (m * 0.01 / nn >= p[i]);
      if (passed > 0) level = passed;
    }
    bins[i] = !std::isfinite(z[i]) ? 0 : zMean > z[i] ? -level : level;
  }
  return true;
}

}  // namespace ZOC::detail::local
