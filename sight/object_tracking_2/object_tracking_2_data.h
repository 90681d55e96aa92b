// Settings of the chamfer tracker: the key colour and how far from it, in
// chroma, a block may lie on average and still belong to the object.
//
// The tracker derives from this structure, so a host writes the settings on
// the tracker itself between frames; every frame reads them anew. Nothing is
// validated: the set-up clamps the key and the tolerance to 8-bit values.
#ifndef SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_DATA_H_
#define SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_DATA_H_

#include <sight/frame/export.h>
#include <sight/operator/rgb_color.h>

namespace Korvane::Sight {

struct SIGHT_API object_tracking_2_data {
  // The key colour in RGB, each channel 0 to 1.
  struct SIGHT_API color_data_type : rgb_color {
    color_data_type();
    color_data_type(color_data_type const &) = default;
    color_data_type &operator=(color_data_type const &) = default;

    // 200/255, 137/255 and 119/255.
    static float default_r() { return 0.78431374f; }
    static float default_g() { return 0.5372549f; }
    static float default_b() { return 0.46666667f; }
  };

  object_tracking_2_data();
  object_tracking_2_data(object_tracking_2_data const &) = default;
  object_tracking_2_data &operator=(object_tracking_2_data const &) = default;

  static bool default_enabled() { return false; }
  static float default_tolerance() { return 0.078431375f; }  // 20/255

  // Master switch: while false a frame call returns at once, reading nothing.
  bool &enabled() { return enabled_; }
  bool const &enabled() const { return enabled_; }
  color_data_type &color() { return color_; }
  color_data_type const &color() const { return color_; }
  // Largest chroma distance |dCb| + |dCr| of a match, on a 0..1 scale.
  float &tolerance() { return tolerance_; }
  float const &tolerance() const { return tolerance_; }

 private:
  bool enabled_;
  color_data_type color_;
  float tolerance_;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_DATA_H_
