// The tracker's moment kernels against the scalar model, on random frames of
// every layout, size, stride and alignment, with and without preview.
#include <sight/object_tracking/moments_kernels.h>

#include "object_tracking/moments_model.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

namespace R = Tamarind::Rasters;
namespace D = Korvane::Sight::detail;
namespace mm = moments_model;

enum class layout { bgra, ycbcra, s422, y_cbcr, planar };
char const *const layout_names[] = {"bgra", "ycbcra", "ycbcr_422", "y_cbcr", "planar"};

enum class stride_kind { packed, aligned, odd, flipped };
char const *const stride_names[] = {"packed", "aligned", "odd", "flipped"};

constexpr std::uint8_t sentinel = 0xA5;

// One plane in a buffer of exactly the size its lines need, so that ASan
// catches a read past its end. Bytes of the stride padding hold the sentinel.
struct plane {
  std::uint8_t *mem = nullptr;
  std::size_t size = 0;
  std::uint8_t *data = nullptr;  // line 0
  int stride = 0, line_bytes = 0, lines = 0;
  int cell_bytes = 0, cell_lines = 0;  // the part covered by whole cells

  plane(int bytes, int lines_, int cb, int cl, stride_kind kind, int offset)
      : line_bytes(bytes), lines(lines_), cell_bytes(cb), cell_lines(cl) {
    int const up16 = (bytes + 15) / 16 * 16;
    int const s = kind == stride_kind::packed    ? bytes
                  : kind == stride_kind::aligned ? up16 + 16
                  : kind == stride_kind::odd     ? bytes + 5
                                                 : up16;
    stride = kind == stride_kind::flipped ? -s : s;
    size = std::size_t(offset) + (lines > 0 ? std::size_t(lines - 1) * s + bytes : 0) + (lines == 0);
    mem = static_cast<std::uint8_t *>(::operator new[](size, std::align_val_t(16)));
    std::memset(mem, sentinel, size);
    data = mem + offset + (stride < 0 && lines > 0 ? std::size_t(lines - 1) * s : 0);
  }
  plane(plane const &o)
      : mem(static_cast<std::uint8_t *>(::operator new[](o.size, std::align_val_t(16)))),
        size(o.size),
        data(mem + (o.data - o.mem)),
        stride(o.stride),
        line_bytes(o.line_bytes),
        lines(o.lines),
        cell_bytes(o.cell_bytes),
        cell_lines(o.cell_lines) {
    std::memcpy(mem, o.mem, size);
  }
  plane &operator=(plane const &) = delete;
  ~plane() { ::operator delete[](mem, std::align_val_t(16)); }

  std::uint8_t *at(int x, int y) const { return data + std::ptrdiff_t(y) * stride + x; }
  bool aligned() const { return reinterpret_cast<std::uintptr_t>(data) % 16 == 0 && stride % 16 == 0; }
};

// A frame of one layout: planes[0] is the picture or the luma plane.
struct frame {
  layout l;
  int width, height, cells_x, cells_y;
  std::vector<plane> planes;

  frame(layout l_, int w, int h, stride_kind kind, int offset) : l(l_), width(w), height(h) {
    bool const wide = l != layout::bgra && l != layout::ycbcra;
    bool const tall = l == layout::y_cbcr || l == layout::planar;
    cells_x = w / (wide ? 16 : 8);
    cells_y = h / (tall ? 16 : 8);
    planes.reserve(3);
    switch (l) {
      case layout::bgra:
      case layout::ycbcra: planes.emplace_back(w * 4, h, cells_x * 32, cells_y * 8, kind, offset); break;
      case layout::s422: planes.emplace_back((w + 1) / 2 * 4, h, cells_x * 32, cells_y * 8, kind, offset); break;
      case layout::y_cbcr:
        planes.emplace_back(w, h, cells_x * 16, cells_y * 16, kind, offset);
        planes.emplace_back(w / 2 * 2, h / 2, cells_x * 16, cells_y * 8, kind, offset);
        break;
      case layout::planar:
        planes.emplace_back(w, h, cells_x * 16, cells_y * 16, kind, offset);
        planes.emplace_back(w / 2, h / 2, cells_x * 8, cells_y * 8, kind, offset);
        planes.emplace_back(w / 2, h / 2, cells_x * 8, cells_y * 8, kind, offset);
        break;
    }
  }
  bool aligned() const {
    for (plane const &p : planes)
      if (!p.aligned()) return false;
    return true;
  }
};

// A grid of (cells_x + 2) by (cells_y + 2) elements, every float set to one
// bit pattern, so that anything the kernel should not write shows.
struct grid {
  std::vector<float> mem;
  int stride;
  explicit grid(frame const &f) : stride((f.cells_x + 2) * 32) {
    mem.resize(std::size_t(stride / 4) * (f.cells_y + 2) + 4);
    std::memset(mem.data(), 0xC3, mem.size() * 4);
  }
  float *cells() {  // vector storage is 16-byte aligned on this platform; checked below
    return mem.data();
  }
};

// The key in lanes, as the driver lays it out.
struct key_vectors {
  alignas(16) std::uint16_t cbcr[8], scale[8], offset[8];
  explicit key_vectors(mm::key const &k) { mm::key_lanes(k, cbcr, scale, offset); }
  D::moment_grid to(grid &g, frame const &f) const {
    return {g.cells(), g.stride, f.cells_x, f.cells_y, cbcr, scale, offset};
  }
};

// Random chroma that is often near the key, so that weights span 0 to 255:
// per block of 8 by 8 samples one of background (weight 0), key exactly,
// near the key by a random spread, or uniform noise.
struct chroma_source {
  std::mt19937 rng;
  mm::key k;
  std::uint8_t near_bgr[3], far_bgr[3];  // BGRA colours with chroma nearest to and farthest from the key
  int mode = 0, spread = 0;

  chroma_source(unsigned seed, mm::key const &key) : rng(seed), k(key) {
    int best = 1 << 30, worst = -1;
    for (int b = 0; b < 256; b += 5)
      for (int g = 0; g < 256; g += 5)
        for (int r = 0; r < 256; r += 5) {
          std::uint8_t const px[4] = {std::uint8_t(b), std::uint8_t(g), std::uint8_t(r), 0};
          mm::cbcr const c = mm::chroma_bgra(px);
          int const d = std::abs(c.cb - k.cb) + std::abs(c.cr - k.cr);
          if (d < best) best = d, std::memcpy(near_bgr, px, 3);
          if (d > worst) worst = d, std::memcpy(far_bgr, px, 3);
        }
  }
  void next_block() {
    int const m = int(rng() % 20);
    mode = m < 6 ? 0 : m < 10 ? 1 : m < 17 ? 2 : 3;
    spread = int(rng() % 90);
  }
  std::uint8_t byte() { return std::uint8_t(rng()); }
  std::uint8_t near(int c, int s) {
    int const v = c + int(rng() % (2 * s + 1)) - s;
    return std::uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
  }
  // Three bytes: Cb, Cr and a spare; for BGRA, B, G, R.
  void sample(bool bgra, std::uint8_t out[3]) {
    int const s = mode == 1 ? 0 : mode == 2 ? spread : 0;
    if (mode == 3) {
      out[0] = byte(), out[1] = byte(), out[2] = byte();
    } else if (mode == 0) {  // far from the key in both chroma components
      if (bgra)
        for (int c = 0; c < 3; ++c) out[c] = near(far_bgr[c], 8);
      else
        out[0] = near(k.cb < 128 ? 250 : 5, 5), out[1] = near(k.cr < 128 ? 250 : 5, 5);
    } else if (bgra) {
      for (int c = 0; c < 3; ++c) out[c] = near(near_bgr[c], s / 2);
    } else {
      out[0] = near(k.cb, s / 2), out[1] = near(k.cr, s / 2);
    }
  }
};

void fill(frame &f, chroma_source &src) {
  // Luma and alpha: plain noise.
  for (plane &p : f.planes)
    for (int y = 0; y < p.lines; ++y)
      for (int x = 0; x < p.line_bytes; ++x) *p.at(x, y) = src.byte();
  int const sw = f.l == layout::bgra || f.l == layout::ycbcra ? f.width
                 : f.l == layout::s422                         ? (f.width + 1) / 2
                                                               : f.width / 2;
  int const sh = f.l == layout::y_cbcr || f.l == layout::planar ? f.height / 2 : f.height;
  for (int by = 0; by < sh; by += 8)
    for (int bx = 0; bx < sw; bx += 8) {
      src.next_block();
      for (int y = by; y < by + 8 && y < sh; ++y)
        for (int x = bx; x < bx + 8 && x < sw; ++x) {
          std::uint8_t s[3];
          src.sample(f.l == layout::bgra, s);
          switch (f.l) {
            case layout::bgra: std::memcpy(f.planes[0].at(4 * x, y), s, 3); break;
            case layout::ycbcra: std::memcpy(f.planes[0].at(4 * x + 1, y), s, 2); break;
            case layout::s422: *f.planes[0].at(4 * x, y) = s[0], *f.planes[0].at(4 * x + 2, y) = s[1]; break;
            case layout::y_cbcr: std::memcpy(f.planes[1].at(2 * x, y), s, 2); break;
            case layout::planar: *f.planes[1].at(x, y) = s[0], *f.planes[2].at(x, y) = s[1]; break;
          }
        }
    }
}

template <class T>
R::bitmap<T> view(plane const &p, int w, int h) {
  return {reinterpret_cast<T *>(p.data), w, h, p.stride, false};
}

// One kernel member on frame f.
void run_kernel(frame &f, D::moment_grid const &g, bool aligned, bool preview) {
  auto const &p = f.planes;
  int const w = f.width, h = f.height;
  auto pick = [&](auto k00, auto k01, auto k10, auto k11, auto const &...bitmaps) {
    (aligned ? (preview ? k11 : k10) : (preview ? k01 : k00))(bitmaps..., g);
  };
  using namespace D;
  switch (f.l) {
    case layout::bgra:
      pick(generate_moments_bgra<false, false>, generate_moments_bgra<false, true>, generate_moments_bgra<true, false>,
           generate_moments_bgra<true, true>, view<R::pixel_bgra_u8>(p[0], w, h));
      break;
    case layout::ycbcra:
      pick(generate_moments_ycbcra<false, false>, generate_moments_ycbcra<false, true>,
           generate_moments_ycbcra<true, false>, generate_moments_ycbcra<true, true>,
           view<R::pixel_ycbcra_u8>(p[0], w, h));
      break;
    case layout::s422: {
      R::bitmap_422<R::pixel_ycbcr_u8> const b{reinterpret_cast<R::pixel_ycbcr_u8 *>(p[0].data), w, h, p[0].stride,
                                                false};
      pick(generate_moments_422<false, false>, generate_moments_422<false, true>, generate_moments_422<true, false>,
           generate_moments_422<true, true>, b);
      break;
    }
    case layout::y_cbcr:
      pick(generate_moments_y_cbcr<false, false>, generate_moments_y_cbcr<false, true>,
           generate_moments_y_cbcr<true, false>, generate_moments_y_cbcr<true, true>, view<R::pixel_y_u8>(p[0], w, h),
           view<R::pixel_cbcr_u8>(p[1], w / 2, h / 2));
      break;
    case layout::planar: {
      auto const cb = view<R::pixel_cb_u8>(p[1], w / 2, h / 2);
      auto const cr = view<R::pixel_cr_u8>(p[2], w / 2, h / 2);
      if (!preview) generate_moments_planar(cb, cr, g);
      else if (aligned) generate_moments_planar_preview<true>(view<R::pixel_y_u8>(p[0], w, h), cb, cr, g);
      else generate_moments_planar_preview<false>(view<R::pixel_y_u8>(p[0], w, h), cb, cr, g);
      break;
    }
  }
}

void run_model(frame &f, mm::key const &k, bool preview, grid &g) {
  auto &p = f.planes;
  float *c = g.cells();
  switch (f.l) {
    case layout::bgra: mm::moments_bgra(p[0].data, p[0].stride, f.width, f.height, k, preview, c, g.stride); break;
    case layout::ycbcra: mm::moments_ycbcra(p[0].data, p[0].stride, f.width, f.height, k, preview, c, g.stride); break;
    case layout::s422: mm::moments_422(p[0].data, p[0].stride, f.width, f.height, k, preview, c, g.stride); break;
    case layout::y_cbcr:
      mm::moments_y_cbcr(p[0].data, p[0].stride, p[1].data, p[1].stride, f.width, f.height, k, preview, c, g.stride);
      break;
    case layout::planar:
      mm::moments_planar(p[0].data, p[0].stride, p[1].data, p[1].stride, p[2].data, p[2].stride, f.width, f.height, k,
                         preview, c, g.stride);
      break;
  }
}

// Every float of the grid, border and untouched halves of empty cells
// included, bit for bit. Reports the first difference.
void expect_same_grid(grid const &want, grid const &got, std::string const &what) {
  for (std::size_t n = 0; n < want.mem.size(); ++n) {
    std::uint32_t a, b;
    std::memcpy(&a, &want.mem[n], 4);
    std::memcpy(&b, &got.mem[n], 4);
    if (a != b) {
      std::size_t const e = n * 4 / std::size_t(want.stride);
      std::size_t const i = (n * 4 % std::size_t(want.stride)) / 32;
      ADD_FAILURE() << what << ": element i " << i << " j " << e << " float " << n % 8 << ": model " << want.mem[n]
                    << " (0x" << std::hex << a << ") kernel " << got.mem[n] << " (0x" << b << ")";
      return;
    }
  }
}

// Bytes inside whole cells must be those of `inside`, all others (the rest of
// each line, stride padding, the buffer's ends) those of `original`.
void expect_frame(frame const &original, frame const &inside, frame const &got, std::string const &what) {
  for (std::size_t n = 0; n < got.planes.size(); ++n) {
    plane const &o = original.planes[n], &m = inside.planes[n], &g = got.planes[n];
    std::vector<bool> picture(g.size, false);
    for (int y = 0; y < g.lines; ++y)
      for (int x = 0; x < g.line_bytes; ++x) {
        std::size_t const b = std::size_t(g.at(x, y) - g.mem);
        picture[b] = true;
        bool const in_cells = y < g.cell_lines && x < g.cell_bytes;
        std::uint8_t const want = in_cells ? m.mem[b] : o.mem[b];
        if (g.mem[b] != want) {
          ADD_FAILURE() << what << ": plane " << n << " x " << x << " y " << y
                        << (in_cells ? " (in cells)" : " (past the cells)") << ": model " << int(want) << " kernel "
                        << int(g.mem[b]);
          return;
        }
      }
    for (std::size_t b = 0; b < g.size; ++b)
      if (!picture[b] && g.mem[b] != sentinel) {
        ADD_FAILURE() << what << ": plane " << n << " padding byte " << b << ": sentinel " << int(sentinel)
                      << " kernel " << int(g.mem[b]);
        return;
      }
  }
}

mm::key const keys[] = {
    mm::make_key(0.78431374f, 0.5372549f, 0.46666667f, 0.7f, 0.3f),  // the default: 111, 157, 2844, 992
    mm::make_key(0.2f, 0.8f, 0.3f, 0.7f, 0.0f),                      // nearly a hard cut
    mm::make_key(0.5f, 0.1f, 0.9f, 1.0f, 1.0f),                      // a wide ramp
};

using params = std::tuple<layout, int, int, stride_kind, int>;  // layout, width, height, stride, offset

class moments_kernels_test : public ::testing::TestWithParam<params> {};

// Every member of the layout on one random frame: grids identical to the
// model's and to each other, preview bytes identical to the model's, no byte
// outside whole cells touched, and no frame byte written without preview.
TEST_P(moments_kernels_test, kernels_match_the_model) {
  auto const [l, w, h, kind, offset] = GetParam();
  unsigned const seed = unsigned(w * 7919 + h * 104729 + int(l) * 31 + int(kind) * 5 + offset);
  mm::key const &k = keys[seed % 3];
  frame original(l, w, h, kind, offset);
  chroma_source src(seed, k);
  fill(original, src);
  key_vectors const lanes(k);

  grid model_grid(original);
  ASSERT_EQ(reinterpret_cast<std::uintptr_t>(model_grid.cells()) % 16, 0u);
  frame model_frame = original;
  run_model(model_frame, k, true, model_grid);

  for (bool aligned : {false, true}) {
    if (aligned && !original.aligned()) continue;
    for (bool preview : {false, true}) {
      std::string const what = std::string(aligned ? "aligned" : "unaligned") + (preview ? " preview" : " plain");
      frame f = original;
      grid g(f);
      run_kernel(f, lanes.to(g, f), aligned, preview);
      expect_same_grid(model_grid, g, what);
      expect_frame(original, preview ? model_frame : original, f, what);
    }
  }
}

std::vector<int> const widths = {1, 7, 8, 9, 15, 16, 17, 24, 31, 32, 33, 47, 48, 49, 720, 1920};

INSTANTIATE_TEST_SUITE_P(
    layouts, moments_kernels_test,
    ::testing::Combine(::testing::Values(layout::bgra, layout::ycbcra, layout::s422, layout::y_cbcr, layout::planar),
                       ::testing::ValuesIn(widths), ::testing::Values(7, 16, 17, 40),
                       ::testing::Values(stride_kind::packed, stride_kind::aligned, stride_kind::odd,
                                         stride_kind::flipped),
                       ::testing::Values(0, 4, 9)),
    [](::testing::TestParamInfo<params> const &info) {
      params const &p = info.param;
      return std::string(layout_names[int(std::get<0>(p))]) + "_w" + std::to_string(std::get<1>(p)) + "_h" +
             std::to_string(std::get<2>(p)) + "_" + stride_names[int(std::get<3>(p))] + "_off" +
             std::to_string(std::get<4>(p));
    });

// Hand-worked numbers: a frame of one cell whose samples all have the same
// chroma, or a single keyed sample, and the cell's moments that follow.
struct worked {
  char const *what;
  layout l;
  std::uint8_t s[3];    // chroma of every sample (B, G, R for BGRA)
  int key_cb, key_cr, scale, offset;
  int x, y;             // -1: all samples; else the one sample given s, others far
  float want[3];        // sum_x, sum_y, mass of cell (0, 0)
};

// With scale 256 and offset 255 the weight is 255 - D, which shows D. A full
// cell has its centre at local (3.5, 3.5) samples, 7 pixels where a sample
// stands for two.
worked const worked_cases[] = {
    {"default key, D 66", layout::s422, {111 - 66, 157}, 111, 157, 2844, 992, -1, -1, {64 * 255 * 7, 64 * 255 * 3.5f, 64 * 255}},
    {"default key, D 70", layout::s422, {111, 157 + 70}, 111, 157, 2844, 992, -1, -1, {64 * 215 * 7, 64 * 215 * 3.5f, 64 * 215}},
    {"default key, D 80", layout::ycbcra, {111 + 40, 157 - 40}, 111, 157, 2844, 992, -1, -1, {64 * 104 * 3.5f, 64 * 104 * 3.5f, 64 * 104}},
    {"default key, D 89", layout::planar, {111 - 89, 157}, 111, 157, 2844, 992, -1, -1, {64 * 4 * 7, 64 * 4 * 7, 64 * 4}},
    {"default key, D 90", layout::y_cbcr, {111, 157 - 90}, 111, 157, 2844, 992, -1, -1, {0, 0, 0}},
    {"black BGRA is 128, 128", layout::bgra, {0, 0, 0}, 128, 128, 256, 255, -1, -1, {64 * 255 * 3.5f, 64 * 255 * 3.5f, 64 * 255}},
    {"white BGRA is 138, 128", layout::bgra, {255, 255, 255}, 138, 128, 256, 255, -1, -1, {64 * 255 * 3.5f, 64 * 255 * 3.5f, 64 * 255}},
    {"white BGRA is 10 from neutral", layout::bgra, {255, 255, 255}, 128, 128, 256, 255, -1, -1, {64 * 245 * 3.5f, 64 * 245 * 3.5f, 64 * 245}},
    {"default key, D 67 over Cb and Cr", layout::ycbcra, {111 + 30, 157 - 37}, 111, 157, 2844, 992, -1, -1, {64 * 248 * 3.5f, 64 * 248 * 3.5f, 64 * 248}},
    {"distance clamps at 255", layout::ycbcra, {255, 255}, 0, 0, 256, 300, -1, -1, {64 * 45 * 3.5f, 64 * 45 * 3.5f, 64 * 45}},
    {"default colour as BGRA is 116, 157", layout::bgra, {119, 137, 200}, 116, 157, 256, 255, -1, -1, {64 * 255 * 3.5f, 64 * 255 * 3.5f, 64 * 255}},
    {"4:2:2 element 3, line 5 of cell 0", layout::s422, {200, 200}, 200, 200, 256, 255, 3, 5, {255 * 6, 255 * 5, 255}},
    {"plane sample 7, 2 of cell 0", layout::planar, {200, 200}, 200, 200, 256, 255, 7, 2, {255 * 14, 255 * 4, 255}},
};

void PrintTo(worked const &w, std::ostream *os) { *os << w.what; }

class moments_kernels_worked_test : public ::testing::TestWithParam<worked> {};

TEST_P(moments_kernels_worked_test, cell_moments) {
  worked const &c = GetParam();
  bool const tall = c.l == layout::y_cbcr || c.l == layout::planar;
  bool const wide = c.l != layout::bgra && c.l != layout::ycbcra;
  frame f(c.l, wide ? 16 : 8, tall ? 16 : 8, stride_kind::aligned, 0);
  // Chroma 60 everywhere else: D of at least 255 from the key 200, 200 of the
  // single-sample rows, whose other samples thus weigh 0.
  for (plane &p : f.planes) std::memset(p.mem, 60, p.size);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      if (c.x >= 0 && (x != c.x || y != c.y)) continue;
      switch (c.l) {
        case layout::bgra: std::memcpy(f.planes[0].at(4 * x, y), c.s, 3); break;
        case layout::ycbcra: std::memcpy(f.planes[0].at(4 * x + 1, y), c.s, 2); break;
        case layout::s422: *f.planes[0].at(4 * x, y) = c.s[0], *f.planes[0].at(4 * x + 2, y) = c.s[1]; break;
        case layout::y_cbcr: std::memcpy(f.planes[1].at(2 * x, y), c.s, 2); break;
        case layout::planar: *f.planes[1].at(x, y) = c.s[0], *f.planes[2].at(x, y) = c.s[1]; break;
      }
    }
  key_vectors const lanes(mm::key{c.key_cb, c.key_cr, c.scale, c.offset});
  for (bool preview : {false, true}) {
    frame run = f;
    grid g(run);
    run_kernel(run, lanes.to(g, run), true, preview);
    float const *e = g.cells() + g.stride / 4 + 8;  // element (1, 1)
    for (int n = 0; n < 3; ++n) EXPECT_EQ(e[n], c.want[n]) << c.what << " float " << n << " preview " << preview;
  }
}

INSTANTIATE_TEST_SUITE_P(hand_worked, moments_kernels_worked_test, ::testing::ValuesIn(worked_cases));

}  // namespace
