#include "ControllerTexture.h"

#include "ZMainWindow.h"
#include "ZPluginTexture.h"

#include <QMessageBox>

namespace WelkPlugin {

ControllerTexture::ControllerTexture(ZMainWindow* window, std::shared_ptr<ModelsData> models, QObject* parent)
    : ControllerBase(parent), m_window(window), m_models(std::move(models))
{
    m_page = new ZPluginTexture(m_models, window);
    connect(window, &ZMainWindow::windowShown, m_page, &ModuleContainerBase::windowShown);
    window->addPage(m_page->title(), m_page);
    window->setPagesComplete();
    window->setHint(hintToRichText(m_page->hint()));
}

SaveResult ControllerTexture::saveResult()
{
    const auto answer = QMessageBox::question(
        m_window, QStringLiteral("ZWelk"),
        QStringLiteral("No texture has been transferred, so there is nothing to send to ZBrush.\n"
                       "Close ZWelk anyway?"),
        QMessageBox::Close | QMessageBox::Cancel, QMessageBox::Cancel);
    return answer == QMessageBox::Close ? ResultNotWritten : ResultCancelled;
}

} // namespace WelkPlugin
