#include <sight/corner/threshold.h>

#include <algorithm>
#include <cstdint>

namespace Korvane::Sight::corner {

threshold::threshold(detection &detector_)
    : detector(detector_), minimum_corners(400), maximum_corners(600) {}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"

bool const threshold::operator++() {
  int const n = detector;
  // Wide arithmetic, so that a host's extreme value cannot overflow the step.
  std::int64_t t = detector.threshold();
  bool stepped = false;
  if (n < minimum_corners) {
    t = t - 1;
    stepped = true;
  } else if (n > maximum_corners) {
    t = t + 1;
    stepped = true;
  }
  detector.threshold() = int(std::clamp<std::int64_t>(t, 2, 200));
  return stepped;
}

bool const threshold::operator++(int) { return ++*this; }

#pragma GCC diagnostic pop

}  // namespace Korvane::Sight::corner
