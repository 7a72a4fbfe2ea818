// The whole-model side of geographically weighted regression: the full fit
// at one bandwidth, AICc for the search, and the golden-section search.
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>

#include "StatisticsAnalyst/detail/regression/Gwr.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::regression {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLeverageRoom = 1e-10;
constexpr double kGolden = 0.6180339887498949;  // (√5 − 1) / 2
// The most memory the adaptive search's sorted neighbours may take.
constexpr std::uint64_t kOrderBudget = std::uint64_t{128} << 20;

// AICc of a Gaussian model with `trace` effective parameters (Hurvich,
// Simonoff and Tsai): n ln(RSS/n) + n ln 2π + n (n + tr) / (n − 2 − tr).
double CorrectedAic(double rss, double n, double trace) {
  if (!(n - 2.0 - trace > 0.0) || !(rss > 0.0)) return kInfinity;
  return n * std::log(rss / n) + n * std::log(2.0 * std::numbers::pi) + n * (n + trace) / (n - 2.0 - trace);
}

}  // namespace

Status GwrModel::Fit(double b, GwrFeatures& f, GwrSummary& summary, const GwrProgress& progress) const {
  const std::int64_t n = m_design.n;
  const int p = m_design.p();
  const auto un = static_cast<std::size_t>(n), np = un * static_cast<std::size_t>(p);
  f.beta.assign(np, 0.0), f.se.assign(np, 0.0);
  f.localR2.assign(un, 0.0), f.predicted.assign(un, 0.0), f.residual.assign(un, 0.0);
  f.standardized.assign(un, 0.0), f.condition.assign(un, 0.0);
  std::vector<double> leverage(un, 0.0);
  std::vector<char> ok(un, 0);
  const bool finished = ForEachFeature(
      [&](std::int64_t i, Scratch& s) {
        const auto k = static_cast<std::size_t>(i);
        Local local;
        local.beta = f.beta.data() + k * static_cast<std::size_t>(p);
        local.covariance = f.se.data() + k * static_cast<std::size_t>(p);
        ok[k] = LocalFit(i, b, s, local);
        f.predicted[k] = local.predicted, leverage[k] = local.leverage;
        f.localR2[k] = local.r2, f.condition[k] = local.condition;
      },
      progress);
  if (!finished) return Status::Fail(msg::IMb030);
  if (std::find(ok.begin(), ok.end(), 0) != ok.end()) return Status::Fail(msg::EUf009);
  double rss = 0.0, trace = 0.0, mean = 0.0, tss = 0.0;
  for (std::size_t k = 0; k < un; ++k) {
    if (!(leverage[k] < 1.0 - kLeverageRoom)) return Status::Fail(msg::EUf010);
    f.residual[k] = m_design.y[k] - f.predicted[k];
    rss += f.residual[k] * f.residual[k], trace += leverage[k], mean += m_design.y[k];
  }
  const double dn = static_cast<double>(n);
  mean /= dn;
  for (double y : m_design.y) tss += (y - mean) * (y - mean);
  if (!(dn - trace > 0.0)) return Status::Fail(msg::EUf010);
  if (!(rss > 1e-20 * tss)) return Status::Fail(msg::EUf007);
  const double sigma2 = rss / (dn - trace);
  for (std::size_t k = 0; k < np; ++k) f.se[k] = std::sqrt(sigma2 * std::max(f.se[k], 0.0));
  for (std::size_t k = 0; k < un; ++k) f.standardized[k] = f.residual[k] / std::sqrt(sigma2 * (1.0 - leverage[k]));
  summary.trace = trace, summary.rss = rss, summary.sigma = std::sqrt(sigma2);
  summary.aicc = CorrectedAic(rss, dn, trace);
  summary.r2 = 1.0 - rss / tss;
  summary.adjustedR2 = 1.0 - (1.0 - summary.r2) * (dn - 1.0) / (dn - trace - 1.0);
  return Status::Ok();
}

double GwrModel::Aicc(double b, const GwrProgress& progress, bool& cancelled, const NeighbourOrder* order) const {
  const auto un = static_cast<std::size_t>(m_design.n);
  std::vector<double> predicted(un, 0.0), leverage(un, 0.0);
  std::vector<char> ok(un, 0);
  if (!Trial(b, predicted, leverage, ok, progress, order)) {
    cancelled = true;
    return kInfinity;
  }
  double rss = 0.0, trace = 0.0;
  for (std::size_t k = 0; k < un; ++k) {
    if (!ok[k] || !(leverage[k] < 1.0 - kLeverageRoom)) return kInfinity;
    const double e = m_design.y[k] - predicted[k];
    rss += e * e, trace += leverage[k];
  }
  return CorrectedAic(rss, static_cast<double>(m_design.n), trace);
}

void GwrModel::Bounds(double& lower, double& upper) const {
  const std::int64_t n = m_design.n;
  const int p = m_design.p();
  if (m_type == GWRAdaptive) {
    lower = std::min<double>(p + 2, static_cast<double>(n)), upper = static_cast<double>(n);
    return;
  }
  double minX = kInfinity, minY = kInfinity, maxX = -kInfinity, maxY = -kInfinity;
  for (const auto& q : m_points)
    minX = std::min(minX, q.x), maxX = std::max(maxX, q.x), minY = std::min(minY, q.y), maxY = std::max(maxY, q.y);
  const double w = maxX - minX, h = maxY - minY;
  upper = m_method == 1 ? std::sqrt(w * w + h * h) : w + h;
  if (m_kernel == GWRGaussian) {
    // Every feature keeps some weight: only the extent bounds the search.
    lower = upper / 5000.0;
    return;
  }
  const auto k = static_cast<std::size_t>(std::min<std::int64_t>(p + 2, n));
  std::vector<double> reach(static_cast<std::size_t>(n), 0.0);
  ForEachFeature(
      [&](std::int64_t i, Scratch& s) {
        m_tree->SearchKdTree(m_points[static_cast<std::size_t>(i)], k, s.idx, s.dist, m_method);
        reach[static_cast<std::size_t>(i)] = s.dist.back();
      },
      {});
  lower = std::min(*std::max_element(reach.begin(), reach.end()), upper);
}

int GwrModel::MaxTrials() const {
  if (m_type != GWRAdaptive) return 40;
  const double lower = std::min<double>(m_design.p() + 2, static_cast<double>(m_design.n));
  const double upper = static_cast<double>(m_design.n);
  return 2 * static_cast<int>(std::ceil(std::log(upper - lower + 2.0) / std::log(1.0 / kGolden))) + 8;
}

Status GwrModel::Search(double& best, const std::function<bool(int)>& trial, const GwrProgress& poll) const {
  double lower, upper;
  Bounds(lower, upper);
  std::map<double, double> tried;
  bool cancelled = false;
  NeighbourOrder order;
  auto f = [&](double b) {
    if (auto it = tried.find(b); it != tried.end()) return it->second;
    if (cancelled || !trial(static_cast<int>(tried.size()))) {
      cancelled = true;
      return kInfinity;
    }
    const double value = Aicc(b, poll, cancelled, order.count >= b ? &order : nullptr);
    if (!cancelled) tried[b] = value;
    return value;
  };
  // Once every bandwidth the search can still try is at most `most`
  // neighbours, each feature's `most` nearest are sorted once (when they
  // fit the budget) instead of selected again at every trial.
  const double most = std::floor(static_cast<double>(kOrderBudget) / (4.0 * static_cast<double>(m_design.n)));
  auto narrowed = [&](double c) {
    if (m_type == GWRAdaptive && m_kernel == GWRBisquare && order.count == 0 && c <= most &&
        c > static_cast<double>(kTreeLimit) && m_design.n < std::numeric_limits<std::int32_t>::max() && !cancelled)
      cancelled = !SortNeighbours(static_cast<std::int64_t>(c), order, poll);
  };
  if (m_type == GWRAdaptive) {
    // Whole numbers of neighbours: narrow while the interval is wide, then
    // try what is left.
    double a = lower, c = upper;
    while (c - a > 3 && !cancelled) {
      narrowed(c);
      const double span = c - a;
      double x1 = c - std::round(kGolden * span), x2 = a + std::round(kGolden * span);
      if (x1 >= x2) x1 = a + std::floor(span / 2), x2 = x1 + 1;
      if (f(x1) <= f(x2))
        c = x2;
      else
        a = x1;
    }
    for (double k = a; k <= c && !cancelled; ++k) f(k);
  } else {
    double a = lower, c = upper;
    double x1 = c - kGolden * (c - a), x2 = a + kGolden * (c - a);
    double f1 = f(x1), f2 = f(x2);
    for (int step = 0; step < 100 && c - a > 1e-6 * (upper - lower) && !cancelled; ++step) {
      if (f1 <= f2)
        c = x2, x2 = x1, f2 = f1, x1 = c - kGolden * (c - a), f1 = f(x1);
      else
        a = x1, x1 = x2, f1 = f2, x2 = a + kGolden * (c - a), f2 = f(x2);
    }
  }
  if (cancelled) return Status::Fail(msg::IMb030);
  double bestValue = kInfinity;
  for (const auto& [b, value] : tried)  // ascending bandwidths: ties keep the smaller
    if (value < bestValue) best = b, bestValue = value;
  return bestValue < kInfinity ? Status::Ok() : Status::Fail(msg::EUf011);
}

}  // namespace ZOC::detail::regression
