// The times-two operations for all eight bitmap types against the line model
// run on views made here (bottom-up for the field 1 operations, every second
// line for de-combing), byte for byte over the whole destination memory; what
// a wrongly sized destination gets, and the filter's quality on photographs.
#include <sight/super_resolution/y_x2.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "super_resolution/line_kernels_model.h"
#include "support/line_buffers.h"
#ifdef SIGHT_HAVE_OPENCV
#include "super_resolution/quality.h"
#endif

namespace {

namespace R = Tamarind::Rasters;
using Korvane::Sight::super_resolution::y_x2;
using sr_test::buffer;
using sr_test::layout;

enum class operation { f0_to_f1, f1_to_f0, rescale_f0, rescale_f1, decomb_in_place, decomb_into };
enum class spacing { tight, spare3, aligned16, bottom_up, field_view };

char const *const operation_names[] = {"f0_to_f1",   "f1_to_f0",        "rescale_f0",
                                       "rescale_f1", "decomb_in_place", "decomb_into"};
char const *const spacing_names[] = {"tight", "spare3", "aligned16", "bottom_up", "field_view"};

// Runs `op` on bitmaps of type B over the two buffers.
template <class B>
void apply(operation op, buffer const &s, int width, int height, buffer const &d, int d_width, int d_height) {
  using T = std::remove_pointer_t<decltype(B::data)>;
  B const source{reinterpret_cast<T *>(s.data()), width, height, s.shape().stride, false};
  B destination{reinterpret_cast<T *>(d.data()), d_width, d_height, d.shape().stride, false};
  switch (op) {
    case operation::f0_to_f1: y_x2::f0_to_f1(source, destination); break;
    case operation::f1_to_f0: y_x2::f1_to_f0(source, destination); break;
    case operation::rescale_f0: y_x2::rescale(source, destination, true); break;
    case operation::rescale_f1: y_x2::rescale(source, destination, false); break;
    case operation::decomb_in_place: y_x2::decomb(destination); break;
    case operation::decomb_into: y_x2::decomb(source, destination); break;
  }
}

// Each pixel type with the bytes per pixel (0: 4:2:2, whole macro-pixels of
// four bytes) and its operations.
struct pixel_type {
  char const *name;
  int bytes;
  void (*run)(operation, buffer const &, int, int, buffer const &, int, int);
  int byte_width(int width) const { return bytes > 0 ? bytes * width : (width + 1) / 2 * 4; }
};
pixel_type const pixels[] = {{"y", 1, apply<R::bitmap<R::pixel_y_u8>>},
                             {"a", 1, apply<R::bitmap<R::pixel_a_u8>>},
                             {"cb", 1, apply<R::bitmap<R::pixel_cb_u8>>},
                             {"cr", 1, apply<R::bitmap<R::pixel_cr_u8>>},
                             {"cbcr", 2, apply<R::bitmap<R::pixel_cbcr_u8>>},
                             {"bgra", 4, apply<R::bitmap<R::pixel_bgra_u8>>},
                             {"ycbcra", 4, apply<R::bitmap<R::pixel_ycbcra_u8>>},
                             {"ycbcr422", 0, apply<R::bitmap_422<R::pixel_ycbcr_u8>>}};
pixel_type const &luma = pixels[0];

// Three bytes of room behind the last line in memory, which the operations
// must leave alone.
layout shape(spacing s, int bytes, int lines, int offset) {
  int const strides[] = {bytes, bytes + 3, (bytes + 15) / 16 * 16, -bytes, 2 * (bytes + 1)};
  return layout{bytes, lines, strides[int(s)], s == spacing::aligned16 ? 0 : offset, 3};
}

// The same lines bottom-up (data at the last line of its own height), and
// every second line from line `first`.
line_model::view reversed(line_model::view v, int own_height) {
  return {v.data + std::ptrdiff_t(own_height - 1) * v.stride, v.width, v.height, -v.stride};
}
line_model::view every_second(line_model::view v, int first) {
  return {v.data + std::ptrdiff_t(first) * v.stride, v.width, v.height / 2, 2 * v.stride};
}

// The operation's memory effect by the line model on the views `sv` (of the
// source) and `d` (of hd lines), with no byte written behind the line of `d`
// that lies last in memory.
void model_run(operation op, line_model::view sv, buffer const &d, int hd) {
  std::uint8_t const *const end = hd < 1 ? d.begin() : d.line(d.shape().stride >= 0 ? hd - 1 : 0) + d.shape().width;
  line_model::view const dv = sr_test::model_view(d, hd);
  int const h = sv.height;
  switch (op) {
    case operation::f0_to_f1: return line_model::shift_half_line(sv, dv, end);
    case operation::f1_to_f0: return line_model::shift_half_line(reversed(sv, h), reversed(dv, hd), end);
    case operation::rescale_f0: return line_model::double_lines(sv, dv, end);
    case operation::rescale_f1: return line_model::double_lines(reversed(sv, h), reversed(dv, hd), end);
    case operation::decomb_in_place: return line_model::shift_half_line(every_second(dv, 0), every_second(dv, 1), end);
    case operation::decomb_into: return line_model::double_lines(every_second(sv, 0), dv, end);
  }
}

using op_case = std::tuple<int, operation, spacing>;  // index into pixels, operation, spacing

void PrintTo(operation o, std::ostream *os) { *os << operation_names[int(o)]; }
void PrintTo(spacing s, std::ostream *os) { *os << spacing_names[int(s)]; }

class y_x2_test : public ::testing::TestWithParam<op_case> {};


// Widths whose byte length has every remainder modulo 4 (odd 4:2:2 widths
// included), and heights 0 (no writes), 1, 2 and odd ones.
TEST_P(y_x2_test, writes_what_the_line_model_writes_and_nothing_else) {
  auto const [type, op, space] = GetParam();
  std::mt19937 rng(std::uint32_t(type * 100 + int(op) * 10 + int(space)));
  for (int width : {1, 2, 3, 4, 5, 8, 9, 17, 33})
    for (int h : {0, 1, 2, 3, 4, 5, 8, 9}) {
      int const bytes = pixels[type].byte_width(width);
      bool const in_place = op == operation::decomb_in_place;
      int const hd = op == operation::rescale_f0 || op == operation::rescale_f1 ? 2 * h : h;
      buffer s(shape(space, bytes, h, 3));
      buffer got(shape(space, bytes, hd, 7)), want(shape(space, bytes, hd, 7));
      s.randomize(rng);
      if (in_place) got.copy_from(s);
      want.copy_from(got);
      pixels[type].run(op, s, width, h, got, width, hd);
      model_run(op, sr_test::model_view(in_place ? want : s, h), want, hd);
      ASSERT_TRUE(sr_test::same_bytes(want, got)) << "width " << width << " (" << bytes << " bytes) h " << h;
    }
}

INSTANTIATE_TEST_SUITE_P(types, y_x2_test,
                         ::testing::Combine(::testing::Range(0, 8),
                                            ::testing::Values(operation::f0_to_f1, operation::f1_to_f0,
                                                              operation::rescale_f0, operation::rescale_f1,
                                                              operation::decomb_in_place, operation::decomb_into),
                                            ::testing::Values(spacing::tight, spacing::spare3, spacing::aligned16,
                                                              spacing::bottom_up, spacing::field_view)));

// Destinations that do not take the plain path: the same data with another
// stride (not the in-place case: the even source lines, memory lines 4 and
// 6, are doubled into the destination's lines, which run upward from the
// shared first line), and wrongly sized ones, which get only the lines and
// bytes they have (the source is cut to them), or for a reversed operation
// the result moved as a whole. The model gets the views that say so.
TEST(y_x2_edges, other_destinations_get_the_lines_the_model_gives_them) {
  std::mt19937 rng(15);
  using y_bitmap = R::bitmap<R::pixel_y_u8>;
  struct sized {
    operation op;
    int width, lines, model_lines;  // of the destination; source lines the model gets
  };
  for (sized const z : {sized{operation::rescale_f0, 12, 9, 4}, sized{operation::f0_to_f1, 8, 5, 5},
                        sized{operation::f1_to_f0, 12, 7, 5}}) {
    buffer s(layout{12, 5, 12, 0, 0}), got(layout{z.width, z.lines, z.width, 0, 3}), want(got.shape());
    s.randomize(rng);
    luma.run(z.op, s, 12, 5, got, z.width, z.lines);
    model_run(z.op, line_model::view{s.data(), z.width, z.model_lines, 12}, want, z.lines);
    ASSERT_TRUE(sr_test::same_bytes(want, got)) << operation_names[int(z.op)];
  }
  int const w = 8, h = 4;
  buffer got(layout{w, 2 * h, w, 0, 0}), want(got.shape());
  got.randomize(rng);
  want.copy_from(got);
  y_bitmap const source{reinterpret_cast<R::pixel_y_u8 *>(got.line(h)), w, h, w, false};
  y_bitmap destination{source.data, w, h, -w, false};
  y_x2::decomb(source, destination);
  line_model::double_lines(line_model::view{want.line(h), w, h / 2, 2 * w}, line_model::view{want.line(h), w, h, -w},
                           want.end());
  EXPECT_TRUE(sr_test::same_bytes(want, got)) << "decomb with the same data, stride " << -w;
}

#ifdef SIGHT_HAVE_OPENCV
// On real photographs a field rescaled to a frame comes closer to the
// original than line doubling. The benchmark program prints the full table.
TEST(rescale_quality, the_filter_beats_line_doubling_on_photographs) {
  int measured = 0;
  for (std::string const &path : sr_quality::photographs()) {
    cv::Mat const picture = sr_quality::load_grey(path);
    if (picture.empty()) continue;
    ++measured;
    sr_quality::psnr_row const row = sr_quality::measure(path, picture);
    EXPECT_GT(row.filter, row.doubling) << path;
  }
  ASSERT_GE(measured, 2) << "the wallpaper packages' photographs are missing";
}
#endif

}  // namespace
