// What the colour-key tracker returns for one frame: whether it looked and
// found an object, and the box it fitted as a centre and two axis vectors.
//
// Coordinates: the origin is the middle of the picture, y runs from -1 at the
// top edge to +1 at the bottom edge, and x from -a to +a where a is the
// picture's display aspect ratio. A distance of 1 is half the picture's
// height in both directions, so angles and axis ratios are true on screen.
#ifndef SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_INFO_H_
#define SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_INFO_H_

#include <glm/mat3x3.hpp>
#include <glm/vec2.hpp>

#include <sight/frame/export.h>
#include <sight/operator/object_detected.h>

namespace Korvane::Sight {

struct SIGHT_API object_tracking_info {
  // All fields zero: object_detected 0, "did not look".
  object_tracking_info();
  object_tracking_info(object_tracking_info const &other);
  object_tracking_info &operator=(object_tracking_info const &other);

  static e_object_detected default_object_detected() { return e_object_detected(0); }

  e_object_detected &object_detected() { return object_detected_; }
  e_object_detected const &object_detected() const { return object_detected_; }
  // Centre of the object.
  glm::vec2 &centre() { return centre_; }
  glm::vec2 const &centre() const { return centre_; }
  // From the centre to the middle of the box's right edge.
  glm::vec2 &x_axis() { return x_axis_; }
  glm::vec2 const &x_axis() const { return x_axis_; }
  // From the centre to the middle of the box's lower edge.
  glm::vec2 &y_axis() { return y_axis_; }
  glm::vec2 const &y_axis() const { return y_axis_; }

  // The matrix that takes a homogeneous point (u, v, 1) of a picture of
  // aspect ratio `aspect` (u in -aspect..aspect, v in -1..1) onto the box:
  // centre + (u / aspect) * x_axis + v * y_axis. The identity while
  // object_detected is 0; for any other value the axes are used as they
  // stand, so a result of value 2 gives a matrix that is zero but for the
  // last column. `aspect` is not checked (0 divides by zero).
  void operator()(glm::mat3 &matrix, float aspect) const;
  glm::mat3 operator()(float aspect) const;

  // The matrix back from the box to the picture. A degenerate box (zero
  // determinant) is inverted with a factor of 1 instead of 1 / 0, which
  // keeps the values finite and means nothing more.
  void inverse(glm::mat3 &matrix, float aspect) const;
  glm::mat3 inverse(float aspect) const;

 private:
  e_object_detected object_detected_;
  glm::vec2 centre_;
  glm::vec2 x_axis_;
  glm::vec2 y_axis_;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_INFO_H_
