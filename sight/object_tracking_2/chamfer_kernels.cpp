// Kernels of the chamfer tracker: the block scan with sums of absolute
// differences, and the scalar edge search along a ray.
#include <sight/object_tracking_2/chamfer_kernels.h>

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <algorithm>

#include <emmintrin.h>
#include <smmintrin.h>  // _mm_extract_epi32
#include <tmmintrin.h>  // _mm_alignr_epi8

#include <sight/frame/simd_kernels.h>
#include <sight/object_tracking_2/object_tracking_2.h>

namespace Korvane::Sight::detail {

namespace R = Tamarind::Rasters;

template <bool Aligned>
void chamfer_pass_1(ycbcr_bitmap const &frame, __m128i key_cbcr, int limit, y_bitmap &map) {
  if constexpr (Aligned) assert(R::is_aligned(frame));
  int const cols = frame.width / 16, rows = frame.height / 8;
  std::ptrdiff_t const stride = frame.stride;
  __m128i const mask = object_tracking_2::g_255;
  for (int by = 0; by < rows; ++by) {
    auto const *band = reinterpret_cast<std::uint8_t const *>(R::line(frame, std::int64_t(by) * 8));
    // Cells are addressed from column 1, so that [bx - 1] and [bx + 1] are
    // the neighbours and [-1] the left border.
    std::uint8_t const *above = &R::line(map, by)[1].y;
    std::uint8_t *cell = &R::line(map, by + 1)[1].y;
    for (int bx = 0; bx < cols; ++bx) {
      std::uint8_t const *p = band + bx * 32;
      // Luma bytes are masked to 0 and the key has 0 there, so they add
      // nothing; _mm_sad_epu8 leaves two 16-bit sums in the 64-bit halves.
      __m128i s0 = _mm_setzero_si128(), s1 = _mm_setzero_si128();
      for (int k = 0; k < 8; ++k, p += stride) {
        s0 = _mm_add_epi32(s0, _mm_sad_epu8(_mm_and_si128(simd::load<Aligned>(p), mask), key_cbcr));
        s1 = _mm_add_epi32(s1, _mm_sad_epu8(_mm_and_si128(simd::load<Aligned>(p + 16), mask), key_cbcr));
      }
      __m128i const s = _mm_add_epi32(s0, s1);
      int const sum = _mm_cvtsi128_si32(s) + _mm_extract_epi32(s, 2);
      if (sum < limit) {
        std::uint8_t least = above[bx - 1];
        if (above[bx] < least) least = above[bx];
        if (above[bx + 1] < least) least = above[bx + 1];
        if (cell[bx - 1] < least) least = cell[bx - 1];
        cell[bx] = std::uint8_t(least + 1);
      } else {
        cell[bx] = 0;
      }
    }
  }
}

template void chamfer_pass_1<true>(ycbcr_bitmap const &, __m128i, int, y_bitmap &);
template void chamfer_pass_1<false>(ycbcr_bitmap const &, __m128i, int, y_bitmap &);

namespace {

// Whether the pair at 16.16 position (x, y) lies within the key's tolerance;
// a position whose pixel is outside the frame does not.
bool matches(edge_probe const &probe, int x, int y) {
  int const px = x >> 16, py = y >> 16;
  if (px < 0 || px >= probe.width || py < 0 || py >= probe.height) return false;
  std::uint8_t const *pair = probe.data + std::ptrdiff_t(py) * probe.stride + std::ptrdiff_t(x >> 17) * 4;
  return std::abs(pair[2] - probe.key_cr) + std::abs(pair[0] - probe.key_cb) < probe.key_tolerance;
}

}  // namespace

void find_edge(edge_probe const &probe, int const start[2], int const step[2], int lx, int ly, int end[2]) {
  int const tx = step[0], ty = step[1];
  if (tx == 0 && ty == 0) return;
  int px = start[0] << 16, py = start[1] << 16;
  int cx = px + (tx << 16), cy = py + (ty << 16);
  int const bound_x = tx > 0 ? lx << 16 : 0, bound_y = ty > 0 ? ly << 16 : 0;
  for (;;) {
    if ((tx > 0 && cx > bound_x) || (tx < 0 && cx < bound_x)) {
      cx = bound_x;
      break;
    }
    if ((ty > 0 && cy > bound_y) || (ty < 0 && cy < bound_y)) {
      cy = bound_y;
      break;
    }
    if (!matches(probe, cx, cy)) break;
    px = cx, py = cy;
    cx += tx << 16, cy += ty << 16;
  }
  while (std::abs(cx - px) > 0x10000 || std::abs(cy - py) > 0x10000) {
    int const mx = (px + cx) / 2, my = (py + cy) / 2;
    if (matches(probe, mx, my))
      px = mx, py = my;
    else
      cx = mx, cy = my;
  }
  end[0] = cx >> 16;
  end[1] = cy >> 16;
}

namespace {

// Lane i becomes the least of itself and lane i + S plus S; the top S lanes
// look at 255.
template <int S>
__m128i reach(__m128i v) {
  return _mm_min_epu8(v, _mm_adds_epu8(_mm_alignr_epi8(_mm_set1_epi8(-1), v, S), _mm_set1_epi8(char(S))));
}

}  // namespace

int chamfer_row_2(std::uint8_t *cell, std::uint8_t const *below, int w) {
  if (w < 4) return 0;
  // c'[x] = min(d[x], c'[x+1] + 1) with d[x] = min(cell[x], least of the
  // three below + 1): within 16 cells that is the least of d[x+j] + j,
  // formed in four steps that double j's reach, each filling the lanes
  // shifted in with 255, which no sum can undercut; then the cell right of
  // the 16 (carry) adds 16 - i to lane i. Saturation at 255 changes no
  // result, since every cell is at most its own d.
  __m128i const ramp = _mm_setr_epi8(16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
  __m128i const one = _mm_set1_epi8(1);
  __m128i most = _mm_setzero_si128();
  unsigned carry = cell[w - 1];
  int x = w - 2;
  for (; x - 15 >= 2; x -= 16) {
    std::uint8_t *const c = cell + x - 15;
    std::uint8_t const *const b = below + x - 15;
    __m128i const b3 = _mm_min_epu8(_mm_min_epu8(simd::load<false>(b - 1), simd::load<false>(b)),
                                    simd::load<false>(b + 1));
    __m128i v = _mm_min_epu8(simd::load<false>(c), _mm_adds_epu8(b3, one));
    v = reach<1>(v);
    v = reach<2>(v);
    v = reach<4>(v);
    v = reach<8>(v);
    v = _mm_min_epu8(v, _mm_adds_epu8(_mm_set1_epi8(char(carry)), ramp));
    simd::store<false>(c, v);
    carry = unsigned(_mm_cvtsi128_si32(v)) & 255;
    most = _mm_max_epu8(most, v);
  }
  unsigned top = 0;
  for (; x >= 2; --x) {
    unsigned least = std::min({unsigned(below[x - 1]), unsigned(below[x]), unsigned(below[x + 1]), carry});
    if (least + 1 < cell[x]) cell[x] = std::uint8_t(least + 1);
    carry = cell[x];
    top = std::max(top, carry);
  }
  most = _mm_max_epu8(most, _mm_srli_si128(most, 8));
  most = _mm_max_epu8(most, _mm_srli_si128(most, 4));
  most = _mm_max_epu8(most, _mm_srli_si128(most, 2));
  most = _mm_max_epu8(most, _mm_srli_si128(most, 1));
  return int(std::max(top, unsigned(_mm_cvtsi128_si32(most)) & 255));
}

}  // namespace Korvane::Sight::detail
