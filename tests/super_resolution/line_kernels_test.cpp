// The line kernels against their scalar model, byte for byte over the whole
// destination memory (picture, the bytes behind each line, untouched gaps),
// for every byte width from 1 to 70 and a few wide ones, tight and padded,
// top-down and bottom-up, in all four members; and the worked examples.
#include <sight/super_resolution/line_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "super_resolution/line_kernels_model.h"
#include "super_resolution/test_buffers.h"

namespace {

namespace R = Tamarind::Rasters;
namespace K = Korvane::Sight::super_resolution::detail;
using sr_test::buffer;
using sr_test::layout;

using kernel = void (*)(K::byte_view const &, K::byte_view const &, std::uint8_t const *);
using model = void (*)(line_model::view const &, line_model::view const &, std::uint8_t const *);

// Members as [source aligned][destination aligned].
kernel const shift_members[2][2] = {
    {K::shift_half_line<false, false>, K::shift_half_line<false, true>},
    {K::shift_half_line<true, false>, K::shift_half_line<true, true>}};
kernel const double_members[2][2] = {
    {K::double_lines<false, false>, K::double_lines<false, true>},
    {K::double_lines<true, false>, K::double_lines<true, true>}};

enum class spacing { tight, spare3, aligned16 };

struct line_case {
  int width;
  spacing space;
  bool source_aligned;
  bool destination_aligned;
  bool bottom_up;
};

std::string name_of(line_case const &c) {
  static char const *const spaces[] = {"tight", "spare3", "aligned16"};
  std::ostringstream s;
  s << "w" << c.width << "_" << spaces[int(c.space)] << (c.bottom_up ? "_bottom_up" : "") << "_src"
    << (c.source_aligned ? "A" : "U") << "_dst" << (c.destination_aligned ? "A" : "U");
  return s.str();
}

int stride_for(int width, spacing s) {
  switch (s) {
    case spacing::tight: return width;
    case spacing::spare3: return width + 3;
    case spacing::aligned16: return (width + 15) / 16 * 16;
  }
  return width;
}

// A layout of `lines` lines; the last line in memory gets the rest of its
// stride slot as room (none when tight, 3 when spare, the pad when aligned).
layout shape(line_case const &c, int lines, bool aligned, int unaligned_offset) {
  int const stride = stride_for(c.width, c.space);
  return layout{c.width, lines, c.bottom_up ? -stride : stride, aligned ? 0 : unaligned_offset,
                stride - c.width};
}

K::byte_view view_of(buffer const &b, int height) {
  return K::byte_view{reinterpret_cast<R::pixel_y_u8 *>(b.data()), b.shape().width, height, b.shape().stride,
                      false};
}
line_model::view model_view_of(buffer const &b, int height) {
  return line_model::view{b.data(), b.shape().width, height, b.shape().stride};
}

// Runs kernel and model on equal memory and compares every destination byte;
// also checks that the source is left alone and that no byte other than a
// picture byte or one of the three behind a line changed.
void check(line_case const &c, bool doubled, int h, std::mt19937 &rng) {
  int const out_lines = doubled ? 2 * h : h;
  buffer source(shape(c, h, c.source_aligned, 3));
  buffer got(shape(c, out_lines, c.destination_aligned, 5));
  buffer want(shape(c, out_lines, c.destination_aligned, 5));
  source.randomize(rng);
  kernel const k = (doubled ? double_members : shift_members)[c.source_aligned][c.destination_aligned];
  k(view_of(source, h), view_of(got, h), got.end());
  (doubled ? line_model::double_lines : line_model::shift_half_line)(model_view_of(source, h),
                                                                        model_view_of(want, h), want.end());
  std::ostringstream label;
  label << (doubled ? "double_lines" : "shift_half_line") << " h " << h;
  std::string const what = label.str();
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(int(want.begin()[i]), int(got.begin()[i])) << what << " at " << got.where(i) << " (model, kernel)";
    if (got.kind(i) < 0) {
      ASSERT_EQ(int(got.begin()[i]), int(sr_test::sentinel)) << what << " at " << got.where(i);
    }
  }
}

class line_kernels_test : public ::testing::TestWithParam<line_case> {};

TEST_P(line_kernels_test, match_the_model_in_every_byte) {
  line_case const &c = GetParam();
  std::mt19937 rng(std::uint32_t(c.width * 131 + int(c.space) * 7 + c.bottom_up));
  for (bool doubled : {false, true})
    // Up to and across bands of output lines: the first, full, short and
    // last bands of the walk that keeps the lines in registers.
    for (int h : {1, 2, 3, 4, 7, 9, 10, 11, 18, 27}) {
      check(c, doubled, h, rng);
      if (HasFatalFailure()) return;
    }
}

std::vector<line_case> line_cases() {
  std::vector<int> widths;
  for (int w = 1; w <= 70; ++w) widths.push_back(w);
  for (int w : {127, 719, 1920, 4099}) widths.push_back(w);
  std::vector<line_case> cases;
  for (int w : widths)
    for (spacing s : {spacing::tight, spacing::spare3, spacing::aligned16})
      for (bool bottom_up : {false, true})
        for (int member = 0; member < 4; ++member) {
          bool const sa = member < 2, da = member % 2 == 0;
          // An aligned side needs a stride that is a multiple of 16.
          if ((sa || da) && stride_for(w, s) % 16 != 0) continue;
          cases.push_back(line_case{w, s, sa, da, bottom_up});
        }
  return cases;
}

std::string case_name(::testing::TestParamInfo<line_case> const &info) { return name_of(info.param); }
void PrintTo(line_case const &c, std::ostream *os) { *os << name_of(c); }

INSTANTIATE_TEST_SUITE_P(widths, line_kernels_test, ::testing::ValuesIn(line_cases()), case_name);

// Views into one buffer whose lines meet, and views whose lines interleave
// without meeting (de-combing in place). Lines meet here only whole: the
// destination is the source moved by whole lines, or the source itself, so
// that a column's reads and writes never reach another column. Then the
// kernel's order of loads and stores (each read-back seeing what the step
// before stored, even where that was a source line) is the model's, and the
// two must leave the buffer identical, whether the kernel keeps to its
// step-by-step walk or may keep the lines in registers.
struct shared_case {
  int width;
  int gap;          // stride - width of the buffer's lines
  int shift_lines;  // destination line 0 at source line 0 + this many buffer lines
  bool every_second;  // source (and for shifts destination) on every second line
  bool doubled;
  bool bottom_up;
};

std::string name_of(shared_case const &c) {
  std::ostringstream s;
  s << "w" << c.width << "_gap" << c.gap << "_shift" << (c.shift_lines < 0 ? "m" : "") << std::abs(c.shift_lines)
    << (c.every_second ? "_every_second" : "") << (c.doubled ? "_doubled" : "_shift_half")
    << (c.bottom_up ? "_bottom_up" : "");
  return s.str();
}
void PrintTo(shared_case const &c, std::ostream *os) { *os << name_of(c); }

class shared_memory_test : public ::testing::TestWithParam<shared_case> {};

TEST_P(shared_memory_test, overlapping_and_interleaved_views_match_the_model) {
  shared_case const c = GetParam();
  int const step = c.every_second ? 2 : 1;
  std::mt19937 rng(std::uint32_t(c.width * 977 + c.gap * 31 + c.shift_lines * 7 + c.every_second * 3 + c.doubled));
  for (int h : {1, 2, 3, 9, 10, 19}) {
    int const out = c.doubled ? 2 * h : h;
    // Buffer lines in view order: source line i at buffer line step * i,
    // destination line j at shift + (doubled ? j : step * j).
    int const out_step = c.doubled ? 1 : step;
    int const first = std::min(0, c.shift_lines);
    int const last = std::max(step * (h - 1), c.shift_lines + out_step * (out - 1));
    int const stride = c.width + c.gap;
    layout const l{c.width, last - first + 1, c.bottom_up ? -stride : stride, 0, 3};
    buffer got(l), want(l);
    got.randomize(rng);
    sr_test::copy_bytes(got, want);
    auto kernel_view = [&](buffer const &b, int line, int lines, int lines_step) {
      return K::byte_view{reinterpret_cast<R::pixel_y_u8 *>(b.line(line - first)), c.width, lines,
                          l.stride * lines_step, false};
    };
    auto model_view = [&](buffer const &b, int line, int lines, int lines_step) {
      return line_model::view{b.line(line - first), c.width, lines, l.stride * lines_step};
    };
    kernel const k = (c.doubled ? double_members : shift_members)[0][0];
    k(kernel_view(got, 0, h, step), kernel_view(got, c.shift_lines, out, out_step), got.end());
    (c.doubled ? line_model::double_lines : line_model::shift_half_line)(
        model_view(want, 0, h, step), model_view(want, c.shift_lines, out, out_step), want.end());
    for (std::size_t i = 0; i < got.size(); ++i)
      ASSERT_EQ(int(want.begin()[i]), int(got.begin()[i]))
          << "h " << h << " at " << got.where(i) << " (model, kernel)";
  }
}

std::vector<shared_case> shared_cases() {
  std::vector<shared_case> cases;
  for (int w : {4, 12, 16, 20, 48, 52, 6, 19})
    for (int gap : {0, 3, 16})
      for (bool bottom_up : {false, true}) {
        // Every second line: 1 is de-combing in place (interleaved), the
        // others put destination lines onto source lines.
        for (int shift : {1, 0, 2, -2, 3})
          for (bool doubled : {false, true}) cases.push_back(shared_case{w, gap, shift, true, doubled, bottom_up});
        // Every line: the destination on the source, or moved by a line.
        for (int shift : {0, 1, -1})
          for (bool doubled : {false, true}) cases.push_back(shared_case{w, gap, shift, false, doubled, bottom_up});
      }
  return cases;
}

std::string shared_name(::testing::TestParamInfo<shared_case> const &info) { return name_of(info.param); }

INSTANTIATE_TEST_SUITE_P(layouts, shared_memory_test, ::testing::ValuesIn(shared_cases()), shared_name);

// A 1-column word is cut at spill_end and nowhere else, and a source of no
// lines writes nothing, in every member.
TEST(line_kernels_edges, spill_end_and_empty_sources_bound_every_write) {
  std::mt19937 rng(5);
  // Width 18 and stride 32: every line leaves three bytes in its pad.
  layout const l{18, 3, 32, 0, 3};
  buffer s(l), full(l);
  s.randomize(rng);
  for (int member = 0; member < 4; ++member) {
    kernel const k = shift_members[member < 2][member % 2 == 0];
    k(view_of(s, 3), view_of(full, 3), full.end());
    for (int cut = 0; cut <= 3; ++cut) {
      buffer d(l);
      k(view_of(s, 3), view_of(d, 3), d.line(2) + 18 + cut);
      for (int y = 0; y < 3; ++y)
        for (int i = 0; i < 21; ++i) {
          bool const kept = y == 2 && i >= 18 + cut;
          ASSERT_EQ(int(d.line(y)[i]), kept ? int(sr_test::sentinel) : int(full.line(y)[i]))
              << "member " << member << " cut " << cut << " y " << y << " x " << i;
        }
    }
    for (int h : {0, -1}) {
      buffer e(l);
      double_members[member < 2][member % 2 == 0](view_of(s, h), view_of(e, 3), e.end());
      k(view_of(s, h), view_of(e, 3), e.end());
      for (std::size_t i = 0; i < e.size(); ++i) ASSERT_EQ(int(e.begin()[i]), int(sr_test::sentinel)) << i;
    }
  }
  // Behind the last line (a copy of the last source line) the word of the
  // last column holds fill of that column's byte three times.
  int const fill = s.line(2)[17] >= 128 ? 255 : 0;
  for (int i = 18; i < 21; ++i) EXPECT_EQ(int(full.line(2)[i]), fill) << i;
}

// The worked examples: one column, run once through the 16-column steps
// (16 equal columns) and once through the 1-column step (width 1).
struct worked_example {
  char const *name;
  bool doubled;
  std::vector<int> column;
  std::vector<int> expected;
};

TEST(line_kernels_examples, worked_numbers) {
  std::vector<worked_example> const examples = {
      {"ramp", false, {10, 20, 30, 40, 50}, {10, 25, 35, 50, 50}},
      {"ramp doubled", true, {10, 20, 30, 40, 50}, {10, 10, 20, 25, 30, 35, 40, 50, 50, 50}},
      {"unequal slopes", false, {10, 20, 40, 100}, {10, 25, 80, 100}},
      {"step", false, {10, 10, 100, 100}, {10, 55, 100, 100}},
      {"spike", false, {10, 200, 10}, {105, 105, 10}},
      {"one line", false, {77}, {77}},
      {"one line doubled", true, {77}, {77, 77}},
  };
  for (worked_example const &e : examples)
    for (int width : {1, 16}) {
      int const h = int(e.column.size()), out = e.doubled ? 2 * h : h;
      layout const ls{width, h, width + 3, 0, 3}, ld{width, out, width + 3, 0, 3};
      buffer s(ls), d(ld);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < width; ++x) s.line(y)[x] = std::uint8_t(e.column[std::size_t(y)]);
      (e.doubled ? double_members : shift_members)[0][0](view_of(s, h), view_of(d, h), d.end());
      for (int y = 0; y < out; ++y)
        for (int x = 0; x < width; ++x)
          ASSERT_EQ(int(d.line(y)[x]), e.expected[std::size_t(y)]) << e.name << " width " << width << " y " << y;
    }

  // Two lines of two bytes, 200, 10 over 100, 30: all 1-column steps.
  // Column 1 of line 0 reads back the 128 that column 0 left there.
  layout const l{2, 2, 5, 0, 3};
  buffer s(l), d(l);
  std::uint8_t const rows[2][2] = {{200, 10}, {100, 30}};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) s.line(y)[x] = rows[y][x];
  shift_members[0][0](view_of(s, 2), view_of(d, 2), d.end());
  std::vector<int> const line0(d.line(0), d.line(0) + 5), line1(d.line(1), d.line(1) + 5);
  EXPECT_EQ(line0, (std::vector<int>{150, 79, 128, 128, 128}));
  EXPECT_EQ(line1, (std::vector<int>{100, 30, 0, 0, 0}));
}

}  // namespace
