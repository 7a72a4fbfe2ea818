#pragma once
// Sums that do not depend on the order of their terms: the exact sum of
// every term added, rounded once (to nearest, ties to even) when read.
// Partial sums of the same terms, taken in any grouping on any machine and
// merged, read as the same double; so the mean of a dataset split over
// workers is the mean one process computes, to the last bit.
//
// The exact sum is held as Shewchuk's non-overlapping expansion (the
// partials of "Adaptive precision floating-point arithmetic", 1997). For
// data of similar magnitude it stays two or three doubles long, so the
// partials live in the object and an addition is a few two-sums; a longer
// expansion moves to the heap.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "host/LumaArray.h"

namespace ZOC::detail {

class ExactSum {
 public:
  ExactSum() = default;
  ExactSum(const ExactSum& other) { *this = other; }
  ExactSum& operator=(const ExactSum& other);

  void Add(double term) {
    if (!std::isfinite(term)) return AddSpecial(term);
    // Two-sum of the term with each partial in turn, smallest first; the
    // non-zero round-off errors are the new partials.
    double* p = Data();
    std::size_t kept = 0;
    for (std::size_t k = 0; k < m_size; ++k) {
      double y = p[k];
      if (std::abs(term) < std::abs(y)) std::swap(term, y);
      const double high = term + y;
      const double low = y - (high - term);
      if (!std::isfinite(high)) return AddSpecial(high);  // the exact sum left the doubles
      if (low != 0.0) p[kept++] = low;
      term = high;
    }
    m_size = kept;
    Push(term);
  }
  // Adds another sum's exact value (its partials).
  void Add(const ExactSum& other);
  // The exact sum rounded to the nearest double; an infinite or NaN term
  // gives the IEEE sum of those terms.
  double Value() const;
  // The expansion: non-overlapping doubles of increasing magnitude whose
  // exact sum is the sum (and the infinite or NaN terms, when any).
  LUMA::LumaArray<double> Partials() const;

 private:
  static constexpr std::size_t kInline = 8;
  double* Data() { return m_heap.empty() ? m_inline : m_heap.data(); }
  const double* Data() const { return m_heap.empty() ? m_inline : m_heap.data(); }
  void Push(double term) {
    if (m_heap.empty() && m_size < kInline) {
      m_inline[m_size++] = term;
      return;
    }
    Grow(term);
  }
  void Grow(double term);
  void AddSpecial(double term) {
    m_special += term;
    m_anySpecial = true;
  }

  double m_inline[kInline] = {};
  std::vector<double> m_heap;  // the partials once there are more than kInline
  std::size_t m_size = 0;
  double m_special = 0.0;  // the sum of the infinite and NaN terms
  bool m_anySpecial = false;
};

// The correctly rounded sum of `terms`.
double SumExactly(const LUMA::LumaArray<double>& terms);

// For every i < n, on every core, the terms `add(i, sums)` adds to
// sums[0 .. count): exact sums merge in any order, so the bits do not depend
// on the threads.
void SumOnEveryCore(std::int64_t n, std::size_t count, const std::function<void(std::int64_t, ExactSum*)>& add,
                    ExactSum* sums);

// The powers of deviations the statistics share, each term rounded once as
// written here, so that every caller forms the same terms: Σ(x − c) and
// Σ(x − c)² (LowPowers), Σ(x − c)² and Σ(x − c)⁴ (HighPowers), or all three.
inline void LowPowers(double x, double centre, ExactSum& first, ExactSum& second) {
  const double d = x - centre;
  first.Add(d);
  second.Add(d * d);
}
inline void HighPowers(double x, double centre, ExactSum& second, ExactSum& fourth) {
  const double d = x - centre;
  const double d2 = d * d;
  second.Add(d2);
  fourth.Add(d2 * d2);
}
struct PowerSums {
  ExactSum first, second, fourth;
  void Add(double x, double centre) {
    LowPowers(x, centre, first, second);
    const double d = x - centre;
    fourth.Add((d * d) * (d * d));
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
