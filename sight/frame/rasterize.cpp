#include <sight/frame/rasterize.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Tamarind::Rasters::rasterize {
namespace {

// floor(a / b) for b > 0.
__int128 floor_div(__int128 a, __int128 b) {
  __int128 q = a / b;
  return (a % b != 0 && a < 0) ? q - 1 : q;
}

// A line cut to the bitmap's range of its major axis a: a runs from first to
// last, the minor coordinate is b, and r is the remainder of its rounding,
// in [0, den). Each step adds `step` to r, and one correction of b at most
// brings r back into range, since |step| <= den.
struct span {
  bool x_major;
  std::int64_t first, last, b, r, step, den, b_size;

  void advance() {
    r += step;
    if (r >= den) {
      r -= den;
      ++b;
    } else if (r < 0) {
      r += den;
      --b;
    }
  }
};

// The span of the line from p0 to p1 in a width x height bitmap, or false
// when none of it is inside. The line steps one pixel along its major axis
// and rounds the minor coordinate to nearest (halves upward):
//   b(a) = b0 + floor((2 db (a - a0) + da) / (2 da)).
// Only the part of the major axis inside the bitmap is walked, so far-away
// end points cost nothing. The quotient and remainder at the first position
// come from one 128-bit division, which keeps any int end points exact (a
// line that starts inside needs none).
bool cut(int const *p0, int const *p1, int width, int height, span &s) {
  if (width <= 0 || height <= 0) return false;
  std::int64_t const dx = std::int64_t(p1[0]) - p0[0];
  std::int64_t const dy = std::int64_t(p1[1]) - p0[1];
  s.x_major = (dx < 0 ? -dx : dx) >= (dy < 0 ? -dy : dy);
  // Major axis a, minor axis b, walked from the end with the smaller a.
  int const ia = s.x_major ? 0 : 1, ib = 1 - ia;
  if (p1[ia] < p0[ia]) std::swap(p0, p1);
  std::int64_t const a0 = p0[ia], a1 = p1[ia], b0 = p0[ib];
  std::int64_t const da = a1 - a0, db = std::int64_t(p1[ib]) - b0;
  s.b_size = s.x_major ? height : width;
  s.first = std::max<std::int64_t>(a0, 0);
  s.last = std::min<std::int64_t>(a1, (s.x_major ? width : height) - 1);
  if (s.first > s.last) return false;
  // With da = 0 the line is one point (db is 0 too) and b stays b0.
  s.den = 2 * da;
  s.step = 2 * db;
  s.b = b0;
  s.r = 0;
  // Starting inside, the quotient is 0 and the remainder da.
  if (da != 0 && s.first == a0) {
    s.r = da;
  } else if (da != 0) {
    __int128 const n = __int128(s.step) * (s.first - a0) + da;
    __int128 const q = floor_div(n, s.den);
    s.b += std::int64_t(q);
    s.r = std::int64_t(n - q * s.den);
  }
  return true;
}

// Calls plot(x, y) for every pixel of the line from p0 to p1 that lies in
// [0, width) x [0, height).
template <class Plot>
void walk(int const *p0, int const *p1, int width, int height, Plot plot) {
  span s;
  if (!cut(p0, p1, width, height, s)) return;
  for (std::int64_t a = s.first; a <= s.last; ++a, s.advance()) {
    if (s.b < 0 || s.b >= s.b_size) continue;
    if (s.x_major)
      plot(int(a), int(s.b));
    else
      plot(int(s.b), int(a));
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

// The 4:2:2 line, walked with the direction of its minor axis fixed (Up:
// step >= 0, so b only grows) so that a step is one test of the remainder,
// with b's range checked only where b can leave it, and with the pixel's
// place kept as a line pointer and a column instead of being formed anew.
// A pixel is its element's two chroma bytes and its own luma byte.
template <bool XMajor, bool Up>
void walk_422(span s, std::uint8_t *data, std::ptrdiff_t stride, pixel_ycbcr_u8 color) {
  std::int64_t a = s.first, b = s.b, r = s.r;
  std::int64_t const step = s.step, b_size = s.b_size;
  // Both outcomes of a step formed side by side from r, so that a step
  // costs two dependent operations.
  std::int64_t const over = Up ? step - s.den : step + s.den;
  auto advance = [&] {
    std::int64_t const plain = r + step, moved = r + over;
    bool const move = Up ? moved >= 0 : plain < 0;
    r = move ? moved : plain;
    return std::int64_t(move);
  };
  // Up to the first pixel inside; from then on only the far edge counts.
  while (a <= s.last && (Up ? b < 0 : b >= b_size)) b += Up ? advance() : -advance(), ++a;
  if (a > s.last || std::uint64_t(b) >= std::uint64_t(b_size)) return;
  // The pixel's column x and its line's first byte; minor is b, x
  // (column-major) or the line (row-major).
  std::uint64_t x = std::uint64_t(XMajor ? a : b);
  std::int64_t minor = b;
  std::uint8_t *line = data + (XMajor ? b : a) * stride;
  std::ptrdiff_t const b_line = Up ? stride : -stride;
  std::uint8_t const cb = color.cb, cr = color.cr, y0 = color.y0, y1 = color.y1;
  // A pixel of known parity is two stores: its luma with the chroma byte
  // before it, and the element's other chroma byte.
  std::uint8_t const even_pair[2] = {cb, y0}, odd_pair[2] = {cr, y1};
  std::uint16_t even_word, odd_word;
  std::memcpy(&even_word, even_pair, 2);
  std::memcpy(&odd_word, odd_pair, 2);
  auto put = [&](std::uint8_t *p, bool odd) {
    if (odd) {
      p[0] = cb;
      std::memcpy(p + 2, &odd_word, 2);
    } else {
      std::memcpy(p, &even_word, 2);
      p[2] = cr;
    }
  };
  auto plot_as = [&](bool odd) { put(line + (x >> 1) * 4, odd); };
  auto plot = [&] { plot_as(x & 1); };
  auto next = [&] {
    std::int64_t const move = advance();
    minor += Up ? move : -move;
    if constexpr (XMajor) {
      ++x;
      line += b_line & -move;
    } else {
      x = std::uint64_t(minor);
      line += stride;
    }
  };
  plot();
  // b moves by one at most a step, so the next `room` steps cannot take it
  // out of its range: they run without the test.
  for (std::int64_t n = s.last - a; n > 0;) {
    std::int64_t const room = Up ? b_size - 1 - minor : minor;
    if (room == 0) {
      std::int64_t const move = advance();
      if (move) return;
      if constexpr (XMajor) {
        ++x;
      } else {
        line += stride;
      }
      plot();
      --n;
      continue;
    }
    std::int64_t k = room < n ? room : n;
    n -= k;
    if constexpr (XMajor) {
      // x goes up by one a step: from an odd x on, pixels come in pairs of
      // an even and an odd one, whose luma bytes are known without a test.
      if (!(x & 1)) next(), plot_as(true), --k;
      // The pairs walk their element's place itself: the next element, and
      // a line further where b moves.
      if (k >= 2) {
        std::uint8_t *element = line + (x >> 1) * 4;
        std::int64_t const pairs = k / 2;
        std::int64_t moves = 0;
        for (std::int64_t i = 0; i < pairs; ++i) {
          std::int64_t const even = advance();
          element += 4 + (b_line & -even);
          put(element, false);
          std::int64_t const odd = advance();
          element += b_line & -odd;
          put(element, true);
          moves += even + odd;
        }
        k -= 2 * pairs;
        x += std::uint64_t(2 * pairs);
        minor += Up ? moves : -moves;
        line = element - (x >> 1) * 4;
      }
      if (k != 0) next(), plot_as(false);
    } else {
      do {
        next();
        plot();
      } while (--k != 0);
    }
  }
}

void line(bitmap_422<pixel_ycbcr_u8> &target, int const *p0, int const *p1,
          pixel_ycbcr_u8 color) {
  span s;
  if (!cut(p0, p1, target.width, target.height, s)) return;
  auto *const data = reinterpret_cast<std::uint8_t *>(target.data);
  std::ptrdiff_t const stride = target.stride;
  if (s.x_major)
    (s.step >= 0 ? walk_422<true, true> : walk_422<true, false>)(s, data, stride, color);
  else
    (s.step >= 0 ? walk_422<false, true> : walk_422<false, false>)(s, data, stride, color);
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
