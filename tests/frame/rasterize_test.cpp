// Lines on every layout: clipping, and nothing written outside the bitmap.
//
// A line drawn on a window into a harness frame (the canvas), its end points
// moved into the window's coordinates, must change exactly the canvas bytes
// that the same line drawn on the whole canvas changes inside the window, and
// nothing else: not the rest of the canvas, not its guard bytes.
#include <sight/frame/rasterize.h>
#include <sight/operator/layouts.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <tuple>
#include <type_traits>
#include <vector>

#include "support/harness.h"

namespace {

namespace R = Tamarind::Rasters;
namespace S = Korvane::Sight;
using harness::frame;
using harness::layout;

struct window {
  layout l;
  int w, h;  // at (10, 6) of a 64 by 48 canvas
};
constexpr int ox = 10, oy = 6;

// Bitmap b cut to the window; `half` for a chroma plane.
template <class B>
B cut(B b, window const &c, bool half) {
  bool const pairs = half || std::is_same_v<B, S::ycbcr_bitmap>;
  b.data = R::line(b, half ? oy / 2 : oy) + (pairs ? ox / 2 : ox);
  b.width = half ? c.w / 2 : c.w;
  b.height = half ? c.h / 2 : c.h;
  return b;
}

struct draw {
  int const *p0, *p1;
  R::pixel_ycbcr_u8 yc{200, 201, 202, 203};
  void operator()(S::bgra_bitmap b) const { R::rasterize::line(b, p0, p1, R::pixel_bgra_u8{1, 2, 3, 4}); }
  void operator()(S::ycbcra_bitmap b) const { R::rasterize::line(b, p0, p1, R::pixel_ycbcra_u8{5, 6, 7, 8}); }
  void operator()(S::ycbcr_bitmap b) const { R::rasterize::line(b, p0, p1, yc); }
  void operator()(S::y_bitmap y, S::cbcr_bitmap c) const { R::rasterize::line(y, c, p0, p1, yc); }
  void operator()(S::y_bitmap y, S::cb_bitmap cb, S::cr_bitmap cr) const {
    R::rasterize::line(y, cb, cr, p0, p1, yc);
  }
};

// The line from q0 to q1 on the window of f, end points in window pixels.
void draw_on_window(frame const &f, window const &c, int const *q0, int const *q1) {
  harness::visit(f, [&](auto first, auto... rest) { draw{q0, q1}(cut(first, c, false), cut(rest, c, true)...); });
}

using params = std::tuple<window, harness::geometry>;
class rasterize_test : public ::testing::TestWithParam<params> {};

TEST_P(rasterize_test, window_drawing_matches_whole_canvas_inside_and_writes_nothing_outside) {
  auto const [c, g] = GetParam();
  std::mt19937 rng(7);
  frame const start(c.l, g);
  start.randomize(rng);
  // The window's bytes, marked through the window's own bitmaps.
  frame const in_window(c.l, g);
  harness::visit(in_window, [&](auto first, auto... rest) {
    auto const mark = [](auto b) {
      for (int y = 0; y < b.height; ++y) std::fill_n(reinterpret_cast<std::uint8_t *>(R::line(b, y)), R::line_bytes(b), 1);
    };
    mark(cut(first, c, false)), (mark(cut(rest, c, true)), ...);
  });
  auto const check = [&](int const *p0, int const *p1) {
    frame const whole = start, windowed = start, want = start;
    harness::visit(whole, draw{p0, p1});
    int const q0[2] = {p0[0] - ox, p0[1] - oy}, q1[2] = {p1[0] - ox, p1[1] - oy};
    draw_on_window(windowed, c, q0, q1);
    for (std::size_t n = 0; n < want.planes.size(); ++n)
      for (std::size_t i = 0; i < want.planes[n].size(); ++i)
        if (in_window.planes[n].begin()[i] == 1) want.planes[n].begin()[i] = whole.planes[n].begin()[i];
    ASSERT_TRUE(harness::same_frame(want, windowed))
        << "line from (" << p0[0] << ", " << p0[1] << ") to (" << p1[0] << ", " << p1[1] << ")";
  };
  std::uniform_int_distribution<int> near(-40, 100), far(-1000000000, 1000000000);
  for (int i = 0; i < 300 && !HasFatalFailure(); ++i) {
    int const p0[2] = {near(rng), near(rng)};
    int const p1[2] = {i % 3 == 0 ? far(rng) : near(rng), i % 3 == 0 ? far(rng) : near(rng)};
    check(p0, p1);
  }
  // Axis-parallel lines along the window's edges, and single points.
  int const edges[][4] = {{ox, oy, ox + c.w - 1, oy},         {ox, oy + c.h - 1, ox + c.w - 1, oy + c.h - 1},
                          {ox, oy - 5, ox, oy + c.h + 5},     {ox + c.w, oy, ox + c.w, oy + c.h},
                          {ox + 3, oy + 2, ox + 3, oy + 2}, {ox - 1, oy - 1, ox - 1, oy - 1}};
  for (auto const &e : edges) check(e, e + 2);
}

// End points at the ends of the int range: every pixel of the window's row
// (column) is set in the luma plane, and nothing else there.
TEST_P(rasterize_test, extreme_end_points_fill_a_row_and_a_column_exactly) {
  auto const [c, g] = GetParam();
  for (bool row : {true, false}) {
    frame const f(c.l, g);
    int const a[2] = {row ? INT_MIN : 4, row ? 3 : INT_MAX}, b[2] = {row ? INT_MAX : 4, row ? 3 : INT_MIN};
    draw_on_window(f, c, a, b);
    for (int y = 0; y < g.height; ++y)
      for (int x = 0; x < g.width; ++x) {
        int const at = c.l == layout::bgra || c.l == layout::ycbcra ? 4 * x
                       : c.l == layout::ycbcr_422                   ? x / 2 * 4 + 1 + x % 2 * 2
                                                                    : x;
        bool const in_row = row && 3 < c.h && y == oy + 3 && x >= ox && x < ox + c.w;
        bool const in_column = !row && 4 < c.w && x == ox + 4 && y >= oy && y < oy + c.h;
        int const drawn = c.l == layout::bgra ? 1 : c.l == layout::ycbcra ? 5 : x % 2 && c.l == layout::ycbcr_422 ? 203 : 201;
        ASSERT_EQ(f.planes[0].line(y)[at], in_row || in_column ? drawn : harness::guard)
            << (row ? "row" : "column") << ", x " << x << " y " << y;
      }
  }
}

window const windows[] = {{layout::bgra, 21, 15},      {layout::bgra, 1, 1},      {layout::ycbcra, 20, 16},
                          {layout::ycbcr_422, 22, 15}, {layout::ycbcr_422, 2, 30}, {layout::y_cbcr, 21, 15},
                          {layout::y_cbcr, 40, 2},     {layout::y_cb_cr, 21, 15},  {layout::y_cb_cr, 3, 3}};
harness::geometry const canvases[] = {{64, 48, 0, 0, false}, {64, 48, 16, 0, true}, {64, 48, 5, 3, false}};

INSTANTIATE_TEST_SUITE_P(all, rasterize_test,
                         ::testing::Combine(::testing::ValuesIn(windows), ::testing::ValuesIn(canvases)),
                         [](auto const &info) {
                           window const &c = std::get<0>(info.param);
                           return harness::cat(harness::name_of(c.l, std::get<1>(info.param)), "_", c.w, "x", c.h);
                         });

// The shape of a line: one pixel per step of the major axis, both end
// points included, the minor axis moving by at most one pixel per step.
TEST(rasterize_shape_test, one_pixel_per_major_step_with_both_end_points) {
  int const ends[][4] = {{0, 0, 7, 3}, {7, 3, 0, 0}, {2, 9, 5, 0}, {0, 0, 6, 6}, {6, 1, 0, 5}, {3, 3, 3, 3}};
  for (auto const &e : ends) {
    R::pixel_bgra_u8 pixels[10][10] = {};
    R::bitmap<R::pixel_bgra_u8> b{};
    R::attach(b, &pixels[0][0], 10, 10);
    R::rasterize::line(b, e, e + 2, R::pixel_bgra_u8{0, 0, 0, 1});
    bool const x_major = std::abs(e[2] - e[0]) >= std::abs(e[3] - e[1]);
    int const from = x_major ? std::min(e[0], e[2]) : std::min(e[1], e[3]);
    int const to = x_major ? std::max(e[0], e[2]) : std::max(e[1], e[3]);
    int previous = -1;
    for (int a = 0; a < 10; ++a) {
      int count = 0, at = -1;
      for (int m = 0; m < 10; ++m)
        if ((x_major ? pixels[m][a] : pixels[a][m]).a == 1) ++count, at = m;
      EXPECT_EQ(count, a >= from && a <= to ? 1 : 0) << "major " << a;
      if (count == 1 && previous >= 0) {
        EXPECT_LE(std::abs(at - previous), 1);
      }
      if (count == 1) previous = at;
    }
    EXPECT_EQ(pixels[e[1]][e[0]].a, 1);
    EXPECT_EQ(pixels[e[3]][e[2]].a, 1);
  }
}

// The 4:2:2 line has a walk of its own: it must set the luma bytes of
// exactly the pixels the BGRA line sets, and their elements' chroma, for
// random lines in and far outside a canvas of odd width.
TEST(rasterize_shape_test, four_two_two_walk_sets_the_same_pixels_as_bgra) {
  int const w = 37, h = 23;
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> near(-30, 60), far(-2000000000, 2000000000);
  for (int i = 0; i < 2000; ++i) {
    int const p0[2] = {near(rng), near(rng)};
    int const p1[2] = {i % 4 ? near(rng) : far(rng), i % 4 ? near(rng) : far(rng)};
    std::vector<R::pixel_bgra_u8> bgra(std::size_t(w * h));
    std::vector<R::pixel_ycbcr_u8> yc(std::size_t((w + 1) / 2 * h));
    R::bitmap<R::pixel_bgra_u8> b{};
    R::attach(b, bgra.data(), w, h);
    S::ycbcr_bitmap c{yc.data(), w, h, (w + 1) / 2 * 4, false};
    R::rasterize::line(b, p0, p1, R::pixel_bgra_u8{0, 0, 0, 1});
    R::rasterize::line(c, p0, p1, R::pixel_ycbcr_u8{1, 2, 3, 4});
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        R::pixel_ycbcr_u8 const &e = yc[std::size_t(y * ((w + 1) / 2) + x / 2)];
        bool const set = bgra[std::size_t(y * w + x)].a == 1;
        ASSERT_EQ(x % 2 ? e.y1 == 4 : e.y0 == 2, set)
            << "(" << p0[0] << ", " << p0[1] << ") to (" << p1[0] << ", " << p1[1] << "), pixel " << x << ", " << y;
        if (set) {
          ASSERT_TRUE(e.cb == 1 && e.cr == 3);
        }
      }
  }
}

}  // namespace
