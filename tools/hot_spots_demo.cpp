// A small host of the hot-spot detector: a backdrop of the key colour with
// a round object that travels once round the circle of the eight default
// spots, and a line per frame telling which spots it covers.
//
//   hot_spots_demo [frames]     (default: 32)
#include <sight/frame/bitmap.h>
#include <sight/hot_spots/hot_spots.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace R = Tamarind::Rasters;
namespace S = Korvane::Sight;

namespace {

constexpr int kWidth = 640, kHeight = 360;
constexpr float kAspect = float(kWidth) / float(kHeight);

// The default key, (R 50, G 90, B 160), and the object's orange.
constexpr R::pixel_bgra_u8 kKey{160, 90, 50, 255};
constexpr R::pixel_bgra_u8 kObject{40, 140, 240, 255};

// Paints the backdrop and a disc of `radius` around (x, y), all in picture
// coordinates (one unit is half the picture's height, origin in the middle).
void paint(R::bitmap<R::pixel_bgra_u8> &frame, float x, float y, float radius) {
  float const unit = kHeight * 0.5f;
  for (int j = 0; j < frame.height; ++j)
    for (int i = 0; i < frame.width; ++i) {
      float const u = (i + 0.5f - kWidth * 0.5f) / unit - x;
      float const v = (j + 0.5f - kHeight * 0.5f) / unit - y;
      R::line(frame, j)[i] = u * u + v * v <= radius * radius ? kObject : kKey;
    }
}

}  // namespace

int main(int argc, char **argv) {
  int const frames = argc > 1 ? std::atoi(argv[1]) : 32;
  R::bitmap<R::pixel_bgra_u8> frame{};
  if (!R::allocate(frame, kWidth, kHeight)) {
    std::fprintf(stderr, "no memory for a %dx%d frame\n", kWidth, kHeight);
    return 1;
  }

  S::hot_spots spots;
  spots.enabled() = true;
  for (int i = 0; i < spots.size_spots(); ++i) spots.spots(i).enabled() = true;

  std::printf("Spots at their default places (x, y) and marker colours:\n");
  for (int i = 0; i < spots.size_spots(); ++i) {
    glm::vec3 const c = S::hot_spots_data::preview_color(i);
    std::printf("  spot %d  (%+.3f, %+.3f)  rgb %.2f %.2f %.2f\n", i, spots.spots(i).x(),
                spots.spots(i).y(), c.r, c.g, c.b);
  }
  std::printf("\nAn object travels once round the circle; '#' marks a covered spot.\n");
  std::printf("frame  object (x, y)     spots 01234567\n");
  for (int n = 0; n < frames; ++n) {
    // Same direction as the default positions: from the bottom towards the
    // right edge, then up and round by the left.
    float const a = 6.2831853f * float(n) / float(frames);
    float const x = std::sin(a), y = std::cos(a);
    paint(frame, x, y, 0.12f);
    S::hot_spots_info const info = spots(frame, kAspect);
    char marks[9] = {};
    for (int i = 0; i < 8; ++i) marks[i] = info.detected(i) == S::object_found ? '#' : '.';
    std::printf("%5d  (%+.3f, %+.3f)   %s\n", n, x, y, marks);
  }
  R::release(frame);
  return 0;
}
