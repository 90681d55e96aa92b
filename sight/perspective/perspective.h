// Weighted least-squares estimate of the 3x3 projective transform that maps
// one set of plane points onto another.
//
// Each pair ((x, y), (u, v)) gives the two linear equations
//   u = h0·x + h1·y + h2 − h6·u·x − h7·u·y
//   v = h3·x + h4·y + h5 − h6·v·x − h7·v·y
// in the eight entries h0..h7 of the matrix (row by row, the ninth fixed at
// 1). The object sums their normal equations and nothing else, so memory and
// the cost of a solve do not depend on the number of pairs; a pair of weight
// w adds w times its squared residuals to the sum that is minimised. Points
// are taken as they come, without centring or scaling: coordinates in the
// thousands lose precision in the single-precision sums.
//
// Usage, from a host that tracks points across frames:
//   Korvane::Sight::perspective estimate;
//   for (auto const &[from, to] : matches) estimate += {from, to};
//   glm::mat3 const m = estimate;   // m * (x, y, 1) = (s·u, s·v, s)
//
// The cast solves afresh every time and leaves the sums as they are, so a
// host may cast between additions. A singular system (no pairs, fewer than
// four, collinear points) still casts to a finite matrix; the entry in
// column 2, row 2 is always exactly 1. One object serves one thread at a time.
#ifndef SIGHT_PERSPECTIVE_PERSPECTIVE_H_
#define SIGHT_PERSPECTIVE_PERSPECTIVE_H_

#include <glm/mat3x3.hpp>
#include <glm/vec2.hpp>

#include <utility>

#include <sight/frame/export.h>

namespace Korvane::Sight {

struct SIGHT_API perspective {
  // first: the source point (x, y); second: its target (u, v).
  using pair = std::pair<glm::vec2, glm::vec2>;

  // All sums zero.
  perspective();
  perspective(perspective const &other);
  perspective &operator=(perspective const &other);

  // All sums zero, as after construction.
  void reset();
  // Adds one pair with weight 1.
  void operator+=(pair const &p);
  // Adds one pair with the given weight; 0 adds nothing, a negative weight
  // takes a pair's share away again.
  void add(float weight, pair const &p);
  // Solves the normal equations; the sums stay unchanged.
  operator glm::mat3() const;

  // Sum of w·A·Aᵀ over the pairs, where the columns of the 8x2 matrix A are
  // the two equation rows: 8x8, column-major. Only the lower triangle,
  // diagonal included, is written and read; the strict upper triangle
  // stays 0.
  alignas(16) float normal_matrix[64];
  // Sum of the equation rows times their (weighted) right-hand sides.
  alignas(16) float normal_vector[8];

 private:
  // Copy construction and assignment both go through here.
  void assign(perspective const &other);
};

// The aligned members make the whole object 16-byte aligned.
static_assert(sizeof(perspective) == 72 * sizeof(float) && alignof(perspective) == 16);

}  // namespace Korvane::Sight

#endif  // SIGHT_PERSPECTIVE_PERSPECTIVE_H_
