// Slope-limited line kernels on 128-bit vectors. See line_kernels.h for the
// contract; this file holds the one body that all eight members share.
#include <sight/super_resolution/line_kernels.h>

#include <emmintrin.h>  // 128-bit integer vectors
#include <xmmintrin.h>  // _mm_prefetch

#include <cassert>
#include <cstddef>
#include <cstring>

namespace Korvane::Sight::super_resolution::detail {

namespace {

template <bool Aligned>
inline __m128i load(std::uint8_t const *p) {
  if constexpr (Aligned)
    return _mm_load_si128(reinterpret_cast<__m128i const *>(p));
  else
    return _mm_loadu_si128(reinterpret_cast<__m128i const *>(p));
}

template <bool Aligned>
inline void store(std::uint8_t *p, __m128i v) {
  if constexpr (Aligned)
    _mm_store_si128(reinterpret_cast<__m128i *>(p), v);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}

inline __m128i load_word(std::uint8_t const *p) {
  std::int32_t w;
  std::memcpy(&w, p, 4);
  return _mm_cvtsi32_si128(w);
}

inline void store_word(std::uint8_t *p, __m128i v) {
  std::int32_t const w = _mm_cvtsi128_si32(v);
  std::memcpy(p, &w, 4);
}

// One byte widened to a word with its top bit copied into the three upper
// bytes: the sign extension of the byte read as signed.
inline __m128i load_filled(std::uint8_t const *p) {
  return _mm_cvtsi32_si128(std::int32_t(std::int8_t(*p)));
}

// The word of a 1-column step, cut at spill_end. p is inside a destination
// line, so at least its first byte is always stored.
inline void store_filled(std::uint8_t *p, __m128i v, std::uint8_t const *spill_end) {
  std::uint32_t const w = std::uint32_t(_mm_cvtsi128_si32(v));
  std::ptrdiff_t const room = spill_end - p;
  if (room >= 4) {
    std::memcpy(p, &w, 4);
  } else {
    // Little-endian: byte i of the word is bits 8i to 8i+7.
    for (std::ptrdiff_t i = 0; i < room; ++i) p[i] = std::uint8_t(w >> (8 * i));
  }
}

struct halves {
  __m128i upper, lower;
};

// The half-line table for 16 byte lanes, branch-free, in its minmod form:
// upper = centre - step, lower = centre + step on a rising slope (above <=
// centre <= below), the signs swapped on a falling one, and step = 0 off a
// slope. step is the smaller distance to a neighbour, which gives exactly
// the table's "above, 2 * centre - above" or "2 * centre - below, below".
// The two tests are carried by saturated differences, which are zero
// exactly where a side fails: min(centre -sat above, below -sat centre) is
// the step of a rising slope and 0 otherwise, and likewise for a falling
// one. At most one of the two is non-zero, and the results stay within
// [min(above, below), max(above, below)], so the byte sums never wrap.
inline halves half_lines(__m128i above, __m128i centre, __m128i below) {
  __m128i const rising = _mm_min_epu8(_mm_subs_epu8(centre, above), _mm_subs_epu8(below, centre));
  __m128i const falling = _mm_min_epu8(_mm_subs_epu8(above, centre), _mm_subs_epu8(centre, below));
  return {_mm_add_epi8(_mm_sub_epi8(centre, rising), falling),
          _mm_sub_epi8(_mm_add_epi8(centre, rising), falling)};
}

// Destination lines that one source line touches. `back` is the line under
// read-back (unused for the first source line), `low` gets lower(y), `copy`
// gets the source line itself (double_lines only).
struct targets {
  std::uint8_t *back;
  std::uint8_t *low;
  std::uint8_t *copy;
};

// One source line, left to right. First: no read-back line. Doubled: also
// store the source line.
template <bool SourceAligned, bool DestinationAligned, bool First, bool Doubled>
inline void filter_line(std::uint8_t const *above, std::uint8_t const *centre,
                        std::uint8_t const *below, targets const t, int width,
                        std::uint8_t const *spill_end) {
  int x = 0;
  // A prefetch 512 bytes ahead in the below line, held inside that line so
  // that not even a hint points outside the caller's memory.
  int const last = width - 1;
  auto prefetch = [&](int at) {
    int const ahead = at + 512 < last ? at + 512 : last;
    _mm_prefetch(reinterpret_cast<char const *>(below + ahead), _MM_HINT_NTA);
  };
  for (; x + 16 <= width; x += 16) {
    prefetch(x);
    __m128i const c = load<SourceAligned>(centre + x);
    halves const hv = half_lines(load<SourceAligned>(above + x), c, load<SourceAligned>(below + x));
    if constexpr (!First)
      store<DestinationAligned>(
          t.back + x, _mm_avg_epu8(load<DestinationAligned>(t.back + x), hv.upper));
    store<DestinationAligned>(t.low + x, hv.lower);
    if constexpr (Doubled) store<DestinationAligned>(t.copy + x, c);
  }
  for (; x + 4 <= width; x += 4) {
    prefetch(x);
    __m128i const c = load_word(centre + x);
    halves const hv = half_lines(load_word(above + x), c, load_word(below + x));
    if constexpr (!First)
      store_word(t.back + x, _mm_avg_epu8(load_word(t.back + x), hv.upper));
    store_word(t.low + x, hv.lower);
    if constexpr (Doubled) store_word(t.copy + x, c);
  }
  for (; x < width; ++x) {
    prefetch(x);
    // Every read of the step comes before its first store: with tight
    // strides a store may land on bytes that this step reads.
    __m128i const c = load_filled(centre + x);
    halves const hv = half_lines(load_filled(above + x), c, load_filled(below + x));
    if constexpr (!First) {
      __m128i const r = load_filled(t.back + x);
      store_filled(t.back + x, _mm_avg_epu8(r, hv.upper), spill_end);
    }
    store_filled(t.low + x, hv.lower, spill_end);
    if constexpr (Doubled) store_filled(t.copy + x, c, spill_end);
  }
}

inline std::uint8_t *line_of_mutable(byte_view const &v, int y) {
  return reinterpret_cast<std::uint8_t *>(v.data) + std::ptrdiff_t(y) * v.stride;
}
inline std::uint8_t const *line_of(byte_view const &v, int y) { return line_of_mutable(v, y); }

template <bool SourceAligned, bool DestinationAligned, bool Doubled>
void filter(byte_view const &source, byte_view const &destination,
            std::uint8_t const *spill_end) {
  if constexpr (SourceAligned) assert(R::is_aligned(source));
  if constexpr (DestinationAligned) assert(R::is_aligned(destination));
  int const h = source.height;
  int const w = source.width;
  if (h < 1 || w < 1) return;
  // Destination line of the in-between result of source lines y and y+1,
  // and of the copy of source line y.
  auto low_line = [&](int y) { return line_of_mutable(destination, Doubled ? 2 * y + 1 : y); };
  auto copy_line = [&](int y) { return Doubled ? line_of_mutable(destination, 2 * y) : nullptr; };
  std::uint8_t const *const first_below = line_of(source, h > 1 ? 1 : 0);
  filter_line<SourceAligned, DestinationAligned, true, Doubled>(
      line_of(source, 0), line_of(source, 0), first_below,
      targets{nullptr, low_line(0), copy_line(0)}, w, spill_end);
  for (int y = 1; y < h; ++y) {
    filter_line<SourceAligned, DestinationAligned, false, Doubled>(
        line_of(source, y - 1), line_of(source, y), line_of(source, y + 1 < h ? y + 1 : h - 1),
        targets{low_line(y - 1), low_line(y), copy_line(y)}, w, spill_end);
  }
}

}  // namespace

template <bool SourceAligned, bool DestinationAligned>
void shift_half_line(byte_view const &source, byte_view const &destination,
                     std::uint8_t const *spill_end) {
  filter<SourceAligned, DestinationAligned, false>(source, destination, spill_end);
}

template <bool SourceAligned, bool DestinationAligned>
void double_lines(byte_view const &source, byte_view const &destination,
                  std::uint8_t const *spill_end) {
  filter<SourceAligned, DestinationAligned, true>(source, destination, spill_end);
}

template void shift_half_line<true, true>(byte_view const &, byte_view const &, std::uint8_t const *);
template void shift_half_line<true, false>(byte_view const &, byte_view const &, std::uint8_t const *);
template void shift_half_line<false, true>(byte_view const &, byte_view const &, std::uint8_t const *);
template void shift_half_line<false, false>(byte_view const &, byte_view const &, std::uint8_t const *);
template void double_lines<true, true>(byte_view const &, byte_view const &, std::uint8_t const *);
template void double_lines<true, false>(byte_view const &, byte_view const &, std::uint8_t const *);
template void double_lines<false, true>(byte_view const &, byte_view const &, std::uint8_t const *);
template void double_lines<false, false>(byte_view const &, byte_view const &, std::uint8_t const *);

}  // namespace Korvane::Sight::super_resolution::detail
