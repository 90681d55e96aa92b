// The perspective estimator: normal equations summed pair by pair, solved on
// demand. Eigen works on the plain arrays of the object through aligned maps,
// so the public header needs none of it.
#include <sight/perspective/perspective.h>

#include <Eigen/Core>

#include <sight/operator/detail/ldlt_solve.h>

namespace Korvane::Sight {

namespace {

using matrix8 = Eigen::Matrix<float, 8, 8>;
using vector8 = Eigen::Matrix<float, 8, 1>;
// The members are 16-byte aligned, so the maps load and store whole vectors.
using matrix_map = Eigen::Map<matrix8, Eigen::Aligned16>;
using vector_map = Eigen::Map<vector8, Eigen::Aligned16>;
using const_matrix_map = Eigen::Map<matrix8 const, Eigen::Aligned16>;
using const_vector_map = Eigen::Map<vector8 const, Eigen::Aligned16>;

// Adds the pair's two equation rows: the rank-2 update of the lower triangle
// with factor w, and the rows times the right-hand sides ru and rv, which the
// caller has scaled or not.
void accumulate(float *normal_matrix, float *normal_vector, float w, perspective::pair const &p, float ru,
                float rv) {
  float const x = p.first.x, y = p.first.y;
  float const u = p.second.x, v = p.second.y;
  Eigen::Matrix<float, 8, 2> a;
  a.col(0) << x, y, 1.0f, 0.0f, 0.0f, 0.0f, -(u * x), -(u * y);
  a.col(1) << 0.0f, 0.0f, 0.0f, x, y, 1.0f, -(v * x), -(v * y);
  matrix_map{normal_matrix}.selfadjointView<Eigen::Lower>().rankUpdate(a, w);
  vector_map{normal_vector} += a.col(0) * ru + a.col(1) * rv;
}

}  // namespace

perspective::perspective() { reset(); }

perspective::perspective(perspective const &other) { assign(other); }

perspective &perspective::operator=(perspective const &other) {
  assign(other);
  return *this;
}

void perspective::assign(perspective const &other) {
  matrix_map{normal_matrix} = const_matrix_map{other.normal_matrix};
  vector_map{normal_vector} = const_vector_map{other.normal_vector};
}

void perspective::reset() {
  matrix_map{normal_matrix}.setZero();
  vector_map{normal_vector}.setZero();
}

void perspective::operator+=(pair const &p) {
  accumulate(normal_matrix, normal_vector, 1.0f, p, p.second.x, p.second.y);
}

void perspective::add(float weight, pair const &p) {
  accumulate(normal_matrix, normal_vector, weight, p, p.second.x * weight, p.second.y * weight);
}

perspective::operator glm::mat3() const {
  vector8 const h = detail::ldlt_solve<8>(const_matrix_map{normal_matrix}, const_vector_map{normal_vector});
  // glm takes columns: (h0, h3, h6), (h1, h4, h7), (h2, h5, 1).
  return glm::mat3(h[0], h[3], h[6], h[1], h[4], h[7], h[2], h[5], 1.0f);
}

}  // namespace Korvane::Sight
