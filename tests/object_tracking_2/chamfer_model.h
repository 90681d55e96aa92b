// Scalar model of the chamfer tracker, written from its formulas with plain
// int loops: the block scan (forward pass), the backward pass with the
// search for the deepest block, the direction table, the edge search along a
// ray, and the rays of a frame. It shares nothing with the library.
//
// Frames are bytes: pair (x / 2) of line y at data + y * stride + (x / 2) * 4,
// bytes Cb, Y0, Cr, Y1. Maps are (cols + 2) by (rows + 2) ints, row by row.
// A probe whose pixel lies outside the frame does not match (the library
// reads nothing outside the frame).
#ifndef SIGHT_TESTS_OBJECT_TRACKING_2_CHAMFER_MODEL_H_
#define SIGHT_TESTS_OBJECT_TRACKING_2_CHAMFER_MODEL_H_

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace chamfer_model {

struct key {
  int cb, cr, tolerance;
};

struct frame {
  std::uint8_t const *data;
  long stride;
  int width, height;
  int cb(int x, int y) const { return data[y * stride + (x / 2) * 4]; }
  int cr(int x, int y) const { return data[y * stride + (x / 2) * 4 + 2]; }
};

// Forward pass: cell (bx + 1, by + 1) is 0 unless the block's sum of
// |dCb| + |dCr| over its 64 pairs is below 64 * tolerance; then 1 + the least
// of above-left, above, above-right and left, modulo 256.
inline std::vector<int> pass_1(frame const &f, key const &k) {
  int const cols = f.width / 16, rows = f.height / 8, w = cols + 2;
  std::vector<int> map(std::size_t(w * (rows + 2)), 0);
  for (int by = 0; by < rows; ++by)
    for (int bx = 0; bx < cols; ++bx) {
      int sum = 0;
      for (int y = by * 8; y < by * 8 + 8; ++y)
        for (int x = bx * 16; x < bx * 16 + 16; x += 2) sum += std::abs(f.cb(x, y) - k.cb) + std::abs(f.cr(x, y) - k.cr);
      int const i = (by + 1) * w + bx + 1;
      if (sum < k.tolerance * 64) {
        int least = map[i - w - 1];
        for (int n : {map[i - w], map[i - w + 1], map[i - 1]}) least = n < least ? n : least;
        map[i] = (least + 1) % 256;
      }
    }
  return map;
}

// Backward pass from the last inner line and column down to line and column
// 2; returns the deepest cell (strictly deeper wins) and its block.
inline int pass_2(std::vector<int> &map, int w, int h, int &bx, int &by) {
  int best = 0;
  for (int y = h - 2; y >= 2; --y)
    for (int x = w - 2; x >= 2; --x) {
      int &c = map[std::size_t(y * w + x)];
      int least = map[std::size_t((y + 1) * w + x)];
      for (int n : {map[std::size_t((y + 1) * w + x + 1)], map[std::size_t((y + 1) * w + x - 1)], map[std::size_t(y * w + x + 1)]})
        least = n < least ? n : least;
      if (least + 1 < c) c = least + 1;
      if (c > best) best = c, bx = x - 1, by = y - 1;
    }
  return best;
}

inline bool matches(frame const &f, key const &k, int x, int y) {
  if ((x >> 16) < 0 || (x >> 16) >= f.width || (y >> 16) < 0 || (y >> 16) >= f.height) return false;
  int const px = x >> 16, py = y >> 16;
  return std::abs(f.cr(px, py) - k.cr) + std::abs(f.cb(px, py) - k.cb) < k.tolerance;
}

// Edge search: march from start by step (both in pixels, positions in
// 16.16), clamping the first coordinate found beyond its limit (x first),
// then bisect the last bracket to within a pixel. False, with `end`
// untouched, for a zero step.
inline bool edge(frame const &f, key const &k, int const start[2], int const step[2], int lx, int ly, int end[2]) {
  if (step[0] == 0 && step[1] == 0) return false;
  int prev[2] = {start[0] * 65536, start[1] * 65536};
  int cur[2] = {prev[0] + step[0] * 65536, prev[1] + step[1] * 65536};
  int const limit[2] = {lx * 65536, ly * 65536};
  for (bool going = true; going;) {
    for (int a = 0; a < 2 && going; ++a) {
      int const bound = step[a] > 0 ? limit[a] : 0;
      if ((step[a] > 0 && cur[a] > bound) || (step[a] < 0 && cur[a] < bound)) cur[a] = bound, going = false;
    }
    if (going && !matches(f, k, cur[0], cur[1])) going = false;
    if (going)
      for (int a = 0; a < 2; ++a) prev[a] = cur[a], cur[a] += step[a] * 65536;
  }
  while (std::abs(cur[0] - prev[0]) > 65536 || std::abs(cur[1] - prev[1]) > 65536) {
    int const mid[2] = {(prev[0] + cur[0]) / 2, (prev[1] + cur[1]) / 2};
    int *side = matches(f, k, mid[0], mid[1]) ? prev : cur;
    side[0] = mid[0], side[1] = mid[1];
  }
  end[0] = cur[0] >> 16, end[1] = cur[1] >> 16;
  return true;
}

// Unit vectors of 2 pi i / 256 in 16.16, in single precision.
inline int direction(int i, int axis) {
  float const angle = float(i) * 0.024543693f;
  return int(std::floor((axis == 0 ? std::cos(angle) : std::sin(angle)) * 65536.0f + 0.5f));
}

// The rays of a frame whose deepest block (bx, by) has depth m: centre and
// the 256 end points.
struct star {
  int centre[2];
  int ends[256][2];
};
inline star rays(frame const &f, key const &k, int m, int bx, int by) {
  star s{{bx * 16 + 4, by * 8 + 4}, {}};
  for (int i = 0; i < 256; ++i) {
    int const dx = direction(i, 0), dy = direction(i, 1);
    int const start[2] = {s.centre[0] + (dx * 8 >> 16), s.centre[1] + (dy * 8 >> 16)};
    int const step[2] = {dx * (10 * m) >> 16, dy * (10 * m) >> 16};
    edge(f, k, start, step, f.width - 1, f.height - 1, s.ends[i]);
  }
  return s;
}

}  // namespace chamfer_model

#endif  // SIGHT_TESTS_OBJECT_TRACKING_2_CHAMFER_MODEL_H_
