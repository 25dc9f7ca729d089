#pragma once

#include "exchange/PluginGLVisualParams.h"

#include <QImage>
#include <QWidget>

class QLabel;
class QToolButton;

namespace GeometryStack2 {
class GeomStack;
}

namespace WelkPlugin {

/// A model's pane: a header with its role, file name and counts and the
/// display toggles, over a front view of the model drawn as shaded points.
class ZModelPreview : public QWidget
{
    Q_OBJECT
public:
    ZModelPreview(const QString& role, QWidget* parent = nullptr);

    void setModel(const GeometryStack2::GeomStack* mesh, const QString& fileName);
    void setVisualParams(const PluginGLVisualParams& params);
    void setToggles(bool wireframe, bool texture, bool lighting);

    /// The header's text, for tests and accessibility.
    QString headerText() const;

signals:
    void wireframeToggled(bool visible);
    void textureToggled(bool visible);
    void lightingToggled(bool enabled);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void renderModel();

    const GeometryStack2::GeomStack* m_mesh = nullptr;
    PluginGLVisualParams m_params;
    QWidget* m_header;
    QLabel* m_title;
    QLabel* m_counts;
    QToolButton* m_wireframe;
    QToolButton* m_texture;
    QToolButton* m_lighting;
    QString m_role;
    QImage m_image;
};

} // namespace WelkPlugin
