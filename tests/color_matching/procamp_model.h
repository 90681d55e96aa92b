// Scalar model of the procamp correction, from its formulas: the settings'
// matrix, the running-sum fixed-point tables and the per-macro-pixel sums,
// in plain int arithmetic.
#ifndef TESTS_COLOR_MATCHING_PROCAMP_MODEL_H_
#define TESTS_COLOR_MATCHING_PROCAMP_MODEL_H_

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace procamp_model {

struct settings {
  float brightness, contrast, saturation, u_offset, v_offset;
};

// Nearest, ties to even, saturated to 16 bits; NaN and anything outside the
// 32-bit range give -32768.
inline int to_fixed(float v) {
  if (!(v >= -2147483648.0f && v < 2147483648.0f)) return -32768;
  double const below = std::floor(double(v)), fraction = double(v) - below;
  long long r = static_cast<long long>(below);
  if (fraction > 0.5 || (fraction == 0.5 && r % 2 != 0)) ++r;
  return int(std::clamp(r, -32768LL, 32767LL));
}

// Every macro-pixel of the width x height source whose four bytes lie
// within 2 * width is corrected into dst; nothing else of dst is written.
inline void apply(settings const &s, std::uint8_t const *src, int src_stride, int width, int height,
                  std::uint8_t *dst, int dst_stride) {
  float const cs = std::cos(0.0f), sn = std::sin(0.0f);
  float const B = s.brightness, K = s.contrast, S = s.saturation, U = s.u_offset, V = s.v_offset;
  float const m[3][4] = {
      {K, 0, 0, ((B * 2 - 1) * K + K) * 0.5f},
      {0, cs * S, -(sn * S), (((sn * 2 * S) * V - sn * S) - (cs * 2 * S) * U + cs * S - 1) * -0.5f},
      {0, sn * S, cs * S, (((cs * 2 * S) * V - cs * S) + (sn * 2 * S) * U - sn * S + 1) * 0.5f}};
  int const row_of_lane[4] = {1, 0, 2, 0};  // outputs Cb, Y0, Cr, Y1
  int table[3][256][4];                      // by input: luma, Cb, Cr
  for (int in = 0; in < 3; ++in)
    for (int lane = 0; lane < 4; ++lane) {
      float sum = in == 0 ? 8160 * m[row_of_lane[lane]][3] : 0.0f;
      float const step = 32 * m[row_of_lane[lane]][in];
      for (int i = 0; i < 256; ++i, sum += step) table[in][i][lane] = to_fixed(sum);
    }
  auto saturate = [](int v) { return std::clamp(v, -32768, 32767); };
  for (int y = 0; y < height; ++y)
    for (int x = 0; x + 4 <= 2 * width; x += 4) {
      std::uint8_t const *p = src + std::ptrdiff_t(y) * src_stride + x;
      for (int lane = 0; lane < 4; ++lane) {
        int const sum = saturate(table[1][p[0]][lane] + table[2][p[2]][lane]);
        int const out = saturate(sum + table[0][lane < 2 ? p[1] : p[3]][lane]) >> 5;
        dst[std::ptrdiff_t(y) * dst_stride + x + lane] = std::uint8_t(std::clamp(out, 0, 255));
      }
    }
}

}  // namespace procamp_model

#endif  // TESTS_COLOR_MATCHING_PROCAMP_MODEL_H_
