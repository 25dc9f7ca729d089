#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

namespace WelkPlugin {

/// Name to control points, ordered by name as the map orders them.
using SplineMap = QMap<QString, QVector<Welk::WPointOnTriangle>>;

/// Everything the spline step edits on one model: the splines, the order
/// in which the list shows them (always exactly the map's names) and the
/// selected name (empty for none). Commands swap whole states, so undo
/// restores all three together.
struct SplinesState
{
    SplineMap splines;
    QStringList order;
    QString selected;

    bool operator==(const SplinesState& o) const
    {
        return splines == o.splines && order == o.order && selected == o.selected;
    }
    bool operator!=(const SplinesState& o) const { return !(*this == o); }

    /// The splines in list order.
    QVector<QVector<Welk::WPointOnTriangle>> inOrder() const
    {
        QVector<QVector<Welk::WPointOnTriangle>> list;
        for (const QString& name : order)
            list.append(splines.value(name));
        return list;
    }
};

} // namespace WelkPlugin
