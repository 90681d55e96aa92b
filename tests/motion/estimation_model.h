// Scalar model of the estimation loop, one pixel at a time, written from the
// formulas: the lines it prints and the debug picture of an iteration.
#ifndef TESTS_MOTION_ESTIMATION_MODEL_H_
#define TESTS_MOTION_ESTIMATION_MODEL_H_

#include <sight/operator/detail/float_to_int.h>
#include <sight/operator/detail/ldlt_solve.h>

#include <Eigen/Core>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace motion_model {

struct plane {
  std::uint8_t const *data;
  int stride;
  int at(int x, int y) const { return data[std::ptrdiff_t(y) * stride + x]; }
};

// Runs `iterations` iterations on first (w by h) and second from (a, b, tx,
// ty); returns the printed lines, and in `picture` the BGRA bytes (w·4 a
// line) of the last iteration's debug picture (never-written pixels: 0).
inline std::vector<std::string> run(plane first, plane second, int w, int h, int iterations,
                                    std::vector<std::uint8_t> *picture = nullptr,
                                    float a = 1.0f, float b = 0.0f, float tx = 0.0f,
                                    float ty = 0.0f) {
  std::vector<std::string> lines;
  for (int it = 0; it < iterations; ++it) {
    float H[4][4] = {}, g[4] = {}, E = 0.0f;
    if (picture) picture->assign(std::size_t(w) * std::size_t(h) * 4, 0);
    for (int y = 0; y <= h - 2; ++y) {
      for (int x = 0; x <= w - 2; ++x) {
        float const xf = float(x), yf = float(y);
        float const px = (xf * a - yf * b) + tx;
        float const py = (xf * b + yf * a) + ty;
        int const ix = std::max(std::min(Korvane::Sight::detail::truncate_saturated(px), w - 2), 0);
        int const iy = std::max(std::min(Korvane::Sight::detail::truncate_saturated(py), h - 2), 0);
        int const p0 = first.at(x, y);
        int const e = second.at(ix, iy) - p0;
        int const gx = first.at(x + 1, y) - p0;
        int const gy = first.at(x, y + 1) - p0;
        // 32-bit products with wrap-around: unsigned arithmetic, read back as signed.
        auto mul = [](int u, int v) { return std::int32_t(std::uint32_t(u) * std::uint32_t(v)); };
        int const ja = std::int32_t(std::uint32_t(mul(gx, x)) + std::uint32_t(mul(gy, y)));
        int const jb = std::int32_t(std::uint32_t(mul(gy, x)) - std::uint32_t(mul(gx, y)));
        if (picture) {
          std::uint8_t const v = std::uint8_t(std::min(std::abs(e) * 4, 255));
          std::uint8_t *q = picture->data() + (std::size_t(y) * std::size_t(w) + std::size_t(x)) * 4;
          q[0] = q[1] = q[2] = v;
          q[3] = 255;
        }
        E += (float(e) * 0.5f) * float(e);
        int const J[4] = {ja, jb, gx, gy};
        for (int i = 0; i < 4; ++i) {
          for (int j = i; j < 4; ++j) H[i][j] += float(mul(J[i], J[j]));
          g[i] += float(mul(J[i], e));
        }
      }
    }
    char text[64];
    std::snprintf(text, sizeof text, "%f\n", double(E));
    lines.push_back(text);
    Eigen::Matrix4f m;
    Eigen::Vector4f v;
    for (int i = 0; i < 4; ++i) {
      v[i] = g[i];
      for (int j = 0; j < 4; ++j) m(i, j) = i <= j ? H[i][j] : H[j][i];
    }
    Eigen::Vector4f const d = Korvane::Sight::detail::ldlt_solve<4>(m, v);
    a = a + (0.0f - d[0]);
    b = b + (0.0f - d[1]);
    tx = tx + (0.0f - d[2]);
    ty = ty + (0.0f - d[3]);
  }
  return lines;
}

}  // namespace motion_model

#endif  // TESTS_MOTION_ESTIMATION_MODEL_H_
