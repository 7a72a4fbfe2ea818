#include "host/ZoPrjCoordSys.h"
#include "host/detail/PrjAccess.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include <cpl_conv.h>
#include <ogr_spatialref.h>

#include "host/detail/GdalSession.h"

namespace ZOC {

namespace {

constexpr double kWgs84A = 6378137.0;
constexpr double kWgs84InvF = 298.257223563;

// Systems that only say "no known definition": GeoPackage's reserved
// entries for data written without a system (srs_id 0 comes back as an
// "Undefined geographic SRS", -1 as the engineering "Undefined Cartesian
// SRS"), and any engineering (local) system, whose units and axes relate to
// nothing on the earth.
bool IsUndefinedSrs(const OGRSpatialReference& srs) {
  if (srs.IsEmpty() || srs.IsLocal()) return true;
  const char* name = srs.GetName();
  if (name && (EQUAL(name, "Undefined geographic SRS") || EQUAL(name, "Undefined Cartesian SRS"))) return true;
  return !srs.IsGeographic() && !srs.IsProjected() && !srs.IsGeocentric() && !srs.IsCompound() && !srs.IsVertical();
}

// The longitude at the middle of the arc that the given longitudes cover on
// a circle of `turn` units, when they straddle the antimeridian: the largest
// gap between consecutive longitudes lies inside the ±half-turn range rather
// than across ±180. False when they do not straddle it (or are not finite).
bool StraddlingCentre(const LumaPoint2D* points, std::size_t count, double turn, double& centre) {
  const double half = turn / 2;
  std::vector<double> lons(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (!std::isfinite(points[i].x)) return false;
    double lon = std::fmod(points[i].x + half, turn);
    if (lon < 0) lon += turn;
    lons[i] = lon - half;  // in [-half, half)
  }
  std::sort(lons.begin(), lons.end());
  if (lons.size() < 2) return false;
  double largest = lons.front() + turn - lons.back();  // the gap across ±180
  std::size_t after = 0;
  for (std::size_t i = 1; i < lons.size(); ++i) {
    if (lons[i] - lons[i - 1] > largest) {
      largest = lons[i] - lons[i - 1];
      after = i;
    }
  }
  if (after == 0) return false;
  // The points run from lons[after] eastwards across ±180 to lons[after - 1].
  centre = 0.5 * (lons[after] + lons[after - 1] + turn);
  if (centre >= half) centre -= turn;
  return true;
}

struct TransformDelete {
  void operator()(OGRCoordinateTransformation* ct) const { OGRCoordinateTransformation::DestroyCT(ct); }
};

}  // namespace

struct ZoPrjCoordSys::Impl {
  detail::SrsPtr srs;  // null when undefined
  bool hasExtent = false;
  double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;

  // The azimuthal equidistant system centred at (lon0, lat0) on this
  // system's geodetic datum (WGS 84 when there is none), in metres.
  detail::SrsPtr MakeAeqd(double lon0, double lat0) const {
    detail::SrsPtr target(new OGRSpatialReference());
    if (srs)
      target->CopyGeogCSFrom(srs.get());
    else
      target->SetWellKnownGeogCS("WGS84");
    if (target->SetAE(lat0, lon0, 0.0, 0.0) != OGRERR_NONE) return nullptr;
    target->SetLinearUnits(SRS_UL_METER, 1.0);
    target->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return target;
  }

  // The PROJ pipeline from this geographic system's coordinates (longitude,
  // latitude in its angular unit, from its own prime meridian) to the
  // azimuthal equidistant plane centred at (lon0, lat0) degrees on its
  // ellipsoid, in metres: the operation PROJ would find, written out. Empty
  // when the system gives no usable unit or ellipsoid.
  std::string AeqdPipeline(double lon0Degrees, double lat0Degrees) const {
    if (!srs) return {};
    const double perUnit = srs->GetAngularUnits();  // radians
    OGRErr aErr = OGRERR_NONE, fErr = OGRERR_NONE;
    const double a = srs->GetSemiMajor(&aErr), invF = srs->GetInvFlattening(&fErr);
    if (aErr != OGRERR_NONE || fErr != OGRERR_NONE || !(a > 0.0) || !(perUnit > 0.0) || !std::isfinite(invF)) return {};
    char text[512];
    // PROJ's own degree when the unit is the degree, so that the numbers are
    // those of the operation it would have found.
    const bool degrees = std::fabs(perUnit - std::numbers::pi / 180.0) < 1e-15;
    const std::string unit = degrees ? std::string("deg") : Number(perUnit);
    std::snprintf(text, sizeof text,
                  "+proj=pipeline +step +proj=unitconvert +xy_in=%s +xy_out=rad +step +proj=aeqd +lat_0=%s "
                  "+lon_0=%s +x_0=0 +y_0=0 +a=%s %s",
                  unit.c_str(), Number(lat0Degrees).c_str(), Number(lon0Degrees).c_str(), Number(a).c_str(),
                  invF == 0.0 ? ("+b=" + Number(a)).c_str() : ("+rf=" + Number(invF)).c_str());
    return text;
  }
  static std::string Number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", v);
    return text;
  }

  // Between the system's coordinates and the azimuthal equidistant plane
  // centred at (lon0, lat0) in degrees, forward or inverse, in place.
  bool TransformAeqd(double lon0Degrees, double lat0Degrees, bool inverse, LumaPoint2D* points,
                     std::size_t count) const;
  // The same about a centre in the system's own units; a geographic system only.
  bool TransformAbout(const LumaPoint2D& centre, bool inverse, LumaPoint2D* points, std::size_t count) const;
};

ZoPrjCoordSys::ZoPrjCoordSys() : m_impl(std::make_unique<Impl>()) {}

ZoPrjCoordSys::ZoPrjCoordSys(const ZoPrjCoordSys& other) : m_impl(std::make_unique<Impl>()) { *this = other; }

ZoPrjCoordSys& ZoPrjCoordSys::operator=(const ZoPrjCoordSys& other) {
  if (this == &other) return *this;
  m_impl->srs.reset(other.m_impl->srs ? other.m_impl->srs->Clone() : nullptr);
  if (m_impl->srs) m_impl->srs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  m_impl->hasExtent = other.m_impl->hasExtent;
  m_impl->minX = other.m_impl->minX;
  m_impl->minY = other.m_impl->minY;
  m_impl->maxX = other.m_impl->maxX;
  m_impl->maxY = other.m_impl->maxY;
  return *this;
}

ZoPrjCoordSys::~ZoPrjCoordSys() = default;

bool ZoPrjCoordSys::SetFromUserInput(const LumaUnicodeString& definition) {
  try {
    if (definition.Trimmed().IsEmpty()) return false;
    detail::QuietErrors quiet;
    OGRSpatialReference srs;
    // No file or network look-ups: only definitions PROJ can read as given.
    if (srs.SetFromUserInput(definition.c_str(), OGRSpatialReference::SET_FROM_USER_INPUT_LIMITATIONS_get()) !=
        OGRERR_NONE)
      return false;
    detail::PrjAccess::Set(*this, &srs);
    return true;
  } catch (...) {
    return false;
  }
}

void detail::PrjAccess::Set(ZoPrjCoordSys& cs, const OGRSpatialReference* srs) {
  if (!srs || IsUndefinedSrs(*srs)) {
    cs.m_impl->srs.reset();
    return;
  }
  cs.m_impl->srs.reset(srs->Clone());
  cs.m_impl->srs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
}

const OGRSpatialReference* detail::PrjAccess::Get(const ZoPrjCoordSys& cs) { return cs.m_impl->srs.get(); }

double ZoPrjCoordSys::GetLinearUnits() const {
  if (GetTypeID() != Projected || !m_impl->srs) return 0.0;
  const double perUnit = m_impl->srs->GetLinearUnits();
  return perUnit > 0 ? perUnit : 0.0;
}

int ZoPrjCoordSys::GetTypeID() const {
  const OGRSpatialReference* srs = m_impl->srs.get();
  if (!srs) return Planar;
  if (srs->IsProjected()) return Projected;
  if (srs->IsGeographic()) return Geographic;
  return Planar;
}

bool ZoPrjCoordSys::IsUndefined() const { return !m_impl->srs; }

LumaUnicodeString ZoPrjCoordSys::GetName() const {
  if (!m_impl->srs) return {};
  const char* name = m_impl->srs->GetName();
  return name ? name : "";
}

LumaUnicodeString ZoPrjCoordSys::GetWKT() const {
  if (!m_impl->srs) return {};
  char* wkt = nullptr;
  const char* const options[] = {"FORMAT=WKT2_2019", nullptr};
  if (m_impl->srs->exportToWkt(&wkt, options) != OGRERR_NONE) {
    CPLFree(wkt);
    return {};
  }
  LumaUnicodeString text(wkt ? wkt : "");
  CPLFree(wkt);
  return text;
}

double ZoPrjCoordSys::GetSemiMajorAxis() const {
  if (!m_impl->srs) return kWgs84A;
  OGRErr err = OGRERR_NONE;
  const double a = m_impl->srs->GetSemiMajor(&err);
  return (err == OGRERR_NONE && a > 0.0) ? a : kWgs84A;
}

double ZoPrjCoordSys::GetFlattening() const {
  if (!m_impl->srs) return 1.0 / kWgs84InvF;
  OGRErr err = OGRERR_NONE;
  const double inv = m_impl->srs->GetInvFlattening(&err);
  if (err != OGRERR_NONE) return 1.0 / kWgs84InvF;
  return inv == 0.0 ? 0.0 : 1.0 / inv;  // an inverse flattening of 0 marks a sphere
}

bool ZoPrjCoordSys::IsSame(const ZoPrjCoordSys& other) const {
  const OGRSpatialReference* a = m_impl->srs.get();
  const OGRSpatialReference* b = other.m_impl->srs.get();
  if (!a || !b) return !a && !b;
  detail::QuietErrors quiet;
  return a->IsSame(b) != FALSE;
}

void ZoPrjCoordSys::SetExtent(double minX, double minY, double maxX, double maxY) {
  if (!(std::isfinite(minX) && std::isfinite(minY) && std::isfinite(maxX) && std::isfinite(maxY))) return;
  m_impl->hasExtent = true;
  m_impl->minX = std::min(minX, maxX);
  m_impl->maxX = std::max(minX, maxX);
  m_impl->minY = std::min(minY, maxY);
  m_impl->maxY = std::max(minY, maxY);
}

namespace {

// Degrees per unit of a geographic system's angles; 0 when unusable.
double DegreesPerUnit(const OGRSpatialReference& srs) {
  const double toDegrees = srs.GetAngularUnits() / (std::numbers::pi / 180.0);
  return toDegrees > 0.0 && std::isfinite(toDegrees) ? toDegrees : 0.0;
}

}  // namespace

bool ZoPrjCoordSys::Forward(LumaPoint2D* points, std::size_t count) const {
  try {
    if (GetTypeID() != Geographic || count == 0) return true;
    if (!points) return false;
    // Centre coordinates are in the system's angular unit; the projection wants degrees.
    const double toDegrees = DegreesPerUnit(*m_impl->srs);
    if (toDegrees == 0.0) return false;
    double lon0 = 0.0, lat0 = 0.0;
    if (m_impl->hasExtent) {
      lon0 = 0.5 * (m_impl->minX + m_impl->maxX);
      lat0 = 0.5 * (m_impl->minY + m_impl->maxY);
    } else {
      double x0 = std::numeric_limits<double>::infinity(), x1 = -x0, y0 = x0, y1 = -x0;
      for (std::size_t i = 0; i < count; ++i) {
        if (!std::isfinite(points[i].x) || !std::isfinite(points[i].y)) return false;
        x0 = std::min(x0, points[i].x);
        x1 = std::max(x1, points[i].x);
        y0 = std::min(y0, points[i].y);
        y1 = std::max(y1, points[i].y);
      }
      lon0 = 0.5 * (x0 + x1);
      lat0 = 0.5 * (y0 + y1);
    }
    double straddling = 0.0;
    if (StraddlingCentre(points, count, 360.0 / toDegrees, straddling)) lon0 = straddling;
    return m_impl->TransformAeqd(lon0 * toDegrees, lat0 * toDegrees, false, points, count);
  } catch (...) {
    return false;
  }
}

bool ZoPrjCoordSys::SphericalCentre(const LumaArray<LumaPoint2D>& points, LumaPoint2D& centre) const {
  if (GetTypeID() != Geographic || points.empty()) return false;
  const double toDegrees = DegreesPerUnit(*m_impl->srs);
  if (toDegrees == 0.0) return false;
  const double toRadians = toDegrees * std::numbers::pi / 180.0;
  // Summed in point order; the length of the sum only decides whether a
  // direction exists, so its scale does not matter.
  double sx = 0.0, sy = 0.0, sz = 0.0;
  for (const LumaPoint2D& p : points) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) return false;
    const double lon = p.x * toRadians, lat = p.y * toRadians;
    sx += std::cos(lat) * std::cos(lon);
    sy += std::cos(lat) * std::sin(lon);
    sz += std::sin(lat);
  }
  // Points whose vectors cancel to within rounding have no centre: the
  // direction of what is left would be noise.
  const double length = std::sqrt(sx * sx + sy * sy + sz * sz);
  if (!(length > 1e-9 * static_cast<double>(points.size()))) return false;
  centre = {std::atan2(sy, sx) / toRadians, std::atan2(sz, std::hypot(sx, sy)) / toRadians};
  return true;
}

bool ZoPrjCoordSys::ForwardAbout(const LumaPoint2D& centre, LumaPoint2D* points, std::size_t count) const {
  return GetTypeID() != Geographic || m_impl->TransformAbout(centre, false, points, count);
}

bool ZoPrjCoordSys::InverseAbout(const LumaPoint2D& centre, LumaPoint2D* points, std::size_t count) const {
  return GetTypeID() != Geographic || m_impl->TransformAbout(centre, true, points, count);
}

bool ZoPrjCoordSys::Impl::TransformAbout(const LumaPoint2D& centre, bool inverse, LumaPoint2D* points,
                                         std::size_t count) const {
  try {
    if (count == 0) return true;
    const double toDegrees = DegreesPerUnit(*srs);
    if (!points || toDegrees == 0.0) return false;
    return TransformAeqd(centre.x * toDegrees, centre.y * toDegrees, inverse, points, count);
  } catch (...) {
    return false;
  }
}

bool ZoPrjCoordSys::Impl::TransformAeqd(double lon0Degrees, double lat0Degrees, bool inverse, LumaPoint2D* points,
                                        std::size_t count) const {
  detail::QuietErrors quiet;
  std::unique_ptr<OGRCoordinateTransformation, TransformDelete> ct;
  if (const std::string pipeline = AeqdPipeline(lon0Degrees, lat0Degrees); !pipeline.empty()) {
    // The operation is known: naming it spares PROJ the search of its
    // database for one, which costs about a millisecond per centre (one
    // projection per case group).
    OGRCoordinateTransformationOptions options;
    if (options.SetCoordinateOperation(pipeline.c_str(), inverse))
      ct.reset(OGRCreateCoordinateTransformation(nullptr, nullptr, options));
  } else {
    detail::SrsPtr target = MakeAeqd(lon0Degrees, lat0Degrees);
    if (!target) return false;
    ct.reset(inverse ? OGRCreateCoordinateTransformation(target.get(), srs.get())
                     : OGRCreateCoordinateTransformation(srs.get(), target.get()));
  }
  if (!ct) return false;
  constexpr std::size_t kChunk = 65536;
  std::vector<double> x, y;
  std::vector<int> ok;
  for (std::size_t start = 0; start < count; start += kChunk) {
    const std::size_t n = std::min(kChunk, count - start);
    x.resize(n);
    y.resize(n);
    ok.assign(n, FALSE);
    for (std::size_t i = 0; i < n; ++i) {
      x[i] = points[start + i].x;
      y[i] = points[start + i].y;
    }
    if (!ct->Transform(n, x.data(), y.data(), nullptr, ok.data())) return false;
    for (std::size_t i = 0; i < n; ++i) {
      if (!ok[i] || !std::isfinite(x[i]) || !std::isfinite(y[i])) return false;
      points[start + i] = {x[i], y[i]};
    }
  }
  return true;
}

void ZoPrjCoordSys::UnwrapLongitudes(LumaArray<LumaPoint2D>& points) const {
  if (GetTypeID() != Geographic || points.empty()) return;
  const double toDegrees = DegreesPerUnit(*m_impl->srs);
  if (toDegrees == 0.0) return;
  const double turn = 360.0 / toDegrees, half = turn / 2;
  double centre = 0.0;
  if (!StraddlingCentre(points.data(), points.size(), turn, centre)) return;
  for (LumaPoint2D& p : points) {
    while (p.x < centre - half) p.x += turn;
    while (p.x >= centre + half) p.x -= turn;
  }
}

LumaUnicodeString ZoPrjCoordSys::ForwardDefinition(double lon0, double lat0) const {
  try {
    detail::QuietErrors quiet;
    detail::SrsPtr target = m_impl->MakeAeqd(lon0, lat0);
    if (!target) return {};
    char* proj = nullptr;
    if (target->exportToProj4(&proj) != OGRERR_NONE) {
      CPLFree(proj);
      return {};
    }
    LumaUnicodeString text(proj ? proj : "");
    CPLFree(proj);
    return text;
  } catch (...) {
    return {};
  }
}

}  // namespace ZOC
