// The threshold stepper, and the detector's hand-worked numbers.
#include <sight/corner/detection.h>
#include <sight/corner/threshold.h>

#include <gtest/gtest.h>

#include <vector>

#include "corner/corner_test_support.h"
#include "corner/segment_test_model.h"

namespace {

using Korvane::Sight::corner::detection;
using Korvane::Sight::corner::detection_access;
using Korvane::Sight::corner::threshold;
using namespace corner_test;

struct step_case {
  int corners, before;
  bool stepped;
  int after;
};

class threshold_step_test : public ::testing::TestWithParam<step_case> {};

TEST_P(threshold_step_test, steps_by_one_and_clamps) {
  step_case const c = GetParam();
  for (bool postfix : {false, true}) {
    detection d;
    threshold stepper(d);
    detection_access::set_count(d, c.corners);
    d.threshold() = c.before;
    bool const stepped = postfix ? stepper++ : ++stepper;
    EXPECT_EQ(stepped, c.stepped) << (postfix ? "postfix" : "prefix");
    EXPECT_EQ(d.threshold(), c.after) << (postfix ? "postfix" : "prefix");
  }
}

INSTANTIATE_TEST_SUITE_P(
    steps, threshold_step_test,
    ::testing::Values(step_case{500, 70, false, 70}, step_case{399, 70, true, 69}, step_case{601, 70, true, 71},
                      step_case{400, 70, false, 70}, step_case{600, 70, false, 70}, step_case{399, 2, true, 2},
                      step_case{601, 200, true, 200}, step_case{500, 1, false, 2}, step_case{500, 300, false, 200},
                      step_case{0, 3, true, 2}, step_case{10000, 199, true, 200}));

TEST(threshold_step_test, bounds_can_be_moved) {
  detection d;
  threshold stepper(d);
  EXPECT_EQ(stepper.minimum_corners, 400);
  EXPECT_EQ(stepper.maximum_corners, 600);
  stepper.minimum_corners = 10;
  detection_access::set_count(d, 50);
  EXPECT_FALSE(++stepper);
  EXPECT_EQ(d.threshold(), 70);
}

// One frame, one centre at (20, 12), all 16 ring pixels set to `ring`, the
// rest of a flat ground of the centre's value.
struct worked_case {
  char const *name;
  int threshold, centre, ring;
  bool corner;
  int strength;
};

class worked_numbers_test : public ::testing::TestWithParam<worked_case> {};

TEST_P(worked_numbers_test, single_centre) {
  worked_case const c = GetParam();
  frame_buffer f(41, 25, stride_for(layout::aligned, 41), 0);
  for (int y = 0; y < 25; ++y)
    for (int x = 0; x < 41; ++x) f.set_luma(x, y, c.centre);
  for (int k = 0; k < 16; ++k) f.set_luma(20 + corner_model::ring_dx[k], 12 + corner_model::ring_dy[k], c.ring);
  detection d;
  d.threshold() = c.threshold;
  d = f.frame;
  auto const found = detection_access::corners(d);
  bool centre = false;
  for (auto const &r : found)
    if (r.x == 20 && r.y == 12) {
      centre = true;
      EXPECT_EQ(r.strength, c.strength);
    }
  EXPECT_EQ(centre, c.corner);
  EXPECT_EQ(corner_model::is_corner(f.picture(), 20, 12, c.threshold), c.corner);
}

INSTANTIATE_TEST_SUITE_P(
    worked, worked_numbers_test,
    ::testing::Values(
        // T = 70: th = tr = 35 in halved luma; the difference must exceed 35.
        worked_case{"t70_darker_by_35_is_not_enough", 70, 100, 30, false, 0},
        worked_case{"t70_darker_by_36", 70, 100, 28, true, 16 * 72},
        worked_case{"t70_brighter_by_35_is_not_enough", 70, 100, 170, false, 0},
        worked_case{"t70_brighter_by_36", 70, 100, 172, true, 16 * 72},
        // T = 71: th = 35 below, tr = 36 above.
        worked_case{"t71_darker_by_36", 71, 100, 28, true, 16 * 72},
        worked_case{"t71_brighter_by_36_is_not_enough", 71, 100, 172, false, 0},
        worked_case{"t71_brighter_by_37", 71, 100, 174, true, 16 * 74},
        // Full luma for the strength: odd levels that halve alike still count.
        worked_case{"isolated_white_pixel_has_the_largest_strength", 70, 255, 0, true, 4080},
        // A saturated centre: high stays 127, nothing is brighter.
        worked_case{"bright_centre_has_nothing_brighter", 70, 20, 255, true, 16 * 235},
        worked_case{"t0_any_difference_of_halved_luma", 0, 101, 99, true, 32},
        worked_case{"t0_equal_halves_are_not_darker", 0, 101, 100, false, 0},
        // T = 255: tr wraps to -128, so every ring pixel counts as brighter.
        worked_case{"t255_flat_ground_is_a_corner", 255, 90, 90, true, 0}),
    [](auto const &info) { return std::string(info.param.name); });

// Frames too small to scan, on a detector that never held storage: no
// corner, and the end mark still finds room.
TEST(small_frame_test, yields_no_corner) {
  for (auto [w, h] : {std::pair{16, 40}, std::pair{40, 16}, std::pair{0, 0}, std::pair{17, 17}}) {
    frame_buffer f(w, h, stride_for(layout::tight, w), 0);
    for (auto &b : f.bytes) b = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) f.set_luma(x, y, (x * 97 + y * 31) % 256);
    if (w == 17 && h == 17) f.set_luma(8, 8, 255);  // one scanned row: an isolated white pixel
    detection d;
    d = f.frame;
    EXPECT_EQ(detection_access::end_mark(d).y, 0xFFFF);
    EXPECT_EQ(int(d), w == 17 ? 1 : 0) << w << "x" << h;
  }
}

TEST(small_frame_test, flat_frame_yields_no_corner) {
  frame_buffer f(64, 32, stride_for(layout::aligned, 64), 0);
  for (auto &b : f.bytes) b = 77;
  detection d;
  d = f.frame;
  EXPECT_EQ(int(d), 0);
  EXPECT_TRUE(detection_access::corners(d).empty());
}

}  // namespace
