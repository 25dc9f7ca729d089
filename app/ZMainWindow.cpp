#include "ZMainWindow.h"

#include "ZErrorBar.h"
#include "ZModelView.h"

#include "exchange/InstallationSettings.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace WelkPlugin {

namespace {

QPushButton* button(const QString& text, const QString& tip, QWidget* parent)
{
    auto* b = new QPushButton(text, parent);
    b->setToolTip(tip);
    return b;
}

} // namespace

ZMainWindow::ZMainWindow(bool isWelkMode, ApplicationMode mode, QScreen* screen, QWidget* parent)
    : QMainWindow(parent), m_mode(mode)
{
    setObjectName(QStringLiteral("mainWindow"));
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildStepBar());
    m_errorBar = new ZErrorBar(central);
    layout->addWidget(m_errorBar);

    auto* body = new QSplitter(Qt::Horizontal, central);
    auto* views = m_viewSplitter = new QSplitter(Qt::Horizontal, body);
    views->setObjectName(QStringLiteral("viewSplitter"));
    m_views[0] = new ZModelView(isWelkMode ? tr("Basemesh") : tr("Target"), views);
    m_views[1] = new ZModelView(isWelkMode ? tr("Scan") : tr("Source"), views);
    views->addWidget(m_views[0]);
    views->addWidget(m_views[1]);

    m_rightPanel = new QWidget(body);
    m_rightPanel->setObjectName(QStringLiteral("rightPanel"));
    m_rightPanel->setMinimumWidth(260);
    m_rightPanel->setMaximumWidth(420);
    auto* panelLayout = new QVBoxLayout(m_rightPanel);
    panelLayout->setContentsMargins(10, 6, 10, 6);
    m_pages = new QStackedWidget(m_rightPanel);
    panelLayout->addWidget(m_pages);
    body->addWidget(views);
    body->addWidget(m_rightPanel);
    body->setStretchFactor(0, 1);
    body->setStretchFactor(1, 0);
    body->setCollapsible(0, false);
    body->setSizes({1300, 300});
    layout->addWidget(body, 1);
    layout->addWidget(buildBottomBar());
    setCentralWidget(central);

    restoreWindowGeometry(screen);
}

ZMainWindow::~ZMainWindow()
{
    auto settings = InstallationSettings::open(QCoreApplication::applicationDirPath());
    settings->setValue(QStringLiteral("mainWindow/geometry"), saveGeometry());
}

QWidget* ZMainWindow::buildStepBar()
{
    auto* bar = new QWidget(this);
    bar->setObjectName(QStringLiteral("stepBar"));
    auto* layout = new QHBoxLayout(bar);
    layout->setContentsMargins(8, 6, 8, 6);
    m_tabs = new QTabBar(bar);
    m_tabs->setObjectName(QStringLiteral("stepTabs"));
    m_tabs->setDrawBase(false);
    m_tabs->setExpanding(false);
    layout->addWidget(m_tabs);
    layout->addStretch(1);
    m_prev = button(tr("Prev"), tr("Go back to the previous step (Alt+Left)"), bar);
    m_next = button(tr("Next"), tr("Go on to the next step (Alt+Right)"), bar);
    m_prev->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Left));
    m_next->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Right));
    m_done = button(tr("Done"), tr("Send the result back to ZBrush and close"), bar);
    m_done->setObjectName(QStringLiteral("doneButton"));
    m_cancel = button(tr("Cancel"), tr("Close without sending anything back to ZBrush"), bar);
    m_cancel->setObjectName(QStringLiteral("cancelButton"));
    layout->addWidget(m_prev);
    layout->addWidget(m_next);
    layout->addSpacing(16);
    layout->addWidget(m_done);
    layout->addWidget(m_cancel);

    auto* tools = new QToolButton(bar);
    tools->setText(QStringLiteral("\u2026"));
    tools->setToolTip(tr("More"));
    tools->setPopupMode(QToolButton::InstantPopup);
    auto* menu = new QMenu(tools);
    QAction* cleanUp = menu->addAction(tr("Clean Up Exchange Folder"));
    cleanUp->setToolTip(tr("Delete earlier exports and results from the exchange's mesh folder"));
    connect(cleanUp, &QAction::triggered, this, &ZMainWindow::clearUnusedFiles);
    if (m_mode == WelkMode) {
        QAction* presets = menu->addAction(tr("Preset Settings..."));
        presets->setToolTip(tr("The fit's shorter settings dialog, with the Default and Custom presets"));
        connect(presets, &QAction::triggered, this, &ZMainWindow::presetSettingsRequested);
    }
    tools->setMenu(menu);
    layout->addWidget(tools);

    connect(m_tabs, &QTabBar::tabBarClicked, this, [this](int index) {
        if (index < 0)
            return;
        setCurrentPage(index);
        Q_EMIT tabClicked(index);
    });
    connect(m_prev, &QPushButton::clicked, this, [this] {
        setCurrentPage(currentPage() - 1);
        Q_EMIT prevClicked();
    });
    connect(m_next, &QPushButton::clicked, this, [this] {
        setCurrentPage(currentPage() + 1);
        Q_EMIT nextClicked();
    });
    connect(m_done, &QPushButton::clicked, this, &ZMainWindow::doneClicked);
    connect(m_cancel, &QPushButton::clicked, this, &ZMainWindow::cancelClicked);
    return bar;
}

QWidget* ZMainWindow::buildBottomBar()
{
    auto* bar = new QWidget(this);
    bar->setObjectName(QStringLiteral("bottomBar"));
    auto* layout = new QHBoxLayout(bar);
    layout->setContentsMargins(8, 3, 8, 3);
    m_hint = new QLabel(bar);
    m_hint->setTextFormat(Qt::RichText);
    // A long hint wraps rather than widening the window, which would push
    // Done and the panel off the screen when the progress bar appears.
    m_hint->setWordWrap(true);
    m_hint->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_hint->setMinimumWidth(200);
    layout->addWidget(m_hint, 1);
    m_syncViews = new QCheckBox(tr("Sync Views"), bar);
    m_syncViews->setToolTip(tr("Move both cameras together"));
    layout->addWidget(m_syncViews);
    layout->addSpacing(12);
    m_progress = new QProgressBar(bar);
    m_progress->setMinimumWidth(260);
    m_progress->setFormat(QString());
    m_stop = button(tr("Stop"), tr("Stop the running job at the next safe point"), bar);
    layout->addWidget(m_progress);
    layout->addWidget(m_stop);
    m_progress->hide();
    m_stop->hide();
    connect(m_stop, &QPushButton::clicked, this, &ZMainWindow::stopClicked);
    connect(m_syncViews, &QCheckBox::toggled, this, &ZMainWindow::syncViewsToggled);
    return bar;
}

void ZMainWindow::addPage(const QString& title, QWidget* page)
{
    m_pages->addWidget(page);
    m_tabs->addTab(title);
    m_tabs->setTabToolTip(m_tabs->count() - 1, page->toolTip());
}

void ZMainWindow::setPagesComplete()
{
    setCurrentPage(0);
}

int ZMainWindow::currentPage() const
{
    return m_pages->currentIndex();
}
int ZMainWindow::pageCount() const
{
    return m_pages->count();
}

void ZMainWindow::setCurrentPage(int index)
{
    if (index < 0 || index >= m_pages->count())
        return;
    m_pages->setCurrentIndex(index);
    m_tabs->setCurrentIndex(index);
    updateButtons();
}

void ZMainWindow::updateButtons()
{
    m_prev->setEnabled(!m_stepsLocked && currentPage() > 0);
    m_next->setEnabled(!m_stepsLocked && currentPage() + 1 < pageCount());
    m_tabs->setEnabled(!m_stepsLocked);
    m_prev->setVisible(pageCount() > 1);
    m_next->setVisible(pageCount() > 1);
}

void ZMainWindow::addViewPane(QWidget* pane)
{
    m_viewSplitter->addWidget(pane);
    m_viewSplitter->setCollapsible(m_viewSplitter->indexOf(pane), false);
    const int count = m_viewSplitter->count();
    QList<int> sizes;
    for (int i = 0; i < count; ++i)
        sizes.append(std::max(1, m_viewSplitter->width() / count));
    m_viewSplitter->setSizes(sizes);
}

void ZMainWindow::setStepsLocked(bool locked)
{
    m_stepsLocked = locked;
    updateButtons();
}

void ZMainWindow::showWarning(int number, const QString& text)
{
    m_errorBar->showWarning(number, text);
}
void ZMainWindow::hideWarning(int number)
{
    m_errorBar->hideWarning(number);
}

void ZMainWindow::setHint(const QString& hint)
{
    m_hint->setText(hint);
}

void ZMainWindow::setProgress(int value, int maximum, const QString& text)
{
    const bool visible = value >= 0;
    m_progress->setVisible(visible);
    m_stop->setVisible(visible);
    if (!visible)
        return;
    m_progress->setRange(0, maximum);
    m_progress->setValue(value);
    m_progress->setFormat(text.isEmpty() ? QStringLiteral("%p%") : text + QStringLiteral("  %p%"));
}

void ZMainWindow::closeEvent(QCloseEvent* event)
{
    // Closing the window is a Cancel: the controller decides and quits.
    event->ignore();
    Q_EMIT cancelClicked();
}

void ZMainWindow::restoreWindowGeometry(QScreen* screen)
{
    auto settings = InstallationSettings::open(QCoreApplication::applicationDirPath());
    const QByteArray saved = settings->value(QStringLiteral("mainWindow/geometry")).toByteArray();
    const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1600, 1000);
    if (!saved.isEmpty() && restoreGeometry(saved)) {
        // A geometry saved on a larger screen would leave bars off-screen.
        if (!isMaximized() && !isFullScreen())
            setGeometry(clampedToArea(geometry(), area));
        return;
    }
    const QSize size(qMin(1600, area.width()), qMin(1000, area.height()));
    setGeometry(QRect(area.center() - QPoint(size.width() / 2, size.height() / 2), size));
}

QRect ZMainWindow::clampedToArea(const QRect& rect, const QRect& area)
{
    if (area.contains(rect))
        return rect;
    const QRect& usable = area;
    QRect out = rect;
    out.setWidth(qMin(rect.width(), usable.width()));
    out.setHeight(qMin(rect.height(), usable.height()));
    if (out.right() > usable.right())
        out.moveRight(usable.right());
    if (out.bottom() > usable.bottom())
        out.moveBottom(usable.bottom());
    if (out.left() < usable.left())
        out.moveLeft(usable.left());
    if (out.top() < usable.top())
        out.moveTop(usable.top());
    return out;
}

} // namespace WelkPlugin
