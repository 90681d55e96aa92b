#include <sight/frame/convert.h>

#include <cstdint>

namespace Tamarind::Rasters {
namespace {

std::uint8_t clamp255(int v) {
  return std::uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

// 298 = 1.164 * 256 scales video-range luma to full range; 409, 100, 208 and
// 516 are the BT.601 chroma weights times 256.
template <class Target>
void put(Target &t, int y, int cb, int cr) {
  int const c = 298 * (y - 16) + 128, d = cb - 128, e = cr - 128;
  t.r = clamp255((c + 409 * e) >> 8);
  t.g = clamp255((c - 100 * d - 208 * e) >> 8);
  t.b = clamp255((c + 516 * d) >> 8);
}

template <class Target>
void convert(pixel_ycbcr_u8 const *source, Target *target, int count) {
  for (int x = 0; x < count; ++x) {
    pixel_ycbcr_u8 const &s = source[x / 2];
    put(target[x], x % 2 == 0 ? s.y0 : s.y1, s.cb, s.cr);
  }
}

}  // namespace

template <>
void convert_line<pixel_ycbcr_u8, pixel_bgra_u8>(pixel_ycbcr_u8 const *source,
                                                 pixel_bgra_u8 *target,
                                                 int count) {
  convert(source, target, count);
  for (int x = 0; x < count; ++x) target[x].a = 255;
}

template <>
void convert_line<pixel_ycbcr_u8, pixel_bgr_u8>(pixel_ycbcr_u8 const *source,
                                                pixel_bgr_u8 *target,
                                                int count) {
  convert(source, target, count);
}

}  // namespace Tamarind::Rasters
