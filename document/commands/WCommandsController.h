#pragma once

#include "WCommand.h"

#include <QObject>
#include <QVector>

namespace Welk {

/// The undo history of one editing step: every step that edits has its own
/// controller, so undo never crosses steps. Lives on the GUI thread.
///
/// `process` runs a command and appends it; a command run after undos ends
/// the redo branch, whose commands are deleted. `post` runs a command after
/// the current event handler has returned (a queued call), for commands made
/// inside handlers. The mark records one position as clean (the state last
/// saved or handed on); `isAtMark` answers whether the history stands there,
/// ignoring commands that do not change state.
class WCommandsController : public QObject
{
    Q_OBJECT
public:
    /// `maxCommands` limits the history (oldest dropped first); -1 means no
    /// limit.
    explicit WCommandsController(int maxCommands = -1, QObject* parent = nullptr);
    ~WCommandsController() override;

    bool undo();
    bool redo();

    bool canUndo() const { return m_currentIndex >= 0; }
    bool canRedo() const { return m_currentIndex + 1 < m_commands.size(); }
    int count() const { return m_commands.size(); }
    /// Position of the last command run, -1 when none.
    int currentIndex() const { return m_currentIndex; }
    const WCommand* command(int index) const { return m_commands.value(index); }

    /// Marks the current position as the clean state.
    void setMark();
    /// True while the history stands at the mark, or differs from it only by
    /// commands that do not change state.
    bool isAtMark() const;
    int markedIndex() const { return m_markValid ? m_markedIndex : -2; }

    /// Deletes every command; the empty history is the new mark.
    void clear();

    /// Debug-log lines "Do command: ...", on by default.
    void setLogging(bool logging) { m_logging = logging; }

public Q_SLOTS:
    /// Runs `command` and takes ownership of it. Each command may be
    /// processed once.
    void process(Welk::WCommand* command);

Q_SIGNALS:
    /// After every do, undo and redo.
    void commandExecuted();
    /// Queued into `process`: emit it to run a command later.
    void posted(Welk::WCommand* command);

private:
    QVector<WCommand*> m_commands;
    int m_maxCommands = -1;
    int m_currentIndex = -1;
    int m_markedIndex = -1;
    bool m_markValid = true;
    bool m_logging = true;
};

} // namespace Welk

Q_DECLARE_METATYPE(Welk::WCommand*)
