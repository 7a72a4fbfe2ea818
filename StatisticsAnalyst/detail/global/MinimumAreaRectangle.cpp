#include "StatisticsAnalyst/detail/global/MinimumAreaRectangle.h"

#include <cmath>
#include <limits>

#include "host/ZoMessageIds.h"

namespace ZOC::detail::global {

namespace {
double Dot(const LumaPoint2D& a, const LumaPoint2D& b) { return a.x * b.x + a.y * b.y; }
LumaPoint2D Sub(const LumaPoint2D& a, const LumaPoint2D& b) { return {a.x - b.x, a.y - b.y}; }
}  // namespace

Status MinimumAreaRectangle(const LumaArray<LumaPoint2D>& hull, Rectangle& rect) {
  // The ring is closed: vertices 0..m-1 are distinct, vertex m repeats vertex 0.
  if (hull.size() < 2) return Status::Fail(msg::ESa013);
  const std::size_t m = hull.size() - 1;
  auto next = [m](std::size_t i) { return i + 1 == m ? 0 : i + 1; };

  // Contact vertices of the three sides other than the base: largest and
  // smallest projection on u, largest on v. As the base edge walks round the
  // hull each contact only ever moves forward, so the whole walk is linear.
  std::size_t iMaxU = 0, iMinU = 0, iMaxV = 0;
  bool started = false;
  double best = std::numeric_limits<double>::max();
  bool found = false;

  for (std::size_t k = 0; k < m; ++k) {
    const LumaPoint2D& base = hull[k];
    const LumaPoint2D edge = Sub(hull[k + 1], base);
    const double len = std::hypot(edge.x, edge.y);
    if (!(len > 0.0)) continue;  // coincident consecutive vertices make no side
    const LumaPoint2D uk{edge.x / len, edge.y / len};
    const LumaPoint2D vk{-uk.y, uk.x};
    auto pu = [&](std::size_t i) { return Dot(Sub(hull[i], base), uk); };
    auto pv = [&](std::size_t i) { return Dot(Sub(hull[i], base), vk); };

    if (!started) {
      for (std::size_t i = 0; i < m; ++i) {
        if (pu(i) > pu(iMaxU)) iMaxU = i;
        if (pu(i) < pu(iMinU)) iMinU = i;
        if (pv(i) > pv(iMaxV)) iMaxV = i;
      }
      started = true;
    } else {
      for (std::size_t s = 0; s < m && pu(next(iMaxU)) >= pu(iMaxU); ++s) iMaxU = next(iMaxU);
      for (std::size_t s = 0; s < m && pv(next(iMaxV)) >= pv(iMaxV); ++s) iMaxV = next(iMaxV);
      for (std::size_t s = 0; s < m && pu(next(iMinU)) <= pu(iMinU); ++s) iMinU = next(iMinU);
    }
    const double maxU = pu(iMaxU), minU = pu(iMinU), maxV = pv(iMaxV);
    const double a = (maxV - 0.0) * (maxU - minU);
    if (a < best) {
      best = a;
      found = true;
      rect.length = maxU - minU;
      rect.width = maxV;
      rect.u = uk;
      rect.v = vk;
      rect.centre = {base.x + 0.5 * ((maxU + minU) * uk.x + maxV * vk.x),
                     base.y + 0.5 * ((maxU + minU) * uk.y + maxV * vk.y)};
    }
  }
  if (!found) return Status::Fail(msg::ESa053);
  rect.area = best;
  return Status::Ok();
}

}  // namespace ZOC::detail::global
