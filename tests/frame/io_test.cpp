// PNG output read back with libpng, failures, and the line conversion.
#include <sight/frame/convert.h>
#include <sight/frame/io.h>

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/harness.h"

namespace R = Tamarind::Rasters;
namespace fs = std::filesystem;

namespace {

struct png_test : ::testing::TestWithParam<int> {
  fs::path dir = fs::temp_directory_path() / ("sight_png_test_" + std::to_string(::getpid()));
  png_test() { fs::create_directories(dir); }
  ~png_test() override { fs::remove_all(dir); }
};

// Writes a random picture through a reversed, padded view of exactly sized
// memory, and reads it back as R, G, B(, A): the bitmap holds B, G, R(, A).
template <class Pixel>
void round_trip(fs::path const &path, int width, int height, int channels) {
  int const line = width * int(sizeof(Pixel));
  harness::plane const memory({line, height, -(line + 7), 3, 0});
  std::mt19937 rng(std::uint32_t(width * 131 + height));
  memory.randomize(rng);
  R::bitmap<Pixel> view{};
  R::attach(view, reinterpret_cast<Pixel *>(memory.data()), width, height, -(line + 7));
  ASSERT_TRUE(R::io::write(path.wstring().c_str(), view));
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&image, path.c_str()));
  ASSERT_TRUE(int(image.width) == width && int(image.height) == height &&
              int(PNG_IMAGE_SAMPLE_CHANNELS(image.format)) == channels);
  std::vector<std::uint8_t> back(PNG_IMAGE_SIZE(image));
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, back.data(), 0, nullptr));
  for (int y = 0; y < height; ++y)
    for (int i = 0; i < line; ++i)
      ASSERT_EQ(back[std::size_t(y * line + i)], memory.line(y)[i % channels < 3 ? i - i % channels + 2 - i % channels : i])
          << "x " << i / channels << " y " << y;
}

TEST_P(png_test, bgra_and_bgr_read_back_equal) {
  round_trip<R::pixel_bgra_u8>(dir / "bgra.png", GetParam(), 7, 4);
  round_trip<R::pixel_bgr_u8>(dir / "bgr.PNG", GetParam(), 5, 3);
}

INSTANTIATE_TEST_SUITE_P(widths, png_test, ::testing::Values(1, 17));

// Backslashes are part of one file name; a missing folder, a type it does
// not write and a folder's name fail and leave no file.
TEST_F(png_test, file_names) {
  R::pixel_bgra_u8 pixels[4] = {{1, 2, 3, 4}};
  R::bitmap<R::pixel_bgra_u8> b{};
  R::attach(b, pixels, 2, 2);
  fs::current_path(dir);
  ASSERT_TRUE(R::io::write(L"d:\\temp\\track2.png", b));
  EXPECT_TRUE(fs::exists(dir / "d:\\temp\\track2.png"));
  EXPECT_FALSE(R::io::write((dir / "no" / "such" / "folder.png").wstring().c_str(), b));
  EXPECT_FALSE(R::io::write((dir / "picture.bmp").wstring().c_str(), b));
  EXPECT_FALSE(fs::exists(dir / "picture.bmp"));
  EXPECT_FALSE(R::io::write(dir.wstring().c_str(), b));
}

// Black, white, and saturated primaries of BT.601 video range, to R, G, B of
// two pixels; an odd count stops at the last pixel.
TEST(convert_line_test, video_range_maps_to_full_range_and_odd_counts_stop_at_the_last_pixel) {
  struct { R::pixel_ycbcr_u8 in; int r0, g0, b0, r1, g1, b1; } const rows[] = {
      {{128, 16, 128, 235}, 0, 0, 0, 255, 255, 255},
      {{128, 0, 128, 255}, 0, 0, 0, 255, 255, 255},  // beyond the range: clamped
      {{90, 81, 240, 81}, 255, 0, 0, 255, 0, 0},     // red
      {{240, 41, 110, 41}, 0, 0, 255, 0, 0, 255},    // blue
  };
  for (auto const &r : rows) {
    R::pixel_bgra_u8 bgra[3];
    R::pixel_bgr_u8 bgr[3] = {{9, 9, 9}, {9, 9, 9}, {9, 9, 9}};
    R::pixel_ycbcr_u8 const line[2] = {r.in, r.in};
    R::convert_line(line, bgra, 3);
    R::convert_line(line, bgr, 2);
    int const want[6] = {r.r0, r.g0, r.b0, r.r1, r.g1, r.b1};
    for (int k = 0; k < 6; ++k)
      EXPECT_NEAR((k % 3 == 0 ? bgra[k / 3].r : k % 3 == 1 ? bgra[k / 3].g : bgra[k / 3].b), want[k], 2) << "value " << k;
    // The third pixel is the first of the next element; count 2 writes two.
    EXPECT_TRUE(bgra[2].r == bgra[0].r && bgra[0].a == 255 && bgr[1].r == bgra[1].r && bgr[2].r == 9);
  }
}

}  // namespace
