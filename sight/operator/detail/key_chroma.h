// The key colour of a colour-key operator as 8-bit chroma.
#ifndef SIGHT_OPERATOR_DETAIL_KEY_CHROMA_H_
#define SIGHT_OPERATOR_DETAIL_KEY_CHROMA_H_

#include <glm/mat4x4.hpp>
#include <glm/vec2.hpp>

#include <sight/operator/detail/float_to_int.h>

namespace Korvane::Sight::detail {

// (Cb, Cr) of r, g, b in 0..1 through 255 times `rgb_to_ycbcr`: each row
// summed left to right in single precision as written (not in the grouping
// of a matrix product, which rounds differently), plus 0.5, truncated and
// clamped to 0..255.
inline glm::ivec2 key_chroma(glm::mat4 const &rgb_to_ycbcr, float r, float g, float b) {
  glm::mat4 const m = 255.0f * rgb_to_ycbcr;
  float const cb = m[0][1] * r + m[1][1] * g + m[2][1] * b + m[3][1] + 0.5f;
  float const cr = m[0][2] * r + m[1][2] * g + m[2][2] * b + m[3][2] + 0.5f;
  return {truncate_clamped(cb, 0, 255), truncate_clamped(cr, 0, 255)};
}

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OPERATOR_DETAIL_KEY_CHROMA_H_
