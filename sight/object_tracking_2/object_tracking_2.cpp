// The chamfer tracker's frame driver: set-up, the two passes of the distance
// transform, the rays, the star and the picture of the frame.
#include <sight/object_tracking_2/object_tracking_2.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include <sight/frame/convert.h>
#include <sight/frame/io.h>
#include <sight/frame/rasterize.h>
#include <sight/object_tracking_2/chamfer_kernels.h>
#include <sight/operator/color_matrix.h>
#include <sight/operator/detail/float_to_int.h>
#include <sight/operator/detail/member.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;

glm::mat4 const object_tracking_2::g_rgb_to_ycbcr = rgb_to_ycbcr_matrix();
__m128i const object_tracking_2::g_255 = {0x00FF00FF00FF00FFll, 0x00FF00FF00FF00FFll};
int object_tracking_2::g_directions[no_directions][2] = {};
int object_tracking_2::g_outline[no_directions][2] = {};

namespace {

// The cells that both maps hold, from `source` into `map`. Where the sizes
// agree this is the whole map; where they differ only the common part is
// copied, so that neither map is read or written past its end (the copy of
// the full destination size would read past a smaller source).
void copy_cells(y_bitmap &map, y_bitmap const &source) {
  if (map.data == nullptr || source.data == nullptr) return;
  if (map.width == source.width && map.height == source.height && map.stride == source.stride &&
      map.stride >= map.width) {
    std::memcpy(map.data, source.data, std::size_t(map.stride) * std::size_t(map.height));
    return;
  }
  int const w = std::min(map.width, source.width), h = std::min(map.height, source.height);
  for (int y = 0; y < h; ++y) std::memcpy(R::line(map, y), R::line(source, y), std::size_t(w));
}

// The drawn-on frame converted line by line into a new bitmap of `Pixel`
// and written to the fixed path.
template <class Pixel>
bool write_frame(ycbcr_bitmap const &frame) {
  R::bitmap<Pixel> picture{};
  R::allocate(picture, frame.width, frame.height);
  if (picture.data != nullptr)
    for (int y = 0; y < frame.height; ++y)
      R::convert_line<R::pixel_ycbcr_u8, Pixel>(R::line(frame, y), R::line(picture, y), frame.width);
  bool const written = R::io::write(L"d:\\temp\\track2.png", picture);
  R::release(picture);
  return written;
}

}  // namespace

object_tracking_2::object_tracking_2()
    : object_tracking_2_data(), key_cbcr(), key_cb(0), key_cr(0), key_tolerance(0), chamfer_map{} {}

object_tracking_2::object_tracking_2(object_tracking_2 const &other)
    : object_tracking_2_data(other),
      key_cbcr(other.key_cbcr),
      key_cb(other.key_cb),
      key_cr(other.key_cr),
      key_tolerance(other.key_tolerance),
      chamfer_map{} {
  R::allocate(chamfer_map, other.chamfer_map.width, other.chamfer_map.height);
  copy_cells(chamfer_map, other.chamfer_map);
}

object_tracking_2 &object_tracking_2::operator=(object_tracking_2 const &other) {
  if (this == &other) return *this;
  object_tracking_2_data::operator=(other);
  key_cbcr = other.key_cbcr;
  key_cb = other.key_cb;
  key_cr = other.key_cr;
  key_tolerance = other.key_tolerance;
  // Not a resize: a map that exists keeps its size until the next set-up.
  if (chamfer_map.data == nullptr) R::allocate(chamfer_map, other.chamfer_map.width, other.chamfer_map.height);
  copy_cells(chamfer_map, other.chamfer_map);
  return *this;
}

object_tracking_2::~object_tracking_2() { R::release(chamfer_map); }

void object_tracking_2::setup(int width, int height) {
  // The key, each sum in single precision in the order written. Luma is not
  // needed: the key has none.
  glm::mat4 const m = 255.0f * g_rgb_to_ycbcr;
  float const r = color().r(), g = color().g(), b = color().b();
  float const cb = ((g * m[1][1] + r * m[0][1]) + b * m[2][1]) + m[3][1] + 0.5f;
  float const cr = ((g * m[1][2] + r * m[0][2]) + b * m[2][2]) + m[3][2] + 0.5f;
  float const tol = tolerance() * 255.0f + 0.5f;
  key_cb = detail::truncate_clamped(cb, 0, 255);
  key_cr = detail::truncate_clamped(cr, 0, 255);
  key_tolerance = detail::truncate_clamped(tol, 0, 255);
  key_cbcr = _mm_set1_epi32((key_cr << 16) | key_cb);

  // A map of a new size starts cleared: its border is never written again.
  if (chamfer_map.width != width + 2 || chamfer_map.height != height + 2) {
    R::allocate(chamfer_map, width + 2, height + 2);
    if (chamfer_map.data != nullptr)
      std::memset(chamfer_map.data, 0, std::size_t(chamfer_map.stride) * std::size_t(chamfer_map.height));
  }

  // Entry 0 is (65536, 0) once filled.
  if (g_directions[0][0] == 0) {
    for (int i = 0; i < no_directions; ++i) {
      float const angle = float(i) * 0.024543693f;
      g_directions[i][0] = int(std::floor(std::cos(angle) * 65536.0f + 0.5f));
      g_directions[i][1] = int(std::floor(std::sin(angle) * 65536.0f + 0.5f));
    }
  }
}

int object_tracking_2::chamfer_pass_2(int *const position) {
  int const w = chamfer_map.width, h = chamfer_map.height;
  int best = 0, best_x = 0, best_y = 0;
  if (h - 2 < 2) return 0;
  for (int y = h - 2; y >= 2; --y) {
    std::uint8_t *cell = &R::line(chamfer_map, y)->y;
    std::uint8_t const *below = &R::line(chamfer_map, y + 1)->y;
    // The scan meets a line's largest value first at its rightmost place.
    int const most = detail::chamfer_row_2(cell, below, w);
    if (most <= best) continue;
    best = most, best_y = y;
    for (best_x = w - 2; cell[best_x] != most; --best_x) {
    }
  }
  position[0] = best_x - 1;
  position[1] = best_y - 1;
  return best;
}

void object_tracking_2::operator()(object_tracking_2_info &, ycbcr_bitmap const &frame, float) {
  if (!enabled()) return;
  if (draw_star(frame) && !write_frame<R::pixel_bgra_u8>(frame)) write_frame<R::pixel_bgr_u8>(frame);
}

bool object_tracking_2::draw_star(ycbcr_bitmap const &frame) {
  int const width = frame.width, height = frame.height;
  int const cols = width / 16, rows = height / 8;
  setup(cols, rows);
  int const limit = key_tolerance << 6;
  detail::with_member([&](auto aligned) { detail::chamfer_pass_1<aligned>(frame, key_cbcr, limit, chamfer_map); },
                      frame);

  int position[2];
  int const m = chamfer_pass_2(position);
  if (m < 2) return false;

  // The 4 is the same on both axes although a block is 16 wide.
  int const centre[2] = {position[0] * 16 + 4, position[1] * 8 + 4};
  int const lx = width - 1, ly = height - 1;
  detail::edge_probe const probe{reinterpret_cast<unsigned char const *>(frame.data),
                                 frame.stride,
                                 width,
                                 height,
                                 key_cb,
                                 key_cr,
                                 key_tolerance};
  for (int i = 0; i < no_directions; ++i) {
    int const dx = g_directions[i][0], dy = g_directions[i][1];
    int const start[2] = {centre[0] + ((dx * 8) >> 16), centre[1] + ((dy * 8) >> 16)};
    int const step[2] = {(dx * (10 * m)) >> 16, (dy * (10 * m)) >> 16};
    detail::find_edge(probe, start, step, lx, ly, g_outline[i]);
  }

  // The frame is drawn on in place: the caller's memory, passed as const.
  ycbcr_bitmap target = frame;
  target.owned = false;
  R::pixel_ycbcr_u8 const white{128, 255, 128, 255};
  for (int i = 0; i < no_directions; ++i) R::rasterize::line(target, centre, g_outline[i], white);
  return true;
}

object_tracking_2_info const object_tracking_2::operator()(ycbcr_bitmap const &frame, float aspect_ratio) {
  object_tracking_2_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

}  // namespace Korvane::Sight
