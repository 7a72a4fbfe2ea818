#include "StatisticsAnalyst/detail/partition/Scan.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/partition/Part.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoGeometry.h"
#include "host/ZoKdTree.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::partition {

namespace {

// How far `p` lies inside the halo box: a neighbour nearer than this (in
// any of the metrics, all at least the largest coordinate difference) is
// inside the box, hence in the dataset.
double Margin(const ZoPartition& part, const LumaPoint2D& p) {
  return std::min({p.x - part.HaloMinX, part.HaloMaxX - p.x, p.y - part.HaloMinY, part.HaloMaxY - p.y});
}

// The own features' nearest (or k-th nearest) distances and default band.
Status Reach(const LumaArray<LumaPoint2D>& points, const std::vector<char>& own, const ZoPatternsInformation& info,
             ZoPartitionScan& scan) {
  const int k = info.Conceptualization == KNearestNeighbors ? info.KNeighbors : 1;
  if (points.size() <= static_cast<std::size_t>(k)) {  // too few features to hold anyone's k nearest
    for (char o : own) scan.Uncertain += o ? 1 : 0;
    return Status::Ok();
  }
  LumaArray<LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree;
  if (Status built = spatial::BuildTree(buffer, points, tree); !built) return built;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!own[i]) continue;
    double d = 0.0;
    if (!spatial::KthNeighbourDistance(*tree, points[i], k, info.DistanceMethod, d)) return Status::Fail(msg::ESa032);
    scan.Reach = std::max(scan.Reach, d);
    if (!(d < Margin(info.Partition, points[i]))) ++scan.Uncertain;
  }
  std::vector<char> setAside(own.size());
  for (std::size_t i = 0; i < own.size(); ++i) setAside[i] = own[i] ? 0 : 1;
  if (!spatial::DefaultBand(*tree, points.size(), info.DistanceMethod, scan.DefaultBand, &setAside))
    return Status::Fail(msg::ESa032);
  return Status::Ok();
}

// The own features' extent: their geometries' bounds.
Status Extent(ZoRecordset* records, const std::vector<char>& own, ZoPartitionScan& scan) {
  ZoGeometry geometry;
  std::size_t i = 0;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext(), ++i) {
    if (i >= own.size()) return Status::Fail(msg::ESa111);
    if (!own[i]) continue;
    double x0, y0, x1, y1;
    if (!records->GetGeometry(geometry) || !geometry.GetBounds(x0, y0, x1, y1)) return Status::Fail(msg::EUc002);
    // fmin/fmax take the number over the NaN of an extent not yet started.
    scan.MinX = std::fmin(scan.MinX, x0), scan.MinY = std::fmin(scan.MinY, y0);
    scan.MaxX = std::fmax(scan.MaxX, x1), scan.MaxY = std::fmax(scan.MaxY, y1);
  }
  return Status::Ok();
}

}  // namespace

Status Scan(ZoRecordset* records, const ZoPatternsInformation& info, double centre, bool reach, ZoPartitionScan& scan) {
  scan = ZoPartitionScan{};
  const ZoPartition& part = info.Partition;
  if (!part.Active || !(part.MinX < part.MaxX) || !(part.MinY < part.MaxY) || !std::isfinite(centre))
    return Status::Fail(msg::ESa111);
  LumaArray<double> values, none;
  LumaArray<LumaPoint2D> points;
  Status pointsStatus;
  if (Status read = ReadFeatures(records, info.FieldName, false, values, {}, none, &points, pointsStatus); !read)
    return read;
  if (!pointsStatus) return pointsStatus;
  const std::vector<char> own = OwnFlags(part, points);

  PowerSums sums;
  for (std::size_t i = 0; i < values.size(); ++i)
    if (own[i]) sums.Add(values[i], centre), ++scan.Features;
  scan.Sum = sums.first.Partials();
  scan.Squares = sums.second.Partials();
  scan.Fourth = sums.fourth.Partials();
  if (scan.Features == 0 || !reach) return Status::Ok();

  const bool contiguity =
      info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners;
  if (!contiguity)
    if (Status reached = Reach(points, own, info, scan); !reached) return reached;
  if (records->GetDataset()->GetType() != DatasetPoint) return Extent(records, own, scan);
  for (std::size_t i = 0; i < points.size(); ++i) {  // points are their own extent
    if (!own[i]) continue;
    scan.MinX = std::fmin(scan.MinX, points[i].x), scan.MinY = std::fmin(scan.MinY, points[i].y);
    scan.MaxX = std::fmax(scan.MaxX, points[i].x), scan.MaxY = std::fmax(scan.MaxY, points[i].y);
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::partition
