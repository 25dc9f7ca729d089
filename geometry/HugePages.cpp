#include "HugePages.h"

#include <cstdint>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace GeometryStack2 {

void adviseHugePages(const void* data, size_t bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr uintptr_t HugePage = uintptr_t(2) << 20;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + HugePage - 1) & ~(HugePage - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(HugePage - 1);
    if (end > begin)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE); // advice only: failure is harmless
#else
    (void)data;
    (void)bytes;
#endif
}

} // namespace GeometryStack2
