#pragma once

#include "WelkingWorker.h"

namespace CartoonWelking {

/// Makes a fitter per graph level for `WelkingWorker2::run`.
class AbstractFactoryFitter
{
public:
    virtual ~AbstractFactoryFitter() = default;
    /// The fitter of `level`, kept by the factory until the next call.
    virtual EmbeddedGraphDeformer::Abstract::Deformer&
    fitter(int level, const std::vector<EmbeddedGraphDeformer::ControlPoint>& controls,
           const EmbeddedGraphDeformer::EnergyWeights& weights, float rigidity) = 0;
};

/// The "CartoonWelking" fit: the fast fit's schedule, matching, callback
/// and signals, with nodes that may shear and scale. `rigidity` is the
/// stored "Rigity" setting; the fit passes 0 to its deformers, so the value
/// is carried but does not act.
class WelkingWorker2 : public WelkingAcceleratedVersion::WelkingWorker
{
    Q_OBJECT
public:
    WelkingWorker2(const QVector<QVector3D>& sourceVertices, const QVector<int>& sourceTriangles,
                   const QMatrix4x4& sourceTransform, const QVector<QVector3D>& targetVertices,
                   const QVector<QVector3D>& targetNormals, const QMatrix4x4& targetTransform,
                   const QVector<int>& targetTriangles, const QVector<Welk::WPointOnTriangle>& sourcePoints,
                   const QVector<Welk::WPointOnTriangle>& targetPoints, const QVector<quint8>& excluded,
                   std::vector<WelkingAcceleratedVersion::EmbeddedGraphLevel> levels,
                   const WelkingAcceleratedVersion::AcceleratedParameters& parameters, float rigidity,
                   float normalisedSize, Welk::ProgressInterface* progress, QObject* parent = nullptr);

    float rigidity() const { return m_rigidity; }
    using WelkingWorker::run;
    /// Runs with a fitter per level from `factory`.
    void run(AbstractFactoryFitter* factory);

private:
    float m_rigidity;
};

class CartoonWelkingWorker : public WelkingWorker2
{
    Q_OBJECT
public:
    using WelkingWorker2::WelkingWorker2;

public slots:
    void start() override;
};

} // namespace CartoonWelking
