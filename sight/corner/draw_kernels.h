// Private drawing routines of the corner visualisation, reachable by tests.
#ifndef SIGHT_CORNER_DRAW_KERNELS_H_
#define SIGHT_CORNER_DRAW_KERNELS_H_

#include <sight/frame/bitmap.h>
#include <sight/frame/pixel.h>

namespace Korvane::Sight::corner {

// Sets pixel (x, y) to neutral chroma (128) and `luma` when it lies inside
// the bitmap; a pixel outside is skipped.
void set_pixel_422(Tamarind::Rasters::bitmap_422<Tamarind::Rasters::pixel_ycbcr_u8> &target,
                   long long x, long long y, unsigned char luma);

// One-pixel line from (x0, y0) to (x1, y1), both ends included, by a
// differential analyser in 16.16 fixed point (held in 64 bits, which gives
// the 32-bit results for every coordinate within +-32767 and no overflow
// beyond): the
// end points are swapped so that the major axis runs forward, the minor
// coordinate steps by (d_minor * 65536) / d_major truncated toward zero, and
// each pixel takes accumulator >> 16 (arithmetic), so lines lie up to one
// pixel toward the negative side. Clipped pixel by pixel; only the part of
// the major axis inside the bitmap is walked, with the accumulator advanced
// to it, which gives the same pixels. Coinciding end points (a step of 0/0)
// set that one pixel.
void draw_line_422(Tamarind::Rasters::bitmap_422<Tamarind::Rasters::pixel_ycbcr_u8> &target,
                   int x0, int y0, int x1, int y1, unsigned char luma);

}  // namespace Korvane::Sight::corner

#endif  // SIGHT_CORNER_DRAW_KERNELS_H_
