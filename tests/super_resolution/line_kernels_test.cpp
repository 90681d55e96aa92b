// The line kernels against their scalar model, byte for byte over the whole
// destination memory (picture, the bytes behind each line, untouched gaps),
// for every byte width from 1 to 70 and a few wide ones, tight and padded,
// top-down and bottom-up, in all four members; views that share one buffer;
// and the worked examples.
#include <sight/super_resolution/line_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ostream>
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

// Members as [doubled][source aligned][destination aligned].
kernel const members[2][2][2] = {
    {{K::shift_half_line<false, false>, K::shift_half_line<false, true>},
     {K::shift_half_line<true, false>, K::shift_half_line<true, true>}},
    {{K::double_lines<false, false>, K::double_lines<false, true>},
     {K::double_lines<true, false>, K::double_lines<true, true>}}};

using model = void (*)(line_model::view const &, line_model::view const &, std::uint8_t const *);
model const models[2] = {line_model::shift_half_line, line_model::double_lines};  // [doubled]

K::byte_view view_of(line_model::view const &v) {
  return K::byte_view{reinterpret_cast<R::pixel_y_u8 *>(v.data), v.width, v.height, v.stride, false};
}
K::byte_view view_of(buffer const &b, int height) { return view_of(sr_test::model_view(b, height)); }

struct line_case {
  int width;
  int pad;  // stride - width: 0, 3, or up to the next multiple of 16
  bool source_aligned, destination_aligned, bottom_up;
};

std::string name_of(line_case const &c) {
  std::ostringstream s;
  s << "w" << c.width << "_pad" << c.pad << (c.bottom_up ? "_bottom_up" : "") << "_src"
    << (c.source_aligned ? "A" : "U") << "_dst" << (c.destination_aligned ? "A" : "U");
  return s.str();
}
void PrintTo(line_case const &c, std::ostream *os) { *os << name_of(c); }

class line_kernels_test : public ::testing::TestWithParam<line_case> {};

// The source is left alone (it is not the destination), and with the model
// confined to the picture and the three bytes behind each line, equal memory
// also means that nothing else was written.
TEST_P(line_kernels_test, match_the_model_in_every_byte) {
  line_case const &c = GetParam();
  std::mt19937 rng(std::uint32_t(c.width * 131 + c.pad * 7 + c.bottom_up));
  int const stride = (c.bottom_up ? -1 : 1) * (c.width + c.pad);
  for (bool doubled : {false, true})
    // Heights of 0 and -1 write nothing; the others reach up to and across
    // the first, full, short and last bands of eight output lines.
    for (int h : {-1, 0, 1, 2, 3, 4, 7, 9, 10, 11, 18, 27}) {
      buffer source(layout{c.width, h, stride, c.source_aligned ? 0 : 3, c.pad});
      layout const out{c.width, doubled ? 2 * h : h, stride, c.destination_aligned ? 0 : 5, c.pad};
      buffer got(out), want(out);
      source.randomize(rng);
      // The end of the writable memory, cut by 0 to 3 bytes of the room.
      int const cut = std::min(c.pad, h & 3);
      members[doubled][c.source_aligned][c.destination_aligned](view_of(source, h), view_of(got, h),
                                                                got.end() - cut);
      models[doubled](sr_test::model_view(source, h), sr_test::model_view(want, h), want.end() - cut);
      ASSERT_TRUE(sr_test::same_bytes(want, got)) << (doubled ? "double_lines" : "shift_half_line") << " h " << h;
    }
}

std::vector<line_case> line_cases() {
  std::vector<int> widths = {127, 719, 1920, 4099};
  for (int w = 1; w <= 70; ++w) widths.push_back(w);
  std::vector<line_case> cases;
  for (int w : widths)
    for (int i = 0; i < 3; ++i) {
      // Tight, three spare bytes, and up to the next multiple of 16 where
      // that is neither of the two.
      int const pad = i == 0 ? 0 : i == 1 ? 3 : (16 - w % 16) % 16;
      if (i == 2 && (pad == 0 || pad == 3)) continue;
      for (bool bottom_up : {false, true})
        for (int member = 0; member < 4; ++member) {
          bool const sa = member < 2, da = member % 2 == 0;
          // An aligned side needs a stride that is a multiple of 16.
          if ((sa || da) && (w + pad) % 16 != 0) continue;
          cases.push_back(line_case{w, pad, sa, da, bottom_up});
        }
    }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(widths, line_kernels_test, ::testing::ValuesIn(line_cases()),
                         [](auto const &info) { return name_of(info.param); });

// Views into one buffer whose lines meet, and views whose lines interleave
// without meeting (de-combing in place). Lines meet here only whole: the
// destination is the source moved by whole lines, or the source itself, so
// a column's reads and writes never reach another column. Then the kernel's
// order of loads and stores (each read-back seeing what the step before
// stored, even where that was a source line) is the model's, and both must
// leave the buffer identical, whichever walk the kernel takes.
struct shared_case {
  int width;
  int gap;          // stride - width of the buffer's lines
  int shift_lines;  // destination line 0 at source line 0 + this many buffer lines
  int step, out_step;  // buffer lines from one source (destination) line to the next
  bool doubled, bottom_up;
};

std::string name_of(shared_case const &c) {
  std::ostringstream s;
  s << "w" << c.width << "_gap" << c.gap << "_shift" << (c.shift_lines < 0 ? "m" : "") << std::abs(c.shift_lines)
    << "_step" << c.step << c.out_step << (c.doubled ? "_doubled" : "_shift_half") << (c.bottom_up ? "_bottom_up" : "");
  return s.str();
}
void PrintTo(shared_case const &c, std::ostream *os) { *os << name_of(c); }

class shared_memory_test : public ::testing::TestWithParam<shared_case> {};

TEST_P(shared_memory_test, overlapping_and_interleaved_views_match_the_model) {
  shared_case const c = GetParam();
  std::mt19937 rng(std::uint32_t(c.width * 977 + c.gap * 31 + c.shift_lines * 7 + c.step * 3 + c.out_step + c.doubled));
  for (int h : {1, 2, 3, 9, 10, 19}) {
    int const out = c.doubled ? 2 * h : h;
    int const first = std::min(0, c.shift_lines);
    int const last = std::max(c.step * (h - 1), c.shift_lines + c.out_step * (out - 1));
    layout const l{c.width, last - first + 1, (c.bottom_up ? -1 : 1) * (c.width + c.gap), 0, 3};
    buffer got(l), want(l);
    got.randomize(rng);
    want.copy_from(got);
    auto model_view = [&](buffer const &b, int line, int lines, int lines_step) {
      return line_model::view{b.line(line - first), c.width, lines, l.stride * lines_step};
    };
    members[c.doubled][0][0](view_of(model_view(got, 0, h, c.step)),
                             view_of(model_view(got, c.shift_lines, out, c.out_step)), got.end());
    models[c.doubled](model_view(want, 0, h, c.step), model_view(want, c.shift_lines, out, c.out_step), want.end());
    ASSERT_TRUE(sr_test::same_bytes(want, got)) << "h " << h;
  }
}

std::vector<shared_case> shared_cases() {
  std::vector<shared_case> cases;
  for (int w : {4, 12, 16, 20, 48, 52, 6, 19})
    for (int gap : {0, 3, 16})
      for (bool bottom_up : {false, true}) {
        for (bool doubled : {false, true}) {
          // Source on every second line: shift 1 is de-combing in place
          // (interleaved), the others put destination lines onto source lines.
          for (int shift : {1, 0, 2, -2, 3})
            cases.push_back(shared_case{w, gap, shift, 2, doubled ? 1 : 2, doubled, bottom_up});
          // Every line: the destination on the source, or moved by a line.
          for (int shift : {0, 1, -1}) cases.push_back(shared_case{w, gap, shift, 1, 1, doubled, bottom_up});
        }
        // Destination lines twice as far apart as the source lines, on them.
        for (int shift : {0, 1}) cases.push_back(shared_case{w, gap, shift, 1, 2, false, bottom_up});
      }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(layouts, shared_memory_test, ::testing::ValuesIn(shared_cases()),
                         [](auto const &info) { return name_of(info.param); });

// The worked examples: one column, run through the 16-column steps (16 equal
// columns) and through the 1-column step (width 1).
TEST(line_kernels_examples, worked_numbers) {
  struct worked_example {
    char const *name;
    bool doubled;
    std::vector<int> column, expected;
  };
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
      buffer s(layout{width, h, width + 3, 0, 3}), d(layout{width, out, width + 3, 0, 3});
      for (int y = 0; y < h; ++y) std::memset(s.line(y), e.column[std::size_t(y)], std::size_t(width));
      members[e.doubled][0][0](view_of(s, h), view_of(d, h), d.end());
      for (int y = 0; y < out; ++y)
        for (int x = 0; x < width; ++x)
          ASSERT_EQ(int(d.line(y)[x]), e.expected[std::size_t(y)]) << e.name << " width " << width << " y " << y;
    }

  // Two lines of two bytes, 200, 10 over 100, 30: all 1-column steps.
  // Column 1 of line 0 reads back the 128 that column 0 left there.
  buffer s(layout{2, 2, 5, 0, 3}), d(layout{2, 2, 5, 0, 3});
  std::uint8_t const rows[2][2] = {{200, 10}, {100, 30}};
  for (int y = 0; y < 2; ++y) std::memcpy(s.line(y), rows[y], 2);
  members[0][0][0](view_of(s, 2), view_of(d, 2), d.end());
  EXPECT_EQ(std::vector<int>(d.line(0), d.line(0) + 5), (std::vector<int>{150, 79, 128, 128, 128}));
  EXPECT_EQ(std::vector<int>(d.line(1), d.line(1) + 5), (std::vector<int>{100, 30, 0, 0, 0}));
}

}  // namespace
