// Moment-generation kernels of the tracker. Every layout runs one cell loop
// (generate_cells) with its own row reader, which turns a cell row into eight
// weights in 16-bit lanes and, under preview, paints that row.
#include <sight/object_tracking/moments_kernels.h>
#include <sight/frame/simd_kernels.h>
#include <sight/operator/color_matrix.h>

#include <cassert>
#include <cstddef>
#include <cstdint>

#include <emmintrin.h>
#include <smmintrin.h>  // _mm_min_epu16, _mm_testz_si128, _mm_cvtepu8_epi16
#include <tmmintrin.h>  // _mm_abs_epi16, _mm_hadd_epi16/32, _mm_maddubs_epi16, _mm_shuffle_epi8

namespace Korvane::Sight::detail {

namespace {

using simd::load;
using simd::store;

constexpr std::int8_t z = -128;  // a shuffle index with the top bit set yields a zero byte

// The tracker's chroma coefficients for B, G, R as signed bytes for
// _mm_maddubs_epi16, four pixels a row. Alpha counts as 255, so its term
// 129 * 255 (no signed byte) is added as g_alpha_term instead; the integers
// are the same.
struct byte_rows {
  alignas(16) std::int8_t row[2][16];
};
constexpr byte_rows spread_coefficients() {
  byte_rows r{};
  for (int k = 0; k < 2; ++k)
    for (int i = 0; i < 16; ++i) r.row[k][i] = i % 4 == 3 ? 0 : std::int8_t(tracker_rgb_cbcr[k][i % 4]);
  return r;
}
constexpr byte_rows g_rgb_cbcr_rows = spread_coefficients();
constexpr auto const &g_rgb_cbcr = g_rgb_cbcr_rows.row;
static_assert(tracker_rgb_cbcr[0][3] * 255 == 32895 && tracker_rgb_cbcr[1][3] == tracker_rgb_cbcr[0][3]);
// 129 * 255: the chroma offset of 128 and a rounding half in one.
alignas(16) constexpr std::uint16_t g_alpha_term[8] = {32895, 32895, 32895, 32895,
                                                       32895, 32895, 32895, 32895};
alignas(16) constexpr std::uint8_t g_0_0_0_255[16] = {0, 0, 0, 255, 0, 0, 0, 255,
                                                      0, 0, 0, 255, 0, 0, 0, 255};
// Cb, Cr of four Y, Cb, Cr, A pixels, widened to 16-bit lanes.
alignas(16) constexpr std::int8_t g_shuffle_ycbcra[16] = {1, z, 2, z, 5, z, 6, z,
                                                          9, z, 10, z, 13, z, 14, z};

alignas(16) constexpr std::int16_t g_sum8_x[8] = {0, 1, 2, 3, 4, 5, 6, 7};
alignas(16) constexpr std::int16_t g_sum8_xx[8] = {0, 1, 4, 9, 16, 25, 36, 49};
alignas(16) constexpr std::int16_t g_sum16_x[8] = {0, 2, 4, 6, 8, 10, 12, 14};
alignas(16) constexpr std::int16_t g_sum16_xx[8] = {0, 4, 16, 36, 64, 100, 144, 196};
alignas(16) constexpr std::int16_t g_sum8_y[8][8] = {
    {0, 0, 0, 0, 0, 0, 0, 0}, {1, 1, 1, 1, 1, 1, 1, 1}, {2, 2, 2, 2, 2, 2, 2, 2},
    {3, 3, 3, 3, 3, 3, 3, 3}, {4, 4, 4, 4, 4, 4, 4, 4}, {5, 5, 5, 5, 5, 5, 5, 5},
    {6, 6, 6, 6, 6, 6, 6, 6}, {7, 7, 7, 7, 7, 7, 7, 7}};
alignas(16) constexpr std::int16_t g_sum16_y[8][8] = {
    {0, 0, 0, 0, 0, 0, 0, 0},         {2, 2, 2, 2, 2, 2, 2, 2},
    {4, 4, 4, 4, 4, 4, 4, 4},         {6, 6, 6, 6, 6, 6, 6, 6},
    {8, 8, 8, 8, 8, 8, 8, 8},         {10, 10, 10, 10, 10, 10, 10, 10},
    {12, 12, 12, 12, 12, 12, 12, 12}, {14, 14, 14, 14, 14, 14, 14, 14}};

alignas(16) constexpr std::int16_t g_1[8] = {1, 1, 1, 1, 1, 1, 1, 1};
alignas(16) constexpr std::int16_t g_128[8] = {128, 128, 128, 128, 128, 128, 128, 128};
alignas(16) constexpr std::int16_t g_255[8] = {255, 255, 255, 255, 255, 255, 255, 255};
// 255 << 8: minus a weight in the high byte gives (255 - w) in the high byte.
alignas(16) constexpr std::uint16_t g_255_hi[8] = {0xff00, 0xff00, 0xff00, 0xff00,
                                                   0xff00, 0xff00, 0xff00, 0xff00};
// Black that the preview blends towards, one lane per byte of two pixels.
alignas(16) constexpr std::int16_t g_black_ycbcr[8] = {128, 16, 128, 16, 128, 16, 128, 16};
alignas(16) constexpr std::int16_t g_black_ycbcra[8] = {0, 128, 128, 255, 0, 128, 128, 255};

// Weights moved to the high byte of the lanes of the bytes they apply to, for
// a keep-high-half product: [q] four-byte groups 2q, 2q + 1; [h] two-byte
// groups 4h to 4h + 3.
alignas(16) constexpr std::int8_t g_weight_quad[4][16] = {
    {z, 0, z, 0, z, 0, z, 0, z, 2, z, 2, z, 2, z, 2},
    {z, 4, z, 4, z, 4, z, 4, z, 6, z, 6, z, 6, z, 6},
    {z, 8, z, 8, z, 8, z, 8, z, 10, z, 10, z, 10, z, 10},
    {z, 12, z, 12, z, 12, z, 12, z, 14, z, 14, z, 14, z, 14}};
alignas(16) constexpr std::int8_t g_weight_pair[2][16] = {
    {z, 0, z, 0, z, 2, z, 2, z, 4, z, 4, z, 6, z, 6},
    {z, 8, z, 8, z, 10, z, 10, z, 12, z, 12, z, 14, z, 14}};

alignas(16) constexpr float g_fp_8[4] = {8.f, 0.f, 0.f, 0.f};
alignas(16) constexpr float g_fp_16[4] = {16.f, 0.f, 0.f, 0.f};

inline __m128i vec(void const *table) {
  return _mm_load_si128(static_cast<__m128i const *>(table));
}

template <class B>
inline std::uint8_t *line_at(B const &b, std::int64_t y) {
  return reinterpret_cast<std::uint8_t *>(R::line(b, y));
}

// The key in lanes, read once per frame.
struct key_lanes {
  __m128i cbcr;  // Cb, Cr alternating
  __m128i cb;    // Cb in every lane
  __m128i cr;    // Cr in every lane
  __m128i scale;
  __m128i offset;

  explicit key_lanes(moment_grid const &g)
      : cbcr(vec(g.key_cbcr)),
        cb(_mm_shufflehi_epi16(_mm_shufflelo_epi16(cbcr, 0x00), 0x00)),
        cr(_mm_shufflehi_epi16(_mm_shufflelo_epi16(cbcr, 0x55), 0x55)),
        scale(vec(g.key_scale)),
        offset(vec(g.key_offset)) {}

  // Weights from chroma distances D (lanes 0 to 510): D clamped to 255,
  // t = (D * 256 * scale) >> 16, w = max(offset - t, 0) clamped to 255.
  // D * 256 still fits an unsigned lane, so the high-half product is exact.
  __m128i weight(__m128i d) const {
    __m128i const c255 = vec(g_255);
    d = _mm_min_epu16(d, c255);
    __m128i const t = _mm_mulhi_epu16(_mm_slli_epi16(d, 8), scale);
    return _mm_min_epu16(_mm_subs_epu16(offset, t), c255);
  }

  // Distances of eight samples held as Cb, Cr lanes in two vectors.
  __m128i distance_interleaved(__m128i s0, __m128i s1) const {
    __m128i const a = _mm_abs_epi16(_mm_sub_epi16(s0, cbcr));
    __m128i const b = _mm_abs_epi16(_mm_sub_epi16(s1, cbcr));
    return _mm_hadd_epi16(a, b);  // |dCb| + |dCr| of each pair, in sample order
  }

  // Distances of eight samples held as a Cb vector and a Cr vector.
  __m128i distance_planar(__m128i cb16, __m128i cr16) const {
    return _mm_add_epi16(_mm_abs_epi16(_mm_sub_epi16(cb16, cb)),
                         _mm_abs_epi16(_mm_sub_epi16(cr16, cr)));
  }
};

// (c * w) >> 8 on 16 bytes; wlo and whi hold the weights of bytes 0-7 and
// 8-15 in the high byte of their lanes.
inline __m128i scale_bytes(__m128i c, __m128i wlo, __m128i whi) {
  __m128i const zero = _mm_setzero_si128();
  __m128i const lo = _mm_mulhi_epu16(_mm_unpacklo_epi8(c, zero), wlo);
  __m128i const hi = _mm_mulhi_epu16(_mm_unpackhi_epi8(c, zero), whi);
  return _mm_packus_epi16(lo, hi);
}

// ((c * w) >> 8) + ((k * (255 - w)) >> 8) on 16 bytes, k one lane per byte
// (the same for both halves). Each term truncates by itself, so full and
// zero weight both lose a step at 255.
inline __m128i blend_bytes(__m128i c, __m128i wlo, __m128i whi, __m128i k) {
  __m128i const zero = _mm_setzero_si128();
  __m128i const c255 = vec(g_255_hi);
  __m128i const lo = _mm_add_epi16(_mm_mulhi_epu16(_mm_unpacklo_epi8(c, zero), wlo),
                                   _mm_mulhi_epu16(k, _mm_sub_epi16(c255, wlo)));
  __m128i const hi = _mm_add_epi16(_mm_mulhi_epu16(_mm_unpackhi_epi8(c, zero), whi),
                                   _mm_mulhi_epu16(k, _mm_sub_epi16(c255, whi)));
  return _mm_packus_epi16(lo, hi);
}

// The eight weights of a 32-byte cell row, each spread over the four bytes
// of its pixel or element, in the high byte of 16-bit lanes: lo0/hi0 for
// bytes 0-7 and 8-15 of the first 16 bytes, lo1/hi1 for the second 16.
struct weight_quads {
  __m128i lo0, hi0, lo1, hi1;
  explicit weight_quads(__m128i w)
      : lo0(_mm_shuffle_epi8(w, vec(g_weight_quad[0]))),
        hi0(_mm_shuffle_epi8(w, vec(g_weight_quad[1]))),
        lo1(_mm_shuffle_epi8(w, vec(g_weight_quad[2]))),
        hi1(_mm_shuffle_epi8(w, vec(g_weight_quad[3]))) {}
};

// The cell loop of every layout. Rows gives `band(j)` per band of cells and
// `row(i, r)`, the weights of cell row r of cell i in sample order (painted
// first under preview). WideX, TallY: a sample stands for two pixels across
// (local x 0, 2, .., 14), or for two lines down.
// Integer stage, exact: per column the sums of w and of w * ly in 16-bit
// lanes (at most 2040 and 14280), w * ly * ly in four 32-bit lanes; the
// column sums are weighted by lx and lx * lx after the eighth row. All totals
// stay below 2^24, so their conversion to float is exact.
//
// Float stage, in this grouping, with x0 kept by adding the cell width:
//   sum_x  = Sx + M * x0                sum_y = Sy + M * y0      mass = M
//   sum_xx = (Sxx + (M * x0) * x0) + (Sx * x0 + Sx * x0)
//   sum_yy = (Syy + (M * y0) * y0) + (Sy * y0 + Sy * y0)
//   sum_xy = (Sxy + (M * x0) * y0) + (Sy * x0 + Sx * y0)
// An empty cell (M = 0, the only per-sample branch) gets its first four
// floats zeroed and nothing else.
template <bool WideX, bool TallY, class Rows>
inline void generate_cells(moment_grid const &g, Rows &rows) {
  if (g.cells_y < 1) return;
  assert(reinterpret_cast<std::uintptr_t>(g.cells) % 16 == 0 && g.stride % 16 == 0);
  __m128i const lx = vec(WideX ? g_sum16_x : g_sum8_x);
  __m128i const lxx = vec(WideX ? g_sum16_xx : g_sum8_xx);
  __m128i const ones = vec(g_1);
  __m128 const step_x = _mm_load_ps(WideX ? g_fp_16 : g_fp_8);
  auto const &ly = TallY ? g_sum16_y : g_sum8_y;
  constexpr int step_y = TallY ? 16 : 8;

  for (std::int32_t j = 0; j < g.cells_y; ++j) {
    rows.band(j);
    // Element (1, j + 1): 8 floats per element, border skipped.
    float *cell = reinterpret_cast<float *>(reinterpret_cast<char *>(g.cells) +
                                            std::ptrdiff_t(j + 1) * g.stride) + 8;
    __m128 origin = _mm_setr_ps(0.f, float(j * step_y), 0.f, 0.f);  // x0, y0, 0, 0
    for (std::int32_t i = 0; i < g.cells_x; ++i, cell += 8) {
      __m128i colw = _mm_setzero_si128();
      __m128i colwy = _mm_setzero_si128();
      __m128i syy = _mm_setzero_si128();
#pragma GCC unroll 8
      for (int r = 0; r < 8; ++r) {
        __m128i const w = rows.row(i, r);
        __m128i const y = vec(ly[r]);
        __m128i const wy = _mm_mullo_epi16(w, y);
        colw = _mm_add_epi16(colw, w);
        colwy = _mm_add_epi16(colwy, wy);
        syy = _mm_add_epi32(syy, _mm_madd_epi16(wy, y));
      }
      if (_mm_testz_si128(colw, colw)) {
        _mm_store_ps(cell, _mm_setzero_ps());
      } else {
        __m128i const zero = _mm_setzero_si128();
        // Sx, Sy, M, 0 and Sxx, Syy, Sxy, 0 by pairwise horizontal adds.
        __m128i const first = _mm_hadd_epi32(
            _mm_hadd_epi32(_mm_madd_epi16(colw, lx), _mm_madd_epi16(colwy, ones)),
            _mm_hadd_epi32(_mm_madd_epi16(colw, ones), zero));
        __m128i const second = _mm_hadd_epi32(
            _mm_hadd_epi32(_mm_madd_epi16(colw, lxx), syy),
            _mm_hadd_epi32(_mm_madd_epi16(colwy, lx), zero));
        __m128 const f1 = _mm_cvtepi32_ps(first);
        __m128 const f2 = _mm_cvtepi32_ps(second);
        __m128 const m = _mm_shuffle_ps(f1, f1, _MM_SHUFFLE(2, 2, 2, 2));
        // Lanes 2 and 3 of origin are 0, so mass stays M and the spare 0.
        _mm_store_ps(cell, _mm_add_ps(f1, _mm_mul_ps(m, origin)));
        __m128 const oxyx = _mm_shuffle_ps(origin, origin, _MM_SHUFFLE(3, 0, 1, 0));
        __m128 const oxyy = _mm_shuffle_ps(origin, origin, _MM_SHUFFLE(3, 1, 1, 0));
        __m128 const sxyy = _mm_shuffle_ps(f1, f1, _MM_SHUFFLE(3, 1, 1, 0));
        __m128 const sxyx = _mm_shuffle_ps(f1, f1, _MM_SHUFFLE(3, 0, 1, 0));
        __m128 const a = _mm_mul_ps(_mm_mul_ps(m, oxyx), oxyy);
        __m128 const b = _mm_add_ps(_mm_mul_ps(sxyy, oxyx), _mm_mul_ps(sxyx, oxyy));
        _mm_store_ps(cell + 4, _mm_add_ps(_mm_add_ps(f2, a), b));
      }
      origin = _mm_add_ps(origin, step_x);
    }
  }
}

// BGRA rows: 32 bytes, eight pixels. Chroma per pixel, in 16-bit lanes:
//   Cb = (112 B - 64 G - 38 R + 129 * 255) >> 8
//   Cr = (-18 B - 94 G + 112 R + 129 * 255) >> 8
// The pairwise products never saturate and the three-term sums stay within
// -28560 to 28560; adding 129 * 255 wraps a signed lane but lands on the
// exact unsigned value (0 to 61455), so a logical shift finishes it.
// Preview: each colour c becomes (c * w) >> 8, alpha 255.
template <bool Aligned, bool Preview>
struct bgra_rows {
  bgra_bitmap const &b;
  key_lanes const &key;
  std::uint8_t *lines[8];

  void band(std::int32_t j) {
    for (int r = 0; r < 8; ++r) lines[r] = line_at(b, std::int64_t(j) * 8 + r);
  }

  __m128i row(std::int32_t i, int r) {
    std::uint8_t *p = lines[r] + std::ptrdiff_t(i) * 32;
    __m128i const p0 = load<Aligned>(p);
    __m128i const p1 = load<Aligned>(p + 16);
    __m128i const kcb = vec(g_rgb_cbcr[0]);
    __m128i const kcr = vec(g_rgb_cbcr[1]);
    __m128i const alpha = vec(g_alpha_term);
    __m128i const cb = _mm_srli_epi16(
        _mm_add_epi16(_mm_hadd_epi16(_mm_maddubs_epi16(p0, kcb), _mm_maddubs_epi16(p1, kcb)), alpha), 8);
    __m128i const cr = _mm_srli_epi16(
        _mm_add_epi16(_mm_hadd_epi16(_mm_maddubs_epi16(p0, kcr), _mm_maddubs_epi16(p1, kcr)), alpha), 8);
    __m128i const w = key.weight(key.distance_planar(cb, cr));
    if constexpr (Preview) {
      __m128i const opaque = vec(g_0_0_0_255);
      weight_quads const q(w);
      // A scaled value is at most 254, so OR-ing 255 into alpha sets it.
      store<Aligned>(p, _mm_or_si128(scale_bytes(p0, q.lo0, q.hi0), opaque));
      store<Aligned>(p + 16, _mm_or_si128(scale_bytes(p1, q.lo1, q.hi1), opaque));
    }
    return w;
  }
};

// Y, Cb, Cr, A rows: 32 bytes, eight pixels; chroma from bytes 1 and 2.
// Preview: alpha set to 255, then every byte c becomes
// ((c * w) >> 8) + ((k * (255 - w)) >> 8), k = 0, 128, 128, 255.
template <bool Aligned, bool Preview>
struct ycbcra_rows {
  ycbcra_bitmap const &b;
  key_lanes const &key;
  std::uint8_t *lines[8];

  void band(std::int32_t j) {
    for (int r = 0; r < 8; ++r) lines[r] = line_at(b, std::int64_t(j) * 8 + r);
  }

  __m128i row(std::int32_t i, int r) {
    std::uint8_t *p = lines[r] + std::ptrdiff_t(i) * 32;
    __m128i const p0 = load<Aligned>(p);
    __m128i const p1 = load<Aligned>(p + 16);
    __m128i const pick = vec(g_shuffle_ycbcra);
    __m128i const w = key.weight(
        key.distance_interleaved(_mm_shuffle_epi8(p0, pick), _mm_shuffle_epi8(p1, pick)));
    if constexpr (Preview) {
      __m128i const opaque = vec(g_0_0_0_255);
      __m128i const black = vec(g_black_ycbcra);
      weight_quads const q(w);
      store<Aligned>(p, blend_bytes(_mm_or_si128(p0, opaque), q.lo0, q.hi0, black));
      store<Aligned>(p + 16, blend_bytes(_mm_or_si128(p1, opaque), q.lo1, q.hi1, black));
    }
    return w;
  }
};

// 4:2:2 rows: 32 bytes, eight elements of Cb, Y0, Cr, Y1; one sample per
// element from its chroma bytes. Preview: all four bytes of an element
// blend with its weight, k = 128 for chroma and 16 for luma.
template <bool Aligned, bool Preview>
struct ycbcr_422_rows {
  ycbcr_bitmap const &b;
  key_lanes const &key;
  std::uint8_t *lines[8];

  void band(std::int32_t j) {
    for (int r = 0; r < 8; ++r) lines[r] = line_at(b, std::int64_t(j) * 8 + r);
  }

  __m128i row(std::int32_t i, int r) {
    std::uint8_t *p = lines[r] + std::ptrdiff_t(i) * 32;
    __m128i const p0 = load<Aligned>(p);
    __m128i const p1 = load<Aligned>(p + 16);
    __m128i const low = vec(g_255);  // the even bytes: Cb, Cr, Cb, Cr
    __m128i const w =
        key.weight(key.distance_interleaved(_mm_and_si128(p0, low), _mm_and_si128(p1, low)));
    if constexpr (Preview) {
      __m128i const black = vec(g_black_ycbcr);
      weight_quads const q(w);
      store<Aligned>(p, blend_bytes(p0, q.lo0, q.hi0, black));
      store<Aligned>(p + 16, blend_bytes(p1, q.lo1, q.hi1, black));
    }
    return w;
  }
};

// Luma preview of the plane layouts: the 16 pixels of luma lines 2r and
// 2r + 1 of a cell become (Y * w) >> 8, each weight covering a 2 by 2 block.
// The result goes to 0, not to 16.
template <bool Aligned>
inline void scale_luma(std::uint8_t *y0, std::uint8_t *y1, __m128i w) {
  __m128i const h0 = _mm_shuffle_epi8(w, vec(g_weight_pair[0]));
  __m128i const h1 = _mm_shuffle_epi8(w, vec(g_weight_pair[1]));
  store<Aligned>(y0, scale_bytes(load<Aligned>(y0), h0, h1));
  store<Aligned>(y1, scale_bytes(load<Aligned>(y1), h0, h1));
}

// Luma plane and interleaved chroma plane: a cell row is 16 bytes (eight
// Cb, Cr pairs) of chroma line 8j + r. The luma plane is read and written
// only under preview. Preview: chroma blends towards 128.
template <bool Aligned, bool Preview>
struct y_cbcr_rows {
  y_bitmap const &y;
  cbcr_bitmap const &c;
  key_lanes const &key;
  std::uint8_t *chroma[8];
  std::uint8_t *luma[16];

  void band(std::int32_t j) {
    for (int r = 0; r < 8; ++r) chroma[r] = line_at(c, std::int64_t(j) * 8 + r);
    if constexpr (Preview)
      for (int r = 0; r < 16; ++r) luma[r] = line_at(y, std::int64_t(j) * 16 + r);
  }

  __m128i row(std::int32_t i, int r) {
    std::uint8_t *p = chroma[r] + std::ptrdiff_t(i) * 16;
    __m128i const s = load<Aligned>(p);
    __m128i const zero = _mm_setzero_si128();
    __m128i const w = key.weight(
        key.distance_interleaved(_mm_unpacklo_epi8(s, zero), _mm_unpackhi_epi8(s, zero)));
    if constexpr (Preview) {
      __m128i const h0 = _mm_shuffle_epi8(w, vec(g_weight_pair[0]));
      __m128i const h1 = _mm_shuffle_epi8(w, vec(g_weight_pair[1]));
      store<Aligned>(p, blend_bytes(s, h0, h1, vec(g_128)));
      std::ptrdiff_t const x = std::ptrdiff_t(i) * 16;
      scale_luma<Aligned>(luma[2 * r] + x, luma[2 * r + 1] + x, w);
    }
    return w;
  }
};

// Three planes: a cell row is 8 bytes of each chroma plane, read and written
// with 8-byte moves, which need no alignment; `Aligned` concerns the luma
// plane only, which is touched only under preview (16 bytes per line and
// cell). Preview: each chroma plane blends towards 128 by itself.
template <bool Aligned, bool Preview>
struct planar_rows {
  y_bitmap const *y;
  cb_bitmap const &cb;
  cr_bitmap const &cr;
  key_lanes const &key;
  std::uint8_t *cb_lines[8];
  std::uint8_t *cr_lines[8];
  std::uint8_t *luma[16];

  void band(std::int32_t j) {
    for (int r = 0; r < 8; ++r) {
      cb_lines[r] = line_at(cb, std::int64_t(j) * 8 + r);
      cr_lines[r] = line_at(cr, std::int64_t(j) * 8 + r);
    }
    if constexpr (Preview)
      for (int r = 0; r < 16; ++r) luma[r] = line_at(*y, std::int64_t(j) * 16 + r);
  }

  __m128i row(std::int32_t i, int r) {
    std::uint8_t *pb = cb_lines[r] + std::ptrdiff_t(i) * 8;
    std::uint8_t *pr = cr_lines[r] + std::ptrdiff_t(i) * 8;
    __m128i const b8 = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(pb));
    __m128i const r8 = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(pr));
    __m128i const w =
        key.weight(key.distance_planar(_mm_cvtepu8_epi16(b8), _mm_cvtepu8_epi16(r8)));
    if constexpr (Preview) {
      // One weight per byte: the weight lanes shifted up are the multipliers.
      __m128i const whi = _mm_slli_epi16(w, 8);
      __m128i const k = vec(g_128);
      _mm_storel_epi64(reinterpret_cast<__m128i *>(pb), blend_bytes(b8, whi, whi, k));
      _mm_storel_epi64(reinterpret_cast<__m128i *>(pr), blend_bytes(r8, whi, whi, k));
      std::ptrdiff_t const x = std::ptrdiff_t(i) * 16;
      scale_luma<Aligned>(luma[2 * r] + x, luma[2 * r + 1] + x, w);
    }
    return w;
  }
};

}  // namespace

template <bool Aligned, bool Preview>
void generate_moments_bgra(bgra_bitmap const &b, moment_grid const &g) {
  if constexpr (Aligned) assert(R::is_aligned(b));
  key_lanes const key(g);
  bgra_rows<Aligned, Preview> rows{b, key, {}};
  generate_cells<false, false>(g, rows);
}

template <bool Aligned, bool Preview>
void generate_moments_ycbcra(ycbcra_bitmap const &b, moment_grid const &g) {
  if constexpr (Aligned) assert(R::is_aligned(b));
  key_lanes const key(g);
  ycbcra_rows<Aligned, Preview> rows{b, key, {}};
  generate_cells<false, false>(g, rows);
}

template <bool Aligned, bool Preview>
void generate_moments_422(ycbcr_bitmap const &b, moment_grid const &g) {
  if constexpr (Aligned) assert(R::is_aligned(b));
  key_lanes const key(g);
  ycbcr_422_rows<Aligned, Preview> rows{b, key, {}};
  generate_cells<true, false>(g, rows);
}

template <bool Aligned, bool Preview>
void generate_moments_y_cbcr(y_bitmap const &y,
                             cbcr_bitmap const &c, moment_grid const &g) {
  if constexpr (Aligned) assert(R::is_aligned(c) && (!Preview || R::is_aligned(y)));
  key_lanes const key(g);
  y_cbcr_rows<Aligned, Preview> rows{y, c, key, {}, {}};
  generate_cells<true, true>(g, rows);
}

template <bool Aligned>
void generate_moments_planar_preview(y_bitmap const &y,
                                     cb_bitmap const &cb,
                                     cr_bitmap const &cr, moment_grid const &g) {
  if constexpr (Aligned) assert(R::is_aligned(y));
  key_lanes const key(g);
  planar_rows<Aligned, true> rows{&y, cb, cr, key, {}, {}, {}};
  generate_cells<true, true>(g, rows);
}

void generate_moments_planar(cb_bitmap const &cb,
                             cr_bitmap const &cr, moment_grid const &g) {
  key_lanes const key(g);
  planar_rows<false, false> rows{nullptr, cb, cr, key, {}, {}, {}};
  generate_cells<true, true>(g, rows);
}

#define SIGHT_MOMENTS_INSTANTIATE(A, P)                                                        \
  template void generate_moments_bgra<A, P>(bgra_bitmap const &,             \
                                            moment_grid const &);                            \
  template void generate_moments_ycbcra<A, P>(ycbcra_bitmap const &,         \
                                              moment_grid const &);                          \
  template void generate_moments_422<A, P>(ycbcr_bitmap const &,         \
                                           moment_grid const &);                             \
  template void generate_moments_y_cbcr<A, P>(y_bitmap const &,              \
                                              cbcr_bitmap const &,           \
                                              moment_grid const &);
SIGHT_MOMENTS_INSTANTIATE(false, false)
SIGHT_MOMENTS_INSTANTIATE(false, true)
SIGHT_MOMENTS_INSTANTIATE(true, false)
SIGHT_MOMENTS_INSTANTIATE(true, true)
#undef SIGHT_MOMENTS_INSTANTIATE

template void generate_moments_planar_preview<false>(y_bitmap const &,
                                                     cb_bitmap const &,
                                                     cr_bitmap const &,
                                                     moment_grid const &);
template void generate_moments_planar_preview<true>(y_bitmap const &,
                                                    cb_bitmap const &,
                                                    cr_bitmap const &,
                                                    moment_grid const &);

}  // namespace Korvane::Sight::detail
