// A colour setting: red, green and blue, each 0 to 1, reached through
// accessors that return references. The colour-key operators keep their key
// colour in one (their settings' color_data_type adds its own defaults).
#ifndef SIGHT_OPERATOR_RGB_COLOR_H_
#define SIGHT_OPERATOR_RGB_COLOR_H_

#include <sight/frame/export.h>

namespace Korvane::Sight {

struct SIGHT_API rgb_color {
  rgb_color() = default;
  rgb_color(float r, float g, float b) : r_(r), g_(g), b_(b) {}

  float &r() { return r_; }
  float const &r() const { return r_; }
  float &g() { return g_; }
  float const &g() const { return g_; }
  float &b() { return b_; }
  float const &b() const { return b_; }

 private:
  float r_ = 0.0f, g_ = 0.0f, b_ = 0.0f;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OPERATOR_RGB_COLOR_H_
