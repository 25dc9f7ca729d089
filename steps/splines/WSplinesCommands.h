#pragma once

#include "SplinesState.h"

#include "document/commands/WCommand.h"

namespace WelkPlugin {

class SplineSelectionModel;

/// Base of the spline step's commands: each swaps part of the owner's
/// state. The part it replaces is copied from the owner when the command
/// first runs, so a command is built from the new values alone.
class WSplinesCommand : public Welk::WCommand
{
public:
    explicit WSplinesCommand(SplineSelectionModel* owner) : m_owner(owner) {}

    void execute() override;
    void undo() override;

protected:
    /// The owner's state with this command's part replaced by `from`.
    virtual SplinesState replaced(const SplinesState& current, const SplinesState& from) const = 0;

    SplineSelectionModel* m_owner;
    SplinesState m_new;
    SplinesState m_old;
    bool m_ranOnce = false;
};

/// "SplinesUpdate": the spline set and its list order.
class WSplinesUpdateCommand : public WSplinesCommand
{
public:
    WSplinesUpdateCommand(SplineSelectionModel* owner, const SplineMap& splines, const QStringList& order);
    Welk::WCommandDescription describe() const override;

protected:
    SplinesState replaced(const SplinesState& current, const SplinesState& from) const override;
};

/// "SplinesUpdateSelected": the selected name. It changes no data.
class WSplinesUpdateSelectedCommand : public WSplinesCommand
{
public:
    WSplinesUpdateSelectedCommand(SplineSelectionModel* owner, const QString& selected);
    bool changesState() const override { return false; }
    Welk::WCommandDescription describe() const override;

protected:
    SplinesState replaced(const SplinesState& current, const SplinesState& from) const override;
};

/// "SplinesAndSelectedUpdate": set, order and selected name together.
class WSplinesAndSelectedUpdateCommand : public WSplinesCommand
{
public:
    WSplinesAndSelectedUpdateCommand(SplineSelectionModel* owner, const SplinesState& state);
    Welk::WCommandDescription describe() const override;

protected:
    SplinesState replaced(const SplinesState& current, const SplinesState& from) const override;
};

} // namespace WelkPlugin
