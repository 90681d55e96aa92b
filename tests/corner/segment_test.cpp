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
  for (int t : {0, 1, 20, 35, 70, 71, 127, 128, 199, 254, 255}) {
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

// Runs of d darker then b brighter ring positions from every start, on a flat
// ground: a corner exactly when nine or more contiguous positions share a kind.
struct arc_case {
  int darker, brighter;
  bool corner;
};
class arc_test : public ::testing::TestWithParam<arc_case> {};

TEST_P(arc_test, nine_contiguous_of_one_kind_make_a_corner) {
  arc_case const c = GetParam();
  for (int start = 0; start < 16; ++start) {
    frame_buffer f(40, 26, stride_for(layout::aligned, 40), 0);
    for (auto &b : f.bytes) b = 120;  // halved 60; at threshold 70 a pixel must differ by more than 35
    for (int i = 0; i < c.darker + c.brighter; ++i) {
      int const k = (start + i) % 16;
      f.set_luma(19 + corner_model::ring_dx[k], 12 + corner_model::ring_dy[k], i < c.darker ? 40 : 200);
    }
    detection d;
    d = f.frame;
    auto const found = detection_access::corners(d);
    bool const centre = std::any_of(found.begin(), found.end(), [](auto const &r) { return r.x == 19 && r.y == 12; });
    EXPECT_EQ(centre, c.corner) << c.darker << " darker then " << c.brighter << " brighter from " << start;
    EXPECT_EQ(corner_model::is_corner(f.picture(), 19, 12, 70), c.corner);
    expect_detector_matches(f, 70, cat("start ", start));
  }
}

INSTANTIATE_TEST_SUITE_P(arcs, arc_test,
                         ::testing::Values(arc_case{8, 0, false}, arc_case{9, 0, true}, arc_case{0, 8, false},
                                           arc_case{0, 9, true}, arc_case{16, 0, true}, arc_case{5, 4, false},
                                           arc_case{8, 8, false}, arc_case{9, 7, true}, arc_case{7, 9, true}),
                         [](auto const &info) { return cat("d", info.param.darker, "_b", info.param.brighter); });

}  // namespace

namespace {

// The strength of every pixel the detector can report (the whole scanned
// area, the last block's columns past the width included) against the model,
// on luma drawn from the extremes and at random, so that single terms of 255
// and the maximum of 4080 occur. The frame buffer ends at its last picture
// byte, so a load past the frame would show under AddressSanitizer.
using strength_param = std::tuple<int, layout>;
class strength_test : public ::testing::TestWithParam<strength_param> {};

TEST_P(strength_test, matches_the_model) {
  auto const [width, lay] = GetParam();
  int const height = 18;
  frame_buffer f(width, height, stride_for(lay, width), offset_for(lay));
  std::mt19937 rng(unsigned(width * 13 + int(lay)));
  std::uniform_int_distribution<int> byte(0, 255), pick(0, 3);
  for (auto &b : f.bytes) b = std::uint8_t(pick(rng) == 0 ? byte(rng) : pick(rng) < 2 ? 0 : 255);
  // One centre of 0 ringed by 255: the largest strength there is.
  f.set_luma(8, 8, 0);
  for (int k = 0; k < 16; ++k) f.set_luma(8 + corner_model::ring_dx[k], 8 + corner_model::ring_dy[k], 255);

  auto const area = corner_model::scanned_area(width, height);
  ASSERT_GT(area.x1, area.x0);
  auto const *data = reinterpret_cast<std::uint8_t const *>(f.frame.data);
  EXPECT_EQ(Korvane::Sight::corner::ring_strength(data + 8 * std::ptrdiff_t(f.frame.stride), f.frame.stride, 8), 4080);
  for (int y = area.y0; y < area.y1; ++y)
    for (int x = area.x0; x < area.x1; ++x) {
      int const kernel = Korvane::Sight::corner::ring_strength(data + y * std::ptrdiff_t(f.frame.stride),
                                                               f.frame.stride, x);
      int const model = corner_model::strength(f.picture(), x, y);
      if (kernel != model) {
        ADD_FAILURE() << "x " << x << ", y " << y << ": model " << model << ", kernel " << kernel;
        return;
      }
    }
}

INSTANTIATE_TEST_SUITE_P(widths, strength_test,
                         ::testing::Combine(::testing::Values(17, 23, 24, 31, 40, 47, 64, 70),
                                            ::testing::Values(layout::tight, layout::aligned, layout::padded,
                                                              layout::reversed)),
                         [](auto const &info) {
                           return cat("w", std::get<0>(info.param), "_", name_of(std::get<1>(info.param)));
                         });

}  // namespace
