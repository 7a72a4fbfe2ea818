// Exact sums: correctly rounded whatever the order and grouping of the terms,
// which is what lets a dataset split over processes give one process's mean.
#include "StatisticsAnalyst/detail/common/ExactSum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace {

using ZOC::detail::ExactSum;

double Sum(std::initializer_list<double> terms) {
  ExactSum s;
  for (double t : terms) s.Add(t);
  return s.Value();
}

TEST(ExactSum, RoundsTheExactSumOnce) {
  EXPECT_EQ(Sum({}), 0.0);
  // Cancellation that plain summation loses entirely.
  EXPECT_EQ(Sum({1e100, 1.0, -1e100, 1e-100, 1e50, -1.0, -1e50}), 1e-100);
  EXPECT_EQ(Sum({0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1}), 1.0);
  // 1 + 2^-53 is a tie (rounds to even, 1); a term far below breaks it upwards.
  EXPECT_EQ(Sum({1.0, std::ldexp(1.0, -53)}), 1.0);
  EXPECT_EQ(Sum({1.0, std::ldexp(1.0, -53), std::ldexp(1.0, -106)}), 1.0 + std::ldexp(1.0, -52));
  EXPECT_EQ(Sum({1.0, std::ldexp(1.0, -53), -std::ldexp(1.0, -106)}), 1.0);
  EXPECT_TRUE(std::isinf(Sum({1.0, std::numeric_limits<double>::infinity()})));
  EXPECT_TRUE(std::isnan(Sum({std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()})));
}

TEST(ExactSum, PartsMergedInAnyOrderGiveTheSameBits) {
  std::mt19937_64 random(7);
  std::lognormal_distribution<double> magnitude(0.0, 6.0);
  std::vector<double> terms(20000);
  for (double& t : terms) t = (random() & 1 ? -1 : 1) * magnitude(random);
  ExactSum whole;
  for (double t : terms) whole.Add(t);
  for (int trial = 0; trial < 5; ++trial) {
    std::shuffle(terms.begin(), terms.end(), random);
    const std::size_t cut = random() % terms.size();
    ExactSum first, second, merged;
    for (std::size_t i = 0; i < terms.size(); ++i) (i < cut ? first : second).Add(terms[i]);
    // Merged through the partials, as the parts of a distributed run are.
    for (double p : second.Partials()) merged.Add(p);
    merged.Add(first);
    EXPECT_EQ(merged.Value(), whole.Value());
  }
}

}  // namespace
