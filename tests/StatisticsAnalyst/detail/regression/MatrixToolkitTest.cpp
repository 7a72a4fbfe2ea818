// The regression's matrix routines against Eigen's own decompositions.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <random>

#include "StatisticsAnalyst/detail/regression/MatrixToolkit.h"
#include "host/ZoMatrix.h"

namespace {

using ZOC::ZoMatrix;

ZoMatrix FromEigen(const Eigen::MatrixXd& m) {
  ZoMatrix out(static_cast<int>(m.rows()), static_cast<int>(m.cols()));
  for (int i = 0; i < m.rows(); ++i)
    for (int j = 0; j < m.cols(); ++j) out.PutElement(m(i, j), i, j);
  return out;
}

Eigen::MatrixXd ToEigen(const ZoMatrix& m) {
  Eigen::MatrixXd out(m.GetRowCount(), m.GetColumnCount());
  for (int i = 0; i < m.GetRowCount(); ++i)
    for (int j = 0; j < m.GetColumnCount(); ++j) out(i, j) = m.GetElement(i, j);
  return out;
}

Eigen::MatrixXd Random(int rows, int columns, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(-3.0, 3.0);
  Eigen::MatrixXd m(rows, columns);
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) m(i, j) = u(rng);
  return m;
}

TEST(MatrixToolkit, GaussJordanInverseMatchesEigenAndRefusesWhatCannotBeInverted) {
  for (unsigned seed : {1u, 2u, 3u}) {
    const Eigen::MatrixXd a = Random(6, 6, seed);
    ZoMatrix m = FromEigen(a), host = FromEigen(a);
    ASSERT_TRUE(ZOC::detail::regression::InvsMatrix(m));
    ASSERT_TRUE(host.InvsMatrix());
    EXPECT_LT((ToEigen(m) - a.inverse()).cwiseAbs().maxCoeff(), 1e-10);
    EXPECT_LT((ToEigen(host) - a.inverse()).cwiseAbs().maxCoeff(), 1e-10);
  }
  // Full pivoting inverts a matrix with a zero diagonal.
  Eigen::MatrixXd swap(2, 2);
  swap << 0, 1, 1, 0;
  ZoMatrix m = FromEigen(swap);
  ASSERT_TRUE(ZOC::detail::regression::InvsMatrix(m));
  EXPECT_EQ(ToEigen(m), swap);
  // After the first pivot of [[1, 2], [2, 4]] the remaining element is 0.
  Eigen::MatrixXd singular(2, 2);
  singular << 1, 2, 2, 4;
  m = FromEigen(singular);
  EXPECT_FALSE(ZOC::detail::regression::InvsMatrix(m));
  ZoMatrix host = FromEigen(singular);
  EXPECT_FALSE(host.InvsMatrix());
  EXPECT_EQ(ToEigen(host), singular);
  // The cut-off is on the pivot's size: 1e-21 is singular, 1e-19 is not.
  ZoMatrix tiny(1, 1);
  tiny.PutElement(1e-21, 0, 0);
  EXPECT_FALSE(ZOC::detail::regression::InvsMatrix(tiny));
  tiny.PutElement(1e-19, 0, 0);
  ASSERT_TRUE(ZOC::detail::regression::InvsMatrix(tiny));
  EXPECT_DOUBLE_EQ(tiny.GetElement(0, 0), 1e19);
  // Non-square matrices are refused untouched; an empty one is its own inverse.
  const Eigen::MatrixXd wide = Random(2, 3, 4);
  m = FromEigen(wide);
  EXPECT_FALSE(ZOC::detail::regression::InvsMatrix(m));
  EXPECT_EQ(ToEigen(m), wide);
  host = FromEigen(wide);
  EXPECT_FALSE(host.InvsMatrix());
  ZoMatrix empty;
  EXPECT_TRUE(ZOC::detail::regression::InvsMatrix(empty));
}

TEST(MatrixToolkit, CovarianceAndCorrelationOfRows) {
  const Eigen::MatrixXd x = Random(3, 20, 5);  // 3 variables, 20 observations
  const Eigen::MatrixXd d = x.colwise() - x.rowwise().mean();
  const Eigen::MatrixXd expected = d * d.transpose() / 19.0;
  ZoMatrix c, r;
  ZOC::detail::regression::cov(FromEigen(x), c);
  EXPECT_LT((ToEigen(c) - expected).cwiseAbs().maxCoeff(), 1e-12);
  ZOC::detail::regression::corroef(FromEigen(x), r);
  const Eigen::VectorXd s = expected.diagonal().cwiseSqrt();
  EXPECT_LT((ToEigen(r) - expected.cwiseQuotient(s * s.transpose())).cwiseAbs().maxCoeff(), 1e-12);
  // Identical rows correlate exactly 1, rounding clamped.
  Eigen::MatrixXd twin(2, 7);
  twin.row(0) << 0.1, 0.7, 0.3, 1.9, 2.2, 0.4, 0.9;
  twin.row(1) = twin.row(0);
  ZOC::detail::regression::corroef(FromEigen(twin), r);
  EXPECT_EQ(ToEigen(r), Eigen::MatrixXd::Ones(2, 2));
}

TEST(MatrixToolkit, JacobiEigenvaluesMatchEigenWithTheirOrderAndSignRules) {
  Eigen::MatrixXd a(2, 2);
  a << 2, 1, 1, 2;  // eigenvalues 3 and 1, vectors (1, 1)/√2 and (1, -1)/√2
  ZoMatrix m = FromEigen(a), vectors;
  LUMA::LumaArray<double> values;
  ASSERT_TRUE(ZOC::detail::regression::JacobiEigen(m, 1e-12, 100, vectors, values));
  ASSERT_EQ(values.size(), 2u);
  EXPECT_NEAR(values[0], 3.0, 1e-12);
  EXPECT_NEAR(values[1], 1.0, 1e-12);
  EXPECT_NEAR(std::fabs(vectors.GetElement(0, 0)), std::sqrt(0.5), 1e-12);
  EXPECT_NEAR(vectors.GetElement(0, 0), vectors.GetElement(1, 0), 1e-12);
  // The second vector's elements sum to 0 (not negative): kept as it is.
  EXPECT_NEAR(vectors.GetElement(0, 1) + vectors.GetElement(1, 1), 0.0, 1e-12);

  // A vector whose elements sum to a negative value comes back as all -1.
  Eigen::MatrixXd b(2, 2);
  b << 3, 0.5, 0.5, 1;
  m = FromEigen(b);
  ASSERT_TRUE(ZOC::detail::regression::JacobiEigen(m, 1e-14, 0, vectors, values));
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(b);
  EXPECT_NEAR(values[0], solver.eigenvalues()(1), 1e-12);
  EXPECT_NEAR(values[1], solver.eigenvalues()(0), 1e-12);
  bool sawMinusOnes = false;
  for (int k = 0; k < 2; ++k) {
    if (vectors.GetElement(0, k) == -1.0 && vectors.GetElement(1, k) == -1.0)
      sawMinusOnes = true;
    else
      EXPECT_GE(vectors.GetElement(0, k) + vectors.GetElement(1, k), 0.0);
  }
  EXPECT_TRUE(sawMinusOnes);

  // Rotations touch rows only, so beyond 2 × 2 the values are Eigen's where
  // the coupled pairs are isolated: here a diagonal 5 beside the block above.
  Eigen::MatrixXd c3(3, 3);
  c3 << 2, 0, 1, 0, 5, 0, 1, 0, 2;
  m = FromEigen(c3);
  ASSERT_TRUE(ZOC::detail::regression::JacobiEigen(m, 1e-13, 0, vectors, values));
  const Eigen::VectorXd expected = Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(c3).eigenvalues().reverse();
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(values[static_cast<std::size_t>(k)], expected(k), 1e-12) << k;
  EXPECT_EQ(vectors.GetElement(1, 0), 1.0);  // the 5 keeps its unit vector, moved to the front

  // A negative limit stops before any rotation: the diagonal, sorted.
  m = FromEigen(b);
  ASSERT_TRUE(ZOC::detail::regression::JacobiEigen(m, 1e-14, -1, vectors, values));
  EXPECT_EQ(values[0], 3.0);
  EXPECT_EQ(values[1], 1.0);
}

TEST(MatrixToolkit, SingularValuesAndConditionIndexMatchEigen) {
  const Eigen::MatrixXd a = Random(7, 3, 6);
  ZoMatrix m = FromEigen(a), u, v;
  ASSERT_TRUE(m.QYResolve(u, v, 1e-20, 8));
  ASSERT_EQ(u.GetRowCount(), 7);
  ASSERT_EQ(v.GetRowCount(), 3);
  const Eigen::JacobiSVD<Eigen::MatrixXd> svd(a);
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(m.GetElement(k, k), svd.singularValues()(k), 1e-12);
  EXPECT_GE(m.GetElement(0, 0), m.GetElement(1, 1));
  EXPECT_LT((ToEigen(u) * ToEigen(m) * ToEigen(v).transpose() - a).cwiseAbs().maxCoeff(), 1e-12);

  // Condition index: weighted rows, unit columns, largest over smallest singular value.
  LUMA::LumaArray<double> weights = {1, 2, 0.5, 3, 1, 1, 4};
  Eigen::MatrixXd z = a;
  for (int i = 0; i < 7; ++i) z.row(i) *= std::sqrt(weights[static_cast<std::size_t>(i)]);
  for (int j = 0; j < 3; ++j) z.col(j) /= z.col(j).norm();
  const Eigen::VectorXd s = Eigen::JacobiSVD<Eigen::MatrixXd>(z).singularValues();
  double index = 0;
  ASSERT_TRUE(ZOC::detail::regression::ConditionIndex(weights, FromEigen(a), index));
  EXPECT_NEAR(index, s(0) / s(2), 1e-10);
  weights.pop_back();
  EXPECT_FALSE(ZOC::detail::regression::ConditionIndex(weights, FromEigen(a), index));
  EXPECT_FALSE(ZOC::detail::regression::ConditionIndex({}, FromEigen(a), index));
}

}  // namespace
