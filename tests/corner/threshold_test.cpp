// The threshold stepper, and frames too small to scan.
#include <sight/corner/detection.h>
#include <sight/corner/threshold.h>

#include <gtest/gtest.h>

#include <vector>

#include "support/corner_access.h"
#include "corner/segment_model.h"

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

}  // namespace
