#pragma once
// Geographically weighted regression on a Design: at every feature a
// weighted least-squares fit whose weights fall with the distance from that
// feature under a kernel and a bandwidth.
#include <Eigen/Dense>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "StatisticsAnalyst/ZoGWRInformation.h"
#include "StatisticsAnalyst/detail/regression/Regression.h"
#include "host/LumaPoint.h"
#include "host/ZoKdTree.h"

namespace ZOC::detail::regression {

// Up to this many neighbours the KD tree finds them; beyond, one pass over
// every feature with a selection is cheaper than the tree's sorted list.
inline constexpr std::size_t kTreeLimit = 256;

// Per-feature results; coefficient arrays are n × p, row-major, for the
// uncentred model (intercept first).
struct GwrFeatures {
  std::vector<double> beta, se;
  std::vector<double> localR2, predicted, residual, standardized, condition;
};

struct GwrSummary {
  double aicc = 0, trace = 0, rss = 0, sigma = 0, r2 = 0, adjustedR2 = 0;
};

// Every feature's nearest features in increasing distance, `count` of them
// (itself first among those at distance 0): the adaptive search sorts them
// once, when the largest number of neighbours it can still try fits, and
// every later trial reads its neighbours from here.
struct NeighbourOrder {
  std::int64_t count = 0;
  std::vector<std::int32_t> index;  // n × count, row-major
};

// Called between blocks of features with the number done; false cancels.
using GwrProgress = std::function<bool(std::int64_t done)>;

class GwrModel {
 public:
  // points: one per feature, projected, in the design's order.
  GwrModel(const Design& design, std::vector<LUMA::LumaPoint3D> points, ZoGWRKernel kernel, ZoGWRBandwidthType type,
           int method);
  ~GwrModel();
  // Builds the neighbour search, and for a bandwidth search (`search`) the
  // per-feature products its trials sum (Aicc and Search need them); false
  // when a point is not finite.
  bool Build(bool search);

  // The full fit at bandwidth b. Fails with "EUf009", "EUf010", "EUf007" or
  // "IMb030".
  Status Fit(double b, GwrFeatures& features, GwrSummary& summary, const GwrProgress& progress) const;
  // AICc at bandwidth b, +inf when a local design is singular or the fit
  // degenerate. Sets cancelled (and returns +inf) when progress says so.
  // `order`, when not null, holds at least b neighbours per feature.
  double Aicc(double b, const GwrProgress& progress, bool& cancelled, const NeighbourOrder* order = nullptr) const;
  // Fills `order` with `count` neighbours per feature; false when cancelled.
  bool SortNeighbours(std::int64_t count, NeighbourOrder& order, const GwrProgress& progress) const;
  // The golden-section search on AICc between the bounds below; trial(k)
  // is told of every new evaluation, poll between blocks of features, and
  // either returns false to cancel. Fails with "EUf011" or "IMb030".
  Status Search(double& best, const std::function<bool(int)>& trial, const GwrProgress& poll) const;
  // The search interval: adaptive, p + 2 to n features; fixed, up to the
  // diagonal of the points' extent, from 1/5000 of it (Gaussian) or from the
  // largest distance between a feature and its (p + 2)-th nearest feature,
  // itself included (bisquare: below it some local design lacks support).
  void Bounds(double& lower, double& upper) const;
  // Most evaluations the search can make, for progress.
  int MaxTrials() const;

 private:
  using RowMatrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

  struct Scratch {
    explicit Scratch(int p)
        : a(static_cast<std::size_t>(p * p)),
          b(a.size()),
          inv(a.size()),
          cov(a.size()),
          tmp(a.size()),
          c(static_cast<std::size_t>(p)),
          z(c.size()),
          beta(c.size()) {}
    std::vector<std::size_t> idx;
    std::vector<double> dist;
    std::vector<std::pair<double, std::int64_t>> pairs;
    std::vector<std::int64_t> nbIndex;
    std::vector<double> nbWeight;
    std::vector<double> a, b, inv, cov, tmp, c, z, beta;
    Eigen::MatrixXd zw;  // the neighbours' design rows, scaled by the square root of their weights
    Eigen::VectorXd yw;
    RowMatrix weights, sums;  // a block of features' kernel rows, and their weighted sums of products
    Eigen::ArrayXd reach;     // one feature's squared distances to every feature
    std::vector<double> order;
    std::vector<std::int32_t> nearest;
    std::vector<char> rowOk;
  };

  // One local fit. beta and covariance point into the caller's rows (full
  // fits) or are left alone (search).
  struct Local {
    double predicted = 0, leverage = 0, r2 = 0, condition = 0;
    double* beta = nullptr;        // p, uncentred
    double* covariance = nullptr;  // p diagonal elements of (ZᵀWZ)⁻¹ZᵀW²Z(ZᵀWZ)⁻¹, uncentred
  };
  // The full fit at feature i: coefficients, their covariance, local R² and
  // condition number besides the prediction and leverage.
  bool LocalFit(std::int64_t i, double b, Scratch& s, Local& out) const;
  bool Neighbours(std::int64_t i, double b, Scratch& s) const;
  // The prediction and leverage at feature i from s.a = ZᵀWZ and s.c = ZᵀWy.
  bool Solve(std::int64_t i, Scratch& s, Local& out) const;
  // s.a and s.c from one row of weighted sums of the products below.
  void Unpack(const double* sums, Scratch& s) const;

  // The search's trials. Every feature's ZᵀWZ and ZᵀWy is a weighted sum of
  // the features' rows of products z zᵀ (upper triangle) and z y, so a trial
  // never rebuilds a design: a bisquare kernel sums its neighbours' rows; the
  // Gaussian kernel, which weighs every feature, forms a block of kernel rows
  // and multiplies it by the products in one matrix product. Fills
  // predicted, leverage and ok per feature.
  bool Trial(double b, std::vector<double>& predicted, std::vector<double>& leverage, std::vector<char>& ok,
             const GwrProgress& progress, const NeighbourOrder* order) const;
  // Feature i's squared distances to every feature into s.reach.
  void SquaredDistances(std::int64_t i, Scratch& s) const;
  // The same, and returns the squared bandwidth (adaptive: to the k-th
  // nearest, by selection).
  double Reach(std::int64_t i, double b, Scratch& s) const;
  // Feature i's kernel weights on every feature into row r of s.weights;
  // false when its adaptive bandwidth is 0.
  bool KernelRow(std::int64_t i, double b, Scratch& s, Eigen::Index r) const;
  // Feature i's bisquare-weighted sum of products into s.sums; false when
  // its adaptive bandwidth is 0.
  bool SparseSums(std::int64_t i, double b, Scratch& s, const NeighbourOrder* order) const;
  // The squared distance between two features, as Reach computes it.
  double Distance2(std::int64_t i, std::int64_t j) const {
    const double dx = m_xs(static_cast<Eigen::Index>(j)) - m_xs(static_cast<Eigen::Index>(i));
    const double dy = m_ys(static_cast<Eigen::Index>(j)) - m_ys(static_cast<Eigen::Index>(i));
    return m_method == 1 ? dx * dx + dy * dy : (std::fabs(dx) + std::fabs(dy)) * (std::fabs(dx) + std::fabs(dy));
  }
  // Runs body(first, count, scratch) over blocks of features in parallel.
  bool ForEachBlock(const std::function<void(std::int64_t, std::int64_t, Scratch&)>& body,
                    const GwrProgress& progress) const;
  // The parallel loop under both: spans of `span` features, progress polled
  // between chunks of features.
  bool ForEachSpan(std::int64_t span, const std::function<void(std::int64_t, std::int64_t, Scratch&)>& body,
                   const GwrProgress& progress) const;
  double Distance(std::int64_t i, std::int64_t j) const {
    const auto& a = m_points[static_cast<std::size_t>(i)];
    const auto& b = m_points[static_cast<std::size_t>(j)];
    const double dx = a.x - b.x, dy = a.y - b.y;
    return m_method == 1 ? std::sqrt(dx * dx + dy * dy) : std::fabs(dx) + std::fabs(dy);
  }
  // Runs body(i, scratch) over every feature in parallel, in blocks.
  bool ForEachFeature(const std::function<void(std::int64_t, Scratch&)>& body, const GwrProgress& progress) const;

  const Design& m_design;
  std::vector<LUMA::LumaPoint3D> m_points;
  ZoGWRKernel m_kernel;
  ZoGWRBandwidthType m_type;
  int m_method;
  std::unique_ptr<ZoKdTree> m_tree;
  // The centred design rows (1, x − mean), one per feature, contiguous.
  RowMatrix m_z;
  // Per feature: z zᵀ's upper triangle row by row, then z·y.
  RowMatrix m_products;
  // The points' coordinates, apart, for the dense kernel rows.
  Eigen::ArrayXd m_xs, m_ys;
};

}  // namespace ZOC::detail::regression
