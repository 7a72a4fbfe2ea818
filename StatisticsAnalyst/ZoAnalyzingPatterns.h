#pragma once
// ZoAnalyzingPatterns: global statistics of a whole dataset.
#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"
#include "StatisticsAnalyst/ZoIncrementalInformation.h"
#include "StatisticsAnalyst/ZoPartitionInformation.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

class SA_API ZoAnalyzingPatterns : public ZoAnalysisFrame {
 public:
  // The result of a global statistic, written only when the analysis succeeds.
  using ZoAnalyzingExponent = ZOC::ZoAnalyzingExponent;

  ZoAnalyzingPatterns() = default;
  ~ZoAnalyzingPatterns();
  // Copies take the message and settings; an open flag matrix stays with
  // the original (a copy starts with none open).
  ZoAnalyzingPatterns(const ZoAnalyzingPatterns& other);
  ZoAnalyzingPatterns& operator=(const ZoAnalyzingPatterns& other);

  // The K-nearest flag matrix this object reads block by block: opened here
  // ("ESa049"), closed by CloseWeightsDictionary or the destructor.
  bool OpenWeightsDictionary(const LumaUnicodeString& path);
  void CloseWeightsDictionary();
  // The next N bytes of the flag matrix as a dense row of 1.0 and 0.0: block
  // r tells for each feature i whether r is one of its neighbours. "EEg020"
  // when no matrix is open, "ESa046" when the block cannot be read.
  unsigned char ReadWeightMatrixBinaryK(int n, LumaArray<double>& row);

  // Global Moran's I of the analysis field under the randomization
  // assumption: I, E[I], Var[I], z and its two-sided p-value. Weights are
  // held in memory as compressed sparse rows within the memory budget;
  // beyond it, and whenever the conceptualization names a weights file, they
  // stream from a binary weights file (a temporary one is deleted before the
  // call returns).
  // Values that are NaN or infinite fail with "EUc001" naming the first such
  // feature; values of any finite magnitude (1e200 included) are exact.
  // Messages: the frame's checks, the weights' own, "ESa030",
  // "ESa021" (no variance), "ESa027", "ESa026", "IMb030", then "ESa041".
  bool SpatialAutocorrelation(ZoDatasetVector* dataset, const ZoPatternsInformation& info, ZoAnalyzingExponent& result,
                              bool showProgress);
  // Moran's I of the field over `info.Bands` fixed distance bands, from
  // BeginDistance in steps of Increment (their defaults: the largest and
  // the mean nearest-neighbour distance), each band exactly as
  // SpatialAutocorrelation with a fixed distance band at that distance
  // gives it, all from one neighbour search; then the first and the highest
  // peak of the z-scores. Messages: the frame's checks, "ESa081", "ESa082",
  // "ESa021", "ESa083", "ESa084", "IMb030", then "ESa085".
  bool IncrementalSpatialAutocorrelation(ZoDatasetVector* dataset, const ZoIncrementalInformation& info,
                                         ZoIncrementalResult& result, bool showProgress);
  // The geographical detector of a dependent field against factor fields
  // (points, lines, regions or a table): each factor's strata (categories,
  // or classes of a real field cut as asked, breaks recorded), and for the
  // detectors asked, the factor detector's q with its non-central F test,
  // the interaction of every pair of factors, Welch's t-test of every pair
  // of strata (risk) and the F test of every ordered pair of factors
  // (ecological). With `strata`, a dataset of the input's type, every
  // feature is also written there with its QlID ("SourceID"), the dependent
  // value, and per factor its stratum ("<field>_Stratum") and the stratum's
  // mean ("<field>_Mean"). Nothing is written when the call fails.
  // Messages: "EEg002", "EEe017", "ESa005", "ECd001", "ESa006", "ESa096",
  // "ESa097", "ESa098", "ESa099", "ESa100", "ESa101", "EKa013", "ESa103",
  // "EUc001", "ESa108", "ESa104", "ESa102", "ESa105", "ESa106", "ELc071",
  // "IMb030", then "ESa107".
  bool GeographicalDetector(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info, ZoGeoDetectorResult& result,
                            bool showProgress, ZoDatasetVector* strata = nullptr);
  // Getis–Ord General G of a non-negative field ("ESa022" otherwise): G,
  // E[G], Var[G], z and p, on the same two paths. "ESa035" is appended when
  // the statistic itself fails. The p-value never exceeds 1.
  unsigned char HighOrLowCluster(ZoDatasetVector* dataset, const ZoPatternsInformation& info,
                                 ZoAnalyzingExponent& result, unsigned char showProgress);

  // Average nearest neighbour: compares the mean distance from each feature's
  // centroid to its nearest neighbour with the mean expected for a random
  // pattern of the same number of features in the study area.
  //   area: the study area in the coordinate system's area unit (square
  //     metres for geographic data); 0 computes it as the area of the
  //     minimum-area rectangle enclosing the centroids. Degenerate layouts use
  //     `width` for the rectangle's missing side (two features, collinear or
  //     coincident centroids); with useDefaultWidth the width is 2.0, or
  //     1.7966305682435e-05 degrees (about 2 m) for geographic data.
  //   Distances are Euclidean or Manhattan in planar units; for geographic
  //     data, chord distances on the ellipsoid in metres.
  // The result's slots hold, in order: the ratio R = Do/De, the expected
  // mean distance De, the observed mean distance Do, the z-score and its
  // two-sided p-value.
  // Messages: "EEg002", "EEe018", "ESa051" (negative area), "EKa013",
  // "ESa013" (fewer than two features), "ESa008", "ESa053", "ESa060",
  //   Geographic data that straddles the antimeridian is measured as one
  //   patch: the rectangle is drawn over unwrapped longitudes and the search
  //   runs in a projection centred on the points.
  // "ESa032", "IMb030" (cancelled), "ESa052" (no positive expected distance).
  // A feature without a usable geometry fails with "EUc002" naming its QlID.
  unsigned char AverageNearestNeighbor(ZoDatasetVector* dataset, double area, const ZoDistanceMethod& method,
                                       ZoAnalyzingExponent& result, unsigned char useDefaultWidth, double width,
                                       unsigned char showProgress);

  // ---- One part of a dataset split over processes (ZoPartitionInformation.h)
  // `info.Partition` names the part (Active, its box and halo box); the
  // dataset holds the part's own features and their halo.
  //
  // The own features' count and exact power sums about `centre`; with
  // `reach` also their reach and default band (nearest or K-th neighbour)
  // and extent. Messages: the frame's checks, "ESa111", the values' and
  // points' own, "ESa032".
  bool PartitionScan(ZoDatasetVector* dataset, const ZoPatternsInformation& info, double centre, bool reach,
                     ZoPartitionScan& scan);
  // The weights of own features pointing at other parts' features, for
  // Moran's I (generalG false) or General G. `info.Partition` must also
  // carry the whole dataset's count and sums. Messages: the frame's checks,
  // "ESa110", "ESa111", the values', points' and weights' own, then "ESa041"
  // or "ESa035".
  bool PartitionEdges(ZoDatasetVector* dataset, const ZoPatternsInformation& info, bool generalG,
                      ZoPartitionEdges& edges);
  // The part's share of the statistic's sums, given every edge of the other
  // parts that points at this part's own features (from their
  // PartitionEdges). Messages as PartitionEdges.
  bool PartitionSums(ZoDatasetVector* dataset, const ZoPatternsInformation& info, bool generalG,
                     const ZoPartitionEdges& incoming, ZoPartitionSums& sums);
  // The statistic from every part's shares put together (their expansions
  // concatenated) and the whole dataset's record: one process's result to
  // the last bit. False (result untouched) where one process would fail
  // ("ESa030", "ESa021", "ESa027").
  static bool MoranFromSums(const ZoPartitionSums& total, const ZoPartition& whole, ZoAnalyzingExponent& result);
  static bool GeneralGFromSums(const ZoPartitionSums& total, const ZoPartition& whole, ZoAnalyzingExponent& result);

 private:
  // The minimum-area rectangle enclosing a convex hull ring (closed,
  // counter-clockwise) by rotating calipers: every hull edge is a base side
  // once, and the first rectangle of strictly smallest area is kept. u is the
  // unit direction of the length L, v = (−u.y, u.x) that of the width W.
  // False with "ESa013" for fewer than two ring points.
  unsigned char GetMinAreaRect1(const LumaArray<LumaPoint2D>& hull, LumaPoint2D& centre, LumaPoint2D& u, LumaPoint2D& v,
                                double& length, double& width, double& area);

  ZoStatisticsUtilities m_utilities;
  std::FILE* m_flagMatrix = nullptr;
};

}  // namespace ZOC
