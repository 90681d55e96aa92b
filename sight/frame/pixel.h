// Pixel types of the frame layer. Every channel is an unsigned byte, and the
// members are declared in memory order, so a pixel may be copied byte for byte.
#ifndef SIGHT_FRAME_PIXEL_H_
#define SIGHT_FRAME_PIXEL_H_

#include <cstdint>

namespace Tamarind::Rasters {

// B, G, R, A; alpha 255 is opaque.
struct pixel_bgra_u8 {
  std::uint8_t b, g, r, a;
};

// B, G, R; only a target of conversion and of file output.
struct pixel_bgr_u8 {
  std::uint8_t b, g, r;
};

// Y, Cb, Cr, A.
struct pixel_ycbcra_u8 {
  std::uint8_t y, cb, cr, a;
};

// Two horizontally neighbouring 4:2:2 pixels sharing one chroma pair: chroma
// on the even bytes, luma on the odd bytes. Also the drawing colour for every
// Y/C layout: (128, 255, 128, 255) draws white at 255.
struct pixel_ycbcr_u8 {
  std::uint8_t cb, y0, cr, y1;
};

// Full-resolution luma plane.
struct pixel_y_u8 {
  std::uint8_t y;
};

// Chroma planes of half width and half height.
struct pixel_cb_u8 {
  std::uint8_t cb;
};
struct pixel_cr_u8 {
  std::uint8_t cr;
};

// Interleaved chroma plane of half width and half height.
struct pixel_cbcr_u8 {
  std::uint8_t cb, cr;
};

// Single alpha plane.
struct pixel_a_u8 {
  std::uint8_t a;
};

static_assert(sizeof(pixel_bgra_u8) == 4 && sizeof(pixel_bgr_u8) == 3 &&
              sizeof(pixel_ycbcra_u8) == 4 && sizeof(pixel_ycbcr_u8) == 4 &&
              sizeof(pixel_y_u8) == 1 && sizeof(pixel_cb_u8) == 1 &&
              sizeof(pixel_cr_u8) == 1 && sizeof(pixel_cbcr_u8) == 2 &&
              sizeof(pixel_a_u8) == 1);

}  // namespace Tamarind::Rasters

#endif  // SIGHT_FRAME_PIXEL_H_
