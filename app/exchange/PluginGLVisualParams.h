#pragma once

#include <QColor>

namespace WelkPlugin {

/// Viewport colours and camera values that ZBrush hands over in params.txt.
/// The defaults are those of a run without that file.
struct PluginGLVisualParams
{
    QColor backgroundColor = QColor(44, 44, 44);
    QColor secondColor = QColor(44, 44, 44);
    QColor thirdColor = QColor(44, 44, 44);
    float gradientA = 0.5f;
    float gradientB = 0.75f;
    float gradientC = 0.25f;
    bool perspective = false;
    float fieldOfView = 25.0f; ///< degrees
    bool viewportOptionA = false;
    bool viewportOptionB = false;
    qint32 viewportMode = 0;

    bool viewportModeIsOdd() const { return (viewportMode & 1) != 0; }
    bool viewportModeAboveOne() const { return viewportMode > 1; }
};

} // namespace WelkPlugin
