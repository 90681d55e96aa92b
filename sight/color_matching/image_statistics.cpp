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

// v * unit for every byte, the same float products the formulas take, looked
// up instead of converted and multiplied per sample.
struct unit_table {
  float of[256];
  constexpr unit_table() : of() {
    for (int v = 0; v < 256; ++v) of[v] = float(v) * unit;
  }
};
constexpr unit_table scaled;

}  // namespace

// The sums run in locals that stand for the fields one for one (the same
// float operations in the same order); kept in registers, the three chains
// of a pass advance side by side in one walk over the picture.
color_matching::image_statistics::image_statistics(ycbcr_bitmap const &picture) {
  float const *const k = scaled.of;
  float y_sum = 0.0f, cb_sum = 0.0f, cr_sum = 0.0f;
  // Every macro-pixel whose start lies before 2 * width bytes: an odd width
  // counts its last macro-pixel, the extra luma included.
  std::int64_t const bytes = 2 * std::int64_t(picture.width);
  for (std::int32_t y = 0; y < picture.height; ++y) {
    auto const *p = reinterpret_cast<std::uint8_t const *>(R::line(picture, y));
    for (std::int64_t x = 0; x < bytes; x += 4) {
      y_sum += k[p[x + 3]] + k[p[x + 1]];
      // One chroma sample stands for two pixels.
      cb_sum += k[p[x]] * 2.0f;
      cr_sum += k[p[x + 2]] * 2.0f;
    }
  }
  // The pixel count in 32-bit arithmetic (wrapping rather than undefined
  // past its range); empty pictures give 1/0 = infinity and 0 * inf = NaN.
  std::int32_t const n = std::int32_t(std::uint32_t(picture.height) * std::uint32_t(picture.width));
  float const inverse = 1.0f / float(n);
  float const y_m = y_sum * inverse, cb_m = cb_sum * inverse, cr_m = cr_sum * inverse;
  float y_var = 0.0f, cb_var = 0.0f, cr_var = 0.0f;
  for (std::int32_t y = 0; y < picture.height; ++y) {
    auto const *p = reinterpret_cast<std::uint8_t const *>(R::line(picture, y));
    for (std::int64_t x = 0; x < bytes; x += 4) {
      float const d0 = k[p[x + 1]] - y_m;
      float const d1 = k[p[x + 3]] - y_m;
      float const dcb = k[p[x]] - cb_m;
      float const dcr = k[p[x + 2]] - cr_m;
      y_var += d1 * d1 + d0 * d0;
      cb_var += (dcb * 2.0f) * dcb;
      cr_var += (dcr * 2.0f) * dcr;
    }
  }
  y_mean = y_m;
  cb_mean = cb_m;
  cr_mean = cr_m;
  // Population variances: divided by the pixel count, not one less.
  y_variance = y_var * inverse;
  cb_variance = cb_var * inverse;
  cr_variance = cr_var * inverse;
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
