// The tracker end to end, in every layout: against the scalar moment model
// followed by the tracker's own later stages, through messages of every
// field type, and the outlines it paints.
#include <array>
#include <bit>
#include <cmath>
#include <cctype>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "moments_model.h"
#include "tracker_access.h"

namespace Korvane::Sight {
namespace {

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;
using access = object_tracking_test_access;

enum class layout { bgra, ycbcra, yuv422, y_cbcr, planar };
char const *const kLayoutNames[] = {"bgra", "ycbcra", "yuv422", "y_cbcr", "planar"};
void PrintTo(layout l, std::ostream *os) { *os << kLayoutNames[int(l)]; }
auto const kLayouts = ::testing::Values(layout::bgra, layout::ycbcra, layout::yuv422, layout::y_cbcr, layout::planar);

// A frame of up to three planes, each buffer sized exactly for its lines
// (the last one unpadded) so that the sanitizer catches a read past it.
struct test_frame {
  struct plane {
    std::vector<std::uint8_t> memory;
    int offset = 0, width = 0, height = 0, stride = 0;
    std::uint8_t *at(int x_bytes, int y) { return memory.data() + offset + std::ptrdiff_t(y) * stride + x_bytes; }
  };
  layout kind;
  int width, height, count;
  plane p[3];

  test_frame(layout kind, int w, int h, int offset, int pad) : kind(kind), width(w), height(h) {
    bool const planes = kind >= layout::y_cbcr;
    int const bytes = kind <= layout::ycbcra ? w * 4 : kind == layout::yuv422 ? (w + 1) / 2 * 4 : w;
    count = kind == layout::planar ? 3 : planes ? 2 : 1;
    for (int k = 0; k < count; ++k) {
      int const pw = k == 0 ? w : w / 2, ph = k == 0 ? h : h / 2;
      int const line = k == 0 ? bytes : kind == layout::y_cbcr ? pw * 2 : pw;
      p[k] = {std::vector<std::uint8_t>(std::size_t(offset + (line + pad) * (ph - 1) + line)), offset, pw, ph,
              line + pad};
    }
  }

  // Key chroma, spread so that weights vary, where `inside` holds at the
  // pixel that a sample stands for; chroma far from the key elsewhere.
  template <class Inside>
  void paint(Inside inside, std::mt19937 &rng) {
    std::uniform_int_distribution<int> any(0, 255), luma(16, 200), spread(-40, 40), low(0, 99);
    auto cb = [&](bool key) { return std::uint8_t(key ? 111 + spread(rng) : 200); };
    auto cr = [&](bool key) { return std::uint8_t(key ? 157 + spread(rng) : 50); };
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        bool const key = inside(x, y);
        int const n = spread(rng) / 2;
        if (kind == layout::bgra) {
          std::uint8_t const px[4] = {std::uint8_t(key ? 119 + n : low(rng)), std::uint8_t(key ? 137 + n : 255),
                                      std::uint8_t(key ? 200 + n : low(rng)), std::uint8_t(any(rng))};
          std::memcpy(p[0].at(x * 4, y), px, 4);
        } else if (kind == layout::ycbcra) {
          std::uint8_t const px[4] = {std::uint8_t(luma(rng)), cb(key), cr(key), std::uint8_t(any(rng))};
          std::memcpy(p[0].at(x * 4, y), px, 4);
        } else if (kind == layout::yuv422) {
          std::uint8_t *e = p[0].at(x / 2 * 4, y);
          e[1 + 2 * (x % 2)] = std::uint8_t(luma(rng));
          if (x % 2 == 0) e[0] = cb(key), e[2] = cr(key);
        } else {
          *p[0].at(x, y) = std::uint8_t(luma(rng));
          if (x % 2 || y % 2 || x / 2 >= p[1].width || y / 2 >= p[1].height) continue;
          bool const two = kind == layout::y_cbcr;
          *p[1].at(two ? x : x / 2, y / 2) = cb(key);
          *p[two ? 1 : 2].at(two ? x + 1 : x / 2, y / 2) = cr(key);
        }
      }
  }

  // Plane k seen from line `first`, every `step`th line, `h` lines.
  template <class B>
  B view(int k, int h, int first = 0, int step = 1) {
    using T = std::remove_pointer_t<decltype(B{}.data)>;
    return B{reinterpret_cast<T *>(p[k].at(0, first)), p[k].width, h, p[k].stride * step, false};
  }

  // The bitmap entry of the layout on the field (first, step) of height h.
  object_tracking_info track(object_tracking &t, float aspect, int h, int first = 0, int step = 1) {
    using Y = R::bitmap<R::pixel_y_u8>;
    switch (kind) {
      case layout::bgra:
        return t(view<R::bitmap<R::pixel_bgra_u8>>(0, h, first, step), aspect);
      case layout::ycbcra:
        return t(view<R::bitmap<R::pixel_ycbcra_u8>>(0, h, first, step), aspect);
      case layout::yuv422:
        return t(view<R::bitmap_422<R::pixel_ycbcr_u8>>(0, h, first, step), aspect);
      case layout::y_cbcr:
        return t(view<Y>(0, h, first, step), view<R::bitmap<R::pixel_cbcr_u8>>(1, h / 2, first, step), aspect);
      case layout::planar:
        return t(view<Y>(0, h, first, step), view<R::bitmap<R::pixel_cb_u8>>(1, h / 2, first, step),
                 view<R::bitmap<R::pixel_cr_u8>>(2, h / 2, first, step), aspect);
    }
    return {};
  }

  // What the frame should give: the scalar model's grid, then the
  // tracker's own extraction, scaling and fit.
  object_tracking_info expected(object_tracking_data const &settings, float aspect) {
    object_tracking t;
    static_cast<object_tracking_data &>(t) = settings;
    int const w = width, h = height;
    access::setup(t, w, h, kind <= layout::ycbcra ? w / 8 : w / 16, kind <= layout::yuv422 ? h / 8 : h / 16);
    auto const k = moments_model::make_key(settings.color().r(), settings.color().g(), settings.color().b(),
                                           settings.tolerance_c(), settings.smoothness());
    float *const c = reinterpret_cast<float *>(access::cells(t).data);
    int const cs = access::cells(t).stride;
    if (kind == layout::bgra) moments_model::moments_bgra(p[0].at(0, 0), p[0].stride, w, h, k, false, c, cs);
    if (kind == layout::ycbcra) moments_model::moments_ycbcra(p[0].at(0, 0), p[0].stride, w, h, k, false, c, cs);
    if (kind == layout::yuv422) moments_model::moments_422(p[0].at(0, 0), p[0].stride, w, h, k, false, c, cs);
    if (kind == layout::y_cbcr)
      moments_model::moments_y_cbcr(p[0].at(0, 0), p[0].stride, p[1].at(0, 0), p[1].stride, w, h, k, false, c, cs);
    if (kind == layout::planar)
      moments_model::moments_planar(p[0].at(0, 0), p[0].stride, p[1].at(0, 0), p[1].stride, p[2].at(0, 0),
                                    p[2].stride, w, h, k, false, c, cs);
    object_tracking::moments_type m{};
    access::extract_object(t, m);
    access::scale_object(t, m, w, h, aspect == 0.0f ? float(w) / float(h) : aspect);
    object_tracking_info info;
    access::fit_object(t, info, m);
    return info;
  }
};

// A test name from the printed parameters: "(bgra, (64, 48), 0)" gives
// "bgra_64_48_0".
auto const case_name = [](auto const &info) {
  std::string name;
  for (char c : ::testing::PrintToString(info.param))
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '.') name += c == '.' ? 'p' : c;
    else if (!name.empty() && name.back() != '_') name += '_';
  while (!name.empty() && name.back() == '_') name.pop_back();
  return name;
};

// A result as bits, so that results compare exactly and print on failure.
std::array<std::uint32_t, 7> bits(object_tracking_info const &i) {
  return {std::uint32_t(i.object_detected()), std::bit_cast<std::uint32_t>(i.centre().x),
          std::bit_cast<std::uint32_t>(i.centre().y),  std::bit_cast<std::uint32_t>(i.x_axis().x),
          std::bit_cast<std::uint32_t>(i.x_axis().y),  std::bit_cast<std::uint32_t>(i.y_axis().x),
          std::bit_cast<std::uint32_t>(i.y_axis().y)};
}

// A tilted ellipse and a lighter disc: two regions.
auto scene(int w, int h) {
  return [w, h](int x, int y) {
    double const u = (x - 0.6 * w) * 0.866 + (y - 0.45 * h) * 0.5, v = -(x - 0.6 * w) * 0.5 + (y - 0.45 * h) * 0.866;
    double const dx = x - 0.15 * w, dy = y - 0.8 * h;
    return u * u / (0.06 * w * w) + v * v / (0.02 * h * h) <= 1 || dx * dx + dy * dy <= 0.004 * w * w;
  };
}

// ---------------------------------------------------------------------------

using pipeline_param = std::tuple<layout, std::pair<int, int>, int, int, int>;  // size, offset, pad, preview
class pipeline_test : public ::testing::TestWithParam<pipeline_param> {};

TEST_P(pipeline_test, matches_the_model_in_every_member_with_and_without_preview) {
  auto const [kind, size, offset, pad, preview] = GetParam();
  auto const [w, h] = size;
  object_tracking t;
  t.enabled() = true;
  t.cropping().left() = 0.05f;
  t.cropping().bottom() = 0.1f;
  t.preview() = object_tracking_data::e_preview_type(preview);
  std::array<std::uint32_t, 7> want{};
  // Twice: the second frame reuses the grid and carries the axis's sign.
  for (int frame = 0; frame < 2; ++frame) {
    test_frame f(kind, w, h, offset, pad);
    std::mt19937 rng(w * 7919 + h + int(kind));  // one picture for every member and preview
    f.paint(scene(w, h), rng);
    if (frame == 0) want = bits(f.expected(t, 0.0f));
    ASSERT_EQ(want[0], 1u);  // the scene has an object to find
    EXPECT_EQ(bits(f.track(t, 0.0f, h)), want) << "frame " << frame;
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, pipeline_test,
                         ::testing::Combine(kLayouts,
                                            ::testing::Values(std::pair{64, 48}, std::pair{331, 197},
                                                              std::pair{720, 576}),
                                            ::testing::Values(0, 3), ::testing::Values(0, 16, 5),
                                            ::testing::Values(0, 1, 2, 3)),
                         case_name);

// ---------------------------------------------------------------------------

using message_param = std::tuple<layout, int, bool, float>;  // field type, lower_field, aspect
class message_test : public ::testing::TestWithParam<message_param> {};

TEST_P(message_test, views_the_field_and_corrects_the_lower_one) {
  auto const [kind, field_type, lower, aspect] = GetParam();
  int const w = 160, yres = 121;  // odd: an interlaced frame drops its last line
  test_frame f(kind, w, yres, 0, 0);
  std::mt19937 rng(5);
  f.paint(scene(w, yres), rng);
  video::message m;
  m.xres() = w;
  m.yres() = yres;
  m.aspect_ratio() = aspect;
  m.field_type() = video::e_field_type(field_type);
  int const formats[] = {4, 3, field_type % 2, 5, 2};  // both 4:2:2 values in turn
  m.data_format() = video::e_data_format(formats[int(kind)]);
  m.bgra() = f.view<R::bitmap<R::pixel_bgra_u8>>(0, yres);
  m.ycbcra() = f.view<R::bitmap<R::pixel_ycbcra_u8>>(0, yres);
  m.ycbcr() = f.view<R::bitmap_422<R::pixel_ycbcr_u8>>(0, yres);
  m.y() = f.view<R::bitmap<R::pixel_y_u8>>(0, yres);
  if (f.count > 1) m.cbcr() = f.view<R::bitmap<R::pixel_cbcr_u8>>(1, yres / 2);
  if (f.count > 1) m.cb() = f.view<R::bitmap<R::pixel_cb_u8>>(1, yres / 2);
  if (f.count > 2) m.cr() = f.view<R::bitmap<R::pixel_cr_u8>>(2, yres / 2);

  object_tracking by_message, by_bitmap;
  by_message.enabled() = by_bitmap.enabled() = true;
  bool const interlaced = field_type == 3;
  int const h = interlaced ? yres / 2 : yres;
  object_tracking_info want = f.track(by_bitmap, aspect, h, interlaced && lower ? 1 : 0, interlaced ? 2 : 1);
  ASSERT_EQ(want.object_detected(), 1);
  if (lower || field_type == 2) want.centre().y += 1.0f / float(h);
  EXPECT_EQ(bits(by_message(&m, lower)), bits(want));
}

INSTANTIATE_TEST_SUITE_P(tracker, message_test,
                         ::testing::Combine(kLayouts, ::testing::Values(0, 2, 3, 7), ::testing::Bool(),
                                            ::testing::Values(0.0f, 16.0f / 9.0f)),
                         case_name);

TEST(message_edge_test, unknown_format_and_disabled_tracker_look_at_nothing) {
  std::vector<R::pixel_bgra_u8> pixels(64 * 64);
  video::message m;
  m.xres() = m.yres() = 64;
  m.field_type() = video::field_interlaced;
  m.bgra() = {pixels.data(), 64, 64, 256, false};
  object_tracking t;
  t.enabled() = true;
  object_tracking_info corrected;
  corrected.centre().y = 1.0f / 32.0f;  // the field's height, 64 / 2
  for (int format : {6, -1}) {
    m.data_format() = video::e_data_format(format);
    EXPECT_EQ(bits(t(&m, false)), bits(object_tracking_info()));
    EXPECT_EQ(bits(t(&m, true)), bits(corrected));
  }
  m.data_format() = video::format_bgra;
  t.enabled() = false;
  EXPECT_EQ(bits(t(&m, true)), bits(object_tracking_info()));
}

// A copy has a grid of its own; a tracker that has seen another size,
// assigned to, stays in bounds.
TEST(state_test, copies_own_their_grid) {
  int const w = 256, h = 128;
  test_frame f(layout::bgra, w, h, 0, 0);
  std::mt19937 rng(9);
  f.paint(scene(w, h), rng);
  object_tracking t, other;
  t.enabled() = other.enabled() = true;
  ASSERT_EQ(f.track(t, 0.0f, h).object_detected(), 1);
  auto const *grid = access::cells(t).data;
  object_tracking copy(t);
  EXPECT_NE(access::cells(copy).data, grid);
  test_frame(layout::bgra, 64, 32, 0, 0).track(other, 0.0f, 32);
  other = t;
  EXPECT_EQ(bits(f.track(other, 0.0f, h)), bits(f.track(copy, 0.0f, h)));
}

// ---------------------------------------------------------------------------

class outline_test : public ::testing::TestWithParam<layout> {};

// Under preview_outlines the bars at the cropping's edges are painted, in the
// luma of every layout (all four bytes of BGRA), and nothing else.
TEST_P(outline_test, paints_exactly_the_bars_outside_the_cropping) {
  struct cropping_case {
    float left, right, top, bottom;
    int columns[4], rows[4];  // painted columns and rows, -1 for none
  };
  cropping_case const cases[] = {
      {0, 0, 0, 0, {-1, -1, -1, -1}, {-1, -1, -1, -1}},
      {0.25f, 0, 0, 0, {478, 479, -1, -1}, {-1, -1, -1, -1}},
      {0, 0.25f, 0, 0, {1440, 1441, -1, -1}, {-1, -1, -1, -1}},
      {0, 0, 0.25f, 0, {-1, -1, -1, -1}, {14, 15, -1, -1}},
      {0, 0, 0, 0.25f, {-1, -1, -1, -1}, {48, 49, -1, -1}},
      {0.8f, 0.8f, 0.5f, 0.5f, {382, 383, 1536, 1537}, {30, 31, 32, 33}},  // crossed margins
  };
  layout const kind = GetParam();
  int const w = 1920, h = 64;
  auto const luma = [kind](test_frame &f, int x, int y) {
    std::uint32_t v = 0;
    std::memcpy(&v, f.p[0].at(kind <= layout::ycbcra ? x * 4 : kind == layout::yuv422 ? x / 2 * 4 + 1 + 2 * (x % 2) : x, y),
                kind == layout::bgra ? 4 : 1);
    return v;
  };
  for (cropping_case const &c : cases) {
    test_frame f(kind, w, h, 0, 0);
    std::mt19937 rng(3);
    f.paint([](int, int) { return false; }, rng);
    test_frame before = f;
    object_tracking t;
    t.enabled() = true;
    t.preview() = object_tracking_data::preview_outlines;
    t.cropping().left() = c.left, t.cropping().right() = c.right;
    t.cropping().top() = c.top, t.cropping().bottom() = c.bottom;
    EXPECT_EQ(f.track(t, 0.0f, h).object_detected(), 2);  // drawn though nothing was found
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        bool painted = false;
        for (int k = 0; k < 4; ++k) painted = painted || x == c.columns[k] || y == c.rows[k];
        ASSERT_EQ(luma(f, x, y) != luma(before, x, y), painted) << "x " << x << " y " << y << " left " << c.left;
      }
    for (int k = 0; k < f.count && c.columns[0] < 0 && c.rows[0] < 0; ++k)
      EXPECT_EQ(f.p[k].memory, before.p[k].memory) << "plane " << k;
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, outline_test, kLayouts, case_name);

}  // namespace
}  // namespace Korvane::Sight
