// Settings of the colour-key tracker: what colour to look for, how far from
// it a pixel may lie, where the object's centre may stand, how the fitted box
// is constrained and what is painted into the frame as a preview.
//
// The tracker derives from this structure, so a host writes the settings on
// the tracker itself between frames; every frame reads them anew. Nothing is
// validated here: out-of-range values reach the set-up, which clamps what it
// has to.
#ifndef SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_DATA_H_
#define SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_DATA_H_

#include <cstdint>

#include <sight/frame/export.h>
#include <sight/operator/rgb_color.h>
#include <sight/frame/variables.h>

namespace Korvane::Sight {

struct SIGHT_API object_tracking_data {
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

  // Margins of the picture as fractions of its width or height, measured
  // inward from each edge. The object's centre must fall inside what is left.
  struct SIGHT_API cropping_data_type {
    cropping_data_type();
    cropping_data_type(cropping_data_type const &) = default;
    cropping_data_type &operator=(cropping_data_type const &) = default;

    static float default_left() { return 0.0f; }
    static float default_right() { return 0.0f; }
    static float default_top() { return 0.0f; }
    static float default_bottom() { return 0.0f; }

    float &left() { return left_; }
    float const &left() const { return left_; }
    float &right() { return right_; }
    float const &right() const { return right_; }
    float &top() { return top_; }
    float const &top() const { return top_; }
    float &bottom() { return bottom_; }
    float const &bottom() const { return bottom_; }

   private:
    float left_, right_, top_, bottom_;
  };

  // What of the fitted box follows the object and what is held fixed. A
  // `size` or `aspect_ratio` of 0 means the same as leaving that constraint off.
  struct SIGHT_API constraints_data_type {
    constraints_data_type();
    constraints_data_type(constraints_data_type const &) = default;
    constraints_data_type &operator=(constraints_data_type const &) = default;

    static bool default_track_rotation() { return true; }
    static bool default_track_size() { return true; }
    static bool default_track_aspect() { return false; }
    static float default_size() { return 1.0f; }
    static float default_aspect_ratio() { return 1.7777778f; }  // 16/9

    // True: the box turns with the object; false: its axes stay upright.
    bool &track_rotation() { return track_rotation_; }
    bool const &track_rotation() const { return track_rotation_; }
    // False: the y axis is held at length `size`.
    bool &track_size() { return track_size_; }
    bool const &track_size() const { return track_size_; }
    // False: |x_axis| / |y_axis| is held at `aspect_ratio`.
    bool &track_aspect() { return track_aspect_; }
    bool const &track_aspect() const { return track_aspect_; }
    float &size() { return size_; }
    float const &size() const { return size_; }
    float &aspect_ratio() { return aspect_ratio_; }
    float const &aspect_ratio() const { return aspect_ratio_; }

   private:
    bool track_rotation_, track_size_, track_aspect_;
    float size_, aspect_ratio_;
  };

  // Two bits: bit 0 paints the key matte into the frame, bit 1 draws the
  // cropping as outlines after the fit. Only the bits are tested.
  enum e_preview_type : std::int32_t {
    preview_none = 0,
    preview_key = 1,
    preview_outlines = 2,
    preview_key_and_outlines = 3,
  };

  object_tracking_data();
  object_tracking_data(object_tracking_data const &) = default;
  object_tracking_data &operator=(object_tracking_data const &) = default;

  static bool default_enabled() { return false; }
  static color_data_type default_color() { return color_data_type(); }
  static cropping_data_type default_cropping() { return cropping_data_type(); }
  static float default_tolerance_c() { return 0.7f; }
  static float default_smoothness() { return 0.3f; }
  static e_preview_type default_preview() { return preview_none; }
  static constraints_data_type default_constraints() { return constraints_data_type(); }
  static float default_minimum_size() { return 0.02f; }

  // Master switch: while false a frame yields an all-zero result, unread.
  bool &enabled() { return enabled_; }
  bool const &enabled() const { return enabled_; }
  color_data_type &color() { return color_; }
  color_data_type const &color() const { return color_; }
  cropping_data_type &cropping() { return cropping_; }
  cropping_data_type const &cropping() const { return cropping_; }
  // Chroma distance (on the 0..1 scale, halved) that still counts a little.
  float &tolerance_c() { return tolerance_c_; }
  float const &tolerance_c() const { return tolerance_c_; }
  // Width of the soft edge of the key inside that distance.
  float &smoothness() { return smoothness_; }
  float const &smoothness() const { return smoothness_; }
  e_preview_type &preview() { return preview_; }
  e_preview_type const &preview() const { return preview_; }
  constraints_data_type &constraints() { return constraints_; }
  constraints_data_type const &constraints() const { return constraints_; }
  // Smallest object that counts, as a fraction of the picture's width and of
  // its height.
  float &minimum_size() { return minimum_size_; }
  float const &minimum_size() const { return minimum_size_; }

  // GPU side of the key. The vertex program is the empty string; the
  // fragment program is GLSL text with the uniforms
  // "tracking_ref_N_cb_cr_mul_add" and the functions tracking_alpha_N(col),
  // N from 0 to 3, each compiled in under the host's macro
  // tracking_support_N. Both pointers are to constant text of the library.
  static char const *p_GL_vertex_program();
  static char const *p_GL_fragment_program();
  // Writes this key's (Cb, Cr, mul, add) into the uniform of `slot` (0 to 3,
  // not checked).
  void GL_set_shader_values(int slot, Tamarind::Shaders::program::variables &variables) const;

 private:
  // The uniform names of the four slots, indexed by slot; defined with the
  // GLSL text.
  static char const *const g_GL_uniform_names[4];

  bool enabled_;
  color_data_type color_;
  cropping_data_type cropping_;
  float tolerance_c_;
  float smoothness_;
  e_preview_type preview_;
  constraints_data_type constraints_;
  float minimum_size_;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_DATA_H_
