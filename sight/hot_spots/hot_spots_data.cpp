// Defaults of the hot-spot settings and the two load-time tables.
#include <sight/hot_spots/hot_spots_data.h>

#include <cmath>

namespace Korvane::Sight {

namespace {

// Filled while the library is loaded. The priority runs this before the
// ordinary static constructors of any unit of the program, so that a
// settings object built by another unit's static constructor already finds
// its default positions.
struct spot_tables {
  glm::vec2 position[hot_spots_data::no_spots];
  glm::vec3 color[hot_spots_data::no_spots];

  spot_tables() {
    // pi / 4 as the float 0x3F490FDB; half a step keeps every spot off the
    // centre lines. x takes the sine, so row 0 sits just right of the bottom.
    for (int i = 0; i < hot_spots_data::no_spots; ++i) {
      float const a = (float(i) + 0.5f) * 0.7853982f;
      position[i] = glm::vec2(std::sin(a), std::cos(a));
    }
    // Steps of three quarters of an interval over the hue wheel's seven
    // control colours, so the eighth colour stops short of red again.
    glm::vec3 const control[7] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1},
                                  {0, 0, 1}, {1, 0, 1}, {1, 0, 0}};
    for (int i = 0; i < hot_spots_data::no_spots; ++i) {
      float const t = 0.75f * float(i);
      float const k = std::floor(t);
      float const f = t - k;
      color[i] = (1.0f - f) * control[int(k)] + f * control[int(k) + 1];
    }
  }
};

spot_tables const g_spot_tables __attribute__((init_priority(200)));

}  // namespace

const int hot_spots_data::no_spots;

hot_spots_data::color_data_type::color_data_type()
    : rgb_color(default_r(), default_g(), default_b()) {}
float hot_spots_data::color_data_type::default_r() { return 50.0f / 255.0f; }
float hot_spots_data::color_data_type::default_g() { return 90.0f / 255.0f; }
float hot_spots_data::color_data_type::default_b() { return 160.0f / 255.0f; }

hot_spots_data::cropping_data_type::cropping_data_type()
    : left_(default_left()), right_(default_right()), top_(default_top()),
      bottom_(default_bottom()) {}
float hot_spots_data::cropping_data_type::default_left() { return 0.0f; }
float hot_spots_data::cropping_data_type::default_right() { return 0.0f; }
float hot_spots_data::cropping_data_type::default_top() { return 0.0f; }
float hot_spots_data::cropping_data_type::default_bottom() { return 0.0f; }

// x and y are left as the storage held them: a lone spot has no position.
hot_spots_data::spot_data_type::spot_data_type()
    : enabled_(default_enabled()), size_(default_size()) {}
bool hot_spots_data::spot_data_type::default_enabled() { return false; }
float hot_spots_data::spot_data_type::default_size() { return 0.03f; }

hot_spots_data::hot_spots_data()
    : enabled_(default_enabled()),
      tolerance_c_(default_tolerance_c()),
      smoothness_(default_smoothness()),
      threshold_(default_threshold()) {
  for (int i = 0; i < no_spots; ++i) {
    glm::vec2 const p = default_position(i);
    spots_.data_[i].x_ = p.x;
    spots_.data_[i].y_ = p.y;
  }
}

bool hot_spots_data::default_enabled() { return false; }
float hot_spots_data::default_tolerance_c() { return 0.7f; }
float hot_spots_data::default_smoothness() { return 0.3f; }
int hot_spots_data::default_threshold() { return 64; }

glm::vec2 const hot_spots_data::default_position(int i) { return g_spot_tables.position[i % no_spots]; }
glm::vec3 const hot_spots_data::preview_color(int i) { return g_spot_tables.color[i % no_spots]; }

}  // namespace Korvane::Sight
