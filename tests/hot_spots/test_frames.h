// Frames for the hot-spot tests: planes in heap buffers sized exactly to
// the bytes a bitmap spans, so AddressSanitizer reports any read past them,
// filled with samples scattered around the key so that counts are neither
// all nor nothing.
#ifndef SIGHT_TESTS_HOT_SPOTS_TEST_FRAMES_H_
#define SIGHT_TESTS_HOT_SPOTS_TEST_FRAMES_H_

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace hot_spots_test {

// Bytes a plane spans: all lines, the padding between them, and nothing
// after the last line's pixels.
inline std::size_t span_bytes(int height, int stride_abs, int line_bytes) {
  return height > 0 ? std::size_t(height - 1) * std::size_t(stride_abs) + std::size_t(line_bytes) : 0;
}

// One plane in its own buffer: `guard` bytes of noise before and after the
// span (0 for a tight buffer), the span `offset` bytes into the rest.
// A flipped plane starts at its last line in memory with a negative stride.
class plane_buffer {
 public:
  plane_buffer(std::vector<std::uint8_t> const &span, int stride_abs, int height, int offset,
               bool flip, int guard, std::mt19937 &rng)
      : size_(std::size_t(offset + 2 * guard) + span.size()),
        memory_(new std::uint8_t[size_ == 0 ? 1 : size_]) {
    std::uniform_int_distribution<int> byte(0, 255);
    for (std::size_t i = 0; i < size_; ++i) memory_[i] = std::uint8_t(byte(rng));
    std::uint8_t *const start = memory_.get() + offset + guard;
    if (!span.empty()) std::memcpy(start, span.data(), span.size());
    stride_ = flip ? -stride_abs : stride_abs;
    data_ = flip && height > 0 ? start + std::size_t(height - 1) * std::size_t(stride_abs) : start;
    snapshot_.assign(memory_.get(), memory_.get() + size_);
  }

  std::uint8_t *data() const { return data_; }
  int stride() const { return stride_; }
  // True when no byte of the buffer changed since it was made.
  bool unchanged() const { return std::memcmp(memory_.get(), snapshot_.data(), size_) == 0; }

 private:
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> memory_;
  std::uint8_t *data_ = nullptr;
  int stride_ = 0;
  std::vector<std::uint8_t> snapshot_;
};

inline std::uint8_t clamp_byte(int v) { return std::uint8_t(std::clamp(v, 0, 255)); }

// Fills a span of `height` lines: random bytes, then every whole element of
// each line and its padding, with probability 1/2, replaced by `near(p)`.
template <class Near>
std::vector<std::uint8_t> make_span(int height, int stride_abs, int line_bytes, int element,
                                    std::mt19937 &rng, Near const &near) {
  std::vector<std::uint8_t> span(span_bytes(height, stride_abs, line_bytes));
  std::uniform_int_distribution<int> byte(0, 255);
  for (auto &b : span) b = std::uint8_t(byte(rng));
  std::bernoulli_distribution coin(0.5);
  for (int y = 0; y < height; ++y) {
    std::size_t const begin = std::size_t(y) * std::size_t(stride_abs);
    std::size_t const end = std::min(span.size(), begin + std::size_t(std::max(stride_abs, line_bytes)));
    for (std::size_t p = begin; p + std::size_t(element) <= end; p += std::size_t(element))
      if (coin(rng)) near(span.data() + p);
  }
  return span;
}

}  // namespace hot_spots_test

#endif  // SIGHT_TESTS_HOT_SPOTS_TEST_FRAMES_H_
