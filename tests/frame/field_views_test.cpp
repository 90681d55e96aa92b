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
  // expected
  int height;
  bool lower_after;
  int first;
  int step;
};

std::string name_of(::testing::TestParamInfo<views_case> const &info) {
  views_case const &c = info.param;
  return "field" + std::to_string(c.field_type < 0 ? 9 : c.field_type) + (c.lower_field ? "_lower" : "_upper") +
         "_h" + std::to_string(c.yres) + "_stride" + std::to_string(c.stride);
}

class field_views_test : public ::testing::TestWithParam<views_case> {};

constexpr int kXres = 13;  // odd, so that halved planes truncate

// One plane of the message: address and stride of the message bitmap, and
// the view's expected size and default stride.
template <class B>
void expect_view(B const &view, B const &source, views_case const &c, int width, int height,
                 int default_stride, char const *plane) {
  SCOPED_TRACE(plane);
  EXPECT_EQ(view.width, width);
  EXPECT_EQ(view.height, height);
  EXPECT_FALSE(view.owned);
  int const stride = c.stride != 0 ? c.stride * c.step : default_stride;
  EXPECT_EQ(view.stride, stride);
  auto *const expected = reinterpret_cast<std::uint8_t const *>(source.data) + c.first * source.stride;
  EXPECT_EQ(reinterpret_cast<std::uint8_t const *>(view.data), expected);
}

TEST_P(field_views_test, gives_field_geometry_and_views_in_every_layout) {
  views_case const &c = GetParam();
  alignas(16) static std::uint8_t memory[4][4096];
  video::message m;
  m.xres() = kXres;
  m.yres() = c.yres;
  m.field_type() = video::e_field_type(c.field_type);
  m.ycbcr() = {reinterpret_cast<R::pixel_ycbcr_u8 *>(memory[0]), kXres, c.yres, c.stride, false};
  m.bgra() = {reinterpret_cast<R::pixel_bgra_u8 *>(memory[0]), kXres, c.yres, c.stride, false};
  m.ycbcra() = {reinterpret_cast<R::pixel_ycbcra_u8 *>(memory[0]), kXres, c.yres, c.stride, false};
  m.y() = {reinterpret_cast<R::pixel_y_u8 *>(memory[1]), kXres, c.yres, c.stride, false};
  m.cb() = {reinterpret_cast<R::pixel_cb_u8 *>(memory[2]), kXres / 2, c.yres / 2, c.stride, false};
  m.cr() = {reinterpret_cast<R::pixel_cr_u8 *>(memory[3]), kXres / 2, c.yres / 2, c.stride, false};
  m.cbcr() = {reinterpret_cast<R::pixel_cbcr_u8 *>(memory[2]), kXres / 2, c.yres / 2, c.stride, false};

  for (int format = 0; format <= 6; ++format) {
    SCOPED_TRACE("format " + std::to_string(format));
    m.data_format() = video::e_data_format(format);
    video::field_views const v = video::field_views::make(m, c.lower_field);
    EXPECT_EQ(v.height, c.height);
    EXPECT_EQ(v.lower_field, c.lower_after);
    EXPECT_EQ(v.first, c.first);
    EXPECT_EQ(v.step, c.step);
    EXPECT_EQ(v.supported(), format <= 5);
    int const h = c.height;
    switch (format) {
      case 0:
      case 1:
        expect_view(v.ycbcr, m.ycbcr(), c, kXres, h, (kXres + 1) / 2 * 4, "ycbcr");
        EXPECT_EQ(v.y.data, nullptr);
        break;
      case 2:
        expect_view(v.y, m.y(), c, kXres, h, kXres, "y");
        expect_view(v.cb, m.cb(), c, kXres / 2, h / 2, kXres / 2, "cb");
        expect_view(v.cr, m.cr(), c, kXres / 2, h / 2, kXres / 2, "cr");
        EXPECT_EQ(v.cbcr.data, nullptr);
        break;
      case 3:
        expect_view(v.ycbcra, m.ycbcra(), c, kXres, h, kXres * 4, "ycbcra");
        break;
      case 4:
        expect_view(v.bgra, m.bgra(), c, kXres, h, kXres * 4, "bgra");
        break;
      case 5:
        expect_view(v.y, m.y(), c, kXres, h, kXres, "y");
        expect_view(v.cbcr, m.cbcr(), c, kXres / 2, h / 2, kXres / 2 * 2, "cbcr");
        EXPECT_EQ(v.cb.data, nullptr);
        break;
      default:  // unknown layout: nothing is viewed
        EXPECT_EQ(v.ycbcr.data, nullptr);
        EXPECT_EQ(v.y.data, nullptr);
        EXPECT_EQ(v.bgra.data, nullptr);
        EXPECT_EQ(v.ycbcra.data, nullptr);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    all, field_views_test,
    ::testing::Values(
        // whole pictures: lower_field stays as given
        views_case{0, false, 11, 64, 11, false, 0, 1}, views_case{0, true, 11, 64, 11, true, 0, 1},
        views_case{1, true, 10, 0, 10, true, 0, 1}, views_case{-1, false, 10, 64, 10, false, 0, 1},
        // a single lower field: lower_field forced on, no line offset
        views_case{2, false, 11, 64, 11, true, 0, 1}, views_case{2, true, 10, 0, 10, true, 0, 1},
        // both fields: half the lines (an odd last line dropped), every second line
        views_case{3, false, 11, 64, 5, false, 0, 2}, views_case{3, true, 11, 64, 5, true, 1, 2},
        views_case{3, true, 10, 48, 5, true, 1, 2},
        // a zero stride becomes the packed default, not multiplied by the step
        views_case{3, false, 10, 0, 5, false, 0, 2}, views_case{3, true, 9, 0, 4, true, 1, 2}),
    name_of);

}  // namespace
