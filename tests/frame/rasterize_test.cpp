// Lines on every layout: clipping, and nothing written outside the bitmap.
//
// A line drawn on a view (a window into a larger canvas) with its end points
// moved into the view's coordinates must change exactly the canvas bytes that
// the same line drawn on the whole canvas changes inside the window, and
// nothing outside the window.
#include <sight/frame/rasterize.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace R = Tamarind::Rasters;

namespace {

enum class layout { bgra, ycbcra, ycbcr_422, y_cbcr, planar };

struct plane_shape {
  int unit_bytes;  // bytes per addressed unit
  int unit_px;     // horizontal pixels per unit (2 for 4:2:2 elements and chroma)
  int line_div;    // vertical pixels per line (2 for chroma planes)
};

std::vector<plane_shape> shapes(layout l) {
  switch (l) {
    case layout::bgra:
    case layout::ycbcra: return {{4, 1, 1}};
    case layout::ycbcr_422: return {{4, 2, 1}};
    case layout::y_cbcr: return {{1, 1, 1}, {2, 2, 2}};
    case layout::planar: return {{1, 1, 1}, {1, 2, 2}, {1, 2, 2}};
  }
  return {};
}

// Planes of a canvas of W x H pixels, each line padded by 5 bytes.
struct canvas {
  layout kind;
  int width, height;
  std::vector<std::vector<std::uint8_t>> planes;
  std::vector<int> strides;

  canvas(layout l, int w, int h, std::uint32_t seed) : kind(l), width(w), height(h) {
    std::mt19937 rng(seed);
    for (plane_shape s : shapes(l)) {
      int const stride = (w + s.unit_px - 1) / s.unit_px * s.unit_bytes + 5;
      strides.push_back(stride);
      planes.emplace_back(std::size_t(stride) * std::size_t((h + s.line_div - 1) / s.line_div));
      for (auto &b : planes.back()) b = std::uint8_t(rng());
    }
  }

  // Draws on the window at (ox, oy) of w x h pixels (ox, oy even; w even for
  // 4:2:2, whose elements hold two pixels).
  void draw(int ox, int oy, int w, int h, int const *p0, int const *p1) {
    std::vector<std::uint8_t *> at;
    auto const sh = shapes(kind);
    for (std::size_t i = 0; i < planes.size(); ++i)
      at.push_back(planes[i].data() + std::size_t(oy / sh[i].line_div) * std::size_t(strides[i]) +
                   std::size_t(ox / sh[i].unit_px * sh[i].unit_bytes));
    R::pixel_ycbcr_u8 const yc{200, 201, 202, 203};
    switch (kind) {
      case layout::bgra: {
        R::bitmap<R::pixel_bgra_u8> b{};
        R::attach(b, reinterpret_cast<R::pixel_bgra_u8 *>(at[0]), w, h, strides[0]);
        R::rasterize::line(b, p0, p1, R::pixel_bgra_u8{1, 2, 3, 4});
        break;
      }
      case layout::ycbcra: {
        R::bitmap<R::pixel_ycbcra_u8> b{};
        R::attach(b, reinterpret_cast<R::pixel_ycbcra_u8 *>(at[0]), w, h, strides[0]);
        R::rasterize::line(b, p0, p1, R::pixel_ycbcra_u8{5, 6, 7, 8});
        break;
      }
      case layout::ycbcr_422: {
        R::bitmap_422<R::pixel_ycbcr_u8> b{};
        R::attach(b, reinterpret_cast<R::pixel_ycbcr_u8 *>(at[0]), w, h, strides[0]);
        R::rasterize::line(b, p0, p1, yc);
        break;
      }
      case layout::y_cbcr: {
        R::bitmap<R::pixel_y_u8> y{};
        R::bitmap<R::pixel_cbcr_u8> c{};
        R::attach(y, reinterpret_cast<R::pixel_y_u8 *>(at[0]), w, h, strides[0]);
        R::attach(c, reinterpret_cast<R::pixel_cbcr_u8 *>(at[1]), w / 2, h / 2, strides[1]);
        R::rasterize::line(y, c, p0, p1, yc);
        break;
      }
      case layout::planar: {
        R::bitmap<R::pixel_y_u8> y{};
        R::bitmap<R::pixel_cb_u8> cb{};
        R::bitmap<R::pixel_cr_u8> cr{};
        R::attach(y, reinterpret_cast<R::pixel_y_u8 *>(at[0]), w, h, strides[0]);
        R::attach(cb, reinterpret_cast<R::pixel_cb_u8 *>(at[1]), w / 2, h / 2, strides[1]);
        R::attach(cr, reinterpret_cast<R::pixel_cr_u8 *>(at[2]), w / 2, h / 2, strides[2]);
        R::rasterize::line(y, cb, cr, p0, p1, yc);
        break;
      }
    }
  }
};

struct line_case {
  layout kind;
  int window_w, window_h;
};

std::string name_of(::testing::TestParamInfo<line_case> const &info) {
  static char const *const names[] = {"bgra", "ycbcra", "ycbcr_422", "y_cbcr", "planar"};
  return std::string(names[int(info.param.kind)]) + "_" + std::to_string(info.param.window_w) + "x" +
         std::to_string(info.param.window_h);
}

class rasterize_test : public ::testing::TestWithParam<line_case> {};

constexpr int kW = 64, kH = 48, kOx = 10, kOy = 6;

// Compares the window drawing with the whole-canvas drawing, byte by byte.
void expect_clipped_like_whole(line_case const &c, int const *p0, int const *p1, std::uint32_t seed) {
  canvas const start(c.kind, kW, kH, seed);
  canvas whole = start, window = start;
  whole.draw(0, 0, kW, kH, p0, p1);
  int const q0[2] = {p0[0] - kOx, p0[1] - kOy}, q1[2] = {p1[0] - kOx, p1[1] - kOy};
  window.draw(kOx, kOy, c.window_w, c.window_h, q0, q1);
  auto const sh = shapes(c.kind);
  for (std::size_t i = 0; i < sh.size(); ++i) {
    // The window's part of plane i, in units and lines.
    int const x0 = kOx / sh[i].unit_px * sh[i].unit_bytes, y0 = kOy / sh[i].line_div;
    int const w = i == 0 ? (c.window_w + sh[i].unit_px - 1) / sh[i].unit_px * sh[i].unit_bytes
                         : c.window_w / sh[i].unit_px * sh[i].unit_bytes;
    int const h = i == 0 ? c.window_h : c.window_h / sh[i].line_div;
    for (std::size_t k = 0; k < start.planes[i].size(); ++k) {
      int const x = int(k % std::size_t(start.strides[i])), y = int(k / std::size_t(start.strides[i]));
      bool const inside = x >= x0 && x < x0 + w && y >= y0 && y < y0 + h;
      std::uint8_t const expected = inside ? whole.planes[i][k] : start.planes[i][k];
      ASSERT_EQ(window.planes[i][k], expected)
          << "plane " << i << " byte " << x << " line " << y << (inside ? " inside" : " outside")
          << " line from (" << p0[0] << ", " << p0[1] << ") to (" << p1[0] << ", " << p1[1] << ")";
    }
  }
}

TEST_P(rasterize_test, window_drawing_matches_whole_canvas_inside_and_writes_nothing_outside) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> near(-40, 100), far(-1000000000, 1000000000);
  for (int i = 0; i < 300; ++i) {
    bool const very_far = i % 3 == 0;
    int const p0[2] = {near(rng), near(rng)};
    int const p1[2] = {very_far ? far(rng) : near(rng), very_far ? far(rng) : near(rng)};
    expect_clipped_like_whole(GetParam(), p0, p1, std::uint32_t(i));
    if (HasFatalFailure()) return;
  }
  // Axis-parallel lines along the window's edges, and single points.
  int const w = GetParam().window_w, h = GetParam().window_h;
  int const edges[][4] = {{kOx, kOy, kOx + w - 1, kOy},         {kOx, kOy + h - 1, kOx + w - 1, kOy + h - 1},
                          {kOx, kOy - 5, kOx, kOy + h + 5},     {kOx + w, kOy, kOx + w, kOy + h},
                          {kOx + 3, kOy + 2, kOx + 3, kOy + 2}, {kOx - 1, kOy - 1, kOx - 1, kOy - 1}};
  for (auto const &e : edges) {
    expect_clipped_like_whole(GetParam(), e, e + 2, 99);
    if (HasFatalFailure()) return;
  }
}

TEST_P(rasterize_test, extreme_end_points_fill_a_row_and_a_column_exactly) {
  line_case const &c = GetParam();
  canvas const start(c.kind, kW, kH, 5);
  canvas row = start;
  int const a[2] = {INT_MIN, 3}, b[2] = {INT_MAX, 3};
  row.draw(kOx, kOy, c.window_w, c.window_h, a, b);
  canvas column = start;
  int const d[2] = {4, INT_MAX}, e[2] = {4, INT_MIN};
  column.draw(kOx, kOy, c.window_w, c.window_h, d, e);
  // Luma (or the only plane): every pixel of the row and the column is set,
  // and nothing else changes in that plane.
  int const unit = shapes(c.kind)[0].unit_bytes, per = shapes(c.kind)[0].unit_px;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      std::size_t const at = std::size_t(y) * std::size_t(start.strides[0]) + std::size_t(x / per * unit);
      // The luma byte of pixel x: 4:2:2 keeps it at byte 1 or 3 of the element.
      std::size_t const luma = c.kind == layout::ycbcr_422 ? at + 1 + 2 * std::size_t(x % 2) : at;
      bool const in_row = 3 < c.window_h && y == kOy + 3 && x >= kOx && x < kOx + c.window_w;
      bool const in_column = 4 < c.window_w && x == kOx + 4 && y >= kOy && y < kOy + c.window_h;
      std::uint8_t const drawn = c.kind == layout::bgra     ? 1
                                 : c.kind == layout::ycbcra ? 5
                                 : c.kind == layout::ycbcr_422 ? std::uint8_t(x % 2 ? 203 : 201)
                                                               : 201;
      EXPECT_EQ(row.planes[0][luma], in_row ? drawn : start.planes[0][luma]) << "row, x " << x << " y " << y;
      EXPECT_EQ(column.planes[0][luma], in_column ? drawn : start.planes[0][luma])
          << "column, x " << x << " y " << y;
    }
}

INSTANTIATE_TEST_SUITE_P(all, rasterize_test,
                         ::testing::Values(line_case{layout::bgra, 21, 15}, line_case{layout::bgra, 1, 1},
                                           line_case{layout::ycbcra, 20, 16}, line_case{layout::ycbcr_422, 22, 15},
                                           line_case{layout::ycbcr_422, 2, 30}, line_case{layout::y_cbcr, 21, 15},
                                           line_case{layout::y_cbcr, 40, 2}, line_case{layout::planar, 21, 15},
                                           line_case{layout::planar, 3, 3}),
                         name_of);

}  // namespace

namespace {

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
    int previous = -1, drawn = 0;
    for (int a = 0; a < 10; ++a) {
      int count = 0, at = -1;
      for (int m = 0; m < 10; ++m)
        if ((x_major ? pixels[m][a] : pixels[a][m]).a == 1) ++count, at = m;
      drawn += count;
      EXPECT_EQ(count, a >= from && a <= to ? 1 : 0) << "major " << a;
      if (count != 1) continue;
      if (previous >= 0) {
        EXPECT_LE(std::abs(at - previous), 1);
      }
      previous = at;
    }
    EXPECT_EQ(drawn, to - from + 1);
    EXPECT_EQ(pixels[e[1]][e[0]].a, 1);
    EXPECT_EQ(pixels[e[3]][e[2]].a, 1);
  }
}

}  // namespace
