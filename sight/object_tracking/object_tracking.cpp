// The tracker's frame driver: the entries for every layout and for a
// message, the per-frame set-up, and the move of the winning region's
// moments into the coordinates of the result.
#include <sight/object_tracking/object_tracking.h>

#include <algorithm>
#include <cstring>

#include <sight/object_tracking/moments_kernels.h>
#include <sight/operator/color_matrix.h>
#include <sight/operator/detail/float_to_int.h>
#include <sight/operator/detail/key_chroma.h>
#include <sight/operator/detail/member.h>
#include <sight/operator/detail/message_entry.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;

static_assert(sizeof(object_tracking::moments_type) == 8 * sizeof(float) &&
                  alignof(object_tracking::moments_type) == 16,
              "the kernels store a cell as eight floats at 16-byte alignment");
static_assert(alignof(object_tracking) == 16, "the key vectors are read as aligned lanes");

glm::mat4 const object_tracking::g_rgb_to_ycbcr = rgb_to_ycbcr_matrix();

namespace {

using detail::truncate_clamped;

// The first bitmap of a frame gives its size.
template <class First, class... Rest>
First const &first_plane(First const &first, Rest const &...) {
  return first;
}

}  // namespace

object_tracking::object_tracking(float moment_bias)
    : object_tracking_data(),
      cells_x(0),
      cells_y(0),
      cells{},
      previous_x_axis(1.0f, 0.0f),
      key_cbcr{},
      key_scale{},
      key_offset{},
      minimum_mass(0.0f),
      moment_bias(moment_bias),
      crop_x_min(0.0f),
      crop_x_max(0.0f),
      crop_y_min(0.0f),
      crop_y_max(0.0f),
      fill_stack{} {}

object_tracking::object_tracking() : object_tracking(8.0f) {}

object_tracking::object_tracking(object_tracking const &other)
    : object_tracking_data(other),
      cells_x(other.cells_x),
      cells_y(other.cells_y),
      cells{},
      previous_x_axis(other.previous_x_axis),
      minimum_mass(other.minimum_mass),
      moment_bias(other.moment_bias),
      crop_x_min(other.crop_x_min),
      crop_x_max(other.crop_x_max),
      crop_y_min(other.crop_y_min),
      crop_y_max(other.crop_y_max),
      fill_stack{} {
  std::memcpy(key_cbcr, other.key_cbcr, sizeof key_cbcr);
  std::memcpy(key_scale, other.key_scale, sizeof key_scale);
  std::memcpy(key_offset, other.key_offset, sizeof key_offset);
  R::copy(cells, other.cells);
  // The fill's stack holds nothing between frames: only its size is taken.
  if (other.fill_stack.data != nullptr) R::allocate(fill_stack, other.fill_stack.width, 1);
}

object_tracking &object_tracking::operator=(object_tracking const &other) {
  if (this == &other) return *this;
  object_tracking_data::operator=(other);
  cells_x = other.cells_x;
  cells_y = other.cells_y;
  previous_x_axis = other.previous_x_axis;
  std::memcpy(key_cbcr, other.key_cbcr, sizeof key_cbcr);
  std::memcpy(key_scale, other.key_scale, sizeof key_scale);
  std::memcpy(key_offset, other.key_offset, sizeof key_offset);
  minimum_mass = other.minimum_mass;
  moment_bias = other.moment_bias;
  crop_x_min = other.crop_x_min;
  crop_x_max = other.crop_x_max;
  crop_y_min = other.crop_y_min;
  crop_y_max = other.crop_y_max;
  if (cells.data == nullptr) {
    R::copy(cells, other.cells);
  } else if (other.cells.data != nullptr) {
    // A grid that exists keeps its memory and size, as a bitmap copy does;
    // only the part that both grids hold is copied, so that neither is read
    // or written past its end when the sizes differ. The next frame's set-up
    // sees a grid of the wrong size and reallocates it.
    int const w = std::min(cells.width, other.cells.width);
    int const h = std::min(cells.height, other.cells.height);
    for (int y = 0; y < h; ++y)
      std::memcpy(R::line(cells, y), R::line(other.cells, y), std::size_t(w) * sizeof(moments_type));
  }
  if (fill_stack.data == nullptr && other.fill_stack.data != nullptr)
    R::allocate(fill_stack, other.fill_stack.width, 1);
  return *this;
}

object_tracking::~object_tracking() {
  R::release(cells);
  R::release(fill_stack);
}

void object_tracking::setup(int width, int height, int new_cells_x, int new_cells_y) {
  // Cropping in pixels. Overlapping margins are swapped into a band.
  float const w = float(width), h = float(height);
  crop_x_min = cropping().left() * w;
  crop_x_max = (1.0f - cropping().right()) * w;
  crop_y_min = cropping().top() * h;
  crop_y_max = (1.0f - cropping().bottom()) * h;
  if (crop_x_min > crop_x_max) std::swap(crop_x_min, crop_x_max);
  if (crop_y_min > crop_y_max) std::swap(crop_y_min, crop_y_max);

  glm::ivec2 const key = detail::key_chroma(g_rgb_to_ycbcr, color().r(), color().g(), color().b());
  std::uint16_t const key_cb = std::uint16_t(key.x);
  std::uint16_t const key_cr = std::uint16_t(key.y);

  // Key curve: the weight falls from 255 at chroma distance lo to 0 at hi.
  float soft = smoothness() * 0.3f;
  if (!(soft >= 0.01f)) soft = 0.01f;
  float tol = tolerance_c() * 0.5f;
  if (!(tol >= 0.0f)) tol = 0.0f;
  float const hi = tol * 255.0f;
  float const lo = (tol - soft) * 255.0f;
  float const s = 255.0f / (hi - lo);
  std::uint16_t const scale = std::uint16_t(truncate_clamped(s * 256.0f + 0.5f, 0, 65535));
  std::uint16_t const offset = std::uint16_t(truncate_clamped(s * hi + 0.5f, 0, 65535));
  for (int lane = 0; lane < 8; lane += 2) {
    key_cbcr[lane] = key_cb;
    key_cbcr[lane + 1] = key_cr;
  }
  std::fill(key_scale, key_scale + 8, scale);
  std::fill(key_offset, key_offset + 8, offset);

  minimum_mass = (float(new_cells_x) * minimum_size() * 8.0f) * (float(new_cells_y) * minimum_size() * 8.0f) * 255.0f;

  // The grid is reallocated when the number of cells changes, and also when
  // it is missing or not of the size the counts call for (after a failed
  // allocation, or an assignment from a tracker of another size): the
  // kernels and the fill rely on its size.
  if (new_cells_x != cells_x || new_cells_y != cells_y || cells.data == nullptr ||
      cells.width != new_cells_x + 2 || cells.height != new_cells_y + 2 || fill_stack.data == nullptr) {
    cells_x = new_cells_x;
    cells_y = new_cells_y;
    R::allocate(cells, cells_x + 2, cells_y + 2);
    if (cells.data != nullptr)
      for (int y = 0; y < cells.height; ++y)
        std::memset(R::line(cells, y), 0, std::size_t(cells.width) * sizeof(moments_type));
    // Runs of one row are separated by an empty cell, so no region has more
    // runs, and the fill no more levels, than this.
    R::allocate(fill_stack, cells_y * ((cells_x + 1) / 2) + 1, 1);
  }
}

void object_tracking::scale_object(moments_type &m, int width, int height, float aspect_ratio) const {
  float const a = aspect_ratio;
  float const kx = 2.0f * a / float(width);
  float const ky = 2.0f / float(height);
  float const mass = m.mass;
  float const sx = m.sum_x, sy = m.sum_y, sxx = m.sum_xx, syy = m.sum_yy, sxy = m.sum_xy;
  // Every sample moved by x' = kx * x - a, y' = ky * y - 1.
  m.sum_x = kx * sx - a * mass;
  m.sum_y = ky * sy - mass;
  m.sum_xx = kx * kx * sxx - 2.0f * a * kx * sx + a * a * mass;
  m.sum_yy = ky * ky * syy - 2.0f * ky * sy + mass;
  m.sum_xy = kx * ky * sxy - a * ky * sy - kx * sx + a * mass;
}

// ---------------------------------------------------------------------------
// Moments: pick the kernel member by preview and by the alignment of every
// bitmap of the frame.

namespace {

detail::moment_grid make_grid(R::bitmap<object_tracking::moments_type> const &cells, int cells_x, int cells_y,
                              std::uint16_t const *key_cbcr, std::uint16_t const *key_scale,
                              std::uint16_t const *key_offset) {
  return {reinterpret_cast<float *>(cells.data), cells.stride, cells_x, cells_y, key_cbcr, key_scale, key_offset};
}

// Calls f(aligned, preview) with both choices as types: aligned when every
// bitmap is, painting the matte under bit 0 of preview.
template <class F, class... Bitmaps>
void with_members(bool preview, F const &f, Bitmaps const &...bitmaps) {
  detail::with_member([&](auto a) { detail::with_flag(preview, [&](auto p) { f(a, p); }); }, bitmaps...);
}

}  // namespace

void object_tracking::generate_moments(bgra_bitmap const &frame) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  with_members((preview() & 1) != 0, [&](auto a, auto p) { detail::generate_moments_bgra<a, p>(frame, g); }, frame);
}

void object_tracking::generate_moments(ycbcra_bitmap const &frame) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  with_members((preview() & 1) != 0, [&](auto a, auto p) { detail::generate_moments_ycbcra<a, p>(frame, g); },
               frame);
}

void object_tracking::generate_moments(ycbcr_bitmap const &frame) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  with_members((preview() & 1) != 0, [&](auto a, auto p) { detail::generate_moments_422<a, p>(frame, g); }, frame);
}

void object_tracking::generate_moments(y_bitmap const &y, cbcr_bitmap const &cbcr) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  with_members((preview() & 1) != 0, [&](auto a, auto p) { detail::generate_moments_y_cbcr<a, p>(y, cbcr, g); }, y,
               cbcr);
}

void object_tracking::generate_moments(y_bitmap const &y, cb_bitmap const &cb,
                                       cr_bitmap const &cr) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  // Without preview the luma plane is not read, and the chroma is read
  // eight bytes at a time, which needs no alignment.
  if ((preview() & 1) == 0)
    detail::generate_moments_planar(cb, cr, g);
  else
    detail::with_member([&](auto a) { detail::generate_moments_planar_preview<a>(y, cb, cr, g); }, y, cb, cr);
}

// ---------------------------------------------------------------------------
// The pipeline of one frame, shared by the bitmap entries.

template <class... Planes>
void object_tracking::track(object_tracking_info &info, int new_cells_x, int new_cells_y, float aspect_ratio,
                            Planes const &...planes) {
  if (!enabled()) {
    info = object_tracking_info();
    return;
  }
  auto const &first = first_plane(planes...);
  int const width = first.width, height = first.height;
  // A negative size gives no cells rather than a grid of negative size.
  setup(width, height, std::max(new_cells_x, 0), std::max(new_cells_y, 0));
  if (cells.data == nullptr || fill_stack.data == nullptr) {
    // The working memory could not be allocated: nothing is looked at.
    info = object_tracking_info();
    return;
  }
  generate_moments(planes...);
  // Zeroed, so that a grid without cells (minimum_mass 0) still gives
  // defined, if non-finite, numbers.
  moments_type m{};
  extract_object(m);
  if (aspect_ratio == 0.0f) aspect_ratio = float(width) / float(height);
  scale_object(m, width, height, aspect_ratio);
  fit_object(info, m);
  if (info.object_detected() != 0 && (preview() & 2) != 0) {
    // The outlines paint the caller's frame, which the entry takes as const:
    // they draw through copies of the bitmaps, which are views on the same
    // pixels.
    [&](Planes... views) { display_outlines(views..., info, aspect_ratio); }(planes...);
  }
}

void object_tracking::operator()(object_tracking_info &info, bgra_bitmap const &frame,
                                 float aspect_ratio) {
  track(info, frame.width / 8, frame.height / 8, aspect_ratio, frame);
}

object_tracking_info const object_tracking::operator()(bgra_bitmap const &frame, float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, ycbcra_bitmap const &frame,
                                 float aspect_ratio) {
  track(info, frame.width / 8, frame.height / 8, aspect_ratio, frame);
}

object_tracking_info const object_tracking::operator()(ycbcra_bitmap const &frame,
                                                       float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, ycbcr_bitmap const &frame,
                                 float aspect_ratio) {
  track(info, frame.width / 16, frame.height / 8, aspect_ratio, frame);
}

object_tracking_info const object_tracking::operator()(ycbcr_bitmap const &frame,
                                                       float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, y_bitmap const &y,
                                 cbcr_bitmap const &cbcr, float aspect_ratio) {
  track(info, y.width / 16, y.height / 16, aspect_ratio, y, cbcr);
}

object_tracking_info const object_tracking::operator()(y_bitmap const &y,
                                                       cbcr_bitmap const &cbcr, float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, y, cbcr, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, y_bitmap const &y,
                                 cb_bitmap const &cb, cr_bitmap const &cr,
                                 float aspect_ratio) {
  track(info, y.width / 16, y.height / 16, aspect_ratio, y, cb, cr);
}

object_tracking_info const object_tracking::operator()(y_bitmap const &y,
                                                       cb_bitmap const &cb,
                                                       cr_bitmap const &cr, float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, y, cb, cr, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, video::message const *message, bool lower_field) {
  if (!enabled()) {
    info = object_tracking_info();
    return;
  }
  video::field_views const v = video::field_views::make(*message, lower_field);
  float const aspect_ratio = message->aspect_ratio();
  if (!detail::visit_layout(v, [&](auto const &...planes) { (*this)(info, planes..., aspect_ratio); }))
    info = object_tracking_info();
  // Half a line of the field is one line of the frame: the lower field's
  // lines sit that much lower on the picture.
  if (v.lower_field) info.centre().y += 1.0f / float(v.height);
}

object_tracking_info const object_tracking::operator()(video::message const *message, bool lower_field) {
  object_tracking_info info;
  (*this)(info, message, lower_field);
  return info;
}

}  // namespace Korvane::Sight
