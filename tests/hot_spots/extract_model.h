// Scalar model of the hot-spot counter: the set-up's key, and what each of
// the five `extract` members counts for one rectangle. Plain int loops, no
// intrinsics, nothing shared with the kernels.
//
// After clipping (4:2:2: x0 rounded up and x1 down to even; the chroma-plane
// members halve the four edges toward zero before clipping to the plane),
// every row y0..y1-1 is walked in samples (pixels; pairs for 4:2:2; plane
// samples for the half-size planes):
//   head  x = x0 .. A-1, A = x0 rounded up to the group; it ignores x1;
//   block while x < B (x1 rounded down to the group): samples x .. x+step-1,
//         then x += step (BGRA and YCbCrA: group 4, step 8, so it may overrun
//         B by 4; the others group = step = 8);
//   tail  x .. x1-1.
// A sample counts when dCb * dCb + dCr * dCr > radius2. Overrun samples are
// read at their byte address in the row (padding or the next line), except
// that a sample whose bytes do not all lie before the plane's `end` (the end
// of the line last in memory) is neither read nor counted: 4 bytes for BGRA,
// YCbCrA and 4:2:2, 2 for CbCr, 1 in each of the Cb and Cr planes.
// Area = (x1-x0) * (y1-y0), halved (truncated) for 4:2:2; the value is 2
// when count < min(threshold, area), else 1; an empty rectangle gives 0, 0, 2.
#ifndef SIGHT_TESTS_HOT_SPOTS_EXTRACT_MODEL_H_
#define SIGHT_TESTS_HOT_SPOTS_EXTRACT_MODEL_H_

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace hot_spots_model {

struct key {
  int cb, cr;
  int radius2;    // squared tolerance; a sample must lie strictly beyond it
  int threshold;  // samples that must differ for a spot to count as covered
};

struct rect {
  int left, top, right, bottom;  // picture pixels, half open
};

// One bitmap: first line, signed stride, size in its own units, and the
// first byte the walk may not touch.
struct plane {
  std::uint8_t const *data;
  int stride, width, height;
  std::uint8_t const *end;
};

struct outcome {
  int count, area, value;  // value: 1 covered, 2 not covered or empty
};

// Chroma of the key: 255 * matrix element formed first, each row summed in
// the written order with the constant column and 0.5 last, then clamped
// (NaN to 0) and truncated.
inline int reference(float m0, float m1, float m2, float r, float g, float b) {
  float const v = (255.0f * m0) * r + (255.0f * m1) * g + (255.0f * m2) * b + 255.0f * 0.502f + 0.5f;
  return !(v > 0.0f) ? 0 : v >= 255.0f ? 255 : int(v);
}

// Squared radius in 8-bit chroma levels. r is squared as it stands, so a
// negative r (smoothness wider than the tolerance) grows the radius again.
// Saturates at INT_MAX; NaN gives 0.
inline int tolerance_sq(float tolerance_c, float smoothness) {
  float s = smoothness * 0.3f;
  if (s < 0.0001f) s = 0.0001f;
  float t = tolerance_c * 0.5f;
  if (t < 0.0f) t = 0.0f;
  float const r = t - s * 0.5f;
  float const v = std::floor(r * r * 255.0f * 255.0f) + 0.5f;
  return v != v ? 0 : v >= 2147483648.0f ? INT_MAX : int(v);
}

inline key make_key(float r, float g, float b, float tolerance_c, float smoothness, int threshold) {
  return key{reference(-0.148f, -0.291f, 0.439f, r, g, b), reference(0.439f, -0.368f, -0.071f, r, g, b),
             tolerance_sq(tolerance_c, smoothness), threshold};
}

inline plane make_plane(std::uint8_t const *data, int stride, int width, int height, int line_bytes) {
  std::ptrdiff_t const last = stride >= 0 && height > 0 ? std::ptrdiff_t(height - 1) * stride : 0;
  return plane{data, stride, width, height, data + (height > 0 ? last + line_bytes : 0)};
}

inline bool differs(int cb, int cr, key const &k) {
  return (cb - k.cb) * (cb - k.cb) + (cr - k.cr) * (cr - k.cr) > k.radius2;
}

// Sample x of line y, `bytes` long, or null where it would not all lie
// before the plane's end.
inline std::uint8_t const *at(plane const &p, int y, int x, int bytes) {
  std::uint8_t const *line = p.data + std::ptrdiff_t(y) * p.stride;
  return std::ptrdiff_t(x + 1) * bytes <= p.end - line ? line + x * bytes : nullptr;
}

// The walk over rows y0..y1-1 of samples x0..x1-1 as described above;
// counts(y, x) tells whether a sample counts.
template <class Counts>
int walk(int x0, int x1, int y0, int y1, int group, int step, Counts counts) {
  int n = 0;
  for (int y = y0; y < y1; ++y) {
    int x = x0;
    for (int const a = (x0 + group - 1) / group * group; x < a; ++x) n += counts(y, x);
    for (int const b = x1 / group * group; x < b; x += step)
      for (int i = 0; i < step; ++i) n += counts(y, x + i);
    for (; x < x1; ++x) n += counts(y, x);
  }
  return n;
}

inline outcome decide(int count, int area, int threshold) {
  return outcome{count, area, count < (threshold < area ? threshold : area) ? 2 : 1};
}

// The clipped rectangle: false when it is empty. `half` halves the edges first.
inline bool clip(rect r, int width, int height, bool half, int &x0, int &x1, int &y0, int &y1) {
  int const d = half ? 2 : 1;
  x0 = r.left / d > 0 ? r.left / d : 0, x1 = r.right / d < width ? r.right / d : width;
  y0 = r.top / d > 0 ? r.top / d : 0, y1 = r.bottom / d < height ? r.bottom / d : height;
  return x0 < x1 && y0 < y1;
}

// BGRA: chroma by the hot spots' integer coefficients, alpha taken as 255.
inline outcome extract_bgra(plane const &p, rect r, key const &k) {
  int x0, x1, y0, y1;
  if (!clip(r, p.width, p.height, false, x0, x1, y0, y1)) return {0, 0, 2};
  int const n = walk(x0, x1, y0, y1, 4, 8, [&](int y, int x) {
    std::uint8_t const *px = at(p, y, x, 4);
    if (px == nullptr) return false;
    int const b = px[0], g = px[1], rr = px[2];
    return differs((112 * b - 74 * g - 38 * rr + 129 * 255) >> 8, (-18 * b - 94 * g + 112 * rr + 129 * 255) >> 8, k);
  });
  return decide(n, (y1 - y0) * (x1 - x0), k.threshold);
}

inline outcome extract_ycbcra(plane const &p, rect r, key const &k) {
  int x0, x1, y0, y1;
  if (!clip(r, p.width, p.height, false, x0, x1, y0, y1)) return {0, 0, 2};
  int const n = walk(x0, x1, y0, y1, 4, 8, [&](int y, int x) {
    std::uint8_t const *px = at(p, y, x, 4);
    return px != nullptr && differs(px[1], px[2], k);
  });
  return decide(n, (y1 - y0) * (x1 - x0), k.threshold);
}

// 4:2:2: p.width counts pixels; the walk runs over pairs, Cb at byte 0 and
// Cr at byte 2 of each four-byte group.
inline outcome extract_422(plane const &p, rect r, key const &k) {
  int x0, x1, y0, y1;
  if (!clip(r, p.width, p.height, false, x0, x1, y0, y1)) return {0, 0, 2};
  x0 = (x0 + 1) / 2 * 2, x1 = x1 / 2 * 2;
  int const n = walk(x0 / 2, x1 / 2, y0, y1, 8, 8, [&](int y, int x) {
    std::uint8_t const *el = at(p, y, x, 4);
    return el != nullptr && differs(el[0], el[2], k);
  });
  return decide(n, ((x1 - x0) * (y1 - y0)) / 2, k.threshold);
}

inline outcome extract_cbcr(plane const &p, rect r, key const &k) {
  int x0, x1, y0, y1;
  if (!clip(r, p.width, p.height, true, x0, x1, y0, y1)) return {0, 0, 2};
  int const n = walk(x0, x1, y0, y1, 8, 8, [&](int y, int x) {
    std::uint8_t const *s = at(p, y, x, 2);
    return s != nullptr && differs(s[0], s[1], k);
  });
  return decide(n, (y1 - y0) * (x1 - x0), k.threshold);
}

// Separate planes: the geometry is the Cb plane's; each plane is addressed
// by its own stride and bounded by its own end.
inline outcome extract_cb_cr(plane const &cb, plane const &cr, rect r, key const &k) {
  int x0, x1, y0, y1;
  if (!clip(r, cb.width, cb.height, true, x0, x1, y0, y1)) return {0, 0, 2};
  int const n = walk(x0, x1, y0, y1, 8, 8, [&](int y, int x) {
    std::uint8_t const *b = at(cb, y, x, 1), *c = at(cr, y, x, 1);
    return b != nullptr && c != nullptr && differs(*b, *c, k);
  });
  return decide(n, (y1 - y0) * (x1 - x0), k.threshold);
}

}  // namespace hot_spots_model

#endif  // SIGHT_TESTS_HOT_SPOTS_EXTRACT_MODEL_H_
