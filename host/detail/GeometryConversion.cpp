#include "host/detail/GeometryConversion.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace ZOC::detail {

// ---------------------------------------------------------------------------
// Dataset types

int DatasetTypeFromOGR(OGRwkbGeometryType type) {
  switch (wkbFlatten(type)) {
    case wkbPoint:
    case wkbMultiPoint: return 1;
    case wkbLineString:
    case wkbMultiLineString:
    case wkbCircularString:
    case wkbCompoundCurve:
    case wkbMultiCurve:
    case wkbCurve: return 3;
    case wkbPolygon:
    case wkbMultiPolygon:
    case wkbCurvePolygon:
    case wkbMultiSurface:
    case wkbSurface:
    case wkbTriangle:
    case wkbTIN:
    case wkbPolyhedralSurface: return 5;
    default: return 0;  // none, unknown, collections
  }
}

OGRwkbGeometryType OGRTypeForDataset(int datasetType) {
  // Lines and regions are created as multi types so that every host geometry
  // (one part or many) is stored under the layer's declared type.
  switch (datasetType) {
    case 0: return wkbNone;
    case 1: return wkbPoint;
    case 3: return wkbMultiLineString;
    case 5: return wkbMultiPolygon;
    default: return wkbUnknown;
  }
}

// ---------------------------------------------------------------------------
// Geometry conversion

namespace {

void AppendCurve(const OGRSimpleCurve& curve, LumaArray<LumaPoint2D>& points, LumaArray<int>& counts, bool closeRing) {
  const int n = curve.getNumPoints();
  if (n <= 0) return;
  for (int i = 0; i < n; ++i) points.push_back({curve.getX(i), curve.getY(i)});
  int count = n;
  if (closeRing && (curve.getX(0) != curve.getX(n - 1) || curve.getY(0) != curve.getY(n - 1))) {
    points.push_back({curve.getX(0), curve.getY(0)});
    ++count;
  }
  counts.push_back(count);
}

// Adds a polygon's rings; returns the number of rings added (0 for an empty shell).
int AppendPolygon(const OGRPolygon& polygon, LumaArray<LumaPoint2D>& points, LumaArray<int>& counts) {
  const OGRLinearRing* shell = polygon.getExteriorRing();
  if (!shell || shell->getNumPoints() == 0) return 0;
  int rings = 0;
  AppendCurve(*shell, points, counts, true);
  ++rings;
  for (int i = 0; i < polygon.getNumInteriorRings(); ++i) {
    const OGRLinearRing* hole = polygon.getInteriorRing(i);
    if (!hole || hole->getNumPoints() == 0) continue;
    AppendCurve(*hole, points, counts, true);
    ++rings;
  }
  return rings;
}

ZoGeometry FromLinear(const OGRGeometry* g) {
  LumaArray<LumaPoint2D> points;
  LumaArray<int> counts;
  switch (wkbFlatten(g->getGeometryType())) {
    case wkbPoint: {
      const OGRPoint* p = g->toPoint();
      return ZoGeometry::MakePoint({p->getX(), p->getY()});
    }
    case wkbMultiPoint:
      // The host has no multipoint: a multipoint stands for its first point.
      for (const OGRPoint* p : *g->toMultiPoint())
        if (!p->IsEmpty()) return ZoGeometry::MakePoint({p->getX(), p->getY()});
      return {};
    case wkbLineString:
    case wkbLinearRing: AppendCurve(*g->toSimpleCurve(), points, counts, false); break;
    case wkbMultiLineString:
      for (const OGRLineString* line : *g->toMultiLineString()) AppendCurve(*line, points, counts, false);
      break;
    case wkbPolygon:
    case wkbTriangle: {
      const int rings = AppendPolygon(*static_cast<const OGRPolygon*>(g), points, counts);
      if (rings == 0) return {};
      return ZoGeometry::MakeRegion(std::move(points), std::move(counts), LumaArray<int>{rings});
    }
    case wkbMultiPolygon: {
      LumaArray<int> perPolygon;
      for (const OGRPolygon* poly : *g->toMultiPolygon()) {
        const int rings = AppendPolygon(*poly, points, counts);
        if (rings > 0) perPolygon.push_back(rings);
      }
      if (perPolygon.empty()) return {};
      return ZoGeometry::MakeRegion(std::move(points), std::move(counts), std::move(perPolygon));
    }
    case wkbTIN:
    case wkbPolyhedralSurface: {
      std::unique_ptr<OGRGeometry> multi(OGRGeometryFactory::forceToMultiPolygon(g->clone()));
      if (!multi || wkbFlatten(multi->getGeometryType()) != wkbMultiPolygon) return {};
      return FromLinear(multi.get());
    }
    default: return {};  // collections and other kinds
  }
  if (points.empty()) return {};
  return ZoGeometry::MakeLine(std::move(points), std::move(counts));
}

std::unique_ptr<OGRLinearRing> MakeRing(const LumaPoint2D* p, int n) {
  auto ring = std::make_unique<OGRLinearRing>();
  ring->setNumPoints(n, FALSE);
  for (int i = 0; i < n; ++i) ring->setPoint(i, p[i].x, p[i].y);
  ring->closeRings();
  return ring;
}

}  // namespace

ZoGeometry GeometryFromOGR(const OGRGeometry* geometry) {
  if (!geometry || geometry->IsEmpty()) return {};
  if (OGR_GT_IsNonLinear(geometry->getGeometryType())) {
    std::unique_ptr<OGRGeometry> linear(geometry->getLinearGeometry());
    if (!linear || linear->IsEmpty()) return {};
    return FromLinear(linear.get());
  }
  return FromLinear(geometry);
}

OGRGeometry* GeometryForLayer(const OGRGeometry& geometry, OGRwkbGeometryType layerType) {
  OGRGeometry* copy = geometry.clone();
  if (!copy || layerType == wkbUnknown || wkbFlatten(layerType) == wkbFlatten(copy->getGeometryType())) return copy;
  const OGRwkbGeometryType target =
      OGR_GT_SetModifier(wkbFlatten(layerType), copy->Is3D() ? TRUE : FALSE, copy->IsMeasured() ? TRUE : FALSE);
  return OGRGeometryFactory::forceTo(copy, target);
}

std::unique_ptr<OGRGeometry> GeometryToOGR(const ZoGeometry& geometry, OGRwkbGeometryType layerType) {
  if (geometry.IsEmpty()) return nullptr;
  const LumaArray<LumaPoint2D>& pts = geometry.GetPoints();
  LumaArray<int> parts = geometry.GetPolyCounts();
  if (parts.empty()) parts.push_back(static_cast<int>(pts.size()));
  std::size_t total = 0;
  for (int c : parts) {
    if (c < 0) return nullptr;
    total += static_cast<std::size_t>(c);
  }
  if (total != pts.size()) return nullptr;

  std::unique_ptr<OGRGeometry> result;
  switch (geometry.GetType()) {
    case GeoPoint: result = std::make_unique<OGRPoint>(pts[0].x, pts[0].y); break;
    case GeoLine: {
      auto multi = std::make_unique<OGRMultiLineString>();
      std::size_t at = 0;
      for (int c : parts) {
        auto line = std::make_unique<OGRLineString>();
        line->setNumPoints(c, FALSE);
        for (int i = 0; i < c; ++i) line->setPoint(i, pts[at + i].x, pts[at + i].y);
        at += static_cast<std::size_t>(c);
        if (c > 0) multi->addGeometryDirectly(line.release());
      }
      if (multi->getNumGeometries() == 1)
        result.reset(multi->getGeometryRef(0)->clone());
      else
        result = std::move(multi);
      break;
    }
    case GeoRegion:
    case GeoCircle:
    case GeoEllipse: {
      LumaArray<int> perPolygon = geometry.GetRingCounts();
      if (perPolygon.empty()) perPolygon.assign(parts.size(), 1);
      auto multi = std::make_unique<OGRMultiPolygon>();
      std::size_t ring = 0, at = 0;
      for (int rings : perPolygon) {
        auto poly = std::make_unique<OGRPolygon>();
        for (int r = 0; r < rings; ++r, ++ring) {
          if (ring >= parts.size()) return nullptr;
          const int c = parts[ring];
          if (c > 0) poly->addRingDirectly(MakeRing(pts.data() + at, c).release());
          at += static_cast<std::size_t>(c);
        }
        if (!poly->IsEmpty()) multi->addGeometryDirectly(poly.release());
      }
      if (multi->getNumGeometries() == 1)
        result.reset(multi->getGeometryRef(0)->clone());
      else
        result = std::move(multi);
      break;
    }
    default: return nullptr;
  }
  if (!result || result->IsEmpty()) return nullptr;

  // Shape the geometry for the layer: promote single parts to the layer's
  // multi type, and unwrap one-part multi geometries for single-type layers.
  // A multi-part geometry is never merged into a single one.
  const OGRwkbGeometryType want = wkbFlatten(layerType);
  const OGRwkbGeometryType have = wkbFlatten(result->getGeometryType());
  if ((want == wkbMultiPoint && have == wkbPoint) || (want == wkbMultiLineString && have == wkbLineString) ||
      (want == wkbMultiPolygon && have == wkbPolygon)) {
    result.reset(OGRGeometryFactory::forceTo(result.release(), want));
  } else if ((want == wkbLineString && have == wkbMultiLineString) || (want == wkbPolygon && have == wkbMultiPolygon)) {
    if (result->toGeometryCollection()->getNumGeometries() == 1)
      result.reset(OGRGeometryFactory::forceTo(result.release(), want));
  }
  if (result && wkbHasZ(layerType)) result->set3D(TRUE);
  return result;
}

}  // namespace ZOC::detail
