#include "host/ZoMatrix.h"

#include <Eigen/Dense>
#include <Eigen/SVD>

namespace ZOC {

struct ZoMatrix::Impl {
  Eigen::MatrixXd m;
};

ZoMatrix::ZoMatrix() : m_impl(std::make_unique<Impl>()) {}

ZoMatrix::ZoMatrix(int rows, int columns) : ZoMatrix() { ReInit(rows, columns); }

ZoMatrix::ZoMatrix(const ZoMatrix& other) : m_impl(std::make_unique<Impl>(*other.m_impl)) {}

ZoMatrix& ZoMatrix::operator=(const ZoMatrix& other) {
  if (this != &other) m_impl->m = other.m_impl->m;
  return *this;
}

// A moved-from matrix stays usable (empty), so moves swap rather than steal.
ZoMatrix::ZoMatrix(ZoMatrix&& other) noexcept : m_impl(std::make_unique<Impl>()) { m_impl.swap(other.m_impl); }

ZoMatrix& ZoMatrix::operator=(ZoMatrix&& other) noexcept {
  m_impl.swap(other.m_impl);
  return *this;
}

ZoMatrix::~ZoMatrix() = default;

void ZoMatrix::ReInit(int rows, int columns) {
  m_impl->m = Eigen::MatrixXd::Zero(rows > 0 ? rows : 0, columns > 0 ? columns : 0);
}

int ZoMatrix::GetRowCount() const { return static_cast<int>(m_impl->m.rows()); }

int ZoMatrix::GetColumnCount() const { return static_cast<int>(m_impl->m.cols()); }

double ZoMatrix::GetElement(int row, int column) const {
  const auto& m = m_impl->m;
  if (row < 0 || column < 0 || row >= m.rows() || column >= m.cols()) return 0.0;
  return m(row, column);
}

void ZoMatrix::PutElement(double value, int row, int column) {
  auto& m = m_impl->m;
  if (row < 0 || column < 0 || row >= m.rows() || column >= m.cols()) return;
  m(row, column) = value;
}

void ZoMatrix::TranMatrix(ZoMatrix& out) const {
  Eigen::MatrixXd t = m_impl->m.transpose();
  out.m_impl->m.swap(t);
}

bool ZoMatrix::MulMatrix(const ZoMatrix& other, ZoMatrix& out) const {
  if (m_impl->m.cols() != other.m_impl->m.rows()) return false;
  Eigen::MatrixXd product = m_impl->m * other.m_impl->m;
  out.m_impl->m.swap(product);
  return true;
}

bool ZoMatrix::QYResolve(ZoMatrix& u, ZoMatrix& v, double /*eps*/, int /*maxIterations*/) {
  auto& m = m_impl->m;
  if (m.size() == 0 || !m.allFinite()) return false;
  Eigen::JacobiSVD<Eigen::MatrixXd> svd(m, Eigen::ComputeFullU | Eigen::ComputeFullV);
  u.m_impl->m = svd.matrixU();
  v.m_impl->m = svd.matrixV();
  const Eigen::VectorXd& s = svd.singularValues();  // decreasing
  m.setZero();
  for (Eigen::Index k = 0; k < s.size(); ++k) m(k, k) = s(k);
  return true;
}

bool ZoMatrix::InvsMatrix() {
  auto& m = m_impl->m;
  if (m.rows() != m.cols() || !m.allFinite()) return false;
  if (m.size() == 0) return true;
  Eigen::FullPivLU<Eigen::MatrixXd> lu(m);
  if (!lu.isInvertible()) return false;
  Eigen::MatrixXd inverse = lu.inverse();
  if (!inverse.allFinite()) return false;
  m.swap(inverse);
  return true;
}

}  // namespace ZOC
