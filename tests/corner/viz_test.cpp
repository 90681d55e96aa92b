// Drawings: the feature marks, the side-by-side canvas and its lines.
#include <sight/corner/detection.h>
#include <sight/corner/draw_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
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
namespace rasters = Tamarind::Rasters;

constexpr std::uint8_t sentinel = 0xA5;

int line_of(int width) { return (width + 1) / 2 * 4; }

// A 4:2:2 frame with `margin` sentinel bytes before its first and after its
// last picture byte, and a stride `pad` bytes longer than a line, the padding
// holding sentinels too. With no margin the buffer ends at the last picture
// byte, so AddressSanitizer flags reads past it; `seed` fills it at random.
struct guarded_frame {
  int margin;
  std::vector<std::uint8_t> bytes;
  frame_type frame{};

  guarded_frame(int width, int height, int pad, int margin_ = 37, unsigned seed = 0) : margin(margin_) {
    bytes.assign(std::size_t(2 * margin + (height - 1) * (line_of(width) + pad) + line_of(width)), sentinel);
    std::mt19937 rng{seed};
    std::uniform_int_distribution<int> byte(0, 255);
    for (auto &b : bytes) b = seed != 0 ? std::uint8_t(byte(rng)) : b;
    frame = {reinterpret_cast<rasters::pixel_ycbcr_u8 *>(bytes.data() + margin), width, height, line_of(width) + pad,
             false};
  }
  std::uint8_t *pixel(int x, int y) { return bytes.data() + margin + y * frame.stride + 2 * x; }
  // Every byte outside the picture (margins, row padding) still a sentinel.
  void expect_guards_intact() const {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      std::ptrdiff_t const j = std::ptrdiff_t(i) - margin;
      bool const inside = j >= 0 && j / frame.stride < frame.height && j % frame.stride < line_of(frame.width);
      if (!inside) {
        ASSERT_EQ(bytes[i], sentinel) << "byte " << i << " outside the frame";
      }
    }
  }
};

// What a mark does, described by its shape rather than by its drawing order:
// in row y + d (|d| <= 4) the pixels at x +- |d| become grey s, and those one
// column either side of them black, unless grey themselves.
void paint_mark(std::vector<int> &luma, std::vector<bool> &touched, int w, int h, int fx, int fy, int s) {
  for (int py = fy - 4; py <= fy + 4; ++py)
    for (int px = fx - 6; px <= fx + 6; ++px) {
      if (px < 0 || py < 0 || px >= w || py >= h) continue;
      int const k = std::abs(py - fy), d = std::abs(px - fx);
      if (d != k && std::abs(d - k) != 1) continue;
      luma[std::size_t(py * w + px)] = d == k ? s : 0;
      touched[std::size_t(py * w + px)] = true;
    }
}

using mark_param = std::tuple<int, int, int>;  // width, height, stride pad

class mark_test : public ::testing::TestWithParam<mark_param> {};

TEST_P(mark_test, crosses_are_clipped_at_every_edge) {
  auto const [w, h, pad] = GetParam();
  guarded_frame g(w, h, pad);
  std::mt19937 rng{unsigned(w * 100 + h + pad)};
  std::uniform_int_distribution<int> byte(0, 255);
  std::vector<int> luma(std::size_t(w * h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      g.pixel(x, y)[0] = std::uint8_t(byte(rng));
      luma[std::size_t(y * w + x)] = g.pixel(x, y)[1] = std::uint8_t(byte(rng));
    }
  auto const before = g.bytes;
  detection d;
  d.viz(g.frame);  // no features yet: nothing is drawn
  ASSERT_EQ(g.bytes, before);
  // Corners and edges of the frame, a column past it (the whole last block
  // can report one), and strengths below, at and above 255.
  std::vector<corner_record> features = {
      {0, 0, 10},  {std::uint16_t(w - 1), 0, 300}, {0, std::uint16_t(h - 1), 255},
      {std::uint16_t(w - 1), std::uint16_t(h - 1), 77}, {2, 3, 4080}, {std::uint16_t(w / 2), 1, 0},
      {std::uint16_t(w / 2), std::uint16_t(h - 2), 128}, {std::uint16_t(w + 3), std::uint16_t(h / 2), 200},
      {std::uint16_t(w / 2 + 1), std::uint16_t(h / 2), 1}};
  detection_access::set_features(d, features);
  d.viz(g.frame);

  std::vector<bool> touched(luma.size(), false);
  for (corner_record const &f : features) paint_mark(luma, touched, w, h, f.x, f.y, std::min<int>(255, f.strength));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      std::size_t const i = std::size_t(y * w + x);
      ASSERT_EQ(g.pixel(x, y)[1], luma[i]) << "luma at x " << x << ", y " << y;
      std::size_t const chroma = std::size_t(g.pixel(x, y) - g.bytes.data());
      ASSERT_EQ(g.bytes[chroma], touched[i] ? 128 : before[chroma]) << "chroma at x " << x << ", y " << y;
    }
  g.expect_guards_intact();
}

INSTANTIATE_TEST_SUITE_P(frames, mark_test,
                         ::testing::Combine(::testing::Values(1, 2, 9, 31), ::testing::Values(1, 4, 9),
                                            ::testing::Values(0, 3)));

// lw, lh, rw, rh, and whether the sources share the canvas's stride.
using canvas_param = std::tuple<int, int, int, int, bool>;

class canvas_test : public ::testing::TestWithParam<canvas_param> {};

// Without matches: black everywhere but the two copies. Sources whose stride
// equals the canvas's are copied in one go with the bytes between their
// lines, as far as the end of their last line, and never past the canvas.
TEST_P(canvas_test, holds_both_frames_and_a_black_gap) {
  auto const [lw, lh, rw, rh, shared] = GetParam();
  int const W = lw + rw + 16, H = std::max(lh, rh);
  int const S = (line_of(W) + 15) / 16 * 16;
  guarded_frame left(lw, lh, shared ? S - line_of(lw) : 0, 0, 1), right(rw, rh, shared ? S - line_of(rw) : 8, 0, 2);
  frame_type canvas{};
  detection d;
  d.viz(canvas, left.frame, right.frame, {});
  ASSERT_TRUE(canvas.data != nullptr && canvas.width == W && canvas.height == H && canvas.stride == S);
  auto const *c = reinterpret_cast<std::uint8_t const *>(canvas.data);
  int const off = (lw + 16) / 2 * 4;
  for (int y = 0; y < H; ++y)
    for (int b = 0; b < line_of(W); ++b) {
      int const i = y * S + b;
      int expected = b < W / 2 * 4 ? (b % 2 == 0 ? 128 : 0) : -1;  // an odd last pixel is left as it was
      if (shared) {
        if (i < (lh - 1) * S + line_of(lw)) expected = left.bytes[std::size_t(i)];
        if (i >= off && i - off < (rh - 1) * S + line_of(rw)) expected = right.bytes[std::size_t(i - off)];
      } else {
        if (y < lh && b < line_of(lw)) expected = left.bytes[std::size_t(y * line_of(lw) + b)];
        if (y < rh && b >= off && b - off < line_of(rw))
          expected = right.bytes[std::size_t(y * (line_of(rw) + 8) + b - off)];
      }
      if (expected >= 0) {
        ASSERT_EQ(c[i], expected) << "canvas byte " << b << " of row " << y;
      }
    }
  rasters::release(canvas);
}

INSTANTIATE_TEST_SUITE_P(
    frames, canvas_test,
    ::testing::Combine(::testing::Values(7, 32), ::testing::Values(5, 12), ::testing::Values(9, 16),
                       ::testing::Values(5, 12), ::testing::Bool()));

// Luma of every canvas pixel (x, y).
std::vector<int> canvas_luma(frame_type const &canvas) {
  std::vector<int> out;
  for (int y = 0; y < canvas.height; ++y)
    for (int x = 0; x < canvas.width; ++x)
      out.push_back(reinterpret_cast<std::uint8_t const *>(rasters::line(canvas, y))[2 * x + 1]);
  return out;
}

TEST(canvas_test, matches_are_white_lines_with_dark_edges) {
  guarded_frame left(32, 20, 0, 0, 6), right(32, 20, 0, 0, 7);
  frame_type plain{}, drawn{};
  detection d;
  d.viz(plain, left.frame, right.frame, {});
  // One horizontal match, and one whose points fall outside their frames and
  // coincide on the canvas (x 60 = 12 + 32 + 16): a single white pixel.
  d.viz(drawn, left.frame, right.frame, {{{5, 10}, {5, 10}}, {{60, 3}, {12, 3}}});
  auto const a = canvas_luma(plain), b = canvas_luma(drawn);
  int const W = plain.width;
  for (int y = 0; y < plain.height; ++y)
    for (int x = 0; x < W; ++x) {
      int expected = a[std::size_t(y * W + x)];
      if (y == 10 && x >= 5 && x <= 53) expected = 255;
      else if (y == 10 && (x == 4 || x == 54)) expected = 16;
      else if ((y == 9 || y == 11) && x >= 5 && x <= 53) expected = 16;
      else if (y == 3 && x == 60) expected = 255;
      else if ((y == 2 || y == 4) && x == 60) expected = 16;
      else if (y == 3 && (x == 59 || x == 61)) expected = 16;
      ASSERT_EQ(b[std::size_t(y * W + x)], expected) << "x " << x << ", y " << y;
    }
  rasters::release(plain);
  rasters::release(drawn);
}

// Lines by hand, for both orders of the end points.
TEST(draw_line_test, sets_the_pixels_of_the_fixed_point_walk) {
  struct line_case {
    int x0, y0, x1, y1;
    std::set<std::pair<int, int>> pixels;
  };
  line_case const cases[] = {
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
  for (line_case const &c : cases)
    for (bool reversed : {false, true}) {
      guarded_frame g(12, 9, 4);
      for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 12; ++x) g.pixel(x, y)[0] = 7, g.pixel(x, y)[1] = 9;
      if (reversed) Korvane::Sight::corner::draw_line_422(g.frame, c.x1, c.y1, c.x0, c.y0, 200);
      if (!reversed) Korvane::Sight::corner::draw_line_422(g.frame, c.x0, c.y0, c.x1, c.y1, 200);
      for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 12; ++x) {
          bool const on = c.pixels.count({x, y}) != 0;
          EXPECT_TRUE(g.pixel(x, y)[1] == (on ? 200 : 9) && g.pixel(x, y)[0] == (on ? 128 : 7))
              << "line " << c.x0 << "," << c.y0 << " " << c.x1 << "," << c.y1 << (reversed ? " reversed" : "")
              << ": x " << x << ", y " << y;
        }
      g.expect_guards_intact();
    }
}

}  // namespace
