// The uniform values that an operator hands to a host's GL program.
//
// An operator sets values by name (`vars["key_color"] = glm::vec4(...)`); the
// host then walks the table and passes each value to its own program, for
// instance with glUniform4fv(glGetUniformLocation(prog, v.name()), 1, ...).
// Names keep the order in which they were first set.
#ifndef SIGHT_FRAME_VARIABLES_H_
#define SIGHT_FRAME_VARIABLES_H_

#include <cstring>
#include <deque>
#include <string>

#include <glm/vec4.hpp>

namespace Tamarind::Shaders::program {

class var {
 public:
  explicit var(char const *name) : name_(name) {}

  var &operator=(glm::vec4 const &value) {
    value_ = value;
    set_ = true;
    return *this;
  }

  char const *name() const { return name_.c_str(); }
  glm::vec4 const &value() const { return value_; }
  // False until a value has been assigned.
  bool is_set() const { return set_; }

 private:
  std::string name_;
  glm::vec4 value_{0.0f};
  bool set_ = false;
};

class variables {
 public:
  // The variable of that name, added (unset) when it is new. References stay
  // valid while the table lives.
  var &operator[](char const *name) {
    for (var &v : vars_)
      if (std::strcmp(v.name(), name) == 0) return v;
    return vars_.emplace_back(name);
  }

  // Null when no variable has that name.
  var const *find(char const *name) const {
    for (var const &v : vars_)
      if (std::strcmp(v.name(), name) == 0) return &v;
    return nullptr;
  }

  std::size_t size() const { return vars_.size(); }
  auto begin() const { return vars_.begin(); }
  auto end() const { return vars_.end(); }

 private:
  std::deque<var> vars_;  // a deque keeps references stable as it grows
};

}  // namespace Tamarind::Shaders::program

#endif  // SIGHT_FRAME_VARIABLES_H_
