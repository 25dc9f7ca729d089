#pragma once

#include "MeshLists.h"

namespace Welk {
class ProgressInterface;
}

namespace GeometryStack2 {

/// The fast OBJ reader. The calling thread reads the file chunk after
/// chunk while a TBB flow graph counts, parses and merges the chunks on all
/// cores: parsing overlaps the disk, only the steps that depend on file
/// order run serially, and the final lists are allocated once, when the
/// counts are known.
///
/// Differences from a line-by-line reader that are part of its contract:
/// negative indices count from the end of the whole file; a line may carry
/// at most 2048 bytes across a chunk boundary; wrong lines are numbered
/// from 1 counting only non-empty lines.
class ObjReaderTBB
{
public:
    /// Chunks are at least this large; files of at least `ManyChunksFrom`
    /// bytes are cut into about `ChunksPerFile` chunks.
    static constexpr qint64 MinChunkSize = 6144;
    static constexpr qint64 ManyChunksFrom = 245760;
    static constexpr qint64 ChunksPerFile = 40;
    /// The read loop keeps at most this many chunks' text alive, or twice
    /// the number of threads if that is more; see docs/performance.md.
    static constexpr qint64 MinChunksInFlight = 4;

    struct Layout
    {
        qint64 chunkSize = 0;
        qint64 chunkCount = 0;
    };
    /// The chunking of a file of `fileSize` bytes; `requestedChunkSize` 0
    /// chooses automatically.
    static Layout chunkLayout(qint64 fileSize, qint64 requestedChunkSize);

    /// Reads `path` into `lists` (cleared first). False with `error` on
    /// failure; the lists then hold whatever was written until then.
    static bool read(const QString& path, MeshLists& lists, QString& error,
                     Welk::ProgressInterface* progress = nullptr, qint64 chunkSize = 0);
};

} // namespace GeometryStack2
