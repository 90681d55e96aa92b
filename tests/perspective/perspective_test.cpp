// The perspective estimator: its sums under adding, copying and casting, the
// pivot rule of the solve, and a least-squares solution in double precision.
#include <sight/operator/detail/ldlt_solve.h>
#include <sight/perspective/perspective.h>

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace S = Korvane::Sight;
using pair = S::perspective::pair;

namespace {

bool same_bytes(auto const &a, auto const &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Element i of the 72 sums: the matrix column by column, then the vector.
float sum(S::perspective const &p, int i) { return i < 64 ? p.normal_matrix[i] : p.normal_vector[i - 64]; }

glm::vec2 apply(glm::mat3 const &m, glm::vec2 p) {
  glm::vec3 const q = m * glm::vec3(p, 1.0f);
  return {q.x / q.z, q.y / q.z};
}

// Columns: a mild shear, scale, shift and a visible perspective row.
glm::mat3 const warp(1.1f, -0.08f, 0.3f, 0.05f, 0.95f, -0.2f, 0.02f, -0.03f, 1.0f);

// Sources uniform in [-1, 1]², targets through `warp` plus uniform noise.
std::vector<pair> random_pairs(std::mt19937 &rng, int n, float noise) {
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  std::vector<pair> pairs;
  for (int i = 0; i < n; ++i) {
    glm::vec2 const s(unit(rng), unit(rng));
    pairs.push_back({s, apply(warp, s) + noise * glm::vec2(unit(rng), unit(rng))});
  }
  return pairs;
}

// Each set is fed with += and with other weights. Four pairs in general
// position, too few pairs and repeated or collinear pairs on one transform
// have exact solutions, and the cast must give one: u·z = x' and v·z = y'
// for every pair, with (x', y', z) the matrix times (x, y, 1). The last
// set's sources lie on one line and no transform reaches its targets.
TEST(perspective_test, any_set_casts_to_a_finite_matrix_that_solves_the_exact_ones) {
  glm::vec2 const s[4] = {{-1, -1}, {1.5f, -0.5f}, {0.8f, 1.2f}, {-0.7f, 0.9f}};
  std::vector<std::vector<pair>> const sets = {
      {{s[0], apply(warp, s[0])}, {s[1], apply(warp, s[1])}, {s[2], apply(warp, s[2])}, {s[3], apply(warp, s[3])}},
      {{{2, 3}, {4, 5}}},  {{{0, 0}, {1, 1}}, {{1, 0}, {2, 1}}, {{0, 1}, {1, 3}}},
      std::vector<pair>(6, {{0.5f, -0.25f}, {7, 9}}),
      {{{0, 0}, {0, 0}}, {{1, 1}, {2, 2}}, {{2, 2}, {4, 4}}, {{3, 3}, {6, 6}}, {{-4, -4}, {-8, -8}}},
      {{{0, 1}, {5, 1}}, {{1, 1}, {4, 2}}, {{2, 1}, {3, 0}}, {{3, 1}, {1, 7}}, {{900, 1}, {-3, 2}}},
  };
  for (std::size_t k = 0; k < sets.size(); ++k)
    for (glm::vec4 const weights : {glm::vec4(1), glm::vec4(0.25f, 2, 5, 1), glm::vec4(3, 0.5f, 8, 1)}) {
      S::perspective p;
      for (std::size_t i = 0; i < sets[k].size(); ++i)
        if (weights == glm::vec4(1)) p += sets[k][i]; else p.add(weights[i % 4], sets[k][i]);
      glm::mat3 const m = p;
      std::string const where = "set " + std::to_string(k) + ", weight " + std::to_string(weights.y);
      for (int i = 0; i < 9; ++i) EXPECT_TRUE(std::isfinite(m[i / 3][i % 3]) && m[2][2] == 1.0f) << where << ", entry " << i;
      for (std::size_t i = 0; k + 1 < sets.size() && i < sets[k].size(); ++i) {
        pair const &q = sets[k][i];
        glm::vec3 const r = m * glm::vec3(q.first, 1.0f);
        EXPECT_TRUE(std::abs(q.second.x * r.z - r.x) <= 1e-4f && std::abs(q.second.y * r.z - r.y) <= 1e-4f) << where << ", pair " << i;
      }
    }
}

// The sums start at zero (the cast then gives the corner matrix), add with
// += as with weight 1, with weight 2 as twice, not at all with weight 0, and
// back out with weight -1, writing the lower triangle only. Casts leave the
// sums alone; copies and assignments go their own ways; reset zeroes them.
TEST(perspective_test, sums_weights_copies_and_casts) {
  float const zero[72] = {};
  glm::mat3 corner(0.0f);
  corner[2][2] = 1.0f;
  std::mt19937 rng(7);
  auto const pairs = random_pairs(rng, 20, 0.05f);
  S::perspective plain, unit, twice, doubled, copied, assigned;
  EXPECT_TRUE(same_bytes(plain, zero) && glm::mat3(plain) == corner);
  glm::mat3 half;
  for (int i = 0; i < 20; ++i) {
    pair const &q = pairs[std::size_t(i)];
    plain += q, unit.add(1.0f, q), twice += q, twice += q, doubled.add(2.0f, q);
    if (i == 9) half = plain, copied = S::perspective(plain), assigned = plain;
  }
  EXPECT_TRUE(same_bytes(plain, unit) && same_bytes(glm::mat3(copied), half) && same_bytes(glm::mat3(assigned), half));
  assigned.reset();
  EXPECT_TRUE(same_bytes(assigned, zero) && glm::mat3(assigned) == corner);
  S::perspective const before = plain;
  plain.add(0.0f, pairs[3]);
  S::perspective taken = before;
  taken.add(-1.0f, pairs[5]);
  taken += pairs[5];
  auto const near = [](float a, float b) { return std::abs(a - b) <= 1e-5f * (1.0f + std::abs(b)); };
  for (int i = 0; i < 72; ++i) {
    float const b = sum(before, i), d = sum(doubled, i), t = sum(taken, i);
    bool const upper = i < 64 && i / 8 > i % 8;  // never written
    EXPECT_TRUE(sum(plain, i) == b && near(d, sum(twice, i)) && near(t, b) && (!upper || (d == 0.0f && t == 0.0f)))
        << "element " << i << ": weight 0 " << sum(plain, i) << ", 2 " << d << ", -1 " << t << ", before " << b;
  }
}

// Diagonal systems, where each unknown is b/d or 0 by the pivot rule.
TEST(perspective_test, pivots_at_or_below_the_relative_tolerance_give_zero) {
  float const eps = std::numeric_limits<float>::epsilon();
  struct row { Eigen::Vector4f d, b, x; } const rows[] = {
      {{1, 1e-9f, 2, 0.5f}, {1, 1, 1, 1}, {1, 0, 0.5f, 2}},
      {{4, eps * 4, 2 * eps * 4, -1}, {2, 3, 1, 5}, {0.5f, 0, 1 / (8 * eps), -5}},
      {{-8, 1e-6f, 0, 2}, {4, 1, 7, 1}, {-0.5f, 1e6f, 0, 0.5f}},
      {{2e-39f, 4e-39f, 0, 0}, {1, 1, 1, 1}, {0, 1 / 4e-39f, 0, 0}},
  };
  for (row const &r : rows) {
    Eigen::Vector4f const x = S::detail::ldlt_solve<4>(Eigen::Matrix4f(r.d.asDiagonal()), r.b);
    for (int i = 0; i < 4; ++i) EXPECT_FLOAT_EQ(x[i], r.x[i]) << "pivots " << r.d.transpose() << ", unknown " << i;
  }
}

// Weighted least squares on the 2n x 8 equations, solved by QR in double.
// Random sets of 16 and more pairs are well conditioned; four or five random
// points can lie close enough to a line to leave single precision behind.
TEST(perspective_test, random_sets_match_a_double_precision_solution) {
  for (int n : {16, 100, 2000})
    for (unsigned seed = 1; seed <= 4; ++seed) {
      std::mt19937 rng(seed);
      auto const pairs = random_pairs(rng, n, 0.01f);
      S::perspective p;
      Eigen::MatrixXd a(2 * n, 8);
      Eigen::VectorXd b(2 * n);
      for (int i = 0; i < n; ++i) {
        float const w = std::uniform_real_distribution<float>(0.5f, 2.0f)(rng);
        p.add(w, pairs[i]);
        double const x = pairs[i].first.x, y = pairs[i].first.y, u = pairs[i].second.x, v = pairs[i].second.y,
                     s = std::sqrt(double(w));
        a.row(2 * i) << s * x, s * y, s, 0, 0, 0, -s * u * x, -s * u * y;
        a.row(2 * i + 1) << 0, 0, 0, s * x, s * y, s, -s * v * x, -s * v * y;
        b.segment<2>(2 * i) << s * u, s * v;
      }
      Eigen::VectorXd const h = a.colPivHouseholderQr().solve(b);
      glm::mat3 const m = p;
      double const got[8] = {m[0][0], m[1][0], m[2][0], m[0][1], m[1][1], m[2][1], m[0][2], m[1][2]};
      for (int i = 0; i < 8; ++i)
        EXPECT_NEAR(got[i], h[i], 1e-4 * (1 + std::abs(h[i]))) << n << " pairs, seed " << seed << ", h" << i;
    }
}

}  // namespace
