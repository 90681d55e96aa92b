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

struct bgra_bitmap { using type = R::bitmap<R::pixel_bgra_u8>; static constexpr int bytes(int w) { return w * 4; } };
struct cbcr_bitmap { using type = R::bitmap<R::pixel_cbcr_u8>; static constexpr int bytes(int w) { return w * 2; } };
struct y_bitmap { using type = R::bitmap<R::pixel_y_u8>; static constexpr int bytes(int w) { return w; } };
struct bgr_bitmap { using type = R::bitmap<R::pixel_bgr_u8>; static constexpr int bytes(int w) { return w * 3; } };
struct ycbcr_bitmap { using type = R::bitmap_422<R::pixel_ycbcr_u8>; static constexpr int bytes(int w) { return (w + 1) / 2 * 4; } };
using bitmap_kinds = ::testing::Types<bgra_bitmap, cbcr_bitmap, y_bitmap, bgr_bitmap, ycbcr_bitmap>;
TYPED_TEST_SUITE(bitmap_test, bitmap_kinds);

template <class B>
void fill(B &b, std::uint8_t seed) {
  for (int y = 0; y < b.height; ++y) {
    auto *p = reinterpret_cast<std::uint8_t *>(R::line(b, y));
    for (std::int64_t i = 0; i < R::line_bytes(b); ++i) p[i] = std::uint8_t(seed + y * 31 + i);
  }
}

template <class B>
bool same_pixels(B const &a, B const &b) {
  if (a.width != b.width || a.height != b.height) return false;
  for (int y = 0; y < a.height; ++y)
    if (std::memcmp(R::line(a, y), R::line(b, y), std::size_t(R::line_bytes(a))) != 0) return false;
  return true;
}

TYPED_TEST(bitmap_test, allocate_pads_lines_to_16_and_reuses_only_an_owned_buffer_of_the_same_size) {
  using B = typename TypeParam::type;
  for (int w : {1, 2, 3, 5, 7, 16, 17, 33}) {
    B b{};
    ASSERT_TRUE(R::allocate(b, w, 3));
    EXPECT_TRUE(b.owned);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(b.data) % 16, 0u);
    EXPECT_EQ(b.stride, (TypeParam::bytes(w) + 15) / 16 * 16) << "width " << w;
    EXPECT_TRUE(R::is_aligned(b));
    fill(b, 7);
    B before = b;
    ASSERT_TRUE(R::allocate(b, w, 3));  // same size: nothing happens, contents survive
    EXPECT_EQ(b.data, before.data);
    EXPECT_TRUE(same_pixels(b, before));
    ASSERT_TRUE(R::allocate(b, w + 1, 3));  // another size: a new buffer
    EXPECT_EQ(b.width, w + 1);
    ASSERT_TRUE(R::allocate(b, 0, 3));  // a zero size leaves it empty
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.width | b.height | b.stride, 0);
    EXPECT_FALSE(b.owned);
    R::release(b);
  }
}

TYPED_TEST(bitmap_test, allocate_never_reuses_a_view_even_at_the_right_size) {
  using B = typename TypeParam::type;
  alignas(16) std::uint8_t memory[16 * 64] = {};
  B view{};
  R::attach(view, reinterpret_cast<decltype(view.data)>(memory), 4, 4, 64);
  ASSERT_TRUE(R::allocate(view, 4, 4));
  EXPECT_NE(reinterpret_cast<std::uint8_t *>(view.data), memory);
  EXPECT_TRUE(view.owned);
  R::release(view);
}

TYPED_TEST(bitmap_test, attach_defaults_the_stride_to_a_tightly_packed_line) {
  using B = typename TypeParam::type;
  std::uint8_t memory[256];
  for (int w : {1, 2, 3, 9}) {
    B b{};
    R::attach(b, reinterpret_cast<decltype(b.data)>(memory), w, 2);
    EXPECT_EQ(b.stride, TypeParam::bytes(w)) << "width " << w;
    EXPECT_FALSE(b.owned);
    R::attach(b, reinterpret_cast<decltype(b.data)>(memory), w, 2, -48);
    EXPECT_EQ(b.stride, -48);
    R::release(b);  // a view frees nothing
    EXPECT_EQ(b.data, nullptr);
  }
}

TYPED_TEST(bitmap_test, copy_allocates_an_empty_target_and_goes_line_by_line_across_strides) {
  using B = typename TypeParam::type;
  int const w = 5, h = 4, stride = TypeParam::bytes(w) + 3;
  std::vector<std::uint8_t> memory(std::size_t(stride) * h);
  B source{};
  // A reversed view: the last line of the memory comes first.
  R::attach(source, reinterpret_cast<decltype(source.data)>(memory.data() + stride * (h - 1)), w, h, -stride);
  fill(source, 3);
  B target{};
  ASSERT_TRUE(R::copy(target, source));
  EXPECT_TRUE(target.owned);
  EXPECT_NE(target.stride, source.stride);
  EXPECT_TRUE(same_pixels(target, source));
  R::release(target);
}

TYPED_TEST(bitmap_test, copy_with_equal_strides_copies_the_whole_buffer_in_one_go) {
  using B = typename TypeParam::type;
  B source{}, target{};
  ASSERT_TRUE(R::allocate(source, 6, 3));
  ASSERT_TRUE(R::allocate(target, 6, 3));
  ASSERT_EQ(source.stride, target.stride);
  // The padding of each line travels too when the buffer is copied whole.
  std::memset(source.data, 0x5A, std::size_t(source.stride) * 3);
  fill(source, 9);
  ASSERT_TRUE(R::copy(target, source));
  EXPECT_EQ(std::memcmp(source.data, target.data, std::size_t(source.stride) * 3), 0);
  R::release(source);
  R::release(target);
}

TYPED_TEST(bitmap_test, copy_into_a_bitmap_with_a_buffer_keeps_its_size) {
  using B = typename TypeParam::type;
  B source{}, target{};
  ASSERT_TRUE(R::allocate(source, 8, 6));
  ASSERT_TRUE(R::allocate(target, 4, 2));
  fill(source, 1);
  auto *const data = target.data;
  ASSERT_TRUE(R::copy(target, source));
  EXPECT_EQ(target.data, data);
  EXPECT_EQ(target.width, 4);
  EXPECT_EQ(target.height, 2);
  for (int y = 0; y < 2; ++y)
    EXPECT_EQ(std::memcmp(R::line(target, y), R::line(source, y), std::size_t(R::line_bytes(target))), 0);
  R::release(source);
  R::release(target);
}

TEST(bitmap_alignment_test, takes_the_absolute_stride_and_the_address) {
  alignas(16) static std::uint8_t memory[64 * 4];
  struct row { int offset, stride; bool aligned; };
  for (row r : {row{0, 64, true}, row{0, -64, true}, row{16, -32, true}, row{0, 0, true}, row{1, 64, false},
                row{0, 24, false}, row{0, -24, false}, row{8, -48, false}}) {
    R::bitmap<R::pixel_y_u8> b{};
    R::attach(b, reinterpret_cast<R::pixel_y_u8 *>(memory + r.offset + 128), 4, 2, r.stride);
    if (r.stride == 0) b.stride = 0;
    EXPECT_EQ(R::is_aligned(b), r.aligned) << "offset " << r.offset << " stride " << r.stride;
  }
}

}  // namespace
