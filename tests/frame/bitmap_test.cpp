// Bitmap operations: allocation and its reuse rules, views, copies, alignment.
#include <sight/frame/bitmap.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace R = Tamarind::Rasters;

namespace {

template <class B>
class bitmap_test : public ::testing::Test {};

using bitmap_kinds = ::testing::Types<R::bitmap<R::pixel_bgra_u8>, R::bitmap<R::pixel_cbcr_u8>, R::bitmap<R::pixel_y_u8>,
                                      R::bitmap<R::pixel_bgr_u8>, R::bitmap_422<R::pixel_ycbcr_u8>>;
TYPED_TEST_SUITE(bitmap_test, bitmap_kinds);

template <class B>
void fill(B &b, std::uint8_t seed) {
  for (int y = 0; y < b.height; ++y)
    for (std::int64_t i = 0; i < R::line_bytes(b); ++i)
      reinterpret_cast<std::uint8_t *>(R::line(b, y))[i] = std::uint8_t(seed + y * 31 + i);
}

template <class B>
bool same_pixels(B const &a, B const &b, int height) {
  for (int y = 0; y < height; ++y)
    if (std::memcmp(R::line(a, y), R::line(b, y), std::size_t(R::line_bytes(a))) != 0) return false;
  return true;
}

TYPED_TEST(bitmap_test, allocate_pads_lines_and_reuses_only_an_owned_buffer_of_the_same_size) {
  using B = TypeParam;
  for (int w : {1, 2, 3, 5, 17, 33}) {
    B b{};
    ASSERT_TRUE(R::allocate(b, w, 3));
    EXPECT_TRUE(b.owned && R::is_aligned(b));
    EXPECT_EQ(b.stride, (R::line_bytes(b) + 15) / 16 * 16) << "width " << w;
    fill(b, 7);
    B const before = b;
    ASSERT_TRUE(R::allocate(b, w, 3));  // same size: contents survive
    EXPECT_EQ(b.data, before.data);
    ASSERT_TRUE(R::allocate(b, w + 1, 3));
    EXPECT_EQ(b.width, w + 1);
    ASSERT_TRUE(R::allocate(b, 0, 3));  // a zero size leaves it empty
    EXPECT_TRUE(b.data == nullptr && (b.width | b.height | b.stride) == 0 && !b.owned);
  }
  alignas(16) std::uint8_t memory[16 * 64] = {};
  B view{};
  R::attach(view, reinterpret_cast<decltype(view.data)>(memory), 4, 4);
  EXPECT_EQ(view.stride, R::line_bytes(view));  // a tightly packed line by default
  ASSERT_TRUE(R::allocate(view, 4, 4));         // a view is never reused
  EXPECT_NE(reinterpret_cast<std::uint8_t *>(view.data), memory);
  R::release(view);
}

TYPED_TEST(bitmap_test, copy_allocates_an_empty_target_and_keeps_the_size_of_a_full_one) {
  using B = TypeParam;
  int const w = 5, h = 4;
  B probe{};
  R::attach(probe, static_cast<decltype(probe.data)>(nullptr), w, h);
  int const stride = int(R::line_bytes(probe)) + 3;
  std::vector<std::uint8_t> memory(std::size_t(stride) * h);
  B source{}, target{}, small{}, same{};
  // A reversed view: the last line of the memory comes first.
  R::attach(source, reinterpret_cast<decltype(source.data)>(memory.data() + stride * (h - 1)), w, h, -stride);
  fill(source, 3);
  ASSERT_TRUE(R::copy(target, source));
  EXPECT_TRUE(target.owned && target.stride != source.stride && same_pixels(target, source, h));
  ASSERT_TRUE(R::allocate(small, 4, 2));
  auto *const data = small.data;
  ASSERT_TRUE(R::copy(small, target));
  EXPECT_TRUE(small.data == data && small.width == 4 && small.height == 2 && same_pixels(small, target, 2));
  // Equal strides: the whole buffer in one go, line padding included.
  std::memset(target.data, 0x5A, std::size_t(target.stride) * h);
  fill(target, 9);
  ASSERT_TRUE(R::allocate(same, w, h));
  ASSERT_TRUE(R::copy(same, target));
  EXPECT_EQ(std::memcmp(same.data, target.data, std::size_t(target.stride) * h), 0);
  R::release(target), R::release(small), R::release(same);
}

TEST(bitmap_alignment_test, takes_the_absolute_stride_and_the_address) {
  alignas(16) static std::uint8_t memory[64 * 4];
  struct row {
    int offset, stride;
    bool aligned;
  };
  for (row r : {row{0, 64, true}, row{16, -32, true}, row{0, 0, true}, row{1, 64, false}, row{0, -24, false},
                row{8, -48, false}}) {
    R::bitmap<R::pixel_y_u8> b{reinterpret_cast<R::pixel_y_u8 *>(memory + r.offset + 128), 4, 2, r.stride, false};
    EXPECT_EQ(R::is_aligned(b), r.aligned) << "offset " << r.offset << " stride " << r.stride;
  }
}

}  // namespace
