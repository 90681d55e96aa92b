// The tests' door to the tracker's private stages: set-up, region fill, fit
// and the derived fields. One definition for every test file of the program.
#ifndef SIGHT_TESTS_OBJECT_TRACKING_TRACKER_ACCESS_H_
#define SIGHT_TESTS_OBJECT_TRACKING_TRACKER_ACCESS_H_

#include <cstdint>

#include <sight/object_tracking/object_tracking.h>

namespace Korvane::Sight {

struct object_tracking_test_access {
  using moments_type = object_tracking::moments_type;

  static void setup(object_tracking &t, int width, int height, int cells_x, int cells_y) {
    t.setup(width, height, cells_x, cells_y);
  }
  // Element (i, j) of the grid, border included: (1, 1) is the first cell.
  static moments_type &cell(object_tracking &t, int i, int j) {
    return Tamarind::Rasters::line(t.cells, j)[i];
  }
  static Tamarind::Rasters::bitmap<moments_type> const &cells(object_tracking const &t) { return t.cells; }
  static int cells_x(object_tracking const &t) { return t.cells_x; }
  static int cells_y(object_tracking const &t) { return t.cells_y; }
  static void extract_object(object_tracking &t, moments_type &best) { t.extract_object(best); }
  static void scale_object(object_tracking const &t, moments_type &m, int width, int height, float aspect) {
    t.scale_object(m, width, height, aspect);
  }
  static void fit_object(object_tracking &t, object_tracking_info &info, moments_type const &m) {
    t.fit_object(info, m);
  }

  static std::uint16_t const *key_cbcr(object_tracking const &t) { return t.key_cbcr; }
  static std::uint16_t const *key_scale(object_tracking const &t) { return t.key_scale; }
  static std::uint16_t const *key_offset(object_tracking const &t) { return t.key_offset; }
  static float &minimum_mass(object_tracking &t) { return t.minimum_mass; }
  static glm::vec2 &previous_x_axis(object_tracking &t) { return t.previous_x_axis; }
  static float crop_x_min(object_tracking const &t) { return t.crop_x_min; }
  static float crop_x_max(object_tracking const &t) { return t.crop_x_max; }
};

}  // namespace Korvane::Sight

#endif  // SIGHT_TESTS_OBJECT_TRACKING_TRACKER_ACCESS_H_
