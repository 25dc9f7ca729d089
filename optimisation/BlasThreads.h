#pragma once

namespace LinearSystemsSolvers {

/// OpenBLAS (the threaded build Debian installs for CHOLMOD) starts its
/// worker threads while the program loads, and each spins in a yield loop
/// for about a tenth of a second before it sleeps. The program's own work
/// at that moment (start-up, loading, a small fit) then shares the cores
/// with threads that do nothing: a fit of a 7,000-vertex basemesh took
/// about a tenth longer. This stops those threads; OpenBLAS starts them
/// again by itself at its first call that runs on several threads.
/// Returns false where the BLAS in use is not OpenBLAS (nothing to do).
/// Called first thing in `main`.
bool parkIdleBlasThreads();

} // namespace LinearSystemsSolvers
