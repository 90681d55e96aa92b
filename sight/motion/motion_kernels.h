// Private to the library (not installed): the pixel pass of one Gauss-Newton
// iteration of motion::estimation, and the loop with its picture writer as a
// parameter, so that a benchmark can time the loop without the file.
#ifndef SIGHT_MOTION_MOTION_KERNELS_H_
#define SIGHT_MOTION_MOTION_KERNELS_H_

#include <sight/operator/layouts.h>

namespace Korvane::Sight::motion::detail {

// Pixel (x, y) of the first picture goes to (a·x − b·y + tx, b·x + a·y + ty).
struct similarity {
  float a, b, tx, ty;
};

// The sums of one pass. h holds the upper triangle of H row by row: (0,0)
// (0,1) (0,2) (0,3) (1,1) (1,2) (1,3) (2,2) (2,3) (3,3), for the unknowns
// (a, b, tx, ty).
struct normal_sums {
  float h[10];
  float g[4];
  float energy;
};

// One pass over x in 0..w−2, y in 0..h−2 of `first` (w, h its size): the
// fourteen sums and the energy, and the grey |e|·4 pixels of `debug` (which
// has first's size, is 16-byte aligned and is not written in its last line
// and column).
//
// Every sum is one chain of float additions in pixel order, starting at 0,
// of the float conversion of a 32-bit product formed with wrap-around, so
// the result is defined to the bit. The kernel keeps the fifteen chains in
// the lanes of four vectors and adds one pixel's fifteen terms at once, which
// keeps the order of each chain. It works on 16 pixels of a line a step; the
// tail of a line (fewer than 16 pixels with a right neighbour) is copied into
// an aligned temporary and run through the same body, so no byte outside
// `first`'s lines 0..h−1, columns 0..w−1 is read. Of `second` only the
// pixels 0..w−2, 0..h−2 are read: a warped place is truncated toward zero
// and clamped in float, which gives what truncate_saturated followed by the
// clamp to at most w−2 (h−2) and then at least 0 gives, NaN giving 0.
// Aligned member: first's data and |stride| are multiples of 16.
template <bool Aligned>
normal_sums accumulate(y_bitmap const &first, y_bitmap const &second, similarity const &p,
                       bgra_bitmap &debug);

// Writes the debug picture; the result is ignored.
using picture_writer = bool (*)(wchar_t const *path, bgra_bitmap const &picture);

// The estimation loop, with `write` in place of the file output. Never returns.
[[noreturn]] void run(y_bitmap const &first, y_bitmap const &second, picture_writer write);

}  // namespace Korvane::Sight::motion::detail

#endif  // SIGHT_MOTION_MOTION_KERNELS_H_
