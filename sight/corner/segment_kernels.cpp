#include <sight/corner/segment_kernels.h>

#include <emmintrin.h>  // SSE2 loads, saturating adds, byte compares, movemask

#include <cassert>
#include <cstdint>

namespace Korvane::Sight::corner {
namespace {

template <bool Aligned>
inline __m128i load(std::uint8_t const *p) {
  if constexpr (Aligned)
    return _mm_load_si128(reinterpret_cast<__m128i const *>(p));
  else
    return _mm_loadu_si128(reinterpret_cast<__m128i const *>(p));
}

// Halved luma of the 16 pixels whose pairs start at byte p: luma is the high
// byte of each 16-bit lane, so a shift by 9 leaves Y >> 1 (0..127), which
// packs into bytes that are valid signed values.
template <bool Aligned>
inline __m128i luma7(std::uint8_t const *p) {
  __m128i const a = _mm_srli_epi16(load<Aligned>(p), 9);
  __m128i const b = _mm_srli_epi16(load<Aligned>(p + 16), 9);
  return _mm_packus_epi16(a, b);
}

// Mask of one ring position: bit i (low half) when pixel i's ring pixel is
// darker, bit 16 + i when it is brighter.
template <bool Aligned>
inline std::uint32_t ring_mask(std::uint8_t const *p, __m128i low, __m128i high) {
  __m128i const v = luma7<Aligned>(p);
  std::uint32_t const darker = std::uint32_t(_mm_movemask_epi8(_mm_cmpgt_epi8(low, v)));
  std::uint32_t const brighter = std::uint32_t(_mm_movemask_epi8(_mm_cmpgt_epi8(v, high)));
  return darker | brighter << 16;
}

// Byte offsets of the ring of radius 3 from the centre's luma byte, in cyclic order.
struct ring_offsets {
  std::ptrdiff_t at[16];
  explicit ring_offsets(std::ptrdiff_t s)
      : at{-3 * s, -3 * s + 2, -2 * s + 4, -s + 6, 6,     s + 6,      2 * s + 4,  3 * s + 2,
           3 * s,  3 * s - 2,  2 * s - 4,  s - 6,  -6,    -s - 6,     -2 * s - 4, -3 * s - 2} {}
};

inline int strength_at(std::uint8_t const *centre, ring_offsets const &ring) {
  int const c = centre[0];
  int sum = 0;
  for (std::ptrdiff_t const o : ring.at) {
    int const d = int(centre[o]) - c;
    sum += d < 0 ? -d : d;
  }
  return sum;
}

}  // namespace

template <bool Aligned>
corner_record *detect_row_422(std::uint8_t const *row, std::ptrdiff_t stride, int width, int y,
                              std::int8_t th, std::int8_t tr, corner_record *out) {
  if constexpr (Aligned)
    assert(reinterpret_cast<std::uintptr_t>(row) % 16 == 0 && stride % 16 == 0);
  std::ptrdiff_t const s = stride;
  ring_offsets const ring(s);
  __m128i const vth = _mm_set1_epi8(th);
  __m128i const vtr = _mm_set1_epi8(tr);
  for (int x = 8; x < width - 8; x += 16) {
    // x is 8 modulo 16, so the block's bytes start on a 16-byte boundary of
    // the row: the centre and the (0, -3), (0, 3) rows load aligned.
    std::uint8_t const *c = row + 2 * std::ptrdiff_t(x);
    __m128i const yc = luma7<Aligned>(c);
    // Saturation keeps high at 127 for a bright centre: nothing is brighter.
    __m128i const low = _mm_subs_epi8(yc, vth);
    __m128i const high = _mm_adds_epi8(yc, vtr);

    std::uint32_t const a0 = ring_mask<Aligned>(c - 3 * s, low, high);
    std::uint32_t const a8 = ring_mask<Aligned>(c + 3 * s, low, high);
    std::uint32_t m = a0 | a8;
    if (m == 0) continue;
    std::uint32_t const a1 = ring_mask<false>(c - 3 * s + 2, low, high);
    std::uint32_t const a9 = ring_mask<false>(c + 3 * s - 2, low, high);
    m &= (a0 & a1) | (a8 & a9);
    if (m == 0) continue;
    std::uint32_t const a2 = ring_mask<false>(c - 2 * s + 4, low, high);
    std::uint32_t const a10 = ring_mask<false>(c + 2 * s - 4, low, high);
    m &= (a1 & a2) | (a9 & a10);
    if (m == 0) continue;
    std::uint32_t const a3 = ring_mask<false>(c - s + 6, low, high);
    std::uint32_t const a11 = ring_mask<false>(c + s - 6, low, high);
    m &= (a2 & a3) | (a10 & a11);
    if (m == 0) continue;
    std::uint32_t const a4 = ring_mask<false>(c + 6, low, high);
    std::uint32_t const a12 = ring_mask<false>(c - 6, low, high);
    m &= ((a0 | a10) & a11 & a12) | ((a2 | a8) & a3 & a4);
    if (m == 0) continue;
    std::uint32_t const a5 = ring_mask<false>(c + s + 6, low, high);
    std::uint32_t const a13 = ring_mask<false>(c - s - 6, low, high);
    m &= (((a0 & a1) | (a10 & a11)) & a12 & a13) | (((a2 & a3) | (a8 & a9)) & a4 & a5);
    if (m == 0) continue;
    std::uint32_t const a6 = ring_mask<false>(c + 2 * s + 4, low, high);
    std::uint32_t const a14 = ring_mask<false>(c - 2 * s - 4, low, high);
    m &= (((a0 & a1 & a2) | (a10 & a11 & a12)) & a13 & a14) |
         (((a2 & a3 & a4) | (a8 & a9 & a10)) & a5 & a6);
    if (m == 0) continue;
    std::uint32_t const a7 = ring_mask<false>(c + 3 * s + 2, low, high);
    std::uint32_t const a15 = ring_mask<false>(c - 3 * s - 2, low, high);
    m &= (a15 & (a7 | (((a11 & a12 & a13) | (a1 & a2 & a3)) & a14 & a0))) |
         (((a3 & a4 & a5) | (a9 & a10 & a11)) & a6 & a7 & a8);

    // Either polarity makes a corner; lowest bit first keeps x ascending.
    for (std::uint32_t bits = (m & 0xFFFFu) | (m >> 16); bits != 0; bits &= bits - 1) {
      int const i = __builtin_ctz(bits);
      int const px = x + i;
      *out++ = corner_record{std::uint16_t(px), std::uint16_t(y),
                             std::uint16_t(strength_at(row + 2 * std::ptrdiff_t(px) + 1, ring))};
    }
  }
  return out;
}

int ring_strength(std::uint8_t const *row, std::ptrdiff_t stride, int x) {
  return strength_at(row + 2 * std::ptrdiff_t(x) + 1, ring_offsets(stride));
}

template corner_record *detect_row_422<true>(std::uint8_t const *, std::ptrdiff_t, int, int,
                                             std::int8_t, std::int8_t, corner_record *);
template corner_record *detect_row_422<false>(std::uint8_t const *, std::ptrdiff_t, int, int,
                                              std::int8_t, std::int8_t, corner_record *);

}  // namespace Korvane::Sight::corner
