// Result of the hot-spot detector for one frame: per spot, 0 when it was not
// evaluated (detector or spot disabled, or a layout that is not handled),
// 1 when enough of its samples differ from the key, 2 when too few do or its
// rectangle is empty after clipping.
#ifndef SIGHT_HOT_SPOTS_HOT_SPOTS_INFO_H_
#define SIGHT_HOT_SPOTS_HOT_SPOTS_INFO_H_

#include <sight/frame/export.h>
#include <sight/operator/object_detected.h>

namespace Korvane::Sight {

struct SIGHT_API hot_spots_info {
  static const int no_spots = 8;

  // The eight values, element i for spot i. Indexing is unchecked.
  struct SIGHT_API s__detected {
    e_object_detected &operator[](int i) { return data_[i]; }
    e_object_detected const &operator[](int i) const { return data_[i]; }

    e_object_detected data_[no_spots];
  };

  // All eight elements 0.
  hot_spots_info();
  hot_spots_info(hot_spots_info const &) = default;
  hot_spots_info &operator=(hot_spots_info const &) = default;

  s__detected &detected() { return detected_; }
  s__detected const &detected() const { return detected_; }
  e_object_detected &detected(int i) { return detected_.data_[i]; }
  e_object_detected const &detected(int i) const { return detected_.data_[i]; }
  int size_detected() const { return no_spots; }

  s__detected detected_;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_HOT_SPOTS_HOT_SPOTS_INFO_H_
