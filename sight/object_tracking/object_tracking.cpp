// The tracker's frame driver: the entries for every layout and for a
// message, the per-frame set-up, and the move of the winning region's
// moments into the coordinates of the result.
#include <sight/object_tracking/object_tracking.h>

#include <algorithm>
#include <cstring>

#include <sight/frame/field_views.h>
#include <sight/object_tracking/moments_kernels.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;

static_assert(sizeof(object_tracking::moments_type) == 8 * sizeof(float) &&
                  alignof(object_tracking::moments_type) == 16,
              "the kernels store a cell as eight floats at 16-byte alignment");
static_assert(alignof(object_tracking) == 16, "the key vectors are read as aligned lanes");

// Rows are (Y, Cb, Cr, 1), columns (R, G, B, constant); glm stores columns.
glm::mat4 const object_tracking::g_rgb_to_ycbcr(0.257f, -0.148f, 0.439f, 0.0f,   // R
                                                0.504f, -0.291f, -0.368f, 0.0f,  // G
                                                0.098f, 0.439f, -0.071f, 0.0f,   // B
                                                0.063f, 0.502f, 0.502f, 1.0f);   // constant

namespace {

// Truncates toward zero and clamps to lo..hi; NaN counts as lo. Clamping in
// float first keeps the conversion defined for any input, and gives what
// truncation followed by clamping gives.
int truncate_clamped(float v, int lo, int hi) {
  if (!(v > float(lo))) return lo;
  if (v >= float(hi)) return hi;
  return int(v);
}

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

  // Reference chroma from the float matrix, summed left to right as written
  // (not in the grouping of a matrix product, which rounds differently).
  glm::mat4 const m = 255.0f * g_rgb_to_ycbcr;
  float const r = color().r(), g = color().g(), b = color().b();
  float const cb = m[0][1] * r + m[1][1] * g + m[2][1] * b + m[3][1] + 0.5f;
  float const cr = m[0][2] * r + m[1][2] * g + m[2][2] * b + m[3][2] + 0.5f;
  std::uint16_t const key_cb = std::uint16_t(truncate_clamped(cb, 0, 255));
  std::uint16_t const key_cr = std::uint16_t(truncate_clamped(cr, 0, 255));

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

// Calls kernel<Aligned, Preview> with the two choices made at run time.
template <template <bool, bool> class K, class... A>
void dispatch(bool aligned, bool preview, A const &...args) {
  if (aligned) {
    if (preview)
      K<true, true>::run(args...);
    else
      K<true, false>::run(args...);
  } else {
    if (preview)
      K<false, true>::run(args...);
    else
      K<false, false>::run(args...);
  }
}

template <bool A, bool P>
struct bgra_kernel {
  static void run(R::bitmap<R::pixel_bgra_u8> const &f, detail::moment_grid const &g) {
    detail::generate_moments_bgra<A, P>(f, g);
  }
};
template <bool A, bool P>
struct ycbcra_kernel {
  static void run(R::bitmap<R::pixel_ycbcra_u8> const &f, detail::moment_grid const &g) {
    detail::generate_moments_ycbcra<A, P>(f, g);
  }
};
template <bool A, bool P>
struct k422_kernel {
  static void run(R::bitmap_422<R::pixel_ycbcr_u8> const &f, detail::moment_grid const &g) {
    detail::generate_moments_422<A, P>(f, g);
  }
};
template <bool A, bool P>
struct y_cbcr_kernel {
  static void run(R::bitmap<R::pixel_y_u8> const &y, R::bitmap<R::pixel_cbcr_u8> const &c,
                  detail::moment_grid const &g) {
    detail::generate_moments_y_cbcr<A, P>(y, c, g);
  }
};

}  // namespace

void object_tracking::generate_moments(R::bitmap<R::pixel_bgra_u8> const &frame) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  dispatch<bgra_kernel>(R::is_aligned(frame), (preview() & 1) != 0, frame, g);
}

void object_tracking::generate_moments(R::bitmap<R::pixel_ycbcra_u8> const &frame) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  dispatch<ycbcra_kernel>(R::is_aligned(frame), (preview() & 1) != 0, frame, g);
}

void object_tracking::generate_moments(R::bitmap_422<R::pixel_ycbcr_u8> const &frame) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  dispatch<k422_kernel>(R::is_aligned(frame), (preview() & 1) != 0, frame, g);
}

void object_tracking::generate_moments(R::bitmap<R::pixel_y_u8> const &y, R::bitmap<R::pixel_cbcr_u8> const &cbcr) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  dispatch<y_cbcr_kernel>(R::is_aligned(y) && R::is_aligned(cbcr), (preview() & 1) != 0, y, cbcr, g);
}

void object_tracking::generate_moments(R::bitmap<R::pixel_y_u8> const &y, R::bitmap<R::pixel_cb_u8> const &cb,
                                       R::bitmap<R::pixel_cr_u8> const &cr) {
  detail::moment_grid const g = make_grid(cells, cells_x, cells_y, key_cbcr, key_scale, key_offset);
  // Without preview the luma plane is not read, and the chroma is read
  // eight bytes at a time, which needs no alignment.
  if ((preview() & 1) == 0)
    detail::generate_moments_planar(cb, cr, g);
  else if (R::is_aligned(y) && R::is_aligned(cb) && R::is_aligned(cr))
    detail::generate_moments_planar_preview<true>(y, cb, cr, g);
  else
    detail::generate_moments_planar_preview<false>(y, cb, cr, g);
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

void object_tracking::operator()(object_tracking_info &info, R::bitmap<R::pixel_bgra_u8> const &frame,
                                 float aspect_ratio) {
  track(info, frame.width / 8, frame.height / 8, aspect_ratio, frame);
}

object_tracking_info const object_tracking::operator()(R::bitmap<R::pixel_bgra_u8> const &frame, float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, R::bitmap<R::pixel_ycbcra_u8> const &frame,
                                 float aspect_ratio) {
  track(info, frame.width / 8, frame.height / 8, aspect_ratio, frame);
}

object_tracking_info const object_tracking::operator()(R::bitmap<R::pixel_ycbcra_u8> const &frame,
                                                       float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, R::bitmap_422<R::pixel_ycbcr_u8> const &frame,
                                 float aspect_ratio) {
  track(info, frame.width / 16, frame.height / 8, aspect_ratio, frame);
}

object_tracking_info const object_tracking::operator()(R::bitmap_422<R::pixel_ycbcr_u8> const &frame,
                                                       float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, frame, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, R::bitmap<R::pixel_y_u8> const &y,
                                 R::bitmap<R::pixel_cbcr_u8> const &cbcr, float aspect_ratio) {
  track(info, y.width / 16, y.height / 16, aspect_ratio, y, cbcr);
}

object_tracking_info const object_tracking::operator()(R::bitmap<R::pixel_y_u8> const &y,
                                                       R::bitmap<R::pixel_cbcr_u8> const &cbcr, float aspect_ratio) {
  object_tracking_info info;
  (*this)(info, y, cbcr, aspect_ratio);
  return info;
}

void object_tracking::operator()(object_tracking_info &info, R::bitmap<R::pixel_y_u8> const &y,
                                 R::bitmap<R::pixel_cb_u8> const &cb, R::bitmap<R::pixel_cr_u8> const &cr,
                                 float aspect_ratio) {
  track(info, y.width / 16, y.height / 16, aspect_ratio, y, cb, cr);
}

object_tracking_info const object_tracking::operator()(R::bitmap<R::pixel_y_u8> const &y,
                                                       R::bitmap<R::pixel_cb_u8> const &cb,
                                                       R::bitmap<R::pixel_cr_u8> const &cr, float aspect_ratio) {
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
  switch (int(v.format)) {
    case 0:
    case 1:
      (*this)(info, v.ycbcr, aspect_ratio);
      break;
    case 2:
      (*this)(info, v.y, v.cb, v.cr, aspect_ratio);
      break;
    case 3:
      (*this)(info, v.ycbcra, aspect_ratio);
      break;
    case 4:
      (*this)(info, v.bgra, aspect_ratio);
      break;
    case 5:
      (*this)(info, v.y, v.cbcr, aspect_ratio);
      break;
    default:
      info = object_tracking_info();
      break;
  }
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
