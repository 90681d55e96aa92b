// What the chamfer tracker returns for a frame: nothing. The tracker's whole
// output is the star it draws into the frame and the picture it writes; the
// result type exists so that its frame entries look like every other
// operator's.
#ifndef SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_INFO_H_
#define SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_INFO_H_

#include <sight/frame/export.h>

namespace Korvane::Sight {

struct SIGHT_API object_tracking_2_info {
  object_tracking_2_info() = default;
  object_tracking_2_info(object_tracking_2_info const &) = default;
  object_tracking_2_info &operator=(object_tracking_2_info const &) { return *this; }
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_INFO_H_
