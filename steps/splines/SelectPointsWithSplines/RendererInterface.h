#pragma once

#include <QPointF>
#include <QString>
#include <QVector3D>
#include <QVector>

namespace Welk {
namespace SelectPointsWithSplines {

/// One spline as the viewport should draw it: a polyline along its curve
/// and its control points, in model coordinates.
struct DrawnSpline
{
    QString name; ///< empty for a spline being drawn that has no name yet
    QVector<QVector3D> curve;
    QVector<QVector3D> controls;
    bool selected = false;
    bool edited = false;          ///< being drawn or dragged right now
    bool highlighted = false;     ///< under the cursor, or what Shift would pick
    int highlightedControl = -1;  ///< control point under the cursor, -1 none
};

/// Everything to draw for the spline step in one viewport.
struct SplineDrawing
{
    QVector<DrawnSpline> splines;
    /// The surface point under the cursor, when `hasHover`.
    QVector3D hover;
    bool hasHover = false;
    /// The result view (state IdleResult): splines only, no editing marks.
    bool resultView = false;
};

/// How the spline controller shows things, supplied by the hosting page.
/// The controller never draws itself: it hands over a complete
/// `SplineDrawing` after every change and asks for a repaint.
class RendererInterface
{
public:
    virtual ~RendererInterface() = default;

    /// The viewport position (mouse-event pixels, origin top left) of a
    /// model position through the current camera; false when it is behind
    /// the camera. Hit tests against curves and control points use it.
    virtual bool projectToScreen(const QVector3D& position, QPointF& screen) const = 0;

    /// Replaces what is drawn; repaint when convenient.
    virtual void drawSplines(const SplineDrawing& drawing) = 0;

    /// The hint line. Words between asterisks are keys and buttons, shown
    /// emphasised ("*LMB* on geometry ...").
    virtual void setHint(const QString& text) = 0;

    /// A warning for the user, as a message box titled `title`.
    virtual void showMessage(const QString& title, const QString& text) = 0;

    /// Key F: frame the box in the view.
    virtual void fitToView(const QVector3D& lo, const QVector3D& hi) = 0;
};

} // namespace SelectPointsWithSplines
} // namespace Welk
