// The perspective estimator: its sums under every way of adding, copying and
// casting, the pivot rule of the solve, and agreement with a least-squares
// solution computed independently in double precision.
#include <sight/operator/detail/ldlt_solve.h>
#include <sight/perspective/perspective.h>

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
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

TEST(perspective_test, fresh_and_reset_objects_hold_zero_sums_and_cast_to_the_bare_corner) {
  S::perspective p;
  float const zero[72] = {};
  EXPECT_TRUE(same_bytes(p, zero));
  glm::mat3 corner(0.0f);
  corner[2][2] = 1.0f;
  EXPECT_EQ(glm::mat3(p), corner);
  p.add(3.0f, {{1, 2}, {3, 4}});
  ASSERT_FALSE(same_bytes(p, zero));
  p.reset();
  EXPECT_TRUE(same_bytes(p, zero));
  EXPECT_EQ(glm::mat3(p), corner);
}

TEST(perspective_test, four_exact_pairs_give_the_transform_under_any_weights) {
  glm::vec2 const sources[4] = {{-1, -1}, {1.5f, -0.5f}, {0.8f, 1.2f}, {-0.7f, 0.9f}};
  for (auto const weights : {glm::vec4(1.0f), glm::vec4(0.25f, 2.0f, 5.0f, 1.0f), glm::vec4(3.0f, 0.5f, 8.0f, 1.0f)}) {
    S::perspective p;
    for (int i = 0; i < 4; ++i) {
      pair const q{sources[i], apply(warp, sources[i])};
      if (weights == glm::vec4(1.0f)) p += q; else p.add(weights[i], q);
    }
    glm::mat3 const m = p;
    EXPECT_EQ(m[2][2], 1.0f);
    for (glm::vec2 const s : sources) {
      glm::vec2 const t = apply(warp, s), got = apply(m, s);
      EXPECT_NEAR(got.x, t.x, 1e-4f) << "weights " << weights.x << " " << weights.y << " source " << s.x << " " << s.y;
      EXPECT_NEAR(got.y, t.y, 1e-4f) << "weights " << weights.x << " " << weights.y << " source " << s.x << " " << s.y;
    }
  }
}

// The first four sets have exact solutions (many of them), and the cast must
// pick one: both linear equations of every pair hold. The last has collinear
// sources with targets that no transform reaches.
TEST(perspective_test, too_few_repeated_or_collinear_pairs_still_cast_to_a_finite_matrix) {
  std::vector<std::vector<pair>> const sets = {
      {{{2, 3}, {4, 5}}},
      {{{0, 0}, {1, 1}}, {{1, 0}, {2, 1}}, {{0, 1}, {1, 3}}},
      std::vector<pair>(6, {{0.5f, -0.25f}, {7, 9}}),
      {{{0, 0}, {0, 0}}, {{1, 1}, {2, 2}}, {{2, 2}, {4, 4}}, {{3, 3}, {6, 6}}, {{-4, -4}, {-8, -8}}},
      {{{0, 1}, {5, 1}}, {{1, 1}, {4, 2}}, {{2, 1}, {3, 0}}, {{3, 1}, {1, 7}}, {{900, 1}, {-3, 2}}},
  };
  for (std::size_t k = 0; k < sets.size(); ++k) {
    S::perspective p;
    for (pair const &q : sets[k]) p += q;
    glm::mat3 const m = p;
    for (int c = 0; c < 3; ++c)
      for (int r = 0; r < 3; ++r) EXPECT_TRUE(std::isfinite(m[c][r])) << "set " << k << " column " << c << " row " << r;
    EXPECT_EQ(m[2][2], 1.0f) << "set " << k;
    for (pair const &q : sets[k]) {
      glm::vec3 const r = m * glm::vec3(q.first, 1.0f);  // u·r.z = r.x and v·r.z = r.y when exact
      if (k < 4) {
        EXPECT_NEAR(q.second.x * r.z, r.x, 1e-4f) << "set " << k << " source " << q.first.x << " " << q.first.y;
        EXPECT_NEAR(q.second.y * r.z, r.y, 1e-4f) << "set " << k << " source " << q.first.x << " " << q.first.y;
      }
    }
  }
}

TEST(perspective_test, weights_scale_a_pairs_share_and_only_the_lower_triangle_is_written) {
  std::mt19937 rng(7);
  auto const pairs = random_pairs(rng, 20, 0.05f);
  S::perspective plain, unit, twice, doubled;
  for (pair const &q : pairs) {
    plain += q;
    unit.add(1.0f, q);
    twice += q;
    twice += q;
    doubled.add(2.0f, q);
  }
  EXPECT_TRUE(same_bytes(plain, unit));
  S::perspective const before = plain;
  plain.add(0.0f, pairs[3]);
  S::perspective taken = before;
  taken.add(-1.0f, pairs[5]);
  taken += pairs[5];
  for (int i = 0; i < 72; ++i) {
    float const b = sum(before, i), t = sum(twice, i);
    EXPECT_EQ(sum(plain, i), b) << "weight 0, element " << i;
    EXPECT_NEAR(sum(doubled, i), t, 1e-5f * (1.0f + std::abs(t))) << "weight 2, element " << i;
    EXPECT_NEAR(sum(taken, i), b, 1e-5f * (1.0f + std::abs(b))) << "weight -1, element " << i;
    if (i < 64 && i / 8 > i % 8) {
      EXPECT_EQ(sum(doubled, i), 0.0f) << "upper element " << i;
    }
  }
}

TEST(perspective_test, copies_are_independent_and_casts_leave_the_sums_alone) {
  std::mt19937 rng(11);
  auto const first = random_pairs(rng, 10, 0.02f), second = random_pairs(rng, 10, 0.02f);
  S::perspective carried, all;
  for (pair const &q : first) carried += q, all += q;
  S::perspective copied(carried), assigned;
  assigned = carried;
  glm::mat3 const m1 = carried;
  EXPECT_TRUE(same_bytes(carried, all));
  EXPECT_TRUE(same_bytes(m1, glm::mat3(carried)));
  for (pair const &q : second) carried += q, all += q;
  EXPECT_TRUE(same_bytes(glm::mat3(carried), glm::mat3(all)));
  EXPECT_TRUE(same_bytes(glm::mat3(copied), m1));
  EXPECT_TRUE(same_bytes(glm::mat3(assigned), m1));
  assigned.reset();
  EXPECT_TRUE(same_bytes(glm::mat3(copied), m1));
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

class agreement_test : public ::testing::TestWithParam<int> {};

// Weighted least squares on the 2n x 8 equations, solved by QR in double. Random
// sets of 16 and more points are well conditioned; four or five random points
// can lie close enough to a line to leave single precision far behind.
TEST_P(agreement_test, matches_a_double_precision_solution) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    std::mt19937 rng(seed);
    auto const pairs = random_pairs(rng, GetParam(), 0.01f);
    std::uniform_real_distribution<float> weight(0.5f, 2.0f);
    S::perspective p;
    Eigen::MatrixXd a(2 * pairs.size(), 8);
    Eigen::VectorXd b(2 * pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
      float const w = weight(rng);
      p.add(w, pairs[i]);
      double const x = pairs[i].first.x, y = pairs[i].first.y, u = pairs[i].second.x, v = pairs[i].second.y;
      double const s = std::sqrt(double(w));
      a.row(2 * i) << s * x, s * y, s, 0, 0, 0, -s * u * x, -s * u * y;
      a.row(2 * i + 1) << 0, 0, 0, s * x, s * y, s, -s * v * x, -s * v * y;
      b.segment<2>(2 * i) << s * u, s * v;
    }
    Eigen::VectorXd const h = a.colPivHouseholderQr().solve(b);
    glm::mat3 const m = p;
    double const got[8] = {m[0][0], m[1][0], m[2][0], m[0][1], m[1][1], m[2][1], m[0][2], m[1][2]};
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(got[i], h[i], 1e-4 * (1 + std::abs(h[i]))) << "seed " << seed << ", h" << i;
  }
}

INSTANTIATE_TEST_SUITE_P(pairs, agreement_test, ::testing::Values(16, 100, 2000),
                         [](auto const &info) { return std::to_string(info.param) + "_pairs"; });

}  // namespace
