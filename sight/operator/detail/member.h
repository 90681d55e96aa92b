// Picks the member of a kernel for the bitmaps of a call. Every vector kernel
// has an aligned member (data and |stride| multiples of 16: aligned loads and
// stores) and an unaligned one, built from one template body, and gives the
// same bytes in both. A driver hands the call as a generic lambda, which gets
// the choice as std::true_type or std::false_type and passes it on as the
// kernel's template argument:
//
//   return with_member(
//       [&](auto aligned) { return count_spot_bgra<aligned>(key, frame, lt, rb); },
//       frame);
//
// with_flag turns any other run-time choice (preview, say) into a type the
// same way, so that kernels with two template choices are picked in one line.
#ifndef SIGHT_OPERATOR_DETAIL_MEMBER_H_
#define SIGHT_OPERATOR_DETAIL_MEMBER_H_

#include <type_traits>

#include <sight/frame/bitmap.h>

namespace Korvane::Sight::detail {

template <class F>
decltype(auto) with_flag(bool flag, F &&f) {
  if (flag) return f(std::true_type{});
  return f(std::false_type{});
}

// The aligned member when every bitmap given is aligned, else the unaligned.
template <class F, class... Bitmaps>
decltype(auto) with_member(F &&f, Bitmaps const &...bitmaps) {
  return with_flag((Tamarind::Rasters::is_aligned(bitmaps) && ...), static_cast<F &&>(f));
}

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OPERATOR_DETAIL_MEMBER_H_
