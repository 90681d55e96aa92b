// Float to int conversions that are defined for every input, NaN and values
// beyond the int range included (a plain conversion of those is undefined).
#ifndef SIGHT_OPERATOR_DETAIL_FLOAT_TO_INT_H_
#define SIGHT_OPERATOR_DETAIL_FLOAT_TO_INT_H_

#include <climits>

namespace Korvane::Sight::detail {

// Truncates toward zero and clamps to lo..hi; NaN gives lo. Clamping in
// float first gives what truncation followed by clamping gives.
inline int truncate_clamped(float v, int lo, int hi) {
  if (!(v > float(lo))) return lo;
  if (v >= float(hi)) return hi;
  return int(v);
}

// Truncates toward zero, saturating to the int range; NaN gives 0.
inline int truncate_saturated(float v) {
  if (v >= 2147483648.0f) return INT_MAX;
  if (v < -2147483648.0f) return INT_MIN;
  if (v != v) return 0;
  return int(v);
}

// Rounds half away from zero (0.5 off a negative value, onto any other),
// saturating as truncate_saturated does.
inline int round_away(float v) { return truncate_saturated(v < 0.0f ? v - 0.5f : v + 0.5f); }

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OPERATOR_DETAIL_FLOAT_TO_INT_H_
