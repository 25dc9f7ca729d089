#pragma once

#include <QString>

/// Generated OBJ files for the reading benchmarks: a grid of quads with
/// texture coordinates and one group per 10,000 faces, cached outside the
/// repository so that the next run does not write them again.
namespace BenchObjFiles {

/// The cache folder: $ZWELK_BENCH_CACHE, else ~/.cache/zwelk-bench.
QString cacheFolder();

/// A file of about `megabytes` MB in the cache, written when missing.
QString gridFile(int megabytes);

} // namespace BenchObjFiles
