#include "StatisticsAnalyst/detail/geodetector/Detectors.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "StatisticsAnalyst/detail/probability/Distributions.h"

namespace ZOC::detail::geodetector {

namespace {
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
}  // namespace

double Moments::Within() const {
  double sum = 0.0;
  for (double s : squares) sum += s;
  return sum;
}

Totals TotalsOf(const std::vector<double>& y) {
  Totals t;
  t.n = static_cast<std::int64_t>(y.size());
  if (y.empty()) return t;
  double sum = 0.0;
  for (double v : y) sum += v;
  t.mean = sum / static_cast<double>(t.n);
  for (double v : y) t.squares += (v - t.mean) * (v - t.mean);
  return t;
}

double QStatistic(double within, const Totals& totals) { return std::clamp(1.0 - within / totals.squares, 0.0, 1.0); }

Moments MomentsOf(const std::vector<double>& y, const Stratification& strata) {
  const auto L = static_cast<std::size_t>(strata.count);
  Moments m;
  m.counts.assign(L, 0);
  m.means.assign(L, 0.0);
  m.squares.assign(L, 0.0);
  for (std::size_t k = 0; k < y.size(); ++k) {
    const auto h = static_cast<std::size_t>(strata.of[k]);
    ++m.counts[h];
    m.means[h] += y[k];
  }
  for (std::size_t h = 0; h < L; ++h)
    if (m.counts[h] > 0) m.means[h] /= static_cast<double>(m.counts[h]);
  for (std::size_t k = 0; k < y.size(); ++k) {
    const auto h = static_cast<std::size_t>(strata.of[k]);
    const double d = y[k] - m.means[h];
    m.squares[h] += d * d;
  }
  return m;
}

void FactorDetector(const Moments& moments, const Totals& totals, ZoDetectorFactor& factor) {
  const std::size_t L = moments.counts.size();
  const auto N = static_cast<double>(totals.n);
  factor.Strata.resize(L);
  double meanSquares = 0.0;    // Σ_h Ȳ_h²
  double weightedMeans = 0.0;  // Σ_h √N_h Ȳ_h
  for (std::size_t h = 0; h < L; ++h) {
    const auto Nh = static_cast<double>(moments.counts[h]);
    ZoDetectorStratum& s = factor.Strata[h];
    s.Count = moments.counts[h];
    s.Mean = moments.means[h];
    s.Variance = moments.squares[h] / Nh;
    meanSquares += s.Mean * s.Mean;
    weightedMeans += std::sqrt(Nh) * s.Mean;
  }
  factor.WithinSumOfSquares = moments.Within();
  factor.Q = QStatistic(factor.WithinSumOfSquares, totals);
  const double df1 = static_cast<double>(L) - 1.0;
  const double df2 = N - static_cast<double>(L);
  factor.F = factor.Q < 1.0 ? df2 / df1 * factor.Q / (1.0 - factor.Q) : std::numeric_limits<double>::infinity();
  const double variance = totals.squares / N;
  factor.NonCentrality = std::max(0.0, (meanSquares - weightedMeans * weightedMeans / N) / variance);
  // The upper tail itself, rather than 1 − the lower one, keeps p-values
  // below the double's resolution near 1.
  factor.PValue = probability::NoncentralF(factor.F, df1, df2, factor.NonCentrality, 0, 0);
}

std::vector<ZoRiskPair> RiskDetector(const Moments& moments, double alpha) {
  const auto L = static_cast<std::int32_t>(moments.counts.size());
  std::vector<ZoRiskPair> pairs;
  pairs.reserve(static_cast<std::size_t>(L) * static_cast<std::size_t>(L > 0 ? L - 1 : 0) / 2);
  for (std::int32_t a = 0; a < L; ++a) {
    for (std::int32_t b = a + 1; b < L; ++b) {
      ZoRiskPair pair;
      pair.First = a, pair.Second = b;
      pair.T = pair.DegreesOfFreedom = pair.Critical = pair.PValue = kNaN;
      const auto na = static_cast<double>(moments.counts[static_cast<std::size_t>(a)]);
      const auto nb = static_cast<double>(moments.counts[static_cast<std::size_t>(b)]);
      if (na >= 2.0 && nb >= 2.0) {
        // Each mean's squared standard error from its sample variance.
        const double ea = moments.squares[static_cast<std::size_t>(a)] / (na - 1.0) / na;
        const double eb = moments.squares[static_cast<std::size_t>(b)] / (nb - 1.0) / nb;
        const double e = ea + eb;
        if (e > 0.0) {
          pair.Tested = true;
          const double diff = moments.means[static_cast<std::size_t>(a)] - moments.means[static_cast<std::size_t>(b)];
          pair.T = diff / std::sqrt(e);
          pair.DegreesOfFreedom = e * e / (ea * ea / (na - 1.0) + eb * eb / (nb - 1.0));
          pair.Critical = probability::TQuantile(1.0 - alpha / 2.0, pair.DegreesOfFreedom, 1, 0);
          pair.PValue = 2.0 * probability::TDistribution(-std::fabs(pair.T), pair.DegreesOfFreedom, 1, 0);
          pair.Significant = std::fabs(pair.T) > pair.Critical;
        }
      }
      pairs.push_back(pair);
    }
  }
  return pairs;
}

ZoEcologicalPair EcologicalDetector(std::int32_t first, std::int32_t second, double withinFirst, double withinSecond,
                                    std::int64_t n, double alpha) {
  ZoEcologicalPair pair;
  pair.First = first, pair.Second = second;
  // Both factors stratify the same records, so N1 = N2 = N; the counts stay
  // in the ratio as published and cancel.
  const auto N = static_cast<double>(n);
  const double df = N - 1.0;
  const double numerator = N * df * withinFirst;
  const double denominator = N * df * withinSecond;
  if (denominator > 0.0)
    pair.F = numerator / denominator;
  else
    pair.F = numerator > 0.0 ? std::numeric_limits<double>::infinity() : kNaN;
  pair.Critical = probability::FQuantile(1.0 - alpha, df, df, 1, 0);
  pair.PValue = std::isnan(pair.F) ? kNaN : probability::FDistribution(pair.F, df, df, 0, 0);
  pair.Significant = pair.F > pair.Critical;
  return pair;
}

Stratification Intersect(const Stratification& a, const Stratification& b) {
  const std::size_t n = a.of.size();
  const auto cells = static_cast<std::uint64_t>(a.count) * static_cast<std::uint64_t>(b.count);
  std::vector<std::int64_t> keys(n);
  for (std::size_t k = 0; k < n; ++k) keys[k] = static_cast<std::int64_t>(a.of[k]) * b.count + b.of[k];
  Stratification out;
  out.of.resize(n);
  if (cells <= std::max<std::uint64_t>(4 * n, 1u << 16)) {
    // Few enough cells for a direct table: number the occupied ones in key order.
    std::vector<std::int32_t> index(static_cast<std::size_t>(cells), -1);
    for (std::int64_t key : keys) index[static_cast<std::size_t>(key)] = 0;
    for (std::int32_t& i : index)
      if (i == 0) i = out.count++;
    for (std::size_t k = 0; k < n; ++k) out.of[k] = index[static_cast<std::size_t>(keys[k])];
    return out;
  }
  std::vector<std::int64_t> distinct = keys;
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  out.count = static_cast<std::int32_t>(distinct.size());
  for (std::size_t k = 0; k < n; ++k)
    out.of[k] =
        static_cast<std::int32_t>(std::lower_bound(distinct.begin(), distinct.end(), keys[k]) - distinct.begin());
  return out;
}

ZoInteractionKind ClassifyInteraction(double q1, double q2, double q12) {
  const double low = std::min(q1, q2), high = std::max(q1, q2), sum = q1 + q2;
  const double tol = kInteractionTolerance;
  // In the published order: a q12 within the tolerance of both max(q1, q2)
  // and q1 + q2 (one factor explains nothing) is uni-weaken.
  if (q12 < low - tol) return InteractionNonlinearWeaken;
  if (q12 <= high + tol) return InteractionUniWeaken;
  if (std::fabs(q12 - sum) <= tol) return InteractionIndependent;
  if (q12 < sum) return InteractionBiEnhance;
  return InteractionNonlinearEnhance;
}

}  // namespace ZOC::detail::geodetector
