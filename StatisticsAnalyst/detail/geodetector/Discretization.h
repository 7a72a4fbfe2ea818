#pragma once
// Cutting a continuous field into classes, the strata the geographical
// detector compares. The methods and their conventions follow R's
// quantile(type = 7), seq(min, max, length.out = m + 1) and cut(), so a
// stratification can be reproduced there.
#include <vector>

namespace ZOC::detail::geodetector {

enum class Discretization {
  Quantile,           // R's quantile(x, (0:m)/m, type = 7)
  EqualInterval,      // m classes of equal width between the minimum and the maximum
  NaturalBreaks,      // Jenks: the exact least within-class sum of squares (optimal 1-D k-means)
  StandardDeviation,  // classes one sample standard deviation wide, the middle one centred on the mean
};

// The class limits of `values` (finite, at least one) cut into `classes`
// classes (2 to 30, checked by the caller). The breaks run from the smallest
// value to the largest and class h is (breaks[h], breaks[h+1]], the first one
// closed below too, so breaks.size() - 1 is the number of classes actually
// formed, which can be fewer than asked for.
//
// Breaks never repeat, with one exception: breaks[0] == breaks[1] means the
// first class holds the minimum alone. Quantile, equal-interval and
// standard-deviation limits are deduplicated as R's unique() does (quantiles
// 0, 0, 0, 1, 1 give [0, 1]: one class, as cut() makes of them), so the
// exception arises for them only when every value is the same ([v, v], one
// class). Natural breaks are [minimum, largest value of each class] and
// always form min(classes, distinct values) classes; the first class may be
// the minimum alone, and with no more distinct values than classes each
// distinct value d0 < d1 < ... is a class of its own: [d0, d0, d1, ...].
//
// Natural breaks take O(classes · d · log d) time over the d distinct values
// and 4 · classes · d bytes for the back-pointers.
std::vector<double> ClassBreaks(std::vector<double> values, Discretization method, int classes);

// The class of x for `breaks` from ClassBreaks: the h with breaks[h] < x <=
// breaks[h+1], x == breaks[0] in class 0 (R's cut(..., include.lowest = TRUE,
// right = TRUE)). Values below the first break go to the first class and
// values above the last to the last class; x must not be NaN.
int ClassOf(const std::vector<double>& breaks, double x);

}  // namespace ZOC::detail::geodetector
