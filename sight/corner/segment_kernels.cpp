#include <sight/corner/segment_kernels.h>

#include <emmintrin.h>  // SSE2 loads, saturating adds, byte compares, movemask
#include <smmintrin.h>  // _mm_testz_si128

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

// Halved luma of `pieces` * 16 pixels of a 4:2:2 row from column 0, stored
// from `out` on (unaligned: the window puts the blocks, not column 0, on
// 16-byte boundaries). Luma is the high byte of each 16-bit lane, so a shift by 9
// leaves Y >> 1 (0..127), which packs into bytes that are valid signed values.
template <bool Aligned>
void halve_luma_422(std::uint8_t const *row, int pieces, std::uint8_t *out) {
  for (int i = 0; i < pieces; ++i, row += 32, out += 16) {
    __m128i const a = _mm_srli_epi16(load<Aligned>(row), 9);
    __m128i const b = _mm_srli_epi16(load<Aligned>(row + 16), 9);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm_packus_epi16(a, b));
  }
}

// One ring position of the 16 pixels of a block: lanes all ones where the
// ring pixel is darker (d) or brighter (b) than the centre allows.
struct kinds {
  __m128i d, b;
};
inline kinds compare(__m128i v, __m128i low, __m128i high) {
  return {_mm_cmpgt_epi8(low, v), _mm_cmpgt_epi8(v, high)};
}
inline kinds operator&(kinds x, kinds y) { return {_mm_and_si128(x.d, y.d), _mm_and_si128(x.b, y.b)}; }
inline kinds operator|(kinds x, kinds y) { return {_mm_or_si128(x.d, y.d), _mm_or_si128(x.b, y.b)}; }
inline bool none(kinds m) {
  __m128i const any = _mm_or_si128(m.d, m.b);
  return _mm_testz_si128(any, any) != 0;
}

// Byte offsets of the ring of radius 3 from the centre's luma byte, in cyclic order.
struct ring_offsets {
  std::ptrdiff_t at[16];
  explicit ring_offsets(std::ptrdiff_t s)
      : at{-3 * s, -3 * s + 2, -2 * s + 4, -s + 6, 6,  s + 6,  2 * s + 4,  3 * s + 2,
           3 * s,  3 * s - 2,  2 * s - 4,  s - 6,  -6, -s - 6, -2 * s - 4, -3 * s - 2} {}
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

// The first pair of the cascade for the block at column offset c: the
// running mask A0 | A8, and the bounds of the block's centres.
struct first_pair {
  __m128i low, high;
  kinds a0, a8;
};
inline first_pair start_block(std::uint8_t const *const h[7], std::ptrdiff_t c, __m128i vth, __m128i vtr) {
  __m128i const yc = load<true>(h[3] + c);
  // Saturation keeps high at 127 for a bright centre: nothing is brighter.
  __m128i const low = _mm_subs_epi8(yc, vth);
  __m128i const high = _mm_adds_epi8(yc, vtr);
  return {low, high, compare(load<true>(h[0] + c), low, high), compare(load<true>(h[6] + c), low, high)};
}

// The segment test of one row from the window: h[0] to h[6] are the halved
// rows y - 3 to y + 3, 16-byte aligned, with pixel x at h[k][8 + x] (so that
// a block's first pixel, x = 8 mod 16, lands on a 16-byte boundary). The
// masks are those of the cascade, kept per lane in two vectors, one per
// kind; the kinds never mix. The first pair, which every block loads, is
// tested for up to 64 blocks at a time without branches; only the blocks
// that pass it go on, pair by pair, to the rest of the cascade.
corner_record *test_row(std::uint8_t const *const h[7], std::uint8_t const *row, ring_offsets const &ring,
                        int width, int y, __m128i vth, __m128i vtr, corner_record *out) {
  for (int group = 8; group < width - 8; group += 64 * 16) {
    std::uint64_t pass = 0;
    for (int j = 0, x = group; j < 64 && x < width - 8; ++j, x += 16) {
      first_pair const f = start_block(h, 8 + x, vth, vtr);
      pass |= std::uint64_t(!none(f.a0 | f.a8)) << j;
    }
    for (; pass != 0; pass &= pass - 1) {
      int const x = group + 16 * __builtin_ctzll(pass);
      std::ptrdiff_t const c = 8 + x;
      auto const [low, high, a0, a8] = start_block(h, c, vth, vtr);
      auto at = [&, low = low, high = high](int row_index, int dx) {
        return compare(load<false>(h[row_index] + c + dx), low, high);
      };
      kinds m = a0 | a8;
      kinds const a1 = at(0, 1), a9 = at(6, -1);
      m = m & ((a0 & a1) | (a8 & a9));
      if (none(m)) continue;
      kinds const a2 = at(1, 2), a10 = at(5, -2);
      m = m & ((a1 & a2) | (a9 & a10));
      if (none(m)) continue;
      kinds const a3 = at(2, 3), a11 = at(4, -3);
      m = m & ((a2 & a3) | (a10 & a11));
      if (none(m)) continue;
      kinds const a4 = at(3, 3), a12 = at(3, -3);
      m = m & (((a0 | a10) & a11 & a12) | ((a2 | a8) & a3 & a4));
      if (none(m)) continue;
      kinds const a5 = at(4, 3), a13 = at(2, -3);
      m = m & ((((a0 & a1) | (a10 & a11)) & a12 & a13) | (((a2 & a3) | (a8 & a9)) & a4 & a5));
      if (none(m)) continue;
      kinds const a6 = at(5, 2), a14 = at(1, -2);
      m = m & ((((a0 & a1 & a2) | (a10 & a11 & a12)) & a13 & a14) |
               (((a2 & a3 & a4) | (a8 & a9 & a10)) & a5 & a6));
      if (none(m)) continue;
      kinds const a7 = at(6, 1), a15 = at(0, -1);
      m = m & ((a15 & (a7 | (((a11 & a12 & a13) | (a1 & a2 & a3)) & a14 & a0))) |
               (((a3 & a4 & a5) | (a9 & a10 & a11)) & a6 & a7 & a8));

      // Either kind makes a corner; lowest bit first keeps x ascending.
      for (unsigned bits = unsigned(_mm_movemask_epi8(_mm_or_si128(m.d, m.b))); bits != 0; bits &= bits - 1) {
        int const px = x + __builtin_ctz(bits);
        *out++ = corner_record{std::uint16_t(px), std::uint16_t(y),
                               std::uint16_t(strength_at(row + 2 * std::ptrdiff_t(px) + 1, ring))};
      }
    }
  }
  return out;
}

}  // namespace

template <bool Aligned>
corner_record *detect_422(std::uint8_t const *data, std::ptrdiff_t stride, int width, int height,
                          std::int8_t th, std::int8_t tr, corner_record *out, reserve_fn reserve,
                          void *context) {
  if constexpr (Aligned)
    assert(reinterpret_cast<std::uintptr_t>(data) % 16 == 0 && stride % 16 == 0);
  if (height <= 16) return out;
  // Pieces of 16 columns from column 0 that hold every ring pixel of the
  // last block (columns up to x_last + 18). None when no block is tested.
  int const x_last = width > 16 ? 8 + (width - 17) / 16 * 16 : 0;
  int const pieces = width > 16 ? (x_last + 19 + 15) / 16 : 0;
  std::ptrdiff_t const row_bytes = 16 * std::ptrdiff_t(pieces) + 16;
  auto *window = static_cast<std::uint8_t *>(__builtin_alloca(std::size_t(7 * row_bytes + 15)));
  window = reinterpret_cast<std::uint8_t *>((reinterpret_cast<std::uintptr_t>(window) + 15) & ~std::uintptr_t(15));
  auto slot = [&](int r) { return window + (r % 7) * row_bytes; };
  auto row_at = [&](int r) { return data + r * stride; };

  for (int r = 5; r < 11 && pieces > 0; ++r) halve_luma_422<Aligned>(row_at(r), pieces, slot(r) + 8);
  ring_offsets const ring(stride);
  __m128i const vth = _mm_set1_epi8(th);
  __m128i const vtr = _mm_set1_epi8(tr);
  for (int y = 8; y < height - 8; ++y) {
    out = reserve(context, out);
    if (pieces == 0) continue;
    halve_luma_422<Aligned>(row_at(y + 3), pieces, slot(y + 3) + 8);
    std::uint8_t const *const h[7] = {slot(y - 3), slot(y - 2), slot(y - 1), slot(y),
                                      slot(y + 1), slot(y + 2), slot(y + 3)};
    out = test_row(h, row_at(y), ring, width, y, vth, vtr, out);
  }
  return out;
}

int ring_strength(std::uint8_t const *row, std::ptrdiff_t stride, int x) {
  return strength_at(row + 2 * std::ptrdiff_t(x) + 1, ring_offsets(stride));
}

template corner_record *detect_422<true>(std::uint8_t const *, std::ptrdiff_t, int, int, std::int8_t,
                                         std::int8_t, corner_record *, reserve_fn, void *);
template corner_record *detect_422<false>(std::uint8_t const *, std::ptrdiff_t, int, int, std::int8_t,
                                          std::int8_t, corner_record *, reserve_fn, void *);

}  // namespace Korvane::Sight::corner
