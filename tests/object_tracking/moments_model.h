// Scalar model of the tracker's moment generation, one sample at a time with
// plain int loops and nothing shared with the kernels.
//
// make_key gives the set-up's key (reference chroma, slope `scale` in 1/256,
// weight at distance 0 `offset`); key_lanes lays it out as the kernels read
// it. moments_<layout> fills the grid: `width` and `height` are those of the
// first bitmap in pixels; cells are 8 by 8 samples; `cells` is element (0, 0)
// of the (cells_x + 2) by (cells_y + 2) grid, element (i, j) 8 floats (sum_x,
// sum_y, mass, 0, sum_xx, sum_yy, sum_xy, 0) at (char *)cells +
// j * cells_stride + i * 32, and only elements (i + 1, j + 1) are written.
// Only whole cells are read, and written under `preview`; without preview
// the luma plane of the plane layouts is not touched.
#ifndef SIGHT_TESTS_OBJECT_TRACKING_MOMENTS_MODEL_H_
#define SIGHT_TESTS_OBJECT_TRACKING_MOMENTS_MODEL_H_

#include <cstddef>
#include <cstdint>

namespace moments_model {

struct key {
  int cb, cr, scale, offset;
};

struct cbcr {
  int cb, cr;
};

// Truncation toward zero followed by a clamp to [0, hi]. Clamping first keeps
// the float-to-int conversion defined; for finite values the result is the
// same. NaN gives 0; +inf gives hi.
inline int truncate_clamped(float v, int hi) { return !(v >= 0.0f) ? 0 : v >= float(hi) ? hi : int(v); }

// Reference chroma from the float matrix scaled by 255 element by element,
// then the key curve: a weight that falls in a straight line from 255 at
// distance lo to 0 at distance hi. Every product and sum is single precision,
// evaluated left to right as written.
inline key make_key(float r, float g, float b, float tolerance_c, float smoothness) {
  float const m10 = 255.0f * -0.148f, m11 = 255.0f * -0.291f;
  float const m12 = 255.0f * 0.439f, m13 = 255.0f * 0.502f;
  float const m20 = 255.0f * 0.439f, m21 = 255.0f * -0.368f;
  float const m22 = 255.0f * -0.071f, m23 = 255.0f * 0.502f;
  key k{};
  k.cb = truncate_clamped(m10 * r + m11 * g + m12 * b + m13 + 0.5f, 255);
  k.cr = truncate_clamped(m20 * r + m21 * g + m22 * b + m23 + 0.5f, 255);

  float soft = smoothness * 0.3f;
  if (soft < 0.01f) soft = 0.01f;
  float tol = tolerance_c * 0.5f;
  if (tol < 0.0f) tol = 0.0f;
  float const hi = tol * 255.0f;
  float const lo = (tol - soft) * 255.0f;
  float const s = 255.0f / (hi - lo);
  k.scale = truncate_clamped(s * 256.0f + 0.5f, 65535);
  k.offset = truncate_clamped(s * hi + 0.5f, 65535);
  return k;
}

// The key in the lanes the kernels read: Cb, Cr alternating, then eight equal
// lanes of scale and of offset.
inline void key_lanes(key const &k, std::uint16_t cbcr_lanes[8], std::uint16_t scale_lanes[8],
                      std::uint16_t offset_lanes[8]) {
  for (int i = 0; i < 8; ++i) {
    cbcr_lanes[i] = std::uint16_t(i % 2 == 0 ? k.cb : k.cr);
    scale_lanes[i] = std::uint16_t(k.scale);
    offset_lanes[i] = std::uint16_t(k.offset);
  }
}

// Weight of one chroma sample: city-block distance to the key, clamped to
// 255, scaled by key.scale / 256 (truncated), subtracted from key.offset
// (floor 0), clamped to 255. D * 256 * scale stays below 2^32.
inline int weight(int cb, int cr, key const &k) {
  int const d = (k.cb > cb ? k.cb - cb : cb - k.cb) + (k.cr > cr ? k.cr - cr : cr - k.cr);
  std::uint32_t const t = (std::uint32_t(d > 255 ? 255 : d) * 256u * std::uint32_t(k.scale)) >> 16;
  int const w = std::uint32_t(k.offset) > t ? k.offset - int(t) : 0;
  return w > 255 ? 255 : w;
}

// Chroma of one B, G, R, A pixel by the tracker's integer coefficients, with
// A taken as 255 whatever the pixel holds (129 * 255 is offset and rounding).
// Both sums are non-negative for any bytes, so the shift is a floor.
inline cbcr chroma_bgra(std::uint8_t const *px) {
  int const b = px[0], g = px[1], r = px[2], a = 255;
  return {(112 * b - 64 * g - 38 * r + 129 * a) >> 8, (-18 * b - 94 * g + 112 * r + 129 * a) >> 8};
}

// Blend of one byte towards k by weight w; both halves truncate on their own.
inline std::uint8_t blend(int c, int k, int w) {
  return std::uint8_t(((c * w) >> 8) + ((k * (255 - w)) >> 8));
}

namespace internal {

// The six exact integer sums of one cell, in local sample offsets.
struct sums {
  std::int64_t m = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
  void add(int w, int lx, int ly) {
    m += w;
    sx += std::int64_t(w) * lx;
    sy += std::int64_t(w) * ly;
    sxx += std::int64_t(w) * lx * lx;
    syy += std::int64_t(w) * ly * ly;
    sxy += std::int64_t(w) * lx * ly;
  }
};

// Stores cell (i, j) into grid element (i + 1, j + 1): the parallel-axis
// translation by the cell's origin (x0, y0), grouped exactly as below so the
// floats agree bit for bit. An empty cell zeroes its first four floats only.
inline void store(float *cells, int cells_stride, int i, int j, sums const &s, float x0, float y0) {
  float *e = reinterpret_cast<float *>(reinterpret_cast<char *>(cells) + std::ptrdiff_t(j + 1) * cells_stride +
                                       std::ptrdiff_t(i + 1) * 32);
  float const m = float(s.m), sx = float(s.sx), sy = float(s.sy);
  float const sxx = float(s.sxx), syy = float(s.syy), sxy = float(s.sxy);
  e[0] = s.m == 0 ? 0.0f : sx + m * x0;
  e[1] = s.m == 0 ? 0.0f : sy + m * y0;
  e[2] = m;
  e[3] = 0.0f;
  if (s.m == 0) return;
  e[4] = (sxx + (m * x0) * x0) + (sx * x0 + sx * x0);
  e[5] = (syy + (m * y0) * y0) + (sy * y0 + sy * y0);
  e[6] = (sxy + (m * x0) * y0) + (sy * x0 + sx * y0);
  e[7] = 0.0f;
}

inline std::uint8_t *at(std::uint8_t *base, int stride, int y, int x_bytes) {
  return base + std::ptrdiff_t(y) * stride + x_bytes;
}

// The loop every layout shares: cells of 8 by 8 samples, a sample standing
// for ux by uy pixels, so a cell for 8 ux by 8 uy. x0 is kept by repeated
// float addition, y0 = j * 8 uy. sample(sx, sy) returns the weight of sample
// (sx, sy) of the frame and paints it under preview.
template <class Sample>
void cells(int width, int height, int ux, int uy, float *cells, int cells_stride, Sample sample) {
  for (int j = 0; j < height / (8 * uy); ++j) {
    float x0 = 0.0f;
    for (int i = 0; i < width / (8 * ux); ++i) {
      sums s;
      for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) s.add(sample(i * 8 + c, j * 8 + r), c * ux, r * uy);
      store(cells, cells_stride, i, j, s, x0, float(j * 8 * uy));
      x0 += float(8 * ux);
    }
  }
}

}  // namespace internal

// B, G, R, A; 8 by 8 pixels per cell. Preview: each colour (c * w) >> 8,
// alpha 255.
inline void moments_bgra(std::uint8_t *data, int stride, int width, int height, key const &k, bool preview,
                         float *cells, int cells_stride) {
  internal::cells(width, height, 1, 1, cells, cells_stride, [&](int x, int y) {
    std::uint8_t *px = internal::at(data, stride, y, x * 4);
    cbcr const q = chroma_bgra(px);
    int const w = weight(q.cb, q.cr, k);
    for (int ch = 0; ch < 4 && preview; ++ch) px[ch] = ch == 3 ? 255 : std::uint8_t((px[ch] * w) >> 8);
    return w;
  });
}

// Y, Cb, Cr, A; 8 by 8 pixels per cell. Preview: alpha set to 255 first, then
// every byte blended towards (0, 128, 128, 255).
inline void moments_ycbcra(std::uint8_t *data, int stride, int width, int height, key const &k, bool preview,
                           float *cells, int cells_stride) {
  internal::cells(width, height, 1, 1, cells, cells_stride, [&](int x, int y) {
    std::uint8_t *px = internal::at(data, stride, y, x * 4);
    int const w = weight(px[1], px[2], k), black[4] = {0, 128, 128, 255};
    if (preview) px[3] = 255;
    for (int ch = 0; ch < 4 && preview; ++ch) px[ch] = blend(px[ch], black[ch], w);
    return w;
  });
}

// 4:2:2 elements Cb, Y0, Cr, Y1; 8 elements (16 pixels) by 8 lines per cell.
// Preview: chroma blended towards 128, both lumas towards 16.
inline void moments_422(std::uint8_t *data, int stride, int width, int height, key const &k, bool preview,
                        float *cells, int cells_stride) {
  internal::cells(width, height, 2, 1, cells, cells_stride, [&](int x, int y) {
    std::uint8_t *el = internal::at(data, stride, y, x * 4);
    int const w = weight(el[0], el[2], k), black[4] = {128, 16, 128, 16};
    for (int ch = 0; ch < 4 && preview; ++ch) el[ch] = blend(el[ch], black[ch], w);
    return w;
  });
}

// Luma plane and half-size chroma, given by where the Cb and Cr bytes of a
// sample lie: 16 by 16 luma pixels per cell. Preview: chroma towards 128, the
// sample's 2 by 2 luma pixels to (Y * w) >> 8.
template <class Chroma>
void moments_planes(std::uint8_t *y, int y_stride, int width, int height, key const &k, bool preview,
                    float *cells, int cells_stride, Chroma chroma) {
  internal::cells(width, height, 2, 2, cells, cells_stride, [&](int sx, int sy) {
    std::uint8_t *cb, *cr;
    chroma(sx, sy, cb, cr);
    int const w = weight(*cb, *cr, k);
    if (preview) *cb = blend(*cb, 128, w), *cr = blend(*cr, 128, w);
    for (int d = 0; d < 4 && preview; ++d) {
      std::uint8_t *p = internal::at(y, y_stride, sy * 2 + d / 2, sx * 2 + d % 2);
      *p = std::uint8_t((*p * w) >> 8);
    }
    return w;
  });
}

// Luma plane and interleaved Cb, Cr plane.
inline void moments_y_cbcr(std::uint8_t *y, int y_stride, std::uint8_t *cbcr_plane, int cbcr_stride, int width,
                           int height, key const &k, bool preview, float *cells, int cells_stride) {
  moments_planes(y, y_stride, width, height, k, preview, cells, cells_stride,
                 [&](int sx, int sy, std::uint8_t *&cb, std::uint8_t *&cr) {
                   cb = internal::at(cbcr_plane, cbcr_stride, sy, sx * 2), cr = cb + 1;
                 });
}

// Luma plane and separate Cb and Cr planes.
inline void moments_planar(std::uint8_t *y, int y_stride, std::uint8_t *cb_plane, int cb_stride,
                           std::uint8_t *cr_plane, int cr_stride, int width, int height, key const &k, bool preview,
                           float *cells, int cells_stride) {
  moments_planes(y, y_stride, width, height, k, preview, cells, cells_stride,
                 [&](int sx, int sy, std::uint8_t *&cb, std::uint8_t *&cr) {
                   cb = internal::at(cb_plane, cb_stride, sy, sx), cr = internal::at(cr_plane, cr_stride, sy, sx);
                 });
}

}  // namespace moments_model

#endif  // SIGHT_TESTS_OBJECT_TRACKING_MOMENTS_MODEL_H_
