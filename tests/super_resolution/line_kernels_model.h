// Scalar model of the two slope-limited line kernels, written from their
// formulas with plain int loops and sharing no code with the vector kernels.
// It performs the kernels' loads and stores in the kernels' order, so that
// the bytes a 1-column step leaves behind a line's end (and what a later
// read-back makes of them) come out the same. Body columns (all but the last
// width % 4) stay inside the line; each of the last width % 4 columns stores
// a 4-byte word: byte 0 is the column, bytes 1 to 3 the same arithmetic on
// fill(v) = 255 for v >= 128, else 0. Word bytes at or past `spill_end` are
// not stored.
#ifndef TESTS_SUPER_RESOLUTION_LINE_KERNELS_MODEL_H_
#define TESTS_SUPER_RESOLUTION_LINE_KERNELS_MODEL_H_

#include <cstdint>

namespace line_model {

// A byte view as the kernels see it: line i starts at data + i * stride.
struct view {
  std::uint8_t *data;
  int width;
  int height;
  int stride;
};

inline std::uint8_t *at(view const &v, int line, int x) {
  return v.data + static_cast<long long>(line) * v.stride + x;
}

inline int absolute(int v) { return v < 0 ? -v : v; }
inline int smallest(int a, int b) { return a < b ? a : b; }
inline int largest(int a, int b) { return a > b ? a : b; }

// upper(y) (is_upper) or lower(y) from the taps, by the table: off a slope
// both are the centre; on a slope the flatter side gives its neighbour and
// the other half-line is its mirror about the centre.
inline int half_line(bool is_upper, int above, int centre, int below) {
  bool const on_slope = smallest(above, below) <= centre && centre <= largest(above, below);
  bool const flatter_above = absolute(above - centre) <= absolute(below - centre);
  if (!on_slope) return centre;
  if (flatter_above) return is_upper ? above : 2 * centre - above;
  return is_upper ? 2 * centre - below : below;
}
inline int upper(int above, int centre, int below) { return half_line(true, above, centre, below); }
inline int lower(int above, int centre, int below) { return half_line(false, above, centre, below); }

inline int avg(int u, int v) { return (u + v + 1) >> 1; }

inline int fill(int v) { return v >= 128 ? 255 : 0; }

// Stores the word (b0, b1, b1, b1) at p, byte by byte, skipping bytes at or
// past spill_end.
inline void store_word(std::uint8_t *p, int b0, int b1, std::uint8_t const *spill_end) {
  int const bytes[4] = {b0, b1, b1, b1};
  for (int i = 0; i < 4; ++i)
    if (p + i < spill_end) p[i] = static_cast<std::uint8_t>(bytes[i]);
}

// One pass of either kernel. For source line y: the read-back line (y >= 1),
// the lower line and, for double_lines, the copy of the source line.
inline void run(view const &s, view const &d, std::uint8_t const *spill_end, bool doubled) {
  int const h = s.height;
  int const w = s.width;
  if (h < 1) return;
  int const body = w > 0 ? w - w % 4 : 0;
  for (int y = 0; y < h; ++y) {
    int const ya = y - 1 < 0 ? 0 : y - 1;
    int const yb = y + 1 > h - 1 ? h - 1 : y + 1;
    int const back_line = doubled ? 2 * y - 1 : y - 1;
    int const lower_line = doubled ? 2 * y + 1 : y;
    int const copy_line = 2 * y;
    for (int x = 0; x < w; ++x) {
      int const a = *at(s, ya, x);
      int const c = *at(s, y, x);
      int const b = *at(s, yb, x);
      int const r = y >= 1 ? *at(d, back_line, x) : 0;
      if (x < body) {
        if (y >= 1) *at(d, back_line, x) = static_cast<std::uint8_t>(avg(r, upper(a, c, b)));
        *at(d, lower_line, x) = static_cast<std::uint8_t>(lower(a, c, b));
        if (doubled) *at(d, copy_line, x) = static_cast<std::uint8_t>(c);
        continue;
      }
      int const fa = fill(a), fc = fill(c), fb = fill(b);
      if (y >= 1)
        store_word(at(d, back_line, x), avg(r, upper(a, c, b)), avg(fill(r), upper(fa, fc, fb)),
                   spill_end);
      store_word(at(d, lower_line, x), lower(a, c, b), lower(fa, fc, fb), spill_end);
      if (doubled) store_word(at(d, copy_line, x), c, fc, spill_end);
    }
  }
}

// h source lines give the h lines half a source line further down.
inline void shift_half_line(view const &s, view const &d, std::uint8_t const *spill_end) {
  run(s, d, spill_end, false);
}

// h source lines give 2h lines: each source line and the line below it.
inline void double_lines(view const &s, view const &d, std::uint8_t const *spill_end) {
  run(s, d, spill_end, true);
}

}  // namespace line_model

#endif  // TESTS_SUPER_RESOLUTION_LINE_KERNELS_MODEL_H_
