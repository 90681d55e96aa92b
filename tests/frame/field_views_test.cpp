// Views on the whole picture or one field of a message, in every layout.
#include <sight/frame/field_views.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;

namespace {

struct views_case {
  int field_type;
  bool lower_field;
  int yres;
  int stride;  // of every message bitmap; 0 asks for the default
  int height;  // expected: lines of the view, lower_field after, first line and line step
  bool lower_after;
  int first, step;
};

class field_views_test : public ::testing::TestWithParam<views_case> {};

constexpr int kXres = 13;  // odd, so that halved planes truncate

// A view of `source` at the expected line, size and stride.
template <class B>
void expect_view(B const &view, B const &source, views_case const &c, int width, int height, int bytes) {
  EXPECT_TRUE(view.width == width && view.height == height && !view.owned) << view.width << "x" << view.height;
  EXPECT_EQ(view.stride, c.stride != 0 ? c.stride * c.step : bytes);
  EXPECT_EQ(reinterpret_cast<std::uint8_t const *>(view.data),
            reinterpret_cast<std::uint8_t const *>(source.data) + c.first * source.stride);
}

TEST_P(field_views_test, gives_field_geometry_and_views_in_every_layout) {
  views_case const &c = GetParam();
  alignas(16) static std::uint8_t memory[4][4096];
  int const w = kXres, h = c.yres, s = c.stride;
  video::message m;
  m.xres() = w;
  m.yres() = h;
  m.field_type() = video::e_field_type(c.field_type);
  m.ycbcr() = {reinterpret_cast<R::pixel_ycbcr_u8 *>(memory[0]), w, h, s, false};
  m.bgra() = {reinterpret_cast<R::pixel_bgra_u8 *>(memory[0]), w, h, s, false};
  m.ycbcra() = {reinterpret_cast<R::pixel_ycbcra_u8 *>(memory[0]), w, h, s, false};
  m.y() = {reinterpret_cast<R::pixel_y_u8 *>(memory[1]), w, h, s, false};
  m.cb() = {reinterpret_cast<R::pixel_cb_u8 *>(memory[2]), w / 2, h / 2, s, false};
  m.cr() = {reinterpret_cast<R::pixel_cr_u8 *>(memory[3]), w / 2, h / 2, s, false};
  m.cbcr() = {reinterpret_cast<R::pixel_cbcr_u8 *>(memory[2]), w / 2, h / 2, s, false};
  for (int format = 0; format <= 6; ++format) {
    SCOPED_TRACE("format " + std::to_string(format));
    m.data_format() = video::e_data_format(format);
    video::field_views const v = video::field_views::make(m, c.lower_field);
    EXPECT_TRUE(v.height == c.height && v.lower_field == c.lower_after && v.first == c.first && v.step == c.step);
    EXPECT_EQ(v.supported(), format <= 5);
    int const vh = c.height;
    if (format <= 1) expect_view(v.ycbcr, m.ycbcr(), c, w, vh, (w + 1) / 2 * 4);
    if (format == 3) expect_view(v.ycbcra, m.ycbcra(), c, w, vh, w * 4);
    if (format == 4) expect_view(v.bgra, m.bgra(), c, w, vh, w * 4);
    if (format == 2 || format == 5) expect_view(v.y, m.y(), c, w, vh, w);
    if (format == 2) expect_view(v.cb, m.cb(), c, w / 2, vh / 2, w / 2);
    if (format == 2) expect_view(v.cr, m.cr(), c, w / 2, vh / 2, w / 2);
    if (format == 5) expect_view(v.cbcr, m.cbcr(), c, w / 2, vh / 2, w / 2 * 2);
    // Only the layout's own planes are viewed.
    EXPECT_EQ(v.ycbcr.data != nullptr, format <= 1);
    EXPECT_EQ(v.y.data != nullptr, format == 2 || format == 5);
    EXPECT_EQ(v.cbcr.data != nullptr, format == 5);
    EXPECT_EQ(v.bgra.data != nullptr, format == 4);
  }
}

INSTANTIATE_TEST_SUITE_P(
    all, field_views_test,
    ::testing::Values(
        // Whole pictures: lower_field stays as given.
        views_case{0, true, 11, 64, 11, true, 0, 1}, views_case{1, false, 10, 0, 10, false, 0, 1},
        // A single lower field: lower_field forced on, no line offset.
        views_case{2, false, 11, 64, 11, true, 0, 1},
        // Both fields: half the lines (an odd last line dropped), every second line.
        views_case{3, false, 11, 64, 5, false, 0, 2}, views_case{3, true, 11, 64, 5, true, 1, 2},
        // A zero stride becomes the packed default, not multiplied by the step.
        views_case{3, true, 9, 0, 4, true, 1, 2}));

}  // namespace
