#pragma once
// Records of an analysis split by space over several processes (the Python
// package's `statisticsanalyst.distributed` drives them on a Dask cluster).
//
// A partition is a dataset holding a part's own features and a halo of the
// features their weights can reach. Every step below reads only that
// dataset, and the steps' results combine, in any order, into what one
// process computes over the whole dataset:
//
// 1. ZoAnalyzingPatterns::PartitionScan: the own features' count, exact
//    power sums of their values, their k-th neighbour distance (is the halo
//    wide enough?) and their extent. Merged, these give the whole dataset's
//    moments (ZoPartition below) and default distance band.
// 2. Local statistics (ZoClusteringDistributions::HotSpot, ClusterOutlier)
//    with `ZoPatternsInformation::Partition` set: the own features' records,
//    with their source QlIDs as feature ids, bit for bit those of one run.
//    With the false discovery rate, PartitionTests first gives each part's
//    candidates, and PartitionFdr turns all of them into the levels the
//    parts then bin by.
// 3. Global statistics: ZoAnalyzingPatterns::PartitionEdges gives each part's
//    weights that point into other parts; ZoAnalyzingPatterns::PartitionSums,
//    given the edges pointing into a part, its share of every sum; put
//    together, ZoAnalyzingPatterns::MoranFromSums and GeneralGFromSums finish
//    the statistic, bit for bit that of one run.
#include <cstdint>
#include <limits>

#include "StatisticsAnalyst/Export.h"
#include "host/LumaArray.h"

namespace ZOC {

using LUMA::LumaArray;

// The part a partition's dataset stands for, and what the whole dataset
// contributes to every part.
struct ZoPartition {
  // False (the default): the dataset is analysed whole.
  bool Active = false;
  // The part's own features: those whose representative point (the point,
  // or the centroid of a line or region) lies in [MinX, MaxX) × [MinY, MaxY).
  // The other features of the dataset only lend their positions and values.
  double MinX = -std::numeric_limits<double>::infinity();
  double MinY = -std::numeric_limits<double>::infinity();
  double MaxX = std::numeric_limits<double>::infinity();
  double MaxY = std::numeric_limits<double>::infinity();
  // The box the dataset was cut from (the part's box grown by its halo): a
  // feature's k-th neighbour is known to be in the dataset when it is nearer
  // than this box's edges.
  double HaloMinX = -std::numeric_limits<double>::infinity();
  double HaloMinY = -std::numeric_limits<double>::infinity();
  double HaloMaxX = std::numeric_limits<double>::infinity();
  double HaloMaxY = std::numeric_limits<double>::infinity();
  // The whole dataset: its feature count and the exactly rounded sums of the
  // analysis values: Σx, Σx², and about the mean Σx / Count, Σ(x − mean)²
  // and Σ(x − mean)⁴ (merged from every part's PartitionScan).
  std::int64_t Count = 0;
  double Sum = 0.0, SumSquares = 0.0, Deviation2 = 0.0, Deviation4 = 0.0;
  // The whole dataset's extent (the union of the scans' extents), from which
  // contiguity takes its default snapping tolerance as one process does.
  double ExtentMinX = std::numeric_limits<double>::quiet_NaN();
  double ExtentMinY = std::numeric_limits<double>::quiet_NaN();
  double ExtentMaxX = std::numeric_limits<double>::quiet_NaN();
  double ExtentMaxY = std::numeric_limits<double>::quiet_NaN();
  // The false discovery rate over the whole dataset (from
  // ZoClusteringDistributions::PartitionFdr): the features with a level,
  // by QlID ascending, their levels (1-3), and the mean of the finite
  // statistics the bins' signs are taken against. NaN: not given, and a
  // part refuses the correction.
  LumaArray<std::int64_t> FdrIds;
  LumaArray<std::int32_t> FdrLevels;
  double FdrMean = std::numeric_limits<double>::quiet_NaN();
};

// A part's local tests before the false discovery rate is known
// (ZoClusteringDistributions::PartitionTests): its own features that may
// pass a level (p ≤ 0.1) by QlID with their p-values, and the exact sum
// (an expansion) and count of their finite statistics (Gi* z, local I).
struct ZoPartitionTests {
  LumaArray<std::int64_t> Ids;
  LumaArray<double> PValues;
  LumaArray<double> Sum;
  std::int64_t Finite = 0;
};

// What PartitionScan reads of a part's own features.
struct ZoPartitionScan {
  std::int64_t Features = 0;  // own features
  // The exact sums of (x − centre), (x − centre)² and (x − centre)⁴ over the
  // own features, as expansions: doubles whose exact sum is the sum. Merge
  // the parts' expansions and round once (Python's math.fsum does).
  LumaArray<double> Sum, Squares, Fourth;
  // The largest distance from an own feature to its k-th nearest feature
  // (0 without own features).
  double Reach = 0.0;
  // The default distance band of the own features: 1.0001 × their largest
  // nearest-neighbour distance. The whole dataset's is the parts' largest.
  double DefaultBand = 0.0;
  // Own features whose k-th nearest feature may lie outside the dataset
  // given (their reach crosses the halo box): the part needs a wider halo.
  std::int64_t Uncertain = 0;
  // The own features' extent (NaN without own features).
  double MinX = std::numeric_limits<double>::quiet_NaN();
  double MinY = std::numeric_limits<double>::quiet_NaN();
  double MaxX = std::numeric_limits<double>::quiet_NaN();
  double MaxY = std::numeric_limits<double>::quiet_NaN();
};

// Weights w(i, j) of own features i whose neighbour j is another part's
// feature: QlIDs, the weight, and j's representative point (which tells
// whose feature j is).
struct ZoPartitionEdges {
  LumaArray<std::int64_t> From, To;
  LumaArray<double> Weight, ToX, ToY;
};

// A part's share of a global statistic's sums, over its own features'
// rows. Each is an expansion: doubles whose exact sum is the share. Put
// together (the arrays of every part concatenated, in any order), they are
// the whole dataset's sums, and the statistic has one process's bits.
struct ZoPartitionSums {
  LumaArray<double> S0;  // Σ w(i, j)
  LumaArray<double> S1;  // Σ w(i, j)² + w(i, j) w(j, i)
  LumaArray<double> S2;  // Σ (row sum + column sum)²
  // Moran's I: Σ z(i) Σ w(i, j) z(j). General G: Σ x(i) Σ w(i, j) x(j).
  LumaArray<double> Cross;
  // General G only: Σ x(i)(Σx − x(i)) and Σ x, x², x³, x⁴ over the features
  // with any weight.
  LumaArray<double> Pairs, M1, M2, M3, M4;
};

}  // namespace ZOC
