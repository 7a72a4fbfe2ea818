// Host geometry: factories, centroids, lengths and areas (planar and on the
// ellipsoid), point in polygon, segmented circles and ellipses, convex hulls
// and chord lengths, each against hand-worked or closed-form answers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "host/ZoGeometry.h"
#include "host/ZoOpPoints.h"
#include "host/ZoPrjCoordSys.h"

using namespace ZOC;
using LUMA::LumaArray;
using LUMA::LumaPoint2D;

namespace {

using Ring = std::vector<LumaPoint2D>;
using Pts = LumaArray<LumaPoint2D>;

// A region from rings given as open vertex lists; ringsPerPolygon as MakeRegion takes it.
ZoGeometry Region(const std::vector<Ring>& rings, LumaArray<int> ringsPerPolygon = {}) {
  Pts pts;
  LumaArray<int> counts;
  for (const Ring& r : rings) {
    pts.insert(pts.end(), r.begin(), r.end());
    counts.push_back(static_cast<int>(r.size()));
  }
  return ZoGeometry::MakeRegion(pts, counts, ringsPerPolygon);
}

Ring Rect(double x0, double y0, double x1, double y1) { return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}; }
Ring Reversed(Ring r) {
  std::reverse(r.begin(), r.end());
  return r;
}

void ExpectCentroid(const ZoGeometry& g, double x, double y, double tol = 1e-12) {
  LumaPoint2D c;
  ASSERT_TRUE(g.GetBaryCenter(c));
  EXPECT_NEAR(c.x, x, tol);
  EXPECT_NEAR(c.y, y, tol);
}

double Cross(const LumaPoint2D& o, const LumaPoint2D& a, const LumaPoint2D& b) {
  return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

}  // namespace

TEST(HostGeometry, FactoriesValidateAndCloseRings) {
  Ring closed = Rect(0, 0, 1, 1);
  closed.push_back(closed.front());
  const ZoGeometry two = Region({closed, Rect(5, 5, 6, 6)});  // an open ring is closed, a closed one kept
  ASSERT_EQ(two.GetType(), GeoRegion);
  EXPECT_EQ(two.GetPolyCounts(), (LumaArray<int>{5, 5}));
  EXPECT_EQ(two.GetRingCounts(), (LumaArray<int>{1, 1}));
  EXPECT_EQ(two.GetPoints()[5], two.GetPoints()[9]);
  double x0, y0, x1, y1;
  ASSERT_TRUE(two.GetBounds(x0, y0, x1, y1));
  EXPECT_EQ((std::vector<double>{x0, y0, x1, y1}), (std::vector<double>{0, 0, 6, 6}));
  LumaPoint2D c;
  EXPECT_FALSE(ZoGeometry().GetBaryCenter(c) || ZoGeometry().GetBounds(x0, y0, x1, y1));

  const Pts pts{{0, 0}, {1, 0}, {1, 1}};
  EXPECT_TRUE(ZoGeometry::MakeRegion(pts, {4}).IsEmpty());       // counts exceed the points
  EXPECT_TRUE(ZoGeometry::MakeRegion(pts, {2}).IsEmpty());       // counts leave points over
  EXPECT_TRUE(ZoGeometry::MakeRegion(pts, {3, 0}).IsEmpty());    // an empty ring
  EXPECT_TRUE(ZoGeometry::MakeRegion(pts, {3}, {2}).IsEmpty());  // more rings claimed than given
  EXPECT_TRUE(ZoGeometry::MakeLine(pts, {2}).IsEmpty());
  EXPECT_EQ(ZoGeometry::MakeLine(pts, {1, 2}).GetType(), GeoLine);
}

TEST(HostGeometry, CentroidsAndAreas) {
  // 4x4 square with a 1x1 hole at [2,3]²: (16·(2,2) − (2.5,2.5)) / 15. The
  // hole is wound like the shell, and the shell either way, on purpose.
  for (bool clockwise : {false, true}) {
    const Ring shell = clockwise ? Reversed(Rect(0, 0, 4, 4)) : Rect(0, 0, 4, 4);
    const ZoGeometry holed = Region({shell, Rect(2, 2, 3, 3)}, {2});
    ExpectCentroid(holed, 29.5 / 15.0, 29.5 / 15.0);
    EXPECT_DOUBLE_EQ(holed.GetArea(), 15.0);
    EXPECT_DOUBLE_EQ(holed.GetLength(), 20.0);  // holes count in the perimeter
  }
  // Two polygons, the second with a hole: unit square + ([10,12]×[0,2] minus
  // [10.5,11]×[0.5,1]), areas 1 and 3.75.
  const std::vector<Ring> rings = {Rect(0, 0, 1, 1), Rect(10, 0, 12, 2), Rect(10.5, 0.5, 11, 1)};
  const ZoGeometry multi = Region(rings, {1, 2});
  ExpectCentroid(multi, (0.5 * 1 + 11 * 4 - 10.75 * 0.25) / 4.75, (0.5 * 1 + 1 * 4 - 0.75 * 0.25) / 4.75);
  EXPECT_DOUBLE_EQ(multi.GetArea(), 4.75);
  EXPECT_DOUBLE_EQ(Region(rings).GetArea(), 5.25);  // ungrouped, the third ring is a polygon of its own

  // Far from the origin (projected metres) the centroid keeps its digits.
  const ZoGeometry utm = Region({Rect(500000.0, 4500000.0, 500010.0, 4500030.0)});
  ExpectCentroid(utm, 500005.0, 4500015.0, 1e-8);
  EXPECT_NEAR(utm.GetArea(), 300.0, 1e-7);
  // Zero area: the boundary centroid, length-weighted over the three edges
  // (0.5·1 + 2·2 + 1.5·3) / 6; all vertices in one place.
  const ZoGeometry flat = Region({{{0, 0}, {1, 1}, {3, 3}}});
  ExpectCentroid(flat, 1.5, 1.5);
  EXPECT_EQ(flat.GetArea(), 0.0);
  ExpectCentroid(Region({{{2, 7}, {2, 7}, {2, 7}}}), 2, 7);

  // Lines: parts of length 2 (mid (1, 0)) and 4 (mid (0, 3)); an L-shaped
  // part of segments 3 and 1; parts of no length average their vertices.
  const ZoGeometry line = ZoGeometry::MakeLine({{0, 0}, {2, 0}, {0, 1}, {0, 5}}, {2, 2});
  ExpectCentroid(line, 1.0 / 3.0, 2.0);
  EXPECT_DOUBLE_EQ(line.GetLength(), 6.0);
  ExpectCentroid(ZoGeometry::MakeLine({{0, 0}, {3, 0}, {3, 1}}, {3}), (1.5 * 3 + 3 * 1) / 4.0, 0.5 / 4.0);
  ExpectCentroid(ZoGeometry::MakeLine({{1, 1}, {1, 1}, {4, 1}, {4, 1}}, {2, 2}), 2.5, 1.0);
  ExpectCentroid(ZoGeometry::MakePoint({-3.5, 8.25}), -3.5, 8.25, 0.0);
}

TEST(HostGeometry, GeodesicAreaAndLength) {
  ZoPrjCoordSys wgs;
  ASSERT_TRUE(wgs.SetFromUserInput("EPSG:4326"));
  const double a = 6378137.0, f = 1.0 / 298.257223563, radian = std::numbers::pi / 180.0;

  // A 1° lune sector from the equator to the pole has only meridian and
  // equator edges (all geodesics), so its area is exactly 1/360 of a
  // hemisphere, known in closed form from the authalic latitude.
  const double e2 = f * (2 - f), e = std::sqrt(e2), b = a * (1 - f);
  auto zone = [&](double latDeg) {  // area from the equator to latDeg per radian of longitude
    const double s = std::sin(latDeg * radian);
    return 0.5 * b * b * (s / (1 - e2 * s * s) + std::log((1 + e * s) / (1 - e * s)) / (2 * e));
  };
  const ZoGeometry sector = Region({{{0, 0}, {1, 0}, {1, 90}}});
  EXPECT_NEAR(sector.GetArea(&wgs), radian * zone(90), 1e-9 * radian * zone(90));

  // The 1°×1° cell at the equator: its top edge is a geodesic, not the
  // parallel, so it holds a little more than the graticule cell.
  const ZoGeometry cell = Region({Rect(0, 0, 1, 1)});
  const double cellArea = cell.GetArea(&wgs), graticule = radian * (zone(1) - zone(0));
  EXPECT_NEAR(cellArea, 12308778361.47, 1.0);
  EXPECT_GT(cellArea, graticule);
  EXPECT_LT(cellArea, graticule * (1 + 1e-4));
  // The cell with its lower triangle cut out, plus that triangle wound clockwise.
  const Ring lower = {{0, 0}, {1, 0}, {1, 1}};
  const double parts = Region({Rect(0, 0, 1, 1), lower}, {2}).GetArea(&wgs) + Region({Reversed(lower)}).GetArea(&wgs);
  EXPECT_NEAR(parts, cellArea, 1e-3);

  // Along the equator the geodesic is the equator: a·Δλ; the sector adds two
  // pole-to-equator meridian arcs.
  const ZoGeometry equator = ZoGeometry::MakeLine({{10, 0}, {11, 0}, {13, 0}}, {3});
  EXPECT_NEAR(equator.GetLength(&wgs), a * 3 * radian, 1e-6);
  EXPECT_NEAR(sector.GetLength(&wgs) - 2 * 10001965.729, a * radian, 1e-2);

  const ZoPrjCoordSys planar;  // keeps planar measures
  EXPECT_DOUBLE_EQ(cell.GetArea(&planar), 1.0);
  EXPECT_DOUBLE_EQ(equator.GetLength(&planar), 3.0);
}

TEST(HostGeometry, CircleAndEllipseSegmentation) {
  const LumaPoint2D centre{100.0, -20.0};
  const double pi = std::numbers::pi;
  // One closed counter-clockwise ring of n segments, every vertex on the
  // ellipse of axes a (turned phi from x) and b, enclosing the inscribed
  // n-gon's (n/2)·a·b·sin(2π/n).
  const auto expectSegmented = [&](const ZoGeometry& g, int n, double a, double b, double phi) {
    const auto& p = g.GetPoints();
    ASSERT_EQ(g.GetPolyCounts(), LumaArray<int>{n + 1});
    EXPECT_EQ(p.front(), p.back());
    EXPECT_GT(Cross(p[0], p[1], p[2]), 0.0);
    for (const auto& q : p) {
      const double dx = q.x - centre.x, dy = q.y - centre.y;
      const double u = dx * std::cos(phi) + dy * std::sin(phi), v = -dx * std::sin(phi) + dy * std::cos(phi);
      EXPECT_NEAR(u * u / (a * a) + v * v / (b * b), 1.0, 1e-12);
    }
    EXPECT_NEAR(g.GetArea(), n / 2.0 * a * b * std::sin(2 * pi / n), 1e-9);
  };
  const ZoGeometry circle = ZoGeoCircle(centre, 7.5).ConvertToRegion();
  expectSegmented(circle, 72, 7.5, 7.5, 0.0);
  ExpectCentroid(circle, centre.x, centre.y, 1e-9);
  expectSegmented(ZoGeoCircle(centre, 7.5).ConvertToRegion(8), 8, 7.5, 7.5, 0.0);
  // Axis 1 (the shorter here) turned 30° from x.
  expectSegmented(ZoGeoEllipse::Make(centre, 2.0, 5.0, 30.0).ConvertToRegion(40), 40, 2.0, 5.0, pi / 6);

  for (double bad : {0.0, -1.0, std::numeric_limits<double>::infinity(), std::nan("")})
    EXPECT_TRUE(ZoGeoCircle(centre, bad).ConvertToRegion().IsEmpty() &&
                ZoGeoEllipse::Make(centre, bad, 1.0, 0.0).ConvertToRegion().IsEmpty() &&
                ZoGeoEllipse::Make(centre, 1.0, bad, 0.0).ConvertToRegion().IsEmpty())
        << bad;
}

TEST(HostGeometry, ConvexHulls) {
  Pts hull{{9, 9}};
  EXPECT_FALSE(ZoOpPoints::Flange(nullptr, 0, hull));
  EXPECT_FALSE(ZoOpPoints::Flange(Pts{}, hull));
  // One point (or all coincident) gives that point; collinear points give the
  // two extremes as a ring, the lexicographically smaller first and last.
  const std::vector<std::pair<Pts, Pts>> cases = {
      {{{3, 4}}, {{3, 4}}},
      {{{3, 4}, {3, 4}, {3, 4}}, {{3, 4}}},
      {{{3, 3}, {1, 1}, {2, 2}, {0, 0}, {1, 1}}, {{0, 0}, {3, 3}, {0, 0}}},
      {{{0, 5}, {0, 1}, {0, 3}}, {{0, 1}, {0, 5}, {0, 1}}},
      {{{5, 2}, {1, 2}}, {{1, 2}, {5, 2}, {1, 2}}},
  };
  for (const auto& [input, want] : cases) {
    ASSERT_TRUE(ZoOpPoints::Flange(input, hull));
    EXPECT_EQ(hull, want) << input.size();
  }

  std::mt19937 rng(17);
  for (int trial = 0; trial < 20; ++trial) {
    // Small integer coordinates: many duplicates and exactly collinear triples.
    std::uniform_int_distribution<int> u(-10, 10);
    Pts pts(5 + trial * 10);
    for (auto& p : pts) p = {double(u(rng)), double(u(rng))};
    ASSERT_TRUE(ZoOpPoints::Flange(pts, hull));
    ASSERT_GE(hull.size(), 4u);
    EXPECT_EQ(hull.front(), hull.back());
    const std::size_t m = hull.size() - 1;
    for (std::size_t i = 0; i < m; ++i) {
      // A vertex of the input, turning strictly left (convex, CCW, no collinear vertex).
      EXPECT_NE(std::find(pts.begin(), pts.end(), hull[i]), pts.end());
      EXPECT_GT(Cross(hull[i], hull[(i + 1) % m], hull[(i + 2) % m]), 0.0);
    }
    for (const auto& p : pts)
      for (std::size_t i = 0; i < m; ++i) EXPECT_GE(Cross(hull[i], hull[i + 1], p), 0.0);  // inside or on
  }
}

// Even-odd with the boundary inside, by the geometry and by a prepared region.
TEST(HostGeometry, ContainsPointByEvenOddWithBoundary) {
  // A 4x4 square with a 2x2 hole, both wound the same way, and beside it a
  // concave U whose notch opens upwards: one multipolygon.
  const ZoGeometry g = Region(
      {Rect(0, 0, 4, 4), Rect(1, 1, 3, 3), {{5, 0}, {8, 0}, {8, 3}, {7, 3}, {7, 1}, {6, 1}, {6, 3}, {5, 3}}}, {2, 1});
  const ZoPreparedRegion prepared(g);
  const std::vector<LumaPoint2D> in = {{0.5, 0.5}, {3.5, 2},   {0, 2},   {4, 4},   {1, 2}, {3, 3},
                                       {2, 0},     {5.5, 2.5}, {7.5, 3}, {6.5, 1}, {6, 2}, {7, 3}};
  const std::vector<LumaPoint2D> out = {{2, 2},   {1.5, 2.5}, {-1e-300, 2}, {4.5, 2},    {6.5, 2},
                                        {6.5, 3}, {4, 4.5},   {9, 1},       {5, -1e-300}};
  for (const LumaPoint2D& p : in) EXPECT_TRUE(g.ContainsPoint(p) && prepared.Contains(p)) << p.x << ", " << p.y;
  for (const LumaPoint2D& p : out) EXPECT_FALSE(g.ContainsPoint(p) || prepared.Contains(p)) << p.x << ", " << p.y;

  // A point just right of the edge (0,0)→(1, 1+2⁻⁵²): both products of the
  // orientation round to 1, so only the exact sum sees it lies outside.
  const double up = 1 + std::ldexp(1.0, -52), below = 1 - std::ldexp(1.0, -53);
  const ZoGeometry sliver = Region({{{0, 0}, {1, up}, {0, up}}});
  EXPECT_FALSE(sliver.ContainsPoint({below, 1}));
  EXPECT_TRUE(sliver.ContainsPoint({0.5, 0.5 * up}));  // exactly on that edge
  EXPECT_TRUE(sliver.ContainsPoint({below, up}));

  EXPECT_FALSE(ZoGeometry().ContainsPoint({0, 0}));
  EXPECT_FALSE(ZoGeometry::MakePoint({1, 1}).ContainsPoint({1, 1}));
  EXPECT_FALSE(ZoGeometry::MakeLine(Pts{{0, 0}, {2, 2}}, {2}).ContainsPoint({1, 1}));
  EXPECT_FALSE(g.ContainsPoint({std::numeric_limits<double>::quiet_NaN(), 2}));
  EXPECT_FALSE(ZoPreparedRegion(ZoGeometry()).Contains({0, 0}));

  // The prepared region agrees on a many-sided disc with a hole, a star whose
  // long spikes cross many strips, and a flat ring of zero height, at random
  // points and every vertex.
  LumaArray<LumaPoint2D> star;
  for (int i = 0; i < 200; ++i) {
    const double t = 2 * std::numbers::pi * i / 200, r = (i % 2) ? 10.0 : 1.0;
    star.push_back({r * std::cos(t), r * std::sin(t)});
  }
  const std::vector<ZoGeometry> regions = {
      Region({ZoGeoCircle({0, 0}, 8).ConvertToRegion(400).GetPoints(), Rect(-2, -3, 4, 1)}, {2}),
      ZoGeometry::MakeRegion(star, {200}), Region({{{-5, 1}, {0, 1}, {5, 1}}})};
  std::mt19937 rng(8);
  std::uniform_real_distribution<double> u(-11, 11);
  for (const ZoGeometry& region : regions) {
    const ZoPreparedRegion fast(region);
    std::vector<LumaPoint2D> probes(region.GetPoints().begin(), region.GetPoints().end());
    for (int i = 0; i < 4000; ++i) probes.push_back({u(rng), i % 10 ? u(rng) : 1.0});
    int inside = 0;
    for (const LumaPoint2D& p : probes) {
      ASSERT_EQ(fast.Contains(p), region.ContainsPoint(p)) << p.x << ", " << p.y;
      inside += region.ContainsPoint(p);
    }
    EXPECT_GT(inside, static_cast<int>(region.GetPoints().size()));  // the vertices and some random points
  }
}

TEST(HostGeometry, PointDistances) {
  EXPECT_DOUBLE_EQ(ZoOpPoints::Distance({1, 2}, {4, 6}), 5.0);
  // On a sphere the chord is 2R·sin(θ/2), with sin²(θ/2) from the haversine.
  const double R = 6371000.0, deg = std::numbers::pi / 180.0;
  std::mt19937 rng(4);
  std::uniform_real_distribution<double> lon(-180, 180), lat(-90, 90);
  for (int i = 0; i < 200; ++i) {
    const LumaPoint2D p{lon(rng), lat(rng)}, q{lon(rng), lat(rng)};
    const double s1 = std::sin((q.y - p.y) * deg / 2), s2 = std::sin((q.x - p.x) * deg / 2);
    const double hav = s1 * s1 + std::cos(p.y * deg) * std::cos(q.y * deg) * s2 * s2;
    EXPECT_NEAR(ZoOpPoints::GetSpheroidChordalDistance(p, q, R, 0.0), 2 * R * std::sqrt(hav), 1e-6);
  }
  // On WGS 84: pole to pole is the polar diameter, across the equator the
  // equatorial one, a quarter turn along the equator a·√2.
  const double a = 6378137.0, f = 1.0 / 298.257223563;
  EXPECT_NEAR(ZoOpPoints::GetSpheroidChordalDistance({0, 90}, {0, -90}, a, f), 2 * a * (1 - f), 1e-6);
  EXPECT_NEAR(ZoOpPoints::GetSpheroidChordalDistance({-30, 0}, {150, 0}, a, f), 2 * a, 1e-6);
  EXPECT_NEAR(ZoOpPoints::GetSpheroidChordalDistance({0, 0}, {90, 0}, a, f), a * std::sqrt(2.0), 1e-6);
}
