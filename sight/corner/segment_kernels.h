// Private inner loops of the corner detector: the segment test of one row in
// 16-pixel blocks, and the strength of a corner.
#ifndef SIGHT_CORNER_SEGMENT_KERNELS_H_
#define SIGHT_CORNER_SEGMENT_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include <sight/corner/detection.h>

namespace Korvane::Sight::corner {

// Segment test of one row of a 4:2:2 frame (bytes Cb Y Cr Y), 16 pixels a
// step in signed 8-bit lanes.
//
// Inputs: `row` is the first byte of row y; rows y - 3 to y + 3 must exist at
// `stride` bytes apart. Blocks start at x = 8, 24, 40, ... while x < width - 8,
// and each block is tested whole, so with a width that is not a multiple of 16
// the last block also tests (and may report) columns up to x + 15, reading up
// to 20 bytes past the row's picture bytes; those lie in the frame's next row
// in memory, which always exists for a scanned row.
// Threshold: `th` and `tr` are the signed-byte halves of the threshold; a
// ring pixel is darker when sat(Y7(c) - th) > Y7(p) and brighter when
// Y7(p) > sat(Y7(c) + tr), with Y7 = Y >> 1 and sat saturating to -128..127.
// Pairs of opposite ring positions are loaded only while the rejection
// cascade still has a candidate in the block.
// Alignment: the aligned member needs `row` and `stride` on 16 bytes; it then
// reads the centre row and the top and bottom ring rows with aligned loads.
// Output: one record per corner, ascending x, with its strength, written from
// `out` on; returns the end. The caller provides room for a whole row.
template <bool Aligned>
corner_record *detect_row_422(std::uint8_t const *row, std::ptrdiff_t stride, int width, int y,
                              std::int8_t th, std::int8_t tr, corner_record *out);

// Sum over the 16 ring pixels of |Y(p) - Y(c)| on full 8-bit luma, for
// pixel x of the row that starts at `row`. At most 4080.
int ring_strength(std::uint8_t const *row, std::ptrdiff_t stride, int x);

}  // namespace Korvane::Sight::corner

#endif  // SIGHT_CORNER_SEGMENT_KERNELS_H_
