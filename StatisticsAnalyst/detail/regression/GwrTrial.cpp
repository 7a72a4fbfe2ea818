// The bandwidth search's trials: the prediction and leverage of every
// feature at one bandwidth, which is all AICc needs. A trial is the search's
// whole cost (tens of them), so it never rebuilds a local design: ZᵀWZ and
// ZᵀWy are weighted sums of rows of products computed once per model.
#include <algorithm>
#include <cmath>
#include <new>

#include "StatisticsAnalyst/detail/regression/Gwr.h"

namespace ZOC::detail::regression {

namespace {

// A dense block's kernel rows hold about this many weights (2 MB).
constexpr std::int64_t kBlockWeights = std::int64_t{1} << 18;

}  // namespace

void GwrModel::Unpack(const double* sums, Scratch& s) const {
  const int p = m_design.p();
  for (int a = 0; a < p; ++a)
    for (int b = a; b < p; ++b) s.a[a * p + b] = s.a[b * p + a] = *sums++;
  for (int a = 0; a < p; ++a) s.c[a] = *sums++;
}

void GwrModel::SquaredDistances(std::int64_t i, Scratch& s) const {
  const double x = m_xs(static_cast<Eigen::Index>(i)), y = m_ys(static_cast<Eigen::Index>(i));
  // Squared distances: the kernels only need u² = (d / bandwidth)².
  if (m_method == 1)
    s.reach = (m_xs - x).square() + (m_ys - y).square();
  else
    s.reach = ((m_xs - x).abs() + (m_ys - y).abs()).square();
}

double GwrModel::Reach(std::int64_t i, double b, Scratch& s) const {
  SquaredDistances(i, s);
  if (m_type != GWRAdaptive) return b * b;
  // The bandwidth is the distance to the k-th nearest feature (itself
  // included), found by selection: nothing else needs the order.
  const auto nth = static_cast<std::size_t>(std::llround(b)) - 1;
  s.order.assign(s.reach.data(), s.reach.data() + s.reach.size());
  std::nth_element(s.order.begin(), s.order.begin() + static_cast<long>(nth), s.order.end());
  return s.order[nth];
}

bool GwrModel::KernelRow(std::int64_t i, double b, Scratch& s, Eigen::Index r) const {
  const double reach2 = Reach(i, b, s);
  if (!(reach2 > 0.0)) return false;
  auto row = s.weights.row(r).array();
  if (m_kernel == GWRGaussian)
    row = (s.reach * (-0.5 / reach2)).exp().transpose();
  else
    row = (1.0 - s.reach / reach2).max(0.0).square().transpose();
  return true;
}

namespace {

// sums += w · row over `width` values; the two never overlap.
inline void AddScaled(double* __restrict sums, const double* __restrict row, double w, Eigen::Index width) {
  for (Eigen::Index q = 0; q < width; ++q) sums[q] += w * row[q];
}

}  // namespace

bool GwrModel::SparseSums(std::int64_t i, double b, Scratch& s, const NeighbourOrder* order) const {
  const Eigen::Index width = m_products.cols();
  s.sums.setZero(1, width);
  double* sums = s.sums.data();
  const double* products = m_products.data();
  const auto k = std::llround(b);
  if (m_type == GWRAdaptive && order && order->count >= k) {
    // The k nearest, sorted once for the whole search: those before the
    // k-th are the ones strictly inside the bandwidth.
    const std::int32_t* nearest = order->index.data() + i * order->count;
    const double reach2 = Distance2(i, nearest[k - 1]);
    if (!(reach2 > 0.0)) return false;
    for (std::int64_t t = 0; t < k; ++t) {
      const double d2 = Distance2(i, nearest[t]), room = 1.0 - d2 / reach2;
      if (d2 < reach2) AddScaled(sums, products + nearest[t] * width, room * room, width);
    }
    return true;
  }
  if (m_type == GWRAdaptive && static_cast<std::size_t>(k) > kTreeLimit) {
    // More neighbours than the tree serves: the bandwidth by selection.
    const double reach2 = Reach(i, b, s);
    if (!(reach2 > 0.0)) return false;
    for (Eigen::Index j = 0; j < s.reach.size(); ++j) {
      const double room = 1.0 - s.reach(j) / reach2;
      if (s.reach(j) < reach2) AddScaled(sums, products + j * width, room * room, width);
    }
    return true;
  }
  if (!Neighbours(i, b, s)) return false;
  for (std::size_t t = 0; t < s.nbIndex.size(); ++t)
    AddScaled(sums, products + s.nbIndex[t] * width, s.nbWeight[t], width);
  return true;
}

bool GwrModel::SortNeighbours(std::int64_t count, NeighbourOrder& order, const GwrProgress& progress) const {
  const std::int64_t n = m_design.n;
  order.count = 0;
  order.index.assign(static_cast<std::size_t>(n * count), 0);
  const bool finished = ForEachFeature(
      [&](std::int64_t i, Scratch& s) {
        SquaredDistances(i, s);
        s.nearest.resize(static_cast<std::size_t>(n));
        for (std::int64_t j = 0; j < n; ++j) s.nearest[static_cast<std::size_t>(j)] = static_cast<std::int32_t>(j);
        auto closer = [&](std::int32_t a, std::int32_t c) { return s.reach(a) < s.reach(c); };
        const auto last = s.nearest.begin() + count;
        std::nth_element(s.nearest.begin(), last - 1, s.nearest.end(), closer);
        std::sort(s.nearest.begin(), last, closer);
        std::copy(s.nearest.begin(), last, order.index.begin() + i * count);
      },
      progress);
  if (finished) order.count = count;
  return finished;
}

bool GwrModel::Trial(double b, std::vector<double>& predicted, std::vector<double>& leverage, std::vector<char>& ok,
                     const GwrProgress& progress, const NeighbourOrder* order) const {
  const auto n = static_cast<Eigen::Index>(m_design.n);
  auto finish = [&](std::int64_t i, const double* sums, Scratch& s) {
    const auto k = static_cast<std::size_t>(i);
    Unpack(sums, s);
    Local local;
    ok[k] = Solve(i, s, local);
    predicted[k] = local.predicted, leverage[k] = local.leverage;
  };
  // The Gaussian kernel weighs every feature: its kernel rows are dense. So
  // are those of a bisquare over a large share of the features (without the
  // sorted neighbours), where one matrix product beats gathering the rows.
  const auto k = std::llround(b);
  const bool dense = m_kernel == GWRGaussian || (m_type == GWRAdaptive && !(order && order->count >= k) &&
                                                 4 * k > m_design.n && static_cast<std::size_t>(k) > kTreeLimit);
  if (dense)
    return ForEachBlock(
        [&](std::int64_t first, std::int64_t count, Scratch& s) {
          s.weights.resize(static_cast<Eigen::Index>(count), n);
          s.rowOk.resize(static_cast<std::size_t>(count));
          for (std::int64_t r = 0; r < count; ++r)
            s.rowOk[static_cast<std::size_t>(r)] = KernelRow(first + r, b, s, static_cast<Eigen::Index>(r));
          s.sums.noalias() = s.weights * m_products;
          for (std::int64_t r = 0; r < count; ++r)
            if (s.rowOk[static_cast<std::size_t>(r)]) finish(first + r, &s.sums(static_cast<Eigen::Index>(r), 0), s);
        },
        progress);
  return ForEachFeature(
      [&](std::int64_t i, Scratch& s) {
        if (SparseSums(i, b, s, order)) finish(i, s.sums.data(), s);
      },
      progress);
}

bool GwrModel::ForEachBlock(const std::function<void(std::int64_t, std::int64_t, Scratch&)>& body,
                            const GwrProgress& progress) const {
  const std::int64_t n = m_design.n;
  return ForEachSpan(std::clamp<std::int64_t>(kBlockWeights / std::max<std::int64_t>(n, 1), 1, 64), body, progress);
}

}  // namespace ZOC::detail::regression
