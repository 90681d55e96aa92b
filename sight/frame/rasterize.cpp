#include <sight/frame/rasterize.h>

#include <algorithm>
#include <cstdint>

namespace Tamarind::Rasters::rasterize {
namespace {

// floor(a / b) for b > 0.
__int128 floor_div(__int128 a, __int128 b) {
  __int128 q = a / b;
  return (a % b != 0 && a < 0) ? q - 1 : q;
}

// Calls plot(x, y) for every pixel of the line from p0 to p1 that lies in
// [0, width) x [0, height). The line steps one pixel along its major axis and
// rounds the minor coordinate to nearest (halves upward):
//   b(a) = b0 + floor((2 db (a - a0) + da) / (2 da)).
// Only the part of the major axis inside the bitmap is walked, so far-away
// end points cost nothing. The quotient and remainder at the first position
// come from one 128-bit division, which keeps any int end points exact; each
// step then adds 2 db to the remainder, and since |db| <= da one correction
// of the quotient at most brings it back into [0, 2 da).
template <class Plot>
void walk(int const *p0, int const *p1, int width, int height, Plot plot) {
  if (width <= 0 || height <= 0) return;
  std::int64_t const dx = std::int64_t(p1[0]) - p0[0];
  std::int64_t const dy = std::int64_t(p1[1]) - p0[1];
  bool const x_major = (dx < 0 ? -dx : dx) >= (dy < 0 ? -dy : dy);
  // Major axis a, minor axis b, walked from the end with the smaller a.
  int const ia = x_major ? 0 : 1, ib = 1 - ia;
  int const *s = p0, *e = p1;
  if (e[ia] < s[ia]) std::swap(s, e);
  std::int64_t const a0 = s[ia], a1 = e[ia], b0 = s[ib];
  std::int64_t const da = a1 - a0, db = std::int64_t(e[ib]) - b0;
  std::int64_t const a_size = x_major ? width : height;
  std::int64_t const b_size = x_major ? height : width;
  std::int64_t const first = std::max<std::int64_t>(a0, 0);
  std::int64_t const last = std::min<std::int64_t>(a1, a_size - 1);
  if (first > last) return;
  // With da = 0 the line is one point (db is 0 too) and b stays b0.
  std::int64_t const den = 2 * da, step = 2 * db;
  std::int64_t q = 0, r = 0;
  if (da != 0) {
    __int128 const n = __int128(step) * (first - a0) + da;
    __int128 const qq = floor_div(n, den);
    q = std::int64_t(qq);
    r = std::int64_t(n - qq * den);
  }
  for (std::int64_t a = first; a <= last; ++a) {
    std::int64_t const b = b0 + q;
    if (b >= 0 && b < b_size) {
      if (x_major)
        plot(int(a), int(b));
      else
        plot(int(b), int(a));
    }
    r += step;
    if (r >= den) {
      r -= den;
      ++q;
    } else if (r < 0) {
      r += den;
      --q;
    }
  }
}

template <class B>
auto *pixel(B &b, int x, int y) {
  return line(b, y) + x;
}

}  // namespace

void line(bitmap<pixel_bgra_u8> &target, int const *p0, int const *p1,
          pixel_bgra_u8 color) {
  walk(p0, p1, target.width, target.height,
       [&](int x, int y) { *pixel(target, x, y) = color; });
}

void line(bitmap<pixel_ycbcra_u8> &target, int const *p0, int const *p1,
          pixel_ycbcra_u8 color) {
  walk(p0, p1, target.width, target.height,
       [&](int x, int y) { *pixel(target, x, y) = color; });
}

void line(bitmap_422<pixel_ycbcr_u8> &target, int const *p0, int const *p1,
          pixel_ycbcr_u8 color) {
  walk(p0, p1, target.width, target.height, [&](int x, int y) {
    pixel_ycbcr_u8 &p = *pixel(target, x / 2, y);
    p.cb = color.cb;
    p.cr = color.cr;
    if (x % 2 == 0)
      p.y0 = color.y0;
    else
      p.y1 = color.y1;
  });
}

void line(bitmap<pixel_y_u8> &y, bitmap<pixel_cbcr_u8> &cbcr, int const *p0,
          int const *p1, pixel_ycbcr_u8 color) {
  walk(p0, p1, y.width, y.height, [&](int px, int py) {
    pixel(y, px, py)->y = color.y0;
    if (px / 2 < cbcr.width && py / 2 < cbcr.height)
      *pixel(cbcr, px / 2, py / 2) = pixel_cbcr_u8{color.cb, color.cr};
  });
}

void line(bitmap<pixel_y_u8> &y, bitmap<pixel_cb_u8> &cb,
          bitmap<pixel_cr_u8> &cr, int const *p0, int const *p1,
          pixel_ycbcr_u8 color) {
  walk(p0, p1, y.width, y.height, [&](int px, int py) {
    pixel(y, px, py)->y = color.y0;
    if (px / 2 < cb.width && py / 2 < cb.height)
      pixel(cb, px / 2, py / 2)->cb = color.cb;
    if (px / 2 < cr.width && py / 2 < cr.height)
      pixel(cr, px / 2, py / 2)->cr = color.cr;
  });
}

}  // namespace Tamarind::Rasters::rasterize
