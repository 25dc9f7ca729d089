#include "ZPluginSelectPointPairsWithSplines.h"

#include "PanelHeading.h"

#include "RenameSplineDialog.h"
#include "SplineViewHost.h"
#include "ZGLViewport.h"
#include "ZMainWindow.h"
#include "ZModelView.h"

#include "exchange/ModelsData.h"
#include "steps/points/PointSelectionModel.h"
#include "steps/splines/SplinePointPairs.h"
#include "steps/splines/SplineSelectionModel.h"
#include "steps/splines/SplineStepTexts.h"

#include <QFileDialog>
#include <QGridLayout>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QSpinBox>
#include <QVBoxLayout>

namespace WelkPlugin {

namespace {

const QString SideNames[2] = {QStringLiteral("Basemesh"), QStringLiteral("Scan")};

QPushButton* toolButton(const QString& text, const QString& tip, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setToolTip(tip);
    return button;
}

} // namespace

ZPluginSelectPointPairsWithSplines::ZPluginSelectPointPairsWithSplines(std::shared_ptr<ModelsData> models,
                                                                       ZMainWindow* window,
                                                                       const PointSelectionModel* picker)
    : ModuleContainerBase(tr("Splines"), window), m_models(std::move(models)), m_window(window)
{
    QVBoxLayout* layout = panelLayout();
    for (int side = 0; side < 2; ++side) {
        layout->addWidget(panelHeading(tr("%1 Splines").arg(SideNames[side]), this));
        m_lists[side] = new QListWidget(this);
        m_lists[side]->setObjectName(side == 0 ? QStringLiteral("baseSplines") : QStringLiteral("scanSplines"));
        m_lists[side]->setToolTip(tr("The %1's splines in their order; a click selects one for the tools")
                                      .arg(SideNames[side].toLower()));
        m_lists[side]->setMaximumHeight(110);
        layout->addWidget(m_lists[side]);
    }

    layout->addWidget(panelHeading(tr("Tools"), this));
    auto* grid = new QGridLayout;
    auto* renameButton = toolButton(tr("Rename..."), tr("Give the selected spline another name; a spline pairs "
                                                        "with the other model's spline of the same name"),
                                    this);
    auto* resampleButton = toolButton(tr("Resample..."), tr("Replace the selected spline's control points by "
                                                            "a number of points along its curve"),
                                      this);
    auto* mirrorButton =
        toolButton(SplineStepTexts::mirrorLabel(), SplineStepTexts::mirrorTip(), this);
    auto* reverseButton =
        toolButton(SplineStepTexts::reverseLabel(), SplineStepTexts::reverseTip(), this);
    auto* deleteButton = toolButton(tr("Delete"), SplineStepTexts::deleteTip(), this);
    auto* clearButton = toolButton(tr("Clear"), SplineStepTexts::clearTip(), this);
    auto* previousButton =
        toolButton(SplineStepTexts::swapPrevLabel(), SplineStepTexts::swapPrevTip(), this);
    auto* nextButton = toolButton(SplineStepTexts::swapNextLabel(), SplineStepTexts::swapNextTip(), this);
    auto* importButton = toolButton(tr("Import..."), SplineStepTexts::importTip(), this);
    auto* exportButton = toolButton(tr("Export..."), SplineStepTexts::exportTip(), this);
    auto* undoButton = toolButton(tr("Undo"), tr("Undo the last spline edit (Ctrl+Z)"), this);
    auto* redoButton = toolButton(tr("Redo"), tr("Redo the edit undone last (Ctrl+Shift+Z or Ctrl+Y)"), this);
    QPushButton* buttons[] = {renameButton, resampleButton, mirrorButton, reverseButton, previousButton, nextButton,
                              deleteButton, clearButton,    importButton, exportButton,  undoButton,     redoButton};
    for (int i = 0; i < 12; ++i)
        grid->addWidget(buttons[i], i / 2, i % 2);
    layout->addLayout(grid);

    auto* pointsRow = new QHBoxLayout;
    pointsRow->addWidget(new QLabel(tr("Points per Spline"), this));
    m_points = new QSpinBox(this);
    m_points->setRange(SplineSelectionModel::kMinPoints, SplineSelectionModel::kMaxPoints);
    m_points->setToolTip(tr("How many point pairs each pair of same-named splines gives the fit"));
    pointsRow->addWidget(m_points);
    layout->addLayout(pointsRow);
    m_pairs = new QLabel(this);
    m_pairs->setObjectName(QStringLiteral("splinePairs"));
    m_pairs->setWordWrap(true);
    layout->addWidget(m_pairs);
    addSection(tr("How splines pair"),
               tr("A spline on the basemesh pairs with the scan's spline of the same name, running the same "
                  "way. Mirror and Import help to keep the names in step."));

    for (int side = 0; side < 2; ++side) {
        m_splines[side] = std::make_unique<SplineSelectionModel>();
        if (const auto* mesh = m_models->geometry(side)) {
            m_splines[side]->setMesh(*mesh);
            // The picking scene answers nearest-point queries too: a dense scan
            // then needs no second search tree, whose build would stall the
            // first paired spline for seconds.
            if (picker && picker->mesh(side).triangleCount() == mesh->triangleCount() &&
                picker->mesh(side).vertexCount() == mesh->vertexCount()) {
                m_splines[side]->setClosestPointLookup(
                    [picker, side](const QVector3D& p) { return picker->closestPoint(side, p); });
                m_splines[side]->prepareDragFinder();
            }
        }
        ZModelView* view = window->modelView(side);
        if (view->viewport() && m_models->geometry(side)) {
            m_hosts[side] = new SplineViewHost(view, side, m_splines[side].get(), picker);
            connect(m_hosts[side], &SplineViewHost::used, this, [this, side] { setActiveSide(side); });
            connect(m_hosts[side], &SplineViewHost::hintChanged, this, [this, side](const QString& text) {
                if (m_active && side == m_side)
                    m_window->setHint(hintToRichText(text));
            });
        }
        connect(m_splines[side].get(), &SplineSelectionModel::splinesChanged, this,
                [this, side] { onSplinesChanged(side); });
        connect(m_lists[side], &QListWidget::itemClicked, this, [this, side](QListWidgetItem* item) {
            setActiveSide(side);
            m_splines[side]->select(item->text());
        });
    }
    m_points->setValue(m_splines[0]->pointsPerSpline());
    connect(m_points, QOverload<int>::of(&QSpinBox::valueChanged), this, [this](int count) {
        for (auto& model : m_splines)
            model->setPointsPerSpline(count);
        updatePairs();
    });

    connect(renameButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::rename);
    connect(resampleButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::resample);
    connect(mirrorButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::mirror);
    connect(reverseButton, &QPushButton::clicked, this, [this] { m_splines[m_side]->reverse(selectedName()); });
    connect(previousButton, &QPushButton::clicked, this,
            [this] { m_splines[m_side]->swapPrevious(selectedName()); });
    connect(nextButton, &QPushButton::clicked, this, [this] { m_splines[m_side]->swapNext(selectedName()); });
    connect(deleteButton, &QPushButton::clicked, this, [this] { m_splines[m_side]->deleteSpline(selectedName()); });
    connect(clearButton, &QPushButton::clicked, this, [this] { m_splines[m_side]->clear(); });
    connect(importButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::importSplines);
    connect(exportButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::exportSplines);
    connect(undoButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::undo);
    connect(redoButton, &QPushButton::clicked, this, &ZPluginSelectPointPairsWithSplines::redo);
    connect(new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z), window), &QShortcut::activated, this,
            &ZPluginSelectPointPairsWithSplines::undo);
    for (const QKeySequence& keys :
         {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), QKeySequence(Qt::CTRL | Qt::Key_Y)})
        connect(new QShortcut(keys, window), &QShortcut::activated, this, &ZPluginSelectPointPairsWithSplines::redo);
    updatePairs();
}

ZPluginSelectPointPairsWithSplines::~ZPluginSelectPointPairsWithSplines() = default;

QString ZPluginSelectPointPairsWithSplines::hint() const
{
    if (m_hosts[m_side])
        return m_hosts[m_side]->hint();
    return tr("Splines pair whole contours of the two models; *Ctrl+Z* undoes the last edit.");
}

void ZPluginSelectPointPairsWithSplines::setActiveSide(int side)
{
    m_side = side;
    for (int s = 0; s < 2; ++s)
        m_lists[s]->setStyleSheet(s == side ? QStringLiteral("QListWidget { border: 1px solid #e8912d; }")
                                            : QString());
    if (m_active)
        m_window->setHint(hintToRichText(hint()));
}

void ZPluginSelectPointPairsWithSplines::setActive(bool active)
{
    m_active = active;
    for (SplineViewHost* host : m_hosts)
        if (host)
            host->setActive(active);
    if (active)
        setActiveSide(m_side);
}

void ZPluginSelectPointPairsWithSplines::undo()
{
    if (m_active)
        m_splines[m_side]->undo();
}

void ZPluginSelectPointPairsWithSplines::redo()
{
    if (m_active)
        m_splines[m_side]->redo();
}

void ZPluginSelectPointPairsWithSplines::onSplinesChanged(int side)
{
    refreshList(side);
    if (m_hosts[side])
        m_hosts[side]->controller().redraw();
    updatePairs();
}

bool ZPluginSelectPointPairsWithSplines::hasSplines() const
{
    return !m_splines[0]->splines().isEmpty() || !m_splines[1]->splines().isEmpty();
}

void ZPluginSelectPointPairsWithSplines::refreshList(int side)
{
    QListWidget* list = m_lists[side];
    const QSignalBlocker blocker(list);
    list->clear();
    const QString selected = m_splines[side]->selected();
    for (const QString& name : m_splines[side]->order()) {
        auto* item = new QListWidgetItem(name, list);
        if (name == selected)
            list->setCurrentItem(item);
    }
}

void ZPluginSelectPointPairsWithSplines::updatePairs()
{
    const SplinePointPairs::Result pairs = SplinePointPairs::fromModels(*m_splines[0], *m_splines[1]);
    m_models->setSplinePoints(pairs.base, 0);
    m_models->setSplinePoints(pairs.target, 1);
    QString text = tr("%n spline pair(s) give the fit %1 point pairs.", nullptr, pairs.paired.size())
                       .arg(pairs.base.size());
    if (!pairs.unpairedBase.isEmpty() || !pairs.unpairedTarget.isEmpty())
        text += QLatin1Char(' ') + tr("Without a partner: %1.")
                                       .arg((pairs.unpairedBase + pairs.unpairedTarget).join(QStringLiteral(", ")));
    m_pairs->setText(text);
}

QString ZPluginSelectPointPairsWithSplines::selectedName() const
{
    return m_splines[m_side]->selected();
}

void ZPluginSelectPointPairsWithSplines::warn(const QString& title, const QString& text)
{
    QMessageBox::warning(m_window, title, text);
}

void ZPluginSelectPointPairsWithSplines::rename()
{
    const QString current = selectedName();
    if (current.isEmpty())
        return;
    SplineSelectionModel* model = m_splines[m_side].get();
    RenameSplineDialog dialog(
        current, [model, current](const QString& name) { return model->validateName(name, current); }, m_window);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QString error = model->rename(current, dialog.name());
    if (!error.isEmpty())
        warn(SplineStepTexts::renameTitle(), error);
}

void ZPluginSelectPointPairsWithSplines::resample()
{
    const QString name = selectedName();
    if (name.isEmpty())
        return;
    bool ok = false;
    const int count = QInputDialog::getInt(
        m_window, SplineStepTexts::resampleTitle(), SplineStepTexts::resampleLabel(),
        std::max(SplineSelectionModel::kMinPoints, int(m_splines[m_side]->splines().value(name).size())),
        SplineSelectionModel::kMinPoints, SplineSelectionModel::kMaxPoints, 1, &ok);
    if (!ok)
        return;
    const QString error = m_splines[m_side]->resample(name, count);
    if (!error.isEmpty())
        warn(SplineStepTexts::resampleTitle(), error);
}

void ZPluginSelectPointPairsWithSplines::mirror()
{
    const QString name = selectedName();
    if (name.isEmpty())
        return;
    SplineSelectionModel::MirrorOutcome outcome = m_splines[m_side]->mirror(name);
    if (outcome.kind == SplineSelectionModel::MirrorOutcome::Question &&
        QMessageBox::question(m_window, QStringLiteral("Mirror spline"), outcome.text) == QMessageBox::Yes)
        outcome = m_splines[m_side]->mirror(name, true);
    if (outcome.kind == SplineSelectionModel::MirrorOutcome::Failed)
        warn(outcome.title, outcome.text);
}

bool ZPluginSelectPointPairsWithSplines::askFormat(SplineFile::Form& form)
{
    bool ok = false;
    const QStringList forms = SplineFile::formNames();
    const QString chosen =
        QInputDialog::getItem(m_window, SplineStepTexts::formatTitle(), tr("Format"), forms, 0, false, &ok);
    form = SplineFile::Form(std::max(0, int(forms.indexOf(chosen))));
    return ok;
}

void ZPluginSelectPointPairsWithSplines::importSplines()
{
    if (!m_splines[m_side]->hasGeometry()) {
        warn(SplineStepTexts::importFailedTitle(), QStringLiteral("Missing geometry"));
        return;
    }
    SplineFile::Form form = SplineFile::NamedPointsOnTriangles;
    if (!askFormat(form))
        return;
    // Where the point step's files go too: the exchange folder's files.
    const QString path = QFileDialog::getOpenFileName(m_window, SplineStepTexts::importTitle(),
                                                      m_models->exchange().filesDirPath(),
                                                      SplineStepTexts::importFilter());
    if (path.isEmpty())
        return;
    const QString error = m_splines[m_side]->importFile(path, form);
    if (!error.isEmpty())
        warn(SplineStepTexts::importFailedTitle(), error);
}

void ZPluginSelectPointPairsWithSplines::exportSplines()
{
    SplineSelectionModel* model = m_splines[m_side].get();
    if (model->splines().isEmpty()) {
        warn(SplineStepTexts::exportDoneTitle(), QStringLiteral("Missing splines"));
        return;
    }
    if (!model->hasGeometry()) {
        warn(SplineStepTexts::exportDoneTitle(), QStringLiteral("Missing geometry"));
        return;
    }
    SplineFile::Form form = SplineFile::NamedPointsOnTriangles;
    if (!askFormat(form))
        return;
    QFileDialog dialog(m_window, SplineStepTexts::exportTitle(), m_models->exchange().filesDirPath(),
                       SplineStepTexts::exportFilter());
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(SplineStepTexts::exportSuffix());
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return;
    const QString error = model->exportFile(dialog.selectedFiles().first(), form);
    if (!error.isEmpty())
        warn(SplineStepTexts::exportDoneTitle(), error);
    else
        QMessageBox::information(m_window, SplineStepTexts::exportDoneTitle(), SplineStepTexts::exportDone());
}

} // namespace WelkPlugin
