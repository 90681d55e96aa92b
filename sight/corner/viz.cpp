#include <sight/corner/detection.h>
#include <sight/corner/draw_kernels.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Korvane::Sight::corner {

namespace rasters = Tamarind::Rasters;

void set_pixel_422(rasters::bitmap_422<rasters::pixel_ycbcr_u8> &target, long long x, long long y,
                   unsigned char luma) {
  if (x < 0 || y < 0 || x >= target.width || y >= target.height) return;
  auto *p = reinterpret_cast<std::uint8_t *>(target.data) + std::ptrdiff_t(y) * target.stride +
            2 * std::ptrdiff_t(x);
  p[0] = 128;  // Cb for an even x, Cr for an odd one: marks are neutral grey
  p[1] = luma;
}

void draw_line_422(rasters::bitmap_422<rasters::pixel_ycbcr_u8> &target, int x0, int y0, int x1,
                   int y1, unsigned char luma) {
  std::int64_t dx = std::int64_t(x1) - x0;
  std::int64_t dy = std::int64_t(y1) - y0;
  if ((dx < 0 ? -dx : dx) > (dy < 0 ? -dy : dy)) {
    if (dx < 0) {
      std::swap(x0, x1);
      std::swap(y0, y1);
      dx = -dx;
      dy = -dy;
    }
    std::int64_t const step = dy * 65536 / dx;
    std::int64_t const first = std::max<std::int64_t>(x0, 0);
    std::int64_t const last = std::min<std::int64_t>(x1, std::int64_t(target.width) - 1);
    std::int64_t acc = std::int64_t(y0) * 65536 + step * (first - x0);
    for (std::int64_t x = first; x <= last; ++x, acc += step) set_pixel_422(target, x, acc >> 16, luma);
  } else {
    if (dy < 0) {
      std::swap(x0, x1);
      std::swap(y0, y1);
      dx = -dx;
      dy = -dy;
    }
    // dy is 0 only when dx is too: the one pixel needs no step.
    std::int64_t const step = dy == 0 ? 0 : dx * 65536 / dy;
    std::int64_t const first = std::max<std::int64_t>(y0, 0);
    std::int64_t const last = std::min<std::int64_t>(y1, std::int64_t(target.height) - 1);
    std::int64_t acc = std::int64_t(x0) * 65536 + step * (first - y0);
    for (std::int64_t y = first; y <= last; ++y, acc += step) set_pixel_422(target, acc >> 16, y, luma);
  }
}

void detection::viz(frame_type &frame) const {
  for (corner_record const *f = features.first; f != features.last; ++f) {
    long long const x = f->x;
    long long const y = f->y;
    auto const s = static_cast<unsigned char>(std::min<int>(255, f->strength));
    for (long long k = 0; k <= 4; ++k) {
      // Black on both sides of each grey pixel of the row, then the grey.
      set_pixel_422(frame, x - 1 - k, y - k, 0);
      set_pixel_422(frame, x + 1 - k, y - k, 0);
      set_pixel_422(frame, x - 1 + k, y - k, 0);
      set_pixel_422(frame, x + 1 + k, y - k, 0);
      set_pixel_422(frame, x - 1 - k, y + k, 0);
      set_pixel_422(frame, x + 1 - k, y + k, 0);
      set_pixel_422(frame, x - 1 + k, y + k, 0);
      set_pixel_422(frame, x + 1 + k, y + k, 0);
      set_pixel_422(frame, x - k, y - k, s);
      set_pixel_422(frame, x + k, y - k, s);
      set_pixel_422(frame, x - k, y + k, s);
      set_pixel_422(frame, x + k, y + k, s);
    }
  }
}

namespace {

// Copies `source` into `view`, a window of the canvas with the canvas's
// stride. Equal strides copy in one go, carrying the source's bytes between
// lines along as a whole-buffer copy does; the run stops at the end of the
// source's last line and never passes `canvas_end`, so that neither the
// source's memory nor the canvas is overrun (a window that starts inside a
// row would otherwise end past the canvas). Other strides copy line by line.
void copy_into_canvas(detection::frame_type const &view, detection::frame_type const &source,
                      std::uint8_t const *canvas_end) {
  std::int64_t const bytes = rasters::line_bytes(view);
  if (view.height <= 0 || bytes <= 0 || source.data == nullptr) return;
  auto *to = reinterpret_cast<std::uint8_t *>(view.data);
  if (view.stride == source.stride && view.stride >= bytes) {
    std::int64_t n = std::int64_t(view.height - 1) * view.stride + bytes;
    n = std::min<std::int64_t>(n, canvas_end - to);
    std::memcpy(to, source.data, std::size_t(n));
  } else {
    for (std::int32_t y = 0; y < view.height; ++y)
      std::memcpy(rasters::line(view, y), rasters::line(source, y), std::size_t(bytes));
  }
}

}  // namespace

void detection::viz(frame_type &canvas, frame_type const &left, frame_type const &right,
                    matches_type const &matches) const {
  int const width = left.width + right.width + 16;
  int const height = std::max(left.height, right.height);
  // Without a canvas there is nothing to show: the copies are skipped rather
  // than made into buffers of their own that would be thrown away.
  if (!rasters::allocate(canvas, width, height) || canvas.data == nullptr) return;

  auto *base = reinterpret_cast<std::uint8_t *>(canvas.data);
  std::uint8_t const *const canvas_end = base + std::ptrdiff_t(canvas.height) * canvas.stride;
  for (int y = 0; y < canvas.height; ++y) {
    auto *p = reinterpret_cast<std::uint8_t *>(rasters::line(canvas, y));
    // Whole pairs only: an odd last pixel keeps what it had.
    for (int i = 0; i < canvas.width / 2; ++i, p += 4) {
      p[0] = 128;
      p[1] = 0;
      p[2] = 128;
      p[3] = 0;
    }
  }

  frame_type view{};
  rasters::attach(view, canvas.data, left.width, left.height, canvas.stride);
  copy_into_canvas(view, left, canvas_end);
  // Column left.width + 16, rounded down to a whole pair.
  rasters::attach(view, reinterpret_cast<rasters::pixel_ycbcr_u8 *>(
                            base + std::ptrdiff_t((left.width + 16) / 2) * 4),
                  right.width, right.height, canvas.stride);
  copy_into_canvas(view, right, canvas_end);

  int const o = left.width + 16;
  for (auto const &[a, b] : matches) {
    int const x1 = a.first, y1 = a.second;
    int const x3 = b.first + o, y2 = b.second;
    draw_line_422(canvas, x1 - 1, y1, x3 - 1, y2, 16);
    draw_line_422(canvas, x1 + 1, y1, x3 + 1, y2, 16);
    draw_line_422(canvas, x1, y1 - 1, x3, y2 - 1, 16);
    draw_line_422(canvas, x1, y1 + 1, x3, y2 + 1, 16);
    draw_line_422(canvas, x1, y1, x3, y2, 255);
  }
}

}  // namespace Korvane::Sight::corner
