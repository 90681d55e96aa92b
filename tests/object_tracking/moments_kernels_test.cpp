// The tracker's moment kernels against the scalar model on the harness's
// frames, with and without preview: grids bit for bit, painted bytes and the
// untouched rest of the memory byte for byte.
#include <sight/object_tracking/moments_kernels.h>
#include <sight/operator/detail/member.h>

#include "object_tracking/moments_model.h"
#include "support/harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <vector>

namespace {

namespace S = Korvane::Sight;
namespace D = Korvane::Sight::detail;
namespace mm = moments_model;
using harness::frame;
using harness::layout;

// A grid of (cells_x + 2) by (cells_y + 2) elements, every float one bit
// pattern, so that anything written where it should not be shows.
struct grid {
  int cells_x, cells_y, stride;
  std::vector<float> mem;
  explicit grid(frame const &f) {
    bool const wide = f.l != layout::bgra && f.l != layout::ycbcra;
    bool const tall = f.l == layout::y_cbcr || f.l == layout::y_cb_cr;
    cells_x = f.g.width / (wide ? 16 : 8), cells_y = f.g.height / (tall ? 16 : 8);
    stride = (cells_x + 2) * 32;
    mem.resize(std::size_t(stride / 4) * std::size_t(cells_y + 2) + 4);
    std::memset(mem.data(), 0xC3, mem.size() * 4);
  }
};

// One layout's member, picked from the bitmaps as the drivers pick it; the
// member taken is left in `aligned` (-1 for the single planar one).
struct kernels {
  D::moment_grid g;
  bool preview;
  int &aligned;
  template <class F, class... B>
  void pick(F const &f, B const &...b) const {
    D::with_member([&](auto a) { aligned = a, D::with_flag(preview, [&](auto p) { f(a, p); }); }, b...);
  }
  void operator()(S::bgra_bitmap const &b) const { pick([&](auto a, auto p) { D::generate_moments_bgra<a, p>(b, g); }, b); }
  void operator()(S::ycbcra_bitmap const &b) const { pick([&](auto a, auto p) { D::generate_moments_ycbcra<a, p>(b, g); }, b); }
  void operator()(S::ycbcr_bitmap const &b) const { pick([&](auto a, auto p) { D::generate_moments_422<a, p>(b, g); }, b); }
  void operator()(S::y_bitmap const &y, S::cbcr_bitmap const &c) const {
    pick([&](auto a, auto p) { D::generate_moments_y_cbcr<a, p>(y, c, g); }, y, c);
  }
  void operator()(S::y_bitmap const &y, S::cb_bitmap const &cb, S::cr_bitmap const &cr) const {
    if (!preview) return aligned = -1, D::generate_moments_planar(cb, cr, g);
    D::with_member([&](auto a) { aligned = a, D::generate_moments_planar_preview<a>(y, cb, cr, g); }, y, cb, cr);
  }
};

void run_kernel(frame const &f, grid &g, mm::key const &k, bool preview, int &aligned) {
  alignas(16) std::uint16_t lanes[3][8];  // the key as the driver lays it out
  mm::key_lanes(k, lanes[0], lanes[1], lanes[2]);
  harness::visit(f, kernels{{g.mem.data(), g.stride, g.cells_x, g.cells_y, lanes[0], lanes[1], lanes[2]}, preview,
                            aligned});
}

void run_model(frame const &f, grid &g, mm::key const &k, bool preview) {
  auto const &p = f.planes;
  int const w = f.g.width, h = f.g.height;
  float *c = g.mem.data();
  switch (f.l) {
    case layout::bgra: return mm::moments_bgra(p[0].data(), p[0].shape().stride, w, h, k, preview, c, g.stride);
    case layout::ycbcra: return mm::moments_ycbcra(p[0].data(), p[0].shape().stride, w, h, k, preview, c, g.stride);
    case layout::ycbcr_422: return mm::moments_422(p[0].data(), p[0].shape().stride, w, h, k, preview, c, g.stride);
    case layout::y_cbcr:
      return mm::moments_y_cbcr(p[0].data(), p[0].shape().stride, p[1].data(), p[1].shape().stride, w, h, k, preview,
                                c, g.stride);
    default:
      return mm::moments_planar(p[0].data(), p[0].shape().stride, p[1].data(), p[1].shape().stride, p[2].data(),
                                p[2].shape().stride, w, h, k, preview, c, g.stride);
  }
}

// Every float of the grid, border and the untouched halves of empty cells
// included, bit for bit; the first difference is named by element and float.
::testing::AssertionResult same_grid(grid const &want, grid const &got) {
  for (std::size_t n = 0; n < want.mem.size(); ++n)
    if (std::memcmp(&want.mem[n], &got.mem[n], 4) != 0)
      return ::testing::AssertionFailure() << "element x " << n * 4 % std::size_t(want.stride) / 32 << " y "
                                           << n * 4 / std::size_t(want.stride) << " float " << n % 8 << ": model "
                                           << want.mem[n] << ", kernel " << got.mem[n];
  return ::testing::AssertionSuccess();
}

mm::key const keys[] = {
    mm::make_key(0.78431374f, 0.5372549f, 0.46666667f, 0.7f, 0.3f),  // the default: 111, 157, 2844, 992
    mm::make_key(0.2f, 0.8f, 0.3f, 0.7f, 0.0f),                      // nearly a hard cut
    mm::make_key(0.5f, 0.1f, 0.9f, 1.0f, 1.0f),                      // a wide ramp
};

// Per block of 16 by 16 pixels one of: far from the key (weight 0), the key
// exactly, near it by a random spread, or noise; so that cells are empty,
// full and in between.
void fill(frame const &f, mm::key const &k, unsigned seed) {
  std::mt19937 rng(seed);
  f.randomize(rng);
  f.paint([&](int x, int y) {
    std::uint32_t b = std::uint32_t(x / 16) * 0x9E3779B1u ^ std::uint32_t(y / 16) * 0x85EBCA77u ^ seed;
    b = (b ^ b >> 15) * 0x2C1B3C6Du;
    int const mode = int(b % 20), spread = mode < 10 ? 0 : int(b / 20 % 45);
    auto const near = [&](int c) { return std::clamp(c + int(rng() % unsigned(2 * spread + 1)) - spread, 0, 255); };
    if (mode >= 17) return harness::from_chroma(int(rng() % 256), int(rng() % 256), int(rng() % 256), 0);
    if (mode < 6) return harness::from_chroma(64 + int(rng() % 128), k.cb < 128 ? 250 : 5, k.cr < 128 ? 250 : 5);
    return harness::from_chroma(64 + int(rng() % 128), near(k.cb), near(k.cr), std::uint8_t(rng()));
  });
}

using params = std::tuple<layout, harness::geometry, bool>;
class moments_kernels_test : public ::testing::TestWithParam<params> {};

TEST_P(moments_kernels_test, kernel_matches_the_model) {
  auto const [l, geo, preview] = GetParam();
  unsigned const seed = unsigned(geo.width * 7919 + geo.height * 31 + geo.offset * 5 + geo.pad + int(l));
  mm::key const &k = keys[seed % 3];
  frame const original(l, geo);
  fill(original, k, seed);
  frame const want = original, got = original;
  grid model_grid(original), kernel_grid(original);
  run_model(want, model_grid, k, preview);
  int aligned = 0;
  run_kernel(got, kernel_grid, k, preview, aligned);
  if (aligned >= 0) {
    EXPECT_EQ(aligned == 1, original.aligned()) << "member";
  }
  EXPECT_TRUE(same_grid(model_grid, kernel_grid));
  EXPECT_TRUE(harness::same_frame(want, got));
}

INSTANTIATE_TEST_SUITE_P(frames, moments_kernels_test,
                         ::testing::Combine(::testing::ValuesIn(harness::pixel_layouts),
                                            ::testing::ValuesIn(harness::geometries({7, 16, 17, 40})),
                                            ::testing::Bool()),
                         [](auto const &info) {
                           return harness::name_of(std::get<0>(info.param), std::get<1>(info.param)) +
                                  (std::get<2>(info.param) ? "_preview" : "");
                         });

// Hand-worked numbers: a frame of one cell whose samples all have the same
// chroma, or a single keyed sample (x, y) among samples far from the key, and
// the cell's sum_x, sum_y and mass. With scale 256 and offset 255 the weight
// is 255 - D. A full cell has its centre at local (3.5, 3.5) samples, 7
// pixels where a sample stands for two.
struct worked {
  char const *what;
  layout l;
  std::uint8_t s[3];  // chroma of the samples (B, G, R for BGRA)
  int key_cb, key_cr, scale, offset, x, y;
  float want[3];
};
worked const worked_cases[] = {
    {"default key, D 66", layout::ycbcr_422, {111 - 66, 157}, 111, 157, 2844, 992, -1, -1, {64 * 255 * 7, 64 * 255 * 3.5f, 64 * 255}},
    {"default key, D 70", layout::ycbcr_422, {111, 157 + 70}, 111, 157, 2844, 992, -1, -1, {64 * 215 * 7, 64 * 215 * 3.5f, 64 * 215}},
    {"default key, D 80", layout::ycbcra, {111 + 40, 157 - 40}, 111, 157, 2844, 992, -1, -1, {64 * 104 * 3.5f, 64 * 104 * 3.5f, 64 * 104}},
    {"default key, D 89", layout::y_cb_cr, {111 - 89, 157}, 111, 157, 2844, 992, -1, -1, {64 * 4 * 7, 64 * 4 * 7, 64 * 4}},
    {"default key, D 90", layout::y_cbcr, {111, 157 - 90}, 111, 157, 2844, 992, -1, -1, {0, 0, 0}},
    {"black BGRA is 128, 128", layout::bgra, {0, 0, 0}, 128, 128, 256, 255, -1, -1, {64 * 255 * 3.5f, 64 * 255 * 3.5f, 64 * 255}},
    {"white BGRA is 138, 128", layout::bgra, {255, 255, 255}, 138, 128, 256, 255, -1, -1, {64 * 255 * 3.5f, 64 * 255 * 3.5f, 64 * 255}},
    {"white BGRA is 10 from neutral", layout::bgra, {255, 255, 255}, 128, 128, 256, 255, -1, -1, {64 * 245 * 3.5f, 64 * 245 * 3.5f, 64 * 245}},
    {"default key, D 67 over Cb and Cr", layout::ycbcra, {111 + 30, 157 - 37}, 111, 157, 2844, 992, -1, -1, {64 * 248 * 3.5f, 64 * 248 * 3.5f, 64 * 248}},
    {"distance clamps at 255", layout::ycbcra, {255, 255}, 0, 0, 256, 300, -1, -1, {64 * 45 * 3.5f, 64 * 45 * 3.5f, 64 * 45}},
    {"default colour as BGRA is 116, 157", layout::bgra, {119, 137, 200}, 116, 157, 256, 255, -1, -1, {64 * 255 * 3.5f, 64 * 255 * 3.5f, 64 * 255}},
    {"4:2:2 element 3, line 5 of cell 0", layout::ycbcr_422, {200, 200}, 200, 200, 256, 255, 3, 5, {255 * 6, 255 * 5, 255}},
    {"plane sample 7, 2 of cell 0", layout::y_cb_cr, {200, 200}, 200, 200, 256, 255, 7, 2, {255 * 14, 255 * 4, 255}},
};

TEST(moments_kernels_worked_test, cell_moments) {
  for (worked const &c : worked_cases) {
    int const ux = c.l == layout::bgra || c.l == layout::ycbcra ? 1 : 2;
    int const uy = c.l == layout::y_cbcr || c.l == layout::y_cb_cr ? 2 : 1;
    frame const f(c.l, {8 * ux, 8 * uy, 0, 0, false});
    // Chroma 60 elsewhere: D of at least 255 from the key 200, 200.
    f.paint([&](int x, int y) {
      bool const keyed = c.x < 0 || (x / ux == c.x && y / uy == c.y);
      return keyed ? harness::sample{c.s[0], c.s[1], c.s[2], 255, 60, c.s[0], c.s[1]}
                   : harness::sample{60, 60, 60, 60, 60, 60, 60};
    });
    for (bool preview : {false, true}) {
      grid g(f);
      int aligned = 0;
      run_kernel(frame(f), g, mm::key{c.key_cb, c.key_cr, c.scale, c.offset}, preview, aligned);
      float const *e = g.mem.data() + g.stride / 4 + 8;  // element (1, 1)
      for (int n = 0; n < 3; ++n) EXPECT_EQ(e[n], c.want[n]) << c.what << " float " << n << " preview " << preview;
    }
  }
}

}  // namespace
