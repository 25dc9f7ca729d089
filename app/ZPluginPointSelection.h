#pragma once

#include "ModuleContainerBase.h"

#include <memory>

class QCheckBox;
class QLabel;
class QPushButton;

namespace Welk {
class WSymmetryPoints;
}

namespace WelkPlugin {

class ModelsData;
class PointPickContext;
class PointSelectionModel;
class ZMainWindow;

/// Correspondence points: pairs of points on the basemesh and the scan,
/// placed, slid and deleted with the mouse in both views, with undo, point
/// files per side and mirroring through the topological symmetry.
class ZPluginPointSelection : public ModuleContainerBase
{
    Q_OBJECT
public:
    ZPluginPointSelection(std::shared_ptr<ModelsData> models, ZMainWindow* window);
    ~ZPluginPointSelection() override;
    QString hint() const override;

    PointSelectionModel* model() const { return m_model.get(); }
    PointPickContext* pickContext(int side) const { return m_contexts[side]; }
    /// Mouse editing is on only while the step is shown.
    void setActive(bool active);

    /// What Load and Save do after their file dialogs; the texts are for the
    /// error bar (empty on success).
    QString loadPoints(int side, const QString& path);
    QString savePoints(int side, const QString& path);

public slots:
    void undo();
    void redo();

private:
    void onPointsChanged();
    void showMessage(const QString& text);
    void askLoad(int side);
    void askSave(int side);
    void setSymmetry(bool on);

    std::shared_ptr<ModelsData> m_models;
    ZMainWindow* m_window;
    std::unique_ptr<PointSelectionModel> m_model;
    PointPickContext* m_contexts[2] = {nullptr, nullptr};
    Welk::WSymmetryPoints* m_symmetry[2] = {nullptr, nullptr};
    QLabel* m_counts;
    QLabel* m_message;
    QCheckBox* m_symmetryBox;
    QPushButton* m_undo;
    QPushButton* m_redo;
    bool m_active = true;
};

} // namespace WelkPlugin
