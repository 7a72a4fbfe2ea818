#include "StatisticsAnalyst/detail/global/NearestNeighbour.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/global/MinimumAreaRectangle.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoMessageIds.h"
#include "host/ZoOpPoints.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::global {

namespace {

// About 2 m expressed in degrees of latitude, the default width of a
// degenerate study rectangle on geographic data.
constexpr double kDefaultGeographicWidth = 1.7966305682435e-05;
constexpr double kDefaultPlanarWidth = 2.0;

// The rectangle of degenerate layouts: two features, all at one place, or
// collinear (the hull is then a closed ring over the two extremes).
Rectangle DegenerateRectangle(const LumaArray<LumaPoint2D>& c, const LumaArray<LumaPoint2D>& hull, double width) {
  Rectangle r;
  r.width = width;
  if (c.size() == 2) {
    r.centre = {(c[0].x + c[1].x) / 2, (c[0].y + c[1].y) / 2};
    r.length = ZoOpPoints::Distance(c[0], c[1]);
    r.u = r.length > 0 ? LumaPoint2D{(c[1].x - c[0].x) / r.length, (c[1].y - c[0].y) / r.length} : LumaPoint2D{1, 0};
  } else if (hull.size() == 1) {
    // Every centroid at one location: a width × width square.
    r.centre = hull[0];
    r.u = {1, 0};
    r.length = width;
  } else {
    // The direction is taken from the first two input centroids on purpose;
    // when those coincide there is no direction, the rectangle has no extent
    // and the statistic fails.
    r.centre = {(hull[0].x + hull[1].x) / 2, (hull[0].y + hull[1].y) / 2};
    r.length = ZoOpPoints::Distance(hull[0], hull[1]);
    const double step = ZoOpPoints::Distance(c[0], c[1]);
    r.u = step > 0 ? LumaPoint2D{(c[1].x - c[0].x) / step, (c[1].y - c[0].y) / step} : LumaPoint2D{0, 0};
  }
  return r;
}

// The study area when the caller gave none: the minimum-area rectangle of
// the centroids, its area measured by the host (planar, or the surface area
// on the ellipsoid for geographic data).
Status StudyArea(const LumaArray<LumaPoint2D>& c, const ZoPrjCoordSys& cs, double width, double& area) {
  Rectangle r;
  LumaArray<LumaPoint2D> hull;
  if (c.size() == 2) {
    r = DegenerateRectangle(c, hull, width);
  } else {
    if (!ZoOpPoints::Flange(c, hull)) return Status::Fail(msg::ESa053);
    if (hull.size() == 1 || hull.size() == 3) {
      r = DegenerateRectangle(c, hull, width);
    } else if (!MinimumAreaRectangle(hull, r)) {
      return Status::Fail(msg::ESa053);
    }
  }
  r.v = {-r.u.y, r.u.x};
  const double hl = r.length / 2, hw = r.width / 2;
  const LumaPoint2D& o = r.centre;
  LumaArray<LumaPoint2D> corners = {
      {o.x + hl * r.u.x + hw * r.v.x, o.y + hl * r.u.y + hw * r.v.y},
      {o.x + hl * r.u.x - hw * r.v.x, o.y + hl * r.u.y - hw * r.v.y},
      {o.x - hl * r.u.x - hw * r.v.x, o.y - hl * r.u.y - hw * r.v.y},
      {o.x - hl * r.u.x + hw * r.v.x, o.y - hl * r.u.y + hw * r.v.y},
  };
  area = ZoGeometry::MakeRegion(corners, {4}).GetArea(&cs);
  return Status::Ok();
}

// Each feature's nearest-neighbour distance, stored under the feature.
// Queries run in spatial order for speed; the sum is taken in feature order
// afterwards, so the result does not depend on it. Geographic data measures
// the chord on the ellipsoid between the original positions.
Status NearestDistances(const LumaArray<LumaPoint2D>& centroids, const ZoPrjCoordSys& cs, ZoDistanceMethod method,
                        detail::CallProgress& progress, std::vector<double>& nearest) {
  LumaArray<LumaPoint2D> projected = centroids;
  if (!cs.Forward(projected)) return Status::Fail(msg::ESa060);
  const bool geographic = cs.GetTypeID() == ZoPrjCoordSys::Geographic;
  const double a = geographic ? cs.GetSemiMajorAxis() : 0.0;
  const double f = geographic ? cs.GetFlattening() : 0.0;
  LumaArray<LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status built = spatial::BuildTree(buffer, projected, tree); !built) return built;

  LumaUnicodeString format;
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb359));
    format = ZoStringEx::LoadResString(msg::IMb360);
  }
  // The tree answers its own points a leaf at a time, in chunks between
  // progress steps; each answer holds the point itself and its nearest (a
  // coincident point with a lower QlID may come first).
  const std::size_t count = centroids.size();
  std::vector<std::int64_t> order;
  if (!tree->GetSpatialOrder(order)) return Status::Fail(msg::ESa032);
  nearest.assign(count, 0.0);
  bool found = true;
  const auto take = [&](std::size_t position, const std::size_t* hits, const double* distances, std::size_t n) {
    const auto i = static_cast<std::size_t>(order[position]);
    if (n < 2) return void(found = false);
    const std::size_t h = hits[0] == i ? 1 : 0;
    nearest[i] =
        geographic ? ZoOpPoints::GetSpheroidChordalDistance(centroids[i], centroids[hits[h]], a, f) : distances[h];
  };
  // About a hundredth of the points a chunk, so that progress moves by the
  // percent and cancellation is seen, and at most 4096.
  const std::size_t chunk = std::clamp<std::size_t>(count / 100, 1, 4096);
  for (std::size_t first = 0; first < count; first += chunk) {
    const std::size_t end = std::min(count, first + chunk);
    if (!progress.Step(format, static_cast<long long>(end - 1), static_cast<long long>(count)))
      return Status::Fail(msg::IMb030);
    if (!tree->SearchSpatialRange(first, end, 2, method, take) || !found) return Status::Fail(msg::ESa032);
  }
  return Status::Ok();
}

}  // namespace

Status AverageNearestNeighbour(ZoDatasetVector* dataset, const NearestNeighbourInput& input,
                               detail::CallProgress& progress, ZoAnalyzingExponent& result) {
  if (!(input.area >= 0.0)) return Status::Fail(msg::ESa051);
  LumaArray<LumaPoint2D> centroids;
  {
    ZoRecordsetPtr records;
    if (Status s = QueryOrderedBy(dataset, kSystemIdField, records); !s) return s;
    if (records->GetRecordCount() < 2) return Status::Fail(msg::ESa013);
    Status status = ReadFeaturePoints(records.get(), centroids);
    if (!status) return status.Then(msg::ESa008);
  }
  const double n = static_cast<double>(centroids.size());
  const ZoPrjCoordSys& cs = dataset->GetPrjCoordSys();
  const bool geographic = cs.GetTypeID() == ZoPrjCoordSys::Geographic;
  double area = input.area;
  if (area == 0.0) {
    double width = input.width;
    if (input.useDefaultWidth) width = geographic ? kDefaultGeographicWidth : kDefaultPlanarWidth;
    // Points across the antimeridian: the rectangle is drawn around the
    // unwrapped longitudes, never round the far side of the earth.
    LumaArray<LumaPoint2D> unwrapped = centroids;
    cs.UnwrapLongitudes(unwrapped);
    if (Status status = StudyArea(unwrapped, cs, width, area); !status) return status;
  }
  std::vector<double> nearest;
  const ZoDistanceMethod method = spatial::EffectiveMethod(input.method, cs);
  if (Status status = NearestDistances(centroids, cs, method, progress, nearest); !status) return status;
  double sum = 0.0;
  for (double d : nearest) sum += d;
  const double observed = sum / n;
  const double expected = 0.5 / std::sqrt(n / area);
  const double standardError = 0.26136 / std::sqrt(n * n / area);
  if (!(standardError > 0.0) || !(expected > 0.0)) return Status::Fail(msg::ESa052);
  const double z = (observed - expected) / standardError;
  result.Index = observed / expected;
  result.ExpectedIndex = expected;
  result.Variance = observed;
  result.ZScore = z;
  result.PValue = ClampedPvalue(z);
  return Status::Ok();
}

}  // namespace ZOC::detail::global
