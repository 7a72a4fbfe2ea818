#include "StatisticsAnalyst/detail/common/ExactSum.h"

#include <cmath>
#include <utility>

namespace ZOC::detail {

void ExactSum::Add(double term) {
  if (!std::isfinite(term)) {
    m_special += term;
    m_anySpecial = true;
    return;
  }
  // Two-sum of the term with each partial in turn, smallest first; the
  // non-zero round-off errors are the new partials.
  std::size_t kept = 0;
  for (std::size_t k = 0; k < m_partials.size(); ++k) {
    double y = m_partials[k];
    if (std::abs(term) < std::abs(y)) std::swap(term, y);
    const double high = term + y;
    const double low = y - (high - term);
    if (!std::isfinite(high)) {  // the exact sum left the doubles: it reads as the overflow
      m_special += high;
      m_anySpecial = true;
      return;
    }
    if (low != 0.0) m_partials[kept++] = low;
    term = high;
  }
  m_partials.resize(kept);
  m_partials.push_back(term);
}

void ExactSum::Add(const ExactSum& other) {
  for (double p : other.m_partials) Add(p);
  if (other.m_anySpecial) {
    m_special += other.m_special;
    m_anySpecial = true;
  }
}

double ExactSum::Value() const {
  if (m_anySpecial) return m_special;
  std::size_t k = m_partials.size();
  if (k == 0) return 0.0;
  double high = m_partials[--k];
  double low = 0.0;
  // Add from the largest partial down until a round-off appears: what lies
  // below cannot change the rounding except to break a tie.
  while (k > 0) {
    const double x = high;
    const double y = m_partials[--k];
    high = x + y;
    low = y - (high - x);
    if (low != 0.0) break;
  }
  // A tie broken by the partials below: round half away from the even
  // result only when those partials push the same way as the round-off.
  if (k > 0 && ((low < 0.0 && m_partials[k - 1] < 0.0) || (low > 0.0 && m_partials[k - 1] > 0.0))) {
    const double y = low * 2.0;
    const double x = high + y;
    if (y == x - high) high = x;
  }
  return high;
}

std::vector<double> ExactSum::Partials() const {
  std::vector<double> out = m_partials;
  if (m_anySpecial) out.push_back(m_special);
  return out;
}

double SumExactly(const LUMA::LumaArray<double>& terms) {
  ExactSum sum;
  for (double t : terms) sum.Add(t);
  return sum.Value();
}

ValueMoments MomentsOf(const LUMA::LumaArray<double>& values) {
  ValueMoments m;
  m.count = static_cast<double>(values.size());
  PowerSums raw;
  for (double x : values) raw.Add(x, 0.0);
  m.mean = values.empty() ? 0.0 : raw.first.Value() / m.count;
  m.sumSquares = raw.second.Value();
  PowerSums centred;
  for (double x : values) centred.Add(x, m.mean);
  m.m2 = centred.second.Value();
  m.m4 = centred.fourth.Value();
  return m;
}

}  // namespace ZOC::detail
