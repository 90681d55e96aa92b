// The pixel pass of motion estimation on 128-bit vectors. See
// motion_kernels.h for the contract.
#include <sight/motion/motion_kernels.h>
#include <sight/frame/simd_kernels.h>

#include <smmintrin.h>  // _mm_mullo_epi32, _mm_cvtepu8_epi32, _mm_blend_epi16

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Korvane::Sight::motion::detail {

namespace {

using simd::load;

// The fifteen chains, lane by lane (h as in normal_sums):
//   top: h0 h1 h2 h3 (ja·ja ja·jb ja·gx ja·gy)   mid: 2E h4 h5 h9
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
// (it is lane K). The products wrap in 32 bits (pmulld keeps the low half),
// as the sums require.
//
// The energy chain adds e·e where the loop adds (e·0.5)·e, and is halved at
// the end. Both are the same bits: every term and partial sum is a multiple
// of 0.5 far from the float range's ends, and halving every operand of a
// rounded addition halves its result exactly.
template <int K>
inline void add_pixel(chains &c, __m128i j, __m128i e4) {
  __m128i const e = pick<K, K, K, K>(e4);
  // (e, jb, gx, gy): lane 0 of mid gives e·e.
  __m128i const je = _mm_blend_epi16(j, e, 0x03);
  __m128i const top = _mm_mullo_epi32(pick<0, 0, 0, 0>(j), j);
  __m128i const mid = _mm_mullo_epi32(pick<0, 1, 1, 3>(je), je);
  __m128i const low = _mm_mullo_epi32(pick<1, 2, 2, 2>(j), pick<3, 2, 3, 3>(j));
  __m128i const g = _mm_mullo_epi32(e, j);
  c.top = _mm_add_ps(c.top, _mm_cvtepi32_ps(top));
  c.mid = _mm_add_ps(c.mid, _mm_cvtepi32_ps(mid));
  c.low = _mm_add_ps(c.low, _mm_cvtepi32_ps(low));
  c.g = _mm_add_ps(c.g, _mm_cvtepi32_ps(g));
  // Ends the pixel here: left free, the compiler gathers each chain's
  // additions of a whole block together, and the products it then has to
  // hold spill to the stack, which costs more than the additions.
  asm volatile("" : "+x"(c.top), "+x"(c.mid), "+x"(c.low), "+x"(c.g));
}

// The terms of up to 16 pixels, from the first pass over a block to the
// second: (ja, jb, gx, gy) of each pixel and e by groups of four.
struct block_terms {
  __m128i j[16];
  __m128i e[4];
};

template <int... I>
inline void add_pixels(chains &c, block_terms const &t, std::integer_sequence<int, I...>) {
  (add_pixel<I % 4>(c, t.j[I], t.e[I / 4]), ...);
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

// The second picture at the four places (ixs, iys), already clamped into
// it. Four neighbours on one line (the usual case of a warp near the
// identity) are one 4-byte read; anything else is read place by place.
inline __m128i sample(line_constants const &k, __m128i ixs, __m128i iys) {
  __m128i const run = _mm_add_epi32(_mm_shuffle_epi32(ixs, 0), _mm_setr_epi32(0, 1, 2, 3));
  __m128i const along = _mm_and_si128(_mm_cmpeq_epi32(ixs, run), _mm_cmpeq_epi32(iys, _mm_shuffle_epi32(iys, 0)));
  if (_mm_movemask_epi8(along) == 0xFFFF) {
    std::uint32_t word;
    std::memcpy(&word, k.second + std::ptrdiff_t(_mm_cvtsi128_si32(iys)) * k.second_stride + _mm_cvtsi128_si32(ixs), 4);
    return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(std::int32_t(word)));
  }
  alignas(16) std::int32_t ix[4], iy[4];
  _mm_store_si128(reinterpret_cast<__m128i *>(ix), ixs);
  _mm_store_si128(reinterpret_cast<__m128i *>(iy), iys);
  auto at = [&](int i) { return std::int32_t(k.second[std::ptrdiff_t(iy[i]) * k.second_stride + ix[i]]); };
  return _mm_setr_epi32(at(0), at(1), at(2), at(3));
}

// Up to 16 pixels from column x on: cur holds first(x..x+15, y), right
// first(x+1..x+16, y), below first(x..x+15, y+1); only the first n pixels
// (n >= 1) are used; Whole says n is 16. The debug pixels go to out, 16-byte
// aligned.
template <bool Whole>
inline void run_block(chains &c, line_constants const &k, int x, int n, __m128i cur, __m128i right,
                      __m128i below, std::uint8_t *out) {
  block_terms t;
  __m128i xs = _mm_add_epi32(_mm_set1_epi32(x), _mm_setr_epi32(0, 1, 2, 3));
  for (int q = 0; q < 4 && (Whole || q * 4 < n); ++q, xs = _mm_add_epi32(xs, _mm_set1_epi32(4))) {
    // Bytes 4q..4q+3 widened to 32 bits, one byte shuffle each (a mask
    // byte with its top bit set gives 0).
    __m128i const widen = _mm_add_epi8(_mm_setr_epi8(0, -128, -128, -128, 1, -128, -128, -128, 2, -128, -128, -128,
                                                     3, -128, -128, -128),
                                       _mm_set1_epi8(char(4 * q)));
    __m128i const p0 = _mm_shuffle_epi8(cur, widen);
    __m128i const gx = _mm_sub_epi32(_mm_shuffle_epi8(right, widen), p0);
    __m128i const gy = _mm_sub_epi32(_mm_shuffle_epi8(below, widen), p0);

    __m128i const ja = _mm_add_epi32(_mm_mullo_epi32(gx, xs), _mm_mullo_epi32(gy, k.y));
    __m128i const jb = _mm_sub_epi32(_mm_mullo_epi32(gy, xs), _mm_mullo_epi32(gx, k.y));

    // Warped place: (x·a − y·b) + tx, (x·b + y·a) + ty, lane by lane in the
    // scalar order. max with 0 comes first and gives 0 for NaN; after the
    // clamp every value is a small whole-number range, so the truncating
    // conversion cannot overflow.
    __m128 const xf = _mm_cvtepi32_ps(xs);
    __m128 const px = _mm_add_ps(_mm_sub_ps(_mm_mul_ps(xf, k.a), k.yb), k.tx);
    __m128 const py = _mm_add_ps(_mm_add_ps(_mm_mul_ps(xf, k.b), k.ya), k.ty);
    __m128i const ixs = _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(px, _mm_setzero_ps()), k.max_x));
    __m128i const iys = _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(py, _mm_setzero_ps()), k.max_y));
    __m128i const e = _mm_sub_epi32(sample(k, ixs, iys), p0);

    // Debug pixels: v = min(|e|·4, 255) in B, G and R, 255 in A.
    __m128i const v = _mm_min_epi32(_mm_slli_epi32(_mm_abs_epi32(e), 2), _mm_set1_epi32(255));
    __m128i const grey = _mm_shuffle_epi8(v, _mm_setr_epi8(0, 0, 0, -1, 4, 4, 4, -1, 8, 8, 8, -1, 12, 12, 12, -1));
    _mm_store_si128(reinterpret_cast<__m128i *>(out + 16 * q),
                    _mm_or_si128(grey, _mm_set1_epi32(std::int32_t(0xFF000000u))));

    // (ja, jb, gx, gy) of each pixel, a 4x4 transpose.
    __m128i const lo_ab = _mm_unpacklo_epi32(ja, jb), lo_xy = _mm_unpacklo_epi32(gx, gy);
    __m128i const hi_ab = _mm_unpackhi_epi32(ja, jb), hi_xy = _mm_unpackhi_epi32(gx, gy);
    t.j[4 * q] = _mm_unpacklo_epi64(lo_ab, lo_xy);
    t.j[4 * q + 1] = _mm_unpackhi_epi64(lo_ab, lo_xy);
    t.j[4 * q + 2] = _mm_unpacklo_epi64(hi_ab, hi_xy);
    t.j[4 * q + 3] = _mm_unpackhi_epi64(hi_ab, hi_xy);
    t.e[q] = e;
  }
  // The chains in pixel order, apart from the pass above and on a local
  // copy, so that the four sums stay in registers. The pass is bound by the
  // number of instructions, not by the latency of the additions.
  chains l = c;
  if constexpr (Whole) {
    add_pixels(l, t, std::make_integer_sequence<int, 16>{});
  } else {
    for (int i = 0; i < n; ++i) {
      switch (i % 4) {
        case 0: add_pixel<0>(l, t.j[i], t.e[i / 4]); break;
        case 1: add_pixel<1>(l, t.j[i], t.e[i / 4]); break;
        case 2: add_pixel<2>(l, t.j[i], t.e[i / 4]); break;
        default: add_pixel<3>(l, t.j[i], t.e[i / 4]); break;
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
          mid[0] * 0.5f};
}

template normal_sums accumulate<true>(y_bitmap const &, y_bitmap const &, similarity const &,
                                      bgra_bitmap &);
template normal_sums accumulate<false>(y_bitmap const &, y_bitmap const &, similarity const &,
                                       bgra_bitmap &);

}  // namespace Korvane::Sight::motion::detail
