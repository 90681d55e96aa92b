// The tracker end to end, in every layout: against the scalar moment model
// followed by the tracker's own later stages, through messages of every
// field type, and the outlines it paints.
#include <cmath>
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

// One plane: a buffer sized exactly for its lines (the last one unpadded),
// so that the sanitizer catches a read past the picture.
struct plane {
  std::vector<std::uint8_t> memory;
  std::uint8_t *data = nullptr;
  int width = 0, height = 0, stride = 0, line_bytes = 0;

  plane() = default;
  // A copy points into its own memory.
  plane(plane const &o)
      : memory(o.memory), data(o.data ? memory.data() + (o.data - o.memory.data()) : nullptr), width(o.width),
        height(o.height), stride(o.stride), line_bytes(o.line_bytes) {}
  plane &operator=(plane const &) = delete;
};

struct test_frame {
  layout kind;
  int width, height;
  plane planes[3];
  int count = 1;

  test_frame(layout kind, int width, int height, int offset, int pad) : kind(kind), width(width), height(height) {
    auto make = [&](plane &p, int w, int h, int bytes) {
      p.width = w, p.height = h, p.line_bytes = bytes, p.stride = bytes + pad;
      p.memory.assign(std::size_t(offset + p.stride * (h - 1) + bytes), 0);
      p.data = p.memory.data() + offset;
    };
    switch (kind) {
      case layout::bgra:
      case layout::ycbcra:
        make(planes[0], width, height, width * 4);
        break;
      case layout::yuv422:
        make(planes[0], width, height, (width + 1) / 2 * 4);
        break;
      case layout::y_cbcr:
        make(planes[0], width, height, width);
        make(planes[1], width / 2, height / 2, width / 2 * 2);
        count = 2;
        break;
      case layout::planar:
        make(planes[0], width, height, width);
        make(planes[1], width / 2, height / 2, width / 2);
        make(planes[2], width / 2, height / 2, width / 2);
        count = 3;
        break;
    }
  }

  std::uint8_t *at(int k, int x_bytes, int y) const {
    return planes[k].data + std::ptrdiff_t(y) * planes[k].stride + x_bytes;
  }

  // Keyed chroma (with some spread, so that weights vary) where `inside`
  // holds at the pixel a sample stands for, a far colour elsewhere.
  template <class Inside>
  void paint(Inside inside, std::mt19937 &rng) {
    std::uniform_int_distribution<int> any(0, 255), luma(16, 200), spread(-40, 40), low(0, 99);
    auto cb = [&](bool key) { return std::uint8_t(key ? 111 + spread(rng) : 200); };
    auto cr = [&](bool key) { return std::uint8_t(key ? 157 + spread(rng) : 50); };
    for (int y = 0; y < planes[0].height; ++y)
      for (int x = 0; x < planes[0].width; ++x) {
        std::uint8_t *p = kind == layout::yuv422 ? at(0, x / 2 * 4, y) : at(0, x * (kind <= layout::ycbcra ? 4 : 1), y);
        bool const key = inside(x, y);
        if (kind == layout::bgra) {
          int const n = spread(rng) / 2;
          std::uint8_t const px[4] = {std::uint8_t(key ? 119 + n : low(rng)), std::uint8_t(key ? 137 + n : 255),
                                      std::uint8_t(key ? 200 + n : low(rng)), std::uint8_t(any(rng))};
          std::memcpy(p, px, 4);
        } else if (kind == layout::ycbcra) {
          std::uint8_t const px[4] = {std::uint8_t(luma(rng)), cb(key), cr(key), std::uint8_t(any(rng))};
          std::memcpy(p, px, 4);
        } else if (kind == layout::yuv422) {
          p[1 + 2 * (x % 2)] = std::uint8_t(luma(rng));
          if (x % 2 == 0) p[0] = cb(key), p[2] = cr(key);
        } else {
          *p = std::uint8_t(luma(rng));
        }
      }
    for (int y = 0; y < planes[1].height && count > 1; ++y)
      for (int x = 0; x < planes[1].width; ++x) {
        bool const key = inside(2 * x, 2 * y);
        if (kind == layout::y_cbcr) {
          *at(1, 2 * x, y) = cb(key), *at(1, 2 * x + 1, y) = cr(key);
        } else {
          *at(1, x, y) = cb(key), *at(2, x, y) = cr(key);
        }
      }
  }
};

// A bitmap of plane k of `f`, seen from line `first` with every `step`th line.
template <class B>
B view(plane const &p, int height, int first = 0, int step = 1) {
  using T = std::remove_pointer_t<decltype(B{}.data)>;
  return B{reinterpret_cast<T *>(const_cast<std::uint8_t *>(p.data) + std::ptrdiff_t(first) * p.stride), p.width,
           height, p.stride * step, false};
}

// The bitmap entry of the frame's layout on the field (first, step) of height h.
object_tracking_info track(object_tracking &t, test_frame const &f, float aspect, int h, int first = 0, int step = 1) {
  plane const *p = f.planes;
  switch (f.kind) {
    case layout::bgra:
      return t(view<R::bitmap<R::pixel_bgra_u8>>(p[0], h, first, step), aspect);
    case layout::ycbcra:
      return t(view<R::bitmap<R::pixel_ycbcra_u8>>(p[0], h, first, step), aspect);
    case layout::yuv422:
      return t(view<R::bitmap_422<R::pixel_ycbcr_u8>>(p[0], h, first, step), aspect);
    case layout::y_cbcr:
      return t(view<R::bitmap<R::pixel_y_u8>>(p[0], h, first, step),
               view<R::bitmap<R::pixel_cbcr_u8>>(p[1], h / 2, first, step), aspect);
    case layout::planar:
      return t(view<R::bitmap<R::pixel_y_u8>>(p[0], h, first, step),
               view<R::bitmap<R::pixel_cb_u8>>(p[1], h / 2, first, step),
               view<R::bitmap<R::pixel_cr_u8>>(p[2], h / 2, first, step), aspect);
  }
  return {};
}

// What the frame should give: the scalar model's grid, then the tracker's
// own extraction, scaling and fit.
object_tracking_info expected(object_tracking_data const &settings, test_frame &f, float aspect) {
  object_tracking t;
  static_cast<object_tracking_data &>(t) = settings;
  int const w = f.width, h = f.height;
  bool const fine = f.kind <= layout::ycbcra;
  int const cx = fine ? w / 8 : w / 16, cy = f.kind <= layout::yuv422 ? h / 8 : h / 16;
  access::setup(t, w, h, cx, cy);
  moments_model::key const k = moments_model::make_key(settings.color().r(), settings.color().g(),
                                                       settings.color().b(), settings.tolerance_c(),
                                                       settings.smoothness());
  float *const cells = reinterpret_cast<float *>(access::cells(t).data);
  int const cs = access::cells(t).stride;
  plane *p = f.planes;
  switch (f.kind) {
    case layout::bgra:
      moments_model::moments_bgra(p[0].data, p[0].stride, w, h, k, false, cells, cs);
      break;
    case layout::ycbcra:
      moments_model::moments_ycbcra(p[0].data, p[0].stride, w, h, k, false, cells, cs);
      break;
    case layout::yuv422:
      moments_model::moments_422(p[0].data, p[0].stride, w, h, k, false, cells, cs);
      break;
    case layout::y_cbcr:
      moments_model::moments_y_cbcr(p[0].data, p[0].stride, p[1].data, p[1].stride, w, h, k, false, cells, cs);
      break;
    case layout::planar:
      moments_model::moments_planar(p[0].data, p[0].stride, p[1].data, p[1].stride, p[2].data, p[2].stride, w, h,
                                    k, false, cells, cs);
      break;
  }
  object_tracking::moments_type m{};
  access::extract_object(t, m);
  if (aspect == 0.0f) aspect = float(w) / float(h);
  access::scale_object(t, m, w, h, aspect);
  object_tracking_info info;
  access::fit_object(t, info, m);
  return info;
}

::testing::AssertionResult same(object_tracking_info const &a, object_tracking_info const &b) {
  if (a.object_detected() == b.object_detected() && std::memcmp(&a.centre(), &b.centre(), 8) == 0 &&
      std::memcmp(&a.x_axis(), &b.x_axis(), 8) == 0 && std::memcmp(&a.y_axis(), &b.y_axis(), 8) == 0)
    return ::testing::AssertionSuccess();
  auto print = [](std::ostream &o, object_tracking_info const &i) {
    o << "{" << i.object_detected() << " centre " << i.centre().x << "," << i.centre().y << " x " << i.x_axis().x
      << "," << i.x_axis().y << " y " << i.y_axis().x << "," << i.y_axis().y << "}";
  };
  auto r = ::testing::AssertionFailure();
  std::ostringstream o;
  print(o, a);
  o << " vs ";
  print(o, b);
  return r << o.str();
}

// A tilted ellipse and a small disc: two regions, the ellipse heavier.
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
  test_frame f(kind, w, h, offset, pad);
  std::mt19937 rng(w * 7919 + h + int(kind));  // the same picture for every member and preview
  f.paint(scene(w, h), rng);
  object_tracking t;
  t.enabled() = true;
  t.cropping().left() = 0.05f;
  t.cropping().bottom() = 0.1f;
  t.preview() = object_tracking_data::e_preview_type(preview);
  object_tracking_info const want = expected(t, f, 0.0f);
  ASSERT_EQ(want.object_detected(), 1);  // the scene has an object to find
  EXPECT_TRUE(same(track(t, f, 0.0f, h), want));
  // A second frame reuses the grid and gives the same again (the sign of
  // the axis is carried, and the blob has not turned).
  test_frame g(kind, w, h, offset, pad);
  std::mt19937 rng2(w * 7919 + h + int(kind));
  g.paint(scene(w, h), rng2);
  EXPECT_TRUE(same(track(t, g, 0.0f, h), want));
}

std::string pipeline_name(::testing::TestParamInfo<pipeline_param> const &info) {
  auto const [kind, size, offset, pad, preview] = info.param;
  std::ostringstream name;
  name << kLayoutNames[int(kind)] << "_w" << size.first << "_h" << size.second << "_off" << offset << "_pad" << pad
       << "_preview" << preview;
  return name.str();
}

INSTANTIATE_TEST_SUITE_P(tracker, pipeline_test,
                         ::testing::Combine(::testing::Values(layout::bgra, layout::ycbcra, layout::yuv422,
                                                              layout::y_cbcr, layout::planar),
                                            ::testing::Values(std::pair{64, 48}, std::pair{331, 197},
                                                              std::pair{720, 576}),
                                            ::testing::Values(0, 3), ::testing::Values(0, 16, 5),
                                            ::testing::Values(0, 1, 2, 3)),
                         pipeline_name);

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
  m.bgra() = view<R::bitmap<R::pixel_bgra_u8>>(f.planes[0], yres);
  m.ycbcra() = view<R::bitmap<R::pixel_ycbcra_u8>>(f.planes[0], yres);
  m.ycbcr() = view<R::bitmap_422<R::pixel_ycbcr_u8>>(f.planes[0], yres);
  m.y() = view<R::bitmap<R::pixel_y_u8>>(f.planes[0], yres);
  m.cbcr() = view<R::bitmap<R::pixel_cbcr_u8>>(f.planes[1], yres / 2);
  m.cb() = view<R::bitmap<R::pixel_cb_u8>>(f.planes[1], yres / 2);
  m.cr() = view<R::bitmap<R::pixel_cr_u8>>(f.planes[2], yres / 2);

  object_tracking by_message, by_bitmap;
  by_message.enabled() = by_bitmap.enabled() = true;
  bool const interlaced = field_type == 3;
  int const h = interlaced ? yres / 2 : yres;
  object_tracking_info want = track(by_bitmap, f, aspect, h, interlaced && lower ? 1 : 0, interlaced ? 2 : 1);
  ASSERT_EQ(want.object_detected(), 1);
  if (lower || field_type == 2) want.centre().y += 1.0f / float(h);
  EXPECT_TRUE(same(by_message(&m, lower), want));
}

std::string message_name(::testing::TestParamInfo<message_param> const &info) {
  auto const [kind, field_type, lower, aspect] = info.param;
  std::ostringstream name;
  name << kLayoutNames[int(kind)] << "_field" << field_type << (lower ? "_lower" : "_upper")
       << (aspect == 0.0f ? "_aspect_unknown" : "_aspect_given");
  return name.str();
}

INSTANTIATE_TEST_SUITE_P(tracker, message_test,
                         ::testing::Combine(::testing::Values(layout::bgra, layout::ycbcra, layout::yuv422,
                                                              layout::y_cbcr, layout::planar),
                                            ::testing::Values(0, 2, 3, 7), ::testing::Bool(),
                                            ::testing::Values(0.0f, 16.0f / 9.0f)),
                         message_name);

TEST(message_edge_test, unknown_format_and_disabled_tracker_look_at_nothing) {
  std::vector<std::uint8_t> pixels(64 * 64 * 4, 0);
  video::message m;
  m.xres() = 64;
  m.yres() = 64;
  m.field_type() = video::field_interlaced;
  m.bgra() = {reinterpret_cast<R::pixel_bgra_u8 *>(pixels.data()), 64, 64, 256, false};
  object_tracking t;
  t.enabled() = true;
  for (int format : {6, -1}) {
    m.data_format() = video::e_data_format(format);
    object_tracking_info const upper = t(&m, false), lower = t(&m, true);
    EXPECT_TRUE(same(upper, object_tracking_info()));
    object_tracking_info corrected;
    corrected.centre().y = 1.0f / 32.0f;  // the field's height, 64 / 2
    EXPECT_TRUE(same(lower, corrected));
  }
  m.data_format() = video::format_bgra;
  t.enabled() = false;
  EXPECT_TRUE(same(t(&m, true), object_tracking_info()));
}

// ---------------------------------------------------------------------------

TEST(state_test, disabling_keeps_the_grid_and_the_last_axis_and_copies_are_independent) {
  int const w = 256, h = 128;
  test_frame f(layout::bgra, w, h, 0, 0);
  std::mt19937 rng(9);
  f.paint(scene(w, h), rng);
  object_tracking t;
  t.enabled() = true;
  object_tracking_info const first = track(t, f, 0.0f, h);
  ASSERT_EQ(first.object_detected(), 1);
  glm::vec2 const axis = access::previous_x_axis(t);
  auto const *grid = access::cells(t).data;
  t.enabled() = false;
  EXPECT_TRUE(same(track(t, f, 0.0f, h), object_tracking_info()));
  EXPECT_EQ(access::cells(t).data, grid);
  EXPECT_EQ(access::previous_x_axis(t), axis);

  // A copy owns a grid of its own, with the contents; assignment into a
  // tracker that has seen another size keeps its memory yet stays in bounds,
  // and the next frame gives what a fresh tracker gives.
  t.enabled() = true;
  object_tracking copy(t);
  EXPECT_NE(access::cells(copy).data, grid);
  EXPECT_EQ(std::memcmp(access::cells(copy).data, grid, std::size_t(access::cells(t).stride) * access::cells(t).height), 0);
  object_tracking other;
  other.enabled() = true;
  test_frame small(layout::bgra, 64, 32, 0, 0);
  track(other, small, 0.0f, 32);
  other = t;
  EXPECT_TRUE(same(track(other, f, 0.0f, h), track(copy, f, 0.0f, h)));
}

// ---------------------------------------------------------------------------

struct cropping_case {
  char const *name;
  float left, right, top, bottom;
  int columns[4], rows[4];  // painted luma columns and rows, -1 for none
};

void PrintTo(cropping_case const &c, std::ostream *os) { *os << c.name; }

using outline_param = std::tuple<layout, cropping_case>;
class outline_test : public ::testing::TestWithParam<outline_param> {};

// The luma of a pixel (all four bytes for BGRA).
std::uint32_t luma(test_frame const &f, int x, int y) {
  switch (f.kind) {
    case layout::bgra: {
      std::uint32_t v;
      std::memcpy(&v, f.at(0, x * 4, y), 4);
      return v;
    }
    case layout::ycbcra:
      return *f.at(0, x * 4, y);
    case layout::yuv422:
      return *f.at(0, x / 2 * 4 + 1 + 2 * (x % 2), y);
    default:
      return *f.at(0, x, y);
  }
}

TEST_P(outline_test, paints_exactly_the_bars_outside_the_cropping) {
  auto const [kind, c] = GetParam();
  int const w = 1920, h = 64;
  test_frame f(kind, w, h, 0, 0);
  std::mt19937 rng(3);
  f.paint([](int, int) { return false; }, rng);
  test_frame const before = f;
  object_tracking t;
  t.enabled() = true;
  t.preview() = object_tracking_data::preview_outlines;
  t.cropping().left() = c.left;
  t.cropping().right() = c.right;
  t.cropping().top() = c.top;
  t.cropping().bottom() = c.bottom;
  EXPECT_EQ(track(t, f, 0.0f, h).object_detected(), 2);  // drawn though nothing was found
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      bool painted = false;
      for (int k = 0; k < 4; ++k) painted = painted || x == c.columns[k] || y == c.rows[k];
      ASSERT_EQ(luma(f, x, y) != luma(before, x, y), painted) << "x " << x << " y " << y;
    }
  if (c.columns[0] < 0 && c.rows[0] < 0) {
    for (int k = 0; k < f.count; ++k) EXPECT_EQ(f.planes[k].memory, before.planes[k].memory) << "plane " << k;
  }
}

std::string outline_name(::testing::TestParamInfo<outline_param> const &info) {
  return std::string(kLayoutNames[int(std::get<0>(info.param))]) + "_" + std::get<1>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(
    tracker, outline_test,
    ::testing::Combine(::testing::Values(layout::bgra, layout::ycbcra, layout::yuv422, layout::y_cbcr, layout::planar),
                       ::testing::Values(cropping_case{"none", 0, 0, 0, 0, {-1, -1, -1, -1}, {-1, -1, -1, -1}},
                                         cropping_case{"left", 0.25f, 0, 0, 0, {478, 479, -1, -1}, {-1, -1, -1, -1}},
                                         cropping_case{"right", 0, 0.25f, 0, 0, {1440, 1441, -1, -1}, {-1, -1, -1, -1}},
                                         cropping_case{"top", 0, 0, 0.25f, 0, {-1, -1, -1, -1}, {14, 15, -1, -1}},
                                         cropping_case{"bottom", 0, 0, 0, 0.25f, {-1, -1, -1, -1}, {48, 49, -1, -1}},
                                         cropping_case{"swapped", 0.8f, 0.8f, 0.5f, 0.5f, {382, 383, 1536, 1537},
                                                       {30, 31, 32, 33}})),
    outline_name);

}  // namespace
}  // namespace Korvane::Sight
