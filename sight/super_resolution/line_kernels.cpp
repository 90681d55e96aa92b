// Slope-limited line kernels on 128-bit vectors. See line_kernels.h for the
// contract; this file holds the one body that all eight members share.
#include <sight/super_resolution/line_kernels.h>
#include <sight/frame/simd_kernels.h>

#include <emmintrin.h>  // 128-bit integer vectors
#include <xmmintrin.h>  // _mm_prefetch

#include <cassert>
#include <cstddef>
#include <cstring>

namespace Korvane::Sight::super_resolution::detail {

namespace {

using simd::load;
using simd::store;

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

// Fused walk, used where the read-back provably gives back what was stored:
// a byte width that is a multiple of 4 (no 1-column steps, so nothing is
// written behind a line or over a column that is still to be read) and
// destination lines that overlap no source line and no other destination
// line. Then every finished line is avg(lower(k), upper(k+1)) of bytes that
// nobody changes during the call, and it is computed in registers and
// stored once instead of stored, read back and stored again.
//
// The walk goes down bands of up to `band_lines` output lines, and inside a
// band 16 (then 4) columns at a time down the lines, so that each source
// vector is loaded once per band and the differences between neighbouring
// lines are taken once and used by both lines they touch. For each pair of
// neighbouring lines, up = the lower line -sat the upper one and down = the
// upper -sat the lower; for a line, rising = min(up of the pair above, up of
// the pair below), falling likewise of the downs, and with d = rising -
// falling (mod 256; one of the two is zero) upper = centre - d and lower =
// centre + d. These are the sums of half_lines regrouped mod 256, so the
// bytes are the same. Full bands are unrolled; eight lines measured best
// (longer bands run out of registers for the line addresses).
constexpr int band_lines = 8;

struct vector_step {
  static constexpr int columns = 16;
};
struct word_step {
  static constexpr int columns = 4;
};

template <class Step, bool Aligned>
inline __m128i load_step(std::uint8_t const *p) {
  if constexpr (Step::columns == 16)
    return load<Aligned>(p);
  else
    return load_word(p);
}

template <class Step, bool Aligned>
inline void store_step(std::uint8_t *p, __m128i v) {
  if constexpr (Step::columns == 16)
    store<Aligned>(p, v);
  else
    store_word(p, v);
}

// Running state of one column group going down a band: `next` is source
// line k+1, `up`/`down` the saturated differences of lines k and k+1
// (k+1 -sat k and k -sat k+1), `lower` is lower(k).
struct column_state {
  __m128i next, up, down, lower;
};

// State for output k from lines k-1 (`above`; line k itself at the top),
// k (`cur`) and k+1 (`next`).
inline column_state start_column(__m128i above, __m128i cur, __m128i next) {
  column_state s;
  s.next = next;
  s.up = _mm_subs_epu8(next, cur);
  s.down = _mm_subs_epu8(cur, next);
  s.lower = _mm_add_epi8(cur, _mm_sub_epi8(_mm_min_epu8(_mm_subs_epu8(cur, above), s.up),
                                           _mm_min_epu8(_mm_subs_epu8(above, cur), s.down)));
  return s;
}

// Output k = avg(lower(k), upper(k+1)), given line k+2 (`far`; line k+1
// itself at the bottom), and the state moved on to output k+1.
inline __m128i next_output(column_state &s, __m128i far) {
  __m128i const far_up = _mm_subs_epu8(far, s.next);
  __m128i const far_down = _mm_subs_epu8(s.next, far);
  __m128i const d = _mm_sub_epi8(_mm_min_epu8(s.up, far_up), _mm_min_epu8(s.down, far_down));
  __m128i const out = _mm_avg_epu8(s.lower, _mm_sub_epi8(s.next, d));
  s.lower = _mm_add_epi8(s.next, d);
  s.next = far;
  s.up = far_up;
  s.down = far_down;
  return out;
}

// One band, columns [x, end) in steps of Step. `centre` is source line k0,
// `low` the destination line of output k0 and `copy` that of the copy of
// source line k0 (Doubled only); `source_step` and `low_step` move one
// source line and one output on. `top`: k0 is line 0, whose above tap is
// itself. Lines > 0 is a full band of that many outputs, all of whose far
// lines exist, unrolled; Lines == 0 takes the count from `lines` and, with
// `bottom`, ends at the output of lines h-2 and h-1, whose below tap is line
// h-1 itself.
template <int Lines, class Step, bool SourceAligned, bool DestinationAligned, bool Doubled>
inline void fused_band(std::uint8_t const *centre, std::ptrdiff_t source_step, std::uint8_t *low,
                       std::uint8_t *copy, std::ptrdiff_t low_step, int lines, bool top, bool bottom,
                       int x, int end) {
  int const loaded = Lines > 0 ? Lines : bottom ? lines - 1 : lines;  // outputs whose far line exists
  for (; x + Step::columns <= end; x += Step::columns) {
    std::uint8_t const *p = centre + x;
    __m128i const cur = load_step<Step, SourceAligned>(p);
    __m128i const above = top ? cur : load_step<Step, SourceAligned>(p - source_step);
    p += source_step;
    column_state s = start_column(above, cur, load_step<Step, SourceAligned>(p));
    std::uint8_t *q = low + x;
    std::uint8_t *r = Doubled ? copy + x : nullptr;  // no offset on a null pointer
    // Line k, for the copy, is the `next` of the output before.
    __m128i line_k = cur;
    auto output = [&](__m128i far) {
      __m128i const next = s.next;
      store_step<Step, DestinationAligned>(q, next_output(s, far));
      q += low_step;
      if constexpr (Doubled) {
        store_step<Step, DestinationAligned>(r, line_k);
        r += low_step;
        line_k = next;
      }
    };
#pragma GCC unroll 8
    for (int j = 0; j < loaded; ++j) {
      p += source_step;
      output(load_step<Step, SourceAligned>(p));
    }
    if (Lines == 0 && bottom) output(s.next);
  }
}

inline std::uint8_t *line_of_mutable(byte_view const &v, int y) {
  return reinterpret_cast<std::uint8_t *>(v.data) + std::ptrdiff_t(y) * v.stride;
}
inline std::uint8_t const *line_of(byte_view const &v, int y) { return line_of_mutable(v, y); }

// Copies source line `from` to destination line `to`, in the steps of the
// walk (the width is a multiple of 4).
template <bool SourceAligned, bool DestinationAligned>
inline void copy_line(std::uint8_t const *from, std::uint8_t *to, int width) {
  int x = 0;
  for (; x + 16 <= width; x += 16) store<DestinationAligned>(to + x, load<SourceAligned>(from + x));
  for (; x + 4 <= width; x += 4) store_word(to + x, load_word(from + x));
}

template <bool SourceAligned, bool DestinationAligned, bool Doubled>
void fused(byte_view const &source, byte_view const &destination) {
  int const h = source.height;
  int const w = source.width;
  int const body = w - w % 16;
  std::ptrdiff_t const ss = source.stride;
  std::ptrdiff_t const low_step = std::ptrdiff_t(destination.stride) * (Doubled ? 2 : 1);
  auto source_line = [&](int y) { return line_of(source, y); };
  auto destination_line = [&](int y) { return line_of_mutable(destination, y); };
  for (int k0 = 0; k0 < h - 1; k0 += band_lines) {
    int const lines = h - 1 - k0 < band_lines ? h - 1 - k0 : band_lines;
    bool const top = k0 == 0, bottom = k0 + lines == h - 1;
    std::uint8_t const *const centre = source_line(k0);
    std::uint8_t *const low = destination_line(Doubled ? 2 * k0 + 1 : k0);
    std::uint8_t *const copy = Doubled ? destination_line(2 * k0) : nullptr;
    if (lines == band_lines && !bottom)
      fused_band<band_lines, vector_step, SourceAligned, DestinationAligned, Doubled>(
          centre, ss, low, copy, low_step, lines, top, false, 0, body);
    else
      fused_band<0, vector_step, SourceAligned, DestinationAligned, Doubled>(
          centre, ss, low, copy, low_step, lines, top, bottom, 0, body);
    fused_band<0, word_step, SourceAligned, DestinationAligned, Doubled>(
        centre, ss, low, copy, low_step, lines, top, bottom, body, w);
  }
  // The last source line has no line below: its output is itself, and in
  // double_lines it is also the copy above that.
  if constexpr (Doubled)
    copy_line<SourceAligned, DestinationAligned>(source_line(h - 1), destination_line(2 * h - 2), w);
  copy_line<SourceAligned, DestinationAligned>(source_line(h - 1), destination_line(Doubled ? 2 * h - 1 : h - 1), w);
}

// Whether the fused walk gives the bytes of the step-by-step one: a width
// that is a multiple of 4, destination lines apart from each other, and no
// destination byte among the source bytes. The last holds when the two
// spans of memory are apart, or when both views have the same stride and
// their lines interleave without touching (de-combing in place: the odd
// lines sit between the even ones). Anything else, overlapping views
// included, takes the step-by-step walk, whose order of reads and writes is
// the defined one.
inline bool fusable(byte_view const &source, byte_view const &destination, int out_lines) {
  std::int64_t const w = source.width;
  if (w % 4 != 0) return false;
  std::int64_t const ss = source.stride, ds = destination.stride;
  std::int64_t const ds_abs = ds < 0 ? -ds : ds;
  if (out_lines > 1 && ds_abs < w) return false;
  auto span = [w](byte_view const &v, int lines, std::int64_t &first, std::int64_t &end) {
    std::int64_t const base = std::int64_t(reinterpret_cast<std::uintptr_t>(v.data));
    std::int64_t const last = std::int64_t(lines - 1) * v.stride;
    first = base + (last < 0 ? last : 0);
    end = base + (last > 0 ? last : 0) + w;
  };
  std::int64_t s0, s1, d0, d1;
  span(source, source.height, s0, s1);
  span(destination, out_lines, d0, d1);
  if (d1 <= s0 || s1 <= d0) return true;
  if (ss != ds || ds_abs < 2 * w) return false;
  // Offset of the destination lines from the source lines, modulo the
  // stride: the lines interleave when it leaves a whole line on both sides.
  std::int64_t offset = (std::int64_t(reinterpret_cast<std::uintptr_t>(destination.data)) -
                         std::int64_t(reinterpret_cast<std::uintptr_t>(source.data))) % ds_abs;
  if (offset < 0) offset += ds_abs;
  return offset >= w && offset <= ds_abs - w;
}

template <bool SourceAligned, bool DestinationAligned, bool Doubled>
void filter(byte_view const &source, byte_view const &destination,
            std::uint8_t const *spill_end) {
  if constexpr (SourceAligned) assert(R::is_aligned(source));
  if constexpr (DestinationAligned) assert(R::is_aligned(destination));
  int const h = source.height;
  int const w = source.width;
  if (h < 1 || w < 1) return;
  if (fusable(source, destination, Doubled ? 2 * h : h)) {
    fused<SourceAligned, DestinationAligned, Doubled>(source, destination);
    return;
  }
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
