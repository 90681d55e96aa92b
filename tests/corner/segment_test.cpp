// The segment test, the strength and the whole detector against the naive
// model on the harness's 4:2:2 frames, random and structured.
#include <sight/corner/detection.h>
#include <sight/corner/segment_kernels.h>
#include <sight/operator/detail/member.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/corner_access.h"
#include "corner/segment_model.h"
#include "support/harness.h"

namespace {

namespace C = Korvane::Sight::corner;
using C::corner_record;
using C::detection;
using C::detection_access;
using harness::cat;
using harness::frame;
using harness::layout;

void set_luma(frame const &f, int x, int y, int v) { f.planes[0].line(y)[2 * x + 1] = std::uint8_t(v); }
corner_model::picture picture_of(frame const &f) {
  return {f.planes[0].data(), f.g.width, f.g.height, f.planes[0].shape().stride};
}

enum content { uniform, levels, blocks, isolated };
char const *const content_names[] = {"uniform", "levels", "blocks", "isolated"};
content content_of(harness::geometry const &g) { return content((g.width + g.height + g.pad + g.offset) % 4); }

// Fills every byte of the memory (the last block reads past the width, into
// padding and the next line), then shapes the luma. Levels: black and white
// next to mid greys give long arcs of both kinds and saturated bright
// centres. Isolated: lone black or white pixels on a flat ground. Blocks:
// flat rectangles on a ramp, with runs of corners.
void fill(frame const &f, content c, std::mt19937 &rng) {
  std::uniform_int_distribution<int> byte(0, 255), chance(0, 99);
  for (std::uint8_t *b = f.planes[0].begin(); b != f.planes[0].end(); ++b) *b = std::uint8_t(byte(rng));
  int const w = f.g.width, h = f.g.height;
  int const palette[] = {0, 40, 128, 215, 255, 254, 1};
  int const ground = byte(rng) < 128 ? 100 : 250;
  for (int y = 0; y < h && c != uniform; ++y)
    for (int x = 0; x < w; ++x) {
      int const r = chance(rng);
      set_luma(f, x, y, c == levels ? palette[r % 7] : c == isolated ? (r < 2 ? 255 : r < 4 ? 0 : ground)
                                                                       : (x + 2 * y) % 64 + 90);
    }
  std::uniform_int_distribution<int> px(0, w), py(0, h), size(3, 12);
  for (int n = 0; c == blocks && n < w * h / 60 + 1; ++n) {
    int const x0 = px(rng), y0 = py(rng), sw = size(rng), sh = size(rng), v = byte(rng);
    for (int y = y0; y < std::min(h, y0 + sh); ++y)
      for (int x = x0; x < std::min(w, x0 + sw); ++x) set_luma(f, x, y, v);
  }
}

// The first record that differs, by position and strength.
::testing::AssertionResult same_records(std::vector<corner_model::record> const &model,
                                        std::vector<corner_record> const &kernel) {
  for (std::size_t i = 0; i < std::max(model.size(), kernel.size()); ++i) {
    std::string const m = i < model.size() ? cat("x ", model[i].x, " y ", model[i].y, " ", model[i].strength) : "none";
    std::string const k = i < kernel.size() ? cat("x ", kernel[i].x, " y ", kernel[i].y, " ", kernel[i].strength) : "none";
    if (m != k) return ::testing::AssertionFailure() << "record " << i << ": model " << m << ", kernel " << k;
  }
  return ::testing::AssertionSuccess();
}

// The detector on `f` at threshold t against the model: every record after
// suppression, the count and the features.
void expect_detector_matches(frame const &f, int t, std::string const &what) {
  detection d;
  d.threshold() = t;
  d = f.view<detection::frame_type>();
  auto model = corner_model::corners(picture_of(f), t);
  int const survivors = corner_model::non_maxima_suppresion(model);
  EXPECT_TRUE(same_records(model, detection_access::corners(d))) << what;
  EXPECT_EQ(int(d), survivors) << what;
  std::vector<std::pair<int, int>> features;
  for (auto const &r : detection_access::features(d)) features.push_back({r.x, r.y});
  EXPECT_EQ(features, corner_model::features_extract(model)) << what;
}

class segment_test : public ::testing::TestWithParam<harness::geometry> {};

// The member the bitmap allows, at odd and even thresholds, and the detector.
TEST_P(segment_test, matches_the_model) {
  harness::geometry const g = GetParam();
  frame const f(layout::ycbcr_422, g);
  std::mt19937 rng(unsigned(g.width * 7919 + g.height * 31 + g.offset * 7 + g.pad));
  fill(f, content_of(g), rng);
  corner_model::picture const p = picture_of(f);
  // The strength of every pixel the detector can report (the last block's
  // columns past the width included); levels bring terms of 0 and 255.
  auto const area = corner_model::scanned_area(g.width, g.height);
  for (int y = area.y0; y < area.y1; ++y)
    for (int x = area.x0; x < area.x1; ++x) {
      int const got = C::ring_strength(f.planes[0].line(y), p.stride, x), want = corner_model::strength(p, x, y);
      if (got != want) return void(ADD_FAILURE() << "strength x " << x << " y " << y << ": model " << want << ", kernel " << got);
    }
  std::vector<corner_record> out(std::size_t(g.width * g.height));  // room for every pixel
  int calls = 0;
  auto const count = [](void *context, corner_record *last) { return ++*static_cast<int *>(context), last; };
  // Past 255 the halves wrap (400 gives -56 and -56), and a ring pixel can
  // then be darker and brighter at once: the two kinds must stay apart.
  for (int t : {0, 1, 20, 35, 70, 71, 127, 128, 199, 254, 255, 300, 400}) {
    auto const th = std::int8_t(corner_model::threshold_low(t)), tr = std::int8_t(corner_model::threshold_high(t));
    calls = 0;
    corner_record *end = nullptr;
    Korvane::Sight::detail::with_member(
        [&](auto aligned) {
          EXPECT_EQ(bool(aligned), f.aligned()) << "member";
          end = C::detect_422<aligned>(p.data, p.stride, g.width, g.height, th, tr, out.data(), count, &calls);
        },
        f.view<detection::frame_type>());
    EXPECT_TRUE(same_records(corner_model::corners(p, t), {out.data(), end})) << "threshold " << t;
    EXPECT_EQ(calls, std::max(0, g.height - 16));
    if (t % 3 == 0) expect_detector_matches(f, t, cat("detector, threshold ", t));
  }
}

INSTANTIATE_TEST_SUITE_P(frames, segment_test, ::testing::ValuesIn(harness::geometries({16, 17, 24})),
                         [](auto const &info) {
                           return harness::name_of(layout::ycbcr_422, info.param) + "_" +
                                  content_names[content_of(info.param)];
                         });

// Every threshold from 0 to 255 on frames rich in corners of both kinds.
class threshold_sweep_test : public ::testing::TestWithParam<int> {};

TEST_P(threshold_sweep_test, detector_matches_the_model) {
  for (content kind : {levels, uniform, blocks}) {
    frame const f(layout::ycbcr_422, {75, 30, 20, 3, false});
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
worked_case const worked_cases[] = {
    // T = 70: th = tr = 35 in halved luma; the difference must exceed 35.
    {"t70_darker_by_35_is_not_enough", 70, 100, 30, 16, 0, 0, false, 0},
    {"t70_darker_by_36", 70, 100, 28, 16, 0, 0, true, 16 * 72},
    {"t70_brighter_by_35_is_not_enough", 70, 100, 0, 0, 170, 16, false, 0},
    {"t70_brighter_by_36", 70, 100, 0, 0, 172, 16, true, 16 * 72},
    // T = 71: th = 35 below, tr = 36 above.
    {"t71_darker_by_36", 71, 100, 28, 16, 0, 0, true, 16 * 72},
    {"t71_brighter_by_36_is_not_enough", 71, 100, 0, 0, 172, 16, false, 0},
    {"t71_brighter_by_37", 71, 100, 0, 0, 174, 16, true, 16 * 74},
    // Full luma for the strength: odd levels that halve alike still count.
    {"isolated_white_pixel_has_the_largest_strength", 70, 255, 0, 16, 0, 0, true, 4080},
    // A saturated centre: high stays 127, nothing is brighter.
    {"bright_centre_has_nothing_brighter", 70, 20, 0, 0, 255, 16, true, 16 * 235},
    {"t0_any_difference_of_halved_luma", 0, 101, 99, 16, 0, 0, true, 32},
    {"t0_equal_halves_are_not_darker", 0, 101, 100, 16, 0, 0, false, 0},
    // T = 255: tr wraps to -128, so every ring pixel counts as brighter.
    {"t255_flat_ground_is_a_corner", 255, 90, 0, 0, 90, 16, true, 0},
    // Arcs on a ground of 120 at T = 70, every ring pixel 80 away.
    {"eight_darker", 70, 120, 40, 8, 200, 0, false, 0},
    {"nine_darker", 70, 120, 40, 9, 200, 0, true, 9 * 80},
    {"eight_brighter", 70, 120, 40, 0, 200, 8, false, 0},
    {"nine_brighter", 70, 120, 40, 0, 200, 9, true, 9 * 80},
    {"five_darker_four_brighter", 70, 120, 40, 5, 200, 4, false, 0},
    {"eight_darker_eight_brighter", 70, 120, 40, 8, 200, 8, false, 0},
    {"nine_darker_seven_brighter", 70, 120, 40, 9, 200, 7, true, 16 * 80},
    {"seven_darker_nine_brighter", 70, 120, 40, 7, 200, 9, true, 16 * 80},
};

TEST(worked_numbers_test, single_centre) {
  for (worked_case const &c : worked_cases)
    for (int start = 0; start < 16; ++start) {
      frame const f(layout::ycbcr_422, {41, 25, 0, 0, false});
      std::fill(f.planes[0].begin(), f.planes[0].end(), std::uint8_t(c.centre));
      for (int i = 0; i < c.darker + c.brighter; ++i) {
        int const k = (start + i) % 16;
        set_luma(f, 20 + corner_model::ring_dx[k], 12 + corner_model::ring_dy[k], i < c.darker ? c.dark : c.bright);
      }
      detection d;
      d.threshold() = c.threshold;
      d = f.view<detection::frame_type>();
      auto const found = detection_access::corners(d);
      auto const at = std::find_if(found.begin(), found.end(), [](auto const &r) { return r.x == 20 && r.y == 12; });
      ASSERT_EQ(at != found.end(), c.corner) << c.name << " from " << start;
      if (c.corner) {
        EXPECT_EQ(at->strength, c.strength) << c.name << " from " << start;
      }
      EXPECT_EQ(corner_model::is_corner(picture_of(f), 20, 12, c.threshold), c.corner) << c.name;
      expect_detector_matches(f, c.threshold, cat(c.name, " from ", start));
    }
}

}  // namespace
