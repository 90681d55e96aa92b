// Drawings: the feature marks, the side-by-side canvas and its lines, on
// exactly sized 4:2:2 frames whose guard bytes must stay as they were.
#include <sight/corner/detection.h>
#include <sight/corner/draw_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/corner_access.h"

namespace {

using Korvane::Sight::corner::corner_record;
using Korvane::Sight::corner::detection;
using Korvane::Sight::corner::detection_access;
using frame_type = detection::frame_type;
using harness::layout;

int line_of(int width) { return (width + 1) / 2 * 4; }

// A 4:2:2 frame with 16 guard bytes behind its memory; pixel(x, y) points at
// the chroma byte, its luma follows.
struct test_frame : harness::frame {
  test_frame(int w, int h, int pad, int offset, bool flip = false)
      : frame(layout::ycbcr_422, {w, h, pad, offset, flip}, 16) {}
  std::uint8_t *pixel(int x, int y) const { return planes[0].line(y) + 2 * x; }
  frame_type view() const { return frame::view<frame_type>(); }
};

// width, height, placement (tight and aligned, or padded, off a 16-byte
// boundary and reversed).
class mark_test : public ::testing::TestWithParam<std::tuple<int, int, bool>> {};

// What a mark does, described by its shape rather than by its drawing order:
// in row y + d (|d| <= 4) the pixels at x +- |d| become grey s (chroma 128),
// and those one column either side of them black, unless grey themselves.
TEST_P(mark_test, crosses_are_clipped_at_every_edge) {
  auto const [w, h, padded] = GetParam();
  test_frame g(w, h, padded ? 3 : 0, padded ? 7 : 0, padded);
  std::mt19937 rng{unsigned(w * 100 + h + padded)};
  g.randomize(rng);
  test_frame const before = g;
  detection d;
  frame_type v = g.view();
  d.viz(v);  // no features yet: nothing is drawn
  ASSERT_TRUE(harness::same_frame(before, g));
  // Corners and edges of the frame, a column past it (the whole last block
  // can report one), and strengths below, at and above 255.
  auto const u = [](int n) { return std::uint16_t(n); };
  std::vector<corner_record> const features = {
      {0, 0, 10},       {u(w - 1), 0, 300},       {0, u(h - 1), 255},         {u(w - 1), u(h - 1), 77},  {2, 3, 4080},
      {u(w / 2), 1, 0}, {u(w / 2), u(h - 2), 128}, {u(w + 3), u(h / 2), 200}, {u(w / 2 + 1), u(h / 2), 1}};
  detection_access::set_features(d, features);
  d.viz(v);
  test_frame const want = before;
  for (corner_record const &f : features)
    for (int py = std::max(0, f.y - 4); py <= std::min(h - 1, f.y + 4); ++py)
      for (int px = std::max(0, f.x - 6); px <= std::min(w - 1, f.x + 6); ++px) {
        int const k = std::abs(py - f.y), e = std::abs(px - f.x);
        if (e != k && std::abs(e - k) != 1) continue;
        want.pixel(px, py)[0] = 128, want.pixel(px, py)[1] = e == k ? std::min<int>(255, f.strength) : 0;
      }
  EXPECT_TRUE(harness::same_frame(want, g));
}

INSTANTIATE_TEST_SUITE_P(frames, mark_test,
                         ::testing::Combine(::testing::Values(1, 2, 9, 31), ::testing::Values(1, 4, 9), ::testing::Bool()));

// Canvases of two frames: black everywhere but the two copies. Sources whose
// stride equals the canvas's are copied in one go with the bytes between
// their lines, as far as the end of their last line, and never past the
// canvas. Matches are white lines with a dark edge, checked in luma as runs
// x0..x1 on line y: the worked case is one horizontal match, and one whose
// points fall outside their frames and coincide on the canvas
// (x 60 = 12 + 32 + 16): a single white pixel.
struct canvas_case {
  int lw, lh, rw, rh;
  bool shared;
  detection::matches_type matches;
  std::vector<std::array<int, 4>> runs;  // x0, x1, y, luma
};

TEST(canvas_test, holds_both_frames_a_black_gap_and_the_lines) {
  std::vector<canvas_case> cases;
  for (int i = 0; i < 32; ++i) cases.push_back({i & 1 ? 32 : 7, i & 2 ? 12 : 5, i & 4 ? 16 : 9, i & 8 ? 12 : 5, (i & 16) != 0, {}, {}});
  cases.push_back({32, 20, 32, 20, false, {{{5, 10}, {5, 10}}, {{60, 3}, {12, 3}}},
                 {{5, 53, 10, 255}, {4, 4, 10, 16}, {54, 54, 10, 16}, {5, 53, 9, 16}, {5, 53, 11, 16},
                  {60, 60, 3, 255}, {60, 60, 2, 16}, {60, 60, 4, 16}, {59, 59, 3, 16}, {61, 61, 3, 16}}});
  for (canvas_case const &t : cases) {
    int const W = t.lw + t.rw + 16, H = std::max(t.lh, t.rh), S = (line_of(W) + 15) / 16 * 16;
    auto const pad = [&](int w) { return t.shared ? S - (line_of(w) + 15) / 16 * 16 : 8; };
    test_frame const left(t.lw, t.lh, pad(t.lw), t.shared ? 0 : 3), right(t.rw, t.rh, pad(t.rw), t.shared ? 0 : 3);
    std::mt19937 rng{unsigned(t.lw + t.rh)};
    left.randomize(rng), right.randomize(rng);
    frame_type canvas{};
    detection d;
    d.viz(canvas, left.view(), right.view(), t.matches);
    std::string const name = harness::cat(t.lw, "x", t.lh, " ", t.rw, "x", t.rh, t.shared ? " shared" : "");
    ASSERT_TRUE(canvas.data != nullptr && canvas.width == W && canvas.height == H && canvas.stride == S) << name;
    auto const *c = reinterpret_cast<std::uint8_t const *>(canvas.data);
    int const off = (t.lw + 16) / 2 * 4;
    std::uint8_t const *l = left.planes[0].begin(), *r = right.planes[0].begin();
    for (int y = 0; y < H; ++y)
      for (int b = 0; b < line_of(W); ++b) {
        int const i = y * S + b;
        int expected = b < W / 2 * 4 ? (b % 2 == 0 ? 128 : 0) : -1;  // an odd last pixel is left as it was
        if (t.shared ? i < (t.lh - 1) * S + line_of(t.lw) : y < t.lh && b < line_of(t.lw))
          expected = t.shared ? l[i] : left.planes[0].line(y)[b];
        if (t.shared ? i >= off && i - off < (t.rh - 1) * S + line_of(t.rw) : y < t.rh && b >= off && b - off < line_of(t.rw))
          expected = t.shared ? r[i - off] : right.planes[0].line(y)[b - off];
        for (auto const &run : t.runs)
          if (y == run[2] && b % 2 == 1 && b / 2 >= run[0] && b / 2 <= run[1]) expected = run[3];
        ASSERT_TRUE(expected < 0 || (!t.runs.empty() && b % 2 == 0) || c[i] == expected)
            << name << ": byte " << b << " of row " << y << " is " << int(c[i]) << ", not " << expected;
      }
    Tamarind::Rasters::release(canvas);
  }
}

// Lines by hand, for both orders of the end points.
TEST(draw_line_test, sets_the_pixels_of_the_fixed_point_walk) {
  struct { int x0, y0, x1, y1; std::set<std::pair<int, int>> pixels; } const cases[] = {
      // Along x: step 2 * 65536 / 4 = 32768, truncated at each pixel.
      {0, 0, 4, 2, {{0, 0}, {1, 0}, {2, 1}, {3, 1}, {4, 2}}},
      // Falling: the accumulator runs down from 2, so halves round toward -y.
      {0, 2, 4, 0, {{0, 2}, {1, 1}, {2, 1}, {3, 0}, {4, 0}}},
      // Step -65536 / 3 = -21845, truncated toward zero: the last pixel lands on x 0, not -1.
      {1, 0, 0, 3, {{1, 0}, {0, 1}, {0, 2}, {0, 3}}},
      // Step 21845 reaches 65535 at the last row: the line misses its end point (1, 3).
      {0, 0, 1, 3, {{0, 0}, {0, 1}, {0, 2}, {0, 3}}},
      {3, -5, 3, 20, {{3, 0}, {3, 1}, {3, 2}, {3, 3}, {3, 4}, {3, 5}, {3, 6}, {3, 7}, {3, 8}}},
      // Entering from the left, the accumulator is advanced to column 0: step
      // 13107, y = (65536 * -2 + 13107 * (x + 10)) >> 16, -1 at x 0 and 1 at x 10.
      {-10, -2, 10, 2, {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 1}, {7, 1}, {8, 1}, {9, 1}, {10, 1}}},
      {-9, -9, -3, -1, {}},
  };
  for (auto const &c : cases)
    for (bool reversed : {false, true}) {
      test_frame const g(12, 9, 4, 5), want(12, 9, 4, 5);
      for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 12; ++x) {
          bool const on = c.pixels.count({x, y}) != 0;
          g.pixel(x, y)[0] = 7, g.pixel(x, y)[1] = 9, want.pixel(x, y)[0] = on ? 128 : 7, want.pixel(x, y)[1] = on ? 200 : 9;
        }
      frame_type v = g.view();
      Korvane::Sight::corner::draw_line_422(v, reversed ? c.x1 : c.x0, reversed ? c.y1 : c.y0, reversed ? c.x0 : c.x1,
                                            reversed ? c.y0 : c.y1, 200);
      EXPECT_TRUE(harness::same_frame(want, g)) << "line " << c.x0 << "," << c.y0 << " " << c.x1 << "," << c.y1
                                                << (reversed ? " reversed" : "");
    }
}

}  // namespace
