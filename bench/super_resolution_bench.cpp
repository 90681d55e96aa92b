// Times-two operator on 1920-pixel 4:2:2 video, frame in cache: rescale of a
// 540-line field into a 1080-line frame, and de-combing a 1080-line frame in
// place. Each beside the scalar model, a memcpy of the bytes it writes, and
// plain line averaging by OpenCV (cv::addWeighted of neighbouring lines) on
// the same bytes. Bytes processed are the bytes written. The memcpy comes
// twice: one block between two buffers of the written size (_memcpy), and
// line by line with the operation's own memory (_memcpy_lines: the same
// source and destination lines, so the same cache footprint).
//
// BM_rescale_quality prints the picture-quality table (PSNR against the
// original of field 0 rescaled back to a frame) as counters, one row per
// picture: the filter, line doubling, and the mean of neighbouring lines.
#include <benchmark/benchmark.h>

#include <sight/super_resolution/y_x2.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "super_resolution/line_kernels_model.h"
#include "support/harness.h"

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>

#include "super_resolution/quality.h"
#endif

namespace {

namespace R = Tamarind::Rasters;
using Korvane::Sight::super_resolution::y_x2;

constexpr int frame_width = 1920;
constexpr int line_bytes = frame_width / 2 * 4;
constexpr int frame_lines = 1080;

// Lines of 4:2:2 at a stride of one line (a plane of the tests), 16-byte
// aligned or one byte off.
class lines_memory : public harness::plane {
 public:
  lines_memory(int lines, bool aligned) : harness::plane({line_bytes, lines, line_bytes, aligned ? 0 : 1, 0}) {
    for (std::size_t i = 0; i < size(); ++i) data()[i] = std::uint8_t(i * 2654435761u >> 24);
  }
  std::size_t bytes() const { return size(); }
  R::bitmap_422<R::pixel_ycbcr_u8> bitmap() const {
    return {reinterpret_cast<R::pixel_ycbcr_u8 *>(data()), frame_width, shape().lines, line_bytes, false};
  }
  line_model::view view(int stride_lines, int first, int lines) const {
    return {data() + first * line_bytes, line_bytes, lines, stride_lines * line_bytes};
  }
};

void BM_rescale_422(benchmark::State &state) {
  lines_memory const field(frame_lines / 2, state.range(0) != 0), frame(frame_lines, state.range(0) != 0);
  auto const source = field.bitmap();
  auto destination = frame.bitmap();
  for (auto _ : state) {
    y_x2::rescale(source, destination, true);
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes()));
}
BENCHMARK(BM_rescale_422)->ArgName("aligned")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_rescale_422_model(benchmark::State &state) {
  lines_memory const field(frame_lines / 2, true), frame(frame_lines, true);
  for (auto _ : state) {
    line_model::double_lines(field.view(1, 0, frame_lines / 2), frame.view(1, 0, frame_lines),
                             frame.data() + frame.bytes());
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes()));
}
BENCHMARK(BM_rescale_422_model)->Unit(benchmark::kMillisecond);

void BM_rescale_422_memcpy(benchmark::State &state) {
  lines_memory const from(frame_lines, true), to(frame_lines, true);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), to.bytes());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(to.bytes()));
}
BENCHMARK(BM_rescale_422_memcpy)->Unit(benchmark::kMillisecond);

// The bytes rescale writes, with its memory: each field line copied to the
// two frame lines it stands for (reads the 540-line field, writes the frame).
void BM_rescale_422_memcpy_lines(benchmark::State &state) {
  lines_memory const field(frame_lines / 2, true), frame(frame_lines, true);
  for (auto _ : state) {
    for (int y = 0; y < frame_lines / 2; ++y) {
      std::memcpy(frame.data() + std::size_t(2 * y) * line_bytes, field.data() + std::size_t(y) * line_bytes,
                  line_bytes);
      std::memcpy(frame.data() + std::size_t(2 * y + 1) * line_bytes, field.data() + std::size_t(y) * line_bytes,
                  line_bytes);
    }
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes()));
}
BENCHMARK(BM_rescale_422_memcpy_lines)->Unit(benchmark::kMillisecond);

void BM_decomb_422(benchmark::State &state) {
  lines_memory const frame(frame_lines, state.range(0) != 0);
  auto bitmap = frame.bitmap();
  for (auto _ : state) {
    y_x2::decomb(bitmap);
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes() / 2));
}
BENCHMARK(BM_decomb_422)->ArgName("aligned")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_decomb_422_model(benchmark::State &state) {
  lines_memory const frame(frame_lines, true);
  for (auto _ : state) {
    line_model::shift_half_line(frame.view(2, 0, frame_lines / 2), frame.view(2, 1, frame_lines / 2),
                                frame.data() + frame.bytes());
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes() / 2));
}
BENCHMARK(BM_decomb_422_model)->Unit(benchmark::kMillisecond);

void BM_decomb_422_memcpy(benchmark::State &state) {
  lines_memory const from(frame_lines / 2, true), to(frame_lines / 2, true);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), to.bytes());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(to.bytes()));
}
BENCHMARK(BM_decomb_422_memcpy)->Unit(benchmark::kMillisecond);

// The bytes decomb writes, in its own frame: every even line copied onto the
// odd line below it (540 lines of 3840 bytes, reads even, writes odd).
void BM_decomb_422_memcpy_lines(benchmark::State &state) {
  lines_memory const frame(frame_lines, true);
  for (auto _ : state) {
    for (int y = 0; y + 1 < frame_lines; y += 2)
      std::memcpy(frame.data() + std::size_t(y + 1) * line_bytes, frame.data() + std::size_t(y) * line_bytes,
                  line_bytes);
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes() / 2));
}
BENCHMARK(BM_decomb_422_memcpy_lines)->Unit(benchmark::kMillisecond);

#ifdef SIGHT_HAVE_OPENCV

// h lines of bytes every `step_lines` lines from line `first`, as an OpenCV header.
cv::Mat rows(lines_memory const &m, int first, int lines, int step_lines) {
  return cv::Mat(lines, line_bytes, CV_8UC1, m.data() + first * line_bytes, std::size_t(step_lines) * line_bytes);
}

// Field to frame by plain averaging: even lines copied, odd lines the mean
// of the field lines around them, the last one repeated.
void BM_rescale_422_opencv(benchmark::State &state) {
  int const h = frame_lines / 2;
  lines_memory const field(h, true), frame(frame_lines, true);
  for (auto _ : state) {
    rows(field, 0, h, 1).copyTo(rows(frame, 0, h, 2));
    cv::Mat odd = rows(frame, 1, h - 1, 2);
    cv::addWeighted(rows(field, 0, h - 1, 1), 0.5, rows(field, 1, h - 1, 1), 0.5, 0.0, odd);
    rows(field, h - 1, 1, 1).copyTo(rows(frame, frame_lines - 1, 1, 1));
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes()));
}
BENCHMARK(BM_rescale_422_opencv)->Unit(benchmark::kMillisecond);

// De-combing by plain averaging: odd lines the mean of the even lines around
// them, the last odd line a copy of the even line above.
void BM_decomb_422_opencv(benchmark::State &state) {
  int const h = frame_lines / 2;
  lines_memory const frame(frame_lines, true);
  for (auto _ : state) {
    cv::Mat odd = rows(frame, 1, h - 1, 2);
    cv::addWeighted(rows(frame, 0, h - 1, 2), 0.5, rows(frame, 2, h - 1, 2), 0.5, 0.0, odd);
    rows(frame, frame_lines - 2, 1, 1).copyTo(rows(frame, frame_lines - 1, 1, 1));
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame.bytes() / 2));
}
BENCHMARK(BM_decomb_422_opencv)->Unit(benchmark::kMillisecond);

// One row of the quality table per picture: three photographs, then the
// synthetic picture of sharp horizontal edges.
void BM_rescale_quality(benchmark::State &state) {
  auto const photos = sr_quality::photographs();
  std::size_t const i = std::size_t(state.range(0));
  cv::Mat const picture =
      i < photos.size() ? sr_quality::load_grey(photos[i]) : sr_quality::synthetic_bands(1920, 1080, 7);
  if (picture.empty()) {
    state.SkipWithError("picture not found");
    return;
  }
  sr_quality::psnr_row row;
  for (auto _ : state) row = sr_quality::measure(i < photos.size() ? photos[i] : "synthetic bands", picture);
  state.SetLabel(row.name);
  state.counters["filter_dB"] = row.filter;
  state.counters["doubling_dB"] = row.doubling;
  state.counters["averaging_dB"] = row.averaging;
}
BENCHMARK(BM_rescale_quality)->DenseRange(0, 3)->Iterations(1)->Unit(benchmark::kMillisecond);

#endif  // SIGHT_HAVE_OPENCV

}  // namespace
