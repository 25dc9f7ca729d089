#include "ZPluginWelking.h"

#include "ModelsText.h"

#include <QLabel>
#include <QVBoxLayout>

namespace WelkPlugin {

ZPluginWelking::ZPluginWelking(std::shared_ptr<ModelsData> models, QWidget* parent)
    : ModuleContainerBase(tr("Welk"), parent), m_models(std::move(models))
{
    addSection(tr("Fit"),
               tr("The basemesh takes on the scan's shape and keeps its own topology. "
                  "<b>Done</b> sends the basemesh back to ZBrush as it stands."));
    m_disabledNote = new QLabel(tr("The models do not overlap: move them onto each other in ZBrush "
                                   "before fitting."),
                                this);
    m_disabledNote->setWordWrap(true);
    m_disabledNote->setStyleSheet(QStringLiteral("color: #ffd9a0;"));
    m_disabledNote->hide();
    panelLayout()->addWidget(m_disabledNote);
    addSection(tr("Models"), modelsText(*m_models));
}

QString ZPluginWelking::hint() const
{
    return tr("*Done* sends the basemesh back to ZBrush, *Cancel* closes without a result.");
}

void ZPluginWelking::setComputeEnabled(bool enabled)
{
    m_computeEnabled = enabled;
    m_disabledNote->setVisible(!enabled);
}

void ZPluginWelking::setBarLocked(bool isLocked)
{
    Q_EMIT barLockedChanged(isLocked);
}

} // namespace WelkPlugin
