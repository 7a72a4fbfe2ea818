#pragma once
// Sums that do not depend on the order of their terms: the exact sum of
// every term added, rounded once (to nearest, ties to even) when read.
// Partial sums of the same terms, taken in any grouping on any machine and
// merged, read as the same double; so the mean of a dataset split over
// workers is the mean one process computes, to the last bit.
//
// The exact sum is held as Shewchuk's non-overlapping expansion (the
// partials of "Adaptive precision floating-point arithmetic", 1997), which
// for data of similar magnitude stays two or three doubles long.
#include <vector>

#include "host/LumaArray.h"

namespace ZOC::detail {

class ExactSum {
 public:
  void Add(double term);
  // Adds another sum's exact value (its partials).
  void Add(const ExactSum& other);
  // The exact sum rounded to the nearest double; an infinite or NaN term
  // gives the IEEE sum of those terms.
  double Value() const;
  // The expansion: non-overlapping doubles of increasing magnitude whose
  // exact sum is the sum (and the infinite or NaN terms, when any).
  std::vector<double> Partials() const;

 private:
  std::vector<double> m_partials;
  double m_special = 0.0;  // the sum of the infinite and NaN terms
  bool m_anySpecial = false;
};

// The correctly rounded sum of `terms`.
double SumExactly(const LUMA::LumaArray<double>& terms);

// The powers of deviations every statistic over values shares, summed
// exactly: Σ(x − c), Σ(x − c)², Σ(x − c)⁴, each term rounded once as
// written here, so that every caller forms the same terms.
struct PowerSums {
  ExactSum first, second, fourth;
  void Add(double x, double centre) {
    const double d = x - centre;
    const double d2 = d * d;
    first.Add(d);
    second.Add(d2);
    fourth.Add(d2 * d2);
  }
};

// The moments of a set of values that the statistics share, summed exactly
// (so a dataset split over processes gives the same bits, see
// ZoPatternsInformation's partition record).
struct ValueMoments {
  double count = 0;       // number of values
  double mean = 0;        // Σx / n
  double sumSquares = 0;  // Σx²
  double m2 = 0, m4 = 0;  // Σ(x − mean)², Σ(x − mean)⁴
};
ValueMoments MomentsOf(const LUMA::LumaArray<double>& values);

}  // namespace ZOC::detail
