#include "platform/Memory.h"

#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace kqlib::platform {

void GiveBackLargeBlocks()
{
#if defined(__GLIBC__)
    // Setting the threshold also stops it from growing with the blocks that are freed.
    constexpr int LARGE_BLOCK = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, LARGE_BLOCK);
#endif
}

} // namespace kqlib::platform
