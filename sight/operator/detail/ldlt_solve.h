// Solve of a small symmetric system a·x = b in single precision by an LDLT
// factorisation with diagonal pivoting, in which small pivots count as zero
// so that a singular or rank-deficient system still gives a finite x.
//
// Only the lower triangle of `a`, diagonal included, is read. P·a·Pᵀ =
// L·D·Lᵀ comes from Eigen's LDLT; the steps of the solve are written here:
//   x = P·b, x = L⁻¹·x, x[i] = x[i] / d[i] or 0, x = L⁻ᵀ·x, x = Pᵀ·x.
// A pivot d[i] with |d[i]| <= max(max|d| · float epsilon, 1 / float max)
// gives 0 in the diagonal step. Eigen's own LDLT::solve is not used because
// its rule is different (from Eigen 3.3 on it zeroes only pivots below the
// smallest normal float and divides by every larger one, however small
// beside the largest pivot), which turns a nearly singular system into huge
// or non-finite answers.
//
// Fixed sizes only: nothing is allocated on the heap.
#ifndef SIGHT_OPERATOR_DETAIL_LDLT_SOLVE_H_
#define SIGHT_OPERATOR_DETAIL_LDLT_SOLVE_H_

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Korvane::Sight::detail {

template <int N, typename Symmetric, typename Vector>
Eigen::Matrix<float, N, 1> ldlt_solve(Eigen::MatrixBase<Symmetric> const &a,
                                      Eigen::MatrixBase<Vector> const &b) {
  static_assert(Symmetric::RowsAtCompileTime == N && Symmetric::ColsAtCompileTime == N);
  static_assert(Vector::RowsAtCompileTime == N && Vector::ColsAtCompileTime == 1);
  Eigen::LDLT<Eigen::Matrix<float, N, N>, Eigen::Lower> const ldlt(a);

  Eigen::Matrix<float, N, 1> x = ldlt.transpositionsP() * b;
  ldlt.matrixL().solveInPlace(x);

  auto const d = ldlt.vectorD();
  float const tolerance = std::max(d.cwiseAbs().maxCoeff() * std::numeric_limits<float>::epsilon(),
                                   1.0f / std::numeric_limits<float>::max());
  for (int i = 0; i < N; ++i) x[i] = std::abs(d[i]) > tolerance ? x[i] / d[i] : 0.0f;

  ldlt.matrixU().solveInPlace(x);
  return ldlt.transpositionsP().transpose() * x;
}

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OPERATOR_DETAIL_LDLT_SOLVE_H_
