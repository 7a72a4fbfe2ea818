#include "StatisticsAnalyst/detail/regression/Gwr.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <new>

#include "host/ZoMessageIds.h"

namespace ZOC::detail::regression {

namespace {

constexpr std::int64_t kBlock = 4096;

}  // namespace

GwrModel::GwrModel(const Design& design, std::vector<LUMA::LumaPoint3D> points, ZoGWRKernel kernel,
                   ZoGWRBandwidthType type, int method)
    : m_design(design), m_points(std::move(points)), m_kernel(kernel), m_type(type), m_method(method) {}

GwrModel::~GwrModel() = default;

bool GwrModel::Build(bool search) {
  const int p = m_design.p();
  const auto n = static_cast<Eigen::Index>(m_design.n);
  m_z.resize(n, p);
  m_products.resize(search ? n : 0, p * (p + 1) / 2 + p);
  m_xs.resize(n), m_ys.resize(n);
  for (Eigen::Index i = 0; i < n; ++i) {
    m_design.DesignRow(i, &m_z(i, 0));
    m_xs(i) = m_points[static_cast<std::size_t>(i)].x, m_ys(i) = m_points[static_cast<std::size_t>(i)].y;
    if (!search) continue;
    double* product = &m_products(i, 0);
    for (int a = 0; a < p; ++a)
      for (int b = a; b < p; ++b) *product++ = m_z(i, a) * m_z(i, b);
    for (int a = 0; a < p; ++a) *product++ = m_z(i, a) * m_design.y[static_cast<std::size_t>(i)];
  }
  m_tree = std::make_unique<ZoKdTree>(m_points.data(), m_points.size());
  return m_tree->Build();
}

bool GwrModel::Neighbours(std::int64_t i, double b, Scratch& s) const {
  s.nbIndex.clear(), s.nbWeight.clear();
  const bool bisquare = m_kernel == GWRBisquare;
  auto keep = [&](std::int64_t j, double d, double bw) {
    const double u = d / bw;
    if (bisquare) {
      if (d < bw) s.nbIndex.push_back(j), s.nbWeight.push_back((1 - u * u) * (1 - u * u));
    } else {
      const double w = std::exp(-0.5 * u * u);
      if (w > 0.0) s.nbIndex.push_back(j), s.nbWeight.push_back(w);
    }
  };
  const auto& q = m_points[static_cast<std::size_t>(i)];
  double bw = b;
  if (m_type == GWRAdaptive) {
    const auto k = static_cast<std::size_t>(std::llround(b));
    if (k <= kTreeLimit) {
      m_tree->SearchKdTree(q, k, s.idx, s.dist, m_method);
      bw = s.dist.back();
      if (bisquare) {
        for (std::size_t t = 0; t < s.idx.size(); ++t) keep(static_cast<std::int64_t>(s.idx[t]), s.dist[t], bw);
        return bw > 0.0;
      }
    } else {
      s.pairs.resize(static_cast<std::size_t>(m_design.n));
      for (std::int64_t j = 0; j < m_design.n; ++j) s.pairs[static_cast<std::size_t>(j)] = {Distance(i, j), j};
      std::nth_element(s.pairs.begin(), s.pairs.begin() + static_cast<long>(k - 1), s.pairs.end());
      bw = s.pairs[k - 1].first;
      if (bisquare) {
        for (std::size_t t = 0; t < k; ++t) keep(s.pairs[t].second, s.pairs[t].first, bw);
        return bw > 0.0;
      }
    }
  } else if (bisquare) {
    m_tree->SearchKdTreeDis2(q, b, s.idx, s.dist, m_method);
    for (std::size_t t = 0; t < s.idx.size(); ++t) keep(static_cast<std::int64_t>(s.idx[t]), s.dist[t], b);
    return true;
  }
  // The Gaussian kernel weighs every feature.
  if (!(bw > 0.0)) return false;
  for (std::int64_t j = 0; j < m_design.n; ++j) keep(j, Distance(i, j), bw);
  return true;
}

bool GwrModel::Solve(std::int64_t i, Scratch& s, Local& out) const {
  const int p = m_design.p();
  if (!InvertSymmetric(s.a.data(), p, s.inv.data())) return false;
  const double* z = &m_z(static_cast<Eigen::Index>(i), 0);
  out.predicted = out.leverage = 0.0;
  for (int r = 0; r < p; ++r) {
    double br = 0.0, az = 0.0;
    for (int q = 0; q < p; ++q) br += s.inv[r * p + q] * s.c[q], az += s.inv[r * p + q] * z[q];
    s.beta[r] = br;
    out.predicted += z[r] * br;
    out.leverage += z[r] * az;  // the feature's own weight is the kernel's 1 at distance 0
  }
  return true;
}

bool GwrModel::LocalFit(std::int64_t i, double b, Scratch& s, Local& out) const {
  if (!Neighbours(i, b, s)) return false;
  const int p = m_design.p();
  const auto m = static_cast<Eigen::Index>(s.nbIndex.size());
  // The neighbours' rows scaled by √w: ZᵀWZ and ZᵀWy become plain (blocked,
  // vectorised) products, and √w·(y − zᵀβ) is the weighted residual.
  s.zw.resize(m, p), s.yw.resize(m);
  for (Eigen::Index t = 0; t < m; ++t) {
    const auto j = static_cast<Eigen::Index>(s.nbIndex[static_cast<std::size_t>(t)]);
    const double root = std::sqrt(s.nbWeight[static_cast<std::size_t>(t)]);
    s.zw.row(t) = m_z.row(j) * root;
    s.yw(t) = m_design.y[static_cast<std::size_t>(j)] * root;
  }
  Eigen::Map<RowMatrix> a(s.a.data(), p, p);
  a.noalias() = s.zw.transpose() * s.zw;
  Eigen::Map<Eigen::VectorXd>(s.c.data(), p).noalias() = s.zw.transpose() * s.yw;
  if (!Solve(i, s, out)) return false;
  // Coefficient covariance (up to σ²): A⁻¹ B A⁻¹ with B = ZᵀW²Z, reported
  // for the uncentred model.
  for (Eigen::Index t = 0; t < m; ++t) s.zw.row(t) *= std::sqrt(s.nbWeight[static_cast<std::size_t>(t)]);
  Eigen::Map<RowMatrix> bm(s.b.data(), p, p), inv(s.inv.data(), p, p), cov(s.cov.data(), p, p);
  bm.noalias() = s.zw.transpose() * s.zw;
  cov.noalias() = inv * bm * inv;
  UncentreCovariance(s.cov.data(), p, m_design.means, s.tmp.data());
  for (int r = 0; r < p; ++r) out.covariance[r] = s.tmp[r * p + r], out.beta[r] = s.beta[r];
  for (int r = 1; r < p; ++r) out.beta[0] -= s.beta[r] * m_design.means[static_cast<std::size_t>(r - 1)];
  // Local R²: the weighted fit around the weighted mean.
  double sw = 0.0, swy = 0.0, tss = 0.0, rss = 0.0;
  for (std::size_t t = 0; t < s.nbIndex.size(); ++t)
    sw += s.nbWeight[t], swy += s.nbWeight[t] * m_design.y[static_cast<std::size_t>(s.nbIndex[t])];
  const double mean = swy / sw;
  for (std::size_t t = 0; t < s.nbIndex.size(); ++t) {
    const std::int64_t j = s.nbIndex[t];
    const double y = m_design.y[static_cast<std::size_t>(j)], w = s.nbWeight[t];
    double fit = 0.0;
    for (int r = 0; r < p; ++r) fit += m_z(static_cast<Eigen::Index>(j), r) * s.beta[r];
    tss += w * (y - mean) * (y - mean), rss += w * (y - fit) * (y - fit);
  }
  out.r2 = tss > 0.0 ? 1.0 - rss / tss : 1.0;
  Uncentre(s.a.data(), p, m_design.means, s.tmp.data());
  out.condition = ScaledConditionNumber(s.tmp.data(), p);
  return true;
}

bool GwrModel::ForEachFeature(const std::function<void(std::int64_t, Scratch&)>& body,
                              const GwrProgress& progress) const {
  return ForEachSpan(
      8,
      [&](std::int64_t first, std::int64_t count, Scratch& s) {
        for (std::int64_t i = first; i < first + count; ++i) body(i, s);
      },
      progress);
}

bool GwrModel::ForEachSpan(std::int64_t span, const std::function<void(std::int64_t, std::int64_t, Scratch&)>& body,
                           const GwrProgress& progress) const {
  const std::int64_t n = m_design.n;
  const int p = m_design.p();
  for (std::int64_t start = 0; start < n; start += kBlock) {
    if (progress && !progress(start)) return false;
    const std::int64_t end = std::min(n, start + kBlock);
    std::atomic<bool> outOfMemory{false};
    // Every span's work is sequential and lands in its own slots, so the
    // results do not depend on the number of threads or the schedule.
#pragma omp parallel
    {
      // Every thread must reach the loop, even one that could not get its
      // scratch space: the loop's barrier waits for all of them.
      std::unique_ptr<Scratch> s;
      try {
        s = std::make_unique<Scratch>(p);
      } catch (const std::bad_alloc&) {
        outOfMemory = true;
      }
#pragma omp for schedule(dynamic, 1)
      for (std::int64_t first = start; first < end; first += span) {
        if (!s) continue;
        try {
          body(first, std::min(span, end - first), *s);
        } catch (const std::bad_alloc&) {
          outOfMemory = true;
        }
      }
    }
    if (outOfMemory) throw std::bad_alloc();
  }
  return !progress || progress(n);
}

}  // namespace ZOC::detail::regression
