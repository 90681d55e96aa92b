// Naive scalar model of the corner detector, written from the rule alone with
// plain loops and nothing shared with the library: the segment test of one
// pixel, its strength, the scanned area, the suppression and the extraction.
#ifndef SIGHT_TESTS_CORNER_SEGMENT_MODEL_H_
#define SIGHT_TESTS_CORNER_SEGMENT_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace corner_model {

// A 4:2:2 picture as the model sees it: rows of Cb Y Cr Y bytes.
struct picture {
  std::uint8_t const *data;
  int width;
  int height;
  std::ptrdiff_t stride;
};

// Full 8-bit luma of pixel (x, y): the odd byte of its pair. The address rule
// holds for any x, also past the width, as the detector's whole last block
// reads it.
inline int luma(picture const &p, int x, int y) {
  return p.data[std::ptrdiff_t(y) * p.stride + 2 * std::ptrdiff_t(x) + 1];
}

// The ring of radius 3, in cyclic order.
inline constexpr int ring_dx[16] = {0, 1, 2, 3, 3, 3, 2, 1, 0, -1, -2, -3, -3, -3, -2, -1};
inline constexpr int ring_dy[16] = {-3, -3, -2, -1, 0, 1, 2, 3, 3, 3, 2, 1, 0, -1, -2, -3};

inline int to_signed_byte(int v) { return (v & 0xFF) >= 128 ? (v & 0xFF) - 256 : v & 0xFF; }
inline int saturate_signed_byte(int v) { return v < -128 ? -128 : v > 127 ? 127 : v; }

// The two halves of threshold t: th = t / 2 truncated and cut to a signed
// byte; tr = low byte of t minus low byte of th, as a signed byte.
inline int threshold_low(int t) { return to_signed_byte(t / 2); }
inline int threshold_high(int t) { return to_signed_byte((t & 0xFF) - (threshold_low(t) & 0xFF)); }

// A corner: nine cyclically contiguous ring positions darker than
// sat(Y7(c) - th), or nine brighter than sat(Y7(c) + tr), Y7 = Y >> 1.
inline bool is_corner(picture const &p, int x, int y, int t) {
  int const centre = luma(p, x, y) >> 1;
  int const low = saturate_signed_byte(centre - threshold_low(t));
  int const high = saturate_signed_byte(centre + threshold_high(t));
  for (int start = 0; start < 16; ++start) {
    int dark = 0, bright = 0;
    for (int k = start; k < start + 9; ++k) {
      int const v = luma(p, x + ring_dx[k % 16], y + ring_dy[k % 16]) >> 1;
      dark += low > v, bright += v > high;
    }
    if (dark == 9 || bright == 9) return true;
  }
  return false;
}

// Sum over the ring of |Y(p) - Y(c)| on full 8-bit luma.
inline int strength(picture const &p, int x, int y) {
  int const centre = luma(p, x, y);
  int sum = 0;
  for (int k = 0; k < 16; ++k) {
    int const d = luma(p, x + ring_dx[k], y + ring_dy[k]) - centre;
    sum += d < 0 ? -d : d;
  }
  return sum;
}

// Columns [x0, x1) and rows [y0, y1) whose pixels are tested: rows 8 to
// height - 9; blocks of 16 columns from x = 8 for as long as a block's first
// column is below width - 8, each tested whole.
struct area {
  int x0, x1, y0, y1;
};
inline area scanned_area(int width, int height) {
  area a{8, 8, 8, 8};
  if (height - 8 > 8) a.y1 = height - 8;
  for (int x = 8; x < width - 8; x += 16) a.x1 = x + 16;
  if (a.y1 == a.y0 || a.x1 == a.x0) a = area{8, 8, 8, 8};
  return a;
}

struct record {
  int x, y, strength;
};

// Every corner of the scanned area with its strength, sorted by row, then column.
inline std::vector<record> corners(picture const &p, int t) {
  std::vector<record> out;
  area const a = scanned_area(p.width, p.height);
  for (int y = a.y0; y < a.y1; ++y)
    for (int x = a.x0; x < a.x1; ++x)
      if (is_corner(p, x, y, t)) out.push_back({x, y, strength(p, x, y)});
  return out;
}

// Each record in scan order whose strength is not 0 meets its later
// neighbours (x + 1, y), (x - 1, y + 1), (x, y + 1), (x + 1, y + 1) in that
// order: on strength <= the neighbour's it drops out (strength 0), otherwise
// the neighbour drops out. Returns how many got through all their neighbours.
inline int non_maxima_suppresion(std::vector<record> &records) {
  std::map<std::pair<int, int>, std::size_t> at;
  for (std::size_t i = 0; i < records.size(); ++i) at[{records[i].x, records[i].y}] = i;
  int const nx[4] = {1, -1, 0, 1};
  int const ny[4] = {0, 1, 1, 1};
  int survivors = 0;
  for (record &r : records) {
    if (r.strength == 0) continue;
    bool beaten = false;
    for (int n = 0; n < 4 && !beaten; ++n) {
      auto const it = at.find({r.x + nx[n], r.y + ny[n]});
      if (it == at.end()) continue;
      record &other = records[it->second];
      if (r.strength <= other.strength) r.strength = 0, beaten = true;
      else other.strength = 0;
    }
    if (!beaten) ++survivors;
  }
  return survivors;
}

// Positions of the records whose strength is not 0, in order.
inline std::vector<std::pair<int, int>> features_extract(std::vector<record> const &records) {
  std::vector<std::pair<int, int>> out;
  for (record const &r : records)
    if (r.strength != 0) out.push_back({r.x, r.y});
  return out;
}

}  // namespace corner_model

#endif  // SIGHT_TESTS_CORNER_SEGMENT_MODEL_H_
