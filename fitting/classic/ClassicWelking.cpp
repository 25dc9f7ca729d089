#include "ClassicWelking.h"

#include "WelkingWorker.h"

namespace Welk {

ClassicWelkingResult runClassicWelking(const ClassicWelkingInput& input, ProgressInterface* progress)
{
    ClassicWelkingResult result;
    result.error = input.parameters.validate();
    if (!result.error.isEmpty()) {
        result.vertices = input.vertices;
        return result;
    }
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
