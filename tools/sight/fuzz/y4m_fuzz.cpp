// Fuzz target of the Y4M reader: any bytes as a stream, read to its end.
#include <cstring>
#include <vector>

#include "y4m.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size) {
  std::size_t at = 0;
  auto read = [&](void *p, std::size_t n) {
    n = std::min(n, size - at);
    std::memcpy(p, data + at, n);
    at += n;
    return n;
  };
  try {
    sight_host::y4m_reader reader(read);
    std::vector<std::uint8_t> planes;
    while (reader.next(planes)) {
    }
  } catch (sight_host::y4m_error const &) {
  }
  return 0;
}
