// Worked numbers of the tracker's set-up and defaults, and the two matrices
// of its result.
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tracker_access.h"

namespace Korvane::Sight {
namespace {

using access = object_tracking_test_access;

struct worked_number {
  char const *name;
  std::function<void(object_tracking &)> configure;
  int width, height, cells_x, cells_y;
  std::function<double(object_tracking &)> read;
  double expected;
};

double bits(float f) { return double(std::bit_cast<std::uint32_t>(f)); }

void PrintTo(worked_number const &w, std::ostream *os) { *os << w.name; }

class worked_numbers_test : public ::testing::TestWithParam<worked_number> {};

TEST_P(worked_numbers_test, set_up_gives_the_worked_value) {
  worked_number const &w = GetParam();
  object_tracking t;
  w.configure(t);
  access::setup(t, w.width, w.height, w.cells_x, w.cells_y);
  EXPECT_FLOAT_EQ(float(w.read(t)), float(w.expected)) << w.name;
}

auto const keep = [](object_tracking &) {};
// Key colour, tolerance_c and smoothness.
auto key(float r, float g, float b, float tolerance, float smoothness) {
  return [=](object_tracking &t) {
    t.color().r() = r, t.color().g() = g, t.color().b() = b;
    t.tolerance_c() = tolerance, t.smoothness() = smoothness;
  };
}

INSTANTIATE_TEST_SUITE_P(
    tracker, worked_numbers_test,
    ::testing::Values(
        worked_number{"key_cb", keep, 1920, 1080, 240, 135,
                      [](object_tracking &t) { return access::key_cbcr(t)[6]; }, 111},
        worked_number{"key_cr", keep, 1920, 1080, 240, 135,
                      [](object_tracking &t) { return access::key_cbcr(t)[7]; }, 157},
        worked_number{"key_scale", keep, 1920, 1080, 240, 135,
                      [](object_tracking &t) { return access::key_scale(t)[5]; }, 2844},
        worked_number{"key_offset", keep, 1920, 1080, 240, 135,
                      [](object_tracking &t) { return access::key_offset(t)[0]; }, 992},
        worked_number{"smallest_soft_key_scale", [](object_tracking &t) { t.smoothness() = 0.0f; }, 64, 64, 8, 8,
                      [](object_tracking &t) { return access::key_scale(t)[0]; }, 25600},
        worked_number{"zero_tolerance_key_offset", [](object_tracking &t) { t.tolerance_c() = 0.0f; }, 64, 64, 8,
                      8, [](object_tracking &t) { return access::key_offset(t)[0]; }, 0},
        worked_number{"wide_key_scale", key(0.5f, 0.5f, 0.5f, 1.0f, 1.0f), 64, 64, 8, 8,
                      [](object_tracking &t) { return access::key_scale(t)[0]; }, 853},
        worked_number{"wide_key_offset", key(0.5f, 0.5f, 0.5f, 1.0f, 1.0f), 64, 64, 8, 8,
                      [](object_tracking &t) { return access::key_offset(t)[0]; }, 425},
        worked_number{"pure_red_key_cr", key(1.0f, 0.0f, 0.0f, 0.7f, 0.3f), 64, 64, 8, 8,
                      [](object_tracking &t) { return access::key_cbcr(t)[1]; }, 240},
        worked_number{"key_cb_clamps_at_255", key(0.0f, 0.0f, 2.0f, 0.7f, 0.3f), 64, 64, 8, 8,
                      [](object_tracking &t) { return access::key_cbcr(t)[0]; }, 255},
        worked_number{"key_cb_clamps_at_0", key(0.0f, 2.0f, 0.0f, 0.7f, 0.3f), 64, 64, 8, 8,
                      [](object_tracking &t) { return access::key_cbcr(t)[0]; }, 0},
        worked_number{"minimum_mass_hd", keep, 1920, 1080, 240, 135,
                      [](object_tracking &t) { return access::minimum_mass(t); }, 38.4 * 21.6 * 255},
        worked_number{"minimum_mass_no_cells", keep, 7, 1080, 0, 135,
                      [](object_tracking &t) { return access::minimum_mass(t); }, 0},
        worked_number{"swapped_band_min",
                      [](object_tracking &t) { t.cropping().left() = t.cropping().right() = 0.8f; }, 1000, 100,
                      125, 12, [](object_tracking &t) { return access::crop_x_min(t); }, 200},
        worked_number{"swapped_band_max",
                      [](object_tracking &t) { t.cropping().left() = t.cropping().right() = 0.8f; }, 1000, 100,
                      125, 12, [](object_tracking &t) { return access::crop_x_max(t); }, 800},
        worked_number{"default_r_bits", keep, 8, 8, 1, 1, [](object_tracking &t) { return bits(t.color().r()); },
                      0x3F48C8C9},
        worked_number{"default_g_bits", keep, 8, 8, 1, 1, [](object_tracking &t) { return bits(t.color().g()); },
                      0x3F09898A},
        worked_number{"default_b_bits", keep, 8, 8, 1, 1, [](object_tracking &t) { return bits(t.color().b()); },
                      0x3EEEEEEF},
        worked_number{"default_aspect_bits", keep, 8, 8, 1, 1,
                      [](object_tracking &t) { return bits(t.constraints().aspect_ratio()); }, 0x3FE38E39},
        worked_number{"moment_bias_added", keep, 64, 64, 8, 8,
                      [](object_tracking &t) {
                        object_tracking::moments_type best{};
                        access::extract_object(t, best);
                        return best.mass == 0.0f ? best.sum_xx : -1.0f;
                      },
                      32}),
    [](auto const &info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------

object_tracking_info box(int detected, glm::vec2 centre, glm::vec2 x_axis, glm::vec2 y_axis) {
  object_tracking_info info;
  info.object_detected() = e_object_detected(detected);
  info.centre() = centre;
  info.x_axis() = x_axis;
  info.y_axis() = y_axis;
  return info;
}

class matrix_test : public ::testing::TestWithParam<float> {};

TEST_P(matrix_test, maps_the_overlay_onto_the_box_and_back) {
  float const aspect = GetParam();
  std::mt19937 rng(17);
  std::uniform_real_distribution<float> u(-2.0f, 2.0f);
  for (int n = 0; n < 50; ++n) {
    object_tracking_info const info = box(1, {u(rng), u(rng)}, {u(rng), u(rng)}, {u(rng), u(rng)});
    glm::mat3 filled, filled_inverse;
    info(filled, aspect);
    info.inverse(filled_inverse, aspect);
    EXPECT_EQ(filled, info(aspect));
    EXPECT_EQ(filled_inverse, info.inverse(aspect));
    // The corner (aspect, 1) of the overlay lands on centre + x_axis + y_axis.
    glm::vec3 const corner = filled * glm::vec3(aspect, 1.0f, 1.0f);
    glm::vec2 const expected = info.centre() + info.x_axis() + info.y_axis();
    EXPECT_NEAR(corner.x, expected.x, 1e-5f);
    EXPECT_NEAR(corner.y, expected.y, 1e-5f);
    float const d = info.x_axis().y * info.y_axis().x - info.y_axis().y * info.x_axis().x;
    if (std::fabs(d) < 0.05f) continue;  // nearly degenerate: no useful round trip
    glm::mat3 const round_trip = filled_inverse * filled;
    for (int c = 0; c < 3; ++c)
      for (int r = 0; r < 3; ++r) EXPECT_NEAR(round_trip[c][r], c == r ? 1.0f : 0.0f, 1e-3f) << c << r;
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, matrix_test, ::testing::Values(1.0f, 4.0f / 3.0f, 16.0f / 9.0f, 2.39f));

TEST(matrix_edge_test, not_looked_is_identity_but_not_found_is_not) {
  glm::vec2 const centre(0.25f, -0.5f);
  object_tracking_info const not_looked = box(0, centre, {1, 2}, {3, 4});
  EXPECT_EQ(not_looked(1.5f), glm::mat3(1.0f));
  EXPECT_EQ(not_looked.inverse(1.5f), glm::mat3(1.0f));

  // Value 2 with zero axes: zero but for the last column (matrix) or for
  // element (2, 2) (inverse, whose k falls back to 1).
  object_tracking_info const not_found = box(2, centre, {0, 0}, {0, 0});
  glm::mat3 expected(0.0f);
  expected[2] = glm::vec3(centre, 1.0f);
  EXPECT_EQ(not_found(1.5f), expected);
  glm::mat3 const back = not_found.inverse(1.5f);
  for (int c = 0; c < 3; ++c)
    for (int r = 0; r < 3; ++r) EXPECT_EQ(back[c][r], c == 2 && r == 2 ? 1.0f : 0.0f) << c << r;
}

TEST(matrix_edge_test, degenerate_box_inverts_with_unit_factor) {
  // Parallel axes: d is exactly 0, k is 1, and the formulas stand as they are.
  object_tracking_info const flat = box(1, {0.5f, 0.25f}, {1, 2}, {2, 4});
  glm::mat3 const m = flat.inverse(2.0f);
  EXPECT_EQ(m[0], glm::vec3(-2.0f * 4.0f, 2.0f, 0.0f));
  EXPECT_EQ(m[1], glm::vec3(2.0f * 2.0f, -1.0f, 0.0f));
  EXPECT_EQ(m[2], glm::vec3((4.0f * 0.5f - 0.25f * 2.0f) * 2.0f, 0.25f * 1.0f - 2.0f * 0.5f, 1.0f));
  // The aspect is not checked: 0 divides the first column by zero.
  EXPECT_TRUE(std::isinf(flat(0.0f)[0][0]));
}

}  // namespace
}  // namespace Korvane::Sight
