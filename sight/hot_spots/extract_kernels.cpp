// Counting kernels of the hot-spot detector: the row walk of extract_kernels.h
// on 128-bit vectors, the count in four 32-bit lanes.
#include <sight/hot_spots/extract_kernels.h>
#include <sight/hot_spots/hot_spots.h>  // the operator's constant tables
#include <sight/frame/simd_kernels.h>

#include <smmintrin.h>  // _mm_cvtepu8_epi16, _mm_blend_epi16
#include <tmmintrin.h>  // _mm_shuffle_epi8

#include <algorithm>
#include <cassert>
#include <climits>
#include <cstring>

namespace Korvane::Sight::detail {

namespace R = Tamarind::Rasters;

namespace {

using simd::load;

inline std::uint32_t read_u32(std::uint8_t const *p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

inline std::uint16_t read_u16(std::uint8_t const *p) {
  std::uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

// The key test on four lanes of 16-bit pairs (Cb low, Cr high): one
// multiply-add gives dCb^2 + dCr^2 per lane (at most 130050, so 32 bits),
// and subtracting the all-ones compare mask adds one per passing lane.
struct key_test {
  __m128i ref;
  __m128i tolerance_sq;
  __m128i lane0;

  __m128i count(__m128i acc, __m128i cbcr) const {
    __m128i const d = _mm_sub_epi16(cbcr, ref);
    return _mm_sub_epi32(acc, _mm_cmpgt_epi32(_mm_madd_epi16(d, d), tolerance_sq));
  }
  // A single sample in lane 0; the other lanes are masked off.
  __m128i count_one(__m128i acc, __m128i cbcr) const {
    __m128i const d = _mm_sub_epi16(cbcr, ref);
    __m128i const hit = _mm_cmpgt_epi32(_mm_madd_epi16(d, d), tolerance_sq);
    return _mm_sub_epi32(acc, _mm_and_si128(hit, lane0));
  }
};

inline std::int32_t sum_lanes(__m128i acc) {
  acc = _mm_add_epi32(acc, _mm_shuffle_epi32(acc, _MM_SHUFFLE(1, 0, 3, 2)));
  acc = _mm_add_epi32(acc, _mm_shuffle_epi32(acc, _MM_SHUFFLE(2, 3, 0, 1)));
  return _mm_cvtsi128_si32(acc);
}

// Address one past the pixels of the line highest in memory.
template <class B>
inline std::uintptr_t buffer_end(B const &b) {
  std::uintptr_t const first = reinterpret_cast<std::uintptr_t>(b.data);
  std::uintptr_t const last = first + std::uintptr_t(std::intptr_t(b.height - 1) * b.stride);
  return std::max(first, last) + std::uintptr_t(R::line_bytes(b));
}

template <class B>
inline std::uintptr_t row_address(B const &b, int y) {
  return reinterpret_cast<std::uintptr_t>(b.data) + std::uintptr_t(std::intptr_t(y) * b.stride);
}

// Whole samples of `bytes` each between `row` and `end`, as a column limit.
inline int samples_before(std::uintptr_t row, std::uintptr_t end, int bytes) {
  std::intptr_t const n = (std::intptr_t(end) - std::intptr_t(row)) / bytes;
  return n < 0 ? 0 : n > INT_MAX ? INT_MAX : int(n);
}

// One row: head [x0, A), blocks of Step from A while before B, tail before
// x1, with A and B the group-rounded ends. No sample at or past `limit` is
// touched: a block that would cross it is finished sample by sample, which is
// the only branch that depends on the position, never on pixel values.
template <int Group, int Step, class One, class Block>
inline __m128i walk_row(__m128i acc, int x0, int x1, int limit, One const &one,
                        Block const &block) {
  int const a = (x0 + Group - 1) / Group * Group;
  int const b = x1 / Group * Group;
  int const head_end = std::min(a, limit);
  for (int x = x0; x < head_end; ++x) acc = one(acc, x);
  int x = a;
  for (; x < b; x += Step) {
    if (x + Step <= limit) {
      acc = block(acc, x);
    } else {
      int const stop = std::min(x + Step, limit);
      for (int i = x; i < stop; ++i) acc = one(acc, i);
    }
  }
  int const tail_end = std::min(x1, limit);
  for (; x < tail_end; ++x) acc = one(acc, x);
  return acc;
}

// Clipping of step 1: half-open columns and rows inside the bitmap.
struct clip {
  int x0, x1, y0, y1;
  bool empty;
};

inline clip clip_to(glm::ivec2 lt, glm::ivec2 rb, int width, int height) {
  clip c{std::max(lt.x, 0), std::min(rb.x, width), std::max(lt.y, 0), std::min(rb.y, height), false};
  c.empty = c.x1 <= c.x0 || c.y1 <= c.y0;
  return c;
}

// Edges halved toward zero, for the half-size chroma planes.
inline void halve(glm::ivec2 &lt, glm::ivec2 &rb) {
  lt = glm::ivec2(lt.x / 2, lt.y / 2);
  rb = glm::ivec2(rb.x / 2, rb.y / 2);
}

// The row walk of the two four-byte layouts, which differ only in `four`:
// the chroma of four pixels of a vector in four lanes. Head and tail put one
// pixel through the same arithmetic in lane 0; the test masks the others.
template <bool Aligned, class B, class Four>
spot_count count_four_byte_rows(B const &frame, clip const &c, key_test const &key,
                                Four const &four) {
  std::uintptr_t const end = buffer_end(frame);
  __m128i acc = _mm_setzero_si128();
  for (int y = c.y0; y < c.y1; ++y) {
    std::uintptr_t const row_addr = row_address(frame, y);
    auto const *row = reinterpret_cast<std::uint8_t const *>(row_addr);
    auto const one = [&](__m128i a, int x) {
      return key.count_one(a, four(_mm_cvtsi32_si128(int(read_u32(row + 4 * x)))));
    };
    auto const block = [&](__m128i a, int x) {
      a = key.count(a, four(load<Aligned>(row + 4 * x)));
      return key.count(a, four(load<Aligned>(row + 4 * x + 16)));
    };
    acc = walk_row<4, 8>(acc, c.x0, c.x1, samples_before(row_addr, end, 4), one, block);
  }
  return spot_count{sum_lanes(acc), (c.y1 - c.y0) * (c.x1 - c.x0), false};
}

}  // namespace

// Inputs: clipped rectangle in pixels. Alignment: Aligned needs 16-byte rows;
// blocks start at multiples of 4 pixels, so every load is aligned. Tail rule:
// head and tail use the block's arithmetic on one pixel in lane 0.
// Rounding: the sums are positive, so the logical shift by 8 truncates.
template <bool Aligned>
spot_count hot_spots_kernels::count_spot_bgra(spot_key const &spot,
                                              R::bitmap<R::pixel_bgra_u8> const &frame,
                                              glm::ivec2 left_top, glm::ivec2 right_bottom) {
  if constexpr (Aligned) assert(R::is_aligned(frame));
  clip const c = clip_to(left_top, right_bottom, frame.width, frame.height);
  if (c.empty) return spot_count{0, 0, true};
  key_test const key{spot.cb_cr, spot.tolerance_sq, hot_spots::g32_M1};
  __m128i const alpha = hot_spots::g_0_0_0_255;
  __m128i const low_bytes = hot_spots::g16_255;
  // Each row of the table regrouped into the word pairs (B, R) and (G, A):
  // lane 0 of the shuffled row holds the first, lane 1 the second.
  auto const pairs = [](__m128i row) { return _mm_shufflelo_epi16(row, _MM_SHUFFLE(3, 1, 2, 0)); };
  __m128i const cb_k = pairs(hot_spots::g_rgb_cbcr[0]), cr_k = pairs(hot_spots::g_rgb_cbcr[1]);
  __m128i const cb_br = _mm_shuffle_epi32(cb_k, 0x00), cb_ga = _mm_shuffle_epi32(cb_k, 0x55);
  __m128i const cr_br = _mm_shuffle_epi32(cr_k, 0x00), cr_ga = _mm_shuffle_epi32(cr_k, 0x55);

  // Four pixels to four (Cb, Cr) lanes. With alpha forced to 255, the words
  // (B, R) and (G, A) of each pixel take two multiply-adds per chroma value,
  // 112 B - 38 R and -74 G + 129 * 255 for Cb. Cr << 8 then holds Cr >> 8 in
  // its high word (the sum is under 2^16), which the blend takes.
  auto const four = [&](__m128i v) {
    v = _mm_or_si128(v, alpha);
    __m128i const br = _mm_and_si128(v, low_bytes);
    __m128i const ga = _mm_srli_epi16(v, 8);
    __m128i const cb = _mm_add_epi32(_mm_madd_epi16(br, cb_br), _mm_madd_epi16(ga, cb_ga));
    __m128i const cr = _mm_add_epi32(_mm_madd_epi16(br, cr_br), _mm_madd_epi16(ga, cr_ga));
    return _mm_blend_epi16(_mm_srli_epi32(cb, 8), _mm_slli_epi32(cr, 8), 0xAA);
  };

  return count_four_byte_rows<Aligned>(frame, c, key, four);
}

// Inputs: clipped rectangle in pixels. Alignment as BGRA. Tail rule: one
// pixel through the same gather in lane 0. Exact: no arithmetic but the test.
template <bool Aligned>
spot_count hot_spots_kernels::count_spot_ycbcra(spot_key const &spot,
                                                R::bitmap<R::pixel_ycbcra_u8> const &frame,
                                                glm::ivec2 left_top, glm::ivec2 right_bottom) {
  if constexpr (Aligned) assert(R::is_aligned(frame));
  clip const c = clip_to(left_top, right_bottom, frame.width, frame.height);
  if (c.empty) return spot_count{0, 0, true};
  key_test const key{spot.cb_cr, spot.tolerance_sq, hot_spots::g32_M1};
  __m128i const gather = hot_spots::g_shuffle_ycbcra;

  // Cb, Cr of four pixels gathered to eight bytes, widened to four lanes.
  auto const four = [&](__m128i v) { return _mm_cvtepu8_epi16(_mm_shuffle_epi8(v, gather)); };

  return count_four_byte_rows<Aligned>(frame, c, key, four);
}

// Inputs: clipped rectangle in pixels, walked in pairs (x / 2). Alignment:
// blocks start at multiples of 8 pairs (32 bytes). Tail rule: one pair in
// lane 0. The mask of bytes 0 and 2 leaves exactly the words Cb, Cr.
template <bool Aligned>
spot_count hot_spots_kernels::count_spot_422(spot_key const &spot,
                                             R::bitmap_422<R::pixel_ycbcr_u8> const &frame,
                                             glm::ivec2 left_top, glm::ivec2 right_bottom) {
  if constexpr (Aligned) assert(R::is_aligned(frame));
  clip c = clip_to(left_top, right_bottom, frame.width, frame.height);
  if (c.empty) return spot_count{0, 0, true};
  c.x0 = (c.x0 + 1) & ~1;
  c.x1 &= ~1;
  key_test const key{spot.cb_cr, spot.tolerance_sq, hot_spots::g32_M1};
  __m128i const chroma = hot_spots::g16_255;
  std::uintptr_t const end = buffer_end(frame);

  __m128i acc = _mm_setzero_si128();
  for (int y = c.y0; y < c.y1; ++y) {
    std::uintptr_t const row_addr = row_address(frame, y);
    auto const *row = reinterpret_cast<std::uint8_t const *>(row_addr);
    auto const one = [&](__m128i a, int p) {
      return key.count_one(a, _mm_and_si128(_mm_cvtsi32_si128(int(read_u32(row + 4 * p))), chroma));
    };
    auto const block = [&](__m128i a, int p) {
      a = key.count(a, _mm_and_si128(load<Aligned>(row + 4 * p), chroma));
      return key.count(a, _mm_and_si128(load<Aligned>(row + 4 * p + 16), chroma));
    };
    acc = walk_row<8, 8>(acc, c.x0 / 2, c.x1 / 2, samples_before(row_addr, end, 4), one, block);
  }
  return spot_count{sum_lanes(acc), ((c.x1 - c.x0) * (c.y1 - c.y0)) / 2, false};
}

// Inputs: rectangle in pixels, halved and clipped to the plane. Alignment:
// blocks start at multiples of 8 samples (16 bytes). Tail rule: one sample in
// lane 0. Exact: no arithmetic but the test.
template <bool Aligned>
spot_count hot_spots_kernels::count_spot_cbcr(spot_key const &spot,
                                              R::bitmap<R::pixel_cbcr_u8> const &cbcr,
                                              glm::ivec2 left_top, glm::ivec2 right_bottom) {
  if constexpr (Aligned) assert(R::is_aligned(cbcr));
  halve(left_top, right_bottom);
  clip const c = clip_to(left_top, right_bottom, cbcr.width, cbcr.height);
  if (c.empty) return spot_count{0, 0, true};
  key_test const key{spot.cb_cr, spot.tolerance_sq, hot_spots::g32_M1};
  __m128i const zero = _mm_setzero_si128();
  std::uintptr_t const end = buffer_end(cbcr);

  __m128i acc = _mm_setzero_si128();
  for (int y = c.y0; y < c.y1; ++y) {
    std::uintptr_t const row_addr = row_address(cbcr, y);
    auto const *row = reinterpret_cast<std::uint8_t const *>(row_addr);
    auto const one = [&](__m128i a, int x) {
      return key.count_one(a, _mm_cvtepu8_epi16(_mm_cvtsi32_si128(read_u16(row + 2 * x))));
    };
    auto const block = [&](__m128i a, int x) {
      __m128i const v = load<Aligned>(row + 2 * x);
      a = key.count(a, _mm_cvtepu8_epi16(v));
      return key.count(a, _mm_unpackhi_epi8(v, zero));
    };
    acc = walk_row<8, 8>(acc, c.x0, c.x1, samples_before(row_addr, end, 2), one, block);
  }
  return spot_count{sum_lanes(acc), (c.y1 - c.y0) * (c.x1 - c.x0), false};
}

// Inputs: rectangle in pixels, halved and clipped to the Cb plane.
// Alignment: none needed (eight-byte loads). Tail rule: one sample of each
// plane in lane 0; a sample counts only where both planes still have it.
spot_count hot_spots_kernels::count_spot_cb_cr(spot_key const &spot,
                                               R::bitmap<R::pixel_cb_u8> const &cb,
                                               R::bitmap<R::pixel_cr_u8> const &cr,
                                               glm::ivec2 left_top, glm::ivec2 right_bottom) {
  halve(left_top, right_bottom);
  clip const c = clip_to(left_top, right_bottom, cb.width, cb.height);
  if (c.empty) return spot_count{0, 0, true};
  key_test const key{spot.cb_cr, spot.tolerance_sq, hot_spots::g32_M1};
  __m128i const zero = _mm_setzero_si128();
  std::uintptr_t const cb_end = buffer_end(cb);
  std::uintptr_t const cr_end = buffer_end(cr);

  __m128i acc = _mm_setzero_si128();
  for (int y = c.y0; y < c.y1; ++y) {
    std::uintptr_t const cb_addr = row_address(cb, y);
    std::uintptr_t const cr_addr = row_address(cr, y);
    auto const *cb_row = reinterpret_cast<std::uint8_t const *>(cb_addr);
    auto const *cr_row = reinterpret_cast<std::uint8_t const *>(cr_addr);
    auto const one = [&](__m128i a, int x) {
      return key.count_one(a, _mm_cvtsi32_si128(int(cb_row[x]) | int(cr_row[x]) << 16));
    };
    auto const block = [&](__m128i a, int x) {
      __m128i const v = _mm_unpacklo_epi8(
          _mm_loadl_epi64(reinterpret_cast<__m128i const *>(cb_row + x)),
          _mm_loadl_epi64(reinterpret_cast<__m128i const *>(cr_row + x)));
      a = key.count(a, _mm_cvtepu8_epi16(v));
      return key.count(a, _mm_unpackhi_epi8(v, zero));
    };
    int const limit = std::min(samples_before(cb_addr, cb_end, 1), samples_before(cr_addr, cr_end, 1));
    acc = walk_row<8, 8>(acc, c.x0, c.x1, limit, one, block);
  }
  return spot_count{sum_lanes(acc), (c.y1 - c.y0) * (c.x1 - c.x0), false};
}

template spot_count hot_spots_kernels::count_spot_bgra<true>(
    spot_key const &, R::bitmap<R::pixel_bgra_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_bgra<false>(
    spot_key const &, R::bitmap<R::pixel_bgra_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_ycbcra<true>(
    spot_key const &, R::bitmap<R::pixel_ycbcra_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_ycbcra<false>(
    spot_key const &, R::bitmap<R::pixel_ycbcra_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_422<true>(
    spot_key const &, R::bitmap_422<R::pixel_ycbcr_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_422<false>(
    spot_key const &, R::bitmap_422<R::pixel_ycbcr_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_cbcr<true>(
    spot_key const &, R::bitmap<R::pixel_cbcr_u8> const &, glm::ivec2, glm::ivec2);
template spot_count hot_spots_kernels::count_spot_cbcr<false>(
    spot_key const &, R::bitmap<R::pixel_cbcr_u8> const &, glm::ivec2, glm::ivec2);

spot_key hot_spots_kernels::setup(hot_spots &op) {
  op.setup();
  return {op.ref_cb_cr, op.ref_tolerance_sq};
}

}  // namespace Korvane::Sight::detail
