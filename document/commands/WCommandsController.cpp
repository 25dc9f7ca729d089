#include "WCommandsController.h"

#include <QDebug>

namespace Welk {

WCommandsController::WCommandsController(int maxCommands, QObject* parent)
    : QObject(parent), m_maxCommands(maxCommands)
{
    qRegisterMetaType<Welk::WCommand*>("Welk::WCommand*");
    connect(this, &WCommandsController::posted, this, &WCommandsController::process, Qt::QueuedConnection);
}

WCommandsController::~WCommandsController()
{
    qDeleteAll(m_commands);
}

void WCommandsController::process(WCommand* command)
{
    if (!command)
        return;
    command->execute();
    if (m_logging)
        qDebug().noquote() << QStringLiteral("Do command: %1").arg(command->describe().toString());
    // Doing something new after undoing past the mark throws the marked
    // state away with the redo branch.
    if (m_markValid && m_currentIndex < m_markedIndex && command->changesState())
        m_markValid = false;
    // A mark inside the branch about to go survives only where the commands
    // between here and it left the state alone; it then stands here.
    if (m_markValid && m_currentIndex < m_markedIndex) {
        for (int i = m_currentIndex + 1; i <= m_markedIndex && m_markValid; ++i)
            m_markValid = !m_commands[i]->changesState();
        m_markedIndex = m_currentIndex;
    }
    while (m_commands.size() > m_currentIndex + 1)
        delete m_commands.takeLast();
    if (m_maxCommands > 0 && m_commands.size() >= m_maxCommands) {
        delete m_commands.takeFirst();
        --m_currentIndex;
        if (m_markValid && --m_markedIndex < -1)
            m_markValid = false;
    }
    m_commands.append(command);
    m_currentIndex = m_commands.size() - 1;
    Q_EMIT commandExecuted();
}

bool WCommandsController::undo()
{
    if (m_currentIndex < 0)
        return false;
    WCommand* command = m_commands[m_currentIndex];
    if (m_logging)
        qDebug().noquote() << QStringLiteral("Undo command: %1").arg(command->describe().toString());
    command->undo();
    --m_currentIndex;
    Q_EMIT commandExecuted();
    return true;
}

bool WCommandsController::redo()
{
    if (m_currentIndex + 1 >= m_commands.size())
        return false;
    WCommand* command = m_commands[m_currentIndex + 1];
    if (m_logging)
        qDebug().noquote() << QStringLiteral("Redo command: %1").arg(command->describe().toString());
    command->execute();
    ++m_currentIndex;
    Q_EMIT commandExecuted();
    return true;
}

void WCommandsController::setMark()
{
    m_markedIndex = m_currentIndex;
    m_markValid = true;
}

bool WCommandsController::isAtMark() const
{
    if (!m_markValid)
        return false;
    const int lo = std::min(m_markedIndex, m_currentIndex), hi = std::max(m_markedIndex, m_currentIndex);
    for (int i = lo + 1; i <= hi; ++i)
        if (m_commands[i]->changesState())
            return false;
    return true;
}

void WCommandsController::clear()
{
    qDeleteAll(m_commands);
    m_commands.clear();
    m_currentIndex = -1;
    m_markedIndex = -1;
    m_markValid = true;
    Q_EMIT commandExecuted();
}

} // namespace Welk
