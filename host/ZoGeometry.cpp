#include "host/ZoGeometry.h"

#include <geodesic.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "host/ZoPrjCoordSys.h"

namespace ZOC {

namespace {

// Checks the part counts against the vertex array: every part has at least
// one vertex and together they use every vertex exactly once.
bool CountsCoverPoints(const LumaArray<int>& counts, std::size_t pointCount) {
  if (counts.empty()) return false;
  std::size_t sum = 0;
  for (int c : counts) {
    if (c <= 0) return false;
    sum += static_cast<std::size_t>(c);
    if (sum > pointCount) return false;
  }
  return sum == pointCount;
}

bool IsGeographic(const ZoPrjCoordSys* cs) { return cs != nullptr && cs->GetTypeID() == ZoPrjCoordSys::Geographic; }

// A geod_geodesic for the system's ellipsoid; false when the ellipsoid
// parameters cannot describe one.
bool InitGeodesic(const ZoPrjCoordSys* cs, geod_geodesic& g) {
  const double a = cs->GetSemiMajorAxis();
  const double f = cs->GetFlattening();
  if (!(std::isfinite(a) && a > 0.0 && std::isfinite(f) && f < 1.0)) return false;
  geod_init(&g, a, f);
  return true;
}

// Accumulates the first moments of a ring about a reference point. The
// reference keeps the products small for coordinates far from the origin
// (projected metres), where the plain shoelace loses digits.
struct RingMoments {
  double area2 = 0.0;  // twice the signed area
  double mx6 = 0.0;    // six times the signed area times the centroid x
  double my6 = 0.0;
};

RingMoments ShoelaceMoments(const LumaPoint2D* ring, std::size_t n, const LumaPoint2D& ref) {
  RingMoments m;
  if (n < 2) return m;
  for (std::size_t i = 0; i < n; ++i) {
    const LumaPoint2D& p = ring[i];
    const LumaPoint2D& q = ring[(i + 1) % n];  // the closing edge is zero-length for a closed ring
    const double x0 = p.x - ref.x, y0 = p.y - ref.y;
    const double x1 = q.x - ref.x, y1 = q.y - ref.y;
    const double cross = x0 * y1 - x1 * y0;
    m.area2 += cross;
    m.mx6 += (x0 + x1) * cross;
    m.my6 += (y0 + y1) * cross;
  }
  return m;
}

double SegmentLength(const LumaPoint2D& p, const LumaPoint2D& q) {
  const double dx = q.x - p.x, dy = q.y - p.y;
  return std::sqrt(dx * dx + dy * dy);
}

// Length-weighted centroid of a set of polylines (ring boundaries included);
// the vertex mean when they have no length.
LumaPoint2D PolylineCentroid(const LumaArray<LumaPoint2D>& pts, const LumaArray<int>& counts) {
  const LumaPoint2D ref = pts.front();
  double total = 0.0, sx = 0.0, sy = 0.0;
  std::size_t start = 0;
  for (int c : counts) {
    for (std::size_t i = start + 1; i < start + static_cast<std::size_t>(c); ++i) {
      const double len = SegmentLength(pts[i - 1], pts[i]);
      total += len;
      sx += len * (0.5 * (pts[i - 1].x + pts[i].x) - ref.x);
      sy += len * (0.5 * (pts[i - 1].y + pts[i].y) - ref.y);
    }
    start += static_cast<std::size_t>(c);
  }
  if (total > 0.0) return {ref.x + sx / total, ref.y + sy / total};
  double mx = 0.0, my = 0.0;
  for (const LumaPoint2D& p : pts) {
    mx += p.x - ref.x;
    my += p.y - ref.y;
  }
  const double n = static_cast<double>(pts.size());
  return {ref.x + mx / n, ref.y + my / n};
}

}  // namespace

ZoGeometry ZoGeometry::MakePoint(const LumaPoint2D& p) {
  ZoGeometry g;
  g.m_type = GeoPoint;
  g.m_points.push_back(p);
  g.m_partCounts.push_back(1);
  return g;
}

ZoGeometry ZoGeometry::MakeLine(LumaArray<LumaPoint2D> points, LumaArray<int> partCounts) {
  ZoGeometry g;
  if (points.empty() || !CountsCoverPoints(partCounts, points.size())) return g;
  g.m_type = GeoLine;
  g.m_points = std::move(points);
  g.m_partCounts = std::move(partCounts);
  return g;
}

ZoGeometry ZoGeometry::MakeRegion(LumaArray<LumaPoint2D> points, LumaArray<int> ringCounts,
                                  LumaArray<int> ringsPerPolygon) try {
  ZoGeometry g;
  if (points.empty() || !CountsCoverPoints(ringCounts, points.size())) return g;
  if (ringsPerPolygon.empty()) {
    ringsPerPolygon.assign(ringCounts.size(), 1);
  } else if (!CountsCoverPoints(ringsPerPolygon, ringCounts.size())) {
    return g;
  }

  // Copy ring by ring, repeating the first vertex where a ring is left open.
  LumaArray<LumaPoint2D> closed;
  LumaArray<int> counts;
  closed.reserve(points.size() + ringCounts.size());
  counts.reserve(ringCounts.size());
  std::size_t start = 0;
  for (int c : ringCounts) {
    const std::size_t n = static_cast<std::size_t>(c);
    closed.insert(closed.end(), points.begin() + static_cast<std::ptrdiff_t>(start),
                  points.begin() + static_cast<std::ptrdiff_t>(start + n));
    int count = c;
    if (n == 1 || !(points[start] == points[start + n - 1])) {
      closed.push_back(points[start]);
      ++count;
    }
    counts.push_back(count);
    start += n;
  }
  g.m_type = GeoRegion;
  g.m_points = std::move(closed);
  g.m_partCounts = std::move(counts);
  g.m_ringCounts = std::move(ringsPerPolygon);
  return g;
} catch (...) {
  return {};
}

bool ZoGeometry::GetBaryCenter(LumaPoint2D& centre) const {
  if (m_points.empty()) return false;
  if (m_type == GeoLine || m_type == GeoRegion) {
    // Segment lengths square the coordinates and shoelace moments cube them,
    // which overflows long before 1e300: such a geometry is measured divided
    // by a power of two, which changes no ratio, and its centroid scaled back.
    double largest = 0.0;
    for (const LumaPoint2D& p : m_points) largest = std::max({largest, std::fabs(p.x), std::fabs(p.y)});
    int exponent = 0;
    if (std::isfinite(largest)) std::frexp(largest, &exponent);
    if (exponent > 300) {
      ZoGeometry scaled = *this;
      for (LumaPoint2D& p : scaled.m_points) p = {std::ldexp(p.x, -exponent), std::ldexp(p.y, -exponent)};
      if (!scaled.GetBaryCenter(centre)) return false;
      centre = {std::ldexp(centre.x, exponent), std::ldexp(centre.y, exponent)};
      return true;
    }
  }
  switch (m_type) {
    case GeoPoint: centre = m_points.front(); return true;
    case GeoLine: centre = PolylineCentroid(m_points, m_partCounts); return true;
    case GeoRegion: break;
    default: return false;
  }

  // Shells add their area and holes take theirs away, whichever way each ring
  // happens to be wound.
  const LumaPoint2D ref = m_points.front();
  double area2 = 0.0, mx6 = 0.0, my6 = 0.0;
  std::size_t ring = 0, start = 0;
  for (int rings : m_ringCounts) {
    for (int r = 0; r < rings; ++r, ++ring) {
      const std::size_t n = static_cast<std::size_t>(m_partCounts[ring]);
      RingMoments m = ShoelaceMoments(m_points.data() + start, n, ref);
      double sign = (m.area2 < 0.0) ? -1.0 : 1.0;
      if (r > 0) sign = -sign;
      area2 += sign * m.area2;
      mx6 += sign * m.mx6;
      my6 += sign * m.my6;
      start += n;
    }
  }

  // A region whose area is lost in rounding noise against its extent has no
  // meaningful area centroid; its boundary stands in for it.
  double minX, minY, maxX, maxY;
  GetBounds(minX, minY, maxX, maxY);
  const double extent = std::max(maxX - minX, maxY - minY);
  if (std::abs(area2) > 1e-12 * extent * extent && std::isfinite(area2)) {
    centre = {ref.x + mx6 / (3.0 * area2), ref.y + my6 / (3.0 * area2)};
    return true;
  }
  centre = PolylineCentroid(m_points, m_partCounts);
  return true;
}

double ZoGeometry::GetLength(const ZoPrjCoordSys* cs) const {
  if (m_type != GeoLine && m_type != GeoRegion) return 0.0;
  geod_geodesic g;
  const bool geodesic = IsGeographic(cs) && InitGeodesic(cs, g);
  double total = 0.0;
  std::size_t start = 0;
  for (int c : m_partCounts) {
    for (std::size_t i = start + 1; i < start + static_cast<std::size_t>(c); ++i) {
      const LumaPoint2D& p = m_points[i - 1];
      const LumaPoint2D& q = m_points[i];
      if (geodesic) {
        double s12 = 0.0;
        geod_inverse(&g, p.y, p.x, q.y, q.x, &s12, nullptr, nullptr);
        total += s12;
      } else {
        total += SegmentLength(p, q);
      }
    }
    start += static_cast<std::size_t>(c);
  }
  return total;
}

double ZoGeometry::GetArea(const ZoPrjCoordSys* cs) const try {
  if (m_type != GeoRegion || m_points.empty()) return 0.0;
  geod_geodesic g;
  const bool geodesic = IsGeographic(cs) && InitGeodesic(cs, g);
  std::vector<double> lats, lons;
  const LumaPoint2D ref = m_points.front();
  double total = 0.0;
  std::size_t ring = 0, start = 0;
  for (int rings : m_ringCounts) {
    for (int r = 0; r < rings; ++r, ++ring) {
      const std::size_t n = static_cast<std::size_t>(m_partCounts[ring]);
      double ringArea = 0.0;
      if (geodesic) {
        // The closing vertex is dropped: PROJ closes the polygon itself.
        const std::size_t open = (n > 1) ? n - 1 : n;
        if (open >= 3 && open <= static_cast<std::size_t>(std::numeric_limits<int>::max())) {
          lats.resize(open);
          lons.resize(open);
          for (std::size_t i = 0; i < open; ++i) {
            lats[i] = m_points[start + i].y;
            lons[i] = m_points[start + i].x;
          }
          double perimeter = 0.0;
          geod_polygonarea(&g, lats.data(), lons.data(), static_cast<int>(open), &ringArea, &perimeter);
        }
      } else {
        ringArea = 0.5 * ShoelaceMoments(m_points.data() + start, n, ref).area2;
      }
      ringArea = std::abs(ringArea);
      total += (r == 0) ? ringArea : -ringArea;
      start += n;
    }
  }
  return total;
} catch (...) {
  return 0.0;  // scratch arrays could not be allocated
}

bool ZoGeometry::GetBounds(double& minX, double& minY, double& maxX, double& maxY) const {
  if (m_points.empty()) return false;
  minX = maxX = m_points.front().x;
  minY = maxY = m_points.front().y;
  for (const LumaPoint2D& p : m_points) {
    minX = std::min(minX, p.x);
    maxX = std::max(maxX, p.x);
    minY = std::min(minY, p.y);
    maxY = std::max(maxY, p.y);
  }
  return true;
}

namespace {

// a + b = s + e exactly (Knuth's TwoSum).
void TwoSum(double a, double b, double& s, double& e) {
  const double sum = a + b;
  const double bv = sum - a;
  const double av = sum - bv;
  e = (a - av) + (b - bv);
  s = sum;
}

// a · b = p + e exactly, for products that neither overflow nor underflow.
void TwoProduct(double a, double b, double& p, double& e) {
  p = a * b;
  e = std::fma(a, b, -p);
}

// The sign of (b − a) × (p − a): 1 when p lies left of the directed line
// a→b, −1 right of it, 0 on it. The plain double value decides whenever it
// exceeds its rounding bound (Shewchuk's orient2d filter); the rare near-zero
// case is summed exactly: each difference is a two-term expansion, each
// product of terms two doubles, and the sixteen doubles are grown into one
// non-overlapping expansion whose largest component carries the sign.
int Orientation(const LumaPoint2D& a, const LumaPoint2D& b, const LumaPoint2D& p) {
  const double left = (b.x - a.x) * (p.y - a.y);
  const double right = (b.y - a.y) * (p.x - a.x);
  const double det = left - right;
  constexpr double kEpsilon = 0x1p-53;
  const double bound = (3.0 + 16.0 * kEpsilon) * kEpsilon * (std::fabs(left) + std::fabs(right));
  if (det > bound) return 1;
  if (-det > bound) return -1;

  double u[2], v[2], w[2], z[2];  // b.x − a.x, p.y − a.y, a.y − b.y, p.x − a.x
  TwoSum(b.x, -a.x, u[0], u[1]);
  TwoSum(p.y, -a.y, v[0], v[1]);
  TwoSum(a.y, -b.y, w[0], w[1]);
  TwoSum(p.x, -a.x, z[0], z[1]);
  double terms[16];
  int count = 0;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) {
      TwoProduct(u[i], v[j], terms[count], terms[count + 1]);
      TwoProduct(w[i], z[j], terms[count + 2], terms[count + 3]);
      count += 4;
    }
  double expansion[16];
  int size = 0;
  for (double t : terms) {
    double q = t;
    for (int h = 0; h < size; ++h) {
      double sum, error;
      TwoSum(q, expansion[h], sum, error);
      expansion[h] = error;
      q = sum;
    }
    expansion[size++] = q;
  }
  for (int h = size - 1; h >= 0; --h)
    if (expansion[h] != 0.0) return expansion[h] > 0.0 ? 1 : -1;
  return 0;
}

// One edge's part in the even-odd test of p: toggles `inside` when the ray
// from p towards +x crosses the edge, taken half-open in y so that a vertex
// on the ray counts once; true when p lies on the edge.
bool EdgeStep(const LumaPoint2D& a, const LumaPoint2D& b, const LumaPoint2D& p, bool& inside) {
  if (a.x < p.x && b.x < p.x) return false;  // wholly left of p: neither crossed nor touched
  if ((a.y > p.y) != (b.y > p.y)) {
    const int side = Orientation(a, b, p);
    if (side == 0) return true;  // on the line within the edge's y range: on the edge
    if ((side > 0) == (b.y > a.y)) inside = !inside;
    return false;
  }
  // Otherwise p can only touch a horizontal edge, or the top vertex of an edge below it.
  return std::max(a.y, b.y) == p.y && std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) &&
         Orientation(a, b, p) == 0;
}

bool Finite(const LumaPoint2D& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

}  // namespace

bool ZoGeometry::ContainsPoint(const LumaPoint2D& p) const {
  if (m_type != GeoRegion || m_points.empty() || !Finite(p)) return false;
  // Holes need no special case under the even-odd rule.
  bool inside = false;
  std::size_t start = 0;
  for (int c : m_partCounts) {
    const LumaPoint2D* ring = m_points.data() + start;
    start += static_cast<std::size_t>(c);
    for (int i = 0; i + 1 < c; ++i)
      if (EdgeStep(ring[i], ring[i + 1], p, inside)) return true;
  }
  return inside;
}

ZoPreparedRegion::ZoPreparedRegion(const ZoGeometry& region) : m_region(&region) {
  double minX, maxX;
  if (region.GetType() != GeoRegion || !region.GetBounds(minX, m_minY, maxX, m_maxY)) return;
  const LumaArray<LumaPoint2D>& pts = region.GetPoints();
  if (!std::all_of(pts.begin(), pts.end(), Finite)) return;  // left to ContainsPoint
  std::vector<std::size_t> firsts;                           // each edge by its first vertex
  firsts.reserve(pts.size());
  std::size_t start = 0;
  for (int c : region.GetPolyCounts()) {
    for (std::size_t i = start; i + 1 < start + static_cast<std::size_t>(c); ++i) firsts.push_back(i);
    start += static_cast<std::size_t>(c);
  }
  // About four edges a strip; fewer strips while long edges, which enter
  // every strip they span, would make the lists much longer than the edges.
  std::size_t strips = std::isfinite(m_maxY - m_minY) ? std::max<std::size_t>(1, firsts.size() / 4) : 1;
  std::size_t entries = 0;
  for (;; strips /= 2) {
    m_strips = strips;
    m_height = (m_maxY - m_minY) / static_cast<double>(strips);
    entries = 0;
    for (std::size_t i : firsts)
      entries += Strip(std::max(pts[i].y, pts[i + 1].y)) - Strip(std::min(pts[i].y, pts[i + 1].y)) + 1;
    if (strips == 1 || entries <= 8 * firsts.size()) break;
  }
  m_offsets.assign(strips + 1, 0);
  for (std::size_t i : firsts)
    for (std::size_t s = Strip(std::min(pts[i].y, pts[i + 1].y)); s <= Strip(std::max(pts[i].y, pts[i + 1].y)); ++s)
      ++m_offsets[s + 1];
  for (std::size_t s = 0; s < strips; ++s) m_offsets[s + 1] += m_offsets[s];
  m_edges.resize(entries);
  std::vector<std::size_t> next(m_offsets.begin(), m_offsets.end() - 1);
  for (std::size_t i : firsts)
    for (std::size_t s = Strip(std::min(pts[i].y, pts[i + 1].y)); s <= Strip(std::max(pts[i].y, pts[i + 1].y)); ++s)
      m_edges[next[s]++] = i;
}

std::size_t ZoPreparedRegion::Strip(double y) const {
  // Monotone in y, so an edge whose y range holds p.y is in p's strip.
  if (m_strips == 1 || !(m_height > 0.0)) return 0;
  const double s = std::floor((y - m_minY) / m_height);
  return s <= 0.0 ? 0 : std::min(m_strips - 1, static_cast<std::size_t>(s));
}

bool ZoPreparedRegion::Contains(const LumaPoint2D& p) const {
  if (m_offsets.empty()) return m_region->ContainsPoint(p);
  if (!Finite(p) || p.y < m_minY || p.y > m_maxY) return false;
  const LumaArray<LumaPoint2D>& pts = m_region->GetPoints();
  const std::size_t s = Strip(p.y);
  bool inside = false;
  for (std::size_t k = m_offsets[s]; k < m_offsets[s + 1]; ++k)
    if (EdgeStep(pts[m_edges[k]], pts[m_edges[k] + 1], p, inside)) return true;
  return inside;
}

namespace {

// One closed ring sampled at `segments` equal parameter steps of
// centre + axis1 * cos(t) + axis2 * sin(t), t counter-clockwise from axis1.
ZoGeometry SampledRing(const LumaPoint2D& centre, double a, double b, double angleRad, int segments) {
  if (!(std::isfinite(a) && a > 0.0 && std::isfinite(b) && b > 0.0)) return {};
  if (!(std::isfinite(centre.x) && std::isfinite(centre.y) && std::isfinite(angleRad))) return {};
  if (segments < 3) return {};
  const double c = std::cos(angleRad), s = std::sin(angleRad);
  LumaArray<LumaPoint2D> pts;
  pts.reserve(static_cast<std::size_t>(segments) + 1);
  for (int i = 0; i < segments; ++i) {
    const double t = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(segments);
    const double u = a * std::cos(t), v = b * std::sin(t);
    pts.push_back({centre.x + u * c - v * s, centre.y + u * s + v * c});
  }
  pts.push_back(pts.front());
  LumaArray<int> counts{segments + 1};
  return ZoGeometry::MakeRegion(std::move(pts), std::move(counts));
}

}  // namespace

ZoGeometry ZoGeoCircle::ConvertToRegion(int segments) const {
  return SampledRing(m_centre, m_radius, m_radius, 0.0, segments);
}

ZoGeoEllipse ZoGeoEllipse::Make(const LumaPoint2D& centre, double semiAxis1, double semiAxis2, double angleDegrees) {
  ZoGeoEllipse e;
  e.m_centre = centre;
  e.m_axis1 = semiAxis1;
  e.m_axis2 = semiAxis2;
  e.m_angle = angleDegrees;
  return e;
}

ZoGeometry ZoGeoEllipse::ConvertToRegion(int segments) const {
  return SampledRing(m_centre, m_axis1, m_axis2, m_angle * std::numbers::pi / 180.0, segments);
}

}  // namespace ZOC
