#include "StatisticsAnalyst/detail/local/Classification.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "StatisticsAnalyst/detail/common/ExactSum.h"

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

void FdrLevels(std::vector<FdrCandidate>& candidates, std::int64_t n, std::vector<int>& levels) {
  std::sort(candidates.begin(), candidates.end(),
            [](const FdrCandidate& a, const FdrCandidate& b) { return a.p > b.p || (a.p == b.p && a.id < b.id); });
  levels.assign(candidates.size(), 0);
  const double nn = static_cast<double>(n);
  const auto first = n - static_cast<std::int64_t>(candidates.size());  // the walk's position of the first
  int level = 0;
  for (std::size_t k = 0; k < candidates.size(); ++k) {
    const double p = candidates[k].p;
    if (level != 3) {
      const double m = static_cast<double>(n - (first + static_cast<std::int64_t>(k)));
      const int passed = (m * 0.1 / nn >= p) + (m * 0.05 / nn >= p) + (m * 0.01 / nn >= p);
      if (passed > 0) level = passed;
    }
    levels[k] = level;
  }
}

double FiniteMean(const LumaArray<double>& z) {
  ExactSum sum;
  std::size_t finite = 0;
  for (double v : z)
    if (std::isfinite(v)) sum.Add(v), ++finite;
  return finite > 0 ? sum.Value() / static_cast<double>(finite) : 0.0;
}

bool FdrAdjusted(const LumaArray<double>& z, const LumaArray<double>& p, LumaArray<int>& bins) {
  const std::size_t n = z.size();
  if (p.size() != n) return false;
  bins.assign(n, 0);
  std::vector<FdrCandidate> candidates;
  for (std::size_t i = 0; i < n; ++i)
    if (FdrCandidatePvalue(p[i])) candidates.push_back({static_cast<std::int64_t>(i), p[i]});
  std::vector<int> levels;
  FdrLevels(candidates, static_cast<std::int64_t>(n), levels);
  const double zMean = FiniteMean(z);
  for (std::size_t k = 0; k < candidates.size(); ++k) {
    const auto i = static_cast<std::size_t>(candidates[k].id);
    bins[i] = !std::isfinite(z[i]) ? 0 : zMean > z[i] ? -levels[k] : levels[k];
  }
  return true;
}

}  // namespace ZOC::detail::local
