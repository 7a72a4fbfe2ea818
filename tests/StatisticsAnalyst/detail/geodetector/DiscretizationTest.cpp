// Class limits against R's quantile() and cut(), natural breaks against brute
// force and a plain quadratic dynamic programme, the other methods against
// hand-worked series.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "StatisticsAnalyst/detail/geodetector/Discretization.h"

using namespace ZOC::detail::geodetector;

namespace {

std::vector<int> Classes(const std::vector<double>& breaks, const std::vector<double>& values) {
  std::vector<int> out;
  for (double x : values) out.push_back(ClassOf(breaks, x));
  return out;
}

// The total within-class sum of squares of the classes `breaks` forms, each
// class's mean taken first.
double WithinSquares(const std::vector<double>& breaks, const std::vector<double>& values) {
  const int m = static_cast<int>(breaks.size()) - 1;
  std::vector<double> sum(m), count(m);
  for (double x : values) sum[ClassOf(breaks, x)] += x, count[ClassOf(breaks, x)] += 1;
  double ss = 0;
  for (double x : values) {
    const int h = ClassOf(breaks, x);
    ss += (x - sum[h] / count[h]) * (x - sum[h] / count[h]);
  }
  return ss;
}

// Sum of squares of sorted[i..j).
double Segment(const std::vector<double>& sorted, std::size_t i, std::size_t j) {
  double mean = 0, ss = 0;
  for (std::size_t k = i; k < j; ++k) mean += sorted[k] / static_cast<double>(j - i);
  for (std::size_t k = i; k < j; ++k) ss += (sorted[k] - mean) * (sorted[k] - mean);
  return ss;
}

std::vector<double> RandomSeries(std::size_t n, unsigned seed, double step) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> normal(50, 20);
  std::vector<double> v(n);
  for (double& x : v) x = std::round(normal(rng) / step) * step;  // rounding makes ties
  return v;
}

}  // namespace

TEST(DiscretizationTest, QuantileMatchesR) {
  // x <- c(3.1, -2.5, 7.25, 3.1, 0, 12.8, 3.1, -2.5, 5.5, 9.75, 0.4, 7.25, 1.9, 20.6, 4.4)
  // for (m in c(5, 4, 7)) cat(sprintf("%.17g", unique(quantile(x, (0:m)/m, type = 7, names = FALSE))))
  const std::vector<double> x{3.1, -2.5, 7.25, 3.1, 0, 12.8, 3.1, -2.5, 5.5, 9.75, 0.4, 7.25, 1.9, 20.6, 4.4};
  EXPECT_EQ(ClassBreaks(x, Discretization::Quantile, 5),
            (std::vector<double>{-2.5, 0.32000000000000012, 3.1000000000000001, 4.8400000000000007, 7.7500000000000018,
                                 20.600000000000001}));
  EXPECT_EQ(ClassBreaks(x, Discretization::Quantile, 4),
            (std::vector<double>{-2.5, 1.1499999999999999, 3.1000000000000001, 7.25, 20.600000000000001}));
  EXPECT_EQ(ClassBreaks(x, Discretization::Quantile, 7),
            (std::vector<double>{-2.5, 0, 1.8999999999999999, 3.1000000000000001, 4.4000000000000004, 7.25, 9.75,
                                 20.600000000000001}));

  // Repeated quantiles collapse as in R:
  // y <- c(0, 0, 0, 0, 0, 0, 0, 1, 1, 2); b <- unique(quantile(y, (0:m)/m, type = 7, names = FALSE))
  // as.integer(cut(y, b, include.lowest = TRUE)) - 1
  const std::vector<double> y{0, 0, 0, 0, 0, 0, 0, 1, 1, 2};
  const std::vector<double> four = ClassBreaks(y, Discretization::Quantile, 4);
  EXPECT_EQ(four, (std::vector<double>{0, 0.75, 2}));
  EXPECT_EQ(Classes(four, y), (std::vector<int>{0, 0, 0, 0, 0, 0, 0, 1, 1, 1}));
  const std::vector<double> five = ClassBreaks(y, Discretization::Quantile, 5);
  EXPECT_EQ(five, (std::vector<double>{0, 1, 2}));
  EXPECT_EQ(Classes(five, y), (std::vector<int>{0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
}

TEST(DiscretizationTest, NaturalBreaksAreOptimal) {
  // Every way of cutting 12 sorted values (ties included, so some cuts split
  // equal values) into m contiguous runs.
  std::vector<double> small = RandomSeries(12, 7, 10);
  std::sort(small.begin(), small.end());
  for (int m = 2; m <= 5; ++m) {
    double best = std::numeric_limits<double>::infinity();
    std::function<void(std::size_t, int, double)> cut = [&](std::size_t from, int left, double ss) {
      if (left == 1) return void(best = std::min(best, ss + Segment(small, from, small.size())));
      for (std::size_t to = from + 1; to + left - 1 <= small.size(); ++to)
        cut(to, left - 1, ss + Segment(small, from, to));
    };
    cut(0, m, 0);
    const std::vector<double> breaks = ClassBreaks(small, Discretization::NaturalBreaks, m);
    ASSERT_EQ(breaks.size(), static_cast<std::size_t>(m) + 1);
    EXPECT_NEAR(WithinSquares(breaks, small), best, 1e-9 * best) << m;
  }

  // 2000 values, heavily tied and nearly all distinct, against the O(m n²)
  // programme over the sorted values, whose k-th row is the optimum for k
  // classes.
  for (double step : {5.0, 0.01}) {
    std::vector<double> large = RandomSeries(2000, 11, step);
    std::vector<double> sorted = large;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t n = sorted.size();
    std::vector<long double> s1(n + 1), s2(n + 1);
    for (std::size_t i = 0; i < n; ++i) {
      const long double x = sorted[i] - 50.0L;
      s1[i + 1] = s1[i] + x, s2[i + 1] = s2[i] + x * x;
    }
    const auto cost = [&](std::size_t i, std::size_t j) {  // values [i, j)
      const long double s = s1[j] - s1[i];
      return s2[j] - s2[i] - s * s / static_cast<long double>(j - i);
    };
    std::vector<long double> row(n + 1), next(n + 1);
    for (std::size_t j = 1; j <= n; ++j) row[j] = cost(0, j);
    for (int m = 2; m <= 12; ++m) {
      for (std::size_t j = m; j <= n; ++j) {
        next[j] = std::numeric_limits<long double>::infinity();
        for (std::size_t i = m - 1; i < j; ++i) next[j] = std::min(next[j], row[i] + cost(i, j));
      }
      std::swap(row, next);
      const auto best = static_cast<double>(row[n]);
      const std::vector<double> breaks = ClassBreaks(large, Discretization::NaturalBreaks, m);
      EXPECT_NEAR(WithinSquares(breaks, large), best, 1e-9 * best) << step << " " << m;
    }
  }
}

TEST(DiscretizationTest, EqualIntervalStandardDeviationAndClassOf) {
  // Width (10 - 1) / 3 = 3; classes right-closed, the lowest closed below.
  const std::vector<double> v{4, 1, 10, 2, 7, 3};
  const std::vector<double> equal = ClassBreaks(v, Discretization::EqualInterval, 3);
  EXPECT_EQ(equal, (std::vector<double>{1, 4, 7, 10}));
  EXPECT_EQ(Classes(equal, {1, 4, std::nextafter(4.0, 5.0), 7, 10, 0, 11}), (std::vector<int>{0, 0, 1, 1, 2, 0, 2}));

  // Mean 5, sample sd s = sqrt(32 / 7); m = 4: 5 - s, 5, 5 + s; m = 5:
  // 5 ± s/2, 5 ± 3s/2, of which 5 - 3s/2 = 1.79 falls below the minimum.
  const std::vector<double> w{2, 4, 4, 4, 5, 5, 7, 9};
  const double s = std::sqrt(32.0 / 7.0);
  const std::vector<double> sd4 = ClassBreaks(w, Discretization::StandardDeviation, 4);
  const std::vector<double> sd5 = ClassBreaks(w, Discretization::StandardDeviation, 5);
  const std::vector<double> want4{2, 5 - s, 5, 5 + s, 9}, want5{2, 5 - s / 2, 5 + s / 2, 5 + 1.5 * s, 9};
  ASSERT_EQ(sd4.size(), want4.size());
  ASSERT_EQ(sd5.size(), want5.size());
  for (std::size_t i = 0; i < want4.size(); ++i) EXPECT_NEAR(sd4[i], want4[i], 1e-12);
  for (std::size_t i = 0; i < want5.size(); ++i) EXPECT_NEAR(sd5[i], want5[i], 1e-12);
}

TEST(DiscretizationTest, FewDistinctValuesAndExtremeMagnitudes) {
  const Discretization all[] = {Discretization::Quantile, Discretization::EqualInterval, Discretization::NaturalBreaks,
                                Discretization::StandardDeviation};
  for (Discretization method : all) {
    EXPECT_EQ(ClassBreaks({3, 3, 3}, method, 4), (std::vector<double>{3, 3}));
    EXPECT_EQ(ClassBreaks({-8}, method, 2), (std::vector<double>{-8, -8}));
  }
  // Natural breaks give each of at most m distinct values its own class, the
  // minimum as [3, 3].
  const std::vector<double> few = ClassBreaks({8, 3, 5, 3, 8}, Discretization::NaturalBreaks, 4);
  EXPECT_EQ(few, (std::vector<double>{3, 3, 5, 8}));
  EXPECT_EQ(Classes(few, {3, 4, 5, 8}), (std::vector<int>{0, 1, 1, 2}));

  // Scaling by 2^1023 is exact, so every method must give exactly the scaled
  // limits, although the range (about 2.9e308) and the squares overflow.
  const std::vector<double> base = RandomSeries(300, 3, 0.25);
  const double lo = *std::min_element(base.begin(), base.end()), hi = *std::max_element(base.begin(), base.end());
  std::vector<double> unit, huge;
  for (double x : base) unit.push_back((x - lo) / (hi - lo) * 3.2 - 1.6), huge.push_back(std::ldexp(unit.back(), 1023));
  ASSERT_FALSE(std::isfinite(std::ldexp(3.2, 1023)));
  for (Discretization method : all)
    for (int m : {3, 6}) {
      std::vector<double> scaled = ClassBreaks(unit, method, m);
      for (double& b : scaled) b = std::ldexp(b, 1023);
      EXPECT_EQ(ClassBreaks(huge, method, m), scaled) << static_cast<int>(method) << " " << m;
    }
}
