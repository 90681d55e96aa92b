// The tracker end to end, in every layout: against the scalar moment model
// followed by the tracker's own later stages, through messages of every
// field type, and the outlines it paints.
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "moments_model.h"
#include "tracker_access.h"

namespace Korvane::Sight {
namespace {

namespace video = Tamarind::Parley::video;
using access = object_tracking_test_access;
using harness::frame;
using harness::layout;
auto const kLayouts = ::testing::ValuesIn(harness::pixel_layouts);

// The tracker's bitmap entry on the field of the frame that starts at line
// `first` and takes every `step`th line.
object_tracking_info track(object_tracking &t, frame const &f, float aspect, int first = 0, int step = 1) {
  return harness::visit(f, [&](auto... b) {
    ((b.data = reinterpret_cast<decltype(b.data)>(reinterpret_cast<std::uint8_t *>(b.data) + first * b.stride),
      b.height /= step, b.stride *= step), ...);
    return t(b..., aspect);
  });
}

// What the frame should give: the scalar model's grid, then the tracker's
// own extraction, scaling and fit.
object_tracking_info expected(frame const &f, object_tracking_data const &settings, float aspect) {
  object_tracking t;
  static_cast<object_tracking_data &>(t) = settings;
  int const w = f.g.width, h = f.g.height;
  bool const wide = f.l != layout::bgra && f.l != layout::ycbcra, tall = f.l == layout::y_cbcr || f.l == layout::y_cb_cr;
  access::setup(t, w, h, w / (wide ? 16 : 8), h / (tall ? 16 : 8));
  auto const k = moments_model::make_key(settings.color().r(), settings.color().g(), settings.color().b(),
                                         settings.tolerance_c(), settings.smoothness());
  moments_model::moments_frame(f, k, false, reinterpret_cast<float *>(access::cells(t).data), access::cells(t).stride);
  object_tracking::moments_type m{};
  access::extract_object(t, m);
  access::scale_object(t, m, w, h, aspect == 0.0f ? float(w) / float(h) : aspect);
  object_tracking_info info;
  access::fit_object(t, info, m);
  return info;
}

// A result as bits, so that results compare exactly and print on failure.
std::array<std::uint32_t, 7> bits(object_tracking_info const &i) {
  return {std::uint32_t(i.object_detected()), std::bit_cast<std::uint32_t>(i.centre().x),
          std::bit_cast<std::uint32_t>(i.centre().y),  std::bit_cast<std::uint32_t>(i.x_axis().x),
          std::bit_cast<std::uint32_t>(i.x_axis().y),  std::bit_cast<std::uint32_t>(i.y_axis().x),
          std::bit_cast<std::uint32_t>(i.y_axis().y)};
}

// A tilted ellipse and a lighter disc (two regions) in key chroma spread so
// that weights vary, on chroma far from the key; any luma and alpha.
frame scene(layout l, harness::geometry const &g, unsigned seed, bool keyed = true) {
  frame f(l, g);
  std::mt19937 rng(seed);
  int const w = g.width, h = g.height;
  f.paint([&](int x, int y) {
    double const u = (x - 0.6 * w) * 0.866 + (y - 0.45 * h) * 0.5, v = -(x - 0.6 * w) * 0.5 + (y - 0.45 * h) * 0.866;
    double const dx = x - 0.15 * w, dy = y - 0.8 * h;
    bool const key = keyed && (u * u / (0.06 * w * w) + v * v / (0.02 * h * h) <= 1 || dx * dx + dy * dy <= 0.004 * w * w);
    int const luma = 16 + int(rng() % 185), a = int(rng() % 256);
    if (!key) return harness::from_chroma(luma, 200, 50, std::uint8_t(a));
    return harness::from_chroma(luma, 71 + int(rng() % 81), 117 + int(rng() % 81), std::uint8_t(a));
  });
  return f;
}

// ---------------------------------------------------------------------------

using pipeline_param = std::tuple<layout, harness::geometry, int>;  // preview
class pipeline_test : public ::testing::TestWithParam<pipeline_param> {};

TEST_P(pipeline_test, matches_the_model_in_every_member_with_and_without_preview) {
  auto const [l, g, preview] = GetParam();
  object_tracking t;
  t.enabled() = true;
  t.cropping().left() = 0.05f;
  t.cropping().bottom() = 0.1f;
  t.preview() = object_tracking_data::e_preview_type(preview);
  std::array<std::uint32_t, 7> want{};
  // Twice: the second frame reuses the grid and carries the axis's sign.
  for (int n = 0; n < 2; ++n) {
    frame const f = scene(l, g, unsigned(g.width * 7919 + g.height + int(l)));  // one picture for every member
    if (n == 0) want = bits(expected(f, t, 0.0f));
    ASSERT_EQ(want[0], 1u);  // the scene has an object to find
    EXPECT_EQ(bits(track(t, f, 0.0f)), want) << "frame " << n;
  }
}

std::vector<harness::geometry> sizes() {
  std::vector<harness::geometry> out;
  for (auto [w, h] : {std::pair{64, 48}, std::pair{331, 197}, std::pair{720, 576}})
    for (harness::geometry const &g : harness::geometries({h}, {w})) out.push_back(g);
  return out;
}

INSTANTIATE_TEST_SUITE_P(tracker, pipeline_test,
                         ::testing::Combine(kLayouts, ::testing::ValuesIn(sizes()), ::testing::Values(0, 1, 2, 3)),
                         [](auto const &info) {
                           return harness::cat(harness::name_of(std::get<0>(info.param), std::get<1>(info.param)),
                                               "_preview", std::get<2>(info.param));
                         });

using message_param = std::tuple<layout, int, bool, float>;  // field type, lower_field, aspect
class message_test : public ::testing::TestWithParam<message_param> {};

TEST_P(message_test, views_the_field_and_corrects_the_lower_one) {
  auto const [l, field_type, lower, aspect] = GetParam();
  int const yres = 121;  // odd: an interlaced frame drops its last line
  frame const f = scene(l, {160, yres, 0, 0, false}, 5);
  video::message m = harness::message_of(f);
  m.aspect_ratio() = aspect;
  m.field_type() = video::e_field_type(field_type);
  if (l == layout::ycbcr_422) m.data_format() = video::e_data_format(field_type % 2);  // both 4:2:2 values in turn
  object_tracking by_message, by_bitmap;
  by_message.enabled() = by_bitmap.enabled() = true;
  bool const interlaced = field_type == 3;
  object_tracking_info want = track(by_bitmap, f, aspect, interlaced && lower ? 1 : 0, interlaced ? 2 : 1);
  ASSERT_EQ(want.object_detected(), 1);
  if (lower || field_type == 2) want.centre().y += 1.0f / float(interlaced ? yres / 2 : yres);
  EXPECT_EQ(bits(by_message(&m, lower)), bits(want));
}

INSTANTIATE_TEST_SUITE_P(tracker, message_test,
                         ::testing::Combine(kLayouts, ::testing::Values(0, 2, 3, 7), ::testing::Bool(),
                                            ::testing::Values(0.0f, 16.0f / 9.0f)),
                         [](auto const &info) {
                           return harness::cat(harness::name_of(std::get<0>(info.param)), "_field",
                                               std::get<1>(info.param), std::get<2>(info.param) ? "_lower" : "",
                                               std::get<3>(info.param) > 0 ? "_aspect" : "");
                         });

TEST(message_edge_test, unknown_format_and_disabled_tracker_look_at_nothing) {
  frame const f(layout::bgra, {64, 64, 0, 0, false});
  video::message m = harness::message_of(f);
  m.field_type() = video::field_interlaced;
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
  frame const f = scene(layout::bgra, {256, 128, 0, 0, false}, 9);
  object_tracking t, other;
  t.enabled() = other.enabled() = true;
  ASSERT_EQ(track(t, f, 0.0f).object_detected(), 1);
  object_tracking copy(t);
  EXPECT_NE(access::cells(copy).data, access::cells(t).data);
  track(other, frame(layout::bgra, {64, 32, 0, 0, false}), 0.0f);
  other = t;
  EXPECT_EQ(bits(track(other, f, 0.0f)), bits(track(copy, f, 0.0f)));
}

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
  layout const l = GetParam();
  int const w = 1920, h = 64;
  auto const luma = [l](frame const &f, int x, int y) {
    std::uint32_t v = 0;
    int const at = l == layout::bgra || l == layout::ycbcra ? x * 4 : l == layout::ycbcr_422 ? x / 2 * 4 + 1 + 2 * (x % 2) : x;
    std::memcpy(&v, f.planes[0].line(y) + at, l == layout::bgra ? 4 : 1);
    return v;
  };
  for (cropping_case const &c : cases) {
    frame const f = scene(l, {w, h, 0, 0, false}, 3, false), before = f;
    object_tracking t;
    t.enabled() = true;
    t.preview() = object_tracking_data::preview_outlines;
    t.cropping().left() = c.left, t.cropping().right() = c.right;
    t.cropping().top() = c.top, t.cropping().bottom() = c.bottom;
    EXPECT_EQ(track(t, f, 0.0f).object_detected(), 2);  // drawn though nothing was found
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        bool painted = false;
        for (int k = 0; k < 4; ++k) painted = painted || x == c.columns[k] || y == c.rows[k];
        ASSERT_EQ(luma(f, x, y) != luma(before, x, y), painted) << "x " << x << " y " << y << " left " << c.left;
      }
    if (c.columns[0] < 0 && c.rows[0] < 0) { EXPECT_TRUE(harness::same_frame(before, f)); }
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, outline_test, kLayouts,
                         [](auto const &info) { return std::string(harness::name_of(info.param)); });

}  // namespace
}  // namespace Korvane::Sight
