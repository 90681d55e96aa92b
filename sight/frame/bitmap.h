// Bitmaps of the frame layer and the operations on them.
//
// A bitmap is a plain structure of five fields that the operators read and
// write directly. Line y starts at data + y * stride bytes; the stride may be
// negative (a vertically reversed view) or a multiple of a line (a field view).
// A bitmap either owns its buffer (it came from mem::alloc, `owned` is set) or
// is a view on memory of somebody else. An empty bitmap has every field zero.
#ifndef SIGHT_FRAME_BITMAP_H_
#define SIGHT_FRAME_BITMAP_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include <sight/frame/export.h>
#include <sight/frame/pixel.h>

namespace Tamarind::Rasters {

namespace mem {

// Memory of `size` bytes at `alignment` (a power of two), or null.
SIGHT_API void *alloc(std::uint64_t size, std::uint64_t alignment);

// Gives back what alloc returned; null is allowed.
SIGHT_API void free(void const *p);

}  // namespace mem

template <class T>
struct bitmap {
  T *data;
  std::int32_t width;
  std::int32_t height;
  std::int32_t stride;
  bool owned;
};

// 4:2:2 bitmap: one element of T holds two neighbouring pixels, and `width`
// counts pixels, so a line takes ((width + 1) / 2) elements.
template <class T>
struct bitmap_422 {
  T *data;
  std::int32_t width;
  std::int32_t height;
  std::int32_t stride;
  bool owned;
};

// Byte length of a line of `width` pixels; a negative length counts as 0.
template <class T>
constexpr std::int64_t line_bytes(bitmap<T> const &, std::int64_t width) {
  return width > 0 ? width * std::int64_t(sizeof(T)) : 0;
}
template <class T>
constexpr std::int64_t line_bytes(bitmap_422<T> const &, std::int64_t width) {
  return width > 0 ? (width + 1) / 2 * std::int64_t(sizeof(T)) : 0;
}
template <class B>
constexpr std::int64_t line_bytes(B const &b) {
  return line_bytes(b, b.width);
}

// Address of line y, by bytes.
template <class B>
inline auto line(B const &b, std::int64_t y) {
  using T = std::remove_pointer_t<decltype(b.data)>;
  return reinterpret_cast<T *>(reinterpret_cast<std::uint8_t *>(b.data) +
                               y * b.stride);
}

// Frees an owned buffer and leaves the bitmap empty. A view is only emptied.
template <class B>
inline void release(B &b) {
  if (b.data != nullptr) {
    if (b.owned) mem::free(b.data);
    b = B{};
  }
}

// Makes `b` a view on memory of somebody else. A stride of 0 means tightly
// packed: the line length of the pixel type (width bytes for one-byte pixels,
// ((width + 1) / 2) * 4 for 4:2:2).
template <class B, class T>
inline void attach(B &b, T *data, std::int32_t width, std::int32_t height,
                   std::int32_t stride = 0) {
  release(b);
  b.data = data;
  b.width = width;
  b.height = height;
  b.stride = stride != 0 ? stride : std::int32_t(line_bytes(b, width));
  b.owned = false;
}

// The only way a bitmap comes to own memory. An owned, 16-byte aligned buffer
// of the same size is kept as it is, contents included; anything else (a view
// in particular, whatever its size) is released and a new buffer is taken,
// its lines padded to a multiple of 16 bytes and its contents not cleared.
// False when the allocation failed; the bitmap is then empty.
template <class B>
inline bool allocate(B &b, std::int32_t width, std::int32_t height) {
  if (b.width == width && b.height == height && b.owned &&
      reinterpret_cast<std::uintptr_t>(b.data) % 16 == 0)
    return true;
  release(b);
  if (width == 0 || height == 0) return true;
  std::int64_t const stride = (line_bytes(b, width) + 15) / 16 * 16;
  void *p = mem::alloc(std::uint64_t(stride * height), 16);
  if (p == nullptr) {
    b = B{};
    return false;
  }
  b.data = static_cast<decltype(b.data)>(p);
  b.width = width;
  b.height = height;
  b.stride = std::int32_t(stride);
  b.owned = true;
  return true;
}

// Copies the pixels of `source` into `b`. Only an empty `b` is allocated to
// the source's size; a `b` that has a buffer keeps its own size, and the
// caller sees to it that the sizes agree. Equal strides of at least a line
// copy stride * height bytes in one go, else line by line.
template <class B>
inline bool copy(B &b, B const &source) {
  if (b.data == nullptr && !allocate(b, source.width, source.height))
    return false;
  std::int64_t const bytes = line_bytes(b);
  if (b.height <= 0 || b.data == nullptr || source.data == nullptr) return true;
  if (b.stride == source.stride && b.stride >= bytes) {
    std::memcpy(b.data, source.data, std::size_t(b.stride) * std::size_t(b.height));
  } else if (bytes > 0) {
    for (std::int32_t y = 0; y < b.height; ++y)
      std::memcpy(line(b, y), line(source, y), std::size_t(bytes));
  }
  return true;
}

// True when data and the absolute stride are both multiples of 16: the
// condition of the kernels' aligned members.
template <class B>
inline bool is_aligned(B const &b) {
  std::int64_t const stride = b.stride;
  return reinterpret_cast<std::uintptr_t>(b.data) % 16 == 0 &&
         (stride < 0 ? -stride : stride) % 16 == 0;
}

}  // namespace Tamarind::Rasters

#endif  // SIGHT_FRAME_BITMAP_H_
