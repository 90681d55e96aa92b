// Picture quality of field-to-frame rescaling: field 0 (the even lines) of a
// progressive grey picture is made into a frame again, and the frame is
// compared with the original by PSNR. Three ways: the slope-limited filter of
// y_x2::rescale, line doubling (each field line twice), and the plain mean of
// neighbouring field lines (halves up, the last line repeated). Used by the
// quality test and by the benchmark program, which prints the table.
#ifndef TESTS_SUPER_RESOLUTION_QUALITY_H_
#define TESTS_SUPER_RESOLUTION_QUALITY_H_

#include <sight/super_resolution/y_x2.h>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace sr_quality {

struct psnr_row {
  std::string name;
  double filter = 0, doubling = 0, averaging = 0;  // dB
};

// Photographs of the installed wallpaper packages.
inline std::vector<std::string> photographs() {
  return {"/usr/share/wallpapers/Autumn/contents/images/1920x1080.jpg",
          "/usr/share/backgrounds/mate/nature/Blinds.jpg", "/usr/share/backgrounds/mate/nature/Dune.jpg"};
}

// Grey picture of an even number of lines, or an empty one when unreadable.
inline cv::Mat load_grey(std::string const &path) {
  cv::Mat m = cv::imread(path, cv::IMREAD_GRAYSCALE);
  if (m.empty()) return m;
  return m.rowRange(0, m.rows / 2 * 2).clone();
}

// Horizontal bands of random height (1 to 12 lines) and level, every third
// one a vertical ramp: sharp horizontal edges and smooth stretches.
inline cv::Mat synthetic_bands(int width, int height, std::uint32_t seed) {
  cv::Mat m(height, width, CV_8UC1);
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> level(0, 255), lines(1, 12);
  int y = 0, band = 0;
  while (y < height) {
    int const n = lines(rng), a = level(rng), b = level(rng);
    for (int i = 0; i < n && y < height; ++i, ++y) {
      int const v = band % 3 == 2 ? a + (b - a) * i / n : a;
      // A slow horizontal variation so that columns differ.
      for (int x = 0; x < width; ++x) m.at<std::uint8_t>(y, x) = std::uint8_t((v * 7 + x * 255 / width) / 8);
    }
    ++band;
  }
  return m;
}

inline psnr_row measure(std::string const &name, cv::Mat const &picture) {
  namespace R = Tamarind::Rasters;
  int const w = picture.cols, h = picture.rows / 2;
  // Field 0 as a view: every second line of the picture.
  R::bitmap<R::pixel_y_u8> field{reinterpret_cast<R::pixel_y_u8 *>(picture.data), w, h,
                                 int(picture.step) * 2, false};
  cv::Mat filtered(2 * h, w, CV_8UC1), doubled(2 * h, w, CV_8UC1), averaged(2 * h, w, CV_8UC1);
  R::bitmap<R::pixel_y_u8> frame{reinterpret_cast<R::pixel_y_u8 *>(filtered.data), w, 2 * h, int(filtered.step),
                                 false};
  Korvane::Sight::super_resolution::y_x2::rescale(field, frame, true);
  for (int y = 0; y < h; ++y) {
    std::uint8_t const *a = picture.ptr<std::uint8_t>(2 * y);
    std::uint8_t const *b = picture.ptr<std::uint8_t>(y + 1 < h ? 2 * y + 2 : 2 * y);
    for (int x = 0; x < w; ++x) {
      doubled.at<std::uint8_t>(2 * y, x) = doubled.at<std::uint8_t>(2 * y + 1, x) = a[x];
      averaged.at<std::uint8_t>(2 * y, x) = a[x];
      averaged.at<std::uint8_t>(2 * y + 1, x) = std::uint8_t((a[x] + b[x] + 1) >> 1);
    }
  }
  return psnr_row{name, cv::PSNR(picture, filtered), cv::PSNR(picture, doubled), cv::PSNR(picture, averaged)};
}

}  // namespace sr_quality

#endif  // TESTS_SUPER_RESOLUTION_QUALITY_H_
