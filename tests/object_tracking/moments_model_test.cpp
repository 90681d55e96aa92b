// Checks of the scalar moment model itself, against numbers worked by hand,
// so that a kernel compared with it is compared with something known good.
#include "object_tracking/moments_model.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

namespace mm = moments_model;

TEST(moments_model_test, worked_numbers) {
  mm::key const dflt = mm::make_key(0.78431374f, 0.5372549f, 0.46666667f, 0.7f, 0.3f);
  auto bgra = [](std::uint8_t b, std::uint8_t g, std::uint8_t r, std::uint8_t a) {
    std::uint8_t const px[4] = {b, g, r, a};
    return mm::chroma_bgra(px);
  };
  // Weight at distance D along Cb alone.
  auto weight_at = [&](int d) { return mm::weight(dflt.cb - d, dflt.cr, dflt); };
  struct row {
    char const *what;
    std::function<int()> got;
    int want;
  };
  row const rows[] = {
      {"default key Cb", [&] { return dflt.cb; }, 111},
      {"default key Cr", [&] { return dflt.cr; }, 157},
      {"default key_scale", [&] { return dflt.scale; }, 2844},
      {"default key_offset", [&] { return dflt.offset; }, 992},
      {"weight D 66", [&] { return weight_at(66); }, 255},
      {"weight D 70", [&] { return weight_at(70); }, 215},
      {"weight D 80", [&] { return weight_at(80); }, 104},
      {"weight D 89", [&] { return weight_at(89); }, 4},
      {"weight D 90", [&] { return weight_at(90); }, 0},
      {"weight D 67 split over Cb and Cr",
       [&] { return mm::weight(dflt.cb + 30, dflt.cr - 37, dflt); }, 248},
      {"distance clamps at 255",
       [] {
         return mm::weight(255, 255, mm::key{0, 0, 256, 300});
       },
       45},
      {"wide key key_scale", [] { return mm::make_key(0.5f, 0.5f, 0.5f, 1.0f, 1.0f).scale; }, 853},
      {"wide key key_offset", [] { return mm::make_key(0.5f, 0.5f, 0.5f, 1.0f, 1.0f).offset; },
       425},
      {"black BGRA Cb", [&] { return bgra(0, 0, 0, 255).cb; }, 128},
      {"black BGRA Cr", [&] { return bgra(0, 0, 0, 255).cr; }, 128},
      {"white BGRA Cb", [&] { return bgra(255, 255, 255, 255).cb; }, 138},
      {"white BGRA Cr", [&] { return bgra(255, 255, 255, 255).cr; }, 128},
      {"default colour as BGRA Cb", [&] { return bgra(119, 137, 200, 255).cb; }, 116},
      {"default colour as BGRA Cr", [&] { return bgra(119, 137, 200, 255).cr; }, 157},
      {"transparent pixel keeps its chroma", [&] { return bgra(119, 137, 200, 0).cb; }, 116},
      {"smallest soft key_scale", [] { return mm::make_key(0.5f, 0.5f, 0.5f, 0.7f, 0.0f).scale; },
       25600},
      {"tolerance_c 0 key_offset", [] { return mm::make_key(0.5f, 0.5f, 0.5f, 0.0f, 0.3f).offset; },
       0},
      {"pure red key Cr", [] { return mm::make_key(1.0f, 0.0f, 0.0f, 0.7f, 0.3f).cr; }, 240},
      {"key Cb clamps at 255", [] { return mm::make_key(0.0f, 0.0f, 2.0f, 0.7f, 0.3f).cb; }, 255},
      {"key Cb clamps at 0", [] { return mm::make_key(0.0f, 2.0f, 0.0f, 0.7f, 0.3f).cb; }, 0},
  };
  for (row const &r : rows) EXPECT_EQ(r.got(), r.want) << r.what;
}

// One frame of any layout, filled so that exactly the samples chosen by the
// test carry the key; every other sample is far from it and weighs 0.
enum class layout { bgra, ycbcra, s422, y_cbcr, planar };

struct layout_case {
  layout l;
  char const *name;
  int px_w, px_h;         // pixels per chroma sample across and down
  std::uint8_t keyed[4];  // frame bytes of a keyed sample after preview
  std::uint8_t other[4];  // and of a sample of weight 0
};

// The key the frames below are built for: the default colour's BGRA chroma
// (116, 157) at distance 0, with the default key curve.
constexpr mm::key test_key{116, 157, 2844, 992};
constexpr std::uint8_t luma = 200, alpha = 77, sentinel = 0xA5;

struct frame {
  layout_case const &lc;
  int sw, sh;         // chroma samples across and down
  int width, height;  // pixels of the first bitmap
  int stride_a, stride_b;
  std::vector<std::uint8_t> a, b, c;  // main or luma plane; chroma planes

  frame(layout_case const &lc_, int sw_, int sh_) : lc(lc_), sw(sw_), sh(sh_) {
    width = sw * lc.px_w;
    height = sh * lc.px_h;
    int const bytes = (lc.l == layout::y_cbcr || lc.l == layout::planar) ? 1 : 4;
    stride_a = (lc.l == layout::s422 ? sw : width) * bytes + 3;  // odd pad on purpose
    stride_b = sw * (lc.l == layout::y_cbcr ? 2 : 1) + 5;
    a.assign(std::size_t(stride_a) * height, sentinel);
    if (lc.l == layout::y_cbcr || lc.l == layout::planar) {
      b.assign(std::size_t(stride_b) * sh, sentinel);
      c.assign(std::size_t(stride_b) * sh, sentinel);
      for (int y = 0; y < height; ++y) std::memset(&a[std::size_t(y) * stride_a], luma, width);
    }
    for (int y = 0; y < sh; ++y)
      for (int x = 0; x < sw; ++x) set(x, y, false);
  }

  // Chroma (and the fixed luma/alpha) of sample (x, y), keyed or not.
  void set(int x, int y, bool keyed) {
    std::uint8_t const cb = keyed ? 116 : 255, cr = keyed ? 157 : 0;
    auto p = [&](int k) -> std::uint8_t & {
      return a[std::size_t(y) * stride_a + std::size_t(x) * 4 + k];
    };
    switch (lc.l) {
      case layout::bgra:  // (119, 137, 200) has chroma (116, 157); pure blue is far off
        p(0) = keyed ? 119 : 255, p(1) = keyed ? 137 : 0, p(2) = keyed ? 200 : 0, p(3) = alpha;
        break;
      case layout::ycbcra:
        p(0) = luma, p(1) = cb, p(2) = cr, p(3) = alpha;
        break;
      case layout::s422:
        p(0) = cb, p(1) = luma, p(2) = cr, p(3) = luma;
        break;
      case layout::y_cbcr:
        b[std::size_t(y) * stride_b + x * 2] = cb, b[std::size_t(y) * stride_b + x * 2 + 1] = cr;
        break;
      case layout::planar:
        b[std::size_t(y) * stride_b + x] = cb, c[std::size_t(y) * stride_b + x] = cr;
        break;
    }
  }

  void run(bool preview, float *cells, int cells_stride) {
    std::uint8_t *pa = a.data(), *pb = b.data(), *pc = c.data();
    switch (lc.l) {
      case layout::bgra:
        mm::moments_bgra(pa, stride_a, width, height, test_key, preview, cells, cells_stride);
        break;
      case layout::ycbcra:
        mm::moments_ycbcra(pa, stride_a, width, height, test_key, preview, cells, cells_stride);
        break;
      case layout::s422:
        mm::moments_422(pa, stride_a, width, height, test_key, preview, cells, cells_stride);
        break;
      case layout::y_cbcr:
        mm::moments_y_cbcr(pa, stride_a, pb, stride_b, width, height, test_key, preview, cells,
                           cells_stride);
        break;
      case layout::planar:
        mm::moments_planar(pa, stride_a, pb, stride_b, pc, stride_b, width, height, test_key,
                           preview, cells, cells_stride);
        break;
    }
  }

  // Bytes the preview leaves for sample (x, y): up to four, as in layout_case.
  std::vector<int> bytes_of(int x, int y) const {
    switch (lc.l) {
      case layout::y_cbcr:
        return {b[std::size_t(y) * stride_b + x * 2], b[std::size_t(y) * stride_b + x * 2 + 1],
                luma_at(2 * x, 2 * y)};
      case layout::planar:
        return {b[std::size_t(y) * stride_b + x], c[std::size_t(y) * stride_b + x],
                luma_at(2 * x, 2 * y)};
      default: {
        std::uint8_t const *p = &a[std::size_t(y) * stride_a + std::size_t(x) * 4];
        return {p[0], p[1], p[2], p[3]};
      }
    }
  }
  // Luma of the 2 by 2 group at (x, y), or -1 where its four pixels differ.
  int luma_at(int x, int y) const {
    int const v = a[std::size_t(y) * stride_a + x];
    for (int d = 1; d < 4; ++d)
      if (a[std::size_t(y + d / 2) * stride_a + x + d % 2] != v) return -1;
    return v;
  }
};

class moments_model_layout_test : public ::testing::TestWithParam<layout_case> {};

constexpr int cells_x = 3, cells_y = 2, extra = 5;    // samples past the last whole cell
constexpr int grid_stride = (cells_x + 2) * 32 + 32;  // a spare element per grid row
constexpr float grid_sentinel = -7.0f;

// Keyed samples at chosen places, each alone in its cell: the cell's moments
// must be those of one weight-255 point at the sample's first pixel, empty
// cells zero their first four floats only, and the border stays untouched.
TEST_P(moments_model_layout_test, single_samples_land_at_their_pixels) {
  layout_case const &lc = GetParam();
  for (bool preview : {false, true}) {
    frame f(lc, cells_x * 8 + extra, cells_y * 8 + extra);
    struct spot {
      int x, y;
    } const spots[] = {{0, 0}, {8 + 7, 3}, {16 + 2, 8 + 7}};
    for (spot s : spots) f.set(s.x, s.y, true);
    f.set(cells_x * 8 + 1, 2, true);  // past the last whole cell: never seen
    std::vector<float> grid(grid_stride / 4 * (cells_y + 2), grid_sentinel);
    f.run(preview, grid.data(), grid_stride);

    for (int j = 0; j < cells_y + 2; ++j)
      for (int i = 0; i < grid_stride / 32; ++i) {
        float const *e = &grid[std::size_t(j) * grid_stride / 4 + i * 8];
        bool const interior = i >= 1 && i <= cells_x && j >= 1 && j <= cells_y;
        spot const *hit = nullptr;
        for (spot const &s : spots)
          if (interior && s.x / 8 == i - 1 && s.y / 8 == j - 1) hit = &s;
        SCOPED_TRACE(testing::Message()
                     << lc.name << " preview " << preview << " element " << i << "," << j);
        if (!interior) {
          for (int k = 0; k < 8; ++k) EXPECT_EQ(e[k], grid_sentinel) << "float " << k;
        } else if (!hit) {
          for (int k = 0; k < 4; ++k) EXPECT_EQ(e[k], 0.0f) << "float " << k;
          for (int k = 4; k < 8; ++k) EXPECT_EQ(e[k], grid_sentinel) << "float " << k;
        } else {
          float const x = float(hit->x * lc.px_w), y = float(hit->y * lc.px_h);
          float const want[8] = {255 * x,     255 * y,     255,         0,
                                 255 * x * x, 255 * y * y, 255 * x * y, 0};
          for (int k = 0; k < 8; ++k) EXPECT_EQ(e[k], want[k]) << "float " << k;
        }
      }
  }
}

// A frame keyed all over: every cell weighs 64 * 255 with its centre of mass
// at the mean of its samples' first pixels, in every layout.
TEST_P(moments_model_layout_test, full_cells_weigh_alike) {
  layout_case const &lc = GetParam();
  frame f(lc, cells_x * 8, cells_y * 8);
  for (int y = 0; y < f.sh; ++y)
    for (int x = 0; x < f.sw; ++x) f.set(x, y, true);
  std::vector<float> grid(grid_stride / 4 * (cells_y + 2), grid_sentinel);
  f.run(false, grid.data(), grid_stride);
  for (int j = 0; j < cells_y; ++j)
    for (int i = 0; i < cells_x; ++i) {
      float const *e = &grid[std::size_t(j + 1) * grid_stride / 4 + (i + 1) * 8];
      float const cx = 8 * lc.px_w * i + 3.5f * lc.px_w, cy = 8 * lc.px_h * j + 3.5f * lc.px_h;
      EXPECT_EQ(e[2], 64 * 255.0f) << lc.name << " cell " << i << "," << j;
      EXPECT_EQ(e[0], cx * e[2]) << lc.name << " cell " << i << "," << j;
      EXPECT_EQ(e[1], cy * e[2]) << lc.name << " cell " << i << "," << j;
    }
}

// Preview paints keyed and unkeyed samples with the hand-worked bytes, and
// leaves everything past the last whole cell as it was.
TEST_P(moments_model_layout_test, preview_paints_whole_cells_only) {
  layout_case const &lc = GetParam();
  frame f(lc, cells_x * 8 + extra, cells_y * 8 + extra);
  f.set(9, 4, true);
  frame untouched = f;
  std::vector<float> grid(grid_stride / 4 * (cells_y + 2), grid_sentinel);
  f.run(true, grid.data(), grid_stride);
  for (int y = 0; y < f.sh; ++y)
    for (int x = 0; x < f.sw; ++x) {
      bool const inside = x < cells_x * 8 && y < cells_y * 8;
      std::vector<int> const got = f.bytes_of(x, y);
      std::vector<int> want = untouched.bytes_of(x, y);
      if (inside) {
        std::uint8_t const *w = (x == 9 && y == 4) ? lc.keyed : lc.other;
        for (std::size_t k = 0; k < got.size(); ++k) want[k] = w[k];
      }
      EXPECT_EQ(got, want) << lc.name << " x " << x << " y " << y;
    }
  EXPECT_EQ(f.a.size(), untouched.a.size());
  // Pads past each line hold the sentinel still.
  for (int y = 0; y < f.height; ++y)
    for (int p = f.stride_a - 3; p < f.stride_a; ++p)
      EXPECT_EQ(f.a[std::size_t(y) * f.stride_a + p], sentinel) << lc.name << " pad of line " << y;
}

// keyed: (c * 255) >> 8 per colour or blend(c, k, 255); other: w = 0, which
// for the blends leaves (k * 255) >> 8, i.e. one below k.
layout_case const cases[] = {
    {layout::bgra, "bgra", 1, 1, {118, 136, 199, 255}, {0, 0, 0, 255}},
    {layout::ycbcra, "ycbcra", 1, 1, {199, 115, 156, 254}, {0, 127, 127, 254}},
    {layout::s422, "ycbcr_422", 2, 1, {115, 199, 156, 199}, {127, 15, 127, 15}},
    {layout::y_cbcr, "y_cbcr", 2, 2, {115, 156, 199, 0}, {127, 127, 0, 0}},
    {layout::planar, "planar", 2, 2, {115, 156, 199, 0}, {127, 127, 0, 0}},
};

INSTANTIATE_TEST_SUITE_P(layouts, moments_model_layout_test, ::testing::ValuesIn(cases),
                         [](auto const &info) { return std::string(info.param.name); });

}  // namespace
