// The hot-spot operator as a host sees it: key set-up, spot rectangles, the
// decision per spot and the frame and message entries.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>

#include <sight/frame/bitmap.h>
#include <sight/frame/message.h>
#include <sight/hot_spots/extract_kernels.h>
#include <sight/hot_spots/hot_spots.h>

namespace {

namespace R = Tamarind::Rasters;
namespace S = Korvane::Sight;
namespace video = Tamarind::Parley::video;
using kernels = S::detail::hot_spots_kernels;

// Chroma of the two kinds of pixel the pictures hold: the default reference
// exactly, and chroma far outside any default tolerance.
struct chroma {
  int cb, cr;
};
constexpr chroma key_chroma{165, 105}, cover_chroma{90, 240};
// BGRA: the default key colour (chroma 165, 106) and pure red.
constexpr R::pixel_bgra_u8 key_bgra{160, 90, 50, 255};
constexpr R::pixel_bgra_u8 cover_bgra{0, 0, 255, 255};

// One picture in all five layouts, in owned (aligned) bitmaps. A pixel is
// painted with `cover` where covered(x, y) holds, else with the key; a
// chroma sample of 4:2:2 or of the half-size planes takes the kind of its
// top-left pixel. Luma varies, so that nothing may depend on it.
struct picture {
  R::bitmap<R::pixel_bgra_u8> bgra{};
  R::bitmap<R::pixel_ycbcra_u8> ycbcra{};
  R::bitmap_422<R::pixel_ycbcr_u8> ycbcr{};
  R::bitmap<R::pixel_y_u8> y{};
  R::bitmap<R::pixel_cbcr_u8> cbcr{};
  R::bitmap<R::pixel_cb_u8> cb{};
  R::bitmap<R::pixel_cr_u8> cr{};
  video::message m;  // views of the same bitmaps, progressive, 16:9

  picture(int width, int height, std::function<bool(int, int)> const &covered, chroma cover = cover_chroma) {
    R::allocate(bgra, width, height), R::allocate(ycbcra, width, height), R::allocate(ycbcr, width, height);
    R::allocate(y, width, height), R::allocate(cbcr, width / 2, height / 2);
    R::allocate(cb, width / 2, height / 2), R::allocate(cr, width / 2, height / 2);
    for (int yy = 0; yy < height; ++yy)
      for (int x = 0; x < width; ++x) {
        std::uint8_t const luma = std::uint8_t(16 + (x * 7 + yy * 3) % 220);
        R::line(bgra, yy)[x] = covered(x, yy) ? cover_bgra : key_bgra;
        chroma const c = covered(x, yy) ? cover : key_chroma;
        R::line(ycbcra, yy)[x] = {luma, std::uint8_t(c.cb), std::uint8_t(c.cr), 0};
        R::line(y, yy)[x] = {luma};
        if (x % 2 == 0) R::line(ycbcr, yy)[x / 2] = {std::uint8_t(c.cb), luma, std::uint8_t(c.cr), luma};
        if (x % 2 == 0 && yy % 2 == 0 && x / 2 < cbcr.width && yy / 2 < cbcr.height) {
          R::line(cbcr, yy / 2)[x / 2] = {std::uint8_t(c.cb), std::uint8_t(c.cr)};
          R::line(cb, yy / 2)[x / 2] = {std::uint8_t(c.cb)};
          R::line(cr, yy / 2)[x / 2] = {std::uint8_t(c.cr)};
        }
      }
    m.xres() = width, m.yres() = height, m.aspect_ratio() = 16.0f / 9.0f;
    m.bgra() = bgra, m.ycbcra() = ycbcra, m.ycbcr() = ycbcr, m.y() = y, m.cbcr() = cbcr, m.cb() = cb, m.cr() = cr;
    for (auto *b : {&m.bgra().owned, &m.ycbcra().owned, &m.ycbcr().owned, &m.y().owned, &m.cbcr().owned,
                    &m.cb().owned, &m.cr().owned})
      *b = false;
  }
  ~picture() {
    R::release(bgra), R::release(ycbcra), R::release(ycbcr), R::release(y);
    R::release(cbcr), R::release(cb), R::release(cr);
  }
  picture(picture const &) = delete;
};

enum class layout { bgra, ycbcra, ycbcr_422, y_cbcr, planar };
constexpr layout all_layouts[] = {layout::bgra, layout::ycbcra, layout::ycbcr_422, layout::y_cbcr, layout::planar};

char const *const layout_names[] = {"bgra", "ycbcra", "ycbcr422", "y_cbcr", "planar"};

S::hot_spots_info run(S::hot_spots &op, picture const &p, layout l, float aspect) {
  switch (l) {
    case layout::bgra: return op(p.bgra, aspect);
    case layout::ycbcra: return op(p.ycbcra, aspect);
    case layout::ycbcr_422: return op(p.ycbcr, aspect);
    case layout::y_cbcr: return op(p.y, p.cbcr, aspect);
    case layout::planar: return op(p.y, p.cb, p.cr, aspect);
  }
  return {};
}

std::string values_of(S::hot_spots_info const &info) {
  std::ostringstream s;
  for (int i = 0; i < info.size_detected(); ++i) s << int(info.detected(i));
  return s.str();
}

// An enabled operator with every spot on.
S::hot_spots all_on() {
  S::hot_spots op;
  op.enabled() = true;
  for (int i = 0; i < op.size_spots(); ++i) op.spots(i).enabled() = true;
  return op;
}

S::detail::spot_rect rect_of(S::hot_spots_data const &op, int i, int width, int height, float aspect) {
  S::detail::spot_rect rects[S::hot_spots_data::no_spots];
  S::detail::spot_rectangles(op, width, height, aspect, rects);
  return rects[i];
}

bool inside(S::detail::spot_rect const &r, int x, int y) {
  return x >= r.left_top.x && x < r.right_bottom.x && y >= r.left_top.y && y < r.right_bottom.y;
}

// The pixels whose chroma samples make up the rectangle as the layout
// counts it, and no others: columns rounded to even in 4:2:2, halved edges
// in the half-size planes.
bool covers(layout l, S::detail::spot_rect const &r, int x, int y) {
  glm::ivec2 const lt = r.left_top, rb = r.right_bottom;
  switch (l) {
    case layout::ycbcr_422:
      return x >= (lt.x + 1) / 2 * 2 && x < rb.x / 2 * 2 && y >= lt.y && y < rb.y;
    case layout::y_cbcr:
    case layout::planar:
      return x / 2 >= lt.x / 2 && x / 2 < rb.x / 2 && y / 2 >= lt.y / 2 && y / 2 < rb.y / 2;
    default:
      return inside(r, x, y);
  }
}

// Inside with a margin of two pixels, so that every chroma sample of the
// halved planes that the rectangle reaches is covered as well.
bool near(S::detail::spot_rect const &r, int x, int y) {
  return x >= r.left_top.x - 2 && x < r.right_bottom.x + 2 && y >= r.left_top.y - 2 && y < r.right_bottom.y + 2;
}

TEST(hot_spots_test, worked_numbers) {
  S::hot_spots op = all_on();
  kernels::setup(op);
  // The key's set-up: reference chroma and squared radius.
  struct key_case {
    char const *name;
    float r, g, b, tolerance_c, smoothness;
    int cb, cr, radius2;
  };
  float const kr = op.color().r(), kg = op.color().g(), kb = op.color().b();
  key_case const keys[] = {
      // Cb 165.16, Cr 105.98: the float matrix gives 105 where the integer
      // coefficients give 106 for the same pixel. radius 0.305 -> 6048.95.
      {"defaults", kr, kg, kb, 0.7f, 0.3f, 165, 105, 6048},
      // r = -0.00005: squared it floors to 0, so only the key itself is key.
      {"no tolerance", kr, kg, kb, 0.0f, 0.0f, 165, 105, 0},
      // s = 0.3, t = 0.05, r = -0.1: the radius grows again, 650.25 -> 650.
      {"smoothness past tolerance", kr, kg, kb, 0.1f, 1.0f, 165, 105, 650},
      // White has neutral chroma: 255 * 0.502 + 0.5 = 128.51.
      {"white", 1.0f, 1.0f, 1.0f, 0.7f, 0.3f, 128, 128, 6048},
      // Cr 352.4 clamps to 255, Cb 53.03.
      {"red beyond range", 2.0f, 0.0f, 0.0f, 0.7f, 0.3f, 53, 255, 6048},
      // Sums that land just below a whole level in the written order (Cr
      // 127.99999 and Cb 116.99999); the constant first would round them up.
      {"order of the sum, cr", 0.0f, 1.0f / 255.0f, 2.0f / 255.0f, 0.7f, 0.3f, 129, 127, 6048},
      {"order of the sum, cb", 0.0f, 118.0f / 255.0f, 52.0f / 255.0f, 0.7f, 0.3f, 116, 81, 6048},
      // Far beyond any chroma distance: saturates instead of wrapping.
      {"huge tolerance", kr, kg, kb, 1.0e6f, 0.3f, 165, 105, INT_MAX},
  };
  for (key_case const &c : keys) {
    op.color().r() = c.r, op.color().g() = c.g, op.color().b() = c.b;
    op.tolerance_c() = c.tolerance_c, op.smoothness() = c.smoothness;
    kernels::setup(op);
    int const cb_cr = _mm_cvtsi128_si32(op.ref_cb_cr);
    EXPECT_TRUE((cb_cr & 0xFFFF) == c.cb && cb_cr >> 16 == c.cr) << c.name << ": " << (cb_cr & 0xFFFF) << ", " << (cb_cr >> 16);
    EXPECT_EQ(_mm_cvtsi128_si32(op.ref_tolerance_sq), c.radius2) << c.name;
  }
}

// Rectangles of a spot at (x, y) of the given size with the cropping, worked by
// hand at 1920 x 1080, where sx = sy = 540 with the true aspect.
TEST(hot_spots_test, spot_rectangles) {
  struct row {
    float aspect, x, y, size, left, right, top, bottom;
    int x0, y0, x1, y1;
  };
  row const rows[] = {
      {16.0f / 9.0f, 0.38268343f, 0.9238795f, 0.03f, 0, 0, 0, 0, 1150, 1023, 1183, 1055},  // spot 0's default
      {-16.0f / 9.0f, 0.38268343f, 0.9238795f, 0.03f, 0, 0, 0, 0, 737, 1023, 770, 1055},   // mirrored in x
      // Five by five around a whole pixel: 957.5 rounds to 958, 962.5 to 963.
      {16.0f / 9.0f, 0, 0, 0, 0, 0, 0, 0, 958, 538, 963, 543},
      // The edge let out to -192: -28.2 rounds away from zero, left for clipping.
      {16.0f / 9.0f, -1.8f, 0, 0.03f, -0.1f, 0, 0, 0, -28, 524, 4, 556},
      // Crossed margins: 1344 and 768 swap, the part between them stays.
      {16.0f / 9.0f, 0, 0, 1, 0.7f, 0.6f, 0, 0, 768, 0, 1344, 1080},
      {16.0f / 9.0f, 0, 0, 1, 0.25f, 0.25f, 0.1f, 0.5f, 480, 108, 1440, 540},
  };
  for (row const &c : rows) {
    S::hot_spots_data settings;
    settings.spots(4).x() = c.x, settings.spots(4).y() = c.y, settings.spots(4).size() = c.size;
    settings.cropping().left() = c.left, settings.cropping().right() = c.right;
    settings.cropping().top() = c.top, settings.cropping().bottom() = c.bottom;
    S::detail::spot_rect const r = rect_of(settings, 4, 1920, 1080, c.aspect);
    EXPECT_EQ(r.left_top, glm::ivec2(c.x0, c.y0)) << c.x0;
    EXPECT_EQ(r.right_bottom, glm::ivec2(c.x1, c.y1)) << c.x0;
  }
}

class decision_test : public ::testing::TestWithParam<layout> {};

// Spot 2 covered, the others on pure key: 22122222 in every layout, and
// threshold 0 or less fires every spot that survives clipping.
TEST_P(decision_test, covered_spots_fire_by_threshold) {
  layout const l = GetParam();
  S::hot_spots op = all_on();
  op.spots(7).x() = 5.0f;  // wholly right of the picture: empty after clipping
  S::detail::spot_rect const r2 = rect_of(op, 2, 640, 360, 0.0f);
  picture const p(640, 360, [&](int x, int y) { return covers(l, r2, x, y); });
  EXPECT_EQ(values_of(run(op, p, l, 0.0f)), "22122222");
  for (int threshold : {0, -5}) {
    op.threshold() = threshold;
    EXPECT_EQ(values_of(run(op, p, l, 0.0f)), "11111112") << "threshold " << threshold;
  }
  op.enabled() = false;
  EXPECT_EQ(values_of(run(op, p, l, 0.0f)), "00000000");

  // A threshold above the area asks for every sample of the rectangle: all
  // covered fires, all but one row does not. Nothing outside the rectangle
  // is covered, so the walk beyond it cannot make up for the row.
  op.enabled() = true;
  op.threshold() = 1000000;
  S::detail::spot_rect const r = rect_of(op, 1, 640, 360, 0.0f);
  picture const all(640, 360, [&](int x, int y) { return covers(l, r, x, y); });
  EXPECT_EQ(int(run(op, all, l, 0.0f).detected(1)), 1);
  // Spare the rectangle's first chroma row: a pixel row, or in the halved
  // planes the two pixel rows of the first plane row.
  bool const halved = l == layout::y_cbcr || l == layout::planar;
  auto const spared = [&](int y) { return halved ? y / 2 == r.left_top.y / 2 : y == r.left_top.y; };
  picture const most(640, 360, [&](int x, int y) { return covers(l, r, x, y) && !spared(y); });
  EXPECT_EQ(int(run(op, most, l, 0.0f).detected(1)), 2);
}

INSTANTIATE_TEST_SUITE_P(layouts, decision_test, ::testing::ValuesIn(all_layouts),
                         [](auto const &info) { return std::string(layout_names[int(info.param)]); });

// Every handled format goes to its layout; unknown formats give zeros.
TEST(hot_spots_test, message_formats) {
  S::hot_spots op = all_on();
  S::detail::spot_rect const r2 = rect_of(op, 2, 640, 360, 16.0f / 9.0f);
  picture f(640, 360, [&](int x, int y) { return near(r2, x, y); });
  for (int format = -1; format <= 7; ++format) {
    f.m.data_format() = video::e_data_format(format);
    bool const handled = format >= 0 && format <= 5;
    EXPECT_EQ(values_of(op(&f.m, false)), handled ? "22122222" : "00000000") << "format " << format;
  }
  op.enabled() = false;
  f.m.data_format() = video::format_bgra;
  EXPECT_EQ(values_of(op(&f.m, true)), "00000000");
}

// Field type 3: each field is a picture of its own lines, 540 high. Spot
// 0's rectangle of the lower field painted on odd frame lines only fires
// the lower field alone; without its last row it no longer fires.
TEST(hot_spots_test, message_fields_of_an_interlaced_frame) {
  S::hot_spots op = all_on();
  op.threshold() = 1000000;  // every sample of the rectangle must differ
  S::detail::spot_rect const r = rect_of(op, 0, 1920, 540, 16.0f / 9.0f);
  for (int drop : {0, 1}) {
    picture f(1920, 1080, [&](int x, int y) {
      return y % 2 == 1 && inside(r, x, y / 2) && y / 2 < r.right_bottom.y - drop;
    });
    f.m.field_type() = video::field_interlaced;
    for (int format : {0, 3, 4}) {
      f.m.data_format() = video::e_data_format(format);
      EXPECT_EQ(int(op(&f.m, true).detected(0)), drop ? 2 : 1) << "format " << format;
      EXPECT_EQ(int(op(&f.m, false).detected(0)), 2) << "format " << format;
    }
  }
}

}  // namespace
