// The pixel pass of motion estimation on 128-bit vectors. See
// motion_kernels.h for the contract.
#include <sight/motion/motion_kernels.h>
#include <sight/frame/simd_kernels.h>

#include <smmintrin.h>  // _mm_mullo_epi32, _mm_cvtepu8_epi32, _mm_insert_ps

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Korvane::Sight::motion::detail {

namespace {

using simd::load;

// The fifteen chains, lane by lane (h as in normal_sums):
//   top: h0 h1 h2 h3 (ja·ja ja·jb ja·gx ja·gy)   mid: E h4 h5 h9
//   low: h6 h7 h8 (unused)                         g:   g0 g1 g2 g3
struct chains {
  __m128 top = _mm_setzero_ps(), mid = _mm_setzero_ps(), low = _mm_setzero_ps(),
         g = _mm_setzero_ps();
};

template <int I0, int I1, int I2, int I3>
inline __m128i pick(__m128i v) {
  return _mm_shuffle_epi32(v, _MM_SHUFFLE(I3, I2, I1, I0));
}

// One pixel: j is its (ja, jb, gx, gy), e4 holds e of its group of four
// (it is lane K), energy its (e·0.5)·e. The products wrap in 32 bits
// (pmulld keeps the low half), as the sums require.
template <int K>
inline void add_pixel(chains &c, __m128i j, __m128i e4, float const *energy) {
  __m128i const top = _mm_mullo_epi32(pick<0, 0, 0, 0>(j), j);
  __m128i const mid = _mm_mullo_epi32(pick<1, 1, 1, 3>(j), j);
  __m128i const low = _mm_mullo_epi32(pick<1, 2, 2, 2>(j), pick<3, 2, 3, 3>(j));
  __m128i const g = _mm_mullo_epi32(pick<K, K, K, K>(e4), j);
  c.top = _mm_add_ps(c.top, _mm_cvtepi32_ps(top));
  // Lane 0 of mid is a second ja·jb; the energy takes its place.
  c.mid = _mm_add_ps(c.mid, _mm_insert_ps(_mm_cvtepi32_ps(mid), _mm_load_ss(energy), 0x00));
  c.low = _mm_add_ps(c.low, _mm_cvtepi32_ps(low));
  c.g = _mm_add_ps(c.g, _mm_cvtepi32_ps(g));
}

// The terms of up to 16 pixels, from the first pass over a block to the
// second: (ja, jb, gx, gy) of each pixel, e by groups of four, the energies.
struct block_terms {
  __m128i j[16];
  __m128i e[4];
  alignas(16) float energy[16];
};

template <int... I>
inline void add_pixels(chains &c, block_terms const &t, std::integer_sequence<int, I...>) {
  (add_pixel<I % 4>(c, t.j[I], t.e[I / 4], t.energy + I), ...);
}

// Everything a line needs that does not change along it.
struct line_constants {
  __m128 a, b, tx, ty;
  __m128 yb, ya;        // y·b and y·a, formed as the scalar formulas form them
  __m128 max_x, max_y;  // w−2 and h−2
  __m128i y;
  std::uint8_t const *second;
  std::ptrdiff_t second_stride;
};

// Up to 16 pixels from column x on: cur holds first(x..x+15, y), right
// first(x+1..x+16, y), below first(x..x+15, y+1); only the first n pixels
// (n >= 1) are used; Whole says n is 16. The debug pixels go to out, 16-byte
// aligned.
template <bool Whole>
inline void run_block(chains &c, line_constants const &k, int x, int n, __m128i cur, __m128i right,
                      __m128i below, std::uint8_t *out) {
  block_terms t;
  for (int q = 0; q < 4 && (Whole || q * 4 < n); ++q) {
    __m128i const p0 = _mm_cvtepu8_epi32(cur);
    __m128i const gx = _mm_sub_epi32(_mm_cvtepu8_epi32(right), p0);
    __m128i const gy = _mm_sub_epi32(_mm_cvtepu8_epi32(below), p0);
    cur = _mm_srli_si128(cur, 4);
    right = _mm_srli_si128(right, 4);
    below = _mm_srli_si128(below, 4);

    __m128i const xs = _mm_add_epi32(_mm_set1_epi32(x + 4 * q), _mm_setr_epi32(0, 1, 2, 3));
    __m128i const ja = _mm_add_epi32(_mm_mullo_epi32(gx, xs), _mm_mullo_epi32(gy, k.y));
    __m128i const jb = _mm_sub_epi32(_mm_mullo_epi32(gy, xs), _mm_mullo_epi32(gx, k.y));

    // Warped place: (x·a − y·b) + tx, (x·b + y·a) + ty, lane by lane in the
    // scalar order. max with 0 comes first and gives 0 for NaN; after the
    // clamp every value is a small whole-number range, so the truncating
    // conversion cannot overflow.
    __m128 const xf = _mm_cvtepi32_ps(xs);
    __m128 const px = _mm_add_ps(_mm_sub_ps(_mm_mul_ps(xf, k.a), k.yb), k.tx);
    __m128 const py = _mm_add_ps(_mm_add_ps(_mm_mul_ps(xf, k.b), k.ya), k.ty);
    alignas(16) std::int32_t ix[4], iy[4];
    _mm_store_si128(reinterpret_cast<__m128i *>(ix),
                    _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(px, _mm_setzero_ps()), k.max_x)));
    _mm_store_si128(reinterpret_cast<__m128i *>(iy),
                    _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(py, _mm_setzero_ps()), k.max_y)));
    auto sample = [&](int i) {
      return std::int32_t(k.second[std::ptrdiff_t(iy[i]) * k.second_stride + ix[i]]);
    };
    __m128i const e = _mm_sub_epi32(_mm_setr_epi32(sample(0), sample(1), sample(2), sample(3)), p0);

    // Debug pixels: v = min(|e|·4, 255) in B, G and R, 255 in A.
    __m128i const v = _mm_min_epi32(_mm_slli_epi32(_mm_abs_epi32(e), 2), _mm_set1_epi32(255));
    _mm_store_si128(reinterpret_cast<__m128i *>(out + 16 * q),
                    _mm_or_si128(_mm_mullo_epi32(v, _mm_set1_epi32(0x010101)),
                                 _mm_set1_epi32(std::int32_t(0xFF000000u))));

    __m128 const ef = _mm_cvtepi32_ps(e);
    __m128 const energy = _mm_mul_ps(_mm_mul_ps(ef, _mm_set1_ps(0.5f)), ef);

    // (ja, jb, gx, gy) of each pixel, a 4x4 transpose.
    __m128i const lo_ab = _mm_unpacklo_epi32(ja, jb), lo_xy = _mm_unpacklo_epi32(gx, gy);
    __m128i const hi_ab = _mm_unpackhi_epi32(ja, jb), hi_xy = _mm_unpackhi_epi32(gx, gy);
    t.j[4 * q] = _mm_unpacklo_epi64(lo_ab, lo_xy);
    t.j[4 * q + 1] = _mm_unpackhi_epi64(lo_ab, lo_xy);
    t.j[4 * q + 2] = _mm_unpacklo_epi64(hi_ab, hi_xy);
    t.j[4 * q + 3] = _mm_unpackhi_epi64(hi_ab, hi_xy);
    t.e[q] = e;
    _mm_store_ps(t.energy + 4 * q, energy);
  }
  // The chains in pixel order, apart from the pass above and on a local
  // copy, so that the four sums stay in registers: the latency of their
  // additions is what bounds the pass.
  chains l = c;
  if constexpr (Whole) {
    add_pixels(l, t, std::make_integer_sequence<int, 16>{});
  } else {
    for (int i = 0; i < n; ++i) {
      switch (i % 4) {
        case 0: add_pixel<0>(l, t.j[i], t.e[i / 4], t.energy + i); break;
        case 1: add_pixel<1>(l, t.j[i], t.e[i / 4], t.energy + i); break;
        case 2: add_pixel<2>(l, t.j[i], t.e[i / 4], t.energy + i); break;
        default: add_pixel<3>(l, t.j[i], t.e[i / 4], t.energy + i); break;
      }
    }
  }
  c = l;
}

}  // namespace

template <bool Aligned>
normal_sums accumulate(y_bitmap const &first, y_bitmap const &second, similarity const &p,
                       bgra_bitmap &debug) {
  if constexpr (Aligned)
    assert(Tamarind::Rasters::is_aligned(first));
  int const w = first.width, h = first.height;
  chains c;
  line_constants k;
  k.a = _mm_set1_ps(p.a);
  k.b = _mm_set1_ps(p.b);
  k.tx = _mm_set1_ps(p.tx);
  k.ty = _mm_set1_ps(p.ty);
  k.max_x = _mm_set1_ps(float(w - 2));
  k.max_y = _mm_set1_ps(float(h - 2));
  k.second = reinterpret_cast<std::uint8_t const *>(second.data);
  k.second_stride = second.stride;

  for (int y = 0; y + 1 < h; ++y) {
    float const yf = float(y);
    k.yb = _mm_set1_ps(yf * p.b);
    k.ya = _mm_set1_ps(yf * p.a);
    k.y = _mm_set1_epi32(y);
    auto const *row = reinterpret_cast<std::uint8_t const *>(Tamarind::Rasters::line(first, y));
    auto const *next = reinterpret_cast<std::uint8_t const *>(Tamarind::Rasters::line(first, y + 1));
    auto *out = reinterpret_cast<std::uint8_t *>(Tamarind::Rasters::line(debug, y));
    int x = 0;
    // Whole blocks read columns x..x+16, all inside the line.
    for (; x + 16 < w; x += 16)
      run_block<true>(c, k, x, 16, load<Aligned>(row + x), load<false>(row + x + 1),
                load<Aligned>(next + x), out + 4 * x);
    int const n = w - 1 - x;
    if (n > 0) {
      alignas(16) std::uint8_t cur[32] = {}, below[16] = {}, pixels[64];
      std::memcpy(cur, row + x, std::size_t(n) + 1);
      std::memcpy(below, next + x, std::size_t(n));
      run_block<false>(c, k, x, n, load<true>(cur), load<false>(cur + 1), load<true>(below), pixels);
      std::memcpy(out + 4 * x, pixels, std::size_t(n) * 4);
    }
  }

  alignas(16) float top[4], mid[4], low[4], g[4];
  _mm_store_ps(top, c.top);
  _mm_store_ps(mid, c.mid);
  _mm_store_ps(low, c.low);
  _mm_store_ps(g, c.g);
  return {{top[0], top[1], top[2], top[3], mid[1], mid[2], low[0], low[1], low[2], mid[3]},
          {g[0], g[1], g[2], g[3]},
          mid[0]};
}

template normal_sums accumulate<true>(y_bitmap const &, y_bitmap const &, similarity const &,
                                      bgra_bitmap &);
template normal_sums accumulate<false>(y_bitmap const &, y_bitmap const &, similarity const &,
                                       bgra_bitmap &);

}  // namespace Korvane::Sight::motion::detail
