// Procamp kernel of the colour matcher (private, not installed).
//
// Settings become a 3x4 matrix (rows Y, Cb, Cr; columns Y, Cb, Cr, constant)
// through the general form with a hue angle of 0, cosf(0) and sinf(0) taken
// at each call, so that 0 * an infinite or NaN saturation stays NaN:
//
//   Y:  K, 0, 0,            ((B*2 - 1)*K + K)*0.5
//   Cb: 0, cos*S, -(sin*S), (((sin*2*S)*V - sin*S) - (cos*2*S)*U + cos*S - 1)*(-0.5)
//   Cr: 0, sin*S, cos*S,    (((cos*2*S)*V - cos*S) + (sin*2*S)*U - sin*S + 1)*0.5
//
// single precision, left to right as written. The matrix becomes three
// tables of 256 entries, four signed 16-bit lanes each in the order of a
// macro-pixel's bytes (Cb out, Y0 out, Cr out, Y1 out), with five fractional
// bits: entry i is a running float sum (start value, then the step added once
// per entry), converted lane by lane with rounding to nearest, ties to even,
// saturating to 16 bits; NaN and values beyond the 32-bit range give -32768.
//   luma:  start 8160*m[Cb][c], 8160*m[Y][c], 8160*m[Cr][c], 8160*m[Y][c]
//          step  32*m[Cb][Y],   32*m[Y][Y],   32*m[Cr][Y],   32*m[Y][Y]
//   cb:    start 0, step 32*m[Cb][Cb], 32*m[Y][Cb], 32*m[Cr][Cb], 32*m[Y][Cb]
//   cr:    start 0, step 32*m[Cb][Cr], 32*m[Y][Cr], 32*m[Cr][Cr], 32*m[Y][Cr]
#ifndef SIGHT_COLOR_MATCHING_PROCAMP_KERNELS_H_
#define SIGHT_COLOR_MATCHING_PROCAMP_KERNELS_H_

#include <cstdint>

#include <sight/operator/layouts.h>

namespace Korvane::Sight::detail {

struct procamp_settings {
  float brightness;
  float contrast;
  float saturation;
  float u_offset;
  float v_offset;
};

// The three tables, each entry one 8-byte row of four lanes.
struct alignas(16) procamp_tables {
  std::int16_t luma[256][4];
  std::int16_t cb[256][4];
  std::int16_t cr[256][4];
};

void make_procamp_tables(procamp_settings const &settings, procamp_tables &tables);

// Transforms `source` into `destination` macro-pixel by macro-pixel, for
// bytes cb, y0, cr, y1, in 16-bit lanes with saturating additions:
//   sum = cb[cb] + cr[cr]; lanes 0, 1 add luma[y0], lanes 2, 3 add luma[y1]
//   byte = clamp(sum >> 5, 0, 255)    (arithmetic shift: floors)
// Lines 0 to source.height - 1; along a line over 2 * source.width bytes,
// four macro-pixels a step while 16 bytes remain, then one while 4 remain.
// An odd width thus leaves each line's last macro-pixel (only 2 of its bytes
// lie within 2 * width) unread and its 4 destination bytes unwritten. Of
// `destination` only data and stride are used. The source is read in 32-bit
// words at any alignment (two at a time in the four-macro-pixel steps, never
// past them); each four-macro-pixel step issues a non-temporal prefetch 256
// bytes ahead in the source line, held inside the line. Aligned: 16-byte
// aligned stores, which need the destination's data and |stride| to be
// multiples of 16 (asserted). The two members give the same bytes.
template <bool Aligned>
void apply_procamp_422(procamp_tables const &tables, ycbcr_bitmap const &source,
                       ycbcr_bitmap const &destination);

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_COLOR_MATCHING_PROCAMP_KERNELS_H_
