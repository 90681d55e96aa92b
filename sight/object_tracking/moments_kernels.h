// Moment-generation kernels of the tracker (private, not installed).
//
// Each kernel gives every chroma sample of a frame a key weight from 0 to 255
// and stores, for every cell of 8 by 8 samples, the weighted count and the
// first and second moments of the samples' positions in pixels of the frame.
// The preview members also paint the key matte into the frame; apart from
// that the members of one layout give the same grid, bit for bit.
//
// Memory: a kernel reads (and under preview writes) only the whole cells of
// the frame, cells_x by cells_y of them. Columns and lines beyond the last
// whole cell are neither read nor written, so a bitmap needs no padding.
// Alignment: the Aligned members need data and |stride| of every bitmap they
// touch to be multiples of 16 (R::is_aligned); the others take any address.
// Strides may be negative. Rounding: every integer stage is exact, and each
// truncation is named where it happens.
#ifndef SIGHT_OBJECT_TRACKING_MOMENTS_KERNELS_H_
#define SIGHT_OBJECT_TRACKING_MOMENTS_KERNELS_H_

#include <cstdint>

#include <sight/frame/bitmap.h>
#include <sight/operator/layouts.h>

namespace Korvane::Sight::detail {

namespace R = Tamarind::Rasters;

// Where one frame's cell moments go, and the key in lanes. `cells` is element
// (0, 0) of the grid (border included): 8 floats per element (sum_x, sum_y,
// mass, 0, sum_xx, sum_yy, sum_xy, 0), 16-byte aligned; element (i, j) starts
// at (char *)cells + j * stride + i * 32. Kernels write elements
// (i + 1, j + 1) for i < cells_x, j < cells_y only; an empty cell (mass 0)
// gets its first four floats zeroed and its last four left alone.
// key_cbcr (Cb, Cr alternating), key_scale, key_offset: eight uint16 lanes
// each, 16-byte aligned.
struct moment_grid {
  float *cells;
  std::int32_t stride;
  std::int32_t cells_x, cells_y;
  std::uint16_t const *key_cbcr, *key_scale, *key_offset;
};

// Cell of 8 by 8 pixels; chroma from B, G, R by fixed integer coefficients.
// Preview writes every pixel as (c * w) >> 8 per colour, alpha 255.
template <bool Aligned, bool Preview>
void generate_moments_bgra(bgra_bitmap const &, moment_grid const &);

// Cell of 8 by 8 pixels; chroma bytes 1 and 2. Preview blends every byte
// towards black (0, 128, 128, 255) after setting alpha to 255.
template <bool Aligned, bool Preview>
void generate_moments_ycbcra(ycbcra_bitmap const &, moment_grid const &);

// Cell of 8 elements (16 pixels) by 8 lines; one weight per element. Preview
// blends chroma towards 128 and luma towards 16.
template <bool Aligned, bool Preview>
void generate_moments_422(ycbcr_bitmap const &, moment_grid const &);

// Cell of 16 by 16 luma pixels, 8 by 8 chroma pairs of the interleaved
// plane. The luma plane is touched only under preview: (Y * w) >> 8 on the
// 2 by 2 pixels of a sample; chroma blends towards 128.
template <bool Aligned, bool Preview>
void generate_moments_y_cbcr(y_bitmap const &,
                             cbcr_bitmap const &, moment_grid const &);

// Three planes, with preview: as generate_moments_y_cbcr, each chroma plane
// blended by itself.
template <bool Aligned>
void generate_moments_planar_preview(y_bitmap const &,
                                     cb_bitmap const &,
                                     cr_bitmap const &, moment_grid const &);

// Three planes, no preview: reads eight bytes of each chroma plane per cell
// row, which needs no alignment, so there is one member only.
void generate_moments_planar(cb_bitmap const &,
                             cr_bitmap const &, moment_grid const &);

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OBJECT_TRACKING_MOMENTS_KERNELS_H_
