// The command line of `sight`: its subcommands, their options and the checks
// on every value. Parsing fills plain structures and touches nothing else, so
// it runs (and is fuzzed) without the library, the decoders or any file.
#ifndef SIGHT_TOOLS_OPTIONS_H_
#define SIGHT_TOOLS_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace sight_host {

struct rgb {
  std::uint8_t r = 0, g = 0, b = 0;
};

// "R,G,B" with three bytes 0..255, or "#RRGGBB". False on anything else.
bool parse_color(std::string const &text, rgb &color);

// What every frame command shares.
struct common_options {
  std::vector<std::string> inputs;  // files; "-" is a Y4M stream on standard input
  std::string layout;               // bgra, 422, ycbcra, y_cbcr, planar
  std::string preview;              // painted (or produced) frames: video file or .png sequence
  float aspect = 0;                 // display aspect ratio; 0 takes the input's
  bool fields = false;              // one entry a field of interlaced frames
  std::int64_t frames = 0;          // stop after this many frames a file; 0 for all
  int synthetic_frames = 60;        // length of the built-in clip
};

struct track_options {
  rgb color;
  float tolerance = 0, smoothness = 0;
  std::vector<float> crop;  // left, right, top, bottom
  bool track_rotation = true, track_size = true, track_aspect = false;
  float size = 0, box_aspect = 0, minimum_size = 0, moment_bias = 8;
  bool matte = false;  // paint the key matte into the preview
};

struct hotspots_options {
  rgb color;
  float tolerance = 0, smoothness = 0;
  int threshold = 0;
  std::vector<float> crop;
  std::vector<int> spots;   // enabled spots, all when empty
  float spot_size = 0;      // 0 keeps the default size
};

struct corners_options {
  int threshold = 0;
  int min_corners = -1, max_corners = -1;  // the stepper runs when either is set
};

struct rescale_options {
  std::string field = "both";  // 0, 1 or both
};

struct chamfer_options {
  rgb color;
  float tolerance = 0;
};

struct homography_options {
  std::vector<std::string> files;  // point pairs "x y u v [weight]" a line
};

struct match_options {
  std::string picture, reference;  // first frames of two inputs
};

struct align_options {
  std::string first, second;  // first frames of two inputs; none: the synthetic clip's frames 0 and 2
  std::int64_t iterations = 0;  // 0: until interrupted
  std::string picture_dir;      // where the operator writes its difference picture
};

struct options {
  std::string command;
  common_options common;
  track_options track;
  hotspots_options hotspots;
  corners_options corners;
  rescale_options rescale;
  chamfer_options chamfer;
  homography_options homography;
  match_options match;
  align_options align;
};

// Parses argv into `o`, whose values on entry are the defaults shown by
// --help. Returns -1 when the command should run, 0 when `message` holds the
// help text to print, 2 when it holds a one-line description of the error.
int parse_options(int argc, char const *const *argv, options &o, std::string &message);

}  // namespace sight_host

#endif  // SIGHT_TOOLS_OPTIONS_H_
