#pragma once
// ZoStatisticsUtilities: distances, spatial weights by conceptualization,
// KD-tree neighbour search with the default distance band, and the
// probability functions every statistic uses.
//
// Weights are held as a sparse list of WeightMatrixUnit sorted by key
// i·n + j (feature i's weight for neighbour j; never i = j), searched by
// binary search. The 32-bit key limits in-memory weights to n·n < 2^31;
// larger datasets go through weights files.
#include <cstdint>
#include <cstdio>

#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoGeometry.h"
#include "host/ZoKdTree.h"
#include "host/ZoPrjCoordSys.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;
using LUMA::LumaPoint3D;

namespace detail::weights {
class ContiguityGrid;
}
// The contiguity grid's query structure; built by BuildContiguityGird.
using ZoContiguityGrid = detail::weights::ContiguityGrid;

class SA_API ZoStatisticsUtilities : public ZoAnalysisFrame {
 public:
  ZoStatisticsUtilities() = default;

  // ---- Distances ----
  static double EuclideanDistance(const LumaPoint2D& a, const LumaPoint2D& b);
  static double ManhattanDistance(const LumaPoint2D& a, const LumaPoint2D& b);
  // Distance from `point` to every element (method 1 Euclidean, any other
  // value Manhattan). False only when `points` is empty.
  static bool CalculateDistance(const LumaArray<LumaPoint2D>& points, const LumaPoint2D& point,
                                const ZoDistanceMethod& method, LumaArray<double>& distances);
  // Euclidean for geographic coordinate systems, else the method given.
  static ZoDistanceMethod ValidateDistanceMethod(const ZoDistanceMethod& method, const ZoPrjCoordSys& cs);

  // ---- Feature points ----
  // The representative point of a geometry: a point's location, the centroid
  // of a line or region. False for an empty geometry.
  static bool GetBaryCenter(const ZoGeometry* geometry, LumaPoint2D& point);
  // One representative point per record, in the recordset's order (it is
  // moved to its first record). False when a geometry is missing or empty,
  // with "EUc002" naming the feature's QlID.
  bool PickUpBaryCenters(ZoRecordset* records, LumaArray<LumaPoint2D>& points);
  // The weighted mean of the points: (Σ w·x / Σ w, Σ w·y / Σ w). Empty
  // lists leave `centre` as it was and succeed. "ESa019" when the lists
  // differ in length, "ESa018" when the weights sum to 0 (within ±1e-20).
  bool GetMeanCenter(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, LumaPoint2D& centre);
  // Projects points in place for distance measurement (identity for planar
  // data; metres for geographic data). False when projection fails.
  static bool Forward(LumaArray<LumaPoint2D>& points, const ZoPrjCoordSys& cs);

  // ---- Spatial weights ----
  // The whole weights matrix of the records under the parameters: sorted by
  // key, no self weights, row-standardized when asked. False with messages
  // ("EEg024", the parameter checks, "ESa025", "ESa008" after "EUc002"
  // naming a feature without geometry, "ESa060", "ESa032", "ESa023",
  // "IMb030", "EUc010" beyond the in-memory limit); conceptualization 8 and
  // unknown values give false without a message. K-nearest ties are broken
  // by feature order, which is QlID order: of features at one distance the
  // lower QlID is the nearer.
  bool GetSpatialWeight(ZoRecordset* records, const ZoPatternsInformation& info, LumaArray<WeightMatrixUnit>& units,
                        bool showProgress);
  // Position of the unit with this key, or -1.
  static int FindWeightIndex(const LumaArray<WeightMatrixUnit>& units, int key);
  // Dense row i of an n-feature matrix: zeros where no unit exists.
  static void GetWeightMatrixRow(const LumaArray<WeightMatrixUnit>& units, int row, int n, LumaArray<double>& out);

  // ---- Polygon contiguity ----
  // Builds the contiguity grid over the region geometries of the records, in
  // their order. False with "ESa008" (a geometry cannot be read), "EFd059"
  // (the grid does not hold one region per record) or "EBa003" (memory).
  bool BuildContiguityGird(ZoRecordset* records, ZoContiguityGrid& grid);
  // Appends the feature numbers of the regions touching region i, ascending:
  // sharing a boundary stretch (edgesOnly) or at least one point.
  static void GetContiguityIDs(const ZoContiguityGrid& grid, std::int64_t i, bool edgesOnly,
                               LumaArray<std::int64_t>& ids);

  // ---- Binary weights files ----
  // Opens a binary weights file for the dataset and checks it against it:
  // path ("ESa076", "EAf017", "ESa077", "ESa049"), header ("ESa045"),
  // unique-ID field ("ESa078"), ordered query ("EKa013"), record count
  // ("ESa079"), unique IDs in order ("ESa080"), index, row sums and row
  // sizes consistent with the file ("ESa046"). Fills the outputs (row sums
  // are all 1.0 for an unstandardized file) and returns the file positioned
  // at the first row, owned by the caller; null on failure.
  std::FILE* CheckSWMFileValid(ZoDatasetVector* dataset, const LumaUnicodeString& path,
                               LumaUnicodeString& uniqueIdField, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                               ZoConceptualizationModel& model, unsigned char& standardization,
                               LumaArray<double>& rowSums, std::int64_t& position);
  // Reads the next row (count records) as a dense row of n weights.
  // "EEg020" for a null file, "ESa046" when the row cannot be read or names
  // a column outside 0..n-1.
  unsigned char ReadWeightMatrixBinary(std::FILE* file, int count, int n, LumaArray<double>& row);
  // The same row as its neighbours (in stored order) and weights, without a
  // dense row: what the streamed analyses read.
  unsigned char ReadWeightMatrixBinarySparse(std::FILE* file, int count, int n, LumaArray<std::int32_t>& columns,
                                             LumaArray<double>& weights);

  // ---- Neighbour search ----
  // Fills `buffer` with (x, y, 0) per point and builds a tree over it (bucket
  // size 30). The caller deletes the tree and keeps `buffer` alive as long.
  // Null with "EEh015" for a null buffer or "ESa032" when the build fails.
  ZoKdTree* CreateKDTree(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points);
  ZoKdTreec* CreateKDTreec(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points);
  // Distance from `point` (one of the tree's points) to its k-th nearest
  // other point. False with "ESa038" for a null tree.
  bool GetDistTolerance(ZoKdTree* tree, const LumaPoint2D& point, const int& k, double& distance,
                        const ZoDistanceMethod& method);
  // For every point, the largest of the distances to its k nearest points
  // of the tree (the point itself counts among them when it is in the tree),
  // computed in parallel; independent of the thread count.
  bool GetDistTolerance(ZoKdTreec* tree, const LumaArray<LumaPoint2D>& points, const int& k,
                        LumaArray<double>& distances, const ZoDistanceMethod& method);
  // The distance band for a tolerance: 0 (within ±1e-20) means no limit (the
  // largest double); a positive tolerance is the band; a negative one (the
  // default -1) gives 1.0001 × the largest nearest-neighbour distance, so
  // every feature has a neighbour. 0 with "ESa007" for no points.
  double GetDistTolerance(const LumaArray<LumaPoint2D>& points, const double& tolerance,
                          const ZoDistanceMethod& method);
  double CalculateTolerance(ZoKdTree* tree, const LumaArray<LumaPoint2D>& points, const double& tolerance,
                            const ZoDistanceMethod& method);

  // ---- Probability functions (pure) ----
  // Two-sided normal p-value of a z-score (Abramowitz–Stegun 26.2.17);
  // exactly 0 beyond |z| > 6.
  static double GetPvalue(const double& z);
  // Chi-square tail probability (upper ≠ 0) or its complement; -1 for x < 0
  // or df < 1. For odd df the start term is twice the classic one.
  static double chiProb(double x, int df, int upper);
  // Student t tail by a rational approximation: tails = 2 two-sided, other
  // values one-sided (1 − p for t ≥ 0 with tails = 0); -1 for df < 2. The
  // flag does not change the result.
  static double tProb(double t, int df, int tails, bool flag);
  // F distribution tail (upper ≠ 0) or its complement, integer degrees of freedom.
  static double fProb(double F, int df1, int df2, int upper);
  // Non-central F distribution function and the F and t quantiles (Rmath).
  static double pnf(double x, double df1, double df2, double ncp, int lower_tail, int log_p);
  static double qf(double p, double df1, double df2, int lower_tail, int log_p);
  static double qt(double p, double df, int lower_tail, int log_p);
  // Halves away from zero: round(2.5) = 3, round(-2.5) = -3.
  static int round(double x);

 private:
  // The checks of GetSpatialWeight before any weight is made.
  bool CheckWeightsRequest(ZoRecordset* records, const ZoPatternsInformation& info);
  template <class Tree>
  Tree* CreateTree(LumaArray<LumaPoint3D>* buffer, const LumaArray<LumaPoint2D>& points);
};

}  // namespace ZOC
