#pragma once
// ZoClusterInformation: the parameters of density-based clustering
// (ZoClusteringDistributions::DensityBasedClustering), and the summary that
// a successful call can report back.

namespace ZOC {

struct ZoClusterInformation {
  // 1 DBSCAN, 2 HDBSCAN, 3 OPTICS; any other value makes the call fail
  // without a message.
  int Method = 1;
  // DBSCAN's MinPts: a core point has at least this many points within the
  // search distance, itself included. HDBSCAN takes it as the neighbour count
  // of the core distance (the point itself included) and as the smallest
  // cluster size; OPTICS as its MinPts. Also the neighbour count of the
  // automatic search distance (its (MinPoints − 1)-th nearest other point).
  int MinPoints = 0;
  // DBSCAN's radius and OPTICS' largest radius. A value ≤ 0 asks DBSCAN for
  // the automatic distance and OPTICS for the largest distance from a point
  // to its MinPoints-th nearest point (itself included), so that every point
  // is a core point.
  double SearchDistance = 0.0;
  // The unit of SearchDistance as the unit's length in tenths of a
  // millimetre: 10000 metre, 10000000 kilometre, 3048 foot, 16093440 mile.
  // A value ≤ 0 means the dataset's own unit. Geographic data is measured in
  // metres after the forward projection; data without a coordinate system
  // has no known unit, and the distance is taken in its coordinates.
  int DistanceUnit = 10000;
  // OPTICS only: the steepness ξ of the cluster extraction, in percent
  // (5 means a 5% drop in reachability). Values outside 1..99 mean 5.
  int OpticsParameter = -1;
};

// What a successful call found, in the units the points were measured in
// (the dataset's units; metres for geographic data).
struct ZoClusterSummary {
  int Clusters = 0;
  long long Noise = 0;
  // The search distance used: DBSCAN's given or automatic radius, OPTICS'
  // largest radius, 0 for HDBSCAN.
  double Distance = 0.0;
};

}  // namespace ZOC
