// Colour matching: the procamp kernel against its scalar model in both store
// members, the statistics against double precision, and the search on pairs
// that settle, swing, or are degenerate.
#include <sight/color_matching/color_matching.h>
#include <sight/color_matching/procamp_kernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "color_matching/procamp_model.h"
#include "support/harness.h"

// Counting stand-ins for the pixel layer's allocator (this program only), so
// that the tests see when the search makes and gives back its scratch picture;
// new memory is filled with `garbage`.
namespace alloc_count {
int made = 0, freed = 0, garbage = 0;
}
namespace Tamarind::Rasters::mem {
void *alloc(std::uint64_t size, std::uint64_t alignment) {
  void *p = nullptr;
  ++alloc_count::made;
  if (posix_memalign(&p, std::size_t(alignment < 8 ? 8 : alignment), std::size_t(size)) != 0) return nullptr;
  return std::memset(p, alloc_count::garbage, std::size_t(size));
}
void free(void const *p) {
  alloc_count::freed += p != nullptr;
  std::free(const_cast<void *>(p));
}
}  // namespace Tamarind::Rasters::mem

namespace {

using Korvane::Sight::color_matching;
using Korvane::Sight::ycbcr_bitmap;
namespace D = Korvane::Sight::detail;
using stats = color_matching::image_statistics;

// A 4:2:2 picture on the harness's exactly sized memory, `room` guard bytes
// behind it.
struct picture : harness::frame {
  picture(harness::geometry const &g, int room = 0) : frame(harness::layout::ycbcr_422, g, room) {}
  std::uint8_t *data() const { return planes[0].data(); }
  int stride() const { return planes[0].shape().stride; }
  ycbcr_bitmap bitmap() const { return view<ycbcr_bitmap>(); }
  // byte(channel, a random byte) for channels Cb, Y0, Cr, Y1.
  template <class Byte>
  void fill(std::mt19937 &rng, Byte const &byte) const {
    for (int y = 0; y < g.height; ++y)
      for (int x = 0; x < planes[0].shape().width; ++x) planes[0].line(y)[x] = std::uint8_t(byte(x % 4, int(rng() & 255)));
  }
};

// The destination in each of the harness's placements; the source 3 bytes
// off a 16-byte boundary, its lines padded by the destination's pad % 16.
class procamp_test : public ::testing::TestWithParam<harness::geometry> {};

TEST_P(procamp_test, matches_the_model_and_leaves_the_guard_bytes) {
  harness::geometry const g = GetParam();
  std::mt19937 rng(std::uint32_t(g.width * 31 + g.pad * 7 + g.offset + g.height));
  float const odd[] = {NAN, INFINITY, -INFINITY, 1e30f, -1e30f, 3e9f, 70000.0f, -2.5f, 0.0f, 1.0f / 64, 3.0f / 64};
  auto setting = [&](float lo, float hi) {
    return rng() % 3 == 0 ? odd[rng() % std::size(odd)] : std::uniform_real_distribution<float>(lo, hi)(rng);
  };
  picture const source({g.width, g.height, g.pad % 16, 3, false});
  source.randomize(rng);
  for (int round = 0; round < 12; ++round) {
    procamp_model::settings const s{setting(-0.3f, 0.3f), setting(-1, 5), setting(-1, 3), setting(-0.3f, 0.3f),
                                    setting(-0.3f, 0.3f)};
    picture const got(g, 16), want = got;
    D::procamp_tables tables;
    D::make_procamp_tables({s.brightness, s.contrast, s.saturation, s.u_offset, s.v_offset}, tables);
    (got.aligned() ? D::apply_procamp_422<true> : D::apply_procamp_422<false>)(tables, source.bitmap(), got.bitmap());
    procamp_model::apply(s, source.data(), source.stride(), g.width, g.height, want.data(), want.stride());
    ASSERT_TRUE(harness::same_frame(want, got)) << "settings " << s.brightness << " " << s.contrast << " "
                                                << s.saturation << " " << s.u_offset << " " << s.v_offset;
  }
}

INSTANTIATE_TEST_SUITE_P(layouts, procamp_test,
                         ::testing::ValuesIn(harness::geometries({1, 3}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 31, 33, 64, 721})),
                         [](auto const &info) { return harness::name_of(harness::layout::ycbcr_422, info.param); });

std::vector<float> fields(stats const &s) {
  return {s.y_mean, s.cb_mean, s.cr_mean, s.y_variance, s.cb_variance, s.cr_variance};
}

class statistics_test : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

// Every macro-pixel counted whole (the last one of an odd width too), chroma
// twice, over width * height pixels: population moments in double precision.
TEST_P(statistics_test, agree_with_double_precision_and_repeat_bit_for_bit) {
  auto const [w, h, pad] = GetParam();
  std::mt19937 rng(std::uint32_t(w * 100 + h * 10 + pad));
  picture const p({w, h, pad, pad, false});
  p.randomize(rng);
  double sum[3] = {}, square[3] = {};
  for (int pass = 0; pass < 2; ++pass)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < (w + 1) / 2 * 4; ++x) {
        int const c = x % 2 ? 0 : x % 4 / 2 + 1, weight = c ? 2 : 1;  // luma, Cb, Cr
        double const v = p.planes[0].line(y)[x] / 255.0, mean = sum[c] / (w * h);
        (pass ? square[c] : sum[c]) += (pass ? (v - mean) * (v - mean) : v) * weight;
      }
  std::vector<float> const got = fields(stats(p.bitmap()));
  for (int i = 0; i < 6; ++i) {
    double const want = (i < 3 ? sum[i] : square[i - 3]) / (w * h);
    EXPECT_NEAR(got[std::size_t(i)], want, 1e-4 * want + 1e-7) << "field " << i;
  }
  picture const copy({w, h, pad + 12, 5, false});
  for (int y = 0; y < h; ++y) std::memcpy(copy.planes[0].line(y), p.planes[0].line(y), std::size_t((w + 1) / 2 * 4));
  EXPECT_EQ(got, fields(stats(copy.bitmap())));
  EXPECT_EQ(got, fields(stats(stats(p.bitmap()))));
}

INSTANTIATE_TEST_SUITE_P(sizes, statistics_test,
                         ::testing::Combine(::testing::Values(1, 2, 3, 5, 8, 17, 64), ::testing::Values(1, 3),
                                            ::testing::Values(0, 5)));

TEST(statistics_test, empty_pictures_give_nan) {
  for (ycbcr_bitmap const b : {ycbcr_bitmap{}, ycbcr_bitmap{nullptr, 0, 4, 16, false}, ycbcr_bitmap{nullptr, 6, 0, 16, false}})
    for (float f : fields(stats(b))) EXPECT_TRUE(std::isnan(f));
}

// The search with `flag` both ways, on fresh memory of different contents:
// bit-identical settings, every scratch picture given back; `made` is how
// many were allocated.
std::vector<float> settings_of(picture const &p, picture const &reference, int made) {
  std::vector<float> result[2];
  for (bool flag : {false, true}) {
    alloc_count::made = alloc_count::freed = 0;
    alloc_count::garbage = flag ? 0xFF : 0;
    color_matching const m(p.bitmap(), reference.bitmap(), flag);
    EXPECT_TRUE(alloc_count::made == made && alloc_count::freed == made) << alloc_count::made << " " << alloc_count::freed;
    result[flag] = {m.brightness(), m.contrast(), m.saturation(), m.u_offset(), m.v_offset()};
  }
  EXPECT_EQ(0, std::memcmp(result[0].data(), result[1].data(), 5 * sizeof(float))) << "flag or garbage changed it";
  return result[0];
}

// Pairs made by a luma gain and offset and a chroma gain and two offsets.
// Identical bytes stop at once, with no scratch picture and the settings at
// their start values; gains of 1.15 and 1.1 settle in a few passes where the
// picture, corrected by the settings, measures like the reference; with a
// luma gain of 2 the brightness still swings after 20 passes.
TEST(color_matching_test, moderate_gains_settle_and_a_gain_of_two_does_not) {
  struct { float gain, chroma_gain, shift; int made; bool settles; } const cases[] = {{1, 1, 0, 0, true}, {1.15f, 1.1f, -20, 1, true}, {2, 1.1f, -20, 1, false}};
  for (auto const &c : cases) {
    std::mt19937 rng(11), same(11);
    picture const p({63, 32, 0, 0, false}), reference = p;
    p.fill(rng, [](int ch, int r) { return ch % 2 ? 60 + r % 60 : 80 + r % 96; });
    reference.fill(same, [&](int ch, int r) {
      return int(ch % 2 ? std::lround(c.gain * float(r % 60) + 60 + c.shift)
                        : std::lround(c.chroma_gain * float(r % 96 - 48)) + 128 + (c.shift < 0 ? ch * 6 - 8 : 0));
    });
    std::vector<float> const s = settings_of(p, reference, c.made);
    picture const out = p;
    procamp_model::apply({s[0], s[1], s[2], s[3], s[4]}, p.data(), p.stride(), 63, 32, out.data(), out.stride());
    std::vector<float> const got = fields(stats(out.bitmap())), want = fields(stats(reference.bitmap()));
    float off = 0;
    for (int i = 0; i < 6; ++i) off = std::max(off, std::fabs(got[std::size_t(i)] - want[std::size_t(i)]));
    EXPECT_EQ(off < 0.004f, c.settles) << "gain " << c.gain << ": statistics off by " << off;
    EXPECT_NEAR(s[1], c.gain, 0.03f);
    EXPECT_NEAR(s[2], c.chroma_gain, 0.01f);
    EXPECT_TRUE(c.made != 0 || s == (std::vector<float>{0, 1, 1, 0, 0}));
  }
}

// Flat channels: a grey picture has no chroma deviation (0 / 0), a black
// luma none in the picture (x / 0) or in the reference (contrast 0, then
// 0 / 0); an empty picture gives NaN statistics and makes no scratch picture.
// Each case lists which settings end non-finite.
TEST(color_matching_test, flat_and_empty_pictures_give_non_finite_settings) {
  // flat: bit c for channel c of the picture, bit 4 + c of the reference;
  // non_finite: bit i for setting i (brightness, ..., v_offset).
  struct { int flat_channels, width, made, non_finite; } const cases[] = {{0b0101, 16, 1, 0b11100}, {0b1010, 16, 1, 0b00011}, {0b1010 << 4, 16, 1, 0b00011}, {0, 0, 0, 0b11111}};
  for (auto const &d : cases) {
    std::mt19937 rng(3);
    picture const p({d.width, 8, 32 - (d.width + 1) / 2 * 4, 1, false}), reference = p;
    p.fill(rng, [&](int c, int r) { return d.flat_channels >> c & 1 ? (c % 2 ? 0 : 128) : r; });
    reference.fill(rng, [&](int c, int r) { return d.flat_channels >> (4 + c) & 1 ? 0 : r; });
    std::vector<float> const s = settings_of(p, reference, d.made);
    int non_finite = 0;
    for (int i = 0; i < 5; ++i) non_finite |= !std::isfinite(s[std::size_t(i)]) << i;
    EXPECT_EQ(non_finite, d.non_finite) << "flat " << d.flat_channels;
  }
}

}  // namespace
