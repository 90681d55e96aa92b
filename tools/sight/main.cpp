// sight: the command-line host of the library. Runs one operator over video
// files, PNG pictures, a Y4M stream or the built-in synthetic clip and prints
// one JSON object a frame (or a field) on standard output.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <new>
#include <string>

#include <unistd.h>

#include "commands.h"
#include "media.h"
#include "options.h"

namespace {

using namespace sight_host;
using clock_type = std::chrono::steady_clock;

// Frames done of the total and the rate, redrawn on one line of standard
// error at most a few times a second, only when that is a terminal.
class progress {
 public:
  progress(std::string name, std::int64_t total) : name_(std::move(name)), total_(total) {
    shown_ = isatty(STDERR_FILENO) && (total == 0 || total >= 50);
  }
  ~progress() {
    if (shown_ && drawn_) std::fputs("\r\033[K", stderr);
  }

  void step(std::int64_t done) {
    if (!shown_) return;
    auto const now = clock_type::now();
    if (now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    drawn_ = true;
    double const seconds = std::chrono::duration<double>(now - start_).count();
    double const fps = seconds > 0 ? double(done) / seconds : 0;
    if (total_ > 0) {
      int const filled = int(30 * std::min<std::int64_t>(done, total_) / total_);
      std::fprintf(stderr, "\r%s [%s%s] %lld/%lld frames, %.1f fps\033[K", name_.c_str(),
                   std::string(filled, '#').c_str(), std::string(30 - filled, '.').c_str(),
                   static_cast<long long>(done), static_cast<long long>(total_), fps);
    } else {
      std::fprintf(stderr, "\r%s %lld frames, %.1f fps\033[K", name_.c_str(), static_cast<long long>(done), fps);
    }
  }

 private:
  std::string name_;
  std::int64_t total_;
  bool shown_, drawn_ = false;
  clock_type::time_point start_ = clock_type::now(), last_{};
};

// The preview's file name; with several inputs each gets its own, numbered.
std::string preview_path(std::string const &path, std::size_t index, std::size_t inputs) {
  if (path.empty() || inputs < 2) return path;
  std::filesystem::path p(path);
  return (p.parent_path() / (p.stem().string() + "-" + std::to_string(index) + p.extension().string())).string();
}

void run_input(options const &o, std::string const &input, std::string const &label, std::string const &preview) {
  std::unique_ptr<source> in = open_source(input, o.common.aspect, o.common.synthetic_frames);
  std::unique_ptr<command> cmd = make_command(o);
  std::unique_ptr<writer> out;
  if (!preview.empty()) out = std::make_unique<writer>(preview, in->rate() * cmd->rate_factor());
  picture_sink sink;
  if (out) sink = [&](picture const &p) { out->write(p); };
  picture frame;
  frame.format = layout_from_name(o.common.layout);
  std::int64_t const limit = o.common.frames;
  progress bar(label, limit > 0 && in->total() > 0 ? std::min(limit, in->total()) : in->total());
  std::vector<json> entries;
  double time = 0;
  for (std::int64_t n = 0; (limit == 0 || n < limit) && in->next(frame, time); ++n) {
    entries.clear();
    cmd->run(frame, entries, sink);
    for (json &e : entries) {
      json line = {{"file", label}, {"frame", n}, {"time", time}};
      line.update(e);
      std::string const text = line.dump() + "\n";
      std::fwrite(text.data(), 1, text.size(), stdout);
    }
    bar.step(n + 1);
  }
  if (out) out->close();
}

}  // namespace

int main(int argc, char **argv) {
  options o;
  set_defaults(o);
  std::string message;
  int const parsed = parse_options(argc, argv, o, message);
  if (parsed == 0) {
    std::fputs(message.c_str(), stdout);
    return 0;
  }
  if (parsed > 0) {
    std::fprintf(stderr, "sight: %s\n", message.c_str());
    return 2;
  }
  if (o.command == "align") {
    try {
      return align(o);
    } catch (std::runtime_error const &e) {
      std::fflush(stdout);
      std::fprintf(stderr, "sight: align: %s\n", e.what());
      return 2;
    }
  }
  if (o.command == "homography" || o.command == "match") {
    bool failed = false;
    std::vector<std::string> const files =
        o.command == "match" ? std::vector<std::string>{o.match.picture} : o.homography.files;
    for (std::string const &f : files) {
      try {
        json const line = o.command == "match" ? match(f, o.match.reference, o.common.preview) : homography(f);
        std::printf("%s\n", line.dump().c_str());
      } catch (std::runtime_error const &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "sight: %s: %s\n", o.command == "match" ? "match" : f.c_str(), e.what());
        failed = true;
      }
    }
    return failed ? 2 : 0;
  }
  std::vector<std::string> inputs = o.common.inputs;
  if (inputs.empty()) inputs.push_back("");  // the synthetic clip
  bool failed = false;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    std::string const label = inputs[i].empty() ? "synthetic" : inputs[i] == "-" ? "stdin" : inputs[i];
    try {
      run_input(o, inputs[i], label, preview_path(o.common.preview, i, inputs.size()));
    } catch (std::runtime_error const &e) {  // media and Y4M errors name the problem
      std::fflush(stdout);
      std::fprintf(stderr, "sight: %s: %s\n", label.c_str(), e.what());
      failed = true;
    } catch (std::bad_alloc const &) {
      std::fflush(stdout);
      std::fprintf(stderr, "sight: %s: out of memory\n", label.c_str());
      failed = true;
    }
  }
  std::fflush(stdout);
  return failed ? 2 : 0;
}
