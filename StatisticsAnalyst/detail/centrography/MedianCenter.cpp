// The median centre: the point with the smallest weighted sum of Euclidean
// distances to the features, by Weiszfeld's iteratively re-weighted mean.
#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::centrography {

namespace {
constexpr int kIterationLimit = 100;
constexpr double kAbsoluteTolerance = 1e-8;
constexpr double kDefaultTolerance = 1e-6;
}  // namespace

double MedianTolerance(double tolerance) { return limits::IsZero(tolerance) ? kDefaultTolerance : tolerance; }

Status GetMedianCenter(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double relativeTolerance,
                       LumaPoint2D& centre, int limit, double absoluteTolerance) {
  const std::size_t n = points.size();
  if (n == 0 || weights.empty()) return {};
  if (n == 1) {
    centre = points[0];
    return {};
  }
  if (weights.size() != n) return Status::Fail(msg::ESa019);
  // The start ignores the weights: the plain mean of the points.
  LumaPoint2D start;
  if (!spatial::MeanCentre(points, LumaArray<double>(n, 1.0), start)) return Status::Fail(msg::ESa0010);
  double xmin = points[0].x, xmax = xmin, ymin = points[0].y, ymax = ymin;
  for (const auto& p : points) {
    xmin = std::min(xmin, p.x), xmax = std::max(xmax, p.x);
    ymin = std::min(ymin, p.y), ymax = std::max(ymax, p.y);
  }
  // An iterate on a data point gives that point a large factor instead of
  // dividing by zero; the box is widened on two sides only.
  const double widenedXmax = xmax + (xmax - xmin) / 1000.0;
  const double widenedYmin = ymin - (ymax - ymin) / 1000.0;
  const double big = 1000.0 * (widenedXmax - xmin) * (ymax - widenedYmin);

  LumaPoint2D previous = start, current = start;
  for (int k = 1; limit > 1;) {
    double s = 0.0, sx = 0.0, sy = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      const double d = std::sqrt((points[i].x - current.x) * (points[i].x - current.x) +
                                 (points[i].y - current.y) * (points[i].y - current.y));
      const double f = limits::IsZero(d) ? big * weights[i] : weights[i] / d;
      s += f, sx += f * points[i].x, sy += f * points[i].y;
    }
    if (limits::IsZero(s)) {
      // Nothing pulls the estimate: every point lies on it (a box of zero
      // area gives no coincidence weight), or every weight is 0.
      double total = 0.0;
      for (const double w : weights) total += w;
      if (!limits::IsZero(total)) break;
      return Status::Fail(msg::ESa018);
    }
    current = LumaPoint2D{sx / s, sy / s};
    // Converged: the result is the estimate before this last step.
    if (std::fabs(current.x) * relativeTolerance + absoluteTolerance > std::fabs(current.x - previous.x) &&
        std::fabs(current.y) * relativeTolerance + absoluteTolerance > std::fabs(current.y - previous.y))
      break;
    previous = current;
    if (++k >= limit) break;
  }
  centre = previous;
  return {};
}

Status MedianCenter(MeasureCall& call) {
  const double tolerance = MedianTolerance(call.info->Tolerance);
  return RunCentrePoints(
      call, msg::IMb321, msg::IMb323,
      [&](const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, LumaPoint2D& point) {
        // The group's failure stands in for its cause.
        if (GetMedianCenter(points, weights, tolerance, point, kIterationLimit, kAbsoluteTolerance)) return Status();
        return Status::Fail(msg::ESa017);
      });
}

}  // namespace ZOC::detail::centrography
