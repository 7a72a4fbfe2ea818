#include "StatisticsAnalyst/detail/regression/MatrixToolkit.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace ZOC::detail::regression {

namespace {

void SwapRows(ZoMatrix& a, int r1, int r2) {
  for (int j = 0; j < a.GetColumnCount(); ++j) {
    const double t = a.GetElement(r1, j);
    a.PutElement(a.GetElement(r2, j), r1, j);
    a.PutElement(t, r2, j);
  }
}

void SwapColumns(ZoMatrix& a, int c1, int c2) {
  for (int i = 0; i < a.GetRowCount(); ++i) {
    const double t = a.GetElement(i, c1);
    a.PutElement(a.GetElement(i, c2), i, c1);
    a.PutElement(t, i, c2);
  }
}

// One elimination step of the Gauss–Jordan inverse around pivot (k, k).
void Eliminate(ZoMatrix& a, int n, int k) {
  const double pivot = 1.0 / a.GetElement(k, k);
  a.PutElement(pivot, k, k);
  for (int j = 0; j < n; ++j)
    if (j != k) a.PutElement(a.GetElement(k, j) * pivot, k, j);
  for (int i = 0; i < n; ++i) {
    if (i == k) continue;
    const double aik = a.GetElement(i, k);
    for (int j = 0; j < n; ++j)
      if (j != k) a.PutElement(a.GetElement(i, j) - aik * a.GetElement(k, j), i, j);
  }
  for (int i = 0; i < n; ++i)
    if (i != k) a.PutElement(-a.GetElement(i, k) * pivot, i, k);
}

// One Jacobi rotation that zeroes a(p,q); rows p and q only.
void Rotate(ZoMatrix& a, int n, int p, int q, ZoMatrix& vectors) {
  const double app = a.GetElement(p, p), apq = a.GetElement(p, q), aqq = a.GetElement(q, q);
  const double phi = 0.5 * std::atan2(-2.0 * apq, aqq - app);
  const double s = std::sin(phi), c = std::cos(phi);
  a.PutElement(s * s * aqq + c * c * app + 2.0 * apq * c * s, p, p);
  a.PutElement(c * c * aqq + s * s * app - 2.0 * apq * c * s, q, q);
  a.PutElement(std::sin(2.0 * phi) * (aqq - app) / 2.0 + std::cos(2.0 * phi) * apq, p, q);
  // Row p·n is outside the matrix for p ≥ 1, where the host reads 0: the
  // mirrored element ends at zero either way.
  a.PutElement(a.GetElement(p * n, q), q, p);
  for (int j = 0; j < n; ++j) {
    if (j == p || j == q) continue;
    const double t = a.GetElement(p, j);
    a.PutElement(c * t + s * a.GetElement(q, j), p, j);
    a.PutElement(c * a.GetElement(q, j) - s * t, q, j);
  }
  for (int i = 0; i < vectors.GetRowCount(); ++i) {
    const double t = vectors.GetElement(i, p);
    vectors.PutElement(c * t + s * vectors.GetElement(i, q), i, p);
    vectors.PutElement(c * vectors.GetElement(i, q) - s * t, i, q);
  }
}

// Orders the eigenpairs by decreasing value and fixes the sign convention.
void SortEigenpairs(const ZoMatrix& a, int n, ZoMatrix& vectors, LUMA::LumaArray<double>& values) {
  std::vector<std::pair<double, int>> pairs(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) pairs[static_cast<std::size_t>(i)] = {a.GetElement(i, i), i};
  std::sort(pairs.begin(), pairs.end(), [](const auto& x, const auto& y) { return x.first > y.first; });
  const ZoMatrix old = vectors;
  for (int k = 0; k < n; ++k) {
    values[static_cast<std::size_t>(k)] = pairs[static_cast<std::size_t>(k)].first;
    for (int i = 0; i < n; ++i) vectors.PutElement(old.GetElement(i, pairs[static_cast<std::size_t>(k)].second), i, k);
  }
  for (int k = 0; k < n; ++k) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += vectors.GetElement(i, k);
    if (sum < 0.0)
      for (int i = 0; i < n; ++i) vectors.PutElement(-1.0, i, k);
  }
}

}  // namespace

bool InvsMatrix(ZoMatrix& a) {
  const int n = a.GetRowCount();
  if (n != a.GetColumnCount()) return false;
  std::vector<int> r(static_cast<std::size_t>(n)), c(static_cast<std::size_t>(n));
  for (int k = 0; k < n; ++k) {
    double largest = 0.0;
    int pr = k, pc = k;
    for (int i = k; i < n; ++i)
      for (int j = k; j < n; ++j)
        if (std::fabs(a.GetElement(i, j)) > largest) largest = std::fabs(a.GetElement(i, j)), pr = i, pc = j;
    r[static_cast<std::size_t>(k)] = pr, c[static_cast<std::size_t>(k)] = pc;
    // Written so that NaN, which compares false, fails too.
    if (!(largest >= 1e-20)) return false;
    if (pr != k) SwapRows(a, k, pr);
    if (pc != k) SwapColumns(a, k, pc);
    Eliminate(a, n, k);
  }
  for (int k = n - 1; k >= 0; --k) {
    if (c[static_cast<std::size_t>(k)] != k) SwapRows(a, k, c[static_cast<std::size_t>(k)]);
    if (r[static_cast<std::size_t>(k)] != k) SwapColumns(a, k, r[static_cast<std::size_t>(k)]);
  }
  return true;
}

void cov(const ZoMatrix& x, ZoMatrix& c) {
  const int n = x.GetRowCount(), p = x.GetColumnCount();
  std::vector<double> mean(static_cast<std::size_t>(n), 0.0), d(mean.size());
  for (int i = 0; i < n; ++i) {
    double sum = 0.0;
    for (int j = 0; j < p; ++j) sum += x.GetElement(i, j);
    mean[static_cast<std::size_t>(i)] = sum / p;
  }
  // One observation (column) at a time: the deviations are never held as a
  // matrix, so a million observations cost no copies of the data.
  std::vector<double> sums(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), 0.0);
  for (int j = 0; j < p; ++j) {
    for (int i = 0; i < n; ++i) d[static_cast<std::size_t>(i)] = x.GetElement(i, j) - mean[static_cast<std::size_t>(i)];
    for (int a = 0; a < n; ++a)
      for (int b = a; b < n; ++b) sums[static_cast<std::size_t>(a) * n + b] += d[a] * d[b];
  }
  c.ReInit(n, n);
  const double scale = 1.0 / (p - 1);
  for (int a = 0; a < n; ++a)
    for (int b = a; b < n; ++b) {
      const double v = sums[static_cast<std::size_t>(a) * n + b] * scale;
      c.PutElement(v, a, b), c.PutElement(v, b, a);
    }
}

void corroef(const ZoMatrix& x, ZoMatrix& r) {
  ZoMatrix c;
  cov(x, c);
  const int rows = c.GetRowCount(), columns = c.GetColumnCount();
  std::vector<double> s;
  for (int k = 0; k < rows && k < columns; ++k) s.push_back(std::sqrt(c.GetElement(k, k)));
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) c.PutElement(c.GetElement(i, j) / s[static_cast<std::size_t>(j)], i, j);
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) c.PutElement(c.GetElement(i, j) / s[static_cast<std::size_t>(i)], i, j);
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) c.PutElement(std::clamp(c.GetElement(i, j), -1.0, 1.0), i, j);
  r = c;
}

bool JacobiEigen(ZoMatrix& a, double eps, int limit, ZoMatrix& vectors, LUMA::LumaArray<double>& values) {
  const int n = a.GetRowCount();
  vectors.ReInit(n, n);
  for (int i = 0; i < n; ++i) vectors.PutElement(1.0, i, i);
  values.assign(static_cast<std::size_t>(n), 0.0);
  // The limit does not bound the rotations; this guard only stops a matrix
  // whose rotations never settle from running forever.
  const long long guard = 1000LL * (static_cast<long long>(n) * n + 1);
  for (long long rotations = 0;; ++rotations) {
    double largest = a.GetElement(0, 1);
    int p = 0, q = 1;
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j)
        if (i != j && std::fabs(a.GetElement(i, j)) > largest) largest = std::fabs(a.GetElement(i, j)), p = i, q = j;
    if (eps > largest || limit < 0) break;
    if (!std::isfinite(largest) || rotations >= guard) return false;
    Rotate(a, n, p, q, vectors);
  }
  SortEigenpairs(a, n, vectors, values);
  return true;
}

bool ConditionIndex(const LUMA::LumaArray<double>& weights, const ZoMatrix& x, double& index) {
  const int n = x.GetRowCount(), p = x.GetColumnCount();
  if (weights.empty() || weights.size() != static_cast<std::size_t>(n)) return false;
  ZoMatrix z(n, p);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < p; ++j)
      z.PutElement(x.GetElement(i, j) * std::sqrt(weights[static_cast<std::size_t>(i)]), i, j);
  for (int j = 0; j < p; ++j) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += z.GetElement(i, j) * z.GetElement(i, j);
    const double norm = std::sqrt(sum);
    for (int i = 0; i < n; ++i) z.PutElement(z.GetElement(i, j) / norm, i, j);
  }
  ZoMatrix u(n, n), v(p, p);
  z.QYResolve(u, v, 1e-20, n + 1);
  index = z.GetElement(0, 0) / z.GetElement(p - 1, p - 1);
  return true;
}

}  // namespace ZOC::detail::regression
