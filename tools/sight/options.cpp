#include "options.h"

#include <charconv>
#include <cstdio>
#include <sstream>

#include <CLI/CLI.hpp>

namespace sight_host {

bool parse_color(std::string const &text, rgb &color) {
  if (text.size() == 7 && text[0] == '#') {
    unsigned v = 0;
    auto const [end, ec] = std::from_chars(text.data() + 1, text.data() + 7, v, 16);
    if (ec != std::errc() || end != text.data() + 7) return false;
    color = rgb{std::uint8_t(v >> 16), std::uint8_t(v >> 8), std::uint8_t(v)};
    return true;
  }
  unsigned c[3];
  char const *p = text.data(), *const last = text.data() + text.size();
  for (int i = 0; i < 3; ++i) {
    if (i > 0 && (p == last || *p++ != ',')) return false;
    auto const [end, ec] = std::from_chars(p, last, c[i]);
    if (ec != std::errc() || end == p || c[i] > 255) return false;
    p = end;
  }
  if (p != last) return false;
  color = rgb{std::uint8_t(c[0]), std::uint8_t(c[1]), std::uint8_t(c[2])};
  return true;
}

namespace {

std::string color_text(rgb c) {
  char text[16];
  std::snprintf(text, sizeof text, "%u,%u,%u", c.r, c.g, c.b);
  return text;
}

void add_color(CLI::App *app, rgb &color, char const *what) {
  app->add_option_function<std::string>(
         "--color",
         [&color](std::string const &text) {
           if (!parse_color(text, color))
             throw CLI::ValidationError("--color", "'" + text + "' is not R,G,B bytes or #RRGGBB");
         },
         what)
      ->type_name("R,G,B|#RRGGBB")
      ->default_str(color_text(color));
}

void add_crop(CLI::App *app, std::vector<float> &crop) {
  app->add_option("--crop", crop,
                  "Margins as fractions of the width and height, measured inward from each edge")
      ->delimiter(',')
      ->expected(4)
      ->type_name("L,R,T,B")
      ->check(CLI::Range(0.0f, 1.0f));
}

CLI::App *add_frame_command(CLI::App &app, common_options &c, char const *name, char const *what,
                            char const *layout, bool several_layouts, char const *preview_help) {
  CLI::App *sub = app.add_subcommand(name, what);
  sub->add_option("inputs", c.inputs,
                  "Video files or PNG pictures (anything the decoders read), '-' for a Y4M stream on "
                  "standard input; none runs the built-in synthetic clip")
      ->type_name("FILE...");
  c.layout = layout;
  if (several_layouts)
    sub->add_option("--layout", c.layout, "Pixel layout handed to the operator")
        ->check(CLI::IsMember({"bgra", "422", "ycbcra", "y_cbcr", "planar"}))
        ->capture_default_str();
  sub->add_option("--preview,-o", c.preview, preview_help)->type_name("FILE");
  sub->add_option("--aspect", c.aspect, "Display aspect ratio (width over height); default: the input's")
      ->check(CLI::Range(0.05f, 20.0f));
  sub->add_option("--frames", c.frames, "Stop after N frames of each input")
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  sub->add_option("--synthetic-frames", c.synthetic_frames, "Length of the built-in clip")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  return sub;
}

char const kPainted[] =
    "Write the painted frames: a video file (encoder from the extension) or, for a name ending in "
    ".png, numbered PNG pictures";

}  // namespace

int parse_options(int argc, char const *const *argv, options &o, std::string &message) {
  CLI::App app{
      "sight: runs one operator of the library over video files, PNG pictures, a Y4M stream or the "
      "built-in synthetic clip, and prints one JSON object a frame (JSON Lines). Errors: one line "
      "on standard error and exit status 2.",
      "sight"};
  app.require_subcommand(1);
  app.option_defaults()->always_capture_default();

  CLI::App *track = add_frame_command(app, o.common, "track", "Follow the heaviest blob of a key colour",
                                      "422", true, kPainted);
  track_options &t = o.track;
  add_color(track, t.color, "Key colour");
  track->add_option("--tolerance", t.tolerance, "Chroma distance that still counts a little")
      ->check(CLI::Range(0.0f, 1.0f))->capture_default_str();
  track->add_option("--smoothness", t.smoothness, "Width of the soft edge of the key")
      ->check(CLI::Range(0.0f, 1.0f))->capture_default_str();
  add_crop(track, t.crop);
  track->add_option("--track-rotation", t.track_rotation, "The box turns with the object")->capture_default_str();
  track->add_option("--track-size", t.track_size, "The box follows the object's size (else --size)")
      ->capture_default_str();
  track->add_option("--track-aspect", t.track_aspect,
                    "The box follows the object's shape (else --box-aspect)")->capture_default_str();
  track->add_option("--size", t.size, "Length of the y axis when the size is held")
      ->check(CLI::Range(0.0f, 100.0f))->capture_default_str();
  track->add_option("--box-aspect", t.box_aspect, "Axis ratio when the shape is held")
      ->check(CLI::Range(0.0f, 100.0f))->capture_default_str();
  track->add_option("--minimum-size", t.minimum_size, "Smallest object, as a fraction of the picture")
      ->check(CLI::Range(0.0f, 1.0f))->capture_default_str();
  track->add_option("--moment-bias", t.moment_bias, "Spread added to the box's second moments")
      ->check(CLI::Range(0.0f, 1000.0f))->capture_default_str();
  track->add_flag("--matte", t.matte, "Paint the key matte into the preview");
  track->add_flag("--fields", o.common.fields, "One entry a field (interlaced input)");

  CLI::App *spots = add_frame_command(app, o.common, "hotspots",
                                      "Tell which of eight spots something covers on a key-coloured backdrop",
                                      "422", true, kPainted);
  hotspots_options &h = o.hotspots;
  add_color(spots, h.color, "Key colour of the backdrop");
  spots->add_option("--tolerance", h.tolerance, "Chroma distance from the key that still is backdrop")
      ->check(CLI::Range(0.0f, 1.0f))->capture_default_str();
  spots->add_option("--smoothness", h.smoothness, "Narrows the tolerance")
      ->check(CLI::Range(0.0f, 1.0f))->capture_default_str();
  spots->add_option("--threshold", h.threshold, "Differing chroma samples that make a spot covered")
      ->check(CLI::Range(0, 1 << 24))->capture_default_str();
  add_crop(spots, h.crop);
  spots->add_option("--spots", h.spots, "Spots to look at (default: all eight)")
      ->delimiter(',')->type_name("I,...")->check(CLI::Range(0, 7));
  spots->add_option("--spot-size", h.spot_size, "Half side of every spot, in picture units")
      ->check(CLI::Range(0.001f, 1.0f));
  spots->add_flag("--fields", o.common.fields, "One entry a field (interlaced input)");

  CLI::App *corners = add_frame_command(app, o.common, "corners", "Count the corners of the luma (4:2:2)",
                                        "422", false, kPainted);
  corners_options &k = o.corners;
  corners->add_option("--threshold", k.threshold, "Segment-test threshold in luma levels")
      ->check(CLI::Range(2, 200))->capture_default_str();
  corners->add_option("--min-corners", k.min_corners,
                      "Step the threshold between frames to find at least this many")
      ->check(CLI::NonNegativeNumber);
  corners->add_option("--max-corners", k.max_corners,
                      "Step the threshold between frames to find at most this many")
      ->check(CLI::NonNegativeNumber);

  char const kProduced[] = "Write the produced frames: a video file (encoder from the extension; "
                           ".y4m is written losslessly) or, for a name ending in .png, numbered PNG pictures";
  CLI::App *rescale = add_frame_command(app, o.common, "rescale",
                                        "Double each field of interlaced frames into a whole frame",
                                        "422", true, kProduced);
  rescale->add_option("--field", o.rescale.field, "Field to double: 0, 1 or both (twice the frame rate)")
      ->check(CLI::IsMember({"0", "1", "both"}))->capture_default_str();
  add_frame_command(app, o.common, "decomb", "Rebuild field 1 of combed frames from field 0", "422", true,
                    kProduced);

  CLI::App *chamfer = add_frame_command(
      app, o.common, "chamfer",
      "Measure the key-coloured region from its most interior block by 256 rays, drawn as a star (4:2:2); "
      "the operator also writes each drawn frame to the file 'd:\\temp\\track2.png' of the current folder",
      "422", false, kPainted);
  add_color(chamfer, o.chamfer.color, "Key colour");
  chamfer->add_option("--tolerance", o.chamfer.tolerance, "Mean chroma distance of a matching block (0..1)")
      ->check(CLI::Range(0.0f, 1.0f))->capture_default_str();

  CLI::App *homography = app.add_subcommand(
      "homography", "Estimate the perspective transform from files of point pairs, one line 'x y u v [weight]' "
                    "a pair ('#' starts a comment); one JSON object a file");
  homography->add_option("pairs", o.homography.files, "Files of point pairs ('-' for standard input)")
      ->required()->type_name("FILE...");

  CLI::App *match = app.add_subcommand(
      "match", "Find the brightness, contrast, saturation and chroma offsets that carry the first frame of "
               "PICTURE to the statistics of the first frame of REFERENCE");
  match->add_option("picture", o.match.picture, "Picture or clip to correct")->required()->type_name("PICTURE");
  match->add_option("reference", o.match.reference, "Picture or clip to match")->required()->type_name("REFERENCE");
  match->add_option("--preview,-o", o.common.preview, "Write PICTURE corrected by the settings found (a PNG)")
      ->type_name("FILE");

  CLI::App *align = app.add_subcommand(
      "align", "Align the luma of the first frame of FIRST to that of SECOND (rotation, scale, shift) by the "
               "open-ended loop of the motion estimator, run in a child process; one JSON object an iteration "
               "with its energy, until interrupted or --iterations");
  align->add_option("first", o.align.first, "Picture or clip (default: the synthetic clip's frame 0)")
      ->type_name("FIRST");
  align->add_option("second", o.align.second, "Picture or clip (default: the synthetic clip's frame 2)")
      ->type_name("SECOND");
  align->add_option("--iterations", o.align.iterations, "Stop the operator after N iterations")
      ->check(CLI::Range(std::int64_t(1), std::int64_t(1) << 40))->type_name("N");
  align->add_option("--picture-dir", o.align.picture_dir,
                    "Folder for the operator's difference picture 'f:\\test.png' (default: a temporary "
                    "folder, removed at the end)")->type_name("DIR");

  try {
    app.parse(argc, argv);
  } catch (CLI::CallForHelp const &e) {
    std::ostringstream out, err;
    app.exit(e, out, err);
    message = out.str();
    return 0;
  } catch (CLI::CallForAllHelp const &e) {
    std::ostringstream out, err;
    app.exit(e, out, err);
    message = out.str();
    return 0;
  } catch (CLI::ParseError const &e) {
    message = e.what();
    if (message.empty()) message = "bad command line";
    return 2;
  }
  o.command = app.get_subcommands().front()->get_name();
  if (o.command == "corners" && o.corners.min_corners >= 0 && o.corners.max_corners >= 0 &&
      o.corners.min_corners > o.corners.max_corners) {
    message = "--min-corners is above --max-corners";
    return 2;
  }
  if (o.command == "align" && !o.align.first.empty() && o.align.second.empty()) {
    message = "align takes two pictures, or none for the synthetic clip";
    return 2;
  }
  return -1;
}

}  // namespace sight_host
