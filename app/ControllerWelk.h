#pragma once

#include "ControllerBase.h"

#include "exchange/ExchangeFolder.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;
class ZMainWindow;
class ZPluginPointSelection;
class ZPluginSelectPointPairsWithSplines;
class ZPluginWelking;

/// The welk mode: points, splines and the fit, in that order.
class ControllerWelk : public ControllerBase
{
    Q_OBJECT
public:
    ControllerWelk(ZMainWindow* window, std::shared_ptr<ModelsData> models, const ExchangeFolder& exchange,
                   QObject* parent = nullptr);

    bool hasUnsavedWork() const override;
    SaveResult saveResult() override;

    /// True when the boxes miss each other on some axis; touching counts.
    static bool boundingBoxesMiss(const QVector<QVector3D>& a, const QVector<QVector3D>& b);

private:
    ZMainWindow* m_window;
    std::shared_ptr<ModelsData> m_models;
    ExchangeFolder m_exchange;
    ZPluginPointSelection* m_points;
    ZPluginSelectPointPairsWithSplines* m_splines;
    ZPluginWelking* m_welking;
};

} // namespace WelkPlugin
