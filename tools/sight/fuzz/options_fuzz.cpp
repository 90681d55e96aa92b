// Fuzz target of the command line: the bytes split at NUL bytes into at most
// 32 arguments after the program's name.
#include <string>
#include <vector>

#include "options.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size) {
  std::vector<std::string> args = {"sight"};
  std::string const text(reinterpret_cast<char const *>(data), size);
  for (std::size_t at = 0; at <= text.size() && args.size() < 33;) {
    std::size_t const end = std::min(text.find('\0', at), text.size());
    args.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  std::vector<char const *> argv;
  for (std::string const &a : args) argv.push_back(a.c_str());
  sight_host::options o;
  std::string message;
  sight_host::parse_options(int(argv.size()), argv.data(), o, message);
  return 0;
}
