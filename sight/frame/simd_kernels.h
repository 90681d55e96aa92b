// 128-bit loads and stores shared by the kernels: one template body serves
// the aligned member (which demands 16-byte addresses) and the unaligned one.
// Private to the library; included only by *_kernels.cpp sources.
#ifndef SIGHT_FRAME_SIMD_KERNELS_H_
#define SIGHT_FRAME_SIMD_KERNELS_H_

#include <emmintrin.h>

namespace Korvane::Sight::simd {

template <bool Aligned>
inline __m128i load(void const *p) {
  if constexpr (Aligned)
    return _mm_load_si128(static_cast<__m128i const *>(p));
  else
    return _mm_loadu_si128(static_cast<__m128i const *>(p));
}

template <bool Aligned>
inline void store(void *p, __m128i v) {
  if constexpr (Aligned)
    _mm_store_si128(static_cast<__m128i *>(p), v);
  else
    _mm_storeu_si128(static_cast<__m128i *>(p), v);
}

}  // namespace Korvane::Sight::simd

#endif  // SIGHT_FRAME_SIMD_KERNELS_H_
