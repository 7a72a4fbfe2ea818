#pragma once
// The regression's own dense-matrix routines over the host matrix. Every
// element is read and written through GetElement / PutElement; the matrices
// are the regressions' small ones (one row and column per parameter).
#include "host/LumaArray.h"
#include "host/ZoMatrix.h"

namespace ZOC::detail::regression {

// Gauss–Jordan inversion in place with full pivoting. The pivot of step k is
// the first largest |a(i,j)| over i, j ≥ k (rows outer, columns inner; only
// a strictly larger value replaces it). False for a non-square matrix
// (unchanged) or a pivot below 1e-20 (left part-way transformed).
bool InvsMatrix(ZoMatrix& a);
// Covariance of the rows of x (variables as rows, observations as columns),
// divided by columns − 1. One column divides by zero: nothing guards it.
void cov(const ZoMatrix& x, ZoMatrix& c);
// Correlation of the rows of x, each element clamped to [-1, 1].
void corroef(const ZoMatrix& x, ZoMatrix& r);
// Cyclic Jacobi rotations on the symmetric matrix a (overwritten) until the
// largest off-diagonal magnitude falls below eps or limit is negative;
// values in decreasing order, vectors as columns. A column whose sum is
// negative is returned as all -1. False when the pivot is not finite or
// the rotations do not settle (a guard: the limit itself is never counted).
bool JacobiEigen(ZoMatrix& a, double eps, int limit, ZoMatrix& vectors, LUMA::LumaArray<double>& values);
// The largest singular value of diag(sqrt(weights))·x, its columns scaled to
// unit length, over the smallest. False when weights is empty or its length
// differs from x's row count.
bool ConditionIndex(const LUMA::LumaArray<double>& weights, const ZoMatrix& x, double& index);

}  // namespace ZOC::detail::regression
