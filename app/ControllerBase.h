#pragma once

#include "exchange/PluginGLVisualParams.h"
#include "exchange/ResultWriter.h"

#include <QObject>

namespace WelkPlugin {

/// A mode controller: creates the step pages of its mode and writes the
/// run's result at Done.
class ControllerBase : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// True when Cancel would throw away work: points, splines or a result.
    virtual bool hasUnsavedWork() const = 0;
    /// What Cancel asks when there is unsaved work.
    virtual QString unsavedWorkQuestion() const
    {
        return QStringLiteral(
            "Points, splines or a fit result will be lost.\nClose without sending anything to ZBrush?");
    }
    /// The result writer: written, not written (stop anyway), or cancelled.
    virtual SaveResult saveResult() = 0;

    /// Logs `error` and shows it in the critical error box.
    static void showCriticalError(const QString& error, QWidget* parent = nullptr);

signals:
    void updateVisualParams(WelkPlugin::PluginGLVisualParams params);
};

} // namespace WelkPlugin
