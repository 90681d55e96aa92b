// Slope-limited line kernels of the times-two operator (private, not
// installed).
//
// Both kernels work on byte views (`width` is bytes per line, line i starts at
// data + i * stride, the stride may be negative) and filter every byte column
// by itself. For source line y the taps are above = line max(y-1, 0),
// centre = line y, below = line min(y+1, h-1). A line is split into two
// half-lines whose sum is 2 * centre:
//   off a slope (centre outside [min(above, below), max(above, below)]):
//     upper = lower = centre
//   on a slope, |above - centre| <= |below - centre|:
//     upper = above,               lower = 2 * centre - above
//   on a slope otherwise:
//     upper = 2 * centre - below,  lower = below
// and an in-between line is avg(lower(y), upper(y+1)), avg(u, v) being
// (u + v + 1) >> 1.
//
// Only `width` and `height` of the source are read; of the destination only
// `data` and `stride`. A source height below 1 writes nothing.
//
// Walk: 16 columns at a time while 16 remain, then 4 (32-bit words), then 1.
// A 1-column step widens each byte it reads to a 32-bit word whose three
// upper bytes are fill(v) (0xFF for v >= 128, else 0), runs the same byte
// arithmetic on all four, and stores the whole word. So the last width % 4
// columns of every destination line each write three bytes past themselves,
// and the last one writes up to three bytes past the line's end. Inside the
// line the next step overwrites them, except in the line under read-back,
// where the next 1-column step reads them back: the last one or two columns
// of each in-between line then come out as avg(g, upper) (width % 4 of 2 or
// 3), g being the fill arithmetic of the column before.
//
// `spill_end` bounds those stores: a byte of a 1-column word at or past it is
// not written. The caller passes the end of the destination memory it owns,
// so that a line whose three bytes behind it do not exist (the last line of a
// tightly packed bitmap) loses that part of the word, and nothing outside the
// caller's memory is ever written. Bytes behind a line that lie inside that
// memory (padding, or the first bytes of the next line in memory) are
// written, and a later read-back sees them.
//
// Two walks give these bytes. The step-by-step walk does each source line
// in turn as described: the carry between source lines is the read-back of
// the destination, and every step issues a non-temporal prefetch 512 bytes
// ahead in the below line, clamped to that line's last byte. Where the
// read-back provably returns what was stored (byte width a multiple of 4,
// so no 1-column steps, and no destination line meeting a source line or
// another destination line; interleaved lines such as in-place de-combing
// qualify), a fused walk runs instead: it goes down bands of eight output
// lines 16 columns at a time, keeps the carry and the line differences in
// registers and stores each finished line once. It issues no prefetch (on
// 1080-line frames in cache the hardware's own did better). Either way no
// scratch memory is used.
//
// Members: SourceAligned and DestinationAligned pick 16-byte aligned loads
// (and stores) for the 16-column steps of that view, which then must pass the
// aligned test (data and |stride| multiples of 16). All four members give the
// same bytes.
#ifndef SIGHT_SUPER_RESOLUTION_LINE_KERNELS_H_
#define SIGHT_SUPER_RESOLUTION_LINE_KERNELS_H_

#include <cstdint>

#include <sight/frame/bitmap.h>

namespace Korvane::Sight::super_resolution::detail {

namespace R = Tamarind::Rasters;

using byte_view = R::bitmap<R::pixel_y_u8>;

// Writes destination lines 0 to h-1: line k = avg(lower(k), upper(k+1)) for
// k <= h-2, line h-1 = lower(h-1) = source line h-1. Source line y is done in
// one step: line y-1 is read back and finished, then line y gets lower(y).
template <bool SourceAligned, bool DestinationAligned>
void shift_half_line(byte_view const &source, byte_view const &destination,
                     std::uint8_t const *spill_end);

// Writes destination lines 0 to 2h-1: line 2y = source line y, line 2y+1 =
// avg(lower(y), upper(y+1)) for y <= h-2, line 2h-1 = source line h-1. Per
// source line the stores go to lines 2y-1 (read back), 2y+1, 2y, in that
// order.
template <bool SourceAligned, bool DestinationAligned>
void double_lines(byte_view const &source, byte_view const &destination,
                  std::uint8_t const *spill_end);

}  // namespace Korvane::Sight::super_resolution::detail

#endif  // SIGHT_SUPER_RESOLUTION_LINE_KERNELS_H_
