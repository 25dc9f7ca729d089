#include "ClassicWelking.h"

#include "WelkingWorker.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace Welk {

namespace {

/// Keeps freed memory in the process while the fit runs. Each solver pass
/// frees and allocates the same large blocks (the damped matrix, the
/// factorisation's workspace); by default glibc serves them by mmap and
/// returns them at once, and the page faults of the fresh pages cost more
/// than the factorisation (150 s against 80 s on a 10k-vertex pair). The
/// memory goes back to the system when the fit ends.
class HeapRetention
{
public:
    HeapRetention()
    {
#if defined(__GLIBC__)
        mallopt(M_MMAP_MAX, 0);
        mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
    }
    ~HeapRetention()
    {
#if defined(__GLIBC__)
        mallopt(M_MMAP_MAX, 65536);
        mallopt(M_TRIM_THRESHOLD, 128 * 1024);
        malloc_trim(0);
#endif
    }
    HeapRetention(const HeapRetention&) = delete;
    HeapRetention& operator=(const HeapRetention&) = delete;
};

} // namespace

ClassicWelkingResult runClassicWelking(const ClassicWelkingInput& input, ProgressInterface* progress)
{
    ClassicWelkingResult result;
    result.error = input.parameters.validate();
    if (!result.error.isEmpty()) {
        result.vertices = input.vertices;
        return result;
    }
    const HeapRetention retention;
    WelkingWorker worker(input.vertices, input.triangles, input.transform, input.targetVertices, input.targetNormals,
                         input.targetTriangles, QMatrix4x4(), input.basePoints, input.targetPoints, input.mask,
                         input.parameters, input.normalisedSize, progress, input.dijkstraSampler);
    worker.start();
    result.vertices = worker.verticesWelked();
    result.levelNodeCounts = worker.levelNodeCounts();
    result.interrupted = worker.wasInterrupted();
    result.error = worker.errorText();
    return result;
}

} // namespace Welk
