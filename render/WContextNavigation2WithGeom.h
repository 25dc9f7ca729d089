#pragma once

#include "WContextNavigation2.h"

#include <functional>
#include <utility>

namespace Welk {

/// Navigation that knows its model: F frames the model's bounds itself.
class WContextNavigation2WithGeom : public WContextNavigation2
{
    Q_OBJECT
public:
    using Bounds = std::function<std::pair<QVector3D, QVector3D>()>;

    WContextNavigation2WithGeom(QWidget* viewport, std::shared_ptr<WCamera3D> camera, Bounds bounds);

    /// Frames the model's bounds in the viewport and announces the move.
    void fitToView();
};

} // namespace Welk
