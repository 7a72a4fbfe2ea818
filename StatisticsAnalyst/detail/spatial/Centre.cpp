#include "StatisticsAnalyst/detail/spatial/Centre.h"

#include "host/ZoMessageIds.h"

namespace ZOC::detail::spatial {

Status MeanCentre(const LUMA::LumaArray<LUMA::LumaPoint2D>& points, const LUMA::LumaArray<double>& weights,
                  LUMA::LumaPoint2D& centre) {
  if (points.empty() || weights.empty()) return Status::Ok();
  if (points.size() != weights.size()) return Status::Fail(msg::ESa019);
  double sumW = 0.0, sumX = 0.0, sumY = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    sumW += weights[i];
    sumX += weights[i] * points[i].x;
    sumY += weights[i] * points[i].y;
  }
  if (sumW > -1e-20 && sumW < 1e-20) return Status::Fail(msg::ESa018);
  centre = LUMA::LumaPoint2D{sumX / sumW, sumY / sumW};
  return Status::Ok();
}

}  // namespace ZOC::detail::spatial
