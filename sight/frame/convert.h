// Conversion of 4:2:2 lines to RGB for pictures that a person looks at.
//
// BT.601 video range (luma 16..235, chroma 16..240 around 128), in 8.8 fixed
// point with rounding and clamping to 0..255. `count` is the number of
// pixels; with an odd count only the first pixel of the last element is
// used. Source and target must not overlap. BGRA targets get alpha 255.
#ifndef SIGHT_FRAME_CONVERT_H_
#define SIGHT_FRAME_CONVERT_H_

#include <sight/frame/export.h>
#include <sight/frame/pixel.h>

namespace Tamarind::Rasters {

template <class Source, class Target>
void convert_line(Source const *source, Target *target, int count);

template <>
SIGHT_API void convert_line<pixel_ycbcr_u8, pixel_bgra_u8>(
    pixel_ycbcr_u8 const *source, pixel_bgra_u8 *target, int count);
template <>
SIGHT_API void convert_line<pixel_ycbcr_u8, pixel_bgr_u8>(
    pixel_ycbcr_u8 const *source, pixel_bgr_u8 *target, int count);

}  // namespace Tamarind::Rasters

#endif  // SIGHT_FRAME_CONVERT_H_
