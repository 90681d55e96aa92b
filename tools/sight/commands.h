// The subcommands: each turns a frame into its JSON entries (one a frame, or
// one a field) and hands the painted or produced pictures on.
#ifndef SIGHT_TOOLS_COMMANDS_H_
#define SIGHT_TOOLS_COMMANDS_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "options.h"
#include "picture.h"

namespace sight_host {

using json = nlohmann::ordered_json;
using picture_sink = std::function<void(picture const &)>;

class command {
 public:
  virtual ~command() = default;
  // `out` is empty when nobody wants the pictures; then nothing is painted.
  virtual void run(picture &frame, std::vector<json> &entries, picture_sink const &out) = 0;
  // Output frames per input frame.
  virtual double rate_factor() const { return 1; }
};

// Puts the library's defaults into the options, so that --help shows them.
void set_defaults(options &o);

// A fresh operator for one input, set up from the options.
std::unique_ptr<command> make_command(options const &o);

// The perspective transform of a file of point pairs, as one JSON object.
json homography(std::string const &file);

// The colour matching of two inputs' first frames; with `preview` set, the
// corrected picture is written there.
json match(std::string const &picture, std::string const &reference, std::string const &preview);

// Runs the motion estimator in a child process and forwards its energies;
// the exit status (130 when interrupted).
int align(options const &o);

}  // namespace sight_host

#endif  // SIGHT_TOOLS_COMMANDS_H_
