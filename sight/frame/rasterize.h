// One-pixel straight lines on every bitmap layout.
//
// End points are (x, y) in pixels of the frame (of the luma plane for planar
// layouts) and may lie anywhere, far outside the bitmap included: the line is
// the one through the unclipped end points, and only its pixels inside the
// bitmap are written. For the Y/C layouts the colour is a pixel_ycbcr_u8:
// luma from y0 (y1 on the odd pixel of a 4:2:2 element), chroma from cb, cr.
// A chroma sample is written where the pixel's chroma position lies inside
// the chroma plane.
#ifndef SIGHT_FRAME_RASTERIZE_H_
#define SIGHT_FRAME_RASTERIZE_H_

#include <sight/frame/bitmap.h>
#include <sight/frame/export.h>

namespace Tamarind::Rasters::rasterize {

SIGHT_API void line(bitmap<pixel_bgra_u8> &target, int const *p0,
                    int const *p1, pixel_bgra_u8 color);
SIGHT_API void line(bitmap<pixel_ycbcra_u8> &target, int const *p0,
                    int const *p1, pixel_ycbcra_u8 color);
SIGHT_API void line(bitmap_422<pixel_ycbcr_u8> &target, int const *p0,
                    int const *p1, pixel_ycbcr_u8 color);
SIGHT_API void line(bitmap<pixel_y_u8> &y, bitmap<pixel_cbcr_u8> &cbcr,
                    int const *p0, int const *p1, pixel_ycbcr_u8 color);
SIGHT_API void line(bitmap<pixel_y_u8> &y, bitmap<pixel_cb_u8> &cb,
                    bitmap<pixel_cr_u8> &cr, int const *p0, int const *p1,
                    pixel_ycbcr_u8 color);

}  // namespace Tamarind::Rasters::rasterize

#endif  // SIGHT_FRAME_RASTERIZE_H_
