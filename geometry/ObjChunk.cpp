#include "ObjChunk.h"

#include "HugePages.h"

#include <sys/mman.h>

#include <cstdint>

namespace GeometryStack2 {

ChunkListArena::ChunkListArena(size_t capacity)
{
    if (capacity == 0)
        return;
    // Address space only: the system backs what is written, nothing else.
    // Started on a 2 MB boundary, so that the lists are written to huge
    // pages from their first byte: a small file's lists otherwise fill 4 KB
    // pages up to the first boundary, a fault each.
    void* mapped = mmap(nullptr, capacity + HugePageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                        -1, 0);
    if (mapped == MAP_FAILED)
        return;
    const uintptr_t start = reinterpret_cast<uintptr_t>(mapped);
    const uintptr_t aligned = (start + HugePageBytes - 1) & ~uintptr_t(HugePageBytes - 1);
    const uintptr_t end = start + capacity + HugePageBytes;
    if (aligned > start)
        munmap(mapped, aligned - start);
    if (end > aligned + capacity)
        munmap(reinterpret_cast<void*>(aligned + capacity), end - (aligned + capacity));
    m_base = reinterpret_cast<char*>(aligned);
    m_capacity = capacity;
    adviseHugePages(m_base, m_capacity);
}

ChunkListArena::~ChunkListArena()
{
    if (m_base)
        munmap(m_base, m_capacity);
}

void* ChunkListArena::take(size_t bytes)
{
    if (!m_base)
        return nullptr;
    const size_t size = (bytes + 63) & ~size_t(63);
    const size_t at = m_used.fetch_add(size, std::memory_order_relaxed);
    return at + size <= m_capacity ? m_base + at : nullptr;
}

void ChunkListArena::give(void* data, size_t bytes)
{
    constexpr uintptr_t Page = 4096;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + Page - 1) & ~(Page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(Page - 1);
    if (end > begin)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED); // advice only: failure keeps the pages
}

size_t ChunkListArena::capacityFor(qint64 fileSize, qint64 chunkCount)
{
    if (fileSize <= 0 || chunkCount <= 0)
        return 0;
    return 6 * (size_t(fileSize) + size_t(chunkCount) * ChunkData::HeadSize) + size_t(chunkCount) * 8 * 64;
}

ChunkBufferPool::~ChunkBufferPool()
{
    for (char* buffer : m_free)
        std::free(buffer);
}

char* ChunkBufferPool::take()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_free.empty()) {
            char* buffer = m_free.back();
            m_free.pop_back();
            return buffer;
        }
    }
    char* buffer = static_cast<char*>(std::malloc(m_bufferSize));
    if (!buffer)
        throw std::bad_alloc();
    return buffer;
}

void ChunkBufferPool::give(char* buffer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_free.push_back(buffer);
}

ChunkData::ChunkData(int64_t chunkIndex, ChunkBufferPool& bufferPool, bool last)
    : isLast(last), index(chunkIndex), pool(&bufferPool)
{
    // The head takes the previous chunk's unfinished line; the last chunk
    // gets one more byte for a final newline.
    buffer = pool->take();
    fileData = buffer + HeadSize;
    text = fileData;
    bufferUsers = last ? 1 : 2;
}

ChunkData::~ChunkData()
{
    if (buffer)
        pool->give(buffer);
}

bool ChunkData::releaseBuffer()
{
    if (--bufferUsers != 0)
        return false;
    pool->give(buffer);
    buffer = fileData = text = nullptr;
    return true;
}

} // namespace GeometryStack2
