#include "StatisticsAnalyst/ZoStatisticsUtilities.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <omp.h>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/weights/WeightsRowBuilder.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC {

namespace {

constexpr double kBandMargin = 1.0001;  // keeps the farthest isolated feature inside the default band
constexpr std::size_t kBucketSize = 30;

// Keys are i·n + j in 32 bits, so the in-memory matrix holds n·n < 2^31.
constexpr std::int64_t kMaxInMemoryFeatures = 46340;

bool IsZeroSum(double s) { return limits::IsZero(s); }

LumaPoint3D To3D(const LumaPoint2D& p) { return {p.x, p.y, 0.0}; }

}  // namespace

// ---------------------------------------------------------------- distances

double ZoStatisticsUtilities::EuclideanDistance(const LumaPoint2D& a, const LumaPoint2D& b) {
  const double dx = a.x - b.x, dy = a.y - b.y;
  return std::sqrt(dx * dx + dy * dy);
}

double ZoStatisticsUtilities::ManhattanDistance(const LumaPoint2D& a, const LumaPoint2D& b) {
  return std::fabs(a.x - b.x) + std::fabs(a.y - b.y);
}

bool ZoStatisticsUtilities::CalculateDistance(const LumaArray<LumaPoint2D>& points, const LumaPoint2D& point,
                                              const ZoDistanceMethod& method, LumaArray<double>& distances) {
  if (points.empty()) return false;
  // Static: no message to carry a failure, so running out of memory is a false return.
  try {
    distances.resize(points.size());
  } catch (...) {
    return false;
  }
  if (method == Euclidean) {
    for (std::size_t j = 0; j < points.size(); ++j) distances[j] = EuclideanDistance(points[j], point);
  } else {
    for (std::size_t j = 0; j < points.size(); ++j) distances[j] = ManhattanDistance(points[j], point);
  }
  return true;
}

ZoDistanceMethod ZoStatisticsUtilities::ValidateDistanceMethod(const ZoDistanceMethod& method,
                                                               const ZoPrjCoordSys& cs) {
  return cs.GetTypeID() == ZoPrjCoordSys::Geographic ? Euclidean : method;
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
  return Guard([&]() -> bool {
    ClearErrorMessage();
    if (points.empty() || weights.empty()) return true;
    if (points.size() != weights.size()) {
      AddErrorMessage(msg::ESa019);
      return false;
    }
    double sumW = 0.0, sumX = 0.0, sumY = 0.0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      sumW += weights[i];
      sumX += weights[i] * points[i].x;
      sumY += weights[i] * points[i].y;
    }
    if (sumW > -1e-20 && sumW < 1e-20) {
      AddErrorMessage(msg::ESa018);
      return false;
    }
    centre = LumaPoint2D{sumX / sumW, sumY / sumW};
    return true;
  });
}

bool ZoStatisticsUtilities::Forward(LumaArray<LumaPoint2D>& points, const ZoPrjCoordSys& cs) {
  return cs.Forward(points);
}

// -------------------------------------------------------- polygon contiguity

bool ZoStatisticsUtilities::BuildContiguityGird(ZoRecordset* records, ZoContiguityGrid& grid) {
  return Guard([&]() -> bool {
    if (!records) {
      AddErrorMessage(msg::EEg024);
      return false;
    }
    try {
      const std::int64_t n = records->GetRecordCount();
      std::vector<ZoGeometry> regions;
      regions.reserve(static_cast<std::size_t>(std::max<std::int64_t>(n, 0)));
      for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
        regions.emplace_back();
        if (!records->GetGeometry(regions.back()) || regions.back().IsEmpty()) {
          AppendErrorText(ZoStringEx::Format(ZoStringEx::LoadResString(msg::EUc002),
                                             {LumaUnicodeString(std::to_string(records->GetID()).c_str())}));
          AddErrorMessage(msg::ESa008);
          return false;
        }
      }
      const char* errorId = nullptr;
      if (!grid.Build(regions, static_cast<std::size_t>(n), &errorId)) {
        AddErrorMessage(errorId ? errorId : msg::EFd059);
        return false;
      }
    } catch (const std::bad_alloc&) {
      AddErrorMessage(msg::EBa003);
      return false;
    }
    return true;
  });
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

namespace {
// Fills the caller's buffer with (x, y, 0) per point and builds a tree of
// the given type over it; null when the build fails.
template <class Tree>
std::unique_ptr<Tree> BuildTree(LumaArray<LumaPoint3D>& buffer, const LumaArray<LumaPoint2D>& points) {
  try {
    buffer.resize(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) buffer[i] = To3D(points[i]);
    auto tree = std::make_unique<Tree>(buffer.data(), buffer.size());
    tree->SetMaxBucketSize(kBucketSize);
    if (tree->Build()) return tree;
  } catch (const std::bad_alloc&) {
  }
  return nullptr;
}
}  // namespace

template <class Tree>
Tree* ZoStatisticsUtilities::CreateTree(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points) {
  if (!buffer) {
    AddErrorMessage(msg::EEh015);
    return nullptr;
  }
  std::unique_ptr<Tree> tree = BuildTree<Tree>(*buffer, points);
  if (!tree) AddErrorMessage(msg::ESa032);
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
    if (k < 0) return false;
    // The point itself is in the tree and comes back at distance 0, hence k + 1.
    std::vector<std::size_t> indices;
    std::vector<double> distances;
    const std::size_t found =
        tree->SearchKdTree(To3D(point), static_cast<std::size_t>(k) + 1, indices, distances, method);
    if (found == 0) return false;
    distance = *std::max_element(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(found));
    return true;
  });
}

bool ZoStatisticsUtilities::GetDistTolerance(ZoKdTreec* tree, const LumaArray<LumaPoint2D>& points, const int& k,
                                             LumaArray<double>& distances, const ZoDistanceMethod& method) {
  return Guard([&]() -> bool {
    if (!tree) {
      AddErrorMessage(msg::ESa038);
      return false;
    }
    if (k < 1) return false;
    const std::size_t kk = static_cast<std::size_t>(k);
    const std::int64_t n = static_cast<std::int64_t>(points.size());
    distances.assign(points.size(), 0.0);

    // Each thread allocates its buffers once and registers them in a shared
    // list (the loop's one critical section); they are freed after the loop.
    std::vector<std::unique_ptr<std::vector<double>>> buffers;
    bool failed = false;
#pragma omp parallel
    {
      std::vector<double>* dist = nullptr;
      std::vector<std::size_t> idx;
      bool ok = true;
      try {
        auto owned = std::make_unique<std::vector<double>>(kk);
        idx.resize(kk);
        dist = owned.get();
#pragma omp critical(sa_dist_tolerance_buffers)
        buffers.push_back(std::move(owned));
      } catch (const std::bad_alloc&) {
        ok = false;
      }
#pragma omp for schedule(static)
      for (std::int64_t i = 0; i < n; ++i) {
        if (!ok) continue;
        const std::size_t found =
            tree->SearchKdTreec(To3D(points[static_cast<std::size_t>(i)]), kk, idx.data(), dist->data(), method);
        distances[static_cast<std::size_t>(i)] =
            found ? *std::max_element(dist->begin(), dist->begin() + static_cast<std::ptrdiff_t>(found)) : 0.0;
      }
      if (!ok) {
#pragma omp atomic write
        failed = true;
      }
    }
    return !failed;
  });
}

double ZoStatisticsUtilities::GetDistTolerance(const LumaArray<LumaPoint2D>& points, const double& tolerance,
                                               const ZoDistanceMethod& method) {
  return Guard([&] {
    if (points.empty()) {
      AddErrorMessage(msg::ESa007);
      return 0.0;
    }
    if (tolerance >= 0.0) return CalculateTolerance(nullptr, points, tolerance, method);
    LumaArray<LumaPoint3D> buffer;
    std::unique_ptr<ZoKdTree> tree(CreateKDTree(&buffer, points));
    if (!tree) return 0.0;
    return CalculateTolerance(tree.get(), points, tolerance, method);
  });
}

double ZoStatisticsUtilities::CalculateTolerance(ZoKdTree* tree, const LumaArray<LumaPoint2D>& points,
                                                 const double& tolerance, const ZoDistanceMethod& method) {
  return Guard([&] {
    if (points.empty()) {
      AddErrorMessage(msg::ESa007);
      return 0.0;
    }
    if (tolerance >= 0.0) return tolerance < limits::kZero ? std::numeric_limits<double>::max() : tolerance;
    // The largest of the nearest-neighbour distances does not depend on the
    // visiting order: the tree (built over `points`) answers its own points
    // a leaf at a time. Each answer holds the point itself and its nearest.
    double band = 0.0;
    const bool searched =
        tree && tree->SearchSpatialRange(0, points.size(), 2, method,
                                         [&](std::size_t, const std::size_t*, const double* distances, std::size_t n) {
                                           band = std::max(band, *std::max_element(distances, distances + n));
                                         });
    return searched ? band * kBandMargin : 0.0;
  });
}

// ------------------------------------------------------------ weights

int ZoStatisticsUtilities::FindWeightIndex(const LumaArray<WeightMatrixUnit>& units, int key) {
  std::int64_t low = 0, high = static_cast<std::int64_t>(units.size()) - 1;
  while (low <= high) {
    const std::int64_t mid = (low + high) / 2;
    const int k = units[static_cast<std::size_t>(mid)].Index;
    if (k == key) return static_cast<int>(mid);
    if (k < key)
      low = mid + 1;
    else
      high = mid - 1;
  }
  return -1;
}

void ZoStatisticsUtilities::GetWeightMatrixRow(const LumaArray<WeightMatrixUnit>& units, int row, int n,
                                               LumaArray<double>& out) {
  // Static: no message to carry a failure, so running out of memory leaves the row empty.
  try {
    out.assign(n > 0 ? static_cast<std::size_t>(n) : 0u, 0.0);
  } catch (...) {
    out.clear();
    return;
  }
  if (n <= 0 || row < 0 || row >= n) return;
  const std::int64_t first = static_cast<std::int64_t>(row) * n, end = first + n;
  auto it = std::lower_bound(units.begin(), units.end(), first,
                             [](const WeightMatrixUnit& u, std::int64_t key) { return u.Index < key; });
  for (; it != units.end() && it->Index < end; ++it) out[static_cast<std::size_t>(it->Index - first)] = it->Weight;
}

namespace {

// Rows arrive in order with ascending columns, so the units are already
// sorted by key. A row whose sum is zero is left as it is.
void StandardizeRows(LumaArray<WeightMatrixUnit>& units, const LumaArray<double>& rowSums, std::int64_t n) {
  std::size_t cursor = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    const double s = rowSums[static_cast<std::size_t>(i)];
    const std::int64_t end = (i + 1) * n;
    const bool zero = IsZeroSum(s);
    for (; cursor < units.size() && units[cursor].Index < end; ++cursor)
      if (!zero) units[cursor].Weight /= s;
  }
}

}  // namespace

bool ZoStatisticsUtilities::CheckWeightsRequest(ZoRecordset* records, const ZoPatternsInformation& info) {
  return Guard([&]() -> bool {
    if (!records) {
      AddErrorMessage(msg::EEg024);
      return false;
    }
    if (!CheckParameterValid(records, info)) return false;
    switch (info.Conceptualization) {
      case InverseDistance:
      case InverseDistanceSquared:
      case FixedDistanceBand:
      case ZoneOfIndifference:
      case KNearestNeighbors: break;
      case ContiguityEdgesOnly:
      case ContiguityEdgesCorners:
        if (records->GetDataset()->GetType() != DatasetRegion) {
          AddErrorMessage(msg::ESa025);
          return false;
        }
        break;
      default: return false;  // weights files are read by the analyses themselves
    }
    if (records->GetRecordCount() > kMaxInMemoryFeatures) {
      AddErrorMessage(msg::EUb003);
      return false;
    }
    return true;
  });
}

bool ZoStatisticsUtilities::GetSpatialWeight(ZoRecordset* records, const ZoPatternsInformation& info,
                                             LumaArray<WeightMatrixUnit>& units, bool showProgress) {
  return Guard([&] {
    if (!CheckWeightsRequest(records, info)) return false;
    const std::int64_t n = records->GetRecordCount();
    ZoCallProgress progress(m_progress, showProgress);
    LumaUnicodeString format;
    if (progress) {
      progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb330));
      format = ZoStringEx::LoadResString(msg::IMb331);
    }
    units.clear();
    LumaArray<double> rowSums;
    ZoWeightsRowBuilder rows(*this);
    if (!rows.Prepare(records, info)) {
      if (rows.FailedId()) AddErrorMessage(rows.FailedId());
      return false;
    }
    units.reserve(8192);
    std::vector<std::int64_t> columns;
    std::vector<double> weights;
    for (std::int64_t i = 0; i < n; ++i) {
      if (!progress.Step(format, i, n)) {
        AddErrorMessage(msg::IMb030);
        return false;
      }
      rows.Row(i, columns, weights);
      double sum = 0.0;
      for (std::size_t h = 0; h < columns.size(); ++h) {
        units.push_back({static_cast<std::int32_t>(i * n + columns[h]), weights[h]});
        sum += weights[h];
      }
      if (info.Standardization) rowSums.push_back(sum);
    }
    if (units.empty()) {
      AddErrorMessage(msg::ESa023);
      return false;
    }
    units.shrink_to_fit();
    if (info.Standardization) StandardizeRows(units, rowSums, n);
    return true;
  });
}

}  // namespace ZOC
