#include "StatisticsAnalyst/detail/aggregation/LocationalOutliers.h"

#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/spatial/Distance.h"

namespace ZOC::detail::aggregation {

double Quantile(std::vector<double>& values, double p) {
  if (values.empty()) return 0.0;
  const double h = static_cast<double>(values.size() - 1) * p;
  const auto low = static_cast<std::size_t>(std::floor(h));
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(low);
  std::nth_element(values.begin(), at, values.end());
  const double fraction = h - static_cast<double>(low);
  if (fraction == 0.0 || low + 1 >= values.size()) return *at;
  // After nth_element everything beyond `at` is at least *at, so the next
  // order statistic is the smallest of them.
  const double next = *std::min_element(at + 1, values.end());
  return *at + fraction * (next - *at);
}

std::vector<char> LocationalOutliers(const LumaArray<LumaPoint2D>& points, ZoDistanceMethod method) {
  std::vector<char> flags(points.size(), 0);
  std::vector<std::size_t> usable;
  usable.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i)
    if (std::isfinite(points[i].x) && std::isfinite(points[i].y)) usable.push_back(i);
  if (usable.size() < 4) return flags;

  std::vector<double> work(usable.size());
  LumaPoint2D centre;
  for (std::size_t k = 0; k < usable.size(); ++k) work[k] = points[usable[k]].x;
  centre.x = Quantile(work, 0.5);
  for (std::size_t k = 0; k < usable.size(); ++k) work[k] = points[usable[k]].y;
  centre.y = Quantile(work, 0.5);

  std::vector<double> distances(usable.size());
  for (std::size_t k = 0; k < usable.size(); ++k) distances[k] = spatial::Distance(points[usable[k]], centre, method);
  work = distances;
  const double q1 = Quantile(work, 0.25);
  const double q3 = Quantile(work, 0.75);
  const double limit = q3 + 3.0 * (q3 - q1);
  for (std::size_t k = 0; k < usable.size(); ++k)
    if (distances[k] > limit) flags[usable[k]] = 1;
  return flags;
}

}  // namespace ZOC::detail::aggregation
