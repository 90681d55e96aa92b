// Defaults of the tracker's settings. The GPU members are with the GLSL text.
#include <sight/object_tracking/object_tracking_data.h>

namespace Korvane::Sight {

object_tracking_data::color_data_type::color_data_type()
    : rgb_color(default_r(), default_g(), default_b()) {}

object_tracking_data::cropping_data_type::cropping_data_type()
    : left_(default_left()), right_(default_right()), top_(default_top()), bottom_(default_bottom()) {}

object_tracking_data::constraints_data_type::constraints_data_type()
    : track_rotation_(default_track_rotation()),
      track_size_(default_track_size()),
      track_aspect_(default_track_aspect()),
      size_(default_size()),
      aspect_ratio_(default_aspect_ratio()) {}

object_tracking_data::object_tracking_data()
    : enabled_(default_enabled()),
      color_(),
      cropping_(),
      tolerance_c_(default_tolerance_c()),
      smoothness_(default_smoothness()),
      preview_(default_preview()),
      constraints_(),
      minimum_size_(default_minimum_size()) {}

}  // namespace Korvane::Sight
