// Coordinate systems: type codes of defined and undefined systems, the
// ellipsoid, and the forward projection checked against geodesic distances
// computed here with Vincenty's inverse formula.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
using LUMA::LumaPoint2D;

namespace {

// The tests also write files with GDAL directly; each may run in its own process.
GDALDriver* GpkgDriver() {
  GDALAllRegister();
  return GetGDALDriverManager()->GetDriverByName("GPKG");
}

// Vincenty's inverse formula: the geodesic distance in metres between two
// points (degrees) on the ellipsoid (a, f).
double Vincenty(double a, double f, LumaPoint2D p1, LumaPoint2D p2) {
  const double d2r = std::numbers::pi / 180.0;
  const double b = a * (1.0 - f);
  const double L = (p2.x - p1.x) * d2r;
  const double U1 = std::atan((1.0 - f) * std::tan(p1.y * d2r));
  const double U2 = std::atan((1.0 - f) * std::tan(p2.y * d2r));
  const double sinU1 = std::sin(U1), cosU1 = std::cos(U1), sinU2 = std::sin(U2), cosU2 = std::cos(U2);
  double lambda = L, lambdaP = 0.0;
  double sinSigma = 0.0, cosSigma = 0.0, sigma = 0.0, cosSqAlpha = 0.0, cos2SigmaM = 0.0;
  for (int iter = 0; iter < 200; ++iter) {
    const double sinLambda = std::sin(lambda), cosLambda = std::cos(lambda);
    sinSigma = std::hypot(cosU2 * sinLambda, cosU1 * sinU2 - sinU1 * cosU2 * cosLambda);
    if (sinSigma == 0.0) return 0.0;
    cosSigma = sinU1 * sinU2 + cosU1 * cosU2 * cosLambda;
    sigma = std::atan2(sinSigma, cosSigma);
    const double sinAlpha = cosU1 * cosU2 * sinLambda / sinSigma;
    cosSqAlpha = 1.0 - sinAlpha * sinAlpha;
    cos2SigmaM = cosSqAlpha != 0.0 ? cosSigma - 2.0 * sinU1 * sinU2 / cosSqAlpha : 0.0;
    const double C = f / 16.0 * cosSqAlpha * (4.0 + f * (4.0 - 3.0 * cosSqAlpha));
    lambdaP = lambda;
    lambda = L + (1.0 - C) * f * sinAlpha *
                     (sigma + C * sinSigma * (cos2SigmaM + C * cosSigma * (-1.0 + 2.0 * cos2SigmaM * cos2SigmaM)));
    if (std::fabs(lambda - lambdaP) < 1e-13) break;
  }
  const double uSq = cosSqAlpha * (a * a - b * b) / (b * b);
  const double A = 1.0 + uSq / 16384.0 * (4096.0 + uSq * (-768.0 + uSq * (320.0 - 175.0 * uSq)));
  const double B = uSq / 1024.0 * (256.0 + uSq * (-128.0 + uSq * (74.0 - 47.0 * uSq)));
  const double deltaSigma =
      B * sinSigma *
      (cos2SigmaM + B / 4.0 *
                        (cosSigma * (-1.0 + 2.0 * cos2SigmaM * cos2SigmaM) -
                         B / 6.0 * cos2SigmaM * (-3.0 + 4.0 * sinSigma * sinSigma) *
                             (-3.0 + 4.0 * cos2SigmaM * cos2SigmaM)));
  return b * A * (sigma - deltaSigma);
}

ZoPrjCoordSys Cs(const char* definition) {
  ZoPrjCoordSys cs;
  EXPECT_TRUE(cs.SetFromUserInput(definition)) << definition;
  return cs;
}

}  // namespace

TEST(HostPrjCoordSys, UndefinedSystem) {
  ZoPrjCoordSys cs;
  EXPECT_EQ(cs.GetTypeID(), ZoPrjCoordSys::Planar);
  EXPECT_TRUE(cs.IsUndefined());
  EXPECT_EQ(cs.GetOGR(), nullptr);
  EXPECT_TRUE(cs.GetName().IsEmpty());
  EXPECT_TRUE(cs.GetWKT().IsEmpty());
  EXPECT_EQ(cs.GetSemiMajorAxis(), 6378137.0);
  EXPECT_DOUBLE_EQ(cs.GetFlattening(), 1.0 / 298.257223563);
  LumaArray<LumaPoint2D> pts{{1.5, -2.0}, {1e6, 3e6}};
  const LumaArray<LumaPoint2D> before = pts;
  ASSERT_TRUE(cs.Forward(pts));
  EXPECT_EQ(pts, before);

  EXPECT_FALSE(cs.SetFromUserInput(""));
  EXPECT_FALSE(cs.SetFromUserInput("certainly not a coordinate system"));
  EXPECT_TRUE(cs.IsUndefined());
  // Engineering (local) systems have no known relation to the earth.
  ZoPrjCoordSys local;
  ASSERT_TRUE(local.SetFromUserInput("LOCAL_CS[\"site grid\",UNIT[\"metre\",1]]"));
  EXPECT_EQ(local.GetTypeID(), ZoPrjCoordSys::Planar);
  EXPECT_TRUE(local.IsUndefined());
  EXPECT_TRUE(local.IsSame(cs));

  ZoPrjCoordSys wgs = Cs("EPSG:4326");
  EXPECT_FALSE(wgs.SetFromUserInput("nonsense"));  // unchanged on failure
  EXPECT_EQ(wgs.GetTypeID(), ZoPrjCoordSys::Geographic);
  EXPECT_FALSE(wgs.IsSame(cs));
  EXPECT_FALSE(cs.IsSame(wgs));
}

TEST(HostPrjCoordSys, TypesEllipsoidsAndIdentity) {
  const ZoPrjCoordSys wgs = Cs("EPSG:4326");
  EXPECT_EQ(wgs.GetTypeID(), ZoPrjCoordSys::Geographic);
  EXPECT_EQ(wgs.GetName().Str(), "WGS 84");
  EXPECT_NE(wgs.GetWKT().Str().find("GEOGCRS"), std::string::npos);
  EXPECT_EQ(wgs.GetSemiMajorAxis(), 6378137.0);
  EXPECT_DOUBLE_EQ(wgs.GetFlattening(), 1.0 / 298.257223563);

  const ZoPrjCoordSys utm = Cs("EPSG:32618");
  EXPECT_EQ(utm.GetTypeID(), ZoPrjCoordSys::Projected);
  EXPECT_EQ(utm.GetSemiMajorAxis(), 6378137.0);
  const ZoPrjCoordSys ed50 = Cs("EPSG:4230");
  EXPECT_EQ(ed50.GetTypeID(), ZoPrjCoordSys::Geographic);
  EXPECT_EQ(ed50.GetSemiMajorAxis(), 6378388.0);
  EXPECT_DOUBLE_EQ(ed50.GetFlattening(), 1.0 / 297.0);
  const ZoPrjCoordSys sphere = Cs("+proj=longlat +a=6370000 +b=6370000 +no_defs");
  EXPECT_EQ(sphere.GetTypeID(), ZoPrjCoordSys::Geographic);
  EXPECT_EQ(sphere.GetFlattening(), 0.0);

  EXPECT_TRUE(utm.IsSame(Cs(utm.GetWKT().c_str())));  // through its own WKT
  EXPECT_FALSE(utm.IsSame(wgs));
  EXPECT_FALSE(wgs.IsSame(ed50));
  ZoPrjCoordSys copy(utm);
  EXPECT_TRUE(copy.IsSame(utm));
  copy = wgs;
  EXPECT_TRUE(copy.IsSame(wgs));
  EXPECT_EQ(copy.GetTypeID(), ZoPrjCoordSys::Geographic);

  // Projected systems already measure in their units: no change.
  LumaArray<LumaPoint2D> pts{{500000.0, 4500000.0}, {510000.0, 4510000.0}};
  const LumaArray<LumaPoint2D> before = pts;
  ASSERT_TRUE(utm.Forward(pts));
  EXPECT_EQ(pts, before);
}

TEST(HostPrjCoordSys, SampleDataSystems) {
  struct Case {
    const char* file;
    int type;
  };
  for (const Case& c : {Case{"columbus.gpkg", 0}, Case{"baltim.gpkg", 0}, Case{"ny8.gpkg", 2},
                        Case{"cycle_hire.gpkg", 1}}) {
    auto src = ZoDataSource::Open(satest::DataPath(c.file), false);
    ASSERT_TRUE(src) << c.file;
    EXPECT_EQ(src->GetDataset(0)->GetPrjCoordSys().GetTypeID(), c.type) << c.file;
  }
  // A GeoPackage layer written without a system reads back as undefined.
  satest::TempDir dir;
  const std::string path = dir.File("nosrs.gpkg");
  {
    GDALDatasetUniquePtr gdal(
        GpkgDriver()->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    ASSERT_TRUE(gdal->CreateLayer("p", nullptr, wkbPoint));
  }
  auto src = ZoDataSource::Open(path, false);
  ASSERT_TRUE(src);
  EXPECT_EQ(src->GetDataset(0)->GetPrjCoordSys().GetTypeID(), ZoPrjCoordSys::Planar);
  EXPECT_TRUE(src->GetDataset(0)->GetPrjCoordSys().IsUndefined());
}

TEST(HostPrjCoordSys, ForwardIsEquidistantFromTheExtentCentre) {
  for (const char* def : {"EPSG:4326", "EPSG:4230"}) {
    ZoPrjCoordSys cs = Cs(def);
    cs.SetExtent(11.0, 51.0, 9.0, 49.0);  // corners in any order: centre (10, 50)
    const double a = cs.GetSemiMajorAxis(), f = cs.GetFlattening();
    const LumaPoint2D centre{10.0, 50.0};
    LumaArray<LumaPoint2D> pts{centre, {10.0, 51.0}, {12.5, 50.0}, {7.0, 47.5}, {10.4, 49.8}, {9.0, 53.0}};
    const LumaArray<LumaPoint2D> geo = pts;
    ASSERT_TRUE(cs.Forward(pts)) << def;
    EXPECT_NEAR(pts[0].x, 0.0, 1e-6);
    EXPECT_NEAR(pts[0].y, 0.0, 1e-6);
    for (std::size_t i = 1; i < pts.size(); ++i) {
      const double d = Vincenty(a, f, centre, geo[i]);
      EXPECT_NEAR(std::hypot(pts[i].x, pts[i].y), d, 1e-7 * d) << def << " point " << i;
    }
    EXPECT_NEAR(pts[1].x, 0.0, 1e-6);  // due north
    EXPECT_GT(pts[1].y, 0.0);
    EXPECT_GT(pts[2].x, 0.0);  // east
    const std::string proj = cs.ForwardDefinition(10.0, 50.0).Str();
    EXPECT_NE(proj.find("+proj=aeqd"), std::string::npos) << proj;
    EXPECT_NE(proj.find("+lat_0=50"), std::string::npos) << proj;
    EXPECT_NE(proj.find("+lon_0=10"), std::string::npos) << proj;
  }
}

TEST(HostPrjCoordSys, ForwardWithoutExtentCentresOnThePoints) {
  ZoPrjCoordSys cs = Cs("EPSG:4326");
  LumaArray<LumaPoint2D> pts{{0.0, 0.0}, {2.0, 4.0}, {1.0, 2.0}};
  const LumaArray<LumaPoint2D> geo = pts;
  ASSERT_TRUE(cs.Forward(pts));
  EXPECT_NEAR(pts[2].x, 0.0, 1e-6);  // the centre of the points' box
  EXPECT_NEAR(pts[2].y, 0.0, 1e-6);
  const double d = Vincenty(cs.GetSemiMajorAxis(), cs.GetFlattening(), geo[2], geo[0]);
  EXPECT_NEAR(std::hypot(pts[0].x, pts[0].y), d, 1e-7 * d);

  LumaArray<LumaPoint2D> bad{{0.0, 0.0}, {0.0, 95.0}};
  EXPECT_FALSE(cs.Forward(bad));
  LumaArray<LumaPoint2D> none;
  EXPECT_TRUE(cs.Forward(none));
}

TEST(HostPrjCoordSys, CycleHireDistancesMatchGeodesics) {
  auto src = ZoDataSource::Open(satest::DataPath("cycle_hire.gpkg"), false);
  ASSERT_TRUE(src);
  ZoDatasetVector* ds = src->GetDataset("cycle_hire");
  ASSERT_TRUE(ds);
  const ZoPrjCoordSys& cs = ds->GetPrjCoordSys();
  ASSERT_EQ(cs.GetTypeID(), ZoPrjCoordSys::Geographic);
  ZoQueryDef q;
  q.m_order = " Order BY QlID";
  std::unique_ptr<ZoRecordset> rs(ds->Query(q));
  ASSERT_TRUE(rs);
  LumaArray<LumaPoint2D> geo;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) {
    ZoGeometry g;
    ASSERT_TRUE(rs->GetGeometry(g));
    geo.push_back(g.GetPoints()[0]);
  }
  ASSERT_EQ(geo.size(), 742u);
  LumaArray<LumaPoint2D> xy = geo;
  ASSERT_TRUE(cs.Forward(xy));
  // Every pair among a spread of stations, including the two farthest apart in longitude.
  std::vector<std::size_t> pick;
  for (std::size_t i = 0; i < geo.size(); i += 37) pick.push_back(i);
  std::size_t west = 0, east = 0;
  for (std::size_t i = 0; i < geo.size(); ++i) {
    if (geo[i].x < geo[west].x) west = i;
    if (geo[i].x > geo[east].x) east = i;
  }
  pick.push_back(west);
  pick.push_back(east);
  int pairs = 0;
  for (std::size_t i : pick)
    for (std::size_t j : pick) {
      if (i >= j) continue;
      const double d = Vincenty(6378137.0, 1.0 / 298.257223563, geo[i], geo[j]);
      if (d < 50.0) continue;
      const double planar = std::hypot(xy[i].x - xy[j].x, xy[i].y - xy[j].y);
      EXPECT_NEAR(planar, d, 0.005 * d) << i << "-" << j;
      ++pairs;
    }
  EXPECT_GT(pairs, 200);
  const double span = Vincenty(6378137.0, 1.0 / 298.257223563, geo[west], geo[east]);
  EXPECT_GT(span, 15000.0);  // the stations cover London west to east
}
