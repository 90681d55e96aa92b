// Kernels of the chamfer tracker (private, not installed): the block scan
// that opens the distance transform, and the search for a region's edge
// along one ray.
#ifndef SIGHT_OBJECT_TRACKING_2_CHAMFER_KERNELS_H_
#define SIGHT_OBJECT_TRACKING_2_CHAMFER_KERNELS_H_

#include <cstdint>

#include <emmintrin.h>  // __m128i

#include <sight/operator/layouts.h>

namespace Korvane::Sight::detail {

// Forward pass of the distance transform. The frame is cut into blocks of
// 32 bytes (8 pixel pairs) by 8 lines, cols = width / 16 by rows = height / 8;
// pixels right of cols * 16 and lines below rows * 8 are not read. A block's
// sum is that of |Cb - key_cb| + |Cr - key_cr| over its 64 pairs, exact
// (key_cbcr holds (key_cr << 16) | key_cb in every 32-bit lane). A block whose
// sum is below `limit` (strictly) matches: cell (bx + 1, by + 1) of `map`
// becomes 1 plus the least of its cells above-left, above, above-right and
// left, in 8 bits; any other block's cell becomes 0. `map` must have at least
// cols + 2 columns and rows + 2 lines; only the inner cells are written.
// Aligned: data and stride of the frame are multiples of 16.
template <bool Aligned>
void chamfer_pass_1(ycbcr_bitmap const &frame, __m128i key_cbcr, int limit, y_bitmap &map);

// One line of the backward pass of the distance transform: for x from w-2
// down to 2, cell[x] becomes min(cell[x], 1 + the least of below[x-1],
// below[x], below[x+1] and cell[x+1]), cell[x+1] being already done; cells 0,
// 1 and w-1 are read, not written. Reads below[1..w-1] and cell[2..w-1].
// Returns the largest value of cell[2..w-2] afterwards (0 if w < 4).
int chamfer_row_2(std::uint8_t *cell, std::uint8_t const *below, int w);

// What the edge search reads: the frame and the key.
struct edge_probe {
  unsigned char const *data;
  int stride;
  int width, height;  // pixels and lines: probes outside do not match
  int key_cb, key_cr, key_tolerance;
};

// Marches from `start` by `step` (pixels) until a probe leaves the region or
// a coordinate passes its limit (lx, ly; or 0 going left or up), which is
// then set to the limit: x is tested before y, and only the first found is
// set. Then bisects the last step in 16.16 fixed point until both coordinates
// of the bracket lie within one pixel, and writes the outer end to `end`.
// A position (x, y) matches when the pair holding pixel x >> 16 of line
// y >> 16 has |dCb| + |dCr| below key_tolerance. A zero step returns at once
// with `end` untouched.
//
// Edge of the frame: when x was set to its limit, y may still lie outside
// the frame, and the bisection would probe lines that are not the frame's;
// likewise a probe right of the last pixel. A probe whose pixel lies outside
// the frame's columns 0..width-1 or lines 0..height-1 counts as not
// matching, so nothing outside the frame is read, and such a ray ends at
// most one pixel past the frame.
void find_edge(edge_probe const &probe, int const start[2], int const step[2], int lx, int ly, int end[2]);

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OBJECT_TRACKING_2_CHAMFER_KERNELS_H_
