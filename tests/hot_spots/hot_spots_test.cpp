// The hot-spot operator as a host sees it: settings and tables, set-up,
// spot rectangles, the decision per spot and the frame and message entries.
#include <gtest/gtest.h>

#include <bit>
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

#include "hot_spots/extract_model.h"

namespace {

namespace R = Tamarind::Rasters;
namespace S = Korvane::Sight;
namespace video = Tamarind::Parley::video;
namespace hm = hot_spots_model;
using kernels = S::detail::hot_spots_kernels;

std::int32_t lane0(__m128i v) { return _mm_cvtsi128_si32(v); }

// ------------------------------------------------------------ pictures

// Chroma of the two kinds of pixel the pictures hold.
struct chroma {
  int cb, cr;
};
constexpr chroma key_chroma{165, 105};     // the default reference exactly
constexpr chroma cover_chroma{90, 240};    // far outside any default tolerance
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

  picture(int width, int height, std::function<bool(int, int)> const &covered,
          chroma cover = cover_chroma) {
    R::allocate(bgra, width, height);
    R::allocate(ycbcra, width, height);
    R::allocate(ycbcr, width, height);
    R::allocate(y, width, height);
    R::allocate(cbcr, width / 2, height / 2);
    R::allocate(cb, width / 2, height / 2);
    R::allocate(cr, width / 2, height / 2);
    auto const pick = [&](int x, int yy) { return covered(x, yy) ? cover : key_chroma; };
    for (int yy = 0; yy < height; ++yy)
      for (int x = 0; x < width; ++x) {
        std::uint8_t const luma = std::uint8_t(16 + (x * 7 + yy * 3) % 220);
        R::line(bgra, yy)[x] = covered(x, yy) ? cover_bgra : key_bgra;
        chroma const c = pick(x, yy);
        R::line(ycbcra, yy)[x] = {luma, std::uint8_t(c.cb), std::uint8_t(c.cr), 0};
        R::line(y, yy)[x] = {luma};
        if (x % 2 == 0)
          R::line(ycbcr, yy)[x / 2] = {std::uint8_t(c.cb), luma, std::uint8_t(c.cr), luma};
        if (x % 2 == 0 && yy % 2 == 0 && x / 2 < cbcr.width && yy / 2 < cbcr.height) {
          R::line(cbcr, yy / 2)[x / 2] = {std::uint8_t(c.cb), std::uint8_t(c.cr)};
          R::line(cb, yy / 2)[x / 2] = {std::uint8_t(c.cb)};
          R::line(cr, yy / 2)[x / 2] = {std::uint8_t(c.cr)};
        }
      }
  }
  ~picture() {
    R::release(bgra), R::release(ycbcra), R::release(ycbcr), R::release(y);
    R::release(cbcr), R::release(cb), R::release(cr);
  }
  picture(picture const &) = delete;
  picture &operator=(picture const &) = delete;
};

enum class layout { bgra, ycbcra, ycbcr_422, y_cbcr, planar };
constexpr layout all_layouts[] = {layout::bgra, layout::ycbcra, layout::ycbcr_422, layout::y_cbcr,
                                  layout::planar};

char const *layout_name(layout l) {
  switch (l) {
    case layout::bgra: return "bgra";
    case layout::ycbcra: return "ycbcra";
    case layout::ycbcr_422: return "ycbcr422";
    case layout::y_cbcr: return "y_cbcr";
    case layout::planar: return "planar";
  }
  return "?";
}

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

S::detail::spot_rect rect_of(S::hot_spots_data const &op, int i, int width, int height,
                             float aspect) {
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
  return x >= r.left_top.x - 2 && x < r.right_bottom.x + 2 && y >= r.left_top.y - 2 &&
         y < r.right_bottom.y + 2;
}

// ------------------------------------------------------------ worked numbers

float bits(std::uint32_t b) { return std::bit_cast<float>(b); }

TEST(hot_spots_test, worked_numbers) {
  S::hot_spots op = all_on();
  kernels::setup(op);
  S::detail::spot_rect const spot0 = rect_of(op, 0, 1920, 1080, bits(0x3FE38E39));
  struct worked {
    char const *what;
    double got, want;
  };
  worked const table[] = {
      {"default r bits", op.color().r(), bits(0x3E48C8C9)},
      {"default g bits", op.color().g(), bits(0x3EB4B4B5)},
      {"default b bits", op.color().b(), bits(0x3F20A0A1)},
      {"default size bits", op.spots(5).size(), bits(0x3CF5C28F)},
      // Half side 16.2 pixels around (1166.65, 1038.90).
      {"spot 0 left", double(spot0.left_top.x), 1150},
      {"spot 0 top", double(spot0.left_top.y), 1023},
      {"spot 0 right", double(spot0.right_bottom.x), 1183},
      {"spot 0 bottom", double(spot0.right_bottom.y), 1055},
  };
  for (worked const &w : table) EXPECT_EQ(w.got, w.want) << w.what;

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
      {"negative tolerance", kr, kg, kb, -1.0f, 0.0f, 165, 105, 0},
      // s = 0.3, t = 0.05, r = -0.1: the radius grows again, 650.25 -> 650.
      {"smoothness past tolerance", kr, kg, kb, 0.1f, 1.0f, 165, 105, 650},
      // Grey has neutral chroma: 255 * 0.502 + 0.5 = 128.51.
      {"white", 1.0f, 1.0f, 1.0f, 0.7f, 0.3f, 128, 128, 6048},
      {"black", 0.0f, 0.0f, 0.0f, 0.7f, 0.3f, 128, 128, 6048},
      // Cr 352.4 clamps to 255, Cb 53.03; Cb -95.4 clamps to 0, Cr 164.72.
      {"red beyond range", 2.0f, 0.0f, 0.0f, 0.7f, 0.3f, 53, 255, 6048},
      {"negative blue", 0.0f, 0.0f, -2.0f, 0.7f, 0.3f, 0, 164, 6048},
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
    EXPECT_EQ(lane0(op.ref_cb_cr) & 0xFFFF, c.cb) << c.name;
    EXPECT_EQ(lane0(op.ref_cb_cr) >> 16, c.cr) << c.name;
    EXPECT_EQ(lane0(op.ref_tolerance_sq), c.radius2) << c.name;
  }

  float const positions[8][2] = {{0.38268f, 0.92388f},   {0.92388f, 0.38268f},
                                 {0.92388f, -0.38268f},  {0.38268f, -0.92388f},
                                 {-0.38268f, -0.92388f}, {-0.92388f, -0.38268f},
                                 {-0.92388f, 0.38268f},  {-0.38268f, 0.92388f}};
  float const colors[8][3] = {{1, 0, 0},    {1, 0.75f, 0}, {0.5f, 1, 0},    {0, 1, 0.25f},
                              {0, 1, 1},    {0, 0.25f, 1}, {0.5f, 0, 1},    {1, 0, 0.75f}};
  // The tables wrap: index i reads entry i % 8.
  for (int i = 0; i < 24; ++i) {
    glm::vec2 const p = S::hot_spots_data::default_position(i);
    EXPECT_NEAR(p.x, positions[i % 8][0], 1e-5) << "position " << i;
    EXPECT_NEAR(p.y, positions[i % 8][1], 1e-5) << "position " << i;
    glm::vec3 const c = S::hot_spots_data::preview_color(i);
    EXPECT_EQ(c, glm::vec3(colors[i % 8][0], colors[i % 8][1], colors[i % 8][2])) << "colour " << i;
  }
}

// A disabled operator reads no pixel: a null frame is fine, and a result
// that held values is zeroed.
TEST(hot_spots_test, disabled_operator_reads_nothing) {
  S::hot_spots op;
  op.spots(0).enabled() = true;
  S::hot_spots_info info;
  info.detected(3) = S::object_found;
  R::bitmap<R::pixel_bgra_u8> const nothing{nullptr, 1920, 1080, 7680, false};
  op(info, nothing, 0.0f);
  EXPECT_EQ(values_of(info), "00000000");
}

// ------------------------------------------------------------ geometry

struct geometry_case {
  char const *name;
  int width, height;
  float aspect;
  float x, y, size;
  float left, right, top, bottom;  // cropping
  int x0, y0, x1, y1;              // expected rectangle
};

// Worked by hand at 1920 x 1080: sx = sy = 540 with the true aspect.
geometry_case const geometry_cases[] = {
    {"default_spot", 1920, 1080, 16.0f / 9.0f, 0.38268343f, 0.9238795f, 0.03f, 0, 0, 0, 0,
     1150, 1023, 1183, 1055},
    {"zero_aspect_is_square_pixels", 1920, 1080, 0.0f, 0.38268343f, 0.9238795f, 0.03f, 0, 0, 0, 0,
     1150, 1023, 1183, 1055},
    // sx = -540 mirrors x; the half side stays 16.2.
    {"negative_aspect_mirrors_x", 1920, 1080, -16.0f / 9.0f, 0.38268343f, 0.9238795f, 0.03f, 0, 0,
     0, 0, 737, 1023, 770, 1055},
    {"negative_size", 1920, 1080, 16.0f / 9.0f, 0.38268343f, 0.9238795f, -0.03f, 0, 0, 0, 0, 1150,
     1023, 1183, 1055},
    // Five by five around a whole pixel: 957.5 rounds to 958, 962.5 to 963.
    {"zero_size", 1920, 1080, 16.0f / 9.0f, 0, 0, 0, 0, 0, 0, 0, 958, 538, 963, 543},
    // A margin of -0.1 lets the edge out to -192: -28.2 rounds away from
    // zero to -28, and is left for clipping.
    {"negative_edge", 1920, 1080, 16.0f / 9.0f, -1.8f, 0, 0.03f, -0.1f, 0, 0, 0, -28, 524, 4, 556},
    // Crossed margins: 1344 and 768 swap, the part between them stays.
    {"crossed_cropping", 1920, 1080, 16.0f / 9.0f, 0, 0, 1, 0.7f, 0.6f, 0, 0, 768, 0, 1344, 1080},
    {"cropping_cuts", 1920, 1080, 16.0f / 9.0f, 0, 0, 1, 0.25f, 0.25f, 0.1f, 0.5f, 480, 108, 1440,
     540},
    // A field of 1920 x 1080 (540 lines): half as many rows, same place.
    {"field_of_interlaced_frame", 1920, 540, 16.0f / 9.0f, 0.38268343f, 0.9238795f, 0.03f, 0, 0, 0,
     0, 1150, 511, 1183, 528},
};

class geometry_test : public ::testing::TestWithParam<geometry_case> {};

TEST_P(geometry_test, spot_rectangle) {
  geometry_case const &c = GetParam();
  S::hot_spots_data settings;
  for (int i = 0; i < settings.size_spots(); ++i) {
    settings.spots(i).x() = c.x;
    settings.spots(i).y() = c.y;
    settings.spots(i).size() = c.size;
  }
  settings.cropping().left() = c.left, settings.cropping().right() = c.right;
  settings.cropping().top() = c.top, settings.cropping().bottom() = c.bottom;
  S::detail::spot_rect const r = rect_of(settings, 4, c.width, c.height, c.aspect);
  EXPECT_EQ(r.left_top, glm::ivec2(c.x0, c.y0));
  EXPECT_EQ(r.right_bottom, glm::ivec2(c.x1, c.y1));
}

INSTANTIATE_TEST_SUITE_P(cases, geometry_test, ::testing::ValuesIn(geometry_cases),
                         [](auto const &info) { return std::string(info.param.name); });

// ------------------------------------------------------------ decisions

class decision_test : public ::testing::TestWithParam<layout> {};

// Spot 2 covered, the others on pure key: 2 1... in every layout, and
// threshold 0 or less fires every spot that survives clipping.
TEST_P(decision_test, covered_spot_fires_and_threshold_at_or_below_zero_fires_all) {
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
}

// A threshold above the area asks for every sample of the rectangle: all
// covered fires, all but one row does not. Nothing outside the rectangle is
// covered, so the head's walk beyond it cannot make up for the row.
TEST_P(decision_test, threshold_above_area_needs_every_sample) {
  layout const l = GetParam();
  S::hot_spots op = all_on();
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
                         [](auto const &info) { return std::string(layout_name(info.param)); });

// A sample exactly on the tolerance circle is key; one step out is not.
// The radius comes from tolerance settings whose square is a sum of two
// squares, found by search.
TEST(hot_spots_test, sample_on_the_circle_is_key) {
  int found = 0;
  for (int step = 1; step <= 200 && found < 5; ++step) {
    float const tolerance = float(step) / 400.0f;
    int const radius2 = hm::tolerance_sq(tolerance, 0.0f);
    for (int a = 0; a * a <= radius2 && a < 90; ++a) {
      int const b = int(std::lround(std::sqrt(double(radius2 - a * a))));
      if (a * a + b * b != radius2 || b >= 90) continue;
      ++found;
      S::hot_spots op = all_on();
      op.tolerance_c() = tolerance;
      op.smoothness() = 0.0f;
      op.threshold() = 1;
      for (int out : {0, 1}) {
        chroma const c{key_chroma.cb + a + out, key_chroma.cr - b};
        picture const p(64, 36, [](int, int) { return true; }, c);
        std::string const want = out ? "11111111" : "22222222";
        for (layout l : {layout::ycbcra, layout::ycbcr_422, layout::y_cbcr, layout::planar})
          EXPECT_EQ(values_of(run(op, p, l, 0.0f)), want)
              << layout_name(l) << " radius2 " << radius2 << " dCb " << a + out << " dCr " << -b;
      }
      break;
    }
  }
  EXPECT_GE(found, 3);
}

// The default key as a BGRA pixel gives Cr 106 against the reference 105:
// with no tolerance at all it differs, while the reference chroma itself
// in a YCbCr layout is key, and Cr 106 there differs too.
TEST(hot_spots_test, default_key_pixel_is_one_level_off_the_reference) {
  S::hot_spots op = all_on();
  op.tolerance_c() = 0.0f;
  op.smoothness() = 0.0f;
  op.threshold() = 1;
  picture const key(64, 36, [](int, int) { return false; });
  EXPECT_EQ(values_of(run(op, key, layout::bgra, 0.0f)), "11111111");
  EXPECT_EQ(values_of(run(op, key, layout::ycbcra, 0.0f)), "22222222");
  picture const cr106(64, 36, [](int, int) { return true; }, chroma{165, 106});
  EXPECT_EQ(values_of(run(op, cr106, layout::ycbcra, 0.0f)), "11111111");
  EXPECT_EQ(values_of(run(op, cr106, layout::planar, 0.0f)), "11111111");
}

// A 4:2:2 rectangle one column wide at odd x0 rounds to nothing: area 0,
// so it fires on pure key with any threshold.
TEST(hot_spots_test, one_column_at_odd_x0_in_422_fires) {
  S::hot_spots op = all_on();
  S::detail::spot_key const key = kernels::setup(op);
  picture const plain(64, 8, [](int, int) { return false; });
  for (int x0 : {1, 3, 17, 33}) {
    S::detail::spot_count const c =
        kernels::count_spot_422<true>(key, plain.ycbcr, glm::ivec2(x0, 0), glm::ivec2(x0 + 1, 4));
    EXPECT_FALSE(c.empty) << x0;
    EXPECT_EQ(c.area, 0) << x0;
    EXPECT_EQ(S::detail::decide(c, 64), S::object_found) << x0;
  }
}

// The walk looks right of the rectangle: the head up to the group, the
// block of BGRA and YCbCrA up to four pixels past B. Worked by hand on
// pictures 64 wide whose covered columns are [c0, c1), two rows.
struct overrun_case {
  char const *name;
  layout l;
  int x0, x1;  // rectangle columns
  int c0, c1;  // covered columns
  int count, area;
};

TEST(hot_spots_test, walk_counts_right_of_the_rectangle) {
  overrun_case const cases[] = {
      {"bgra head to A", layout::bgra, 1, 2, 1, 64, 6, 2},
      {"bgra head ignores x1", layout::bgra, 5, 6, 7, 8, 2, 2},
      {"bgra block past B", layout::bgra, 0, 12, 12, 16, 8, 24},
      {"bgra block stops at step", layout::bgra, 0, 12, 16, 64, 0, 24},
      {"ycbcra block past B", layout::ycbcra, 4, 16, 16, 20, 8, 24},
      {"422 head to 16 columns", layout::ycbcr_422, 2, 4, 4, 16, 12, 2},
      {"422 no block overrun", layout::ycbcr_422, 0, 32, 32, 64, 0, 32},
      // Halved: columns 2..3 of the plane; head walks plane columns 1..7.
      {"y_cbcr head to 8 samples", layout::y_cbcr, 2, 4, 4, 16, 6, 1},
      {"planar head to 8 samples", layout::planar, 2, 4, 4, 16, 6, 1},
  };
  S::hot_spots op = all_on();
  S::detail::spot_key const key = kernels::setup(op);
  for (overrun_case const &c : cases) {
    picture const p(64, 4, [&](int x, int) { return x >= c.c0 && x < c.c1; });
    glm::ivec2 const lt(c.x0, 0), rb(c.x1, 2);
    S::detail::spot_count got{};
    switch (c.l) {
      case layout::bgra: got = kernels::count_spot_bgra<true>(key, p.bgra, lt, rb); break;
      case layout::ycbcra: got = kernels::count_spot_ycbcra<true>(key, p.ycbcra, lt, rb); break;
      case layout::ycbcr_422: got = kernels::count_spot_422<true>(key, p.ycbcr, lt, rb); break;
      case layout::y_cbcr: got = kernels::count_spot_cbcr<true>(key, p.cbcr, lt, rb); break;
      case layout::planar: got = kernels::count_spot_cb_cr(key, p.cb, p.cr, lt, rb); break;
    }
    EXPECT_EQ(got.count, c.count) << c.name;
    EXPECT_EQ(got.area, c.area) << c.name;
  }
}

// ------------------------------------------------------------ messages

struct message_frame {
  picture p;
  video::message m;
  message_frame(int width, int height, std::function<bool(int, int)> const &covered)
      : p(width, height, covered) {
    m.xres() = width;
    m.yres() = height;
    m.aspect_ratio() = 16.0f / 9.0f;
    m.bgra() = p.bgra, m.ycbcra() = p.ycbcra, m.ycbcr() = p.ycbcr, m.y() = p.y;
    m.cbcr() = p.cbcr, m.cb() = p.cb, m.cr() = p.cr;
    for (auto *b : {&m.bgra().owned, &m.ycbcra().owned, &m.ycbcr().owned, &m.y().owned,
                    &m.cbcr().owned, &m.cb().owned, &m.cr().owned})
      *b = false;
  }
};

// Every handled format goes to its layout; unknown formats give zeros.
TEST(hot_spots_test, message_formats) {
  S::hot_spots op = all_on();
  S::detail::spot_rect const r2 = rect_of(op, 2, 640, 360, 16.0f / 9.0f);
  message_frame f(640, 360, [&](int x, int y) { return near(r2, x, y); });
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
    message_frame f(1920, 1080, [&](int x, int y) {
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
