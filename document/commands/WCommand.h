#pragma once

#include <QString>
#include <QVector>

#include <memory>

namespace Welk {

/// A printable description of a command: a line of text and the
/// descriptions of its parts, for commands made of others.
struct WCommandDescription
{
    QString text;
    QVector<WCommandDescription> children;

    /// The text, then each child's lines indented by two spaces.
    QString toString(int indent = 0) const;
};

/// One edit the user can take back. `execute` does it, and does it again on
/// redo; `undo` takes it back. A command must stay valid to run again after
/// an undo. Commands are handed to a `WCommandsController`, which owns them.
class WCommand
{
public:
    virtual ~WCommand();

    virtual void execute() = 0;
    virtual void undo() = 0;

    /// Whether running this command moves the document away from its saved
    /// (marked) state. Commands that only change a view answer false.
    virtual bool changesState() const { return true; }

    /// Extra content a caller may want to inspect; none by default.
    virtual std::shared_ptr<void> details() const { return nullptr; }

    virtual WCommandDescription describe() const = 0;
};

} // namespace Welk
