// Undo, redo, the end of a redo branch, the mark and queued commands.
#include "document/commands/WCommandsController.h"

#include <QCoreApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using Welk::WCommand;
using Welk::WCommandDescription;
using Welk::WCommandsController;

/// Appends a value to a shared list; counts its own destruction.
class AppendCommand : public WCommand
{
public:
    AppendCommand(QVector<int>& list, int value, int* deleted = nullptr, bool changes = true)
        : m_list(list), m_value(value), m_deleted(deleted), m_changes(changes)
    {
    }
    ~AppendCommand() override
    {
        if (m_deleted)
            ++*m_deleted;
    }
    void execute() override { m_list.append(m_value); }
    void undo() override
    {
        ASSERT_FALSE(m_list.isEmpty());
        ASSERT_EQ(m_list.last(), m_value);
        m_list.removeLast();
    }
    bool changesState() const override { return m_changes; }
    WCommandDescription describe() const override { return {QStringLiteral("Append %1").arg(m_value), {}}; }

private:
    QVector<int>& m_list;
    int m_value;
    int* m_deleted;
    bool m_changes;
};

QCoreApplication* application()
{
    static int argc = 1;
    static char name[] = "commands_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    return app ? app : QCoreApplication::instance();
}

TEST(WCommandsController, UndoAndRedoAtTheEndsAnswerFalseAndStaySilent)
{
    WCommandsController controller;
    controller.setLogging(false);
    QSignalSpy executed(&controller, &WCommandsController::commandExecuted);
    EXPECT_FALSE(controller.undo());
    EXPECT_FALSE(controller.redo());
    EXPECT_EQ(executed.count(), 0);

    QVector<int> list;
    controller.process(new AppendCommand(list, 1));
    EXPECT_EQ(executed.count(), 1);
    EXPECT_FALSE(controller.redo());
    EXPECT_EQ(executed.count(), 1);
    EXPECT_TRUE(controller.undo());
    EXPECT_FALSE(controller.undo());
    EXPECT_EQ(executed.count(), 2);
    EXPECT_TRUE(list.isEmpty());
}

TEST(WCommandsController, UndoAllThenRedoAllEndsWhereEachStarted)
{
    WCommandsController controller;
    controller.setLogging(false);
    QVector<int> list;
    for (int i = 0; i < 5; ++i)
        controller.process(new AppendCommand(list, 10 + i));
    const QVector<int> done = list;
    EXPECT_EQ(controller.currentIndex(), 4);
    while (controller.undo()) {
    }
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(controller.currentIndex(), -1);
    while (controller.redo()) {
    }
    EXPECT_EQ(list, done);
    // Interleaved: undo two, redo one, undo one, redo two.
    controller.undo();
    controller.undo();
    controller.redo();
    controller.undo();
    controller.redo();
    controller.redo();
    EXPECT_EQ(list, done);
    EXPECT_FALSE(controller.canRedo());
}

TEST(WCommandsController, NewCommandAfterUndoDeletesTheRedoBranch)
{
    int deleted = 0;
    QVector<int> list;
    {
        WCommandsController controller;
        controller.setLogging(false);
        for (int i = 0; i < 4; ++i)
            controller.process(new AppendCommand(list, i, &deleted));
        controller.undo();
        controller.undo();
        EXPECT_EQ(deleted, 0);
        controller.process(new AppendCommand(list, 9, &deleted));
        EXPECT_EQ(deleted, 2);
        EXPECT_FALSE(controller.redo());
        EXPECT_EQ(list, (QVector<int>{0, 1, 9}));
        EXPECT_EQ(controller.count(), 3);
    }
    // The controller deletes what it still holds.
    EXPECT_EQ(deleted, 5);
}

TEST(WCommandsController, MarkFollowsUndoRedoAndIsLostWithItsBranch)
{
    WCommandsController controller;
    controller.setLogging(false);
    QVector<int> list;
    EXPECT_TRUE(controller.isAtMark());
    controller.process(new AppendCommand(list, 1));
    controller.process(new AppendCommand(list, 2));
    EXPECT_FALSE(controller.isAtMark());
    controller.setMark();
    EXPECT_TRUE(controller.isAtMark());
    controller.process(new AppendCommand(list, 3));
    EXPECT_FALSE(controller.isAtMark());
    controller.undo();
    EXPECT_TRUE(controller.isAtMark());
    controller.undo();
    EXPECT_FALSE(controller.isAtMark());
    controller.redo();
    EXPECT_TRUE(controller.isAtMark());

    // A command that leaves the state alone keeps the history at the mark.
    controller.process(new AppendCommand(list, 4, nullptr, false));
    EXPECT_TRUE(controller.isAtMark());
    controller.undo();

    // Undo past the mark and do something new: the marked state is gone for
    // good, whatever is undone or redone later.
    controller.undo();
    controller.process(new AppendCommand(list, 5));
    EXPECT_FALSE(controller.isAtMark());
    controller.undo();
    EXPECT_FALSE(controller.isAtMark());
    controller.redo();
    EXPECT_FALSE(controller.isAtMark());
    controller.setMark();
    EXPECT_TRUE(controller.isAtMark());
}

TEST(WCommandsController, MarkSurvivesABranchOfViewOnlyCommands)
{
    WCommandsController controller;
    controller.setLogging(false);
    QVector<int> list;
    controller.process(new AppendCommand(list, 1));
    controller.process(new AppendCommand(list, 2, nullptr, false));
    controller.setMark();
    controller.undo();
    // Doing a view-only command here drops one that did not change state
    // either, so the state is still the marked one.
    controller.process(new AppendCommand(list, 3, nullptr, false));
    EXPECT_TRUE(controller.isAtMark());
    controller.process(new AppendCommand(list, 4));
    EXPECT_FALSE(controller.isAtMark());
    controller.undo();
    EXPECT_TRUE(controller.isAtMark());
}

TEST(WCommandsController, LimitDropsTheOldestCommand)
{
    int deleted = 0;
    QVector<int> list;
    WCommandsController controller(2);
    controller.setLogging(false);
    for (int i = 0; i < 4; ++i)
        controller.process(new AppendCommand(list, i, &deleted));
    EXPECT_EQ(controller.count(), 2);
    EXPECT_EQ(deleted, 2);
    EXPECT_TRUE(controller.undo());
    EXPECT_TRUE(controller.undo());
    EXPECT_FALSE(controller.undo());
    EXPECT_EQ(list, (QVector<int>{0, 1}));
}

TEST(WCommandsController, PostedCommandRunsAfterTheCurrentHandler)
{
    QCoreApplication* app = application();
    ASSERT_NE(app, nullptr);
    WCommandsController controller;
    controller.setLogging(false);
    QVector<int> list;
    Q_EMIT controller.posted(new AppendCommand(list, 7));
    EXPECT_TRUE(list.isEmpty());
    QCoreApplication::processEvents();
    EXPECT_EQ(list, QVector<int>{7});
    EXPECT_TRUE(controller.undo());
    EXPECT_TRUE(list.isEmpty());
}

TEST(WCommandsController, DescriptionsPrintAsAnIndentedTree)
{
    const WCommandDescription tree{QStringLiteral("Group"),
                                   {{QStringLiteral("First"), {}},
                                    {QStringLiteral("Second"), {{QStringLiteral("Inner"), {}}}}}};
    EXPECT_EQ(tree.toString(), QStringLiteral("Group\n  First\n  Second\n    Inner"));
}

} // namespace
