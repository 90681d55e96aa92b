// Procamp kernel on 128-bit vectors: the tables of procamp_kernels.h and the
// table walk, two macro-pixels to a register.
#include <sight/color_matching/procamp_kernels.h>
#include <sight/frame/simd_kernels.h>

#include <emmintrin.h>  // _mm_loadh_pd
#include <smmintrin.h>  // _mm_blend_epi16, _mm_round_ps
#include <xmmintrin.h>  // _mm_prefetch

#include <cassert>
#include <cmath>
#include <cstring>

namespace Korvane::Sight::detail {

namespace R = Tamarind::Rasters;

namespace {

// One table: entry i is the running sum after i steps, rounded to nearest
// even by _mm_round_ps and then converted by truncation, which makes the
// result independent of the caller's rounding mode; the truncating
// conversion gives 0x80000000 for NaN and anything beyond 32 bits, and the
// signed pack saturates that to -32768 as it saturates the rest.
void fill_table(std::int16_t (&table)[256][4], __m128 value, __m128 const step) {
  for (int i = 0; i < 256; i += 2) {
    __m128i const a = _mm_cvttps_epi32(_mm_round_ps(value, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC));
    value = _mm_add_ps(value, step);
    __m128i const b = _mm_cvttps_epi32(_mm_round_ps(value, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC));
    value = _mm_add_ps(value, step);
    _mm_store_si128(reinterpret_cast<__m128i *>(table[i]), _mm_packs_epi32(a, b));
  }
}

// Entries i and j of a table in the low and high halves of one register:
// a load and a load into the high half (movhps), no separate shuffle.
inline __m128i rows(std::int16_t const (&table)[256][4], unsigned i, unsigned j) {
  __m128i const low = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(table[i]));
  return _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(low), reinterpret_cast<double const *>(table[j])));
}

// The lanes of two macro-pixels (the low and high 32 bits of w) before the
// shift. The luma lanes 0, 1 come from the first luma's entry and lanes 2, 3
// from the second's: one blend per pair.
inline __m128i pair_sum(procamp_tables const &t, std::uint64_t w) {
  unsigned const cb0 = unsigned(w) & 255, y00 = unsigned(w >> 8) & 255, cr0 = unsigned(w >> 16) & 255,
                 y10 = unsigned(w >> 24) & 255, cb1 = unsigned(w >> 32) & 255, y01 = unsigned(w >> 40) & 255,
                 cr1 = unsigned(w >> 48) & 255, y11 = unsigned(w >> 56);
  __m128i const cb = rows(t.cb, cb0, cb1);
  __m128i const cr = rows(t.cr, cr0, cr1);
  __m128i const first = rows(t.luma, y00, y01);
  __m128i const second = rows(t.luma, y10, y11);
  return _mm_adds_epi16(_mm_adds_epi16(cb, cr), _mm_blend_epi16(first, second, 0xCC));
}

// Two 32-bit source words as one 64-bit read.
inline std::uint64_t read_words(std::uint8_t const *p) {
  std::uint64_t w;
  std::memcpy(&w, p, 8);
  return w;
}

inline std::uint64_t read_word(std::uint8_t const *p) {
  std::uint32_t w;
  std::memcpy(&w, p, 4);
  return w;
}

}  // namespace

void make_procamp_tables(procamp_settings const &s, procamp_tables &tables) {
  float const hue = 0.0f;
  float const cos = std::cos(hue);
  float const sin = std::sin(hue);
  float const k = s.contrast;
  float const sat = s.saturation;
  // Rows Y, Cb, Cr; columns Y, Cb, Cr, constant.
  float const m[3][4] = {
      {k, 0.0f, 0.0f, ((s.brightness * 2.0f - 1.0f) * k + k) * 0.5f},
      {0.0f, cos * sat, -(sin * sat),
       (((sin * 2.0f * sat) * s.v_offset - sin * sat) - (cos * 2.0f * sat) * s.u_offset + cos * sat - 1.0f) *
           (-0.5f)},
      {0.0f, sin * sat, cos * sat,
       (((cos * 2.0f * sat) * s.v_offset - cos * sat) + (sin * 2.0f * sat) * s.u_offset - sin * sat + 1.0f) * 0.5f},
  };
  enum { y = 0, cb = 1, cr = 2, c = 3 };
  // _mm_setr_ps: lanes in macro-pixel order Cb, Y0, Cr, Y1.
  auto lanes = [&](float scale, int column) {
    return _mm_setr_ps(scale * m[cb][column], scale * m[y][column], scale * m[cr][column], scale * m[y][column]);
  };
  fill_table(tables.luma, lanes(8160.0f, c), lanes(32.0f, y));
  fill_table(tables.cb, _mm_setzero_ps(), lanes(32.0f, cb));
  fill_table(tables.cr, _mm_setzero_ps(), lanes(32.0f, cr));
}

template <bool Aligned>
void apply_procamp_422(procamp_tables const &tables, ycbcr_bitmap const &source, ycbcr_bitmap const &destination) {
  if constexpr (Aligned) assert(R::is_aligned(destination));
  std::int64_t const bytes = 2 * std::int64_t(source.width);
  for (std::int32_t y = 0; y < source.height; ++y) {
    auto const *s = reinterpret_cast<std::uint8_t const *>(R::line(source, y));
    auto *d = reinterpret_cast<std::uint8_t *>(R::line(destination, y));
    std::int64_t x = 0;
    for (; x + 16 <= bytes; x += 16) {
      std::int64_t const ahead = x + 256 < bytes ? x + 256 : bytes - 1;
      _mm_prefetch(reinterpret_cast<char const *>(s + ahead), _MM_HINT_NTA);
      __m128i const lo = pair_sum(tables, read_words(s + x));
      __m128i const hi = pair_sum(tables, read_words(s + x + 8));
      // The arithmetic shift floors; the unsigned pack clamps to 0..255.
      simd::store<Aligned>(d + x, _mm_packus_epi16(_mm_srai_epi16(lo, 5), _mm_srai_epi16(hi, 5)));
    }
    for (; x + 4 <= bytes; x += 4) {
      __m128i const v = _mm_srai_epi16(pair_sum(tables, read_word(s + x)), 5);
      std::int32_t const out = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
      std::memcpy(d + x, &out, 4);
    }
  }
}

template void apply_procamp_422<false>(procamp_tables const &, ycbcr_bitmap const &, ycbcr_bitmap const &);
template void apply_procamp_422<true>(procamp_tables const &, ycbcr_bitmap const &, ycbcr_bitmap const &);

}  // namespace Korvane::Sight::detail
