#pragma once
// ZoMatrix: the host's dense matrix of doubles, stored in column-major order.
//
// Element access is bounds-checked: GetElement outside the matrix reads 0.0
// and PutElement outside it is ignored, so a caller's index arithmetic can
// never touch memory it does not own.
#include <memory>
#include "host/HostExport.h"

namespace ZOC {

class SA_HOST_API ZoMatrix {
 public:
  ZoMatrix();
  // rows × columns zeros; a negative size counts as 0.
  ZoMatrix(int rows, int columns);
  ZoMatrix(const ZoMatrix& other);
  ZoMatrix& operator=(const ZoMatrix& other);
  ZoMatrix(ZoMatrix&& other) noexcept;
  ZoMatrix& operator=(ZoMatrix&& other) noexcept;
  ~ZoMatrix();

  // Resizes to rows × columns zeros.
  void ReInit(int rows, int columns);
  int GetRowCount() const;
  int GetColumnCount() const;
  double GetElement(int row, int column) const;
  void PutElement(double value, int row, int column);

  // out = the transpose of this matrix.
  void TranMatrix(ZoMatrix& out) const;
  // out = this × other; false (out untouched) when the inner sizes differ.
  bool MulMatrix(const ZoMatrix& other, ZoMatrix& out) const;
  // Singular value decomposition A = U·S·Vᵀ in place: this n × p matrix
  // becomes S (the singular values in decreasing order along its diagonal,
  // zeros elsewhere), U is n × n and V is p × p. The decomposition converges
  // on its own (a one-sided Jacobi method); eps and maxIterations are
  // accepted for the host interface and bound nothing. False, with nothing
  // changed, for an empty matrix or one holding a non-finite element.
  bool QYResolve(ZoMatrix& u, ZoMatrix& v, double eps, int maxIterations);
  // Inverts a square matrix in place through an LU decomposition with full
  // pivoting. False, with nothing changed, when the matrix is not square,
  // holds a non-finite element or is numerically singular (rank deficient).
  bool InvsMatrix();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace ZOC
