#include "HugePages.h"

#include <cstdint>

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace GeometryStack2 {

void configureLargeAllocations()
{
#ifdef __GLIBC__
    // glibc gives each block above its threshold a mapping of its own, and a
    // mapping that does not start on a 2 MB boundary gets 4 KB pages in its
    // first and last 2 MB whatever the advice: a dense mesh's two dozen lists
    // then cost some 20,000 page faults, which on a virtual machine weigh as
    // much as reading the file. Blocks up to 32 MB (glibc's own upper bound
    // for its adaptive threshold) come from the heap instead, where
    // `adviseHugePages` covers them edge to edge; the heap grows and shrinks
    // in 64 MB steps so that freed lists are reused, not cleared again.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_TOP_PAD, 64 << 20);
#endif
}

void adviseHugePages(const void* data, size_t bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    const uintptr_t first = reinterpret_cast<uintptr_t>(data);
    const uintptr_t last = first + bytes;
    const uintptr_t heapEnd = reinterpret_cast<uintptr_t>(sbrk(0));
    uintptr_t begin = (first + HugePageBytes - 1) & ~(HugePageBytes - 1);
    uintptr_t end = last & ~(HugePageBytes - 1);
    if (last <= heapEnd) {
        // In the heap the list's partial first and last 2 MB can be huge
        // pages too, and so can the untouched rest of the heap above it,
        // where the next lists will go: advise all of it.
        begin = first & ~(HugePageBytes - 1);
        end = heapEnd & ~(HugePageBytes - 1);
    }
    if (end > begin)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE); // advice only: failure is harmless
#else
    (void)data;
    (void)bytes;
#endif
}

} // namespace GeometryStack2
