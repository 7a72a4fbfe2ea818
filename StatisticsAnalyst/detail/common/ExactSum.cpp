#include "StatisticsAnalyst/detail/common/ExactSum.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>
#include <utility>

namespace ZOC::detail {

ExactSum& ExactSum::operator=(const ExactSum& other) {
  if (this == &other) return *this;
  m_heap = other.m_heap;
  std::copy(std::begin(other.m_inline), std::end(other.m_inline), std::begin(m_inline));
  m_size = other.m_size;
  m_special = other.m_special;
  m_anySpecial = other.m_anySpecial;
  return *this;
}

void ExactSum::Grow(double term) {
  if (m_heap.empty()) m_heap.assign(m_inline, m_inline + m_size);
  m_heap.resize(m_size);
  m_heap.push_back(term);
  ++m_size;
}

void ExactSum::Add(const ExactSum& other) {
  const double* p = other.Data();
  for (std::size_t k = 0; k < other.m_size; ++k) Add(p[k]);
  if (other.m_anySpecial) {
    m_special += other.m_special;
    m_anySpecial = true;
  }
}

double ExactSum::Value() const {
  if (m_anySpecial) return m_special;
  const double* partials = Data();
  std::size_t k = m_size;
  if (k == 0) return 0.0;
  double high = partials[--k];
  double low = 0.0;
  // Add from the largest partial down until a round-off appears: what lies
  // below cannot change the rounding except to break a tie.
  while (k > 0) {
    const double x = high;
    const double y = partials[--k];
    high = x + y;
    low = y - (high - x);
    if (low != 0.0) break;
  }
  // A tie broken by the partials below: round half away from the even
  // result only when those partials push the same way as the round-off.
  if (k > 0 && ((low < 0.0 && partials[k - 1] < 0.0) || (low > 0.0 && partials[k - 1] > 0.0))) {
    const double y = low * 2.0;
    const double x = high + y;
    if (y == x - high) high = x;
  }
  return high;
}

LUMA::LumaArray<double> ExactSum::Partials() const {
  LUMA::LumaArray<double> out(Data(), Data() + m_size);
  if (m_anySpecial) out.push_back(m_special);
  return out;
}

double SumExactly(const LUMA::LumaArray<double>& terms) {
  ExactSum sum;
  for (double t : terms) sum.Add(t);
  return sum.Value();
}

void SumOnEveryCore(std::int64_t n, std::size_t count, const std::function<void(std::int64_t, ExactSum*)>& add,
                    ExactSum* sums) {
  bool outOfMemory = false;  // an exception must not leave the parallel region
#pragma omp parallel
  {
    std::vector<ExactSum> mine(count);
#pragma omp for schedule(static) nowait
    for (std::int64_t i = 0; i < n; ++i) {
      try {
        add(i, mine.data());
      } catch (...) {
#pragma omp atomic write
        outOfMemory = true;
      }
    }
#pragma omp critical(sa_exact_sum_merge)
    {
      try {
        for (std::size_t k = 0; k < count; ++k) sums[k].Add(mine[k]);
      } catch (...) {
        outOfMemory = true;
      }
    }
  }
  if (outOfMemory) throw std::bad_alloc();
}

ValueMoments MomentsOf(const LUMA::LumaArray<double>& values) {
  ValueMoments m;
  m.count = static_cast<double>(values.size());
  const auto n = static_cast<std::int64_t>(values.size());
  ExactSum raw[2];  // Σx, Σx²
  SumOnEveryCore(
      n, 2, [&](std::int64_t i, ExactSum* s) { LowPowers(values[static_cast<std::size_t>(i)], 0.0, s[0], s[1]); }, raw);
  m.mean = values.empty() ? 0.0 : raw[0].Value() / m.count;
  m.sumSquares = raw[1].Value();
  ExactSum centred[2];  // Σ(x − mean)², Σ(x − mean)⁴
  SumOnEveryCore(
      n, 2, [&](std::int64_t i, ExactSum* s) { HighPowers(values[static_cast<std::size_t>(i)], m.mean, s[0], s[1]); },
      centred);
  m.m2 = centred[0].Value();
  m.m4 = centred[1].Value();
  return m;
}

}  // namespace ZOC::detail
