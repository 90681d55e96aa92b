// Image statistics of one 4:2:2 picture: scalar single-precision sums with
// the six fields themselves as the accumulators. The order of the additions
// is part of the result (the sums lose low bits at picture sizes), so the
// loops are plain and nothing is regrouped or widened.
#include <sight/color_matching/color_matching.h>

#include <cstdint>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;

namespace {

// The float nearest to 1/255.
constexpr float unit = 1.0f / 255.0f;

}  // namespace

color_matching::image_statistics::image_statistics(ycbcr_bitmap const &picture)
    : y_mean(0.0f), cb_mean(0.0f), cr_mean(0.0f), y_variance(0.0f), cb_variance(0.0f), cr_variance(0.0f) {
  // Every macro-pixel whose start lies before 2 * width bytes: an odd width
  // counts its last macro-pixel, the extra luma included.
  std::int64_t const bytes = 2 * std::int64_t(picture.width);
  for (std::int32_t y = 0; y < picture.height; ++y) {
    auto const *p = reinterpret_cast<std::uint8_t const *>(R::line(picture, y));
    for (std::int64_t x = 0; x < bytes; x += 4) {
      float const cb = p[x], y0 = p[x + 1], cr = p[x + 2], y1 = p[x + 3];
      y_mean += y1 * unit + y0 * unit;
      // One chroma sample stands for two pixels.
      cb_mean += cb * unit * 2.0f;
      cr_mean += cr * unit * 2.0f;
    }
  }
  // The pixel count in 32-bit arithmetic (wrapping rather than undefined
  // past its range); empty pictures give 1/0 = infinity and 0 * inf = NaN.
  std::int32_t const n = std::int32_t(std::uint32_t(picture.height) * std::uint32_t(picture.width));
  float const inverse = 1.0f / float(n);
  y_mean *= inverse;
  cb_mean *= inverse;
  cr_mean *= inverse;
  for (std::int32_t y = 0; y < picture.height; ++y) {
    auto const *p = reinterpret_cast<std::uint8_t const *>(R::line(picture, y));
    for (std::int64_t x = 0; x < bytes; x += 4) {
      float const d0 = float(p[x + 1]) * unit - y_mean;
      float const d1 = float(p[x + 3]) * unit - y_mean;
      float const dcb = float(p[x]) * unit - cb_mean;
      float const dcr = float(p[x + 2]) * unit - cr_mean;
      y_variance += d1 * d1 + d0 * d0;
      cb_variance += (dcb * 2.0f) * dcb;
      cr_variance += (dcr * 2.0f) * dcr;
    }
  }
  // Population variances: divided by the pixel count, not one less.
  y_variance *= inverse;
  cb_variance *= inverse;
  cr_variance *= inverse;
}

color_matching::image_statistics::image_statistics(image_statistics const &other) { *this = other; }

color_matching::image_statistics &color_matching::image_statistics::operator=(image_statistics const &other) {
  y_mean = other.y_mean;
  cb_mean = other.cb_mean;
  cr_mean = other.cr_mean;
  y_variance = other.y_variance;
  cb_variance = other.cb_variance;
  cr_variance = other.cr_variance;
  return *this;
}

}  // namespace Korvane::Sight
