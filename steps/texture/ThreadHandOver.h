#pragma once

// Hand-overs between threads that happen inside a library ThreadSanitizer
// cannot see into. OpenCV's parallel loops and Embree run oneTBB's header
// code compiled into their own, uninstrumented libraries, so a worker's end
// of a loop body and the caller's return from the loop are ordered there, out
// of sight. A body marks its end with `handOverFrom(key)` and the caller, once
// the loop has returned, takes it with `handOverTo(key)`: ThreadSanitizer then
// knows what the library guarantees, and still sees any race between the
// workers themselves. Outside a ThreadSanitizer build both do nothing.

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace Welk {

inline void handOverFrom([[maybe_unused]] const void* key)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_release(const_cast<void*>(key));
#endif
}

inline void handOverTo([[maybe_unused]] const void* key)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(const_cast<void*>(key));
#endif
}

} // namespace Welk
