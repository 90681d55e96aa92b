// A small host of the colour-key tracker: a key-coloured card turns and moves
// over a synthetic backdrop in 4:2:2 frames handed over as messages; the
// tracker reports the box it sees in every frame, next to the true centre.
//
//   object_tracking_demo [frames]     (default: 24)
#include <sight/sight.h>
#include <sight/object_tracking/object_tracking.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;
using Korvane::Sight::object_tracking;
using Korvane::Sight::object_tracking_info;

namespace {

constexpr int kWidth = 720, kHeight = 576;
constexpr float kAspect = 16.0f / 9.0f;  // displayed shape of the picture
constexpr double kPi = 3.14159265358979323846;

// Chroma of the key: what the tracker's default colour (200, 137, 119)
// comes to. The backdrop keeps its chroma far from it.
constexpr std::uint8_t kKeyCb = 111, kKeyCr = 157;

struct card {
  double x, y, angle;  // centre in pixels, angle in radians
  double half_w = 90, half_h = 45;
  bool covers(int px, int py) const {
    double const dx = px - x, dy = py - y;
    double const u = dx * std::cos(angle) + dy * std::sin(angle), v = -dx * std::sin(angle) + dy * std::cos(angle);
    return std::fabs(u) <= half_w && std::fabs(v) <= half_h;
  }
};

void render(R::bitmap_422<R::pixel_ycbcr_u8> &frame, card const &c, int t) {
  for (int y = 0; y < frame.height; ++y) {
    R::pixel_ycbcr_u8 *line = R::line(frame, y);
    for (int e = 0; e < (frame.width + 1) / 2; ++e) {
      // A moving diagonal pattern in luma, with chroma in the blue-green
      // corner that the key never reaches.
      std::uint8_t const luma = std::uint8_t(60 + ((2 * e + y + 3 * t) / 24 % 2) * 100);
      line[e] = c.covers(2 * e, y) ? R::pixel_ycbcr_u8{kKeyCb, 150, kKeyCr, 150}
                                   : R::pixel_ycbcr_u8{std::uint8_t(160 + e % 32), luma,
                                                       std::uint8_t(80 - y % 16), luma};
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  int const frames = argc > 1 ? std::atoi(argv[1]) : 24;
  R::bitmap_422<R::pixel_ycbcr_u8> frame{};
  if (!R::allocate(frame, kWidth, kHeight)) return 1;

  video::message message;
  message.xres() = kWidth;
  message.yres() = kHeight;
  message.aspect_ratio() = kAspect;
  message.field_type() = video::field_progressive;
  message.data_format() = video::format_422;
  message.ycbcr() = frame;

  object_tracking tracker;  // default key colour and tolerance
  tracker.enabled() = true;
  tracker.constraints().track_aspect() = true;  // report the card's own shape
  tracker.cropping().left() = tracker.cropping().right() = 0.05f;

  std::printf("frame found   true centre        centre             x_axis             y_axis         angle\n");
  for (int t = 0; t < frames; ++t) {
    card const c{kWidth / 2 + 220 * std::sin(t * 0.25), kHeight / 2 + 150 * std::sin(t * 0.4), t * 6 * kPi / 180};
    render(frame, c, t);
    object_tracking_info const info = tracker(&message, false);
    // The true centre in the tracker's coordinates: y from -1 to 1 over the
    // height, x over -aspect..aspect.
    double const tx = 2 * kAspect * c.x / kWidth - kAspect, ty = 2 * c.y / kHeight - 1;
    double const angle = std::atan2(info.x_axis().y, info.x_axis().x) * 180 / kPi;
    std::printf("%5d %5d  (%7.4f,%7.4f)  (%7.4f,%7.4f)  (%7.4f,%7.4f)  (%7.4f,%7.4f)  %6.1f\n", t,
                int(info.object_detected()), tx, ty, info.centre().x, info.centre().y, info.x_axis().x,
                info.x_axis().y, info.y_axis().x, info.y_axis().y, angle);
  }
  R::release(frame);
  return 0;
}
