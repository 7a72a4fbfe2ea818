// Coordinate systems: type codes, the ellipsoid, and the forward projection
// checked against geodesic distances from Vincenty's inverse formula.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
using LUMA::LumaPoint2D;

namespace {

// Vincenty's inverse formula: geodesic distance in metres between two points
// (degrees) on the ellipsoid (a, f).
double Vincenty(double a, double f, LumaPoint2D p1, LumaPoint2D p2) {
  const double r = std::numbers::pi / 180.0, b = a * (1 - f), L = (p2.x - p1.x) * r;
  const double U1 = std::atan((1 - f) * std::tan(p1.y * r)), U2 = std::atan((1 - f) * std::tan(p2.y * r));
  const double sU1 = std::sin(U1), cU1 = std::cos(U1), sU2 = std::sin(U2), cU2 = std::cos(U2);
  double lambda = L, sS = 0, cS = 0, sigma = 0, cSqA = 0, c2M = 0;
  for (int iter = 0; iter < 200; ++iter) {
    const double sL = std::sin(lambda), cL = std::cos(lambda);
    sS = std::hypot(cU2 * sL, cU1 * sU2 - sU1 * cU2 * cL);
    if (sS == 0.0) return 0.0;
    cS = sU1 * sU2 + cU1 * cU2 * cL;
    sigma = std::atan2(sS, cS);
    const double sA = cU1 * cU2 * sL / sS;
    cSqA = 1 - sA * sA;
    c2M = cSqA != 0.0 ? cS - 2 * sU1 * sU2 / cSqA : 0.0;
    const double C = f / 16 * cSqA * (4 + f * (4 - 3 * cSqA)), previous = lambda;
    lambda = L + (1 - C) * f * sA * (sigma + C * sS * (c2M + C * cS * (-1 + 2 * c2M * c2M)));
    if (std::fabs(lambda - previous) < 1e-13) break;
  }
  const double u2 = cSqA * (a * a - b * b) / (b * b);
  const double A = 1 + u2 / 16384 * (4096 + u2 * (-768 + u2 * (320 - 175 * u2)));
  const double B = u2 / 1024 * (256 + u2 * (-128 + u2 * (74 - 47 * u2)));
  const double dS =
      B * sS * (c2M + B / 4 * (cS * (-1 + 2 * c2M * c2M) - B / 6 * c2M * (-3 + 4 * sS * sS) * (-3 + 4 * c2M * c2M)));
  return b * A * (sigma - dS);
}

ZoPrjCoordSys Cs(const char* definition) {
  ZoPrjCoordSys cs;
  EXPECT_TRUE(cs.SetFromUserInput(definition)) << definition;
  return cs;
}

}  // namespace

TEST(HostPrjCoordSys, TypesEllipsoidsAndIdentity) {
  ZoPrjCoordSys undefined;
  EXPECT_FALSE(undefined.SetFromUserInput("certainly not a coordinate system"));
  EXPECT_TRUE(undefined.IsUndefined() && undefined.GetTypeID() == ZoPrjCoordSys::Planar);
  // Engineering (local) systems have no known relation to the earth.
  EXPECT_TRUE(Cs("LOCAL_CS[\"site grid\",UNIT[\"metre\",1]]").IsSame(undefined));

  ZoPrjCoordSys wgs = Cs("EPSG:4326");
  EXPECT_FALSE(wgs.SetFromUserInput("nonsense"));  // unchanged on failure
  EXPECT_EQ(wgs.GetTypeID(), ZoPrjCoordSys::Geographic);
  EXPECT_DOUBLE_EQ(wgs.GetFlattening(), 1.0 / 298.257223563);
  EXPECT_FALSE(wgs.IsSame(undefined));
  const ZoPrjCoordSys utm = Cs("EPSG:32618"), ed50 = Cs("EPSG:4230");
  EXPECT_EQ(utm.GetTypeID(), ZoPrjCoordSys::Projected);
  EXPECT_TRUE(ed50.GetSemiMajorAxis() == 6378388.0 && ed50.GetFlattening() == 1.0 / 297.0);
  EXPECT_TRUE(utm.IsSame(Cs(utm.GetWKT().c_str())) && !wgs.IsSame(ed50));  // the same through its own WKT
  // Planar and projected systems already measure in their units: no change.
  for (const ZoPrjCoordSys& cs : {undefined, utm}) {
    LumaArray<LumaPoint2D> pts{{500000.0, 4500000.0}, {1.5, -2.0}};
    ASSERT_TRUE(cs.Forward(pts));
    EXPECT_EQ(pts, (LumaArray<LumaPoint2D>{{500000.0, 4500000.0}, {1.5, -2.0}}));
  }
  for (const auto& [file, type] : {std::pair{"columbus.gpkg", 0}, {"ny8.gpkg", 2}, {"cycle_hire.gpkg", 1}}) {
    auto src = ZoDataSource::Open(satest::DataPath(file), false);
    EXPECT_TRUE(src && src->GetDataset(0)->GetPrjCoordSys().GetTypeID() == type) << file;
  }
}

TEST(HostPrjCoordSys, ForwardIsEquidistantFromTheCentre) {
  for (const char* def : {"EPSG:4326", "EPSG:4230"}) {
    ZoPrjCoordSys cs = Cs(def);
    cs.SetExtent(11.0, 51.0, 9.0, 49.0);  // corners in any order: centre (10, 50)
    const LumaPoint2D centre{10.0, 50.0};
    LumaArray<LumaPoint2D> pts{centre, {10.0, 51.0}, {12.5, 50.0}, {7.0, 47.5}, {10.4, 49.8}, {9.0, 53.0}};
    const LumaArray<LumaPoint2D> geo = pts;
    ASSERT_TRUE(cs.Forward(pts)) << def;
    for (std::size_t i = 0; i < pts.size(); ++i) {
      const double d = Vincenty(cs.GetSemiMajorAxis(), cs.GetFlattening(), centre, geo[i]);
      EXPECT_NEAR(std::hypot(pts[i].x, pts[i].y), d, 1e-6 + 1e-7 * d) << def << " point " << i;
    }
    EXPECT_NEAR(pts[1].x, 0.0, 1e-6);  // due north
    EXPECT_GT(pts[2].x, 0.0);          // east
  }
  // Without an extent the projection centres on the points' box.
  ZoPrjCoordSys cs = Cs("EPSG:4326");
  LumaArray<LumaPoint2D> pts{{0.0, 0.0}, {2.0, 4.0}, {1.0, 2.0}};
  ASSERT_TRUE(cs.Forward(pts));
  EXPECT_NEAR(std::hypot(pts[2].x, pts[2].y), 0.0, 1e-6);
  LumaArray<LumaPoint2D> bad{{0.0, 0.0}, {0.0, 95.0}};
  EXPECT_FALSE(cs.Forward(bad));
}

// Every pair among a spread of London's stations, the westernmost and
// easternmost (over 15 km apart) included, through the layer's own system.
TEST(HostPrjCoordSys, CycleHireDistancesMatchGeodesics) {
  auto src = ZoDataSource::Open(satest::DataPath("cycle_hire.gpkg"), false);
  ZoDatasetVector* ds = src ? src->GetDataset("cycle_hire") : nullptr;
  ASSERT_TRUE(ds);
  std::unique_ptr<ZoRecordset> rs(ds->Query(ZoQueryDef()));
  LumaArray<LumaPoint2D> geo;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) {
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g) && g.GetType() == GeoPoint);
    const LumaPoint2D p = g.GetPoints()[0];  // longitude first
    EXPECT_TRUE(p.x > -0.24 && p.x < 0.0 && p.y > 51.45 && p.y < 51.55) << p.x << " " << p.y;
    geo.push_back(p);
  }
  ASSERT_EQ(geo.size(), 742u);
  LumaArray<LumaPoint2D> xy = geo;
  ASSERT_TRUE(ds->GetPrjCoordSys().Forward(xy));
  std::vector<std::size_t> pick;
  std::size_t west = 0, east = 0;
  for (std::size_t i = 0; i < geo.size(); ++i) {
    if (i % 37 == 0) pick.push_back(i);
    if (geo[i].x < geo[west].x) west = i;
    if (geo[i].x > geo[east].x) east = i;
  }
  pick.insert(pick.end(), {west, east});
  const double a = 6378137.0, f = 1.0 / 298.257223563;
  EXPECT_GT(Vincenty(a, f, geo[west], geo[east]), 15000.0);
  int pairs = 0;
  for (std::size_t i : pick)
    for (std::size_t j : pick) {
      const double d = Vincenty(a, f, geo[i], geo[j]);
      if (i >= j || d < 50.0) continue;
      EXPECT_NEAR(std::hypot(xy[i].x - xy[j].x, xy[i].y - xy[j].y), d, 0.005 * d) << i << "-" << j;
      ++pairs;
    }
  EXPECT_GT(pairs, 200);
}
