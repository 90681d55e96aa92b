// The fit of a region's moments to a box, on moments of uniformly filled
// boxes given in the coordinates of the result.
#include <cmath>
#include <limits>
#include <sstream>
#include <tuple>
#include <string>

#include <gtest/gtest.h>

#include "tracker_access.h"

namespace Korvane::Sight {
namespace {

using access = object_tracking_test_access;
using moments = object_tracking::moments_type;

constexpr double kPi = 3.14159265358979323846;

// Moments of mass `m` spread uniformly over a box with half-lengths p, q,
// turned by `angle` (degrees) about (cx, cy): variance p * p / 3 along it.
moments box_moments(double m, double cx, double cy, double p, double q, double angle) {
  double const c = std::cos(angle * kPi / 180), s = std::sin(angle * kPi / 180);
  double const vp = p * p / 3, vq = q * q / 3;
  double const vxx = c * c * vp + s * s * vq, vyy = s * s * vp + c * c * vq, vxy = c * s * (vp - vq);
  return {float(m * cx),          float(m * cy),          float(m), 0, float(m * (vxx + cx * cx)),
          float(m * (vyy + cy * cy)), float(m * (vxy + cx * cy)), 0};
}

double length(glm::vec2 v) { return std::hypot(double(v.x), double(v.y)); }

// track_rotation, track_size, track_aspect, angle of the blob.
class fit_test : public ::testing::TestWithParam<std::tuple<bool, bool, bool, double>> {};

std::string fit_case_name(::testing::TestParamInfo<fit_test::ParamType> const &info) {
  auto const [r, s, a, angle] = info.param;
  std::ostringstream name;
  name << (r ? "turning" : "upright") << (s ? "_any_size" : "_fixed_size") << (a ? "_any_aspect" : "_fixed_aspect")
       << "_" << int(angle);
  return name.str();
}

TEST_P(fit_test, box_follows_the_blob_within_the_constraints) {
  auto const [rotation, size, aspect, angle] = GetParam();
  object_tracking t;
  t.constraints().track_rotation() = rotation;
  t.constraints().track_size() = size;
  t.constraints().track_aspect() = aspect;
  t.constraints().size() = 0.5f;
  double const p = 0.6, q = 0.2;
  object_tracking_info info;
  access::fit_object(t, info, box_moments(5000, 0.3, -0.2, p, q, angle));
  ASSERT_EQ(info.object_detected(), 1);
  EXPECT_NEAR(info.centre().x, 0.3, 1e-5);
  EXPECT_NEAR(info.centre().y, -0.2, 1e-5);
  glm::vec2 const x = info.x_axis(), y = info.y_axis();
  EXPECT_GE(y.y * x.x - x.y * y.x, 0.0f) << "mirrored";
  if (!rotation) {
    EXPECT_EQ(x.y, 0.0f);
    EXPECT_EQ(y.x, 0.0f);
  } else {
    // Along the blob, with a positive x component after a fresh start.
    double const a = angle * kPi / 180;
    EXPECT_NEAR(std::fabs(x.x * std::sin(a) - x.y * std::cos(a)) / length(x), 0.0, 1e-4);
    EXPECT_GT(x.x, -1e-6f);
  }
  if (!size) {
    EXPECT_NEAR(length(y), 0.5, 1e-6);
  }
  if (!aspect) {
    EXPECT_NEAR(length(x) / length(y), 16.0 / 9.0, 1e-5);
  }
  if (rotation && size && aspect) {
    EXPECT_NEAR(length(x), p, 1e-4);
    EXPECT_NEAR(length(y), q, 1e-4);
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, fit_test,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool(),
                                            ::testing::Values(0.0, 30.0, 100.0, 160.0)),
                         fit_case_name);

TEST(fit_edge_test, minimum_mass_is_found_and_anything_lighter_is_not) {
  object_tracking t;
  access::minimum_mass(t) = 1000.0f;
  object_tracking_info info;
  access::fit_object(t, info, box_moments(1000, 0.1, 0.1, 0.3, 0.2, 20));
  EXPECT_EQ(info.object_detected(), 1);
  access::fit_object(t, info, box_moments(std::nextafter(1000.0f, 0.0f), 0.1, 0.1, 0.3, 0.2, 20));
  EXPECT_EQ(info.object_detected(), 2);
  EXPECT_EQ(info.centre(), glm::vec2(0.0f));
  EXPECT_EQ(info.x_axis(), glm::vec2(0.0f));
  EXPECT_EQ(info.y_axis(), glm::vec2(0.0f));
  EXPECT_EQ(access::previous_x_axis(t), glm::vec2(1.0f, 0.0f));
}

TEST(fit_edge_test, a_length_of_exactly_zero_is_not_found) {
  // A horizontal line: no spread in y. Only with a free aspect does q stay 0.
  object_tracking t;
  t.constraints().track_aspect() = true;
  t.constraints().track_rotation() = false;
  object_tracking_info info;
  access::fit_object(t, info, {0, 0, 500, 0, 100, 0, 0, 0});
  EXPECT_EQ(info.object_detected(), 2);
  t.constraints().track_aspect() = false;
  access::fit_object(t, info, {0, 0, 500, 0, 100, 0, 0, 0});
  EXPECT_EQ(info.object_detected(), 1);
}

TEST(fit_edge_test, equal_variances_give_nan_axes_that_disarm_the_sign_test) {
  object_tracking t;
  object_tracking_info info;
  moments const round = {0, 0, 800, 0, 40, 40, 0, 0};
  access::fit_object(t, info, round);
  EXPECT_EQ(info.object_detected(), 1);
  EXPECT_TRUE(std::isnan(info.x_axis().x) && std::isnan(info.y_axis().y));
  EXPECT_TRUE(std::isnan(access::previous_x_axis(t).x));

  // A blob at 100 degrees: its eigenvector points up and to the left. With
  // (1, 0) as the last axis it is turned round; after the NaN it is not.
  moments const tilted = box_moments(800, 0, 0, 0.5, 0.1, 100);
  access::fit_object(t, info, tilted);
  EXPECT_LT(info.x_axis().x, 0.0f);
  object_tracking fresh;
  access::fit_object(fresh, info, tilted);
  EXPECT_GT(info.x_axis().x, 0.0f);

  // Upright boxes need no eigenvectors: the same round blob is a normal box.
  t.constraints().track_rotation() = false;
  access::fit_object(t, info, round);
  double const a = 16.0 / 9.0;
  EXPECT_EQ(info.object_detected(), 1);
  EXPECT_NEAR(info.y_axis().y, std::sqrt(3 * 0.05) * std::sqrt(a * a + 1) / std::sqrt(a * a * a * a + 1), 1e-6);
  EXPECT_NEAR(info.x_axis().x, a * info.y_axis().y, 1e-6);
  EXPECT_EQ(access::previous_x_axis(t), glm::vec2(1.0f, 0.0f));
}

TEST(fit_edge_test, a_slow_turn_keeps_the_direction_and_a_jump_flips_it) {
  object_tracking t;
  object_tracking_info info;
  glm::vec2 last(1.0f, 0.0f);
  for (int angle = 0; angle <= 360; angle += 5) {
    access::fit_object(t, info, box_moments(800, 0, 0, 0.5, 0.1, angle));
    double const a = angle * kPi / 180;
    double const along = (info.x_axis().x * std::cos(a) + info.x_axis().y * std::sin(a)) / length(info.x_axis());
    EXPECT_GT(info.x_axis().x * last.x + info.x_axis().y * last.y, 0.0f) << angle;
    EXPECT_NEAR(std::fabs(along), 1.0, 1e-5) << angle;
    // Starting along +x, the axis is carried round with the blob.
    EXPECT_GT(along, 0.0) << angle;
    last = info.x_axis();
  }
  // From 0 straight to 120 degrees: the sign takes the nearer direction,
  // which is the wrong way round.
  object_tracking jump;
  access::fit_object(jump, info, box_moments(800, 0, 0, 0.5, 0.1, 0));
  access::fit_object(jump, info, box_moments(800, 0, 0, 0.5, 0.1, 120));
  EXPECT_LT(info.x_axis().x * std::cos(120 * kPi / 180) + info.x_axis().y * std::sin(120 * kPi / 180), 0.0);
}

}  // namespace
}  // namespace Korvane::Sight
