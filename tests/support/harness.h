// The comparison harness of the kernel tests: frames of every layout in
// memory sized exactly to the picture, so that AddressSanitizer reports any
// access past the last line in memory; every other byte of that memory (the
// base offset, the stride padding, room behind the last line) holds a guard
// value that a kernel must leave alone. Frames are compared with the model's
// byte for byte, guard bytes included, and a mismatch names plane, x, y, the
// model's value and the kernel's.
//
// A geometry places a frame: `pad` bytes after each line, the first byte
// `offset` bytes past a 16-byte boundary, lines bottom-up when `flip`. With
// offset 0 the lines are first rounded up to 16 bytes, so that pads 0 and 16
// give the aligned member's conditions (data and |stride| multiples of 16).
#ifndef SIGHT_TESTS_SUPPORT_HARNESS_H_
#define SIGHT_TESTS_SUPPORT_HARNESS_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <sight/frame/bitmap.h>

namespace harness {

namespace R = Tamarind::Rasters;

constexpr std::uint8_t guard = 0xA5;

// Joins its arguments into a text.
template <class... Parts>
std::string cat(Parts const &...parts) {
  std::ostringstream s;
  (s << ... << parts);
  return s.str();
}

struct shape {
  int width = 0;   // bytes per line
  int lines = 0;
  int stride = 0;  // signed
  int offset = 0;  // of the first byte from a 16-byte boundary
  int room = 0;    // bytes behind the last line in memory
};

// One plane of bytes, every byte the guard until written.
class plane {
 public:
  explicit plane(harness::shape const &s) : s_(s) {
    size_ = s.lines < 1 ? std::size_t(s.room)
                        : std::size_t(s.lines - 1) * std::size_t(std::abs(s.stride)) + std::size_t(s.width + s.room);
    void *p = nullptr;  // posix_memalign takes any size: the memory ends where it should
    if (posix_memalign(&p, 16, std::size_t(s.offset) + size_ + (size_ == 0)) != 0) std::abort();
    base_ = static_cast<std::uint8_t *>(p);
    std::memset(base_, guard, std::size_t(s.offset) + size_);
  }
  plane(plane const &o) : plane(o.s_) { copy_from(o); }
  plane &operator=(plane const &) = delete;
  ~plane() { std::free(base_); }

  std::uint8_t *begin() const { return base_ + s_.offset; }
  std::uint8_t *end() const { return begin() + size_; }
  std::size_t size() const { return size_; }
  harness::shape const &shape() const { return s_; }
  // Line y as a top-down view sees it (line 0 at data()).
  std::uint8_t *line(int y) const {
    std::ptrdiff_t const first = s_.stride < 0 && s_.lines > 0 ? std::ptrdiff_t(s_.lines - 1) * -s_.stride : 0;
    return begin() + first + std::ptrdiff_t(y) * s_.stride;
  }
  std::uint8_t *data() const { return line(0); }
  bool aligned() const { return s_.offset % 16 == 0 && s_.stride % 16 == 0; }
  void randomize(std::mt19937 &rng) const {
    for (int y = 0; y < s_.lines; ++y) std::generate_n(line(y), s_.width, [&] { return std::uint8_t(rng()); });
  }
  void copy_from(plane const &o) const { std::memcpy(begin(), o.begin(), size_); }

 private:
  harness::shape s_;
  std::size_t size_ = 0;
  std::uint8_t *base_ = nullptr;
};

// Every byte of two planes of one shape alike.
inline ::testing::AssertionResult same_bytes(plane const &want, plane const &got) {
  for (std::size_t i = 0; i < got.size(); ++i) {
    if (want.begin()[i] == got.begin()[i]) continue;
    std::ptrdiff_t const rel = (got.begin() + std::ptrdiff_t(i)) - got.data();
    int const stride = got.shape().stride;
    std::ptrdiff_t y = stride == 0 ? 0 : rel / stride, x = rel - y * stride;
    if (x < 0) x = rel - (y += stride > 0 ? -1 : 1) * stride;
    bool const picture = y >= 0 && y < got.shape().lines && x < got.shape().width;
    return ::testing::AssertionFailure() << "x " << x << " y " << y << (picture ? "" : " (guard)") << ": model "
                                         << int(want.begin()[i]) << ", kernel " << int(got.begin()[i]);
  }
  return ::testing::AssertionSuccess();
}

// The five pixel layouts, and plain byte planes for the line kernels.
enum class layout { bgra, ycbcra, ycbcr_422, y_cbcr, y_cb_cr, bytes };
constexpr layout pixel_layouts[] = {layout::bgra, layout::ycbcra, layout::ycbcr_422, layout::y_cbcr, layout::y_cb_cr};
inline char const *name_of(layout l) {
  char const *const names[] = {"bgra", "ycbcra", "ycbcr422", "y_cbcr", "y_cb_cr", "bytes"};
  return names[int(l)];
}

struct geometry {
  int width, height, pad, offset;
  bool flip;
};
inline bool aligned(geometry const &g) { return g.offset == 0 && g.pad % 16 == 0; }

// One pixel in every form that a layout stores.
struct sample {
  std::uint8_t b, g, r, a, y, cb, cr;
};

// A frame of one layout: planes[0] is the picture or the luma plane, then
// Cb Cr interleaved, or Cb and Cr, at half width and height.
struct frame {
  layout l;
  geometry g;
  std::vector<plane> planes;

  frame(layout l_, geometry const &g_, int room = 0) : l(l_), g(g_) {
    int const w = g.width, h = g.height;
    auto const add = [&](int bytes, int lines) {
      int const line = (g.offset == 0 ? (bytes + 15) / 16 * 16 : bytes) + g.pad;
      planes.emplace_back(shape{bytes, lines, g.flip ? -line : line, g.offset, room});
    };
    planes.reserve(3);
    if (l == layout::bgra || l == layout::ycbcra) add(w * 4, h);
    if (l == layout::ycbcr_422) add((w + 1) / 2 * 4, h);
    if (l == layout::y_cbcr || l == layout::y_cb_cr || l == layout::bytes) add(w, h);
    if (l == layout::y_cbcr) add(w / 2 * 2, h / 2);
    for (int n = 0; n < 2 && l == layout::y_cb_cr; ++n) add(w / 2, h / 2);
  }

  // Plane n as a bitmap of type B (its own size: chroma planes are halved).
  template <class B>
  B view(int n = 0) const {
    B b{};
    b.data = reinterpret_cast<decltype(b.data)>(planes[std::size_t(n)].data());
    b.width = n == 0 ? g.width : g.width / 2;
    b.height = n == 0 ? g.height : g.height / 2;
    b.stride = planes[std::size_t(n)].shape().stride;
    return b;
  }
  bool aligned() const {
    return std::all_of(planes.begin(), planes.end(), [](plane const &p) { return p.aligned(); });
  }
  void randomize(std::mt19937 &rng) const {
    for (plane const &p : planes) p.randomize(rng);
  }

  // Writes pixel(x, y) (a sample) in this layout. A 4:2:2 element and a
  // half-size chroma sample take the chroma of their top-left pixel.
  template <class Pixel>
  void paint(Pixel const &pixel) const {
    for (int y = 0; y < g.height; ++y)
      for (int x = 0; x < g.width; ++x) {
        sample const s = pixel(x, y);
        std::uint8_t *p = planes[0].line(y);
        bool const corner = x % 2 == 0 && y % 2 == 0 && x / 2 < g.width / 2 && y / 2 < g.height / 2;
        switch (l) {
          case layout::bgra: p[4 * x] = s.b, p[4 * x + 1] = s.g, p[4 * x + 2] = s.r, p[4 * x + 3] = s.a; break;
          case layout::ycbcra: p[4 * x] = s.y, p[4 * x + 1] = s.cb, p[4 * x + 2] = s.cr, p[4 * x + 3] = s.a; break;
          case layout::ycbcr_422:
            p[x / 2 * 4 + 1 + x % 2 * 2] = s.y;
            if (x % 2 == 0) p[x / 2 * 4] = s.cb, p[x / 2 * 4 + 2] = s.cr;
            break;
          case layout::y_cbcr:
            p[x] = s.y;
            if (corner) planes[1].line(y / 2)[x / 2 * 2] = s.cb, planes[1].line(y / 2)[x / 2 * 2 + 1] = s.cr;
            break;
          case layout::y_cb_cr:
            p[x] = s.y;
            if (corner) planes[1].line(y / 2)[x / 2] = s.cb, planes[2].line(y / 2)[x / 2] = s.cr;
            break;
          case layout::bytes: p[x] = s.y; break;
        }
      }
  }
};

// Calls f with the bitmaps of a frame of one of the five pixel layouts, in
// the order the kernels and operators take them.
template <class F>
decltype(auto) visit(frame const &f, F &&fn) {
  namespace P = Tamarind::Rasters;
  switch (f.l) {
    case layout::bgra: return fn(f.view<P::bitmap<P::pixel_bgra_u8>>());
    case layout::ycbcra: return fn(f.view<P::bitmap<P::pixel_ycbcra_u8>>());
    case layout::ycbcr_422: return fn(f.view<P::bitmap_422<P::pixel_ycbcr_u8>>());
    case layout::y_cbcr: return fn(f.view<P::bitmap<P::pixel_y_u8>>(), f.view<P::bitmap<P::pixel_cbcr_u8>>(1));
    default: break;
  }
  return fn(f.view<P::bitmap<P::pixel_y_u8>>(), f.view<P::bitmap<P::pixel_cb_u8>>(1),
            f.view<P::bitmap<P::pixel_cr_u8>>(2));
}

inline ::testing::AssertionResult same_frame(frame const &want, frame const &got) {
  for (std::size_t n = 0; n < got.planes.size(); ++n)
    if (auto r = same_bytes(want.planes[n], got.planes[n]); !r) return r << " in plane " << n;
  return ::testing::AssertionSuccess();
}

// A pixel of luma y whose chroma lies near (cb, cr), B, G, R rounded from
// the usual inverse matrix and clamped; the kernels' own chroma of it is the
// models' business.
inline sample from_chroma(int y, int cb, int cr, std::uint8_t a = 255) {
  auto const c = [](double v) { return std::uint8_t(v < 0 ? 0 : v > 255 ? 255 : int(v + 0.5)); };
  return {c(y + 1.772 * (cb - 128)), c(y - 0.344 * (cb - 128) - 0.714 * (cr - 128)), c(y + 1.402 * (cr - 128)), a,
          std::uint8_t(y), std::uint8_t(cb), std::uint8_t(cr)};
}

// Widths 0 to 3 vectors of every tail, and two of video.
inline std::vector<int> widths() {
  std::vector<int> w;
  for (int i = 1; i <= 49; ++i) w.push_back(i);
  w.push_back(720), w.push_back(1920);
  return w;
}

// Every width by every height in six placements: aligned tight and padded by
// 16 (reversed), an odd pad, and each again at a base offset that moves
// with the size through 1 to 15.
inline std::vector<geometry> geometries(std::vector<int> const &heights, std::vector<int> const &ws = widths()) {
  std::vector<geometry> out;
  for (int w : ws)
    for (int h : heights) {
      int const k = 1 + (w * 7 + h) % 15;
      for (int off : {0, k}) {
        out.push_back({w, h, 0, off, false});
        out.push_back({w, h, 16, off, true});
        out.push_back({w, h, 5, off, false});
      }
    }
  return out;
}

// bgra_w17_h3_pad5_off3_unaligned, with _flip for a reversed frame (hm1 for
// a height of -1).
inline std::string name_of(layout l, geometry const &g) {
  return cat(name_of(l), "_w", g.width, "_h", g.height < 0 ? "m" : "", std::abs(g.height), "_pad", g.pad, "_off", g.offset,
             aligned(g) ? "_aligned" : "_unaligned", g.flip ? "_flip" : "");
}

}  // namespace harness

#endif  // SIGHT_TESTS_SUPPORT_HARNESS_H_
