// Outline display: paints the cropping on the frame as two double-width
// horizontal and two double-width vertical bars that cross the whole frame.
// It marks the area from which a centre is accepted, not the object; the
// result and the aspect ratio are in the signature but not read.
#include <cmath>

#include <sight/frame/rasterize.h>
#include <sight/object_tracking/object_tracking.h>
#include <sight/operator/detail/float_to_int.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;

namespace {

// Far enough outside any frame that the clipped line shows nothing, and far
// enough inside int that xr + 1 cannot overflow: a cropping of absurd size
// (or NaN) still converts to a defined integer.
constexpr int kFar = 1 << 28;

int to_pixel(float v) { return detail::truncate_clamped(v, -kFar, kFar); }

// Draws the eight lines through `draw(p0, p1)`. The second line of each pair
// lies outside the cropped area, so the area keeps its pixels; end points at
// W and H, one past the last column and line, are clipped by the line
// drawer, and so are the lines of a margin of 0 (at -1, -2, W, W + 1 ...).
template <class Draw>
void draw_cropping(int width, int height, float x_min, float x_max, float y_min, float y_max, Draw draw) {
  int const xl = to_pixel(floorf(x_min - 0.5f));
  int const xr = to_pixel(floorf(x_max + 0.5f));
  int const yt = to_pixel(floorf(y_min - 0.5f));
  int const yb = to_pixel(floorf(y_max + 0.5f));
  int const lines[8][4] = {
      {xl, 0, xl, height},         {xl - 1, 0, xl - 1, height}, {xr, 0, xr, height},
      {xr + 1, 0, xr + 1, height}, {0, yt, width, yt},          {0, yt - 1, width, yt - 1},
      {0, yb, width, yb},          {0, yb + 1, width, yb + 1},
  };
  for (auto const &l : lines) draw(&l[0], &l[2]);
}

constexpr R::pixel_ycbcr_u8 kVideoWhite{128, 235, 128, 235};

}  // namespace

void object_tracking::display_outlines(bgra_bitmap &frame, object_tracking_info, float) const {
  draw_cropping(frame.width, frame.height, crop_x_min, crop_x_max, crop_y_min, crop_y_max,
                [&](int const *p0, int const *p1) {
                  R::rasterize::line(frame, p0, p1, R::pixel_bgra_u8{255, 255, 255, 255});
                });
}

void object_tracking::display_outlines(ycbcra_bitmap &frame, object_tracking_info, float) const {
  draw_cropping(frame.width, frame.height, crop_x_min, crop_x_max, crop_y_min, crop_y_max,
                [&](int const *p0, int const *p1) {
                  R::rasterize::line(frame, p0, p1, R::pixel_ycbcra_u8{235, 128, 128, 255});
                });
}

void object_tracking::display_outlines(ycbcr_bitmap &frame, object_tracking_info, float) const {
  draw_cropping(frame.width, frame.height, crop_x_min, crop_x_max, crop_y_min, crop_y_max,
                [&](int const *p0, int const *p1) { R::rasterize::line(frame, p0, p1, kVideoWhite); });
}

void object_tracking::display_outlines(y_bitmap &y, cbcr_bitmap &cbcr,
                                       object_tracking_info, float) const {
  draw_cropping(y.width, y.height, crop_x_min, crop_x_max, crop_y_min, crop_y_max,
                [&](int const *p0, int const *p1) { R::rasterize::line(y, cbcr, p0, p1, kVideoWhite); });
}

void object_tracking::display_outlines(y_bitmap &y, cb_bitmap &cb,
                                       cr_bitmap &cr, object_tracking_info, float) const {
  draw_cropping(y.width, y.height, crop_x_min, crop_x_max, crop_y_min, crop_y_max,
                [&](int const *p0, int const *p1) { R::rasterize::line(y, cb, cr, p0, p1, kVideoWhite); });
}

}  // namespace Korvane::Sight
