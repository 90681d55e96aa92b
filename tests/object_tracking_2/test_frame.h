// A 4:2:2 frame in a buffer of exactly its size: `offset` bytes before the
// first line, `stride` bytes a line, and the last line ending the buffer, so
// that AddressSanitizer catches any read past the frame.
#ifndef SIGHT_TESTS_OBJECT_TRACKING_2_TEST_FRAME_H_
#define SIGHT_TESTS_OBJECT_TRACKING_2_TEST_FRAME_H_

#include <cstdint>
#include <new>
#include <vector>

#include <sight/operator/layouts.h>

#include "object_tracking_2/chamfer_model.h"

namespace chamfer_test {

struct test_frame {
  int width, height, stride, offset;
  std::size_t size;
  std::uint8_t *memory;  // 16-byte aligned

  // The line rounded up to 16 bytes when `round16`, then `pad` bytes more.
  test_frame(int w, int h, int pad = 0, int offset_ = 0, bool round16 = false)
      : width(w), height(h), stride((round16 ? ((w + 1) / 2 * 4 + 15) / 16 * 16 : (w + 1) / 2 * 4) + pad),
        offset(offset_), size(std::size_t(offset + stride * (h - 1) + (w + 1) / 2 * 4)),
        memory(new (std::align_val_t(16)) std::uint8_t[size]) {}
  test_frame(test_frame const &) = delete;
  ~test_frame() { operator delete[](memory, std::align_val_t(16)); }

  std::uint8_t *pair(int x, int y) { return &memory[offset + y * stride + x / 2 * 4]; }
  // Sets the chroma of the pair holding pixel x of line y.
  void set(int x, int y, int cb, int cr) { pair(x, y)[0] = std::uint8_t(cb), pair(x, y)[2] = std::uint8_t(cr); }
  Korvane::Sight::ycbcr_bitmap view() {
    return {reinterpret_cast<Tamarind::Rasters::pixel_ycbcr_u8 *>(memory + offset), width, height, stride, false};
  }
  chamfer_model::frame model() const { return {memory + offset, stride, width, height}; }
  std::vector<std::uint8_t> contents() const { return {memory, memory + size}; }
};

}  // namespace chamfer_test

#endif  // SIGHT_TESTS_OBJECT_TRACKING_2_TEST_FRAME_H_
