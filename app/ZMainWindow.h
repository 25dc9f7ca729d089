#pragma once

#include "exchange/ApplicationMode.h"

#include <QMainWindow>

class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QScreen;
class QSplitter;
class QStackedWidget;
class QTabBar;

namespace WelkPlugin {

class ZErrorBar;
class ZModelView;

/// The one window of a run: the step bar with Prev / Next / Done / Cancel,
/// the warning bar, the two model panes, the current step's panel and the
/// bottom bar with hints and progress.
class ZMainWindow : public QMainWindow
{
    Q_OBJECT
public:
    /// Warning numbers of the error bar.
    enum Warning
    {
        WarningNoIntersection = 0,
        WarningBasemeshResolution = 1,
        WarningScale = 2, ///< the models' sizes differ by more than 10x
    };

    ZMainWindow(bool isWelkMode, ApplicationMode mode, QScreen* screen, QWidget* parent = nullptr);
    ~ZMainWindow() override;

    /// Appends a step page; its tab reads `title`.
    void addPage(const QString& title, QWidget* page);
    /// Called once all pages are in: selects the first and sets the buttons.
    void setPagesComplete();
    int currentPage() const;
    int pageCount() const;
    void setCurrentPage(int index);

    ZErrorBar* errorBar() const { return m_errorBar; }
    ZModelView* modelView(int side) const { return m_views[side]; }
    /// Adds a pane to the right of the two model panes (the texture step's
    /// result view); the panes share the width equally.
    void addViewPane(QWidget* pane);

    void showWarning(int number, const QString& text);
    void hideWarning(int number);
    void setHint(const QString& hint);
    /// Shows the progress bar with `text`; a negative value hides it.
    void setProgress(int value, int maximum, const QString& text);

    QPushButton* doneButton() const { return m_done; }
    QPushButton* cancelButton() const { return m_cancel; }
    QCheckBox* syncViewsBox() const { return m_syncViews; }

    /// While a long job runs the steps cannot change.
    void setStepsLocked(bool locked);

    /// Moves and shrinks `rect` until it lies inside `area`.
    static QRect clampedToArea(const QRect& rect, const QRect& area);

signals:
    void nextClicked();
    void prevClicked();
    void doneClicked();
    void cancelClicked();
    void tabClicked(int index);
    void windowShown();
    void stopClicked();
    void syncViewsToggled(bool synchronised);
    void clearUnusedFiles();
    void presetSettingsRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* buildStepBar();
    QWidget* buildBottomBar();
    void updateButtons();
    void restoreWindowGeometry(QScreen* screen);

    ApplicationMode m_mode;
    QTabBar* m_tabs = nullptr;
    QPushButton* m_prev = nullptr;
    QPushButton* m_next = nullptr;
    QPushButton* m_done = nullptr;
    QPushButton* m_cancel = nullptr;
    ZErrorBar* m_errorBar = nullptr;
    ZModelView* m_views[2] = {nullptr, nullptr};
    QSplitter* m_viewSplitter = nullptr;
    QStackedWidget* m_pages = nullptr;
    QWidget* m_rightPanel = nullptr;
    QLabel* m_hint = nullptr;
    QCheckBox* m_syncViews = nullptr;
    QProgressBar* m_progress = nullptr;
    QPushButton* m_stop = nullptr;
    bool m_stepsLocked = false;
};

} // namespace WelkPlugin
