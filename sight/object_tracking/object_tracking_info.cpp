// The tracker's result and the two matrices that place things on the box.
#include <sight/object_tracking/object_tracking_info.h>

namespace Korvane::Sight {

object_tracking_info::object_tracking_info()
    : object_detected_(default_object_detected()), centre_(0.0f), x_axis_(0.0f), y_axis_(0.0f) {}

object_tracking_info::object_tracking_info(object_tracking_info const &other) = default;

object_tracking_info &object_tracking_info::operator=(object_tracking_info const &other) = default;

void object_tracking_info::operator()(glm::mat3 &matrix, float aspect) const {
  if (object_detected_ == 0) {
    matrix = glm::mat3(1.0f);
    return;
  }
  // Only the first column carries the aspect: u of the overlay runs over
  // -aspect..aspect and must land on -1..1 times x_axis.
  matrix[0] = glm::vec3(x_axis_.x / aspect, x_axis_.y / aspect, 0.0f);
  matrix[1] = glm::vec3(y_axis_.x, y_axis_.y, 0.0f);
  matrix[2] = glm::vec3(centre_.x, centre_.y, 1.0f);
}

glm::mat3 object_tracking_info::operator()(float aspect) const {
  glm::mat3 matrix;
  (*this)(matrix, aspect);
  return matrix;
}

void object_tracking_info::inverse(glm::mat3 &matrix, float aspect) const {
  if (object_detected_ == 0) {
    matrix = glm::mat3(1.0f);
    return;
  }
  float const d = x_axis_.y * y_axis_.x - y_axis_.y * x_axis_.x;
  // A zero determinant would divide by zero; 1 keeps the values finite.
  float const k = d == 0.0f ? 1.0f : 1.0f / d;
  matrix[0] = glm::vec3(-aspect * y_axis_.y * k, x_axis_.y * k, 0.0f);
  matrix[1] = glm::vec3(aspect * y_axis_.x * k, -x_axis_.x * k, 0.0f);
  matrix[2] = glm::vec3((y_axis_.y * centre_.x - centre_.y * y_axis_.x) * aspect * k,
                        (centre_.y * x_axis_.x - x_axis_.y * centre_.x) * k, 1.0f);
}

glm::mat3 object_tracking_info::inverse(float aspect) const {
  glm::mat3 matrix;
  inverse(matrix, aspect);
  return matrix;
}

}  // namespace Korvane::Sight
