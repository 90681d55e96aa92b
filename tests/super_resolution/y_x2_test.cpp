// The times-two operations for all eight bitmap types: the finished-line
// formulas where the line's byte width is a multiple of 4, the line model on
// hand-made views for the other widths (whose last columns and bytes behind
// the line follow the 1-column rule), the height rules, both de-comb forms,
// the vertical-flip symmetry, and what a wrongly sized destination gets.
#include <sight/super_resolution/y_x2.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "super_resolution/line_kernels_model.h"
#include "super_resolution/test_buffers.h"

namespace {

namespace R = Tamarind::Rasters;
using Korvane::Sight::super_resolution::y_x2;
using sr_test::buffer;
using sr_test::layout;

enum class pixel { y, a, cb, cr, cbcr, bgra, ycbcra, ycbcr422 };
enum class operation { f0_to_f1, f1_to_f0, rescale_f0, rescale_f1, decomb_in_place, decomb_into };
enum class spacing { tight, spare3, aligned16, bottom_up, field_view };

char const *name(pixel p) {
  static char const *const n[] = {"y", "a", "cb", "cr", "cbcr", "bgra", "ycbcra", "ycbcr422"};
  return n[int(p)];
}
char const *name(operation o) {
  static char const *const n[] = {"f0_to_f1", "f1_to_f0", "rescale_f0", "rescale_f1", "decomb_in_place",
                                  "decomb_into"};
  return n[int(o)];
}
char const *name(spacing s) {
  static char const *const n[] = {"tight", "spare3", "aligned16", "bottom_up", "field_view"};
  return n[int(s)];
}

// Bytes of a line of `width` pixels.
int byte_width(pixel p, int width) {
  switch (p) {
    case pixel::cbcr: return 2 * width;
    case pixel::bgra:
    case pixel::ycbcra: return 4 * width;
    case pixel::ycbcr422: return (width + 1) / 2 * 4;
    default: return width;
  }
}

template <class B>
B typed(buffer const &b, int width, int height) {
  using T = std::remove_pointer_t<decltype(B::data)>;
  return B{reinterpret_cast<T *>(b.data()), width, height, b.shape().stride, false};
}

template <class B>
void apply(operation op, buffer const &s, int width, int height, buffer const &d, int d_height) {
  B const source = typed<B>(s, width, height);
  B destination = typed<B>(d, width, d_height);
  switch (op) {
    case operation::f0_to_f1: y_x2::f0_to_f1(source, destination); break;
    case operation::f1_to_f0: y_x2::f1_to_f0(source, destination); break;
    case operation::rescale_f0: y_x2::rescale(source, destination, true); break;
    case operation::rescale_f1: y_x2::rescale(source, destination, false); break;
    case operation::decomb_in_place: y_x2::decomb(destination); break;
    case operation::decomb_into: y_x2::decomb(source, destination); break;
  }
}

// Runs `op` on the bitmaps of pixel type `p` over the two buffers.
void apply(pixel p, operation op, buffer const &s, int width, int height, buffer const &d, int d_height) {
  switch (p) {
    case pixel::y: return apply<R::bitmap<R::pixel_y_u8>>(op, s, width, height, d, d_height);
    case pixel::a: return apply<R::bitmap<R::pixel_a_u8>>(op, s, width, height, d, d_height);
    case pixel::cb: return apply<R::bitmap<R::pixel_cb_u8>>(op, s, width, height, d, d_height);
    case pixel::cr: return apply<R::bitmap<R::pixel_cr_u8>>(op, s, width, height, d, d_height);
    case pixel::cbcr: return apply<R::bitmap<R::pixel_cbcr_u8>>(op, s, width, height, d, d_height);
    case pixel::bgra: return apply<R::bitmap<R::pixel_bgra_u8>>(op, s, width, height, d, d_height);
    case pixel::ycbcra: return apply<R::bitmap<R::pixel_ycbcra_u8>>(op, s, width, height, d, d_height);
    case pixel::ycbcr422: return apply<R::bitmap_422<R::pixel_ycbcr_u8>>(op, s, width, height, d, d_height);
  }
}

// Three bytes of room behind the last line in memory, which the operations
// must leave alone.
layout shape(spacing s, int bytes, int lines, int offset) {
  switch (s) {
    case spacing::tight: return layout{bytes, lines, bytes, offset, 3};
    case spacing::spare3: return layout{bytes, lines, bytes + 3, offset, 3};
    case spacing::aligned16: return layout{bytes, lines, (bytes + 15) / 16 * 16, 0, 3};
    case spacing::bottom_up: return layout{bytes, lines, -bytes, offset, 3};
    case spacing::field_view: return layout{bytes, lines, 2 * (bytes + 1), offset, 3};
  }
  return layout{};
}

using picture = std::vector<std::vector<int>>;

picture read(buffer const &b, int lines) {
  picture p(std::size_t(lines), std::vector<int>(std::size_t(b.shape().width)));
  for (int y = 0; y < lines; ++y)
    for (int x = 0; x < b.shape().width; ++x) p[std::size_t(y)][std::size_t(x)] = b.line(y)[x];
  return p;
}

// upper and lower of line y of a picture, column x, taps clamped at its ends.
int upper_at(picture const &p, int y, int x) {
  int const h = int(p.size());
  return line_model::upper(p[std::size_t(y > 0 ? y - 1 : 0)][std::size_t(x)], p[std::size_t(y)][std::size_t(x)],
                           p[std::size_t(y + 1 < h ? y + 1 : h - 1)][std::size_t(x)]);
}
int lower_at(picture const &p, int y, int x) {
  int const h = int(p.size());
  return line_model::lower(p[std::size_t(y > 0 ? y - 1 : 0)][std::size_t(x)], p[std::size_t(y)][std::size_t(x)],
                           p[std::size_t(y + 1 < h ? y + 1 : h - 1)][std::size_t(x)]);
}
// The line half-way between lines k and k+1 of a picture.
std::vector<int> between(picture const &p, int k) {
  std::vector<int> line(p[0].size());
  for (std::size_t x = 0; x < line.size(); ++x)
    line[x] = line_model::avg(lower_at(p, k, int(x)), upper_at(p, k + 1, int(x)));
  return line;
}

// The finished lines of each operation, as the operation defines them, from
// the source picture `s` (of h lines) and the destination as it was before.
picture finished(operation op, picture const &s, picture d) {
  int const h = int(s.size());
  auto at = [&](int i) -> std::vector<int> & { return d[std::size_t(i)]; };
  switch (op) {
    case operation::f0_to_f1:
      for (int k = 0; k + 1 < h; ++k) at(k) = between(s, k);
      if (h > 0) at(h - 1) = s[std::size_t(h - 1)];
      break;
    case operation::f1_to_f0:
      if (h > 0) at(0) = s[0];
      for (int k = 1; k < h; ++k) at(k) = between(s, k - 1);
      break;
    case operation::rescale_f0:
      for (int y = 0; y < h; ++y) at(2 * y) = s[std::size_t(y)];
      for (int y = 0; y + 1 < h; ++y) at(2 * y + 1) = between(s, y);
      if (h > 0) at(2 * h - 1) = s[std::size_t(h - 1)];
      break;
    case operation::rescale_f1:
      for (int y = 0; y < h; ++y) at(2 * y + 1) = s[std::size_t(y)];
      for (int y = 1; y < h; ++y) at(2 * y) = between(s, y - 1);
      if (h > 0) at(0) = s[0];
      break;
    case operation::decomb_in_place:
    case operation::decomb_into: {
      picture even;
      for (int y = 0; y + 1 < h; y += 2) even.push_back(s[std::size_t(y)]);
      int const n = int(even.size());
      for (int k = 0; k < n; ++k) {
        at(2 * k) = even[std::size_t(k)];
        at(2 * k + 1) = k + 1 < n ? between(even, k) : even[std::size_t(k)];
      }
      break;
    }
  }
  return d;
}

line_model::view model_view(buffer const &b, int height) {
  return line_model::view{b.data(), b.shape().width, height, b.shape().stride};
}
line_model::view reversed(line_model::view v, int own_height) {
  v.data += std::ptrdiff_t(own_height - 1) * v.stride;
  v.stride = -v.stride;
  return v;
}
line_model::view every_second(line_model::view v, int first, int height) {
  v.data += std::ptrdiff_t(first) * v.stride;
  v.stride *= 2;
  v.height = height / 2;
  return v;
}

// The operation's memory effect by the line model on views made here.
void model_run(operation op, buffer const &s, int h, buffer const &d, int hd) {
  std::uint8_t const *end = d.shape().stride >= 0 ? d.line(hd - 1) + d.shape().width : d.line(0) + d.shape().width;
  line_model::view sv = model_view(s, h), dv = model_view(d, hd);
  switch (op) {
    case operation::f0_to_f1: return line_model::shift_half_line(sv, dv, end);
    case operation::f1_to_f0: return line_model::shift_half_line(reversed(sv, h), reversed(dv, hd), end);
    case operation::rescale_f0: return line_model::double_lines(sv, dv, end);
    case operation::rescale_f1: return line_model::double_lines(reversed(sv, h), reversed(dv, hd), end);
    case operation::decomb_in_place:
      return line_model::shift_half_line(every_second(dv, 0, hd), every_second(dv, 1, hd), end);
    case operation::decomb_into: return line_model::double_lines(every_second(sv, 0, h), dv, end);
  }
}

struct op_case {
  pixel type;
  operation op;
  spacing space;
};

void PrintTo(op_case const &c, std::ostream *os) { *os << name(c.type) << " " << name(c.op) << " " << name(c.space); }

class y_x2_test : public ::testing::TestWithParam<op_case> {};

TEST_P(y_x2_test, writes_the_defined_lines_and_nothing_outside_the_destination) {
  op_case const c = GetParam();
  std::mt19937 rng(std::uint32_t(int(c.type) * 100 + int(c.op) * 10 + int(c.space)));
  for (int width : {1, 2, 3, 4, 5, 8, 9, 17, 33})
    for (int h : {1, 2, 3, 4, 5, 8, 9}) {
      int const bytes = byte_width(c.type, width);
      bool const in_place = c.op == operation::decomb_in_place;
      int const hd = c.op == operation::rescale_f0 || c.op == operation::rescale_f1 ? 2 * h : h;
      buffer s(shape(c.space, bytes, h, 3));
      buffer got(shape(c.space, bytes, hd, 7)), want(shape(c.space, bytes, hd, 7));
      s.randomize(rng);
      if (in_place) sr_test::copy_bytes(s, got);
      sr_test::copy_bytes(got, want);
      picture const before = read(got, hd);
      apply(c.type, c.op, s, width, h, got, hd);
      std::ostringstream where;
      where << "width " << width << " (" << bytes << " bytes) h " << h;
      if (bytes % 4 == 0) {
        // No 1-column steps: every line as the operation defines it, and not
        // a byte elsewhere.
        picture const expected = finished(c.op, read(in_place ? want : s, h), before);
        picture const result = read(got, hd);
        for (int y = 0; y < hd; ++y)
          for (int x = 0; x < bytes; ++x)
            ASSERT_EQ(expected[std::size_t(y)][std::size_t(x)], result[std::size_t(y)][std::size_t(x)])
                << where.str() << " y " << y << " x " << x << " (formula, operation)";
        for (std::size_t i = 0; i < got.size(); ++i)
          if (got.kind(i) != 0) {
            ASSERT_EQ(int(got.begin()[i]), int(sr_test::sentinel)) << where.str() << " at " << got.where(i);
          }
      } else {
        model_run(c.op, in_place ? want : s, h, want, hd);
        for (std::size_t i = 0; i < got.size(); ++i)
          ASSERT_EQ(int(want.begin()[i]), int(got.begin()[i])) << where.str() << " at " << got.where(i)
                                                               << " (model, operation)";
      }
      // Behind the line that lies last in memory nothing is ever written.
      std::size_t const last = got.shape().stride >= 0 ? std::size_t(got.line(hd - 1) - got.begin())
                                                       : std::size_t(got.line(0) - got.begin());
      for (std::size_t i = last + std::size_t(bytes); i < got.size(); ++i)
        ASSERT_EQ(int(got.begin()[i]), int(sr_test::sentinel)) << where.str();
    }
}

std::vector<op_case> op_cases() {
  std::vector<op_case> cases;
  for (int p = 0; p <= int(pixel::ycbcr422); ++p)
    for (int o = 0; o <= int(operation::decomb_into); ++o)
      for (int s = 0; s <= int(spacing::field_view); ++s) cases.push_back(op_case{pixel(p), operation(o), spacing(s)});
  return cases;
}

std::string case_name(::testing::TestParamInfo<op_case> const &info) {
  std::ostringstream s;
  s << name(info.param.type) << "_" << name(info.param.op) << "_" << name(info.param.space);
  return s.str();
}

INSTANTIATE_TEST_SUITE_P(types, y_x2_test, ::testing::ValuesIn(op_cases()), case_name);

}  // namespace

namespace {

// Any operation on a source of no lines leaves its destination alone.
TEST(y_x2_edges, a_source_of_no_lines_writes_nothing) {
  std::mt19937 rng(11);
  for (int o = 0; o <= int(operation::decomb_into); ++o)
    for (int h : {0, -1}) {
      buffer s(layout{6, 4, 8, 0, 0}), d(layout{6, 4, 8, 0, 3});
      s.randomize(rng);
      apply(pixel::y, operation(o), s, 6, h, d, o == int(operation::decomb_in_place) ? h : 4);
      for (std::size_t i = 0; i < d.size(); ++i)
        ASSERT_EQ(int(d.begin()[i]), int(sr_test::sentinel)) << name(operation(o)) << " h " << h;
    }
}

// decomb(source, destination) and decomb(frame) give the same lines wherever
// both write, for every byte width, as long as the stride leaves room for the
// bytes behind a line (with tight strides those land on the next line, which
// is a source line in place and a destination line otherwise).
TEST(y_x2_edges, both_decomb_forms_give_the_same_lines) {
  std::mt19937 rng(12);
  for (spacing sp : {spacing::spare3, spacing::aligned16, spacing::bottom_up, spacing::tight})
    for (int width = 1; width <= 40; ++width)
      for (int h : {2, 3, 6, 7}) {
        layout const l = shape(sp, width, h, 1);
        if (width % 4 != 0 && sr_test::magnitude(l.stride) - width < 3) continue;
        buffer frame(l), into(l);
        frame.randomize(rng);
        picture const source = read(frame, h);
        apply(pixel::y, operation::decomb_into, frame, width, h, into, h);
        apply(pixel::y, operation::decomb_in_place, frame, width, h, frame, h);
        picture const a = read(frame, h), b = read(into, h);
        for (int y = 0; y < h / 2 * 2; ++y)
          ASSERT_EQ(a[std::size_t(y)], b[std::size_t(y)]) << name(sp) << " width " << width << " h " << h << " y " << y;
        if (h % 2 == 1) {
          EXPECT_EQ(a[std::size_t(h - 1)], source[std::size_t(h - 1)]) << "odd last line changed";
        }
      }
}

// Flipping a picture upside down turns field 1 into field 0: the reversed
// operations equal the plain ones on a flipped copy, flipped back.
TEST(y_x2_edges, reversed_operations_mirror_the_plain_ones) {
  std::mt19937 rng(13);
  for (int width : {1, 2, 3, 6, 7, 16, 19, 37})
    for (int h : {1, 2, 3, 5, 8}) {
      layout const l{width, h, width + 3, 2, 3}, l2{width, 2 * h, width + 3, 2, 3};
      buffer s(l), flipped(l);
      s.randomize(rng);
      for (int y = 0; y < h; ++y) std::memcpy(flipped.line(h - 1 - y), s.line(y), std::size_t(width));
      struct pair {
        operation reversed, plain;
        int out;
      };
      for (pair p : {pair{operation::f1_to_f0, operation::f0_to_f1, h},
                     pair{operation::rescale_f1, operation::rescale_f0, 2 * h}}) {
        buffer a(p.out == h ? l : l2), b(p.out == h ? l : l2);
        apply(pixel::y, p.reversed, s, width, h, a, p.out);
        apply(pixel::y, p.plain, flipped, width, h, b, p.out);
        for (int y = 0; y < p.out; ++y)
          ASSERT_EQ(0, std::memcmp(a.line(y), b.line(p.out - 1 - y), std::size_t(width)))
              << name(p.reversed) << " width " << width << " h " << h << " y " << y;
      }
    }
}

// Same data with another stride is not the in-place case: the even source
// lines (memory lines 4 and 6) are doubled into the destination's own lines,
// which run upward from the shared first line. In place, the even lines
// would have been memory lines 4 and 2.
TEST(y_x2_edges, decomb_with_the_same_data_and_another_stride_doubles_the_even_lines) {
  std::mt19937 rng(14);
  int const w = 8, h = 4;
  buffer memory(layout{w, 2 * h, w, 0, 0});
  memory.randomize(rng);
  picture const all = read(memory, 2 * h);
  R::bitmap<R::pixel_y_u8> source{reinterpret_cast<R::pixel_y_u8 *>(memory.line(h)), w, h, w, false};
  R::bitmap<R::pixel_y_u8> destination{source.data, w, h, -w, false};
  y_x2::decomb(source, destination);
  picture field;  // the even lines of the source: memory lines h and h + 2
  field.push_back(all[std::size_t(h)]);
  field.push_back(all[std::size_t(h + 2)]);
  picture const want = finished(operation::rescale_f0, field, picture(std::size_t(h), std::vector<int>(w)));
  picture const got = read(memory, 2 * h);
  for (int y = 0; y < h; ++y)
    EXPECT_EQ(got[std::size_t(h - y)], want[std::size_t(y)]) << "destination line " << y;
}

// A destination of the wrong size: a smaller one gets only the lines and
// bytes it has, a taller one of a reversed operation gets the result moved
// down as a whole, and no byte outside either is written.
TEST(y_x2_edges, a_wrongly_sized_destination_is_never_overrun) {
  std::mt19937 rng(15);
  int const w = 12, h = 5;
  buffer s(layout{w, h, w, 0, 0});
  s.randomize(rng);
  picture const src = read(s, h);
  {  // rescale into 2h - 1 lines: h - 1 source lines fit.
    buffer d(layout{w, 2 * h - 1, w, 0, 3});
    apply(pixel::y, operation::rescale_f0, s, w, h, d, 2 * h - 1);
    picture const cut(src.begin(), src.end() - 1);
    picture const want = finished(operation::rescale_f0, cut, read(d, 2 * h - 1));
    EXPECT_EQ(read(d, 2 * h - 1), want);
    for (std::size_t i = std::size_t((2 * h - 2) * w); i < d.size(); ++i)
      ASSERT_EQ(int(d.begin()[i]), int(sr_test::sentinel)) << "byte " << i;
  }
  {  // f0_to_f1 into a bitmap 4 pixels narrower: only its 8 bytes per line.
    buffer d(layout{w - 4, h, w - 4, 0, 3});
    R::bitmap<R::pixel_y_u8> const source{reinterpret_cast<R::pixel_y_u8 *>(s.data()), w, h, w, false};
    R::bitmap<R::pixel_y_u8> destination{reinterpret_cast<R::pixel_y_u8 *>(d.data()), w - 4, h, w - 4, false};
    y_x2::f0_to_f1(source, destination);
    picture narrow = src;
    for (auto &line : narrow) line.resize(std::size_t(w - 4));
    EXPECT_EQ(read(d, h), finished(operation::f0_to_f1, narrow, read(d, h)));
    for (std::size_t i = std::size_t(h * (w - 4)); i < d.size(); ++i)
      ASSERT_EQ(int(d.begin()[i]), int(sr_test::sentinel)) << "byte " << i;
  }
  {  // f1_to_f0 into h + 2 lines: the result fills the last h lines.
    buffer d(layout{w, h + 2, w, 0, 3});
    apply(pixel::y, operation::f1_to_f0, s, w, h, d, h + 2);
    picture const got = read(d, h + 2);
    picture const want = finished(operation::f1_to_f0, src, picture(std::size_t(h), std::vector<int>(w)));
    for (int y = 0; y < 2; ++y) EXPECT_EQ(got[std::size_t(y)], std::vector<int>(w, sr_test::sentinel));
    for (int y = 0; y < h; ++y) EXPECT_EQ(got[std::size_t(y + 2)], want[std::size_t(y)]) << y;
  }
}

}  // namespace
