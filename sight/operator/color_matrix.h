// The colour matrix that the colour-key operators share, the rule that turns
// a key colour into 8-bit chroma, and the integer chroma coefficients of the
// vector kernels.
#ifndef SIGHT_OPERATOR_COLOR_MATRIX_H_
#define SIGHT_OPERATOR_COLOR_MATRIX_H_

#include <cstdint>

#include <glm/mat4x4.hpp>
#include <glm/vec2.hpp>
#include <glm/vec3.hpp>

namespace Korvane::Sight {

// RGB in 0..1 to (Y, Cb, Cr, 1) in 0..1 (BT.601, video range), applied to the
// column (R, G, B, 1). glm stores columns: m[column][row].
//
//          R       G       B     constant
//   Y    0.257   0.504   0.098   0.063
//   Cb  -0.148  -0.291   0.439   0.502
//   Cr   0.439  -0.368  -0.071   0.502
inline glm::mat4 rgb_to_ycbcr_matrix() {
  return glm::mat4(0.257f, -0.148f, 0.439f, 0.0f,   // R
                   0.504f, -0.291f, -0.368f, 0.0f,  // G
                   0.098f, 0.439f, -0.071f, 0.0f,   // B
                   0.063f, 0.502f, 0.502f, 1.0f);   // constant
}

// Integer chroma of a pixel in the vector kernels: words for B, G, R and A,
// row 0 Cb and row 1 Cr, summed in 32 bits and shifted right by 8, with A
// taken as 255 so that 129 * 255 brings the offset of 128 and a rounding half
// in one. The hot spots use -74 for G in Cb, the rounded -0.291 * 256 of the
// matrix. The tracker uses -64 there: that is the tracker's defined
// arithmetic (a grey pixel does not come out neutral under it, white gives
// Cb 138), and its key tolerance absorbs the offset against the key that the
// matrix gives. Every result of each operator depends on its own set, so
// both stay as they are.
inline constexpr std::int16_t hot_spots_rgb_cbcr[2][4] = {{112, -74, -38, 129}, {-18, -94, 112, 129}};
inline constexpr std::int16_t tracker_rgb_cbcr[2][4] = {{112, -64, -38, 129}, {-18, -94, 112, 129}};

}  // namespace Korvane::Sight

#endif  // SIGHT_OPERATOR_COLOR_MATRIX_H_
