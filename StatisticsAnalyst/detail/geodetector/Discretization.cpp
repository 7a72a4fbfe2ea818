#include "StatisticsAnalyst/detail/geodetector/Discretization.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

namespace ZOC::detail::geodetector {

namespace {

// R's unique() on ascending limits, except that a constant series keeps
// [v, v] so that it still forms one class.
std::vector<double> Deduplicated(std::vector<double> breaks) {
  breaks.erase(std::unique(breaks.begin(), breaks.end()), breaks.end());
  if (breaks.size() == 1) breaks.push_back(breaks.front());
  return breaks;
}

// The exponent e of a power of two with |lo|, |hi| <= 2^e. Values divided by
// 2^e lie in [-1, 1], so their sums of squares cannot overflow even near
// 1e308, and the division is exact (short of the subnormal range, where it
// only loses what is negligible beside the largest value).
int ScaleExponent(double lo, double hi) {
  const double largest = std::max(std::fabs(lo), std::fabs(hi));
  int e = 0;
  if (largest > 0) std::frexp(largest, &e);
  return e;
}

// R's quantile(x, (0:m)/m, type = 7) step by step: the same 1-based index and
// the same (1 - h) x[lo] + h x[hi] blend, so the limits match R bit for bit;
// the blend also cannot overflow where x[hi] - x[lo] would.
std::vector<double> QuantileBreaks(const std::vector<double>& sorted, int m) {
  const double last = static_cast<double>(sorted.size() - 1);
  std::vector<double> breaks;
  breaks.reserve(static_cast<std::size_t>(m) + 1);
  for (int k = 0; k <= m; ++k) {
    const double index = 1.0 + last * (static_cast<double>(k) / m);
    const double lo = std::floor(index);
    const auto i = static_cast<std::size_t>(lo) - 1;
    double q = sorted[i];
    if (index > lo && sorted[i + 1] != q) {
      const double h = index - lo;
      q = (1 - h) * q + h * sorted[i + 1];
    }
    breaks.push_back(q);
  }
  return Deduplicated(std::move(breaks));
}

// R's seq(lo, hi, length.out = m + 1): lo + k (hi - lo) / m with the ends
// exact; when hi - lo overflows, R works on quarters, which is exact too.
std::vector<double> EqualIntervalBreaks(double lo, double hi, int m) {
  double quarter = 1;
  if (!std::isfinite(hi - lo)) {
    lo /= 4, hi /= 4;
    quarter = 4;
  }
  const double width = (hi - lo) / m;
  std::vector<double> breaks{lo * quarter};
  for (int k = 1; k < m; ++k) breaks.push_back(std::clamp(lo + k * width, lo, hi) * quarter);
  breaks.push_back(hi * quarter);
  return Deduplicated(std::move(breaks));
}

// Limits at mean + (j - m/2) s, j = 1..m-1, that fall strictly inside the
// range, s the sample standard deviation. Mean and deviation are taken on
// values scaled by a power of two so that 1e300 values neither overflow the
// sum nor the squares.
std::vector<double> StandardDeviationBreaks(const std::vector<double>& values, int m) {
  const auto [minIt, maxIt] = std::minmax_element(values.begin(), values.end());
  const double lo = *minIt, hi = *maxIt;
  const std::size_t n = values.size();
  if (n < 2 || lo == hi) return Deduplicated({lo, hi});
  const int e = ScaleExponent(lo, hi);
  const auto nd = static_cast<double>(n);

  double sum = 0;
  for (double x : values) sum += std::ldexp(x, -e);
  double mean = sum / nd;
  // A second pass corrects the rounding of the first, as R's mean() does.
  double residual = 0;
  for (double x : values) residual += std::ldexp(x, -e) - mean;
  mean += residual / nd;
  double squares = 0;
  for (double x : values) {
    const double d = std::ldexp(x, -e) - mean;
    squares += d * d;
  }
  const double s = std::sqrt(squares / (nd - 1));

  std::vector<double> breaks{lo};
  for (int j = 1; j < m; ++j) {
    // Limits far outside the range may overflow to infinity: dropped below.
    const double b = std::ldexp(mean + (j - m / 2.0) * s, e);
    if (b > lo && b < hi) breaks.push_back(b);
  }
  breaks.push_back(hi);
  return Deduplicated(std::move(breaks));
}

// The exact Jenks partition: the least total within-class sum of squares over
// all ways of cutting the sorted values into m contiguous classes, by dynamic
// programming over the distinct values weighted by their counts. The best
// start of the last class never moves left as the class's end moves right,
// so each row is filled by divide and conquer over the ends, O(d log d)
// instead of O(d²) (as in Wang and Song's Ckmeans.1d.dp).
class NaturalBreaksProgramme {
 public:
  NaturalBreaksProgramme(const std::vector<double>& distinct, const std::vector<double>& counts, double centre, int e)
      : w_(distinct.size() + 1, 0.0), s1_(distinct.size() + 1, 0.0), s2_(distinct.size() + 1, 0.0) {
    // Prefix sums of w, w x and w x² on values scaled into [-1, 1] and
    // shifted by the median, which keeps the sums of squares small and
    // limits the cancellation in s2 - s1²/w.
    for (std::size_t i = 0; i < distinct.size(); ++i) {
      const double x = std::ldexp(distinct[i], -e) - centre;
      w_[i + 1] = w_[i] + counts[i];
      s1_[i + 1] = s1_[i] + counts[i] * x;
      s2_[i + 1] = s2_[i] + counts[i] * x * x;
    }
  }

  // The last distinct index of each of the m classes, m <= d.
  std::vector<std::size_t> ClassEnds(int m) {
    const std::size_t d = w_.size() - 1;
    const auto classes = static_cast<std::size_t>(m);
    std::vector<double> previous(d), current(d);
    for (std::size_t i = 0; i < d; ++i) previous[i] = Cost(0, i);
    // starts_[k] holds, for each end i in [k, d - classes + k], the first
    // distinct index of class k (0-based) in the best partition of 0..i
    // into k + 1 classes: the only ends from which the remaining classes
    // can still be formed.
    const std::size_t span = d - classes + 1;
    starts_.assign(classes, std::vector<std::uint32_t>());
    for (std::size_t k = 1; k < classes; ++k) {
      starts_[k].resize(span);
      row_ = k;
      previousRow_ = &previous;
      currentRow_ = &current;
      // The last row is needed at the last end only.
      Fill(k + 1 == classes ? d - 1 : k, k + span - 1, k, k + span - 1);
      std::swap(previous, current);
    }
    std::vector<std::size_t> ends(classes);
    std::size_t end = d - 1;
    for (std::size_t k = classes - 1; k >= 1; --k) {
      ends[k] = end;
      end = starts_[k][end - k] - 1;
    }
    ends[0] = end;
    return ends;
  }

 private:
  // The weighted sum of squared deviations of distinct values j..i.
  double Cost(std::size_t j, std::size_t i) const {
    const double w = w_[i + 1] - w_[j];
    const double s = s1_[i + 1] - s1_[j];
    return std::max(0.0, (s2_[i + 1] - s2_[j]) - s * s / w);
  }

  // Row row_ for the ends lo..hi, whose best class starts lie in first..last.
  void Fill(std::size_t lo, std::size_t hi, std::size_t first, std::size_t last) {
    const std::size_t mid = lo + (hi - lo) / 2;
    const std::size_t stop = std::min(last, mid);
    double best = std::numeric_limits<double>::infinity();
    std::size_t bestStart = std::max(first, row_);
    for (std::size_t j = std::max(first, row_); j <= stop; ++j) {
      const double total = (*previousRow_)[j - 1] + Cost(j, mid);
      if (total < best) best = total, bestStart = j;
    }
    (*currentRow_)[mid] = best;
    starts_[row_][mid - row_] = static_cast<std::uint32_t>(bestStart);
    if (lo < mid) Fill(lo, mid - 1, first, bestStart);
    if (mid < hi) Fill(mid + 1, hi, bestStart, last);
  }

  std::vector<double> w_, s1_, s2_;
  std::vector<std::vector<std::uint32_t>> starts_;
  std::size_t row_ = 0;
  const std::vector<double>* previousRow_ = nullptr;
  std::vector<double>* currentRow_ = nullptr;
};

std::vector<double> NaturalBreaks(const std::vector<double>& sorted, int m) {
  std::vector<double> distinct, counts;
  for (std::size_t i = 0; i < sorted.size();) {
    std::size_t j = i + 1;
    while (j < sorted.size() && sorted[j] == sorted[i]) ++j;
    distinct.push_back(sorted[i]);
    counts.push_back(static_cast<double>(j - i));
    i = j;
  }
  std::vector<double> breaks{distinct.front()};
  if (distinct.size() <= static_cast<std::size_t>(m)) {
    // Each distinct value is a class of its own, the minimum included.
    breaks.insert(breaks.end(), distinct.begin(), distinct.end());
    return breaks;
  }
  const int e = ScaleExponent(sorted.front(), sorted.back());
  const double centre = std::ldexp(sorted[sorted.size() / 2], -e);
  NaturalBreaksProgramme programme(distinct, counts, centre, e);
  for (std::size_t end : programme.ClassEnds(m)) breaks.push_back(distinct[end]);
  return breaks;
}

}  // namespace

std::vector<double> ClassBreaks(std::vector<double> values, Discretization method, int classes) {
  if (values.empty()) return {};
  const int m = std::max(classes, 1);
  switch (method) {
    case Discretization::EqualInterval: {
      const auto [lo, hi] = std::minmax_element(values.begin(), values.end());
      return EqualIntervalBreaks(*lo, *hi, m);
    }
    case Discretization::StandardDeviation: return StandardDeviationBreaks(values, m);
    case Discretization::Quantile: std::sort(values.begin(), values.end()); return QuantileBreaks(values, m);
    case Discretization::NaturalBreaks: std::sort(values.begin(), values.end()); return NaturalBreaks(values, m);
  }
  return {};
}

int ClassOf(const std::vector<double>& breaks, double x) {
  if (breaks.size() < 3) return 0;
  // The upper limits breaks[1..] ascend strictly; the first one not below x
  // closes x's class, and the last class also takes everything above.
  const auto upper = std::lower_bound(breaks.begin() + 1, breaks.end() - 1, x);
  return static_cast<int>(upper - (breaks.begin() + 1));
}

}  // namespace ZOC::detail::geodetector
