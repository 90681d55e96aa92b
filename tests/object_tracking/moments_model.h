// Scalar model of the tracker's moment generation, for the kernel tests.
//
// Written straight from the arithmetic the kernels must reproduce, one sample
// at a time with plain int loops and no vector code, so that a kernel and this
// model agree only if both follow the same rules.
//
// make_key gives the set-up's key (reference chroma, slope `scale` in 1/256,
// weight at distance 0 `offset`); key_lanes lays it out in eight 16-bit lanes
// as the kernels read it; moments_<layout> fills a grid as the kernels do.
//
// `width` and `height` are those of the first bitmap in pixels (4:2:2 counts
// pixels, not elements). Cells: width / 8 by height / 8 for BGRA and YCbCrA,
// width / 16 by height / 8 for 4:2:2, width / 16 by height / 16 for the plane
// layouts. `cells` is element (0, 0) of the (cells_x + 2) by (cells_y + 2)
// grid; element (i, j) is 8 floats (sum_x, sum_y, mass, 0, sum_xx, sum_yy,
// sum_xy, 0) at (char *)cells + j * cells_stride + i * 32. Only interior
// elements (i + 1, j + 1) are written, and an empty cell (mass 0) gets only
// its first four floats zeroed. Strides are in bytes and may be negative.
//
// Only whole cells are read, and written under `preview`: columns and lines
// past the last whole cell stay as they are. Without preview the frame is not
// written and the luma plane of the plane layouts is not read (it may be null).
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
inline int truncate_clamped(float v, int hi) {
  if (!(v >= 0.0f)) return 0;
  if (v >= float(hi)) return hi;
  return int(v);
}

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
  int dcb = k.cb - cb, dcr = k.cr - cr;
  if (dcb < 0) dcb = -dcb;
  if (dcr < 0) dcr = -dcr;
  int d = dcb + dcr;
  if (d > 255) d = 255;
  std::uint32_t const t = (std::uint32_t(d) * 256u * std::uint32_t(k.scale)) >> 16;
  int w = std::uint32_t(k.offset) > t ? k.offset - int(t) : 0;
  if (w > 255) w = 255;
  return w;
}

// Chroma of one B, G, R, A pixel by the tracker's integer coefficients, with
// A taken as 255 whatever the pixel holds (129 * 255 is offset and rounding).
// Both sums are non-negative for any bytes, so the shift is a floor.
inline cbcr chroma_bgra(std::uint8_t const *px) {
  int const b = px[0], g = px[1], r = px[2], a = 255;
  return {(112 * b - 64 * g - 38 * r + 129 * a) >> 8, (-18 * b - 94 * g + 112 * r + 129 * a) >> 8};
}

// Y, Cb, Cr, A pixel: bytes 1 and 2.
inline cbcr chroma_ycbcra(std::uint8_t const *px) { return {px[1], px[2]}; }

// 4:2:2 element Cb, Y0, Cr, Y1: bytes 0 and 2.
inline cbcr chroma_422(std::uint8_t const *el) { return {el[0], el[2]}; }

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

inline float *element(float *cells, int cells_stride, int i, int j) {
  return reinterpret_cast<float *>(reinterpret_cast<char *>(cells) +
                                   std::ptrdiff_t(j) * cells_stride + std::ptrdiff_t(i) * 32);
}

// Stores cell (i, j) into grid element (i + 1, j + 1): the parallel-axis
// translation by the cell's origin (x0, y0), grouped exactly as below so the
// floats agree bit for bit. An empty cell zeroes its first four floats only.
inline void store(float *cells, int cells_stride, int i, int j, sums const &s, float x0, float y0) {
  float *e = element(cells, cells_stride, i + 1, j + 1);
  if (s.m == 0) {
    e[0] = e[1] = e[2] = e[3] = 0.0f;
    return;
  }
  float const m = float(s.m), sx = float(s.sx), sy = float(s.sy);
  float const sxx = float(s.sxx), syy = float(s.syy), sxy = float(s.sxy);
  e[0] = sx + m * x0;
  e[1] = sy + m * y0;
  e[2] = m;
  e[3] = 0.0f;
  e[4] = (sxx + (m * x0) * x0) + (sx * x0 + sx * x0);
  e[5] = (syy + (m * y0) * y0) + (sy * y0 + sy * y0);
  e[6] = (sxy + (m * x0) * y0) + (sy * x0 + sx * y0);
  e[7] = 0.0f;
}

inline std::uint8_t *at(std::uint8_t *base, int stride, int y, int x_bytes) {
  return base + std::ptrdiff_t(y) * stride + x_bytes;
}

// The loop every layout shares: cells_x by cells_y cells of 8 by 8 samples,
// x0 kept by repeated float addition of step_x, y0 = j * step_y.
// `sample(i, j, c, r)` returns the weight of sample (c, r) of cell (i, j) and
// paints it under preview; (lx, ly) = (c * ux, r * uy).
template <class Sample>
void cells_loop(int cells_x, int cells_y, int step_x, int step_y, int ux, int uy, float *cells,
                int cells_stride, Sample sample) {
  for (int j = 0; j < cells_y; ++j) {
    float const y0 = float(j * step_y);
    float x0 = 0.0f;
    for (int i = 0; i < cells_x; ++i) {
      sums s;
      for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) s.add(sample(i, j, c, r), c * ux, r * uy);
      store(cells, cells_stride, i, j, s, x0, y0);
      x0 += float(step_x);
    }
  }
}

// Luma of the 2 by 2 pixels a plane-layout sample stands for, to (Y * w) >> 8.
inline void darken_luma(std::uint8_t *y, int y_stride, int px, int py, int w) {
  for (int dy = 0; dy < 2; ++dy)
    for (int dx = 0; dx < 2; ++dx) {
      std::uint8_t *p = at(y, y_stride, py + dy, px + dx);
      *p = std::uint8_t((*p * w) >> 8);
    }
}

}  // namespace internal

// B, G, R, A; 8 by 8 pixels per cell. Preview: each colour (c * w) >> 8,
// alpha 255.
inline void moments_bgra(std::uint8_t *data, int stride, int width, int height, key const &k,
                         bool preview, float *cells, int cells_stride) {
  internal::cells_loop(width / 8, height / 8, 8, 8, 1, 1, cells, cells_stride,
                       [&](int i, int j, int c, int r) {
                         std::uint8_t *px = internal::at(data, stride, j * 8 + r, (i * 8 + c) * 4);
                         cbcr const q = chroma_bgra(px);
                         int const w = weight(q.cb, q.cr, k);
                         if (preview) {
                           for (int ch = 0; ch < 3; ++ch) px[ch] = std::uint8_t((px[ch] * w) >> 8);
                           px[3] = 255;
                         }
                         return w;
                       });
}

// Y, Cb, Cr, A; 8 by 8 pixels per cell. Preview: alpha set to 255 first, then
// every byte blended towards (0, 128, 128, 255).
inline void moments_ycbcra(std::uint8_t *data, int stride, int width, int height, key const &k,
                           bool preview, float *cells, int cells_stride) {
  internal::cells_loop(width / 8, height / 8, 8, 8, 1, 1, cells, cells_stride,
                       [&](int i, int j, int c, int r) {
                         std::uint8_t *px = internal::at(data, stride, j * 8 + r, (i * 8 + c) * 4);
                         cbcr const q = chroma_ycbcra(px);
                         int const w = weight(q.cb, q.cr, k);
                         if (preview) {
                           static constexpr int black[4] = {0, 128, 128, 255};
                           px[3] = 255;
                           for (int ch = 0; ch < 4; ++ch) px[ch] = blend(px[ch], black[ch], w);
                         }
                         return w;
                       });
}

// 4:2:2 elements Cb, Y0, Cr, Y1; 8 elements (16 pixels) by 8 lines per cell,
// local x 2c. Preview: chroma blended towards 128, both lumas towards 16.
inline void moments_422(std::uint8_t *data, int stride, int width, int height, key const &k,
                        bool preview, float *cells, int cells_stride) {
  internal::cells_loop(width / 16, height / 8, 16, 8, 2, 1, cells, cells_stride,
                       [&](int i, int j, int c, int r) {
                         std::uint8_t *el = internal::at(data, stride, j * 8 + r, (i * 8 + c) * 4);
                         cbcr const q = chroma_422(el);
                         int const w = weight(q.cb, q.cr, k);
                         if (preview) {
                           static constexpr int black[4] = {128, 16, 128, 16};
                           for (int ch = 0; ch < 4; ++ch) el[ch] = blend(el[ch], black[ch], w);
                         }
                         return w;
                       });
}

// Luma plane and interleaved Cb, Cr plane of half size; 16 by 16 luma pixels
// (8 by 8 chroma pairs) per cell, local position (2c, 2r). Preview: chroma
// towards 128, the sample's 2 by 2 luma pixels to (Y * w) >> 8.
inline void moments_y_cbcr(std::uint8_t *y, int y_stride, std::uint8_t *cbcr_plane, int cbcr_stride,
                           int width, int height, key const &k, bool preview, float *cells,
                           int cells_stride) {
  internal::cells_loop(width / 16, height / 16, 16, 16, 2, 2, cells, cells_stride,
                       [&](int i, int j, int c, int r) {
                         int const sx = i * 8 + c, sy = j * 8 + r;
                         std::uint8_t *p = internal::at(cbcr_plane, cbcr_stride, sy, sx * 2);
                         int const w = weight(p[0], p[1], k);
                         if (preview) {
                           p[0] = blend(p[0], 128, w);
                           p[1] = blend(p[1], 128, w);
                           internal::darken_luma(y, y_stride, sx * 2, sy * 2, w);
                         }
                         return w;
                       });
}

// Luma plane and separate Cb and Cr planes of half size; cells as in
// moments_y_cbcr, and the same preview with each chroma plane by itself.
inline void moments_planar(std::uint8_t *y, int y_stride, std::uint8_t *cb, int cb_stride,
                           std::uint8_t *cr, int cr_stride, int width, int height, key const &k,
                           bool preview, float *cells, int cells_stride) {
  internal::cells_loop(width / 16, height / 16, 16, 16, 2, 2, cells, cells_stride,
                       [&](int i, int j, int c, int r) {
                         int const sx = i * 8 + c, sy = j * 8 + r;
                         std::uint8_t *pb = internal::at(cb, cb_stride, sy, sx);
                         std::uint8_t *pr = internal::at(cr, cr_stride, sy, sx);
                         int const w = weight(*pb, *pr, k);
                         if (preview) {
                           *pb = blend(*pb, 128, w);
                           *pr = blend(*pr, 128, w);
                           internal::darken_luma(y, y_stride, sx * 2, sy * 2, w);
                         }
                         return w;
                       });
}

}  // namespace moments_model

#endif  // SIGHT_TESTS_OBJECT_TRACKING_MOMENTS_MODEL_H_
