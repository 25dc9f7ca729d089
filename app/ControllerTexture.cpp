#include "ControllerTexture.h"

#include "ZMainWindow.h"
#include "ZPluginTexture.h"

#include "exchange/ModelsData.h"
#include "exchange/ResultWriter.h"
#include "steps/texture/ui/PluginTextureController.h"

#include <QMessageBox>
#include <QPushButton>

namespace WelkPlugin {

ControllerTexture::ControllerTexture(ZMainWindow* window, std::shared_ptr<ModelsData> models,
                                     const QString& settingsDir, QObject* parent)
    : ControllerBase(parent), m_window(window), m_models(std::move(models))
{
    m_page = new ZPluginTexture(m_models, window, settingsDir);
    connect(window, &ZMainWindow::windowShown, m_page, &ModuleContainerBase::windowShown);
    window->addPage(m_page->title(), m_page);
    window->setPagesComplete();
    window->setHint(hintToRichText(m_page->hint()));
}

bool ControllerTexture::hasUnsavedWork() const
{
    return m_page->controller()->isRunning() || m_page->controller()->hasResult();
}

QString ControllerTexture::unsavedWorkQuestion() const
{
    return QStringLiteral("The transferred texture will be lost.\nClose without sending anything to ZBrush?");
}

SaveResult ControllerTexture::saveResult()
{
    PluginTextureController* transfer = m_page->controller();
    if (transfer->isRunning()) {
        const auto answer = QMessageBox::question(
            m_window, QStringLiteral("ZWelk"),
            transfer->hasResult() ? QStringLiteral("A transfer is running.\nStop it and send the previous result "
                                                   "to ZBrush?")
                                  : QStringLiteral("A transfer is running.\nStop it?"),
            QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Cancel);
        if (answer != QMessageBox::Yes)
            return ResultCancelled;
        transfer->stopAndWait();
    }
    Welk::WImg image = transfer->result();
    if (image.isNull()) {
        const auto answer = QMessageBox::question(
            m_window, QStringLiteral("ZWelk"),
            QStringLiteral("No texture has been transferred, so there is nothing to send to ZBrush.\n"
                           "Close ZWelk anyway?"),
            QMessageBox::Close | QMessageBox::Cancel, QMessageBox::Cancel);
        return answer == QMessageBox::Close ? ResultNotWritten : ResultCancelled;
    }
    if (image.pixelType() != Welk::WImg::UInt8) {
        // ZBrush's texture maps are 8-bit; a deeper image is the user's call.
        QMessageBox box(QMessageBox::Question, QStringLiteral("ZWelk"),
                        QStringLiteral("The result has %1 a channel, like the source texture.\n"
                                       "ZBrush works with 8-bit textures. Convert the result to 8-bit?")
                            .arg(image.pixelType() == Welk::WImg::UInt16 ? QStringLiteral("16 bits")
                                                                         : QStringLiteral("32-bit floats")),
                        QMessageBox::Cancel, m_window);
        QPushButton* convert = box.addButton(QStringLiteral("Convert to 8-bit"), QMessageBox::AcceptRole);
        QPushButton* keep = box.addButton(QStringLiteral("Keep Depth"), QMessageBox::AcceptRole);
        box.setDefaultButton(convert);
        box.exec();
        if (box.clickedButton() == convert)
            image = toEightBit(image);
        else if (box.clickedButton() != keep)
            return ResultCancelled;
    }
    QString error;
    const SaveResult result = writeTextureResult(*m_models, image, error);
    if (!error.isEmpty())
        showCriticalError(error, m_window);
    return result;
}

} // namespace WelkPlugin
