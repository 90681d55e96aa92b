#include <sight/corner/segment_kernels.h>

#include <emmintrin.h>  // SSE2 loads, saturating adds, byte compares, movemask
#include <xmmintrin.h>  // _mm_prefetch
#include <smmintrin.h>  // _mm_testz_si128, signed byte min/max, byte blends
#include <tmmintrin.h>  // _mm_shuffle_epi8

#include <algorithm>
#include <cassert>
#include <cstdint>

#include <sight/frame/simd_kernels.h>

namespace Korvane::Sight::corner {
namespace {

using simd::load;
using simd::store;

// Halved luma of the 16 pixels of a 4:2:2 row from `p` on. Luma is the high
// byte of each 16-bit lane, so a shift by 9 leaves Y >> 1 (0..127), which
// packs into bytes that are valid signed values.
template <bool Aligned>
inline __m128i halve_16(std::uint8_t const *p) {
  __m128i const a = _mm_srli_epi16(load<Aligned>(p), 9);
  __m128i const b = _mm_srli_epi16(load<Aligned>(p + 16), 9);
  return _mm_packus_epi16(a, b);
}

// Halved luma of `pieces` * 16 pixels of a 4:2:2 row from column 0, stored
// from `out` on (unaligned: the window puts the blocks, not column 0, on
// 16-byte boundaries).
template <bool Aligned>
void halve_luma_422(std::uint8_t const *row, int pieces, std::uint8_t *out) {
  for (int i = 0; i < pieces; ++i, row += 32, out += 16)
    store<false>(out, halve_16<Aligned>(row));
}

// The bounds of a block's 16 centres: a ring pixel is darker below `low` and
// brighter above `high`. Saturation keeps high at 127 for a bright centre,
// so that nothing is brighter than it.
struct bounds {
  __m128i low, high;
};
inline bounds bounds_at(std::uint8_t const *centre, __m128i vth, __m128i vtr) {
  __m128i const yc = load<true>(centre);
  return {_mm_subs_epi8(yc, vth), _mm_adds_epi8(yc, vtr)};
}

// Window offset of block j of a row: the block's first pixel x = 8 + 16 j
// sits at 8 + x.
inline std::ptrdiff_t block_offset(std::ptrdiff_t j) { return 16 + 16 * j; }

// Ring position k of the block at window offset c, from the window rows h
// (0 to 6 for y - 3 to y + 3). Column offset 0 falls on a block boundary.
template <int K>
inline __m128i ring_at(std::uint8_t const *const h[7], std::ptrdiff_t c) {
  constexpr int row[16] = {0, 0, 1, 2, 3, 4, 5, 6, 6, 6, 5, 4, 3, 2, 1, 0};
  constexpr int dx[16] = {0, 1, 2, 3, 3, 3, 2, 1, 0, -1, -2, -3, -3, -3, -2, -1};
  return load<(dx[K] == 0)>(h[row[K]] + c + dx[K]);
}

// A ring position of a block as a byte a pixel: bit 0 set when the ring
// pixel is darker, bit 1 when it is brighter. The cascade's ANDs and ORs
// then work on both kinds at once and never mix them, and a pixel is left
// while its byte is non-zero.
// Written out as instructions: the darker compare reads the ring pixels and
// the brighter one then overwrites them, so that a position costs one
// register copy (of `low`); compiled from intrinsics it cost two, and the
// positions make up most of the cascade's work.
inline __m128i ring_code(__m128i v, bounds b) {
  __m128i darker = b.low;
  __m128i const two = _mm_set1_epi8(2);
  __asm__(
      "pcmpgtb %[v], %[darker]\n\t"  // darker = low > v ? -1 : 0
      "pcmpgtb %[high], %[v]\n\t"    // v = v > high ? -1 : 0
      "pand %[two], %[v]\n\t"        // brighter as 2
      "psubb %[darker], %[v]"        // 2 - (-1) = 3 when both
      : [v] "+x"(v), [darker] "+x"(darker)
      : [high] "x"(b.high), [two] "x"(two));
  return v;
}

// One block kept between the steps of the cascade.
struct alignas(16) block_state {
  bounds b;
  __m128i m;      // the running mask
  __m128i a[16];  // a[k]: ring position k, as ring_code gives it
};

// The state of the block at window offset c: c - 16 is 16 j for block j,
// so one multiplication finds it.
inline block_state &state_at(block_state *state, std::ptrdiff_t c) {
  constexpr std::uintptr_t scale = sizeof(block_state) / 16;
  static_assert(sizeof(block_state) == 16 * scale);
  // Where c = 0 would fall: one block before the first.
  std::uintptr_t const origin = reinterpret_cast<std::uintptr_t>(state) - 16 * scale;
  return *reinterpret_cast<block_state *>(origin + std::uintptr_t(c) * scale);
}

// One step of the cascade for the `count` blocks listed in `blocks`: loads
// the pairs (K, K + 8) of `Ks`, narrows the running mask by `narrow` (the
// first step starts it, and takes the block's bounds) and keeps in the list,
// in order, the blocks with a pixel left; returns their number. A block with
// none is in no later step, so it loads no further pair. Running the steps
// over lists of blocks instead of block by block leaves one data-dependent
// branch per step and row: the end of the list.
template <bool Start, int... Ks, class Narrow>
inline int cascade_step(std::uint8_t const *const h[7], std::uint32_t *blocks, int count, block_state *state,
                        __m128i vth, __m128i vtr, Narrow narrow) {
  std::ptrdiff_t kept = 0;
  // Two blocks an iteration: less loop bookkeeping per block.
#pragma GCC unroll 2
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    std::ptrdiff_t const c = blocks[i];
    block_state &s = state_at(state, c);
    if constexpr (Start) s.b = bounds_at(h[3] + c, vth, vtr);
    bounds const b = s.b;
    ((s.a[Ks] = ring_code(ring_at<Ks>(h, c), b), s.a[Ks + 8] = ring_code(ring_at<Ks + 8>(h, c), b)), ...);
    __m128i const m = Start ? narrow(s.a) : _mm_and_si128(s.m, narrow(s.a));
    s.m = m;
    blocks[kept] = std::uint32_t(c);
    kept += !_mm_testz_si128(m, m);
  }
  return int(kept);
}

// The cascade's & and | on ring codes.
template <class... V>
inline __m128i all(__m128i a, V... v) {
  ((a = _mm_and_si128(a, v)), ...);
  return a;
}
inline __m128i any(__m128i a, __m128i b) { return _mm_or_si128(a, b); }

// Strength of the corner whose luma byte is at `centre`: the sum of
// |Y(p) - Y(c)| over the ring on full 8-bit luma, at most 4080.
// From each of the seven rows one 16-byte load around the centre brings the
// ring's luma bytes; they are blended into two vectors whose other bytes
// hold Y(c), so that one sum of absolute differences against Y(c) in every
// byte adds exactly the 16 ring terms (the rest contribute 0). Row 0 is read
// one byte later than the others so that its two ring pixels fall on bytes
// that rows -1 and 1 leave free. The loads cover bytes 2x - 6 to 2x + 10 of
// each row (see the kernel's memory note).
inline int strength_at(std::uint8_t const *centre, std::ptrdiff_t stride) {
  std::uint8_t const *const base = centre - 7;  // row byte of column x - 3, luma at offset 1
  auto row = [&](int dy, int shift) { return load<false>(base + dy * stride + shift); };
  __m128i const r0 = row(0, 1);  // luma of x - 3, x, x + 3 at bytes 0, 6, 12
  __m128i const yc = _mm_shuffle_epi8(r0, _mm_set1_epi8(6));
  // Bytes taken from each row: x - 1, x, x + 1 at 5, 7, 9; x -+ 2 at 3, 11; x -+ 3 at 1, 13.
  __m128i const ends = _mm_setr_epi8(-1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1, 0, 0, 0);
  __m128i const far = _mm_setr_epi8(0, 0, 0, 0, 0, -1, 0, -1, 0, -1, 0, 0, 0, 0, 0, 0);
  __m128i const mid = _mm_setr_epi8(0, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, -1, 0, 0, 0, 0);
  __m128i const near = _mm_setr_epi8(0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1, 0, 0);
  __m128i up = _mm_blendv_epi8(yc, r0, ends);
  up = _mm_blendv_epi8(up, row(-3, 0), far);
  up = _mm_blendv_epi8(up, row(-2, 0), mid);
  up = _mm_blendv_epi8(up, row(-1, 0), near);
  __m128i down = _mm_blendv_epi8(yc, row(3, 0), far);
  down = _mm_blendv_epi8(down, row(2, 0), mid);
  down = _mm_blendv_epi8(down, row(1, 0), near);
  __m128i const sums = _mm_add_epi64(_mm_sad_epu8(up, yc), _mm_sad_epu8(down, yc));
  return _mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4);
}

// The segment test of one row from the window: h[0] to h[6] are the halved
// rows y - 3 to y + 3, 16-byte aligned, with pixel x at h[k][8 + x] (so that
// a block's first pixel, x = 8 mod 16, lands on a 16-byte boundary). Row
// y + 3 is halved here from the frame row `below` into h[6], in the same pass
// as the first test of every block, on positions 0, 4, 8 and 12 without
// branches (a pixel has a darker pixel in a pair when low > min, a brighter
// one when max > high; a corner needs one of each pair), which lists the
// blocks that pass by their window offsets. Then each later pair is loaded
// for the listed blocks, one step at a time. `list` and `state` have room
// for one entry per block of the row.
template <bool Aligned>
corner_record *test_row(std::uint8_t *const h[7], std::uint8_t const *row, std::uint8_t const *below,
                        std::ptrdiff_t stride, int width, int y, __m128i vth, __m128i vtr, std::uint32_t *list,
                        block_state *state, corner_record *out) {
  // Blocks x = 8, 24, ... while x < width - 8; the last is x_last.
  int const blocks = (width - 16 + 15) / 16;
  int const x_last = 8 + 16 * (blocks - 1);
  std::uint8_t *const fresh = h[6];
  // Ring columns that no block covers: 0 to 7 before the first block and
  // x_last + 16 to x_last + 18 after the last, in two pieces that overlap
  // the blocks with the same values.
  store<false>(fresh + 8, halve_16<Aligned>(below));
  store<false>(fresh + 16 + x_last, halve_16<Aligned>(below + 2 * std::ptrdiff_t(x_last + 8)));
  // Pointer-wide counters leave no sign extension in the loop, and four
  // blocks an iteration cut its bookkeeping.
  std::ptrdiff_t passed = 0;
#pragma GCC unroll 4
  for (std::ptrdiff_t j = 0; j < blocks; ++j) {
    std::ptrdiff_t const c = block_offset(j);
    // The frame row halved for the next row: fetched one row ahead, so that
    // a frame that is not in the nearer caches does not stall the test.
    _mm_prefetch(reinterpret_cast<char const *>(below + stride + 2 * (c - 8)), _MM_HINT_T0);
    __m128i const a8 = halve_16<Aligned>(below + 2 * (c - 8));
    store<true>(fresh + c, a8);
    bounds const b = bounds_at(h[3] + c, vth, vtr);
    __m128i const a0 = load<true>(h[0] + c);
    __m128i const a4 = load<false>(h[3] + c + 3);
    __m128i const a12 = load<false>(h[3] + c - 3);
    // Nine contiguous positions hold two neighbours of 0, 4, 8, 12, so one
    // of 0 and 8 and one of 4 and 12 are of the same kind: low exceeds both
    // pair minima, or both pair maxima exceed high.
    __m128i const min08 = _mm_min_epi8(a0, a8), max08 = _mm_max_epi8(a0, a8);
    __m128i const min412 = _mm_min_epi8(a4, a12), max412 = _mm_max_epi8(a4, a12);
    __m128i const darker = _mm_cmpgt_epi8(b.low, _mm_max_epi8(min08, min412));
    __m128i const brighter = _mm_cmpgt_epi8(_mm_min_epi8(max08, max412), b.high);
    // A movemask and a compare with borrow count the block in.
    auto const pixels = std::uint32_t(_mm_movemask_epi8(_mm_or_si128(darker, brighter)));
    list[passed] = std::uint32_t(c);
    passed += pixels != 0;
  }
  if (passed == 0) return out;
  int count = int(passed);
  // Nearly every block that passes the first test also passes (1, 9), so
  // the pairs (0, 8), (1, 9) and (2, 10) are loaded in one step and the mask
  // narrowed by both (1, 9) and (2, 10): one pass over the list fewer. The
  // same holds for (4, 12) after (3, 11) and (6, 14) after (5, 13).
  count = cascade_step<true, 0, 1, 2>(h, list, count, state, vth, vtr, [](__m128i const *a) {
    return all(any(a[0], a[8]),                              // (0, 8)
               any(all(a[0], a[1]), all(a[8], a[9])),        // (1, 9)
               any(all(a[1], a[2]), all(a[9], a[10])));      // (2, 10)
  });
  count = cascade_step<false, 3, 4>(h, list, count, state, vth, vtr, [](__m128i const *a) {
    return all(any(all(a[2], a[3]), all(a[10], a[11])),                                   // (3, 11)
               any(all(any(a[0], a[10]), a[11], a[12]), all(any(a[2], a[8]), a[3], a[4])));  // (4, 12)
  });
  count = cascade_step<false, 5, 6>(h, list, count, state, vth, vtr, [](__m128i const *a) {
    return all(any(all(any(all(a[0], a[1]), all(a[10], a[11])), a[12], a[13]),  // (5, 13)
                   all(any(all(a[2], a[3]), all(a[8], a[9])), a[4], a[5])),
               any(all(any(all(a[0], a[1], a[2]), all(a[10], a[11], a[12])), a[13], a[14]),  // (6, 14)
                   all(any(all(a[2], a[3], a[4]), all(a[8], a[9], a[10])), a[5], a[6])));
  });
  count = cascade_step<false, 7>(h, list, count, state, vth, vtr, [](__m128i const *a) {
    return any(all(a[15], any(a[7], all(any(all(a[11], a[12], a[13]), all(a[1], a[2], a[3])), a[14], a[0]))),  // (7, 15)
               all(any(all(a[3], a[4], a[5]), all(a[9], a[10], a[11])), a[6], a[7], a[8]));
  });
  // Either kind makes a corner (a non-zero byte); the list in block order
  // and bits lowest first keep x ascending.
  for (int i = 0; i < count; ++i) {
    std::ptrdiff_t const c = list[i];
    auto const zero = std::uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(state_at(state, c).m, _mm_setzero_si128())));
    int const x = int(c) - 8;
    for (std::uint32_t bits = zero ^ 0xFFFF; bits != 0; bits &= bits - 1) {
      int const px = x + __builtin_ctz(bits);
      std::uint8_t const *const centre = row + 2 * std::ptrdiff_t(px) + 1;
      *out++ = corner_record{std::uint16_t(px), std::uint16_t(y), std::uint16_t(strength_at(centre, stride))};
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
  // Window rows y - 3 to y + 3; the slot of row y - 3 takes row y + 4 next.
  std::uint8_t *h[7] = {slot(5), slot(6), slot(7), slot(8), slot(9), slot(10), slot(11)};
  auto row_at = [&](int r) { return data + r * stride; };
  // The blocks of a row still in the cascade, and their masks.
  std::size_t const blocks = width > 16 ? std::size_t(width - 16 + 15) / 16 : 0;
  auto *const list = static_cast<std::uint32_t *>(__builtin_alloca(blocks * sizeof(std::uint32_t) + 1));
  auto *const state = static_cast<block_state *>(__builtin_alloca(blocks * sizeof(block_state) + 1));

  for (int r = 5; r < 11 && pieces > 0; ++r) halve_luma_422<Aligned>(row_at(r), pieces, slot(r) + 8);
  __m128i const vth = _mm_set1_epi8(th);
  __m128i const vtr = _mm_set1_epi8(tr);
  for (int y = 8; y < height - 8; ++y) {
    out = reserve(context, out);
    if (pieces == 0) continue;
    // Row y + 3 is halved while the row is tested.
    out = test_row<Aligned>(h, row_at(y), row_at(y + 3), stride, width, y, vth, vtr, list, state, out);
    std::rotate(h, h + 1, h + 7);
  }
  return out;
}

int ring_strength(std::uint8_t const *row, std::ptrdiff_t stride, int x) {
  return strength_at(row + 2 * std::ptrdiff_t(x) + 1, stride);
}

template corner_record *detect_422<true>(std::uint8_t const *, std::ptrdiff_t, int, int, std::int8_t,
                                         std::int8_t, corner_record *, reserve_fn, void *);
template corner_record *detect_422<false>(std::uint8_t const *, std::ptrdiff_t, int, int, std::int8_t,
                                          std::int8_t, corner_record *, reserve_fn, void *);

}  // namespace Korvane::Sight::corner
