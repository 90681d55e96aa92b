// Counting kernels and spot geometry of the hot-spot detector (private, not
// installed).
//
// The walk over one row of a clipped rectangle, columns x0 to x1 - 1 counted
// in samples of the layout, is part of what the detector counts:
//   head:  from x0 one sample at a time up to A, x0 rounded up to the group.
//          Only A bounds it, so a rectangle ending before A is walked to A;
//   block: from A, Step samples at a time while the position is before B, x1
//          rounded down to the group. With Step twice the group (BGRA,
//          YCbCrA) the last block may end a group past B;
//   tail:  one sample at a time while the position is before x1.
// Samples read this way right of x1 count like any other. The rows are those
// of the rectangle only.
//
// Buffer end: the bitmap's buffer is taken to end with the last byte of the
// pixels of its last line in memory (line 0 for a negative stride), i.e. at
// max(line(0), line(height - 1)) + line_bytes. No sample of the walk at or
// past that end is read or counted; on a tightly packed bitmap this cuts the
// head and block overrun of its last line. The separate Cb and Cr planes
// each have their own end, and a sample needs both.
//
// Sample test: with (dCb, dCr) the difference from the key, a sample counts
// when dCb * dCb + dCr * dCr > squared radius, strictly, in 32-bit lanes.
#ifndef SIGHT_HOT_SPOTS_EXTRACT_KERNELS_H_
#define SIGHT_HOT_SPOTS_EXTRACT_KERNELS_H_

#include <emmintrin.h>  // __m128i

#include <cstdint>

#include <glm/vec2.hpp>

#include <sight/hot_spots/hot_spots_data.h>
#include <sight/operator/layouts.h>
#include <sight/operator/object_detected.h>

namespace Korvane::Sight {
struct hot_spots;
}

namespace Korvane::Sight::detail {

// The key as the kernels test it: the operator's lanes after its set-up.
struct spot_key {
  __m128i cb_cr;         // Cb in the low, Cr in the high 16 bits of every lane
  __m128i tolerance_sq;  // squared radius in 8-bit chroma levels, every lane
};

// One rectangle's walk: the samples that differ from the key, the area
// (samples of the clipped rectangle, as the layout counts them), and whether
// clipping emptied the rectangle (then nothing was read).
struct spot_count {
  std::int32_t count;
  std::int32_t area;
  bool empty;
};

// Pixel rectangle of a spot, before clipping to the bitmap: (left, top) and
// (right, bottom), right and bottom exclusive.
struct spot_rect {
  glm::ivec2 left_top;
  glm::ivec2 right_bottom;
};

// The rectangles of all eight spots (enabled or not) of a picture of
// width by height pixels shown at `aspect` (0: width / height). Single
// precision throughout: crossed margins are swapped, a half side of 2.5
// pixels or less becomes 2.5, and each edge is rounded half away from zero;
// an edge beyond the int range saturates (NaN gives 0).
void spot_rectangles(hot_spots_data const &settings, int width, int height, float aspect,
                     spot_rect (&rects)[hot_spots_data::no_spots]);

// The detector's decision on one walk: 2 for an empty rectangle, else 2 when
// count < min(threshold, area) as signed 32-bit integers, else 1.
e_object_detected decide(spot_count const &c, std::int32_t threshold);

// The kernels read the key lanes and constant tables of the operator.
// Aligned members require data and |stride| to be multiples of 16 (asserted);
// unaligned members give the same counts on any bitmap.
struct hot_spots_kernels {
  // The operator's set-up and the key it gives, for tests that want the key
  // without a frame.
  static spot_key setup(hot_spots &op);

  // BGRA: one pixel per sample, Cb = (112 B - 74 G - 38 R + 129 * 255) >> 8,
  // Cr = (-18 B - 94 G + 112 R + 129 * 255) >> 8 (alpha forced to 255).
  // Group 4, step 8: the block may read up to 16 bytes past B + 4 pixels.
  template <bool Aligned>
  static spot_count count_spot_bgra(spot_key const &spot, bgra_bitmap const &frame,
                                    glm::ivec2 left_top, glm::ivec2 right_bottom);
  // YCbCrA: bytes 1 and 2 of each pixel. Group 4, step 8.
  template <bool Aligned>
  static spot_count count_spot_ycbcra(spot_key const &spot,
                                      ycbcra_bitmap const &frame,
                                      glm::ivec2 left_top, glm::ivec2 right_bottom);
  // 4:2:2: one sample per pair of pixels (bytes 0 and 2 of Cb Y Cr Y). After
  // the empty tests x0 is rounded up and x1 down to even; area is
  // ((x1 - x0) * (y1 - y0)) / 2. Group and step 8 pairs: no block overrun.
  template <bool Aligned>
  static spot_count count_spot_422(spot_key const &spot,
                                   ycbcr_bitmap const &frame,
                                   glm::ivec2 left_top, glm::ivec2 right_bottom);
  // Interleaved chroma plane: the four edges are halved (toward zero) and
  // clipped to the plane. Group and step 8 samples.
  template <bool Aligned>
  static spot_count count_spot_cbcr(spot_key const &spot, cbcr_bitmap const &cbcr,
                                    glm::ivec2 left_top, glm::ivec2 right_bottom);
  // Separate Cb and Cr planes: as the interleaved plane, clipped to the Cb
  // plane's size, each plane on its own stride. Eight-byte loads need no
  // alignment, so there is one member only.
  static spot_count count_spot_cb_cr(spot_key const &spot, cb_bitmap const &cb,
                                     cr_bitmap const &cr, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom);
};

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_HOT_SPOTS_EXTRACT_KERNELS_H_
