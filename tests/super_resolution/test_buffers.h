// Exactly sized test memory for the line kernels and the times-two
// operations: a picture of `lines` lines of `width` bytes at a given stride
// (negative: bottom-up), placed at a chosen offset from a 16-byte boundary,
// followed by `room` bytes behind the line that lies last in memory and by
// nothing else, so that AddressSanitizer reports any access past it.
#ifndef TESTS_SUPER_RESOLUTION_TEST_BUFFERS_H_
#define TESTS_SUPER_RESOLUTION_TEST_BUFFERS_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>

namespace sr_test {

constexpr std::uint8_t sentinel = 0xA5;

struct layout {
  int width = 0;   // bytes per line
  int lines = 0;
  int stride = 0;  // signed
  int offset = 0;  // of the first byte from a 16-byte boundary
  int room = 0;    // bytes behind the last line in memory
};

inline int magnitude(int v) { return v < 0 ? -v : v; }

inline std::size_t bytes_of(layout const &l) {
  if (l.lines < 1) return std::size_t(l.room);
  return std::size_t(l.lines - 1) * std::size_t(magnitude(l.stride)) + std::size_t(l.width + l.room);
}

class buffer {
 public:
  explicit buffer(layout const &l) : l_(l), size_(bytes_of(l)) {
    void *p = nullptr;
    // posix_memalign: any size, so the buffer ends exactly where it should.
    if (posix_memalign(&p, 16, std::size_t(l.offset) + size_) != 0) std::abort();
    base_ = static_cast<std::uint8_t *>(p);
    begin_ = base_ + l.offset;
    std::memset(base_, sentinel, std::size_t(l.offset));
    std::memset(begin_, sentinel, size_);
  }
  buffer(buffer const &) = delete;
  buffer &operator=(buffer const &) = delete;
  ~buffer() { std::free(base_); }

  std::uint8_t *begin() const { return begin_; }
  std::uint8_t *end() const { return begin_ + size_; }
  std::size_t size() const { return size_; }
  layout const &shape() const { return l_; }

  // Address of line y as the view sees it.
  std::uint8_t *line(int y) const {
    std::ptrdiff_t const first = l_.stride < 0 ? std::ptrdiff_t(l_.lines - 1) * -l_.stride : 0;
    return begin_ + first + std::ptrdiff_t(y) * l_.stride;
  }
  std::uint8_t *data() const { return l_.lines > 0 ? line(0) : begin_; }

  void randomize(std::mt19937 &rng) const {
    std::uniform_int_distribution<int> byte(0, 255);
    for (int y = 0; y < l_.lines; ++y)
      for (int x = 0; x < l_.width; ++x) line(y)[x] = std::uint8_t(byte(rng));
  }

  // Line and column of a byte offset, for failure messages.
  std::string where(std::size_t at) const {
    std::ostringstream s;
    std::ptrdiff_t const rel = (begin_ + at) - line(0);
    if (l_.stride == 0) {
      s << "byte " << at;
    } else {
      std::ptrdiff_t y = rel / l_.stride, x = rel - y * l_.stride;
      if (x < 0) {
        y += l_.stride > 0 ? -1 : 1;
        x = rel - y * l_.stride;
      }
      s << "y " << y << " x " << x;
    }
    return s.str();
  }

  // Whether the byte at offset `at` is a picture byte (0) or one of the
  // first three bytes behind a line's end (1 to 3), or neither (-1).
  int kind(std::size_t at) const {
    int best = -1;
    for (int y = 0; y < l_.lines; ++y) {
      std::ptrdiff_t const d = (begin_ + at) - line(y);
      if (d >= 0 && d < l_.width) return 0;
      if (d >= l_.width && d < l_.width + 3) best = 1;
    }
    return best;
  }

 private:
  layout l_;
  std::size_t size_;
  std::uint8_t *base_ = nullptr;
  std::uint8_t *begin_ = nullptr;
};

// Gives `to` the bytes of `from` (same layout).
inline void copy_bytes(buffer const &from, buffer const &to) {
  if (from.size() > 0) std::memcpy(to.begin(), from.begin(), from.size());
}

}  // namespace sr_test

#endif  // TESTS_SUPER_RESOLUTION_TEST_BUFFERS_H_
