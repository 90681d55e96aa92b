// The segment test and the strength against the naive model: the row kernel
// (both members) and the whole detector, on random and structured frames.
#include <sight/corner/detection.h>
#include <sight/corner/segment_kernels.h>

#include <gtest/gtest.h>

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

enum class content { uniform, levels, blocks, isolated };
std::string name_of(content c) {
  switch (c) {
    case content::uniform: return "uniform";
    case content::levels: return "levels";
    case content::blocks: return "blocks";
    case content::isolated: return "isolated";
  }
  return "";
}

// Fills every byte of the buffer (padding and chroma included, since the last
// block reads past the width into them).
void fill(frame_buffer &f, content c, std::mt19937 &rng) {
  std::uniform_int_distribution<int> byte(0, 255);
  for (auto &b : f.bytes) b = std::uint8_t(byte(rng));
  int const w = f.frame.width, h = f.frame.height;
  auto for_luma = [&](auto &&value) {
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) f.set_luma(x, y, value(x, y));
  };
  switch (c) {
    case content::uniform:
      break;
    case content::levels: {
      // Few distinct levels, black and white included: long arcs of both
      // polarities next to each other, and saturated bright centres.
      int const levels[] = {0, 40, 128, 215, 255, 254, 1};
      std::uniform_int_distribution<int> pick(0, 6);
      for_luma([&](int, int) { return levels[pick(rng)]; });
      break;
    }
    case content::blocks: {
      // Rectangles of flat grey on a gentle ramp: real corners with runs of
      // neighbours along their edges.
      for_luma([&](int x, int y) { return (x + 2 * y) % 64 + 90; });
      std::uniform_int_distribution<int> px(0, w), py(0, h), size(3, 12);
      for (int n = 0; n < (w * h) / 60 + 1; ++n) {
        int const x0 = px(rng), y0 = py(rng), sw = size(rng), sh = size(rng), v = byte(rng);
        for (int y = y0; y < std::min(h, y0 + sh); ++y)
          for (int x = x0; x < std::min(w, x0 + sw); ++x) f.set_luma(x, y, v);
      }
      break;
    }
    case content::isolated: {
      // Lone black or white pixels on a flat ground of mid or bright grey.
      int const ground = byte(rng) < 128 ? 100 : 250;
      std::uniform_int_distribution<int> chance(0, 99);
      for_luma([&](int, int) {
        int const r = chance(rng);
        return r < 2 ? 255 : r < 4 ? 0 : ground;
      });
      break;
    }
  }
}

std::string describe(corner_record const &r) {
  return cat("(", r.x, ", ", r.y, ") strength ", r.strength);
}
std::string describe(corner_model::record const &r) {
  return cat("(", r.x, ", ", r.y, ") strength ", r.strength);
}

// Compares two record lists; reports the first difference by position.
void expect_same(std::vector<corner_model::record> const &model, std::vector<corner_record> const &kernel,
                 std::string const &what) {
  std::size_t const n = std::min(model.size(), kernel.size());
  for (std::size_t i = 0; i < n; ++i) {
    corner_model::record const &m = model[i];
    corner_record const &k = kernel[i];
    if (m.x != k.x || m.y != k.y || m.strength != k.strength) {
      ADD_FAILURE() << what << ": record " << i << " model " << describe(m) << ", kernel " << describe(k);
      return;
    }
  }
  if (model.size() != kernel.size())
    ADD_FAILURE() << what << ": model has " << model.size() << " records, kernel " << kernel.size()
                  << "; first extra: "
                  << (model.size() > n ? describe(model[n]) : describe(kernel[n]));
}

using frame_param = std::tuple<int, int, layout, content>;

class segment_test : public ::testing::TestWithParam<frame_param> {};

// The frame kernel's both members (the aligned one wherever the frame allows
// it) against the model, at odd and even thresholds.
TEST_P(segment_test, kernel_matches_the_model) {
  auto const [width, height, lay, kind] = GetParam();
  frame_buffer f(width, height, stride_for(lay, width), offset_for(lay));
  std::mt19937 rng(unsigned(width * 7919 + height * 31 + int(lay) * 7 + int(kind)));
  fill(f, kind, rng);
  bool const aligned = Tamarind::Rasters::is_aligned(f.frame);
  auto const *data = reinterpret_cast<std::uint8_t const *>(f.frame.data);
  // Room for every pixel; the reservation only counts its calls.
  std::vector<corner_record> out(std::size_t(std::max(width, 1) * std::max(height, 1)));
  int calls = 0;
  auto const count_calls = [](void *context, corner_record *last) {
    ++*static_cast<int *>(context);
    return last;
  };
  for (int t : {0, 1, 20, 35, 70, 71, 127, 128, 199, 254, 255}) {
    auto const model = corner_model::corners(f.picture(), t);
    auto const th = std::int8_t(corner_model::threshold_low(t));
    auto const tr = std::int8_t(corner_model::threshold_high(t));
    calls = 0;
    corner_record *end = Korvane::Sight::corner::detect_422<false>(data, f.frame.stride, width, height, th, tr,
                                                                   out.data(), count_calls, &calls);
    expect_same(model, {out.data(), end}, cat("unaligned, threshold ", t));
    EXPECT_EQ(calls, std::max(0, height - 16));
    if (aligned) {
      end = Korvane::Sight::corner::detect_422<true>(data, f.frame.stride, width, height, th, tr, out.data(),
                                                     count_calls, &calls);
      expect_same(model, {out.data(), end}, cat("aligned, threshold ", t));
    }
  }
}

// The whole frame path: corners after suppression, the count and the features.
TEST_P(segment_test, detector_matches_the_model) {
  auto const [width, height, lay, kind] = GetParam();
  frame_buffer f(width, height, stride_for(lay, width), offset_for(lay));
  std::mt19937 rng(unsigned(width * 131 + height * 17 + int(lay) * 3 + int(kind)));
  fill(f, kind, rng);
  detection d;
  for (int t : {0, 35, 70, 71, 128, 255}) {
    d.threshold() = t;
    d = f.frame;
    auto model = corner_model::corners(f.picture(), t);
    int const survivors = corner_model::non_maxima_suppresion(model);
    expect_same(model, detection_access::corners(d), cat("threshold ", t));
    EXPECT_EQ(int(d), survivors) << "threshold " << t;
    auto const features = detection_access::features(d);
    auto const expected = corner_model::features_extract(model);
    ASSERT_EQ(features.size(), expected.size()) << "threshold " << t;
    for (std::size_t i = 0; i < features.size(); ++i)
      EXPECT_EQ(std::make_pair(int(features[i].x), int(features[i].y)), expected[i]) << "feature " << i;
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
  return cat("w", w, "_h", h, "_", name_of(l), "_", name_of(c));
}

INSTANTIATE_TEST_SUITE_P(
    frames, segment_test,
    ::testing::Combine(::testing::ValuesIn(widths()), ::testing::Values(16, 17, 24),
                       ::testing::Values(layout::tight, layout::aligned, layout::padded, layout::reversed),
                       ::testing::Values(content::uniform, content::levels, content::blocks, content::isolated)),
    frame_name);

// Every threshold from 0 to 255 on frames rich in corners of both polarities.
class threshold_sweep_test : public ::testing::TestWithParam<int> {};

TEST_P(threshold_sweep_test, detector_matches_the_model) {
  int const t = GetParam();
  for (content kind : {content::levels, content::uniform, content::blocks}) {
    frame_buffer f(75, 30, stride_for(layout::padded, 75), 3);
    std::mt19937 rng(unsigned(t * 5 + int(kind)));
    fill(f, kind, rng);
    detection d;
    d.threshold() = t;
    d = f.frame;
    auto model = corner_model::corners(f.picture(), t);
    int const survivors = corner_model::non_maxima_suppresion(model);
    expect_same(model, detection_access::corners(d), name_of(kind));
    EXPECT_EQ(int(d), survivors) << name_of(kind);
  }
}

INSTANTIATE_TEST_SUITE_P(all, threshold_sweep_test, ::testing::Range(0, 256),
                         [](auto const &info) { return cat("t", info.param); });

// Arcs of one kind or of both, of 7 to 10 positions, from every start, placed
// on a flat ground: a centre is a corner exactly when nine or more contiguous
// positions share one kind.
struct arc_case {
  int darker, brighter;  // contiguous runs, the brighter one following the darker one
  bool corner;
};

class arc_test : public ::testing::TestWithParam<arc_case> {};

TEST_P(arc_test, nine_contiguous_of_one_kind_make_a_corner) {
  arc_case const c = GetParam();
  int const ground = 120;  // halved 60; threshold 70 asks for more than 35 either way
  for (int start = 0; start < 16; ++start) {
    frame_buffer f(40, 26, stride_for(layout::aligned, 40), 0);
    for (int y = 0; y < 26; ++y)
      for (int x = 0; x < 40; ++x) f.set_luma(x, y, ground);
    int const cx = 19, cy = 12;
    for (int i = 0; i < c.darker + c.brighter; ++i) {
      int const k = (start + i) % 16;
      f.set_luma(cx + corner_model::ring_dx[k], cy + corner_model::ring_dy[k], i < c.darker ? 40 : 200);
    }
    detection d;
    d = f.frame;
    auto const found = detection_access::corners(d);
    bool const centre = std::any_of(found.begin(), found.end(),
                                    [&](corner_record const &r) { return r.x == cx && r.y == cy; });
    EXPECT_EQ(centre, c.corner) << c.darker << " darker then " << c.brighter << " brighter from " << start;
    EXPECT_EQ(corner_model::is_corner(f.picture(), cx, cy, 70), c.corner);
    auto model = corner_model::corners(f.picture(), 70);
    corner_model::non_maxima_suppresion(model);
    expect_same(model, found, cat("start ", start));
  }
}

INSTANTIATE_TEST_SUITE_P(arcs, arc_test,
                         ::testing::Values(arc_case{8, 0, false}, arc_case{9, 0, true}, arc_case{10, 0, true},
                                           arc_case{0, 8, false}, arc_case{0, 9, true}, arc_case{16, 0, true},
                                           arc_case{0, 16, true}, arc_case{5, 4, false}, arc_case{4, 5, false},
                                           arc_case{8, 8, false}, arc_case{9, 7, true}, arc_case{7, 9, true}),
                         [](auto const &info) {
                           return cat("d", info.param.darker, "_b", info.param.brighter);
                         });

}  // namespace
