#pragma once
// The six geographic-distribution measures: what each computes from a
// group's points, weights or lines, and how each runs in the measuring frame.
//
// Every measure but the central feature costs O(n) per group after the
// pass, and the pass itself is one ordered query: O(n log n) in all. The
// central feature compares every pair within a group (see CentralElement.cpp).
#include <cstdint>

#include "StatisticsAnalyst/ZoMeasuringInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/spatial/Centre.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoGeometry.h"
#include "host/ZoProgress.h"

namespace ZOC::detail {
class CallProgress;
}

namespace ZOC::detail::centrography {

using detail::Status;

// Everything a measure call works with.
struct MeasureCall {
  ZoDatasetVector* input = nullptr;
  ZoDatasetVector* output = nullptr;
  const ZoMeasuringInformation* info = nullptr;
  bool showProgress = false;
  ZoProgress* callerProgress = nullptr;
};

// The factor of an ellipse size code: 1, 2 or 3, and 0 for any other code.
double EllipseFactor(int code);

// ---- Computations on one group ----

// Weiszfeld's iteration from the unweighted mean centre. Empty lists leave
// `centre` as it was; "ESa019" for lists of different lengths.
Status GetMedianCenter(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double relativeTolerance,
                       LumaPoint2D& centre, int limit, double absoluteTolerance);
// The relative tolerance the median centre uses for a Tolerance setting.
double MedianTolerance(double tolerance);

// The weighted spread of a group around its weighted mean centre: Σw and
// Σw dx², Σw dy², Σw dx dy, summed in feature order, with the weights
// relative to the largest (RelativeWeights; the sums' ratios are what the
// measures use). No points (or no weights) is no spread: ok with `empty`
// set. "ESa013" below 3 points, "ESa019" for lists of different lengths,
// "ESa018" for a weight sum within ±1e-20 of 0, or the mean centre's message.
struct WeightedSpread {
  bool empty = true;
  LumaPoint2D mean;
  LumaArray<double> weights;  // the relative weights summed
  double weight = 0.0, xx = 0.0, yy = 0.0, xy = 0.0;
};
Status GetWeightedSpread(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights,
                         WeightedSpread& spread);

// sqrt((Σw dx² + Σw dy²) / Σw) × factor around the weighted mean centre;
// failures as GetWeightedSpread.
Status GetStandardDist(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double factor,
                       LumaPoint2D& centre, double& distance);

// The standard deviational ellipse: axes along the rotated x and y
// directions (not sorted by length) and the rotation angle in degrees.
Status GetDirection(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double factor,
                    LumaPoint2D& centre, double& axisX, double& axisY, double& angle);

// A bearing in radians, clockwise from north, of the direction (p, q) =
// (dx, dy), in [0, 2π); exact zeros and q = -1 follow fixed rules.
double GetAngle(double p, double q);

// Whether a line points somewhere: its first and last vertices (those
// GetDirectionalMean takes its direction from) lie further apart than the
// coincidence tolerance. A line of zero length, or a closed one, does not.
bool LineHasDirection(const ZoGeometry& line);

struct DirectionalMeanResult {
  LumaPoint2D backEnd, frontEnd, centre;
  double meanLength = 0.0, compassAngle = 0.0, directionalMean = 0.0, circularVariance = 0.0;
};
// The mean direction of lines (first vertex to last vertex), optionally as
// orientations. "ESa067" for no lines, "ESa008", "ESa074" when no line has vertices.
Status GetDirectionalMean(const LumaArray<ZoGeometry>& lines, bool orientationOnly, DirectionalMeanResult& result);

// The IDs of the elements with the smallest Σ_j≠i d(i, j)·w(j) + s(i)·w(i)
// (all of them when tied). "ESa019", "ESa018" (weights within ±1e-10 of 0),
// "IMb030" when the progress object is cancelled.
Status GetCentralElement(const LumaArray<LumaPoint2D>& points, const LumaArray<std::int64_t>& ids,
                         const LumaArray<double>& weights, const LumaArray<double>& selfWeights,
                         ZoDistanceMethod method, detail::CallProgress* progress, bool reportSteps,
                         LumaArray<std::int64_t>& centralIds);

// ---- The measures ----
Status MeanCenter(MeasureCall& call);
Status MedianCenter(MeasureCall& call);
Status CentralElement(MeasureCall& call);
Status StandardDistance(MeasureCall& call);
Status DirectionalDistribution(MeasureCall& call);
Status LinearDirectionalMean(MeasureCall& call);

}  // namespace ZOC::detail::centrography
