// Settings of the hot-spot detector: the key colour of the backdrop, the
// margins no spot may enter, the key tolerance, the count that makes a spot
// fire, and the eight spots themselves.
//
// Plain data written by the host through reference-returning accessors
// between frames; nothing here validates or clamps anything. Coordinates of
// a spot are those of the tracker's result: the origin in the middle of the
// picture, y from -1 (top) to +1 (bottom), x from minus to plus the aspect
// ratio, so one unit is half the picture's height on the displayed picture.
#ifndef SIGHT_HOT_SPOTS_HOT_SPOTS_DATA_H_
#define SIGHT_HOT_SPOTS_HOT_SPOTS_DATA_H_

#include <glm/vec2.hpp>
#include <glm/vec3.hpp>

#include <sight/frame/export.h>
#include <sight/operator/rgb_color.h>

namespace Korvane::Sight {

struct SIGHT_API hot_spots_data {
  // Always eight spots: a constant of the interface, not a setting.
  static const int no_spots = 8;

  // Key colour in RGB, each channel nominally 0 to 1. Default: a mid blue,
  // (50, 90, 160) / 255.
  struct SIGHT_API color_data_type : rgb_color {
    color_data_type();
    color_data_type &operator=(color_data_type const &) = default;

    static float default_r();
    static float default_g();
    static float default_b();
  };

  // Margins, each a fraction of the picture's width or height measured
  // inward from its edge. Crossed margins swap roles (they select the part
  // between them) rather than emptying the picture.
  struct SIGHT_API cropping_data_type {
    cropping_data_type();
    cropping_data_type &operator=(cropping_data_type const &) = default;

    float &left() { return left_; }
    float const &left() const { return left_; }
    float &right() { return right_; }
    float const &right() const { return right_; }
    float &top() { return top_; }
    float const &top() const { return top_; }
    float &bottom() { return bottom_; }
    float const &bottom() const { return bottom_; }

    static float default_left();
    static float default_right();
    static float default_top();
    static float default_bottom();

    float left_, right_, top_, bottom_;
  };

  // One square spot: centre (x, y) and half side `size` (sign ignored), in
  // picture coordinates. The constructor leaves x and y unset on purpose: a
  // free-standing spot has no position; hot_spots_data() places its spots.
  struct SIGHT_API spot_data_type {
    spot_data_type();
    spot_data_type &operator=(spot_data_type const &) = default;

    bool &enabled() { return enabled_; }
    bool const &enabled() const { return enabled_; }
    float &x() { return x_; }
    float const &x() const { return x_; }
    float &y() { return y_; }
    float const &y() const { return y_; }
    float &size() { return size_; }
    float const &size() const { return size_; }

    static bool default_enabled();
    static float default_size();

    bool enabled_;
    float x_, y_, size_;
  };

  // The eight spots, inline in the settings block. Indexing is unchecked.
  struct SIGHT_API s__spots {
    spot_data_type &operator[](int i) { return data_[i]; }
    spot_data_type const &operator[](int i) const { return data_[i]; }

    spot_data_type data_[no_spots];
  };

  // Every field at its default; spot i disabled, size 0.03, placed at
  // default_position(i).
  hot_spots_data();
  hot_spots_data &operator=(hot_spots_data const &) = default;

  bool &enabled() { return enabled_; }
  bool const &enabled() const { return enabled_; }
  color_data_type &color() { return color_; }
  color_data_type const &color() const { return color_; }
  cropping_data_type &cropping() { return cropping_; }
  cropping_data_type const &cropping() const { return cropping_; }
  float &tolerance_c() { return tolerance_c_; }
  float const &tolerance_c() const { return tolerance_c_; }
  float &smoothness() { return smoothness_; }
  float const &smoothness() const { return smoothness_; }
  int &threshold() { return threshold_; }
  int const &threshold() const { return threshold_; }
  s__spots &spots() { return spots_; }
  s__spots const &spots() const { return spots_; }
  // Spot i, unchecked.
  spot_data_type &spots(int i) { return spots_.data_[i]; }
  spot_data_type const &spots(int i) const { return spots_.data_[i]; }
  int size_spots() const { return no_spots; }

  static bool default_enabled();
  static float default_tolerance_c();
  static float default_smoothness();
  static int default_threshold();

  // Row i % 8 of the table of default positions: eight points on the unit
  // circle, half a step off the axes, starting just right of the bottom and
  // running towards the right edge. The remainder takes the sign of i, so a
  // negative index falls outside the table: callers pass 0 or more.
  static glm::vec2 const default_position(int i);
  // Row i % 8 of the table of marker colours for the host, walked round the
  // hue wheel in steps of three quarters of a control interval. Same index
  // rule as default_position.
  static glm::vec3 const preview_color(int i);

  bool enabled_;
  color_data_type color_;
  cropping_data_type cropping_;
  float tolerance_c_;
  float smoothness_;
  int threshold_;
  s__spots spots_;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_HOT_SPOTS_HOT_SPOTS_DATA_H_
