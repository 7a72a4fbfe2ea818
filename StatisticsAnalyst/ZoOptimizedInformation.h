#pragma once
// The parameters and the report of the optimized hot spot analysis: Gi* with
// every choice made from the data. Incidents (points without an analysis
// field) are aggregated into counts first; features with a field are
// analysed as they are. The scale is the first peak of the incremental
// spatial autocorrelation of the counts or values.
#include <cstdint>
#include <optional>

#include "StatisticsAnalyst/ZoIncrementalInformation.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

class ZoDatasetVector;

// How incidents become counts.
enum ZoIncidentAggregation : std::int32_t {
  // Square cells of a fishnet grid; cells holding no incident are dropped.
  AggregateFishnetGrid = 1,
  // Incidents within a tolerance of each other merged into one point that
  // carries their count (coincident incidents with a tolerance of 0).
  AggregateIntegrate = 2,
  // Incidents counted per polygon of a region dataset; every polygon is
  // kept, those holding no incident with a count of 0.
  AggregatePolygons = 3,
};

struct ZoOptimizedInformation {
  // The numeric analysis field; empty when the source's points are
  // incidents to aggregate.
  LUMA::LumaUnicodeString FieldName;
  ZoIncidentAggregation Aggregation = AggregateFishnetGrid;
  // The grid's cell side (dataset units; metres for geographic data); none
  // takes the default derived from the incidents' spacing. Must be positive.
  std::optional<double> CellSize;
  // The integration tolerance (same units); none takes the default derived
  // from the incidents' spacing. Must be 0 or more.
  std::optional<double> Tolerance;
  // The region dataset of AggregatePolygons, in the incidents' coordinate
  // system.
  ZoDatasetVector* Polygons = nullptr;
  ZoDistanceMethod DistanceMethod = Euclidean;
  // The Gi* stage's permutation test, as ZoPatternsInformation's: with P > 0
  // the bins come from the pseudo p-values ("Gi_PseudoP").
  std::int32_t Permutations = 0;
  std::uint64_t Seed = 0;
};

// Why the distance band of the Gi* stage was chosen.
enum ZoScaleOfAnalysis : std::int32_t {
  // The first band whose z-score of Moran's I peaks.
  ScaleFirstPeak = 1,
  // No band peaks: the mean distance to the K-th nearest neighbour.
  ScaleNearestNeighbours = 2,
};

// Every choice a successful call made, and what it found.
struct ZoOptimizedReport {
  bool Aggregated = false;                                   // incidents were aggregated
  ZoIncidentAggregation Aggregation = AggregateFishnetGrid;  // how, when Aggregated
  std::int64_t Incidents = 0;                                // incidents read (0 with a field)
  // Locational outliers, so far from the rest that they would stretch the
  // choices made from the spacing: incidents left out of the default cell
  // size or tolerance, and analysed features left out of the default bands
  // of the scale search. Both are still counted and analysed.
  std::int64_t OutlyingIncidents = 0;
  std::int64_t OutlyingFeatures = 0;
  std::int64_t Features = 0;  // features analysed: cells, merged points, polygons or the source's features
  double CellSize = 0.0;      // the grid's, when the grid was used
  double Tolerance = 0.0;     // the integration's, when integration was used
  bool DefaultCellSize = false, DefaultTolerance = false;
  ZoScaleOfAnalysis Scale = ScaleFirstPeak;
  double DistanceBand = 0.0;        // the Gi* band
  std::int32_t Neighbours = 0;      // K of ScaleNearestNeighbours
  ZoIncrementalResult Incremental;  // the series the scale was looked for in
  // Features in hot spots (positive bins) and cold spots (negative bins) at
  // 99, 95 and 90 per cent confidence, FDR-corrected.
  std::int64_t HotSpots[3] = {0, 0, 0};
  std::int64_t ColdSpots[3] = {0, 0, 0};
};

}  // namespace ZOC
