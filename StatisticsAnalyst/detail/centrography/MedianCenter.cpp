// The median centre: the point with the smallest weighted sum of Euclidean
// distances to the features, by Weiszfeld's iteratively re-weighted mean.
#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "host/ZoMessageIds.h"

namespace ZOC::centrography {

namespace {
constexpr int kIterationLimit = 100;
constexpr double kAbsoluteTolerance = 1e-8;
constexpr double kDefaultTolerance = 1e-6;

bool WithinZero(double v) { return v > -1e-20 && v < 1e-20; }
}  // namespace

double MedianTolerance(double tolerance) { return WithinZero(tolerance) ? kDefaultTolerance : tolerance; }

bool GetMedianCenter(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double relativeTolerance,
                     LumaPoint2D& centre, int limit, double absoluteTolerance, ZoStatisticsUtilities& utilities,
                     MessageLog& log) {
  const std::size_t n = points.size();
  if (n == 0 || weights.empty()) return true;
  if (n == 1) {
    centre = points[0];
    return true;
  }
  if (weights.size() != n) {
    log.Add(msg::ESa019);
    return false;
  }
  // The start ignores the weights: the plain mean of the points.
  LumaPoint2D start;
  if (!utilities.GetMeanCenter(points, LumaArray<double>(n, 1.0), start)) {
    log.Add(msg::ESa0010);
    return false;
  }
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
      const double f = WithinZero(d) ? big * weights[i] : weights[i] / d;
      s += f, sx += f * points[i].x, sy += f * points[i].y;
    }
    if (WithinZero(s)) {
      // Nothing pulls the estimate: every point lies on it (a box of zero
      // area gives no coincidence weight), or every weight is 0.
      double total = 0.0;
      for (const double w : weights) total += w;
      if (!WithinZero(total)) break;
      log.Add(msg::ESa018);
      return false;
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
  return true;
}

bool MedianCenter(MeasureCall& call) {
  const double tolerance = MedianTolerance(call.info->Tolerance);
  return RunCentrePoints(call, msg::IMb321, msg::IMb323, [&](const FeatureGroup& group, LumaPoint2D& point) {
    if (GetMedianCenter(group.points, group.weights, tolerance, point, kIterationLimit, kAbsoluteTolerance,
                        *call.utilities, *call.log))
      return true;
    call.log->Replace(msg::ESa017);
    return false;
  });
}

}  // namespace ZOC::centrography
