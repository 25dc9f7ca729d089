#pragma once

#include <QImage>
#include <QWidget>

#include <memory>

class QLabel;

namespace Welk {
class WCamera2D;
class WContextNavigation2DZBrush;
class WGLSharedContext;
class WImg;
class WViewport;
class ZGLImage2D;
} // namespace Welk

namespace WelkPlugin {

/// A flat view of an image, with a header like the model panes': right drag
/// pans, Ctrl + right drag and the wheel zoom, F shows the whole image.
/// Empty texels show a checkerboard.
class ZImageView : public QWidget
{
    Q_OBJECT
public:
    ZImageView(const QString& role, Welk::WGLSharedContext* context, QWidget* parent = nullptr);
    ~ZImageView() override;

    /// Shows `image` (a null image empties the view); the first image, and
    /// one of another size, is framed whole.
    void setImage(const Welk::WImg& image);
    /// A line under the title, such as the image's size.
    void setDetails(const QString& text);

    QString headerText() const;
    Welk::WViewport* viewport() const { return m_viewport; }
    Welk::WCamera2D& camera() const { return *m_camera; }
    void fitToView();
    QImage grabImage();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    Welk::WGLSharedContext* m_context;
    QLabel* m_title;
    QLabel* m_details;
    std::shared_ptr<Welk::WCamera2D> m_camera;
    std::unique_ptr<Welk::ZGLImage2D> m_image;
    Welk::WViewport* m_viewport;
    Welk::WContextNavigation2DZBrush* m_navigation;
    bool m_framed = false;
};

} // namespace WelkPlugin
