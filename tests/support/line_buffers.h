// The harness's exactly sized planes under the names the times-two tests
// use: a buffer of `lines` lines of `width` bytes at a signed stride, `offset`
// bytes past a 16-byte boundary, `room` bytes behind the last line in memory.
#ifndef SIGHT_TESTS_SUPPORT_LINE_BUFFERS_H_
#define SIGHT_TESTS_SUPPORT_LINE_BUFFERS_H_

#include "super_resolution/line_kernels_model.h"
#include "support/harness.h"

namespace sr_test {

using harness::guard;
using harness::same_bytes;
using buffer = harness::plane;
using layout = harness::shape;

inline line_model::view model_view(buffer const &b, int height) {
  return line_model::view{b.data(), b.shape().width, height, b.shape().stride};
}

}  // namespace sr_test

#endif  // SIGHT_TESTS_SUPPORT_LINE_BUFFERS_H_
