// Hand-worked cases for the scalar model of the hot-spot counter: the key
// set-up, the chroma of a BGRA pixel, the sample test and the walk over a
// rectangle, one table each.
#include "hot_spots/extract_model.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

namespace hm = hot_spots_model;

float from_bits(std::uint32_t bits) { return std::bit_cast<float>(bits); }

// The default key colour, 50/255, 90/255, 160/255 as stored floats.
float const key_r = from_bits(0x3E48C8C9);
float const key_g = from_bits(0x3EB4B4B5);
float const key_b = from_bits(0x3F20A0A1);

struct key_case {
  char const *name;
  float r, g, b, tolerance_c, smoothness;
  int cb, cr, radius2;
};

TEST(extract_model_test, key_setup) {
  key_case const cases[] = {
      // Cb 165.16, Cr 105.98: the float matrix gives 105 where the integer
      // coefficients give 106 for the same pixel. radius 0.305 -> 6048.95.
      {"defaults", key_r, key_g, key_b, 0.7f, 0.3f, 165, 105, 6048},
      // r = -0.00005: squared it floors to 0, so only the key itself is key.
      {"no tolerance", key_r, key_g, key_b, 0.0f, 0.0f, 165, 105, 0},
      {"negative tolerance", key_r, key_g, key_b, -1.0f, 0.0f, 165, 105, 0},
      // s = 0.3, t = 0.05, r = -0.1: the radius grows again, 650.25 -> 650.
      {"smoothness past tolerance", key_r, key_g, key_b, 0.1f, 1.0f, 165, 105,
       650},
      // Grey has neutral chroma: 255 * 0.502 + 0.5 = 128.51.
      {"white", 1.0f, 1.0f, 1.0f, 0.7f, 0.3f, 128, 128, 6048},
      {"black", 0.0f, 0.0f, 0.0f, 0.7f, 0.3f, 128, 128, 6048},
      // Cr 352.4 clamps to 255; Cb 53.03.
      {"red beyond range", 2.0f, 0.0f, 0.0f, 0.7f, 0.3f, 53, 255, 6048},
      // Cb -95.4 clamps to 0; Cr 164.72.
      {"negative blue", 0.0f, 0.0f, -2.0f, 0.7f, 0.3f, 0, 164, 6048},
      // Sums that land just below a whole level in the written order (Cr
      // 127.99999 and Cb 116.99999); the constant first would round them up.
      {"order of the sum, cr", 0.0f, 1.0f / 255.0f, 2.0f / 255.0f, 0.7f, 0.3f,
       129, 127, 6048},
      {"order of the sum, cb", 0.0f, 118.0f / 255.0f, 52.0f / 255.0f, 0.7f,
       0.3f, 116, 81, 6048},
      // Far beyond any chroma distance: saturates instead of wrapping.
      {"huge tolerance", key_r, key_g, key_b, 1.0e6f, 0.3f, 165, 105,
       INT_MAX},
  };
  for (key_case const &c : cases) {
    hm::key const k =
        hm::make_key(c.r, c.g, c.b, c.tolerance_c, c.smoothness, 64);
    EXPECT_EQ(k.cb, c.cb) << c.name;
    EXPECT_EQ(k.cr, c.cr) << c.name;
    EXPECT_EQ(k.radius2, c.radius2) << c.name;
    EXPECT_EQ(k.threshold, 64) << c.name;
  }
}

TEST(extract_model_test, bgra_chroma) {
  struct {
    int b, g, r, cb, cr;
  } const cases[] = {
      {160, 90, 50, 165, 106},  // the default key pixel: 42255 and 27155 >> 8
      {0, 0, 255, 90, 240},     // pure red
      {255, 255, 255, 128, 128},
      {0, 0, 0, 128, 128},
      {255, 0, 0, 240, 110},  // pure blue: 61455 >> 8, 28305 >> 8
  };
  for (auto const &c : cases) {
    EXPECT_EQ(hm::cb_of_bgra(c.b, c.g, c.r), c.cb) << c.b << " " << c.g << " " << c.r;
    EXPECT_EQ(hm::cr_of_bgra(c.b, c.g, c.r), c.cr) << c.b << " " << c.g << " " << c.r;
  }
}

TEST(extract_model_test, sample_test_is_strict) {
  struct {
    hm::key k;
    int cb, cr;
    bool differs;
  } const cases[] = {
      {{128, 128, 25, 0}, 131, 132, false},  // 9 + 16: on the circle is key
      {{128, 128, 25, 0}, 128, 123, false},  // 0 + 25
      {{128, 128, 25, 0}, 131, 133, true},   // 9 + 25
      {{128, 128, 25, 0}, 134, 128, true},   // 36
      {{165, 105, 6048, 0}, 165, 106, false},  // default pixel, default key
      {{165, 105, 0, 0}, 165, 106, true},      // one level decides at radius 0
      {{165, 105, 0, 0}, 165, 105, false},     // the exact key stays key
  };
  for (auto const &c : cases) {
    EXPECT_EQ(hm::differs(c.cb, c.cr, c.k), c.differs)
        << c.cb << " " << c.cr << " against " << c.k.cb << " " << c.k.cr
        << " r2 " << c.k.radius2;
  }
}

enum class layout { bgra, ycbcra, ycbcr422, cbcr, cb_cr };

struct walk_case {
  char const *name;
  layout lay;
  int width, height;  // pixels; samples of the plane for cbcr and cb_cr
  int stride;         // bytes, 0 for tightly packed, may be negative
  hm::rect r;
  std::uint32_t differ;  // bit x: sample column x differs on every line
  int threshold;
  int count, area, value;
  int cr_width = 0, cr_stride = 0;  // Cr plane of cb_cr when it differs
};

// A buffer sized exactly to the bitmap's extent, every sample position of
// it (padding and overrun columns included) holding the key or a far colour.
struct image {
  std::vector<std::uint8_t> bytes;
  hm::plane p;
};

int element_bytes(layout lay) {
  switch (lay) {
    case layout::cbcr: return 2;
    case layout::cb_cr: return 1;
    default: return 4;
  }
}

int line_bytes(layout lay, int width) {
  switch (lay) {
    case layout::bgra: return hm::line_bytes_bgra(width);
    case layout::ycbcra: return hm::line_bytes_ycbcra(width);
    case layout::ycbcr422: return hm::line_bytes_422(width);
    case layout::cbcr: return hm::line_bytes_cbcr(width);
    case layout::cb_cr: return hm::line_bytes_plane(width);
  }
  return 0;
}

// plane_index picks Cb (0) or Cr (1) of the separate planes.
void write_sample(layout lay, std::uint8_t *s, bool far, int x,
                  int plane_index) {
  int const cb = far ? 90 : 165, cr = far ? 240 : 105;
  std::uint8_t const junk = std::uint8_t(x * 37 + 11);  // never read
  switch (lay) {
    case layout::bgra:
      s[0] = far ? 0 : 160;
      s[1] = far ? 0 : 90;
      s[2] = far ? 255 : 50;
      s[3] = junk;
      break;
    case layout::ycbcra:
      s[0] = junk, s[1] = std::uint8_t(cb), s[2] = std::uint8_t(cr), s[3] = junk;
      break;
    case layout::ycbcr422:
      s[0] = std::uint8_t(cb), s[1] = junk, s[2] = std::uint8_t(cr), s[3] = junk;
      break;
    case layout::cbcr:
      s[0] = std::uint8_t(cb), s[1] = std::uint8_t(cr);
      break;
    case layout::cb_cr:
      s[0] = std::uint8_t(plane_index == 0 ? cb : cr);
      break;
  }
}

image build(layout lay, int width, int height, int stride, std::uint32_t differ,
            int plane_index) {
  int const elem = element_bytes(lay);
  int const lb = line_bytes(lay, width);
  if (stride == 0) stride = lb;
  int const step = std::abs(stride);
  image im;
  im.bytes.assign(std::size_t((height - 1) * step + lb), 0xA5);
  std::uint8_t *const data =
      im.bytes.data() + (stride < 0 ? (height - 1) * step : 0);
  std::uint8_t *const end = im.bytes.data() + im.bytes.size();
  int const span = step > lb ? step : lb;
  for (int y = 0; y < height; ++y) {
    std::uint8_t *line = data + y * stride;
    for (int x = 0; (x + 1) * elem <= span && line + (x + 1) * elem <= end; ++x)
      write_sample(lay, line + x * elem, x < 32 && ((differ >> x) & 1), x,
                   plane_index);
  }
  im.p = hm::make_plane(data, stride, width, height, lb);
  return im;
}

hm::outcome run(walk_case const &c) {
  hm::key const k{165, 105, 6048, c.threshold};
  image const a = build(c.lay, c.width, c.height, c.stride, c.differ, 0);
  switch (c.lay) {
    case layout::bgra: return hm::extract_bgra(a.p, c.r, k);
    case layout::ycbcra: return hm::extract_ycbcra(a.p, c.r, k);
    case layout::ycbcr422: return hm::extract_422(a.p, c.r, k);
    case layout::cbcr: return hm::extract_cbcr(a.p, c.r, k);
    case layout::cb_cr: {
      image const cr = build(c.lay, c.cr_width ? c.cr_width : c.width,
                             c.height, c.cr_stride ? c.cr_stride : c.stride,
                             c.differ, 1);
      return hm::extract_cb_cr(a.p, cr.p, c.r, k);
    }
  }
  return {};
}

TEST(extract_model_test, walk) {
  walk_case const cases[] = {
      // Head runs 1..3 though x1 is 2: columns right of the rectangle decide.
      {"head past narrow rect", layout::bgra, 16, 2, 0, {1, 0, 2, 2}, 0xC, 64, 4, 2, 1},
      // B = 4, one block of eight: columns 6 and 7 are counted.
      {"block overrun", layout::bgra, 16, 1, 0, {0, 0, 6, 1}, 0xC0, 1, 2, 6, 1},
      // Three groups: two blocks end at 16, four columns past B = 12.
      {"odd groups overrun", layout::bgra, 16, 1, 0, {0, 0, 12, 1}, 0xF000, 64, 4, 12, 2},
      // Columns 6 and 7 would lie past the buffer: not counted.
      {"stop at buffer end", layout::bgra, 6, 1, 0, {0, 0, 6, 1}, 0xFF, 64, 6, 6, 1},
      // On an inner line the overrun reads the next line's first pixels.
      {"overrun into next line", layout::bgra, 6, 2, 0, {0, 0, 6, 1}, 0x3F, 64, 8, 6, 1},
      // Line 0 lies last in memory: only its overrun is cut off.
      {"negative stride", layout::bgra, 6, 2, -24, {0, 0, 6, 2}, 0x3F, 64, 14, 12, 1},
      {"padded stride", layout::bgra, 6, 2, 32, {0, 0, 6, 2}, 0xFF, 64, 14, 12, 1},
      {"empty right of picture", layout::bgra, 16, 1, 0, {16, 0, 20, 1}, 0xFFFF, 1, 0, 0, 2},
      {"threshold 0 fires", layout::bgra, 8, 1, 0, {0, 0, 8, 1}, 0, 0, 0, 8, 1},
      // Head 5..7 on the last line: 6 and 7 are past the buffer.
      {"head stops at buffer end", layout::ycbcra, 6, 1, 0, {5, 0, 6, 1}, 0x3F, 64, 1, 1, 1},
      // x0 3 -> 4, x1 4 -> 4: area 0, so the spot fires whatever it shows.
      {"422 odd single column", layout::ycbcr422, 32, 1, 0, {3, 0, 4, 1}, 0, 64, 0, 0, 1},
      // Pairs 1..2 in the rectangle; the head walks pairs 1..7.
      {"422 head in pairs", layout::ycbcr422, 32, 1, 0, {2, 0, 7, 1}, 0x20, 64, 1, 2, 2},
      // x1 5 -> 4: the half pair at the end of an odd line is not counted.
      {"422 odd width", layout::ycbcr422, 5, 1, 0, {0, 0, 5, 1}, 0x7, 64, 2, 2, 1},
      // 3/2 = 1, 9/2 = 4, 4/2 = 2: head 1..7 on two lines.
      {"cbcr halved", layout::cbcr, 16, 2, 0, {3, 0, 9, 4}, 0x18, 5, 4, 6, 2},
      {"cbcr negative corner", layout::cbcr, 8, 2, 0, {-3, -1, 9, 5}, 0x18, 64, 2, 8, 2},
      // Cb reaches column 7, Cr only column 4: each plane bounds itself.
      {"cb cr own ends", layout::cb_cr, 8, 1, 0, {2, 0, 4, 2}, 0xFF, 64, 4, 1, 1, 5, 0},
      {"cb cr own strides", layout::cb_cr, 8, 2, 16, {0, 0, 16, 4}, 0x81, 4, 4, 16, 1, 0, 8},
  };
  for (walk_case const &c : cases) {
    hm::outcome const o = run(c);
    EXPECT_EQ(o.count, c.count) << c.name;
    EXPECT_EQ(o.area, c.area) << c.name;
    EXPECT_EQ(o.value, c.value) << c.name;
  }
}

}  // namespace
