// Object fit: replaces the winning region by the box with the same centre of
// mass and the same spread along its principal axes (a uniform interval of
// half-width L has variance L * L / 3), within the constraints.
#include <algorithm>
#include <cmath>
#include <utility>

#include <sight/object_tracking/object_tracking.h>

namespace Korvane::Sight {

void object_tracking::fit_object(object_tracking_info &info, moments_type const &m) {
  static float const sqrt3 = std::sqrt(3.0f);
  // An object of exactly minimum_mass is found.
  if (!(minimum_mass > m.mass)) {
    info.object_detected() = e_object_detected(1);
    float const inv = 1.0f / m.mass;
    float const cx = inv * m.sum_x;
    float const cy = inv * m.sum_y;
    info.centre() = glm::vec2(cx, cy);
    float const var_x = inv * m.sum_xx - cx * cx;
    float const var_y = inv * m.sum_yy - cy * cy;
    float const cov = inv * m.sum_xy - cx * cy;

    // 0 in a or s means "no such constraint".
    float const a = constraints().track_aspect() ? 0.0f : constraints().aspect_ratio();
    float const s = constraints().track_size() ? 0.0f : constraints().size();

    float l1, l2;
    glm::vec2 e1(0.0f), e2(0.0f);
    if (constraints().track_rotation()) {
      symmetric_eigen_2x2(var_x, cov, var_y, l1, l2, e1, e2);
    } else {
      l1 = var_x;
      l2 = var_y;
    }

    float p, q;
    if (a == 0.0f) {
      p = sqrtf(l1) * sqrt3;
      q = sqrtf(l2) * sqrt3;
    } else {
      // The box of aspect a nearest to both variances, least squares.
      p = sqrtf(a * a * l1 + l2) * (sqrt3 * a) / sqrtf(a * a * a * a + 1.0f);
      q = p / a;
    }
    if (s != 0.0f) {
      // Hold q at the size and keep the ratio of the two lengths.
      p = p * (s / q);
      q = s;
    }

    // A NaN length passes this test on purpose: only an exact 0 is lost.
    if (p != 0.0f && q != 0.0f) {
      if (!constraints().track_rotation()) {
        info.x_axis() = glm::vec2(p, 0.0f);
        info.y_axis() = glm::vec2(0.0f, q);
        previous_x_axis = glm::vec2(1.0f, 0.0f);
        return;
      }
      glm::vec2 x_axis = e1 * p;
      glm::vec2 y_axis = e2 * q;
      // A principal axis has no sign: keep the one nearest the last frame's.
      if (x_axis.x * previous_x_axis.x + x_axis.y * previous_x_axis.y < 0.0f) x_axis = -x_axis;
      previous_x_axis = x_axis;
      // The eigenvector branches differ in handedness; never mirror the box.
      if (y_axis.y * x_axis.x - x_axis.y * y_axis.x < 0.0f) y_axis = -y_axis;
      info.x_axis() = x_axis;
      info.y_axis() = y_axis;
      return;
    }
  }
  info.object_detected() = e_object_detected(2);
  info.centre() = glm::vec2(0.0f);
  info.x_axis() = glm::vec2(0.0f);
  info.y_axis() = glm::vec2(0.0f);
  previous_x_axis = glm::vec2(1.0f, 0.0f);
}

void object_tracking::symmetric_eigen_2x2(float a, float b, float d, float &l1, float &l2, glm::vec2 &e1,
                                          glm::vec2 &e2) {
  float const mean = (a + d) * 0.5f;
  float const root = sqrtf(mean * mean - (a * d - b * b));
  l1 = root + mean;
  l2 = mean - root;
  float const h = (a - d) * 0.5f;
  float const r = sqrtf(std::max(0.0f, b * b + h * h));
  // Each branch is the formula that does not cancel for that sign of h.
  if (h < 0.0f) {
    e1 = glm::vec2(b, r - h);
    e2 = glm::vec2(h - r, b);
  } else {
    e1 = glm::vec2(r + h, b);
    e2 = glm::vec2(b, -h - r);
  }
  // No guard: a zero vector (equal variances, no covariance) becomes NaN.
  float const n1 = 1.0f / sqrtf(e1.x * e1.x + e1.y * e1.y);
  e1 = glm::vec2(e1.x * n1, e1.y * n1);
  float const n2 = 1.0f / sqrtf(e2.x * e2.x + e2.y * e2.y);
  e2 = glm::vec2(e2.x * n2, e2.y * n2);
  if (l2 > l1) {
    std::swap(l1, l2);
    std::swap(e1, e2);
  }
}

}  // namespace Korvane::Sight
