// Motion estimation at 1920x1080 on a smooth texture and a copy of it moved
// by (2, 1) pixels.
//
// BM_motion_estimation_y_loop runs the loop in a child process for a fixed
// time and counts the lines it prints: iterations per second as the loop
// really runs (and the child's processor time a line, which a loaded machine
// does not inflate as it does the wall time), with the PNG written in every iteration (png:1) or with the
// picture writer swapped for one that does nothing (png:0). The rest time one
// iteration in this process: the vector pixel pass (aligned member and
// unaligned), one iteration of the scalar model, and OpenCV doing the same
// Gauss-Newton step: one iteration of findTransformECC with MOTION_EUCLIDEAN,
// and the step assembled from Sobel, a nearest-neighbour warpAffine and sums
// of products.
#include <benchmark/benchmark.h>

#include <sight/frame/io.h>
#include <sight/motion/motion_kernels.h>

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "motion/estimation_model.h"

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#endif

namespace {

namespace R = Tamarind::Rasters;
namespace M = Korvane::Sight::motion::detail;
using Korvane::Sight::y_bitmap;

constexpr int width = 1920, height = 1080;

// A 16-byte aligned picture with 16-byte lines; `offset` 1 moves it off.
struct luma {
  std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(std::size_t(width) * height + 32);
  y_bitmap view{};
  luma(double dx, double dy, int offset) {
    auto *base = bytes.data() + (16 - reinterpret_cast<std::uintptr_t>(bytes.data()) % 16) % 16 + offset;
    view = {reinterpret_cast<R::pixel_y_u8 *>(base), width, height, width, false};
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        double const u = x - dx, v = y - dy;
        base[y * width + x] = std::uint8_t(128 + 60 * std::sin(u / 5) + 45 * std::cos(v / 4) +
                                           15 * std::sin((u + v) / 7));
      }
  }
  std::uint8_t *data() const { return reinterpret_cast<std::uint8_t *>(view.data); }
};

luma const &first() {
  static luma const l(0, 0, 0);
  return l;
}
luma const &second() {
  static luma const l(2, 1, 0);
  return l;
}

bool no_picture(wchar_t const *, Korvane::Sight::bgra_bitmap const &) { return true; }

void BM_motion_estimation_y_loop(benchmark::State &state) {
  bool const png = state.range(0) != 0;
  std::string dir = std::filesystem::temp_directory_path() / "sight_motion_bench_XXXXXX";
  if (mkdtemp(dir.data()) == nullptr) std::abort();
  for (auto _ : state) {
    int fds[2];
    if (pipe(fds) != 0) std::abort();
    std::fflush(stdout);
    pid_t const pid = fork();
    if (pid == 0) {
      dup2(fds[1], 1);
      if (chdir(dir.c_str()) != 0) _exit(127);
      M::run(first().view, second().view,
             png ? &R::io::write<Korvane::Sight::bgra_bitmap> : &no_picture);
    }
    close(fds[1]);
    // Counted from the first line on, so that start-up is left out.
    int lines = -1;
    auto start = std::chrono::steady_clock::now(), now = start;
    char buffer[4096];
    pollfd p{fds[0], POLLIN, 0};
    while (now - start < std::chrono::seconds(3) && poll(&p, 1, 20000) > 0) {
      ssize_t const got = read(fds[0], buffer, sizeof buffer);
      if (got <= 0) break;
      now = std::chrono::steady_clock::now();
      for (ssize_t i = 0; i < got; ++i) {
        if (buffer[i] != '\n') continue;
        if (++lines == 0) start = now;
      }
    }
    kill(pid, SIGKILL);
    rusage usage{};
    wait4(pid, nullptr, 0, &usage);
    close(fds[0]);
    double const seconds = std::chrono::duration<double>(now - start).count();
    double const cpu = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    state.counters["iterations_per_s"] = lines / seconds;
    state.counters["ms_per_iteration"] = 1000 * seconds / lines;
    // The child's processor time (start-up included) a line: what the loop
    // costs on a machine that other work shares.
    state.counters["cpu_ms_per_iteration"] = 1000 * cpu / (lines + 1);
  }
  std::filesystem::remove_all(dir);
}
BENCHMARK(BM_motion_estimation_y_loop)->ArgName("png")->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_motion_estimation_y_pass(benchmark::State &state) {
  static luma const unaligned(0, 0, 1);
  bool const aligned = state.range(0) != 0;
  y_bitmap const &f = aligned ? first().view : unaligned.view;
  Korvane::Sight::bgra_bitmap debug{};
  R::allocate(debug, width, height);
  M::similarity const p{1.0f, 0.0f, 0.5f, 0.25f};
  for (auto _ : state) {
    M::normal_sums s = aligned ? M::accumulate<true>(f, second().view, p, debug)
                               : M::accumulate<false>(f, second().view, p, debug);
    benchmark::DoNotOptimize(s);
  }
  R::release(debug);
  state.SetBytesProcessed(std::int64_t(state.iterations()) * width * height);
}
BENCHMARK(BM_motion_estimation_y_pass)->ArgName("aligned")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_motion_estimation_y_model(benchmark::State &state) {
  for (auto _ : state) {
    auto lines = motion_model::run({first().data(), width}, {second().data(), width}, width, height, 1);
    benchmark::DoNotOptimize(lines);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * width * height);
}
BENCHMARK(BM_motion_estimation_y_model)->Unit(benchmark::kMillisecond);

#ifdef SIGHT_HAVE_OPENCV
cv::Mat mat(luma const &l) { return cv::Mat(height, width, CV_8UC1, l.data(), width); }

void BM_opencv_ecc_iteration(benchmark::State &state) {
  cv::setNumThreads(1);
  cv::Mat const a = mat(first()), b = mat(second());
  for (auto _ : state) {
    cv::Mat warp = cv::Mat::eye(2, 3, CV_32F);
    double const rho = cv::findTransformECC(
        a, b, warp, cv::MOTION_EUCLIDEAN,
        cv::TermCriteria(cv::TermCriteria::COUNT, 1, 0), cv::noArray(), 1);
    benchmark::DoNotOptimize(rho);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * width * height);
}
BENCHMARK(BM_opencv_ecc_iteration)->Unit(benchmark::kMillisecond);

// The same step as the loop's from OpenCV calls: gradients, the second
// picture warped by the current similarity (nearest neighbour), the
// Jacobian images and the fourteen sums, the energy and the 4x4 solve.
void BM_opencv_gauss_newton_step(benchmark::State &state) {
  cv::setNumThreads(1);
  cv::Mat const a = mat(first()), b = mat(second());
  cv::Mat xs(height, width, CV_32F), ys(height, width, CV_32F);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) xs.at<float>(y, x) = float(x), ys.at<float>(y, x) = float(y);
  cv::Mat const warp = (cv::Mat_<float>(2, 3) << 1, 0, 0.5f, 0, 1, 0.25f);
  for (auto _ : state) {
    cv::Mat gx, gy, warped, af, e;
    cv::Sobel(a, gx, CV_32F, 1, 0);
    cv::Sobel(a, gy, CV_32F, 0, 1);
    cv::warpAffine(b, warped, warp, a.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
    a.convertTo(af, CV_32F);
    warped.convertTo(e, CV_32F);
    e -= af;
    cv::Mat const ja = gx.mul(xs) + gy.mul(ys), jb = gy.mul(xs) - gx.mul(ys);
    cv::Mat const j[4] = {ja, jb, gx, gy};
    cv::Matx44f hm;
    cv::Vec4f g;
    for (int i = 0; i < 4; ++i) {
      for (int k = i; k < 4; ++k) hm(i, k) = hm(k, i) = float(j[i].dot(j[k]));
      g[i] = float(j[i].dot(e));
    }
    double const energy = 0.5 * e.dot(e);
    cv::Vec4f d;
    cv::solve(hm, g, d, cv::DECOMP_CHOLESKY);
    benchmark::DoNotOptimize(d);
    benchmark::DoNotOptimize(energy);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * width * height);
}
BENCHMARK(BM_opencv_gauss_newton_step)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
