#include "host/ZoOpPoints.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace ZOC {

namespace {

bool LexLess(const LumaPoint2D& a, const LumaPoint2D& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); }

// > 0 when o → a → b turns left (counter-clockwise), 0 when collinear.
double Cross(const LumaPoint2D& o, const LumaPoint2D& a, const LumaPoint2D& b) {
  return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

// Earth-centred Cartesian coordinates of (lon, lat) degrees at height 0.
void ToEcef(const LumaPoint2D& p, double a, double e2, double& x, double& y, double& z) {
  const double lon = p.x * std::numbers::pi / 180.0;
  const double lat = p.y * std::numbers::pi / 180.0;
  const double sinLat = std::sin(lat), cosLat = std::cos(lat);
  const double n = a / std::sqrt(1.0 - e2 * sinLat * sinLat);  // prime vertical radius of curvature
  x = n * cosLat * std::cos(lon);
  y = n * cosLat * std::sin(lon);
  z = n * (1.0 - e2) * sinLat;
}

}  // namespace

double ZoOpPoints::Distance(const LumaPoint2D& a, const LumaPoint2D& b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  return std::sqrt(dx * dx + dy * dy);
}

bool ZoOpPoints::Flange(const LumaPoint2D* points, std::size_t count, LumaArray<LumaPoint2D>& hull) try {
  hull.clear();
  if (points == nullptr || count == 0) return false;

  // Points with a non-finite coordinate have no place on a hull and would
  // break the ordering below.
  std::vector<LumaPoint2D> pts;
  pts.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (std::isfinite(points[i].x) && std::isfinite(points[i].y)) pts.push_back(points[i]);
  }
  if (pts.empty()) return false;
  std::sort(pts.begin(), pts.end(), LexLess);
  pts.erase(std::unique(pts.begin(), pts.end()), pts.end());

  if (pts.size() == 1) {
    hull.push_back(pts.front());
    return true;
  }

  // Andrew's monotone chain: lower chain left to right, upper chain right to
  // left. Popping on a non-left turn (cross ≤ 0) drops collinear vertices.
  const std::size_t n = pts.size();
  std::vector<LumaPoint2D> chain(2 * n);
  std::size_t k = 0;
  for (std::size_t i = 0; i < n; ++i) {
    while (k >= 2 && Cross(chain[k - 2], chain[k - 1], pts[i]) <= 0.0) --k;
    chain[k++] = pts[i];
  }
  for (std::size_t i = n - 1, lower = k + 1; i-- > 0;) {
    while (k >= lower && Cross(chain[k - 2], chain[k - 1], pts[i]) <= 0.0) --k;
    chain[k++] = pts[i];
  }
  // chain[0..k) is closed: it ends on the lexicographically smallest point it
  // started with.
  if (k <= 3) {
    // Every point lies on one line: the two extremes and the first again.
    hull.assign({pts.front(), pts.back(), pts.front()});
    return true;
  }
  hull.assign(chain.begin(), chain.begin() + static_cast<std::ptrdiff_t>(k));
  return true;
} catch (...) {
  hull.clear();
  return false;
}

double ZoOpPoints::GetSpheroidChordalDistance(const LumaPoint2D& p1, const LumaPoint2D& p2, double a, double f) {
  const double e2 = f * (2.0 - f);
  double x1, y1, z1, x2, y2, z2;
  ToEcef(p1, a, e2, x1, y1, z1);
  ToEcef(p2, a, e2, x2, y2, z2);
  const double dx = x2 - x1, dy = y2 - y1, dz = z2 - z1;
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

}  // namespace ZOC
