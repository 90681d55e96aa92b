#include <sight/frame/io.h>

#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <cstdio>
#include <string>

#include <unistd.h>  // getpid

namespace Tamarind::Rasters::io {
namespace {

// wchar_t holds UTF-32 code points on this platform; invalid ones become
// U+FFFD so that the conversion itself cannot fail.
std::string to_utf8(wchar_t const *path) {
  std::string out;
  for (; *path != 0; ++path) {
    std::uint32_t c = std::uint32_t(*path);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
      out += char(c);
    } else if (c < 0x800) {
      out += char(0xC0 | (c >> 6));
      out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += char(0xE0 | (c >> 12));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    } else {
      out += char(0xF0 | (c >> 18));
      out += char(0x80 | ((c >> 12) & 0x3F));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    }
  }
  return out;
}

bool has_png_extension(std::string const &name) {
  if (name.size() < 4) return false;
  std::string ext = name.substr(name.size() - 4);
  for (char &c : ext)
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
  return ext == ".png";
}

// libpng reports errors by calling this, which must not return; warnings are
// dropped so that nothing is printed.
[[noreturn]] void on_error(png_structp png, png_const_charp) {
  std::longjmp(png_jmpbuf(png), 1);
}
void on_warning(png_structp, png_const_charp) {}

// Kept free of objects with destructors between setjmp and longjmp.
bool write_png(std::FILE *file, std::uint8_t const *data, int width,
               int height, int stride, int channels) {
  png_structp png =
      png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, on_error, on_warning);
  if (png == nullptr) return false;
  png_infop info = png_create_info_struct(png);
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_init_io(png, file);
  png_set_compression_level(png, Z_BEST_SPEED);
  png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8,
               channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_bgr(png);  // the bitmaps hold B, G, R(, A)
  for (int y = 0; y < height; ++y)
    png_write_row(png, data + std::ptrdiff_t(y) * stride);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

template <class B>
bool write_bitmap(wchar_t const *path, B const &b, int channels) {
  if (path == nullptr || b.data == nullptr || b.width <= 0 || b.height <= 0)
    return false;
  std::string const name = to_utf8(path);
  if (!has_png_extension(name)) return false;
  // The picture goes to a file of this process beside the target and is
  // renamed over it when whole, so that a reader (a host watching a debug
  // picture that is rewritten every frame) never finds it half written.
  std::string const part = name + "." + std::to_string(getpid()) + ".part";
  std::FILE *file = std::fopen(part.c_str(), "wb");
  if (file == nullptr) return false;
  bool ok = write_png(file, reinterpret_cast<std::uint8_t const *>(b.data),
                      b.width, b.height, b.stride, channels);
  ok = std::fclose(file) == 0 && ok;
  ok = ok && std::rename(part.c_str(), name.c_str()) == 0;
  if (!ok) std::remove(part.c_str());
  return ok;
}

}  // namespace

template <>
bool write<bitmap<pixel_bgra_u8>>(wchar_t const *path,
                                  bitmap<pixel_bgra_u8> const &b) {
  return write_bitmap(path, b, 4);
}

template <>
bool write<bitmap<pixel_bgr_u8>>(wchar_t const *path,
                                 bitmap<pixel_bgr_u8> const &b) {
  return write_bitmap(path, b, 3);
}

}  // namespace Tamarind::Rasters::io
