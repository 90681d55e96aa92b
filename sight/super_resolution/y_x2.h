// Vertical times-two operations on interlaced video with a slope-limited
// filter.
//
// Field 0 of a frame is its lines 0, 2, 4, ..., field 1 its lines 1, 3, 5,
// ...; a field bitmap holds the lines of one field one after the other.
// Every byte of a pixel is filtered as a column of its own, alpha and chroma
// exactly like luma, and there is no motion detection.
//
//   f0_to_f1(s, d)   d[k] = avg(lower(k), upper(k+1)), d[h-1] = s[h-1]:
//                    field 0 moved to the line positions of field 1.
//   f1_to_f0(s, d)   d[0] = s[0], d[k] = avg(lower(k-1), upper(k)):
//                    the same on bottom-up views of both bitmaps.
//   rescale(s, d, is_f0)
//                    a field into a frame of twice its height; the source
//                    lines keep their place, the in-between lines are
//                    filtered, and the frame line with one neighbour only
//                    repeats it.
//   decomb(frame)    field 1 rebuilt in place from field 0; an odd last
//                    line is neither read nor changed.
//   decomb(s, d)     the same picture into another bitmap (odd source lines
//                    are not read); when s and d have the same data and
//                    stride, it is decomb(d).
//
// Sizes: the destination should be as high as the source (twice as high for
// rescale) and as wide. Nothing is reported, but nothing outside a bitmap is
// written either: a smaller destination gets only the lines and the bytes of
// a line that it has (the source is cut to them), and the bytes that the
// filter may leave behind a line's end (up to three, with byte widths that
// are not a multiple of 4) are written only where they fall inside the
// destination's lines or the gaps between them, never behind the line that
// lies last in memory. A negative stride works everywhere.
//
// All operations are static; the type holds no data.
#ifndef SIGHT_SUPER_RESOLUTION_Y_X2_H_
#define SIGHT_SUPER_RESOLUTION_Y_X2_H_

#include <sight/frame/export.h>
#include <sight/operator/layouts.h>

namespace Korvane::Sight::super_resolution {

struct SIGHT_API y_x2 {
  y_x2() = default;
  y_x2(y_x2 const &) = default;
  // There is nothing to assign.
  y_x2 &operator=(y_x2 const &);

  // Luma plane: the byte width is the width.
  static void f0_to_f1(y_bitmap const &source, y_bitmap &destination);
  static void f1_to_f0(y_bitmap const &source, y_bitmap &destination);
  static void rescale(y_bitmap const &source, y_bitmap &destination, bool is_f0);
  static void decomb(y_bitmap const &source, y_bitmap &destination);
  static void decomb(y_bitmap &frame);

  // One-byte planes: alpha, Cb, Cr.
  static void f0_to_f1(a_bitmap const &source, a_bitmap &destination);
  static void f1_to_f0(a_bitmap const &source, a_bitmap &destination);
  static void rescale(a_bitmap const &source, a_bitmap &destination, bool is_f0);
  static void decomb(a_bitmap const &source, a_bitmap &destination);
  static void decomb(a_bitmap &frame);

  static void f0_to_f1(cb_bitmap const &source, cb_bitmap &destination);
  static void f1_to_f0(cb_bitmap const &source, cb_bitmap &destination);
  static void rescale(cb_bitmap const &source, cb_bitmap &destination, bool is_f0);
  static void decomb(cb_bitmap const &source, cb_bitmap &destination);
  static void decomb(cb_bitmap &frame);

  static void f0_to_f1(cr_bitmap const &source, cr_bitmap &destination);
  static void f1_to_f0(cr_bitmap const &source, cr_bitmap &destination);
  static void rescale(cr_bitmap const &source, cr_bitmap &destination, bool is_f0);
  static void decomb(cr_bitmap const &source, cr_bitmap &destination);
  static void decomb(cr_bitmap &frame);

  // Interleaved chroma plane: two bytes per pixel.
  static void f0_to_f1(cbcr_bitmap const &source, cbcr_bitmap &destination);
  static void f1_to_f0(cbcr_bitmap const &source, cbcr_bitmap &destination);
  static void rescale(cbcr_bitmap const &source, cbcr_bitmap &destination, bool is_f0);
  static void decomb(cbcr_bitmap const &source, cbcr_bitmap &destination);
  static void decomb(cbcr_bitmap &frame);

  // Four bytes per pixel: B, G, R, A and Y, Cb, Cr, A.
  static void f0_to_f1(bgra_bitmap const &source, bgra_bitmap &destination);
  static void f1_to_f0(bgra_bitmap const &source, bgra_bitmap &destination);
  static void rescale(bgra_bitmap const &source, bgra_bitmap &destination, bool is_f0);
  static void decomb(bgra_bitmap const &source, bgra_bitmap &destination);
  static void decomb(bgra_bitmap &frame);

  static void f0_to_f1(ycbcra_bitmap const &source, ycbcra_bitmap &destination);
  static void f1_to_f0(ycbcra_bitmap const &source, ycbcra_bitmap &destination);
  static void rescale(ycbcra_bitmap const &source, ycbcra_bitmap &destination, bool is_f0);
  static void decomb(ycbcra_bitmap const &source, ycbcra_bitmap &destination);
  static void decomb(ycbcra_bitmap &frame);

  // 4:2:2: whole macro-pixels of four bytes, so an odd width also filters
  // the half-used last one.
  static void f0_to_f1(ycbcr_bitmap const &source, ycbcr_bitmap &destination);
  static void f1_to_f0(ycbcr_bitmap const &source, ycbcr_bitmap &destination);
  static void rescale(ycbcr_bitmap const &source, ycbcr_bitmap &destination, bool is_f0);
  static void decomb(ycbcr_bitmap const &source, ycbcr_bitmap &destination);
  static void decomb(ycbcr_bitmap &frame);
};

}  // namespace Korvane::Sight::super_resolution

#endif  // SIGHT_SUPER_RESOLUTION_Y_X2_H_
