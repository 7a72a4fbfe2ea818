#pragma once
// Density-based clustering: the call frame (checks, reading the points,
// writing the result) and the three methods. The algorithms themselves work
// on plain point arrays so that they can be tested without datasets.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoClusterInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoKdTree.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::clustering {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

// The q-th percentile (0..100) by linear interpolation between the sorted
// values; 0 for no values.
double percentile(LumaArray<double> values, double q);

// A computation is done (Status::Ok()), failed (Failed(): memory, a
// non-finite point) or cancelled through the progress object (Cancelled()).
using detail::Status;
inline Status Failed() { return Status::Fail(msg::EUc010); }
inline Status Cancelled() { return Status::Fail(msg::IMb030); }
inline bool IsCancelled(const Status& status) { return status.id() == msg::IMb030; }
// A failure the call reports without a message: an unknown method, and the
// host's point aggregation, which fails without saying why.
inline Status Unexplained() { return Status::FromText(LUMA::LumaUnicodeString()); }

// How much work (neighbours looked at, tree nodes visited, merges made) the
// algorithms do between two polls of the progress object: a few
// milliseconds' worth, so that a cancellation is seen at once whatever the
// neighbourhoods' size, while the poll itself stays out of the profile.
constexpr std::size_t kPollWork = std::size_t{1} << 18;

// Counts work and polls `progress` (may be null) for cancellation each time
// kPollWork more has been done.
class CancelPoll {
 public:
  explicit CancelPoll(ZoProgress* progress) : m_progress(progress) {}
  // True when the run was cancelled.
  bool Add(std::size_t work) {
    m_work += work;
    if (m_work < kPollWork) return false;
    m_work = 0;
    return Now();
  }
  bool Now() const { return m_progress && m_progress->IsCanceled(); }

 private:
  ZoProgress* m_progress;
  std::size_t m_work = 0;
};

// For every point, the distance to its k-th nearest point of `tree` (the
// point itself counts), as ZoStatisticsUtilities::GetDistTolerance finds
// it. The search runs in slices with a poll for cancellation between them.
Status KthDistances(ZoKdTreec* tree, const LumaArray<LumaPoint2D>& points, int k, LumaArray<double>& distances,
                    ZoProgress* progress);

// ---- HDBSCAN (Hdbscan.cpp, BoruvkaMst.cpp)

// An edge of the minimum spanning tree of mutual reachability.
struct MstEdge {
  std::uint32_t a = 0, b = 0;
  double weight = 0.0;
};

// Core distance of every point: the distance to its (minPoints − 1)-th
// nearest other point (0 when minPoints ≤ 1).
Status CoreDistances(const LumaArray<LumaPoint2D>& points, int minPoints, std::vector<double>& core,
                     ZoProgress* progress = nullptr);

// The minimum spanning tree over the mutual reachability distance
// max(core(a), core(b), d(a, b)), by Borůvka's algorithm over a KD tree.
// Ties between equal weights go to the lower (min, max) index pair, so the
// tree is unique. n − 1 edges for n points.
Status MutualReachabilityMst(const LumaArray<LumaPoint2D>& points, const std::vector<double>& core,
                             std::vector<MstEdge>& edges, ZoProgress* progress);

struct HdbscanResult {
  std::vector<std::int32_t> label;      // 1.. or -1 for noise
  std::vector<double> probability;      // membership probability, 0 for noise
  std::vector<double> outlier;          // GLOSH score
  std::vector<unsigned char> exemplar;  // 1 for the exemplars of a cluster
  std::vector<double> stability;        // stability of the point's cluster, 0 for noise
  int clusters = 0;
};

// The whole method: core distances, spanning tree, condensed tree with
// smallest cluster size minPoints, excess-of-mass selection.
Status Hdbscan(const LumaArray<LumaPoint2D>& points, int minPoints, HdbscanResult& result, ZoProgress* progress);
// From the spanning tree and core distances on (exposed for tests).
Status CondenseAndSelect(std::size_t n, std::vector<MstEdge> edges, const std::vector<double>& core, int minPoints,
                         HdbscanResult& result, ZoProgress* progress = nullptr);

// ---- OPTICS (Optics.cpp)

struct OpticsResult {
  std::vector<std::uint32_t> order;       // the OPTICS ordering of the point indices
  std::vector<double> reachability;       // per point; +infinity where undefined
  std::vector<double> core;               // per point; +infinity where undefined
  std::vector<std::int64_t> predecessor;  // per point; -1 where none
  std::vector<std::int32_t> label;        // 1.. or -1 for noise
  int clusters = 0;
};

// Ordering and reachability with largest radius `maxDistance` (≤ 0: none)
// and MinPts `minPoints` (the point itself counts).
Status Optics(const LumaArray<LumaPoint2D>& points, int minPoints, double maxDistance, OpticsResult& result,
              ZoProgress* progress);
// The ξ cluster extraction (ξ as a fraction, 0 < xi < 1) over an ordering:
// fills `label` and `clusters`. The clusters are those of R's
// dbscan::extractXi with its defaults, so that the two agree on one plot:
// a cluster's stretch of the ordering holds at least minPoints points, and a
// point takes the label of the narrowest cluster holding it, so a cluster
// around nested ones may keep fewer, and sparse points inside a wide
// cluster are not noise.
void ExtractXi(double xi, int minPoints, OpticsResult& result);

// ---- The call frame (DensityFrame.cpp and each method's file)

// One clustering of a point dataset's records, in "QlID" order, into an
// empty result dataset of the same type. The caller has checked both
// datasets and the record count; every step here returns the failure it met,
// and the caller turns it into the call's message.
class DensityRun {
 public:
  // `progress` drives the call's progress display and is polled for
  // cancellation; null shows nothing. Not owned.
  explicit DensityRun(ZoProgress* progress) : m_bar(progress) {}

  // Runs info.Method (1 DBSCAN, 2 HDBSCAN, 3 OPTICS; any other value fails
  // without a message). `summary`, when given, receives what a successful
  // run found.
  Status Run(ZoRecordset* records, ZoDatasetVector* result, const ZoClusterInformation& info,
             ZoClusterSummary* summary);

 private:
  Status DBSCAN_Method(ZoRecordset* records, ZoDatasetVector* result, int minPoints, double distance, int unit);
  Status HDBSCAN_Method(ZoRecordset* records, ZoDatasetVector* result, int minPoints);
  Status OPTICS_Method(ZoRecordset* records, ZoDatasetVector* result, int minPoints, double distance, int unit,
                       double parameter);

  // The points of the records in their order, projected for measuring, and
  // their QlIDs. "EUc002" naming a feature without a finite location
  // (followed by "ESa008"), "EUc003" naming one with a coordinate beyond
  // 1e150, "ESa008" when the points cannot be projected, "IMb030" when
  // cancelled.
  Status ReadPoints(ZoRecordset* records, LumaArray<LumaPoint2D>& points);
  // A distance in `unit` as a distance between the read points.
  double InPointUnits(ZoRecordset* records, double distance, int unit) const;
  // The automatic DBSCAN distance: the median distance to the
  // (minPoints − 1)-th nearest other point, or the fallbacks for a zero
  // median. "ESa032" when no tree can be built, "ESa024" when the search
  // fails, "IMb030" when cancelled.
  Status AutomaticDistance(const LumaArray<LumaPoint2D>& points, int minPoints, double& distance);

  // One result value per point and field, in field order.
  struct Column {
    const char* name;
    int type;
    std::vector<double> values;
  };
  // Creates "Source_ID" and the columns on the result, gives it the
  // source's coordinate system and appends every source record with its
  // values. "ELc071" (after "IMb030" when cancelled).
  Status WriteResult(ZoRecordset* records, ZoDatasetVector* result, std::vector<Column>& columns);

  std::vector<std::int64_t> m_ids;
  ZoProgress* m_bar = nullptr;
  ZoClusterSummary m_summary;
};

}  // namespace ZOC::detail::clustering
