// Exactly sized test memory for the line kernels and the times-two
// operations: `lines` lines of `width` bytes at a given stride (negative:
// bottom-up), starting `offset` bytes after a 16-byte boundary, followed by
// `room` bytes behind the line that lies last in memory and by nothing else,
// so that AddressSanitizer reports any access past it. Untouched bytes hold a
// sentinel, and whole buffers are compared byte by byte.
#ifndef TESTS_SUPER_RESOLUTION_TEST_BUFFERS_H_
#define TESTS_SUPER_RESOLUTION_TEST_BUFFERS_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include "super_resolution/line_kernels_model.h"

namespace sr_test {

constexpr std::uint8_t sentinel = 0xA5;

struct layout {
  int width = 0;   // bytes per line
  int lines = 0;
  int stride = 0;  // signed
  int offset = 0;  // of the first byte from a 16-byte boundary
  int room = 0;    // bytes behind the last line in memory
};

class buffer {
 public:
  explicit buffer(layout const &l) : l_(l) {
    size_ = l.lines < 1 ? std::size_t(l.room)
                        : std::size_t(l.lines - 1) * std::size_t(std::abs(l.stride)) + std::size_t(l.width + l.room);
    // posix_memalign takes any size, so the buffer ends exactly where it should.
    void *p = nullptr;
    if (posix_memalign(&p, 16, std::size_t(l.offset) + size_) != 0) std::abort();
    base_ = static_cast<std::uint8_t *>(p);
    begin_ = base_ + l.offset;
    std::memset(base_, sentinel, std::size_t(l.offset) + size_);
  }
  buffer(buffer const &) = delete;
  buffer &operator=(buffer const &) = delete;
  ~buffer() { std::free(base_); }

  std::uint8_t *begin() const { return begin_; }
  std::uint8_t *end() const { return begin_ + size_; }
  std::size_t size() const { return size_; }
  layout const &shape() const { return l_; }

  // Address of line y as a top-down view sees it (line 0 at `data`).
  std::uint8_t *line(int y) const {
    std::ptrdiff_t const first = l_.stride < 0 && l_.lines > 0 ? std::ptrdiff_t(l_.lines - 1) * -l_.stride : 0;
    return begin_ + first + std::ptrdiff_t(y) * l_.stride;
  }
  std::uint8_t *data() const { return line(0); }

  void randomize(std::mt19937 &rng) const {
    std::uniform_int_distribution<int> byte(0, 255);
    for (int y = 0; y < l_.lines; ++y)
      for (int x = 0; x < l_.width; ++x) line(y)[x] = std::uint8_t(byte(rng));
  }
  void copy_from(buffer const &other) const { std::memcpy(begin_, other.begin_, size_); }

 private:
  layout l_;
  std::size_t size_ = 0;
  std::uint8_t *base_ = nullptr;
  std::uint8_t *begin_ = nullptr;
};

inline line_model::view model_view(buffer const &b, int height) {
  return line_model::view{b.data(), b.shape().width, height, b.shape().stride};
}

// Every byte of two buffers of one layout alike; a failure names the first
// differing byte by line and column of the view (x may lie behind the line)
// and gives the expected (model) and the actual value.
inline ::testing::AssertionResult same_bytes(buffer const &want, buffer const &got) {
  for (std::size_t i = 0; i < got.size(); ++i) {
    if (want.begin()[i] == got.begin()[i]) continue;
    std::ptrdiff_t const rel = (got.begin() + i) - got.data();
    int const stride = got.shape().stride;
    std::ptrdiff_t y = stride == 0 ? 0 : rel / stride, x = rel - y * stride;
    if (x < 0) x = rel - (y += stride > 0 ? -1 : 1) * stride;
    return ::testing::AssertionFailure() << "at y " << y << " x " << x << ": model " << int(want.begin()[i])
                                         << ", kernel " << int(got.begin()[i]);
  }
  return ::testing::AssertionSuccess();
}

}  // namespace sr_test

#endif  // TESTS_SUPER_RESOLUTION_TEST_BUFFERS_H_
