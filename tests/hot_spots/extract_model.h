// Scalar model of the hot-spot counter: what each of the five `extract`
// members of hot_spots counts for one rectangle, and the set-up arithmetic
// that turns the settings into the key. Written from the formulas with plain
// int loops and no intrinsics, and sharing nothing with the kernels, so that a
// misreading on either side shows up as a mismatch in the tests.
//
// make_key gives the set-up's key; make_plane one bitmap as the kernel sees
// it, whose `end` is the end of the line last in memory (line 0 for a
// negative stride), all the kernel can know of the caller's buffer. The
// extract_* members take the rectangle extract receives, in picture pixels.
//
// Counting rule, per member. After clipping (and for 4:2:2 rounding x0 up and
// x1 down to even; for the two chroma-plane members halving left, right, top,
// bottom toward zero before clipping to the plane), every row y0..y1-1 is
// walked in sample units (pixels; pairs for 4:2:2; plane samples for 4:2:0):
//   head  x = x0 .. A-1, A = x0 rounded up to the group. It ignores x1, so a
//         rectangle ending before A is still walked up to A.
//   block while x < B (B = x1 rounded down to the group): samples x .. x+step-1,
//         then x += step. BGRA and YCbCrA have group 4 and step 8 and so may
//         overrun B by 4; the others have group = step = 8 and cannot.
//   tail  x .. x1-1, one at a time.
// Samples are visited left to right; each passes when
// dCb * dCb + dCr * dCr > radius2 (strictly), and the count is the number
// that pass. Overrun samples (head beyond x1, block beyond B) are read at
// their byte address in the row, beyond the width if need be, which on all
// but the last line in memory is padding or the next line.
//
// Edge of memory: a sample whose bytes would not all lie before `end` is
// neither read nor counted; every other sample of the walk counts as usual.
// The element is 4 bytes for BGRA, YCbCrA and 4:2:2 (the whole Cb Y Cr Y
// group), 2 for CbCr, and 1 in each of the Cb and Cr planes, each checked
// against its own plane's end. Only the head and the block overrun can reach
// that far, and only on the last line in memory of a bitmap whose line does
// not reach a multiple of the group.
//
// Area and decision: area = (x1-x0) * (y1-y0), for 4:2:2 halved (truncated);
// the value is 2 when count < min(threshold, area), else 1.
#ifndef SIGHT_TESTS_HOT_SPOTS_EXTRACT_MODEL_H_
#define SIGHT_TESTS_HOT_SPOTS_EXTRACT_MODEL_H_

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace hot_spots_model {

// The key in 8-bit chroma, as the set-up leaves it for the kernels.
struct key {
  int cb;
  int cr;
  int radius2;    // squared tolerance; a sample must lie strictly beyond it
  int threshold;  // samples that must differ for a spot to count as covered
};

// The rectangle as extract receives it, in picture pixels, half open.
struct rect {
  int left, top, right, bottom;
};

// One bitmap: first line, signed stride in bytes, size in its own units, and
// the first byte the walk may not touch.
struct plane {
  std::uint8_t const *data;
  int stride;
  int width;
  int height;
  std::uint8_t const *end;
};

struct outcome {
  int count;  // samples of the walk that differ from the key
  int area;   // samples of the rectangle proper
  int value;  // 1 covered, 2 not covered or empty
};

// ---------------------------------------------------------------- set-up

// An element of 255 * matrix, the float product formed first as the scaled
// matrix holds it. Each chroma row is then summed in the written order, the
// constant column and 0.5 last. Clamping before the truncation gives the same
// integers as clamping after and keeps the conversion defined for any input;
// NaN ends up as 0.
inline float scaled(float m) { return 255.0f * m; }

inline int reference_cb(float r, float g, float b) {
  float const m10 = scaled(-0.148f), m11 = scaled(-0.291f),
              m12 = scaled(0.439f), m13 = scaled(0.502f);
  float const v = m10 * r + m11 * g + m12 * b + m13 + 0.5f;
  if (!(v > 0.0f)) return 0;
  if (v >= 255.0f) return 255;
  return int(v);
}

inline int reference_cr(float r, float g, float b) {
  float const m20 = scaled(0.439f), m21 = scaled(-0.368f),
              m22 = scaled(-0.071f), m23 = scaled(0.502f);
  float const v = m20 * r + m21 * g + m22 * b + m23 + 0.5f;
  if (!(v > 0.0f)) return 0;
  if (v >= 255.0f) return 255;
  return int(v);
}

// Squared radius in 8-bit chroma levels. r is squared as it stands, so a
// negative r (smoothness wider than the tolerance) grows the radius again.
// The truncation saturates at INT_MAX (no sample can pass then: the largest
// squared distance is 2 * 255 * 255) and takes NaN to 0.
inline int tolerance_sq(float tolerance_c, float smoothness) {
  float s = smoothness * 0.3f;
  if (s < 0.0001f) s = 0.0001f;
  float t = tolerance_c * 0.5f;
  if (t < 0.0f) t = 0.0f;
  float const r = t - s * 0.5f;
  float const v = std::floor(r * r * 255.0f * 255.0f) + 0.5f;
  if (v != v) return 0;
  if (v >= 2147483648.0f) return INT_MAX;
  return int(v);
}

inline key make_key(float r, float g, float b, float tolerance_c,
                    float smoothness, int threshold) {
  return key{reference_cb(r, g, b), reference_cr(r, g, b),
             tolerance_sq(tolerance_c, smoothness), threshold};
}

// ---------------------------------------------------------------- samples

// Chroma of a BGRA pixel with the hot spots' integer coefficients; alpha is
// taken as 255 whatever the byte holds. The sum is never negative.
inline int cb_of_bgra(int b, int g, int r) {
  return (112 * b - 74 * g - 38 * r + 129 * 255) >> 8;
}
inline int cr_of_bgra(int b, int g, int r) {
  return (-18 * b - 94 * g + 112 * r + 129 * 255) >> 8;
}

inline bool differs(int cb, int cr, key const &k) {
  int const dcb = cb - k.cb;
  int const dcr = cr - k.cr;
  return dcb * dcb + dcr * dcr > k.radius2;
}

// The end of the line that lies last in memory.
inline std::uint8_t const *extent_end(std::uint8_t const *data, int stride,
                                      int height, int line_bytes) {
  if (height <= 0) return data;
  std::ptrdiff_t const last =
      stride >= 0 ? std::ptrdiff_t(height - 1) * stride : 0;
  return data + last + line_bytes;
}

inline plane make_plane(std::uint8_t const *data, int stride, int width,
                        int height, int line_bytes) {
  return plane{data, stride, width, height,
               extent_end(data, stride, height, line_bytes)};
}

// Line bytes of each layout, for make_plane.
inline int line_bytes_bgra(int width) { return width * 4; }
inline int line_bytes_ycbcra(int width) { return width * 4; }
inline int line_bytes_422(int width) { return ((width + 1) / 2) * 4; }
inline int line_bytes_cbcr(int width) { return width * 2; }
inline int line_bytes_plane(int width) { return width; }

// ---------------------------------------------------------------- walk

// The three stages over one row, calling visit(x) for each sample position
// in the order the walk takes them; visit returns 1 for a counted sample.
template <class Visit>
int walk_row(int x0, int x1, int group, int step, Visit visit) {
  int count = 0;
  int x = x0;
  int const a = (x0 + group - 1) / group * group;
  for (; x < a; ++x) count += visit(x);
  int const b = x1 / group * group;
  while (x < b) {
    for (int i = 0; i < step; ++i) count += visit(x + i);
    x += step;
  }
  for (; x < x1; ++x) count += visit(x);
  return count;
}

// Start of line y and the bytes from there to the end of the buffer.
inline std::uint8_t const *line_of(plane const &p, int y) {
  return p.data + std::ptrdiff_t(y) * p.stride;
}
inline bool inside(plane const &p, std::uint8_t const *line, int offset,
                   int bytes) {
  return std::ptrdiff_t(offset) + bytes <= p.end - line;
}

inline int max_of(int a, int b) { return a > b ? a : b; }
inline int min_of(int a, int b) { return a < b ? a : b; }

inline outcome decide(int count, int area, int threshold) {
  return outcome{count, area, count < min_of(threshold, area) ? 2 : 1};
}

// BGRA and YCbCrA differ only in how a pixel becomes chroma.
template <bool Bgra>
outcome extract_four_byte(plane const &p, rect r, key const &k) {
  int const x0 = max_of(r.left, 0), x1 = min_of(r.right, p.width);
  if (x1 <= x0) return outcome{0, 0, 2};
  int const y0 = max_of(r.top, 0), y1 = min_of(r.bottom, p.height);
  if (y1 <= y0) return outcome{0, 0, 2};
  int count = 0;
  for (int y = y0; y < y1; ++y) {
    std::uint8_t const *line = line_of(p, y);
    count += walk_row(x0, x1, 4, 8, [&](int x) {
      if (!inside(p, line, x * 4, 4)) return 0;
      std::uint8_t const *px = line + x * 4;
      if (Bgra) {
        int const b = px[0], g = px[1], rr = px[2];
        return differs(cb_of_bgra(b, g, rr), cr_of_bgra(b, g, rr), k) ? 1 : 0;
      }
      return differs(px[1], px[2], k) ? 1 : 0;
    });
  }
  return decide(count, (y1 - y0) * (x1 - x0), k.threshold);
}

inline outcome extract_bgra(plane const &p, rect r, key const &k) {
  return extract_four_byte<true>(p, r, k);
}

inline outcome extract_ycbcra(plane const &p, rect r, key const &k) {
  return extract_four_byte<false>(p, r, k);
}

// 4:2:2: p.width counts pixels; the walk runs over pairs (x / 2), reading Cb
// at byte 0 and Cr at byte 2 of each four-byte group.
inline outcome extract_422(plane const &p, rect r, key const &k) {
  int x0 = max_of(r.left, 0), x1 = min_of(r.right, p.width);
  if (x1 <= x0) return outcome{0, 0, 2};
  int const y0 = max_of(r.top, 0), y1 = min_of(r.bottom, p.height);
  if (y1 <= y0) return outcome{0, 0, 2};
  x0 = (x0 + 1) / 2 * 2;
  x1 = x1 / 2 * 2;
  int count = 0;
  for (int y = y0; y < y1; ++y) {
    std::uint8_t const *line = line_of(p, y);
    count += walk_row(x0 / 2, x1 / 2, 8, 8, [&](int x) {
      if (!inside(p, line, x * 4, 4)) return 0;
      return differs(line[x * 4], line[x * 4 + 2], k) ? 1 : 0;
    });
  }
  return decide(count, ((x1 - x0) * (y1 - y0)) / 2, k.threshold);
}

// Interleaved chroma plane of half size: the rectangle is halved toward zero
// and then clipped to the plane.
inline outcome extract_cbcr(plane const &p, rect r, key const &k) {
  int const x0 = max_of(r.left / 2, 0), x1 = min_of(r.right / 2, p.width);
  if (x1 <= x0) return outcome{0, 0, 2};
  int const y0 = max_of(r.top / 2, 0), y1 = min_of(r.bottom / 2, p.height);
  if (y1 <= y0) return outcome{0, 0, 2};
  int count = 0;
  for (int y = y0; y < y1; ++y) {
    std::uint8_t const *line = line_of(p, y);
    count += walk_row(x0, x1, 8, 8, [&](int x) {
      if (!inside(p, line, x * 2, 2)) return 0;
      return differs(line[x * 2], line[x * 2 + 1], k) ? 1 : 0;
    });
  }
  return decide(count, (y1 - y0) * (x1 - x0), k.threshold);
}

// Separate Cb and Cr planes: the geometry is the Cb plane's; each plane is
// addressed by its own stride and bounded by its own end.
inline outcome extract_cb_cr(plane const &cb, plane const &cr, rect r,
                             key const &k) {
  int const x0 = max_of(r.left / 2, 0), x1 = min_of(r.right / 2, cb.width);
  if (x1 <= x0) return outcome{0, 0, 2};
  int const y0 = max_of(r.top / 2, 0), y1 = min_of(r.bottom / 2, cb.height);
  if (y1 <= y0) return outcome{0, 0, 2};
  int count = 0;
  for (int y = y0; y < y1; ++y) {
    std::uint8_t const *line_cb = line_of(cb, y);
    std::uint8_t const *line_cr = line_of(cr, y);
    count += walk_row(x0, x1, 8, 8, [&](int x) {
      if (!inside(cb, line_cb, x, 1) || !inside(cr, line_cr, x, 1)) return 0;
      return differs(line_cb[x], line_cr[x], k) ? 1 : 0;
    });
  }
  return decide(count, (y1 - y0) * (x1 - x0), k.threshold);
}

}  // namespace hot_spots_model

#endif  // SIGHT_TESTS_HOT_SPOTS_EXTRACT_MODEL_H_
