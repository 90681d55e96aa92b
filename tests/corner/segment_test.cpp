// The segment test, the strength and the whole frame path against the naive
// model, on random and structured frames of many sizes and layouts.
#include <sight/corner/detection.h>
#include <sight/corner/segment_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "corner/corner_test_support.h"
#include "corner/segment_test_model.h"

namespace {

using Korvane::Sight::corner::corner_record;
using Korvane::Sight::corner::detection;
using Korvane::Sight::corner::detection_access;
using namespace corner_test;

enum content { uniform, levels, blocks, isolated };
char const *const content_names[] = {"uniform", "levels", "blocks", "isolated"};

// Fills every byte (padding and chroma too: the whole last block reads past
// the width), then shapes the luma.
void fill(frame_buffer &f, content c, std::mt19937 &rng) {
  std::uniform_int_distribution<int> byte(0, 255), chance(0, 99);
  for (auto &b : f.bytes) b = std::uint8_t(byte(rng));
  int const w = f.frame.width, h = f.frame.height;
  // Levels: black and white next to mid greys give long arcs of both kinds
  // and saturated bright centres. Isolated: lone black or white pixels on a
  // flat ground. Blocks: flat rectangles on a ramp, with runs of corners.
  int const palette[] = {0, 40, 128, 215, 255, 254, 1};
  int const ground = byte(rng) < 128 ? 100 : 250;
  for (int y = 0; y < h && c != uniform; ++y)
    for (int x = 0; x < w; ++x) {
      int const r = chance(rng);
      f.set_luma(x, y, c == levels ? palette[r % 7] : c == isolated ? (r < 2 ? 255 : r < 4 ? 0 : ground)
                                                                    : (x + 2 * y) % 64 + 90);
    }
  std::uniform_int_distribution<int> px(0, w), py(0, h), size(3, 12);
  for (int n = 0; c == blocks && n < w * h / 60 + 1; ++n) {
    int const x0 = px(rng), y0 = py(rng), sw = size(rng), sh = size(rng), v = byte(rng);
    for (int y = y0; y < std::min(h, y0 + sh); ++y)
      for (int x = x0; x < std::min(w, x0 + sw); ++x) f.set_luma(x, y, v);
  }
}

// Reports the first record that differs, by position and strength.
void expect_same(std::vector<corner_model::record> const &model, std::vector<corner_record> const &kernel,
                 std::string const &what) {
  for (std::size_t i = 0; i < std::max(model.size(), kernel.size()); ++i) {
    std::string const m = i < model.size() ? cat("(", model[i].x, ", ", model[i].y, ") ", model[i].strength) : "none";
    std::string const k = i < kernel.size() ? cat("(", kernel[i].x, ", ", kernel[i].y, ") ", kernel[i].strength) : "none";
    if (m != k) {
      ADD_FAILURE() << what << ": record " << i << " model " << m << ", kernel " << k;
      return;
    }
  }
}

// The detector on `f` at threshold t against the model: every record after
// suppression, the count and the features.
void expect_detector_matches(frame_buffer const &f, int t, std::string const &what) {
  detection d;
  d.threshold() = t;
  d = f.frame;
  auto model = corner_model::corners(f.picture(), t);
  int const survivors = corner_model::non_maxima_suppresion(model);
  expect_same(model, detection_access::corners(d), what);
  EXPECT_EQ(int(d), survivors) << what;
  std::vector<std::pair<int, int>> features;
  for (auto const &r : detection_access::features(d)) features.push_back({r.x, r.y});
  EXPECT_EQ(features, corner_model::features_extract(model)) << what;
}

using frame_param = std::tuple<int, int, layout, content>;
class segment_test : public ::testing::TestWithParam<frame_param> {};

// Both kernel members (the aligned one wherever the frame allows it) and the
// whole detector, at odd and even thresholds.
TEST_P(segment_test, matches_the_model) {
  auto const [width, height, lay, kind] = GetParam();
  frame_buffer f(width, height, stride_for(lay, width), offset_for(lay));
  std::mt19937 rng(unsigned(width * 7919 + height * 31 + int(lay) * 7 + int(kind)));
  fill(f, kind, rng);
  auto const *data = reinterpret_cast<std::uint8_t const *>(f.frame.data);
  std::vector<corner_record> out(std::size_t(std::max(width, 1) * std::max(height, 1)));
  int calls = 0;  // the reservation only counts the rows; `out` has room for every pixel
  auto const count = [](void *context, corner_record *last) { return ++*static_cast<int *>(context), last; };
  // The strength of every pixel the detector can report (the last block's
  // columns past the width included); levels bring terms of 0 and 255.
  auto const area = corner_model::scanned_area(width, height);
  for (int y = area.y0; y < area.y1; ++y)
    for (int x = area.x0; x < area.x1; ++x) {
      auto const *row = data + y * std::ptrdiff_t(f.frame.stride);
      int const got = Korvane::Sight::corner::ring_strength(row, f.frame.stride, x);
      int const want = corner_model::strength(f.picture(), x, y);
      if (got != want)
        return void(ADD_FAILURE() << "strength x " << x << ", y " << y << ": model " << want << ", kernel " << got);
    }
  // Past 255 the halves wrap (400 gives -56 and -56), and a ring pixel can
  // then be darker and brighter at once: the two kinds must stay apart.
  for (int t : {0, 1, 20, 35, 70, 71, 127, 128, 199, 254, 255, 300, 400}) {
    auto const model = corner_model::corners(f.picture(), t);
    auto const th = std::int8_t(corner_model::threshold_low(t)), tr = std::int8_t(corner_model::threshold_high(t));
    calls = 0;
    auto *end = Korvane::Sight::corner::detect_422<false>(data, f.frame.stride, width, height, th, tr, out.data(),
                                                          count, &calls);
    expect_same(model, {out.data(), end}, cat("unaligned, threshold ", t));
    EXPECT_EQ(calls, std::max(0, height - 16));
    if (Tamarind::Rasters::is_aligned(f.frame)) {
      end = Korvane::Sight::corner::detect_422<true>(data, f.frame.stride, width, height, th, tr, out.data(), count,
                                                     &calls);
      expect_same(model, {out.data(), end}, cat("aligned, threshold ", t));
    }
    if (t % 3 == 0) expect_detector_matches(f, t, cat("detector, threshold ", t));
  }
}

std::vector<int> widths() {
  std::vector<int> w;
  for (int i = 1; i <= 49; ++i) w.push_back(i);
  for (int i : {63, 64, 65, 100, 720}) w.push_back(i);
  return w;
}

std::string frame_name(::testing::TestParamInfo<frame_param> const &info) {
  auto const [w, h, l, c] = info.param;
  return cat("w", w, "_h", h, "_", name_of(l), "_", content_names[c]);
}

INSTANTIATE_TEST_SUITE_P(
    frames, segment_test,
    ::testing::Combine(::testing::ValuesIn(widths()), ::testing::Values(16, 17, 24),
                       ::testing::Values(layout::tight, layout::aligned, layout::padded, layout::reversed),
                       ::testing::Values(uniform, levels, blocks, isolated)),
    frame_name);

// Every threshold from 0 to 255 on frames rich in corners of both kinds.
class threshold_sweep_test : public ::testing::TestWithParam<int> {};

TEST_P(threshold_sweep_test, detector_matches_the_model) {
  for (content kind : {levels, uniform, blocks}) {
    frame_buffer f(75, 30, stride_for(layout::padded, 75), 3);
    std::mt19937 rng(unsigned(GetParam() * 5 + int(kind)));
    fill(f, kind, rng);
    expect_detector_matches(f, GetParam(), content_names[kind]);
  }
}

INSTANTIATE_TEST_SUITE_P(all, threshold_sweep_test, ::testing::Range(0, 256),
                         [](auto const &info) { return cat("t", info.param); });

// One centre at (20, 12) on a flat ground of its own value, with runs of
// `darker` ring positions set to `dark` then `brighter` set to `bright`,
// from every start on the ring: a corner exactly when nine or more contiguous
// positions share a kind, with the strength worked out by hand.
struct worked_case {
  char const *name;
  int threshold, centre, dark, darker, bright, brighter;
  bool corner;
  int strength;
};
class worked_numbers_test : public ::testing::TestWithParam<worked_case> {};

TEST_P(worked_numbers_test, single_centre) {
  worked_case const c = GetParam();
  for (int start = 0; start < 16; ++start) {
    frame_buffer f(41, 25, stride_for(layout::aligned, 41), 0);
    for (auto &b : f.bytes) b = std::uint8_t(c.centre);
    for (int i = 0; i < c.darker + c.brighter; ++i) {
      int const k = (start + i) % 16;
      f.set_luma(20 + corner_model::ring_dx[k], 12 + corner_model::ring_dy[k], i < c.darker ? c.dark : c.bright);
    }
    detection d;
    d.threshold() = c.threshold;
    d = f.frame;
    auto const found = detection_access::corners(d);
    auto const at = std::find_if(found.begin(), found.end(), [](auto const &r) { return r.x == 20 && r.y == 12; });
    ASSERT_EQ(at != found.end(), c.corner) << "from " << start;
    if (c.corner) {
      EXPECT_EQ(at->strength, c.strength) << "from " << start;
    }
    EXPECT_EQ(corner_model::is_corner(f.picture(), 20, 12, c.threshold), c.corner);
    expect_detector_matches(f, c.threshold, cat("from ", start));
  }
}

INSTANTIATE_TEST_SUITE_P(
    worked, worked_numbers_test,
    ::testing::Values(
        // T = 70: th = tr = 35 in halved luma; the difference must exceed 35.
        worked_case{"t70_darker_by_35_is_not_enough", 70, 100, 30, 16, 0, 0, false, 0},
        worked_case{"t70_darker_by_36", 70, 100, 28, 16, 0, 0, true, 16 * 72},
        worked_case{"t70_brighter_by_35_is_not_enough", 70, 100, 0, 0, 170, 16, false, 0},
        worked_case{"t70_brighter_by_36", 70, 100, 0, 0, 172, 16, true, 16 * 72},
        // T = 71: th = 35 below, tr = 36 above.
        worked_case{"t71_darker_by_36", 71, 100, 28, 16, 0, 0, true, 16 * 72},
        worked_case{"t71_brighter_by_36_is_not_enough", 71, 100, 0, 0, 172, 16, false, 0},
        worked_case{"t71_brighter_by_37", 71, 100, 0, 0, 174, 16, true, 16 * 74},
        // Full luma for the strength: odd levels that halve alike still count.
        worked_case{"isolated_white_pixel_has_the_largest_strength", 70, 255, 0, 16, 0, 0, true, 4080},
        // A saturated centre: high stays 127, nothing is brighter.
        worked_case{"bright_centre_has_nothing_brighter", 70, 20, 0, 0, 255, 16, true, 16 * 235},
        worked_case{"t0_any_difference_of_halved_luma", 0, 101, 99, 16, 0, 0, true, 32},
        worked_case{"t0_equal_halves_are_not_darker", 0, 101, 100, 16, 0, 0, false, 0},
        // T = 255: tr wraps to -128, so every ring pixel counts as brighter.
        worked_case{"t255_flat_ground_is_a_corner", 255, 90, 0, 0, 90, 16, true, 0},
        // Arcs on a ground of 120 at T = 70, every ring pixel 80 away.
        worked_case{"eight_darker", 70, 120, 40, 8, 200, 0, false, 0},
        worked_case{"nine_darker", 70, 120, 40, 9, 200, 0, true, 9 * 80},
        worked_case{"eight_brighter", 70, 120, 40, 0, 200, 8, false, 0},
        worked_case{"nine_brighter", 70, 120, 40, 0, 200, 9, true, 9 * 80},
        worked_case{"five_darker_four_brighter", 70, 120, 40, 5, 200, 4, false, 0},
        worked_case{"eight_darker_eight_brighter", 70, 120, 40, 8, 200, 8, false, 0},
        worked_case{"nine_darker_seven_brighter", 70, 120, 40, 9, 200, 7, true, 16 * 80},
        worked_case{"seven_darker_nine_brighter", 70, 120, 40, 7, 200, 9, true, 16 * 80}),
    [](auto const &info) { return std::string(info.param.name); });

}  // namespace
