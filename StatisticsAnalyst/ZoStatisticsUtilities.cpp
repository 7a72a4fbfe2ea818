#include "StatisticsAnalyst/ZoStatisticsUtilities.h"

#include <memory>
#include <new>
#include <vector>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/probability/Distributions.h"
#include "StatisticsAnalyst/detail/spatial/Centre.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "StatisticsAnalyst/detail/weights/ContiguityGrid.h"
#include "StatisticsAnalyst/detail/weights/MatrixWeights.h"
#include "host/ZoMessageIds.h"

// Every member is an adapter over the private toolkit: it checks what the
// public contract checks, runs the step and turns its status into this
// object's message.
namespace ZOC {

namespace spatial = detail::spatial;
namespace weights = detail::weights;
namespace probability = detail::probability;

// ---------------------------------------------------------------- distances

double ZoStatisticsUtilities::EuclideanDistance(const LumaPoint2D& a, const LumaPoint2D& b) {
  return spatial::EuclideanDistance(a, b);
}

double ZoStatisticsUtilities::ManhattanDistance(const LumaPoint2D& a, const LumaPoint2D& b) {
  return spatial::ManhattanDistance(a, b);
}

bool ZoStatisticsUtilities::CalculateDistance(const LumaArray<LumaPoint2D>& points, const LumaPoint2D& point,
                                              const ZoDistanceMethod& method, LumaArray<double>& distances) {
  if (points.empty()) return false;
  // Static: no message to carry a failure, so running out of memory is a false return.
  try {
    spatial::DistancesTo(points, point, method, distances);
  } catch (...) {
    return false;
  }
  return true;
}

ZoDistanceMethod ZoStatisticsUtilities::ValidateDistanceMethod(const ZoDistanceMethod& method,
                                                               const ZoPrjCoordSys& cs) {
  return spatial::EffectiveMethod(method, cs);
}

// ------------------------------------------------------------ feature points

bool ZoStatisticsUtilities::GetBaryCenter(const ZoGeometry* geometry, LumaPoint2D& point) {
  return geometry && geometry->GetBaryCenter(point);
}

bool ZoStatisticsUtilities::PickUpBaryCenters(ZoRecordset* records, LumaArray<LumaPoint2D>& points) {
  points.clear();
  if (!records || records->GetRecordCount() < 0) return false;
  return Guard([&] {
    // A feature without a usable geometry is named in this object's message.
    if (!Report(detail::ReadFeaturePoints(records, points))) return false;
    return static_cast<std::int64_t>(points.size()) == records->GetRecordCount();
  });
}

bool ZoStatisticsUtilities::GetMeanCenter(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights,
                                          LumaPoint2D& centre) {
  return Guard([&] {
    ClearErrorMessage();
    return Report(spatial::MeanCentre(points, weights, centre));
  });
}

bool ZoStatisticsUtilities::Forward(LumaArray<LumaPoint2D>& points, const ZoPrjCoordSys& cs) {
  return cs.Forward(points);
}

// -------------------------------------------------------- polygon contiguity

bool ZoStatisticsUtilities::BuildContiguityGird(ZoRecordset* records, ZoContiguityGrid& grid) {
  return Guard([&] { return Report(grid.Build(records)); });
}

void ZoStatisticsUtilities::GetContiguityIDs(const ZoContiguityGrid& grid, std::int64_t i, bool edgesOnly,
                                             LumaArray<std::int64_t>& ids) {
  // Static: no message to carry a failure, so running out of memory adds nothing.
  try {
    std::vector<int> found;
    grid.GetContiguityIDs(static_cast<std::size_t>(i), edgesOnly, found);
    ids.insert(ids.end(), found.begin(), found.end());
  } catch (...) {
  }
}

// -------------------------------------------------------- neighbour search

template <class Tree>
Tree* ZoStatisticsUtilities::CreateTree(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points) {
  if (!buffer) {
    AddErrorMessage(msg::EEh015);
    return nullptr;
  }
  std::unique_ptr<Tree> tree;
  Report(spatial::BuildTree(*buffer, points, tree));
  return tree.release();
}

ZoKdTree* ZoStatisticsUtilities::CreateKDTree(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points) {
  return Guard([&] { return CreateTree<ZoKdTree>(buffer, points); });
}

ZoKdTreec* ZoStatisticsUtilities::CreateKDTreec(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points) {
  return Guard([&] { return CreateTree<ZoKdTreec>(buffer, points); });
}

bool ZoStatisticsUtilities::GetDistTolerance(ZoKdTree* tree, const LumaPoint2D& point, const int& k, double& distance,
                                             const ZoDistanceMethod& method) {
  return Guard([&]() -> bool {
    if (!tree) {
      AddErrorMessage(msg::ESa038);
      return false;
    }
    return spatial::KthNeighbourDistance(*tree, point, k, method, distance);
  });
}

bool ZoStatisticsUtilities::GetDistTolerance(ZoKdTreec* tree, const LumaArray<LumaPoint2D>& points, const int& k,
                                             LumaArray<double>& distances, const ZoDistanceMethod& method) {
  return Guard([&]() -> bool {
    if (!tree) {
      AddErrorMessage(msg::ESa038);
      return false;
    }
    return spatial::KNearestReach(*tree, points, k, method, distances);
  });
}

double ZoStatisticsUtilities::GetDistTolerance(const LumaArray<LumaPoint2D>& points, const double& tolerance,
                                               const ZoDistanceMethod& method) {
  return Guard([&] {
    double band = 0.0;
    Report(spatial::DistanceBand(points, tolerance, method, band));
    return band;
  });
}

double ZoStatisticsUtilities::CalculateTolerance(ZoKdTree* tree, const LumaArray<LumaPoint2D>& points,
                                                 const double& tolerance, const ZoDistanceMethod& method) {
  return Guard([&] {
    double band = 0.0;
    Report(spatial::DistanceBand(tree, points, tolerance, method, band));
    return band;
  });
}

// ------------------------------------------------------------ weights

int ZoStatisticsUtilities::FindWeightIndex(const LumaArray<WeightMatrixUnit>& units, int key) {
  return weights::FindUnit(units, key);
}

void ZoStatisticsUtilities::GetWeightMatrixRow(const LumaArray<WeightMatrixUnit>& units, int row, int n,
                                               LumaArray<double>& out) {
  // Static: no message to carry a failure, so running out of memory leaves the row empty.
  try {
    weights::DenseRow(units, row, n, out);
  } catch (...) {
    out.clear();
  }
}

bool ZoStatisticsUtilities::CheckWeightsRequest(ZoRecordset* records, const ZoPatternsInformation& info) {
  if (!records) {
    AddErrorMessage(msg::EEg024);
    return false;
  }
  if (!CheckParameterValid(records, info)) return false;
  // Weights files are read by the analyses themselves: conceptualization 8
  // and unknown values fail without a message.
  if (info.Conceptualization < InverseDistance || info.Conceptualization > KNearestNeighbors) return false;
  return Report(weights::CheckListRequest(records, info));
}

bool ZoStatisticsUtilities::GetSpatialWeight(ZoRecordset* records, const ZoPatternsInformation& info,
                                             LumaArray<WeightMatrixUnit>& units, bool showProgress) {
  return Guard([&] {
    if (!CheckWeightsRequest(records, info)) return false;
    return Report(weights::BuildWeightList(records, info, m_progress, showProgress, units));
  });
}

// ------------------------------------------------------------ probability

double ZoStatisticsUtilities::GetPvalue(const double& z) { return probability::NormalTwoSided(z); }
double ZoStatisticsUtilities::chiProb(double x, int df, int upper) { return probability::ChiSquareTail(x, df, upper); }
double ZoStatisticsUtilities::tProb(double t, int df, int tails, bool /*flag*/) {
  return probability::StudentTail(t, df, tails);
}
double ZoStatisticsUtilities::fProb(double F, int df1, int df2, int upper) {
  return probability::FTail(F, df1, df2, upper);
}
double ZoStatisticsUtilities::pnf(double x, double df1, double df2, double ncp, int lower_tail, int log_p) {
  return probability::NoncentralF(x, df1, df2, ncp, lower_tail, log_p);
}
double ZoStatisticsUtilities::qf(double p, double df1, double df2, int lower_tail, int log_p) {
  return probability::FQuantile(p, df1, df2, lower_tail, log_p);
}
double ZoStatisticsUtilities::qt(double p, double df, int lower_tail, int log_p) {
  return probability::TQuantile(p, df, lower_tail, log_p);
}
int ZoStatisticsUtilities::round(double x) { return probability::RoundHalfAway(x); }

}  // namespace ZOC
