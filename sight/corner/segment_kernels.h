// Private inner loops of the corner detector: the segment test of a frame in
// 16-pixel blocks, and the strength of a corner.
#ifndef SIGHT_CORNER_SEGMENT_KERNELS_H_
#define SIGHT_CORNER_SEGMENT_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include <sight/corner/detection.h>

namespace Korvane::Sight::corner {

// Called before each scanned row with the end of the records so far; returns
// where to go on writing (the storage may have moved), with room for a row.
using reserve_fn = corner_record *(*)(void *context, corner_record *last);

// Segment test of a 4:2:2 frame (bytes Cb Y Cr Y), 16 pixels a step in
// signed 8-bit lanes.
//
// Rows 8 to height - 9 are scanned. Blocks start at x = 8, 24, 40, ... while
// x < width - 8, and each block is tested whole, so with a width that is not
// a multiple of 16 the last block also tests (and may report) columns up to
// x + 15 <= width + 6.
// Threshold: `th` and `tr` are the signed-byte halves of the threshold; a
// ring pixel is darker when sat(Y7(c) - th) > Y7(p) and brighter when
// Y7(p) > sat(Y7(c) + tr), with Y7 = Y >> 1 and sat saturating to -128..127.
// The halved luma of the seven rows around the centre row is kept in a
// rolling window on the stack (7 * (16 * ceil((x_last + 19) / 16) + 16)
// bytes), each row converted once, in 16-pixel pieces that cover columns 0
// to x_last + 23 (row y + 3 while row y is tested, piece by piece with the
// first test of each block). The last piece reads at most 30 bytes past a
// row's picture bytes; for every row that is read, those lie in the frame's
// next row in memory, so nothing outside the frame is touched. While row
// y + 3 is halved, the same bytes of row y + 4 (at most row height - 5) are
// prefetched.
// Every block first gets a branch-free test of positions 0, 4, 8 and 12
// (nine contiguous positions take in two neighbours among them, so a corner
// of one kind has that kind at one of 0 and 8 and at one of 4 and 12). For
// the blocks that pass, the pairs of the cascade are loaded step by step
// over a list of the row's blocks, only for blocks whose running mask is
// still non-zero, so a block leaves the cascade the moment its mask is zero,
// with no further load. Each ring position is kept as a byte a pixel (bit 0
// darker, bit 1 brighter), so that the cascade's ANDs and ORs run on both
// kinds at once. The list and the blocks' states (bounds, running mask, the
// positions loaded) take 308 bytes a block on the stack, besides the window.
// The centre row and the top and bottom ring rows are read from the window
// with aligned loads.
// Strength: for each corner one 16-byte load from each of the frame rows
// y - 3 to y + 3, from the byte of column x - 3 on (row y one byte later),
// so up to byte 2x + 10 of the row: 23 bytes past the row's picture bytes at
// most for the last block, which again lie in the frame's next row in memory.
// Alignment: the aligned member needs `data` and `stride` on 16 bytes and
// then converts the rows with aligned loads.
// Output: one record per corner, by row, then ascending x, with its strength.
template <bool Aligned>
corner_record *detect_422(std::uint8_t const *data, std::ptrdiff_t stride, int width, int height,
                          std::int8_t th, std::int8_t tr, corner_record *out, reserve_fn reserve,
                          void *context);

// Sum over the 16 ring pixels of |Y(p) - Y(c)| on full 8-bit luma, for
// pixel x of the row that starts at `row`. At most 4080. Reads bytes
// 2x - 6 to 2x + 10 of the rows y - 3 to y + 3 (see above).
int ring_strength(std::uint8_t const *row, std::ptrdiff_t stride, int x);

}  // namespace Korvane::Sight::corner

#endif  // SIGHT_CORNER_SEGMENT_KERNELS_H_
