// Where frames come from and where painted frames go: decoded files (through
// the libav* libraries), a Y4M stream on standard input, the built-in
// synthetic clip; video files, Y4M files or numbered PNG pictures.
#ifndef SIGHT_TOOLS_MEDIA_H_
#define SIGHT_TOOLS_MEDIA_H_

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "picture.h"

namespace sight_host {

// A problem with one input or output; its text names it in one line.
struct media_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class source {
 public:
  virtual ~source() = default;
  // The next frame, converted into `pic` in its current format, and its time
  // in seconds. False after the last frame.
  virtual bool next(picture &pic, double &time) = 0;
  // Frames expected in all (0 when unknown) and frames per second.
  virtual std::int64_t total() const = 0;
  virtual double rate() const = 0;
};

// A file that the decoders read, "-" for Y4M on standard input, or "" for the
// synthetic clip of `synthetic_frames` frames. `aspect` overrides the
// display aspect ratio when above 0.
std::unique_ptr<source> open_source(std::string const &name, float aspect, int synthetic_frames);

class writer {
 public:
  // Nothing is opened before the first frame, whose size fixes the output's.
  writer(std::string path, double rate);
  ~writer();
  writer(writer const &) = delete;
  writer &operator=(writer const &) = delete;

  void write(picture const &pic);
  // Flushes the encoder and closes the file; also done by the destructor.
  void close();

 private:
  struct state;
  std::string path_;
  double rate_;
  std::int64_t count_ = 0;
  std::unique_ptr<state> state_;
};

}  // namespace sight_host

#endif  // SIGHT_TOOLS_MEDIA_H_
