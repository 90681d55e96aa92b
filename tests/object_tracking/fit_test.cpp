// The fit of a region's moments to a box, on moments of uniformly filled
// boxes given in the coordinates of the result.
#include <cmath>
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
  if (!size) { EXPECT_NEAR(length(y), 0.5, 1e-6); }
  if (!aspect) { EXPECT_NEAR(length(x) / length(y), 16.0 / 9.0, 1e-5); }
  if (rotation && size && aspect) {
    EXPECT_NEAR(length(x), p, 1e-4);
    EXPECT_NEAR(length(y), q, 1e-4);
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, fit_test,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool(),
                                            ::testing::Values(0.0, 30.0, 100.0, 160.0)),
                         fit_case_name);

TEST(fit_edge_test, mass_and_degenerate_shapes) {
  object_tracking t;
  object_tracking_info info;
  access::minimum_mass(t) = 1000.0f;  // exactly the minimum is found, anything lighter is not
  access::fit_object(t, info, box_moments(1000, 0.1, 0.1, 0.3, 0.2, 20));
  EXPECT_EQ(info.object_detected(), 1);
  access::fit_object(t, info, box_moments(std::nextafter(1000.0f, 0.0f), 0.1, 0.1, 0.3, 0.2, 20));
  EXPECT_EQ(info.object_detected(), 2);
  EXPECT_EQ(info.centre() + info.x_axis() + info.y_axis(), glm::vec2(0.0f));
  // A horizontal line has no spread in y: with a free aspect q stays 0.
  object_tracking line;
  line.constraints().track_aspect() = true;
  access::fit_object(line, info, {0, 0, 500, 0, 100, 0, 0, 0});
  EXPECT_EQ(info.object_detected(), 2);
  // Equal variances give NaN axes, which disarm the sign test: a blob at 100
  // degrees is not turned round afterwards, though it is after (1, 0).
  object_tracking round, fresh;
  access::fit_object(round, info, {0, 0, 800, 0, 40, 40, 0, 0});
  EXPECT_EQ(info.object_detected(), 1);
  EXPECT_TRUE(std::isnan(info.x_axis().x) && std::isnan(access::previous_x_axis(round).x));
  access::fit_object(round, info, box_moments(800, 0, 0, 0.5, 0.1, 100));
  EXPECT_LT(info.x_axis().x, 0.0f);
  access::fit_object(fresh, info, box_moments(800, 0, 0, 0.5, 0.1, 100));
  EXPECT_GT(info.x_axis().x, 0.0f);
}

TEST(fit_edge_test, a_slow_turn_keeps_the_direction_and_a_jump_flips_it) {
  object_tracking t;
  object_tracking_info info;
  for (int angle = 0; angle <= 360; angle += 5) {
    access::fit_object(t, info, box_moments(800, 0, 0, 0.5, 0.1, angle));
    double const a = angle * kPi / 180;
    double const along = (info.x_axis().x * std::cos(a) + info.x_axis().y * std::sin(a)) / length(info.x_axis());
    EXPECT_NEAR(along, 1.0, 1e-5) << angle;  // carried round with the blob from +x
  }
  // From 0 straight to 120 degrees the sign takes the nearer direction.
  object_tracking jump;
  access::fit_object(jump, info, box_moments(800, 0, 0, 0.5, 0.1, 0));
  access::fit_object(jump, info, box_moments(800, 0, 0, 0.5, 0.1, 120));
  EXPECT_LT(info.x_axis().x * std::cos(120 * kPi / 180) + info.x_axis().y * std::sin(120 * kPi / 180), 0.0);
}

}  // namespace
}  // namespace Korvane::Sight
