// The five pixel layouts that the operators read, as bitmap types: every
// operator's frame entries and kernels are spelt with these names.
//
//   bgra_bitmap                          B, G, R, A, one pixel a 4-byte element
//   ycbcra_bitmap                        Y, Cb, Cr, A, one pixel a 4-byte element
//   ycbcr_bitmap                         4:2:2, Cb Y0 Cr Y1 for a pair of pixels
//   y_bitmap + cbcr_bitmap               luma plane, interleaved chroma at half
//                                        width and half height
//   y_bitmap + cb_bitmap + cr_bitmap     three planes, chroma halved both ways
//
// a_bitmap is the single alpha plane that the rescaling operations also take.
#ifndef SIGHT_OPERATOR_LAYOUTS_H_
#define SIGHT_OPERATOR_LAYOUTS_H_

#include <sight/frame/bitmap.h>
#include <sight/frame/pixel.h>

namespace Korvane::Sight {

using bgra_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_bgra_u8>;
using ycbcra_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_ycbcra_u8>;
using ycbcr_bitmap = Tamarind::Rasters::bitmap_422<Tamarind::Rasters::pixel_ycbcr_u8>;
using y_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_y_u8>;
using cbcr_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_cbcr_u8>;
using cb_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_cb_u8>;
using cr_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_cr_u8>;
using a_bitmap = Tamarind::Rasters::bitmap<Tamarind::Rasters::pixel_a_u8>;

}  // namespace Korvane::Sight

#endif  // SIGHT_OPERATOR_LAYOUTS_H_
