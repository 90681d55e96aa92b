// Threshold stepper: nudges a detector's threshold by one level per call so
// that its corner count settles between `minimum_corners` and
// `maximum_corners`. Meant for the host, between frames.
#ifndef SIGHT_CORNER_THRESHOLD_H_
#define SIGHT_CORNER_THRESHOLD_H_

#include <sight/corner/detection.h>
#include <sight/frame/export.h>

namespace Korvane::Sight::corner {

struct SIGHT_API threshold {
  // Binds the detector, which must outlive the stepper.
  explicit threshold(detection &detector);

  // Too few corners: one level lower; too many: one level higher. The
  // threshold is then clamped to 2..200 in every case, so a value set out of
  // range is brought back even inside the band. True when a step was wanted,
  // also when the clamp kept the value where it was. Both forms are the same
  // function; the const on the result is part of the interface.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"
  bool const operator++();
  bool const operator++(int);
#pragma GCC diagnostic pop

  detection &detector;
  int minimum_corners;
  int maximum_corners;
};

}  // namespace Korvane::Sight::corner

#endif  // SIGHT_CORNER_THRESHOLD_H_
