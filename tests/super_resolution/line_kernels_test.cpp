// The line kernels against their scalar model, byte for byte over the whole
// destination memory (picture, the bytes behind each line, untouched guard),
// on the harness's byte planes in every member; views that share one
// buffer; and the worked examples.
#include <sight/operator/detail/member.h>
#include <sight/super_resolution/line_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "super_resolution/line_kernels_model.h"
#include "support/harness.h"

namespace {

namespace R = Tamarind::Rasters;
namespace K = Korvane::Sight::super_resolution::detail;
using harness::frame;
using harness::layout;
using buffer = harness::plane;

using kernel = void (*)(K::byte_view const &, K::byte_view const &, std::uint8_t const *);
using model = void (*)(line_model::view const &, line_model::view const &, std::uint8_t const *);
model const models[2] = {line_model::shift_half_line, line_model::double_lines};  // [doubled]

// The member the two views allow, as the driver picks it.
template <bool Doubled>
void run_kernel(K::byte_view const &s, K::byte_view const &d, std::uint8_t const *spill_end) {
  Korvane::Sight::detail::with_member(
      [&](auto sa) {
        Korvane::Sight::detail::with_member(
            [&](auto da) {
              if constexpr (Doubled) K::double_lines<sa, da>(s, d, spill_end);
              else K::shift_half_line<sa, da>(s, d, spill_end);
            },
            d);
      },
      s);
}
kernel const kernels[2] = {run_kernel<false>, run_kernel<true>};

K::byte_view view_of(line_model::view const &v) {
  return K::byte_view{reinterpret_cast<R::pixel_y_u8 *>(v.data), v.width, v.height, v.stride, false};
}
line_model::view model_view(frame const &f) {
  return {f.planes[0].data(), f.g.width, f.g.height, f.planes[0].shape().stride};
}

class line_kernels_test : public ::testing::TestWithParam<harness::geometry> {};

// The source is left alone (it is not the destination), and with the model
// confined to the picture and the three bytes behind each line, equal memory
// also means that nothing else was written. The destination lies as the
// source does, or with its alignment the other way round; the room behind
// its last line in memory is 0 to 3 bytes, cutting the last 1-column words.
TEST_P(line_kernels_test, match_the_model_in_every_byte) {
  harness::geometry const g = GetParam();
  std::mt19937 rng(std::uint32_t(g.width * 131 + g.height * 17 + g.pad * 7 + g.offset));
  frame const source(layout::bytes, g);
  source.randomize(rng);
  for (bool doubled : {false, true})
    for (int offset : {g.offset, g.offset == 0 ? 5 : 0}) {
      harness::geometry const out{g.width, doubled ? 2 * g.height : g.height, g.pad, offset, g.flip};
      frame const got(layout::bytes, out, (g.width + g.height) % 4), want = got;
      kernels[doubled](view_of(model_view(source)), view_of(model_view(got)), got.planes[0].end());
      models[doubled](model_view(source), model_view(want), want.planes[0].end());
      ASSERT_TRUE(harness::same_frame(want, got)) << (doubled ? "double_lines" : "shift_half_line") << " to "
                                                  << harness::name_of(layout::bytes, out);
    }
}

// Heights of 0 and -1 write nothing; the others reach up to and across the
// first, full, short and last bands of eight output lines.
INSTANTIATE_TEST_SUITE_P(frames, line_kernels_test,
                         ::testing::ValuesIn(harness::geometries({-1, 0, 1, 2, 3, 4, 7, 9, 10, 11, 18, 27})),
                         [](auto const &info) { return harness::name_of(layout::bytes, info.param); });

// Views into one buffer whose lines meet, and views whose lines interleave
// without meeting (de-combing in place). Lines meet here only whole: the
// destination is the source moved by whole lines, or the source itself, so
// a column's reads and writes never reach another column. Then the kernel's
// order of loads and stores (each read-back seeing what the step before
// stored, even where that was a source line) is the model's, and both must
// leave the buffer identical, whichever walk the kernel takes.
struct shared_case {
  int width;
  int gap;             // stride - width of the buffer's lines
  int shift_lines;     // destination line 0 at source line 0 + this many buffer lines
  int step, out_step;  // buffer lines from one source (destination) line to the next
  bool doubled, bottom_up;
};

class shared_memory_test : public ::testing::TestWithParam<shared_case> {};

TEST_P(shared_memory_test, overlapping_and_interleaved_views_match_the_model) {
  shared_case const c = GetParam();
  std::mt19937 rng(std::uint32_t(c.width * 977 + c.gap * 31 + c.shift_lines * 7 + c.step * 3 + c.out_step + c.doubled));
  for (int h : {1, 2, 3, 9, 10, 19}) {
    int const out = c.doubled ? 2 * h : h;
    int const first = std::min(0, c.shift_lines);
    int const last = std::max(c.step * (h - 1), c.shift_lines + c.out_step * (out - 1));
    harness::shape const l{c.width, last - first + 1, (c.bottom_up ? -1 : 1) * (c.width + c.gap), 0, 3};
    buffer got(l);
    got.randomize(rng);
    buffer const want = got;
    auto view = [&](buffer const &b, int line, int lines, int lines_step) {
      return line_model::view{b.line(line - first), c.width, lines, l.stride * lines_step};
    };
    kernels[c.doubled](view_of(view(got, 0, h, c.step)), view_of(view(got, c.shift_lines, out, c.out_step)),
                       got.end());
    models[c.doubled](view(want, 0, h, c.step), view(want, c.shift_lines, out, c.out_step), want.end());
    ASSERT_TRUE(harness::same_bytes(want, got)) << "h " << h;
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

INSTANTIATE_TEST_SUITE_P(layouts, shared_memory_test, ::testing::ValuesIn(shared_cases()), [](auto const &info) {
  shared_case const &c = info.param;
  return harness::cat("w", c.width, "_gap", c.gap, "_shift", c.shift_lines < 0 ? "m" : "", std::abs(c.shift_lines),
                      "_step", c.step, c.out_step, c.doubled ? "_doubled" : "_shift_half",
                      c.bottom_up ? "_bottom_up" : "");
});

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
  auto const view = [](buffer const &b, int h) {
    return view_of(line_model::view{b.data(), b.shape().width, h, b.shape().stride});
  };
  for (worked_example const &e : examples)
    for (int width : {1, 16}) {
      int const h = int(e.column.size()), out = e.doubled ? 2 * h : h;
      buffer s(harness::shape{width, h, width + 3, 0, 3}), d(harness::shape{width, out, width + 3, 0, 3});
      for (int y = 0; y < h; ++y) std::memset(s.line(y), e.column[std::size_t(y)], std::size_t(width));
      kernels[e.doubled](view(s, h), view(d, h), d.end());
      for (int y = 0; y < out; ++y)
        for (int x = 0; x < width; ++x)
          ASSERT_EQ(int(d.line(y)[x]), e.expected[std::size_t(y)]) << e.name << " width " << width << " y " << y;
    }

  // Two lines of two bytes, 200, 10 over 100, 30: all 1-column steps.
  // Column 1 of line 0 reads back the 128 that column 0 left there.
  buffer s(harness::shape{2, 2, 5, 0, 3}), d(harness::shape{2, 2, 5, 0, 3});
  std::uint8_t const rows[2][2] = {{200, 10}, {100, 30}};
  for (int y = 0; y < 2; ++y) std::memcpy(s.line(y), rows[y], 2);
  kernels[0](view(s, 2), view(d, 2), d.end());
  EXPECT_EQ(std::vector<int>(d.line(0), d.line(0) + 5), (std::vector<int>{150, 79, 128, 128, 128}));
  EXPECT_EQ(std::vector<int>(d.line(1), d.line(1) + 5), (std::vector<int>{100, 30, 0, 0, 0}));
}

}  // namespace
