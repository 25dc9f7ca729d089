#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QVector>

namespace WelkPlugin {

/// Both sides' correspondence points (0 the basemesh, 1 the scan) and, per
/// point, the index of its mirror twin on the same side or -1: a point
/// placed with symmetry on and its mirror are moved and deleted together.
struct PointSelectionState
{
    QVector<Welk::WPointOnTriangle> points[2];
    QVector<int> mirrors[2];

    bool operator==(const PointSelectionState& o) const
    {
        return points[0] == o.points[0] && points[1] == o.points[1] && mirrors[0] == o.mirrors[0] &&
               mirrors[1] == o.mirrors[1];
    }
    bool operator!=(const PointSelectionState& o) const { return !(*this == o); }
};

} // namespace WelkPlugin
