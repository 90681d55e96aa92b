#include <sight/frame/bitmap.h>

#include <cstdlib>

namespace Tamarind::Rasters::mem {

void *alloc(std::uint64_t size, std::uint64_t alignment) {
  // posix_memalign wants a power of two no smaller than a pointer.
  if (alignment < sizeof(void *)) alignment = sizeof(void *);
  if ((alignment & (alignment - 1)) != 0) return nullptr;
  if (size > std::uint64_t(PTRDIFF_MAX)) return nullptr;
  void *p = nullptr;
  if (posix_memalign(&p, std::size_t(alignment), std::size_t(size)) != 0)
    return nullptr;
  return p;
}

void free(void const *p) { std::free(const_cast<void *>(p)); }

}  // namespace Tamarind::Rasters::mem
