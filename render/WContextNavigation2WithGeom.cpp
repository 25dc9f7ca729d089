#include "WContextNavigation2WithGeom.h"

#include "WCamera3D.h"

#include <QWidget>

namespace Welk {

WContextNavigation2WithGeom::WContextNavigation2WithGeom(QWidget* viewport, std::shared_ptr<WCamera3D> camera,
                                                         Bounds bounds)
    : WContextNavigation2(viewport, std::move(camera))
{
    connect(this, &WContextNavigation2::fitToViewPressed, this, [this, bounds = std::move(bounds)] {
        const auto [min, max] = bounds();
        this->camera().fitToView(min, max, this->viewport()->size());
        moved();
        Q_EMIT cameraFinishedMovement();
    });
}

void WContextNavigation2WithGeom::fitToView()
{
    Q_EMIT fitToViewPressed();
}

} // namespace Welk
