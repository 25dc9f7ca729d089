#pragma once

#include "ModuleContainerBase.h"

#include "steps/splines/SplineFile.h"

#include <memory>

class QLabel;
class QListWidget;
class QPushButton;
class QSpinBox;

namespace WelkPlugin {

class ModelsData;
class PointSelectionModel;
class SplineSelectionModel;
class SplineViewHost;
class ZMainWindow;

/// Splines drawn on both models: each view edits its model's splines with
/// the mouse, the panel lists them and holds the tools (rename, resample,
/// mirror, reverse, order, delete, files) for the spline selected last.
/// Splines with the same name on both models become point pairs of the fit.
class ZPluginSelectPointPairsWithSplines : public ModuleContainerBase
{
    Q_OBJECT
public:
    /// `picker` is the point step's model: its tracers serve the picking.
    ZPluginSelectPointPairsWithSplines(std::shared_ptr<ModelsData> models, ZMainWindow* window,
                                       const PointSelectionModel* picker);
    ~ZPluginSelectPointPairsWithSplines() override;
    QString hint() const override;

    SplineSelectionModel* splines(int side) const { return m_splines[side].get(); }
    /// Whether either model has a spline, paired or not: work that Cancel
    /// would lose.
    bool hasSplines() const;
    SplineViewHost* host(int side) const { return m_hosts[side]; }
    /// The side the tools act on: the view worked in last.
    int activeSide() const { return m_side; }
    void setActiveSide(int side);
    /// Mouse editing is on only while the step is shown.
    void setActive(bool active);

public slots:
    void undo();
    void redo();

private:
    void onSplinesChanged(int side);
    void updatePairs();
    void refreshList(int side);
    QString selectedName() const;
    void rename();
    void resample();
    void mirror();
    /// "Select splines format"; false when the user cancels.
    bool askFormat(SplineFile::Form& form);
    void importSplines();
    void exportSplines();
    void warn(const QString& title, const QString& text);

    std::shared_ptr<ModelsData> m_models;
    ZMainWindow* m_window;
    std::unique_ptr<SplineSelectionModel> m_splines[2];
    SplineViewHost* m_hosts[2] = {nullptr, nullptr};
    QListWidget* m_lists[2] = {nullptr, nullptr};
    QSpinBox* m_points = nullptr;
    QLabel* m_pairs = nullptr;
    int m_side = 0;
    bool m_active = false;
};

} // namespace WelkPlugin
