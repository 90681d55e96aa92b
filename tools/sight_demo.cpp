// A small host of the library: builds a frame in each of the five layouts and
// as an interlaced message, draws on it, converts it and writes PNG files.
//
//   sight_demo [output-directory]     (default: sight-demo)
#include <sight/sight.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;

namespace {

constexpr int kWidth = 320, kHeight = 180;
std::filesystem::path g_out;

// A colour ramp in video range: luma across, chroma down and across.
R::pixel_ycbcr_u8 backdrop(int x, int y) {
  return R::pixel_ycbcr_u8{std::uint8_t(64 + y * 128 / kHeight),
                           std::uint8_t(16 + x * 219 / kWidth),
                           std::uint8_t(64 + x * 128 / kWidth),
                           std::uint8_t(16 + (x + 1) * 219 / kWidth)};
}

// Lines whose end points lie on and far past the edges.
template <class Draw>
void draw_figure(Draw draw, int width, int height) {
  int const corners[4][2] = {{0, 0}, {width - 1, 0}, {width - 1, height - 1}, {0, height - 1}};
  for (int i = 0; i < 4; ++i) draw(corners[i], corners[(i + 1) % 4]);
  int const far0[2] = {-1000, -400}, far1[2] = {width + 1000, height + 400};
  draw(far0, far1);
  int const mid0[2] = {width / 2, -50}, mid1[2] = {width / 2, height + 50};
  draw(mid0, mid1);
}

bool write(char const *name, R::bitmap<R::pixel_bgr_u8> const &b) {
  std::filesystem::path const path = g_out / name;
  bool const ok = R::io::write(path.wstring().c_str(), b);
  std::printf("  %-28s %s\n", name, ok ? "written" : "FAILED");
  return ok;
}

// Writes a 4:2:2 bitmap as a PNG through the line conversion.
bool write_422(char const *name, R::bitmap_422<R::pixel_ycbcr_u8> const &frame) {
  R::bitmap<R::pixel_bgr_u8> rgb{};
  R::allocate(rgb, frame.width, frame.height);
  for (int y = 0; y < frame.height; ++y)
    R::convert_line(R::line(frame, y), R::line(rgb, y), frame.width);
  bool const ok = write(name, rgb);
  R::release(rgb);
  return ok;
}

// Repacks any Y/C layout into 4:2:2 through `sample(x, y)` and writes it.
template <class Sample>
bool write_repacked(char const *name, int width, int height, Sample sample) {
  R::bitmap_422<R::pixel_ycbcr_u8> packed{};
  R::allocate(packed, width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; x += 2) R::line(packed, y)[x / 2] = sample(x, y);
  bool const ok = write_422(name, packed);
  R::release(packed);
  return ok;
}

}  // namespace

int main(int argc, char **argv) {
  g_out = argc > 1 ? argv[1] : "sight-demo";
  std::error_code ec;
  std::filesystem::create_directories(g_out, ec);
  std::printf("Korvane.Sight demo: %dx%d frames, pictures in %s/\n", kWidth, kHeight,
              g_out.string().c_str());
  bool ok = true;
  R::pixel_ycbcr_u8 const white{128, 235, 128, 235}, red{90, 81, 240, 81};

  std::printf("4:2:2: ramp, a border, a diagonal from far outside, a vertical line\n");
  R::bitmap_422<R::pixel_ycbcr_u8> f422{};
  R::allocate(f422, kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; x += 2) R::line(f422, y)[x / 2] = backdrop(x, y);
  draw_figure([&](int const *a, int const *b) { R::rasterize::line(f422, a, b, white); },
              kWidth, kHeight);
  ok &= write_422("layout_422.png", f422);

  std::printf("BGRA: the 4:2:2 frame converted, then drawn on in red\n");
  R::bitmap<R::pixel_bgra_u8> bgra{};
  R::allocate(bgra, kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y) R::convert_line(R::line(f422, y), R::line(bgra, y), kWidth);
  draw_figure([&](int const *a, int const *b) {
    R::rasterize::line(bgra, a, b, R::pixel_bgra_u8{0, 0, 255, 255});
  }, kWidth, kHeight);
  R::bitmap<R::pixel_bgr_u8> bgr{};
  R::allocate(bgr, kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      R::pixel_bgra_u8 const p = R::line(bgra, y)[x];
      R::line(bgr, y)[x] = R::pixel_bgr_u8{p.b, p.g, p.r};
    }
  ok &= write("layout_bgr.png", bgr);
  {
    std::filesystem::path const path = g_out / "layout_bgra.png";
    bool const w = R::io::write(path.wstring().c_str(), bgra);
    std::printf("  %-28s %s\n", "layout_bgra.png", w ? "written" : "FAILED");
    ok &= w;
  }

  std::printf("YCbCrA: ramp with red lines\n");
  R::bitmap<R::pixel_ycbcra_u8> ycbcra{};
  R::allocate(ycbcra, kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      R::pixel_ycbcr_u8 const p = backdrop(x, y);
      R::line(ycbcra, y)[x] = R::pixel_ycbcra_u8{x % 2 ? p.y1 : p.y0, p.cb, p.cr, 255};
    }
  draw_figure([&](int const *a, int const *b) {
    R::rasterize::line(ycbcra, a, b, R::pixel_ycbcra_u8{red.y0, red.cb, red.cr, 255});
  }, kWidth, kHeight);
  ok &= write_repacked("layout_ycbcra.png", kWidth, kHeight, [&](int x, int y) {
    R::pixel_ycbcra_u8 const a = R::line(ycbcra, y)[x], b = R::line(ycbcra, y)[x + 1];
    return R::pixel_ycbcr_u8{a.cb, a.y, a.cr, b.y};
  });

  std::printf("Y + CbCr and Y + Cb + Cr planes: ramp with red lines\n");
  R::bitmap<R::pixel_y_u8> luma{};
  R::bitmap<R::pixel_cbcr_u8> cbcr{};
  R::bitmap<R::pixel_cb_u8> cb{};
  R::bitmap<R::pixel_cr_u8> cr{};
  R::allocate(luma, kWidth, kHeight);
  R::allocate(cbcr, kWidth / 2, kHeight / 2);
  R::allocate(cb, kWidth / 2, kHeight / 2);
  R::allocate(cr, kWidth / 2, kHeight / 2);
  auto fill_planes = [&] {
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x) {
        R::pixel_ycbcr_u8 const p = backdrop(x, y);
        R::line(luma, y)[x].y = x % 2 ? p.y1 : p.y0;
        if (x % 2 == 0 && y % 2 == 0) {
          R::line(cbcr, y / 2)[x / 2] = R::pixel_cbcr_u8{p.cb, p.cr};
          R::line(cb, y / 2)[x / 2].cb = p.cb;
          R::line(cr, y / 2)[x / 2].cr = p.cr;
        }
      }
  };
  auto planes_sample = [&](auto chroma) {
    return [&, chroma](int x, int y) {
      R::pixel_cbcr_u8 const c = chroma(x / 2, y / 2);
      return R::pixel_ycbcr_u8{c.cb, R::line(luma, y)[x].y, c.cr, R::line(luma, y)[x + 1].y};
    };
  };
  fill_planes();
  draw_figure([&](int const *a, int const *b) { R::rasterize::line(luma, cbcr, a, b, red); },
              kWidth, kHeight);
  ok &= write_repacked("layout_y_cbcr.png", kWidth, kHeight,
                       planes_sample([&](int x, int y) { return R::line(cbcr, y)[x]; }));
  fill_planes();
  draw_figure([&](int const *a, int const *b) { R::rasterize::line(luma, cb, cr, a, b, red); },
              kWidth, kHeight);
  ok &= write_repacked("layout_planar.png", kWidth, kHeight, planes_sample([&](int x, int y) {
    return R::pixel_cbcr_u8{R::line(cb, y)[x].cb, R::line(cr, y)[x].cr};
  }));

  std::printf("Message: the 4:2:2 frame as an interlaced message, one figure per field\n");
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; x += 2) R::line(f422, y)[x / 2] = backdrop(x, y);
  video::message m;
  m.xres() = kWidth;
  m.yres() = kHeight;
  m.aspect_ratio() = 16.0f / 9.0f;
  m.field_type() = video::field_interlaced;
  m.data_format() = video::format_422;
  m.ycbcr() = f422;
  m.ycbcr().owned = false;  // the message only views the frame
  for (bool lower : {false, true}) {
    video::field_views v = video::field_views::make(m, lower);
    std::printf("  field %d: %dx%d from line %d, stride %d\n", lower ? 1 : 0, v.ycbcr.width,
                v.ycbcr.height, v.first, v.ycbcr.stride);
    int const a[2] = {0, lower ? v.height - 1 : 0}, b[2] = {kWidth - 1, lower ? 0 : v.height - 1};
    R::rasterize::line(v.ycbcr, a, b, lower ? red : white);
    ok &= write_422(lower ? "message_field1.png" : "message_field0.png", v.ycbcr);
  }
  ok &= write_422("message_frame.png", f422);

  for (auto *b : {&luma}) R::release(*b);
  R::release(cbcr);
  R::release(cb);
  R::release(cr);
  R::release(ycbcra);
  R::release(bgr);
  R::release(bgra);
  R::release(f422);
  std::printf(ok ? "done: every picture written\n" : "done: some pictures FAILED\n");
  return ok ? 0 : 1;
}
