// The estimation loop never returns, so each case runs it in a child process
// in a temporary folder and reads its lines from a pipe, with a time limit.
#include <sight/motion/estimation.h>
#include <sight/motion/motion_kernels.h>
#include <sight/operator/detail/member.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <vector>

#include "motion/estimation_model.h"
#include "support/harness.h"

namespace {

using Korvane::Sight::y_bitmap;

// A picture in exactly sized memory, placed so that the kernel's aligned
// member (offset 0, stride a multiple of 16) or its unaligned one runs.
struct picture : harness::plane {
  y_bitmap view;
  picture(int w, int h, bool aligned, auto &&value)
      : harness::plane({w, h, aligned ? (w + 15) / 16 * 16 : w + 3, aligned ? 0 : 1, 0}),
        view{reinterpret_cast<Tamarind::Rasters::pixel_y_u8 *>(data()), w, h, shape().stride, false} {
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) line(y)[x] = std::uint8_t(value(x, y));
  }
  motion_model::plane plane() const { return {data(), shape().stride}; }
};

// Smooth texture, so that Gauss-Newton on it converges from a small shift.
int texture(double x, double y) {
  return int(128 + 60 * std::sin(x / 5) + 45 * std::cos(y / 4) + 15 * std::sin((x + y) / 7));
}

// Pixels 0..w−2 of lines 0..h−2 of a BGRA picture against the model's.
void expect_written(std::uint8_t const *data, int stride, std::vector<std::uint8_t> const &model,
                    int w, int h) {
  for (int y = 0; y < h - 1; ++y)
    EXPECT_EQ(0, std::memcmp(data + y * stride, &model[std::size_t(y * w) * 4], std::size_t(w - 1) * 4))
        << "line " << y;
}

class loop_child {
 public:
  loop_child(y_bitmap const &first, y_bitmap const &second) {
    char name[] = "/tmp/sight_motion_XXXXXX";
    dir_ = mkdtemp(name);
    int fds[2];
    if (pipe(fds) != 0) std::abort();
    std::fflush(stdout);  // nothing of ours may reach the child's pipe
    pid_ = fork();
    if (pid_ == 0) {
      dup2(fds[1], 1);
      if (chdir(dir_.c_str()) != 0) _exit(127);
      Korvane::Sight::motion::estimation loop(first, second);
    }
    close(fds[1]);
    fd_ = fds[0];
  }
  ~loop_child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(fd_);
    std::filesystem::remove_all(dir_);
  }

  // The next n lines; fewer if none comes within the time limit.
  std::vector<std::string> lines(int n) {
    std::vector<std::string> out;
    for (std::size_t eol; int(out.size()) < n;) {
      if ((eol = pending_.find('\n')) != std::string::npos) {
        out.push_back(pending_.substr(0, eol + 1));
        pending_.erase(0, eol + 1);
        continue;
      }
      pollfd p{fd_, POLLIN, 0};
      char buffer[4096];
      ssize_t const got = poll(&p, 1, 30000) > 0 ? read(fd_, buffer, sizeof buffer) : 0;
      if (got <= 0) break;
      pending_.append(buffer, std::size_t(got));
    }
    return out;
  }

  // The debug picture of the last whole iteration (the file is replaced
  // whole, never seen half written).
  cv::Mat picture() const { return cv::imread(dir_ + "/f:\\test.png", cv::IMREAD_UNCHANGED); }

 private:
  std::string dir_, pending_;
  pid_t pid_ = -1;
  int fd_ = -1;
};

struct size {
  int w, h;
};
class loop_test : public testing::TestWithParam<std::tuple<size, bool>> {};

// A picture shifted by (2, 1) whole pixels: the child prints what the model
// prints, to the last digit, and the energy falls (where the sums do not wrap).
TEST_P(loop_test, shifted_picture_follows_model) {
  auto const [s, aligned] = GetParam();
  picture const first(s.w, s.h, aligned, [](int x, int y) { return texture(x, y); });
  picture const second(s.w, s.h, !aligned, [](int x, int y) { return texture(x - 2, y - 1); });
  auto const expected = motion_model::run(first.plane(), second.plane(), s.w, s.h, 5);
  loop_child child(first.view, second.view);
  EXPECT_EQ(child.lines(5), expected);
  EXPECT_TRUE(s.w > 1000 || std::stod(expected.back()) < 0.5 * std::stod(expected.front()));
}

// 5003 wide: gx·x reaches 255·5001, so the products with ja and jb wrap.
INSTANTIATE_TEST_SUITE_P(sizes, loop_test,
                         testing::Combine(testing::Values(size{64, 48}, size{61, 37}, size{18, 20},
                                                          size{5003, 4}),
                                          testing::Bool()),
                         [](auto const &info) {
                           size const s = std::get<0>(info.param);
                           return "w" + std::to_string(s.w) + "_h" + std::to_string(s.h) +
                                  (std::get<1>(info.param) ? "_aligned" : "_unaligned");
                         });

// Degenerate inputs: every line repeats, with the value the model gives, and
// the file in the child's folder shows |e|·4 in grey wherever a pixel has a
// right and a lower neighbour (the parameters never move, so every
// iteration writes the same picture).
TEST(loop_test, degenerate_inputs_repeat_line_and_picture) {
  struct degenerate {
    char const *name;
    int w, h;
    int (*first)(int, int), (*second)(int, int);
    char const *line;  // the expected line, or null for the model's
  };
  degenerate const cases[] = {
      {"identical", 40, 30, [](int x, int y) { return texture(x, y); },
       [](int x, int y) { return texture(x, y); }, "0.000000\n"},
      {"flat first", 53, 21, [](int, int) { return 100; },
       [](int x, int y) { return (x * 37 + y * 11) % 256; }, nullptr},
      {"one line", 40, 1, [](int x, int) { return x; }, [](int, int) { return 7; }, "0.000000\n"},
      {"one column", 1, 30, [](int, int y) { return y; }, [](int, int) { return 7; },
       "0.000000\n"},
  };
  for (auto const &c : cases) {
    SCOPED_TRACE(c.name);
    picture const first(c.w, c.h, true, c.first), second(c.w, c.h, false, c.second);
    std::vector<std::uint8_t> expected;
    auto const model = motion_model::run(first.plane(), second.plane(), c.w, c.h, 1, &expected);
    std::string const line = c.line ? c.line : model.front();
    EXPECT_EQ(model.front(), line);
    loop_child child(first.view, second.view);
    EXPECT_EQ(child.lines(4), std::vector<std::string>(4, line));
    cv::Mat const m = child.picture();
    ASSERT_EQ(m.type(), CV_8UC4);
    ASSERT_EQ(m.size(), cv::Size(c.w, c.h));
    expect_written(m.data, int(m.step), expected, c.w, c.h);
  }
}

// Warped places that are NaN, infinite or far beyond the int range go
// through the defined clamp: one pass agrees with the model's saturating
// conversion, the picture included.
TEST(loop_test, extreme_warps_are_clamped) {
  float const inf = std::numeric_limits<float>::infinity(), nan = std::nanf("");
  Korvane::Sight::motion::detail::similarity const starts[] = {
      {nan, 0, 0, 0}, {1, 0, 3e9f, -3e9f}, {1, 0, -inf, inf}, {1e20f, -1e20f, 0, 0}, {0.5f, 0.3f, 4.7f, -2.2f}};
  int const w = 45, h = 19;
  for (bool aligned : {true, false}) {
    picture const first(w, h, aligned, [](int x, int y) { return texture(x, y); });
    picture const second(w, h, aligned, [](int x, int y) { return texture(y, x); });
    for (auto const &s : starts) {
      std::vector<std::uint8_t> expected;
      auto const line = motion_model::run(first.plane(), second.plane(), w, h, 1, &expected, s.a, s.b, s.tx, s.ty);
      Korvane::Sight::bgra_bitmap debug{};
      Tamarind::Rasters::allocate(debug, w, h);
      auto const sums = Korvane::Sight::detail::with_member(
          [&](auto a) { return Korvane::Sight::motion::detail::accumulate<a>(first.view, second.view, s, debug); },
          first.view);
      char text[64];
      std::snprintf(text, sizeof text, "%f\n", double(sums.energy));
      EXPECT_EQ(text, line.front()) << s.a << " " << s.tx;
      expect_written(reinterpret_cast<std::uint8_t const *>(debug.data), debug.stride, expected, w, h);
      Tamarind::Rasters::release(debug);
    }
  }
}

}  // namespace
