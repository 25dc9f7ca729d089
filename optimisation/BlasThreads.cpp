#include "BlasThreads.h"

#ifdef __linux__
#include <dlfcn.h>
#endif

namespace LinearSystemsSolvers {

bool parkIdleBlasThreads()
{
#ifdef __linux__
    // Looked up, not linked: the system may give libblas.so.3 from another
    // implementation, which has no thread server. OpenBLAS itself calls this
    // before a fork and restarts the server on the next threaded call.
    using Shutdown = int (*)();
    if (auto shutdown = reinterpret_cast<Shutdown>(dlsym(RTLD_DEFAULT, "blas_thread_shutdown_"))) {
        shutdown();
        return true;
    }
#endif
    return false;
}

} // namespace LinearSystemsSolvers
