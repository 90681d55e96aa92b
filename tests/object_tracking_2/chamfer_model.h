// Scalar model of the chamfer tracker, written from its formulas with plain
// int loops and sharing nothing with the library: the block scan (forward
// pass), the backward pass with the search for the deepest block, and the
// edge search along the rays. Frames are bytes: the pair of pixel x of line y
// at y * stride + (x / 2) * 4, bytes Cb, Y0, Cr, Y1. Maps are (cols + 2) by
// (rows + 2) ints, line by line. A probe whose pixel lies outside the frame
// does not match (the library reads nothing outside the frame).
#ifndef SIGHT_TESTS_OBJECT_TRACKING_2_CHAMFER_MODEL_H_
#define SIGHT_TESTS_OBJECT_TRACKING_2_CHAMFER_MODEL_H_

#include <algorithm>
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
  // |dCb| + |dCr| of the pair holding pixel x of line y.
  int distance(int x, int y, key const &k) const {
    std::uint8_t const *p = data + y * stride + x / 2 * 4;
    return std::abs(p[2] - k.cr) + std::abs(p[0] - k.cb);
  }
};

// Forward pass: a block whose 64 pairs sum to less than 64 * tolerance gets
// 1 + the least of its cells above-left, above, above-right and left, modulo
// 256; any other gets 0.
inline std::vector<int> pass_1(frame const &f, key const &k) {
  int const cols = f.width / 16, rows = f.height / 8, w = cols + 2;
  std::vector<int> map(std::size_t(w * (rows + 2)), 0);
  for (int by = 0; by < rows; ++by)
    for (int bx = 0; bx < cols; ++bx) {
      int sum = 0;
      for (int y = by * 8; y < by * 8 + 8; ++y)
        for (int x = bx * 16; x < bx * 16 + 16; x += 2) sum += f.distance(x, y, k);
      int *c = &map[std::size_t((by + 1) * w + bx + 1)];
      if (sum < k.tolerance * 64) *c = (1 + std::min(std::min(c[-w - 1], c[-w]), std::min(c[-w + 1], c[-1]))) % 256;
    }
  return map;
}

// Backward pass from the last inner line and column down to line and column
// 2; returns the deepest cell (only a strictly deeper one replaces it) and
// its block.
inline int pass_2(std::vector<int> &map, int w, int h, int &bx, int &by) {
  int best = 0;
  for (int y = h - 2; y >= 2; --y)
    for (int x = w - 2; x >= 2; --x) {
      int *c = &map[std::size_t(y * w + x)];
      *c = std::min(*c, 1 + std::min(std::min(c[w], c[w + 1]), std::min(c[w - 1], c[1])));
      if (*c > best) best = *c, bx = x - 1, by = y - 1;
    }
  return best;
}

inline bool matches(frame const &f, key const &k, int x, int y) {
  int const px = x >> 16, py = y >> 16;
  return px >= 0 && px < f.width && py >= 0 && py < f.height && f.distance(px, py, k) < k.tolerance;
}

// Edge search: march from start by step (pixels; positions in 16.16),
// clamping the first coordinate found beyond its limit (x first), then
// bisect the last bracket to within a pixel. A zero step leaves `end`.
inline void edge(frame const &f, key const &k, int const start[2], int const step[2], int end[2]) {
  if (step[0] == 0 && step[1] == 0) return;
  int prev[2] = {start[0] * 65536, start[1] * 65536};
  int cur[2] = {prev[0] + step[0] * 65536, prev[1] + step[1] * 65536};
  int const limit[2] = {(f.width - 1) * 65536, (f.height - 1) * 65536};
  for (bool going = true; going;) {
    for (int a = 0; a < 2 && going; ++a)
      if ((step[a] > 0 && cur[a] > limit[a]) || (step[a] < 0 && cur[a] < 0)) cur[a] = step[a] > 0 ? limit[a] : 0, going = false;
    going = going && matches(f, k, cur[0], cur[1]);
    for (int a = 0; a < 2 && going; ++a) prev[a] = cur[a], cur[a] += step[a] * 65536;
  }
  while (std::abs(cur[0] - prev[0]) > 65536 || std::abs(cur[1] - prev[1]) > 65536) {
    int const mid[2] = {(prev[0] + cur[0]) / 2, (prev[1] + cur[1]) / 2};
    int *side = matches(f, k, mid[0], mid[1]) ? prev : cur;
    side[0] = mid[0], side[1] = mid[1];
  }
  end[0] = cur[0] >> 16, end[1] = cur[1] >> 16;
}

// The rays from block (bx, by) of depth m: directions 2 pi i / 256 as unit
// vectors in 16.16 (single precision), a start 8 pixels out, steps of 10 m.
inline void rays(frame const &f, key const &k, int m, int bx, int by, int centre[2], int ends[256][2]) {
  centre[0] = bx * 16 + 4, centre[1] = by * 8 + 4;
  for (int i = 0; i < 256; ++i) {
    float const angle = float(i) * 0.024543693f;
    int const d[2] = {int(std::floor(std::cos(angle) * 65536.0f + 0.5f)), int(std::floor(std::sin(angle) * 65536.0f + 0.5f))};
    int const start[2] = {centre[0] + (d[0] * 8 >> 16), centre[1] + (d[1] * 8 >> 16)};
    int const step[2] = {d[0] * (10 * m) >> 16, d[1] * (10 * m) >> 16};
    edge(f, k, start, step, ends[i]);
  }
}

}  // namespace chamfer_model

#endif  // SIGHT_TESTS_OBJECT_TRACKING_2_CHAMFER_MODEL_H_
