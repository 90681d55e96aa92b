// The motion estimator's loop never returns: it is run in a child process
// whose standard output comes back through a pipe, line by line, and which is
// killed after the iterations asked for (or when the host is interrupted).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sight/motion/estimation.h>

#include "commands.h"
#include "media.h"

namespace sight_host {

namespace {

volatile sig_atomic_t g_interrupted = 0;

void on_interrupt(int) { g_interrupted = 1; }

// Frame `index` of an input as planes; the luma is what the operator reads.
void read_frame(std::string const &name, int index, picture &p) {
  p.format = video::format_planar;
  double time;
  try {
    std::unique_ptr<source> in = open_source(name, 0, 3);
    for (int i = 0; i <= index; ++i)
      if (!in->next(p, time)) throw media_error("no frame");
  } catch (std::runtime_error const &e) {
    throw media_error((name.empty() ? std::string("synthetic") : name) + ": " + e.what());
  }
}

}  // namespace

int align(options const &o) {
  align_options const &a = o.align;
  picture first, second;
  read_frame(a.first, 0, first);
  read_frame(a.second.empty() && a.first.empty() ? std::string() : a.second, a.second.empty() ? 2 : 0, second);
  if (second.width < first.width - 1 || second.height < first.height - 1)
    throw media_error("the second picture is smaller than the first");

  std::filesystem::path dir = a.picture_dir;
  bool const temporary = dir.empty();
  if (temporary) {
    std::string pattern = (std::filesystem::temp_directory_path() / "sight-align-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw media_error("cannot make a temporary folder");
    dir = pattern;
  } else if (!std::filesystem::is_directory(dir)) {
    throw media_error("no such folder: " + dir.string());
  }

  int fds[2];
  if (pipe(fds) != 0) throw media_error("cannot make a pipe");
  std::fflush(stdout);
  pid_t const child = fork();
  if (child < 0) throw media_error("cannot start the operator's process");
  if (child == 0) {
    close(fds[0]);
    dup2(fds[1], STDOUT_FILENO);
    close(fds[1]);
    if (chdir(dir.c_str()) != 0) _exit(3);
    Korvane::Sight::motion::estimation(first.y, second.y);
    _exit(0);  // not reached: the loop has no end
  }
  close(fds[1]);
  struct sigaction action = {};
  action.sa_handler = on_interrupt;  // no SA_RESTART: an interrupt ends the read
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::FILE *lines = fdopen(fds[0], "r");
  std::int64_t n = 0;
  char text[256];
  while (!g_interrupted && (a.iterations == 0 || n < a.iterations) && std::fgets(text, sizeof text, lines)) {
    json const line = {{"iteration", n++}, {"energy", std::strtod(text, nullptr)}};
    std::printf("%s\n", line.dump().c_str());
    std::fflush(stdout);  // a reader of a pipe sees each iteration as it comes
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  std::fclose(lines);
  if (temporary) {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  if (g_interrupted) return 130;
  if (a.iterations > 0 && n < a.iterations)
    throw media_error("the operator stopped after " + std::to_string(n) + " iterations");
  return 0;
}

}  // namespace sight_host
