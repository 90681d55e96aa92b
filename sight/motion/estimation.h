// Alignment of two luma pictures by an open-ended Gauss-Newton loop.
//
// The loop looks for the similarity transform (a, b, tx, ty), starting at
// (1, 0, 0, 0), that carries pixel (x, y) of `first` to
// (a·x − b·y + tx, b·x + a·y + ty) in `second`, on the squared grey-value
// difference of all pixels. It never returns. Every iteration
//   - sums, over x in 0..w−2 and y in 0..h−2 of `first` (w, h its size),
//     e = second(px, py) − first(x, y), the forward differences gx, gy of
//     `first` at (x, y), ja = gx·x + gy·y, jb = gy·x − gx·y; the warped place
//     is truncated toward zero and clamped to 0..w−2, 0..h−2 (nearest lower
//     pixel, no interpolation), and products of ja and jb wrap in 32 bits on
//     large pictures, as their defined arithmetic;
//   - writes |e|·4 (at most 255) as a grey BGRA picture of w by h pixels to
//     the file "f:\test.png" in the working directory (the last line and
//     column are never written), whether or not the write succeeds;
//   - prints the energy E = Σ (e·0.5)·e as one "%f\n" line on standard output,
//     flushed at once, so a reader of a pipe sees each line as it comes;
//   - solves the 4×4 normal equations H·d = g (pivots that are negligible
//     beside the largest count as zero, so d stays finite) and moves
//     (a, b, tx, ty) by −d.
// There is no stopping rule. A host runs it where it can be abandoned: in a
// child process that it kills, or on a thread that it never joins. Only the
// data and stride of `second` are read; it must hold at least w − 1 by h − 1
// pixels. The constructor runs the loop, so it never completes either.
#ifndef SIGHT_MOTION_ESTIMATION_H_
#define SIGHT_MOTION_ESTIMATION_H_

#include <sight/frame/export.h>
#include <sight/operator/layouts.h>

namespace Korvane::Sight::motion {

struct SIGHT_API estimation {
  estimation(y_bitmap const &first, y_bitmap const &second);
  estimation(estimation const &) = default;
  // There is nothing to assign.
  estimation &operator=(estimation const &);

  [[noreturn]] void operator()(y_bitmap const &first, y_bitmap const &second);
};

}  // namespace Korvane::Sight::motion

#endif  // SIGHT_MOTION_ESTIMATION_H_
