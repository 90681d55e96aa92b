// Colour matching: the procamp kernel against its scalar model in both store
// members, the statistics against double precision, and the search on pairs
// that settle, swing, or are degenerate.
#include <sight/color_matching/color_matching.h>
#include <sight/color_matching/procamp_kernels.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <sstream>
#include <vector>

#include "color_matching/procamp_model.h"

// Counting stand-ins for the pixel layer's allocator (this program only), so
// that the tests see when the search makes and gives back its scratch picture.
namespace alloc_count {
int made = 0, freed = 0;
}
namespace Tamarind::Rasters::mem {
void *alloc(std::uint64_t size, std::uint64_t alignment) {
  void *p = nullptr;
  ++alloc_count::made;
  return posix_memalign(&p, std::size_t(alignment < 8 ? 8 : alignment), std::size_t(size)) == 0 ? p : nullptr;
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
constexpr std::uint8_t sentinel = 0xA5;

// A 4:2:2 picture in a buffer of exactly `offset` bytes, its lines, and
// `guard` bytes behind the last line; all bytes start at the sentinel.
struct picture {
  int width, height, stride, offset;
  std::vector<std::uint8_t> bytes;
  picture(int w, int h, int s, int off = 0, int guard = 0)
      : width(w), height(h), stride(s), offset(off),
        bytes(std::size_t(off + (h > 0 ? s * (h - 1) + (w + 1) / 2 * 4 : 0) + guard), sentinel) {}
  std::uint8_t *data() { return bytes.data() + offset; }
  ycbcr_bitmap bitmap() { return {reinterpret_cast<Tamarind::Rasters::pixel_ycbcr_u8 *>(data()), width, height, stride, false}; }
  // byte(channel, a random byte) for channels Cb, Y0, Cr, Y1.
  picture &fill(std::mt19937 &rng, std::function<int(int, int)> const &byte = [](int, int r) { return r; }) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < (width + 1) / 2 * 4; ++x) data()[y * stride + x] = std::uint8_t(byte(x % 4, int(rng() & 255)));
    return *this;
  }
};

struct procamp_case {
  int width, stride_pad, dst_offset;
  bool aligned;
};

class procamp_test : public ::testing::TestWithParam<procamp_case> {};

TEST_P(procamp_test, matches_the_model_and_leaves_the_guard_bytes) {
  procamp_case const c = GetParam();
  std::mt19937 rng(std::uint32_t(c.width * 31 + c.stride_pad * 7 + c.dst_offset));
  float const odd[] = {NAN, INFINITY, -INFINITY, 1e30f, -1e30f, 3e9f, 70000.0f, -2.5f, 0.0f, 1.0f / 64, 3.0f / 64};
  auto setting = [&](float lo, float hi) {
    return rng() % 3 == 0 ? odd[rng() % std::size(odd)] : std::uniform_real_distribution<float>(lo, hi)(rng);
  };
  int const line = (c.width + 1) / 2 * 4, dst_stride = (line + 15) / 16 * 16 + c.stride_pad;
  for (int h : {1, 3}) {
    picture source(c.width, h, line + c.stride_pad % 16, 3);
    source.fill(rng);
    for (int round = 0; round < 12; ++round) {
      procamp_model::settings const s{setting(-0.3f, 0.3f), setting(-1, 5), setting(-1, 3), setting(-0.3f, 0.3f),
                                      setting(-0.3f, 0.3f)};
      picture got(c.width, h, dst_stride, 16 + c.dst_offset, 16), want = got;
      D::procamp_tables tables;
      D::make_procamp_tables({s.brightness, s.contrast, s.saturation, s.u_offset, s.v_offset}, tables);
      (c.aligned ? D::apply_procamp_422<true> : D::apply_procamp_422<false>)(tables, source.bitmap(), got.bitmap());
      procamp_model::apply(s, source.data(), source.stride, c.width, h, want.data(), dst_stride);
      for (std::size_t i = 0; i < got.bytes.size(); ++i) {
        int const at = int(i) - got.offset;
        ASSERT_EQ(int(want.bytes[i]), int(got.bytes[i]))
            << "x " << (at % dst_stride + dst_stride) % dst_stride << " y " << std::floor(double(at) / dst_stride)
            << " (model, kernel) h " << h << " settings " << s.brightness << " " << s.contrast << " "
            << s.saturation << " " << s.u_offset << " " << s.v_offset;
      }
    }
  }
}

std::vector<procamp_case> procamp_cases() {
  std::vector<procamp_case> cases;
  for (int w : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 31, 33, 64, 721})
    for (int pad : {0, 16, 5}) {
      cases.push_back({w, pad, 1 + w % 15, false});
      if (pad % 16 == 0) cases.push_back({w, pad, 0, true});
    }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(layouts, procamp_test, ::testing::ValuesIn(procamp_cases()), [](auto const &info) {
  procamp_case const &c = info.param;
  std::ostringstream name;
  name << "w" << c.width << "_pad" << c.stride_pad << "_off" << c.dst_offset << (c.aligned ? "_aligned" : "_unaligned");
  return name.str();
});

std::vector<float> fields(stats const &s) {
  return {s.y_mean, s.cb_mean, s.cr_mean, s.y_variance, s.cb_variance, s.cr_variance};
}

class statistics_test : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

// Every macro-pixel counted whole (the last one of an odd width too), chroma
// twice, over width * height pixels: population moments in double precision.
TEST_P(statistics_test, agree_with_double_precision_and_repeat_bit_for_bit) {
  auto const [w, h, pad] = GetParam();
  std::mt19937 rng(std::uint32_t(w * 100 + h * 10 + pad));
  picture p(w, h, (w + 1) / 2 * 4 + pad, pad);
  p.fill(rng);
  double sum[3] = {}, square[3] = {};
  for (int pass = 0; pass < 2; ++pass)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < (w + 1) / 2 * 4; ++x) {
        int const c = x % 2 ? 0 : x % 4 / 2 + 1, weight = c ? 2 : 1;  // luma, Cb, Cr
        double const v = p.data()[y * p.stride + x] / 255.0, mean = sum[c] / (w * h);
        (pass ? square[c] : sum[c]) += (pass ? (v - mean) * (v - mean) : v) * weight;
      }
  std::vector<float> const got = fields(stats(p.bitmap()));
  for (int i = 0; i < 6; ++i) {
    double const want = (i < 3 ? sum[i] : square[i - 3]) / (w * h);
    EXPECT_NEAR(got[std::size_t(i)], want, 1e-4 * want + 1e-7) << "field " << i;
  }
  picture copy(w, h, p.stride + 12, 5);
  for (int y = 0; y < h; ++y) std::memcpy(copy.data() + y * copy.stride, p.data() + y * p.stride, std::size_t(p.stride - pad));
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

}  // namespace
