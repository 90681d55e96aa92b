// Defaults of the chamfer tracker's settings.
#include <sight/object_tracking_2/object_tracking_2_data.h>

namespace Korvane::Sight {

object_tracking_2_data::color_data_type::color_data_type()
    : rgb_color(default_r(), default_g(), default_b()) {}

object_tracking_2_data::object_tracking_2_data()
    : enabled_(default_enabled()), color_(), tolerance_(default_tolerance()) {}

}  // namespace Korvane::Sight
