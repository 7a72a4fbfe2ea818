// DBSCAN: the automatic search distance and the host's point aggregation.
#include <algorithm>
#include <memory>

#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoAggregation.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::clustering {

Status DensityRun::AutomaticDistance(const LumaArray<LumaPoint2D>& points, int minPoints, double& distance) {
  LumaArray<LUMA::LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTreec> tree;
  if (!detail::spatial::BuildTree(buffer, points, tree)) return Status::Fail(msg::ESa032);
  // The batch search counts the point itself among its k nearest, so k =
  // minPoints reaches the (minPoints − 1)-th nearest other point.
  LumaArray<double> distances;
  const int k = std::max(minPoints, 1);
  const Status status = KthDistances(tree.get(), points, k, distances, m_bar);
  if (!status) return Status::Fail(IsCancelled(status) ? msg::IMb030 : msg::ESa024);
  distance = percentile(distances, 50.0);
  if (distance > -1e-10 && distance < 1e-10) {
    // More than half of the points coincide with their neighbours: take the
    // second smallest distinct distance, or a token distance when there is none.
    std::sort(distances.begin(), distances.end());
    distances.erase(std::unique(distances.begin(), distances.end()), distances.end());
    distance = distances.size() >= 2 ? distances[1] : 0.0001;
  }
  return Status::Ok();
}

Status DensityRun::DBSCAN_Method(ZoRecordset* records, ZoDatasetVector* result, int minPoints, double distance,
                                 int unit) {
  if (!records) return Status::Fail(msg::EEg024);
  if (minPoints < 1) return Status::Fail(msg::EUe001);
  LumaArray<LumaPoint2D> points;
  if (Status read = ReadPoints(records, points); !read) return read;
  if (distance <= 0) {
    // The automatic distance is measured between the points themselves, so it
    // is in their unit whatever the record's unit says.
    if (Status found = AutomaticDistance(points, minPoints, distance); !found) return found;
  } else {
    distance = InPointUnits(records, distance, unit);
  }
  if (m_bar) {
    m_bar->SetBothPosRange(10, 80);
    m_bar->SetMessage(ZoStringEx::Format(ZoStringEx::LoadResString(msg::IMb391), 2, 3));
  }
  LumaArray<std::int32_t> ids;
  const int aggregated = ZoAggregation::AggregatePoints(points, distance, minPoints, ids, m_bar);
  if (aggregated == -1) return Cancelled();
  if (aggregated != 1) return Unexplained();

  Column cluster{"Cluster_ID", LUMA::FieldInt32, std::vector<double>(ids.size())};
  std::int32_t clusters = 0;
  for (std::size_t i = 0; i < ids.size(); ++i) {
    cluster.values[i] = ids[i] != 0 ? ids[i] : -1;
    clusters = std::max(clusters, ids[i]);
    if (ids[i] == 0) ++m_summary.Noise;
  }
  m_summary.Clusters = clusters;
  m_summary.Distance = distance;
  std::vector<Column> columns;
  columns.push_back(std::move(cluster));
  return WriteResult(records, result, columns);
}

}  // namespace ZOC::detail::clustering
