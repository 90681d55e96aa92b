// Whether an operator found what it looks for, shared by the tracker's result
// and by each hot spot.
#ifndef SIGHT_OPERATOR_OBJECT_DETECTED_H_
#define SIGHT_OPERATOR_OBJECT_DETECTED_H_

#include <cstdint>

namespace Korvane::Sight {

enum e_object_detected : std::int32_t {
  object_not_looked = 0,  // disabled, or a layout that is not handled
  object_found = 1,       // found; for a hot spot: covered
  object_not_found = 2,   // looked and found nothing (a spot: not covered)
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OPERATOR_OBJECT_DETECTED_H_
