#include "ZPluginPointSelection.h"

#include "ModelsText.h"
#include "PointPickContext.h"
#include "WGLMarkers.h"
#include "ZGLViewport.h"
#include "ZMainWindow.h"
#include "ZModelView.h"

#include "exchange/InstallationSettings.h"
#include "exchange/ModelsData.h"
#include "geometry/ProgressInterface.h"
#include "steps/points/PointSelectionModel.h"
#include "steps/points/WSymmetryPoints.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace WelkPlugin {

namespace {

QPushButton* panelButton(const QString& text, const QString& tip, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setToolTip(tip);
    return button;
}

const QString SideNames[2] = {QStringLiteral("Basemesh"), QStringLiteral("Scan")};

} // namespace

ZPluginPointSelection::ZPluginPointSelection(std::shared_ptr<ModelsData> models, ZMainWindow* window)
    : ModuleContainerBase(tr("Points"), window), m_models(std::move(models)), m_window(window),
      m_model(std::make_unique<PointSelectionModel>())
{
    addSection(tr("Correspondence points"),
               tr("Pairs of points tell the fit which part of the basemesh belongs where on the scan: "
                  "the i-th point on the basemesh pairs with the i-th point on the scan."));
    m_counts = new QLabel(this);
    panelLayout()->addWidget(m_counts);
    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setStyleSheet(QStringLiteral("color: #ffd9a0;"));
    m_message->hide();
    panelLayout()->addWidget(m_message);

    auto* grid = new QGridLayout;
    m_undo = panelButton(tr("Undo"), tr("Undo the last point edit (Ctrl+Z)"), this);
    m_redo = panelButton(tr("Redo"), tr("Redo the edit undone last (Ctrl+Shift+Z or Ctrl+Y)"), this);
    grid->addWidget(m_undo, 0, 1);
    grid->addWidget(m_redo, 0, 2);
    for (int side = 0; side < 2; ++side) {
        auto* load = panelButton(
            tr("Load"), tr("Replace the %1's points by those of a point file").arg(SideNames[side].toLower()),
            this);
        auto* save = panelButton(
            tr("Save"), tr("Write the %1's points to a point file").arg(SideNames[side].toLower()), this);
        load->setObjectName(QStringLiteral("load%1Points").arg(SideNames[side]));
        save->setObjectName(QStringLiteral("save%1Points").arg(SideNames[side]));
        grid->addWidget(new QLabel(SideNames[side], this), 1 + side, 0);
        grid->addWidget(load, 1 + side, 1);
        grid->addWidget(save, 1 + side, 2);
        connect(load, &QPushButton::clicked, this, [this, side] { askLoad(side); });
        connect(save, &QPushButton::clicked, this, [this, side] { askSave(side); });
    }
    auto* clear = panelButton(tr("Clear All"), tr("Delete every point on both models"), this);
    grid->addWidget(clear, 3, 1, 1, 2);
    panelLayout()->addLayout(grid);
    m_symmetryBox = new QCheckBox(QStringLiteral("Posable Symmetry"), this);
    m_symmetryBox->setToolTip(tr("Mirror each new point through the mesh's topological symmetry"));
    panelLayout()->addWidget(m_symmetryBox);
    addSection(tr("Models"), modelsText(*m_models));

    connect(m_undo, &QPushButton::clicked, this, &ZPluginPointSelection::undo);
    connect(m_redo, &QPushButton::clicked, this, &ZPluginPointSelection::redo);
    connect(clear, &QPushButton::clicked, this, [this] { m_model->clearPoints(-1); });
    connect(m_symmetryBox, &QCheckBox::toggled, this, &ZPluginPointSelection::setSymmetry);
    for (const QKeySequence& keys : {QKeySequence(Qt::CTRL | Qt::Key_Z)})
        connect(new QShortcut(keys, window), &QShortcut::activated, this, &ZPluginPointSelection::undo);
    for (const QKeySequence& keys :
         {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), QKeySequence(Qt::CTRL | Qt::Key_Y)})
        connect(new QShortcut(keys, window), &QShortcut::activated, this, &ZPluginPointSelection::redo);

    for (int side = 0; side < 2; ++side) {
        const auto* mesh = m_models->geometry(side);
        const QVector<quint8>& polygonMask = m_models->polygonMaskFlags(side);
        // Masked polygons hide what is behind them but take no point.
        const QVector<quint8> usable =
            polygonMask.isEmpty()
                ? QVector<quint8>()
                : GeometryStack2::GeomStackTriangulated::invertedMask(mesh->triangleMask(polygonMask));
        m_model->setMesh(side, *mesh, usable);
        m_symmetry[side] = new Welk::WSymmetryPoints(this);
        m_symmetry[side]->setGeometry(mesh->vertices(), mesh->polygonOffsets(), mesh->vertexIndices());
        ZModelView* view = window->modelView(side);
        if (view->viewport()) {
            m_contexts[side] = new PointPickContext(view, side, m_model.get());
            connect(m_contexts[side], &PointPickContext::refused, this, &ZPluginPointSelection::showMessage);
        }
    }
    // Points stay on the shape the left view shows (a fit result, for one).
    connect(window->modelView(0), &ZModelView::verticesShown, this,
            [this](const QVector<QVector3D>& vertices) { m_model->updateVertices(0, vertices); });
    connect(m_model.get(), &PointSelectionModel::pointsChanged, this,
            &ZPluginPointSelection::onPointsChanged);
    onPointsChanged();
}

ZPluginPointSelection::~ZPluginPointSelection() = default;

QString ZPluginPointSelection::hint() const
{
    return tr(
        "*Left click* adds a point, *drag* slides it, *Ctrl* + click deletes it; *Ctrl+Z* undoes. "
        "*F* fits the view, *S* snaps to the nearest axis; right drag rotates, *Alt* + right drag pans.");
}

void ZPluginPointSelection::setActive(bool active)
{
    m_active = active;
    for (PointPickContext* context : m_contexts)
        if (context)
            context->setEnabled(active);
}

void ZPluginPointSelection::undo()
{
    if (m_active)
        m_model->undo();
}

void ZPluginPointSelection::redo()
{
    if (m_active)
        m_model->redo();
}

void ZPluginPointSelection::onPointsChanged()
{
    for (int side = 0; side < 2; ++side)
        m_models->setCorrespondencePoints(m_model->points(side), side);
    const int counts[2] = {int(m_model->points(0).size()), int(m_model->points(1).size())};
    for (int side = 0; side < 2; ++side) {
        QVector<Welk::WGLMarkers::Marker> markers;
        for (int i = 0; i < counts[side]; ++i) {
            const bool paired = i < counts[1 - side];
            markers.append({m_model->position(side, i),
                            paired ? Welk::WGLMarkers::pairColor(i) : QColor(150, 150, 150), i + 1, false});
        }
        ZModelView* view = m_window->modelView(side);
        view->markers()->setMarkers(markers);
        if (view->viewport())
            view->viewport()->update();
    }
    // Unpaired points are the normal state between two clicks, so they are
    // counted here rather than raised in the error bar, whose rows would
    // resize the views under the cursor.
    const int unpaired = m_model->unpairedCount();
    m_counts->setText(unpaired == 0 ? tr("%1 pairs").arg(m_model->pairCount())
                                    : tr("%1 pairs, <span style=\"color:#ffd9a0\">%2 unpaired</span>")
                                          .arg(m_model->pairCount())
                                          .arg(unpaired));
    m_counts->setToolTip(m_model->pairingMessage());
    m_undo->setEnabled(m_model->commands()->canUndo());
    m_redo->setEnabled(m_model->commands()->canRedo());
}

void ZPluginPointSelection::showMessage(const QString& text)
{
    m_message->setText(text);
    m_message->setVisible(!text.isEmpty());
}

QString ZPluginPointSelection::loadPoints(int side, const QString& path)
{
    const QString error = m_model->loadPoints(side, path);
    showMessage(error.isEmpty() ? QString()
                                : QStringLiteral("%1: %2").arg(QFileInfo(path).fileName(), error));
    return error;
}

QString ZPluginPointSelection::savePoints(int side, const QString& path)
{
    const QString error = m_model->savePoints(side, path);
    showMessage(error);
    return error;
}

void ZPluginPointSelection::askLoad(int side)
{
    const QString path = QFileDialog::getOpenFileName(
        this, tr("Load %1 Points").arg(SideNames[side]), m_models->exchange().filesDirPath(),
        QStringLiteral("Point files (*.txt *.json);;All files (*)"));
    if (!path.isEmpty())
        loadPoints(side, path);
}

void ZPluginPointSelection::askSave(int side)
{
    const QString path = QFileDialog::getSaveFileName(this, tr("Save %1 Points").arg(SideNames[side]),
                                                      m_models->exchange().filesDirPath(),
                                                      QStringLiteral("Point files (*.txt *.json)"));
    if (!path.isEmpty())
        savePoints(side, path);
}

void ZPluginPointSelection::setSymmetry(bool on)
{
    m_model->setSymmetryEnabled(on);
    if (!on)
        return;
    // Detection runs once per model, off the GUI thread, with the progress bar showing.
    m_symmetryBox->setEnabled(false);
    m_window->setProgress(0, 0, tr("Detecting the topological symmetry"));
    auto* watcher = new QFutureWatcher<void>(this);
    Welk::WSymmetryPoints* symmetry[2] = {m_symmetry[0], m_symmetry[1]};
    connect(watcher, &QFutureWatcher<void>::finished, this, [this, watcher] {
        watcher->deleteLater();
        m_window->setProgress(-1, 0, QString());
        m_symmetryBox->setEnabled(true);
        QStringList problems;
        for (int side = 0; side < 2; ++side) {
            if (m_symmetry[side]->detectionState() == 0)
                m_model->setSymmetry(side, m_symmetry[side]);
            else if (!m_symmetry[side]->message().isEmpty())
                problems << QStringLiteral("%1: %2").arg(SideNames[side], m_symmetry[side]->message());
        }
        showMessage(problems.join(QLatin1Char('\n')));
        if (m_model->symmetry(0) == nullptr && m_model->symmetry(1) == nullptr)
            m_symmetryBox->setChecked(false);
    });
    watcher->setFuture(QtConcurrent::run([symmetry] {
        for (Welk::WSymmetryPoints* s : symmetry)
            if (s->detectionState() < 0)
                s->setSymmetryMode(Welk::WSymmetryPoints::TopologicalSymmetry);
    }));
}

} // namespace WelkPlugin
