// PNG output read back with libpng, failures, and the line conversion.
#include <sight/frame/convert.h>
#include <sight/frame/io.h>

#include <gtest/gtest.h>
#include <png.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace R = Tamarind::Rasters;
namespace fs = std::filesystem;

namespace {

// Reads a PNG into rows of R, G, B(, A) bytes; false on any failure.
bool read_png(fs::path const &path, int &width, int &height, int &channels, std::vector<std::uint8_t> &pixels) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
  channels = PNG_IMAGE_SAMPLE_CHANNELS(image.format);
  width = int(image.width);
  height = int(image.height);
  pixels.resize(PNG_IMAGE_SIZE(image));
  return png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0;
}

class png_test : public ::testing::TestWithParam<int> {
 protected:
  fs::path dir_ = fs::temp_directory_path() / ("sight_png_test_" + std::to_string(::getpid()));
  void SetUp() override { fs::create_directories(dir_); }
  void TearDown() override { fs::remove_all(dir_); }
};

// Writes a random picture through a reversed, padded view and reads it back.
template <class Pixel>
void round_trip(fs::path const &path, int width, int height, int channels) {
  int const stride = width * int(sizeof(Pixel)) + 7;
  std::vector<std::uint8_t> memory(std::size_t(stride) * std::size_t(height));
  std::mt19937 rng(std::uint32_t(width * 131 + height));
  for (auto &b : memory) b = std::uint8_t(rng());
  R::bitmap<Pixel> view{};
  R::attach(view, reinterpret_cast<Pixel *>(memory.data() + std::size_t(stride) * std::size_t(height - 1)), width,
            height, -stride);
  ASSERT_TRUE(R::io::write(path.wstring().c_str(), view));
  int w = 0, h = 0, c = 0;
  std::vector<std::uint8_t> back;
  ASSERT_TRUE(read_png(path, w, h, c, back));
  ASSERT_TRUE(w == width && h == height && c == channels) << w << "x" << h << "x" << c;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int k = 0; k < channels; ++k)  // the file holds R, G, B(, A); the bitmap B, G, R(, A)
        ASSERT_EQ(back[std::size_t((y * width + x) * c + k)],
                  reinterpret_cast<std::uint8_t const *>(R::line(view, y) + x)[k < 3 ? 2 - k : k])
            << "x " << x << " y " << y;
}

TEST_P(png_test, bgra_and_bgr_read_back_equal) {
  int const width = GetParam();
  round_trip<R::pixel_bgra_u8>(dir_ / "bgra.png", width, 7, 4);
  round_trip<R::pixel_bgr_u8>(dir_ / "bgr.PNG", width, 5, 3);
}

INSTANTIATE_TEST_SUITE_P(widths, png_test, ::testing::Values(1, 17));

TEST_F(png_test, backslashes_are_part_of_one_file_name) {
  fs::current_path(dir_);
  R::pixel_bgr_u8 pixel{1, 2, 3};
  R::bitmap<R::pixel_bgr_u8> b{};
  R::attach(b, &pixel, 1, 1);
  ASSERT_TRUE(R::io::write(L"d:\\temp\\track2.png", b));
  EXPECT_TRUE(fs::exists(dir_ / "d:\\temp\\track2.png"));
}

TEST_F(png_test, failures_return_false_and_leave_no_file) {
  R::pixel_bgra_u8 pixels[4] = {};
  R::bitmap<R::pixel_bgra_u8> b{};
  R::attach(b, pixels, 2, 2);
  fs::path const missing = dir_ / "no" / "such" / "folder.png";
  EXPECT_FALSE(R::io::write(missing.wstring().c_str(), b));
  EXPECT_FALSE(R::io::write((dir_ / "picture.bmp").wstring().c_str(), b));  // not a type it writes
  EXPECT_FALSE(fs::exists(dir_ / "picture.bmp"));
  EXPECT_FALSE(R::io::write(dir_.wstring().c_str(), b));  // a folder, not a file
}

TEST(convert_line_test, video_range_maps_to_full_range_and_odd_counts_stop_at_the_last_pixel) {
  // Black, white, and saturated primaries of BT.601 video range.
  struct row { R::pixel_ycbcr_u8 in; std::uint8_t r0, g0, b0, r1, g1, b1; };
  row const rows[] = {
      {{128, 16, 128, 235}, 0, 0, 0, 255, 255, 255},
      {{128, 0, 128, 255}, 0, 0, 0, 255, 255, 255},          // beyond the range: clamped
      {{90, 81, 240, 81}, 255, 0, 0, 255, 0, 0},             // red
      {{240, 41, 110, 41}, 0, 0, 255, 0, 0, 255},            // blue
  };
  for (row const &r : rows) {
    R::pixel_bgra_u8 bgra[3];
    R::pixel_bgr_u8 bgr[3] = {{9, 9, 9}, {9, 9, 9}, {9, 9, 9}};
    R::pixel_ycbcr_u8 const line[2] = {r.in, r.in};
    R::convert_line(line, bgra, 3);
    R::convert_line(line, bgr, 2);
    int const want[6] = {r.r0, r.g0, r.b0, r.r1, r.g1, r.b1};
    for (int k = 0; k < 6; ++k) {
      R::pixel_bgra_u8 const &p = bgra[k / 3];
      EXPECT_NEAR(k % 3 == 0 ? p.r : k % 3 == 1 ? p.g : p.b, want[k], 2) << "value " << k;
    }
    EXPECT_EQ(bgra[2].r, bgra[0].r);  // the third pixel is the first of the next element
    EXPECT_EQ(bgra[0].a, 255);
    EXPECT_EQ(bgr[1].r, bgra[1].r);
    EXPECT_EQ(bgr[2].r, 9);  // count 2 writes two pixels
  }
}

}  // namespace
