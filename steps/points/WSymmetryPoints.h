#pragma once

#include <QObject>
#include <QString>
#include <QVector3D>
#include <QVector>

namespace Welk {

class ProgressInterface;

/// The topological symmetry of one model for the point step ("Posable
/// Symmetry"): found once, from connectivity alone, then used to mirror
/// vertices. Detection can take a while on a mesh without symmetry; call
/// `setSymmetryMode` from a worker thread with a progress reporter when the
/// window must stay responsive (the signals then arrive queued).
class WSymmetryPoints : public QObject
{
    Q_OBJECT
public:
    enum Mode
    {
        NoSymmetry = 0,
        TopologicalSymmetry = 2, ///< "Posable Symmetry"
    };

    explicit WSymmetryPoints(QObject* parent = nullptr);

    /// The model: positions and the polygon arrays (0-based corners, offsets
    /// with one entry past the last polygon). Forgets an earlier result.
    void setGeometry(const QVector<QVector3D>& vertices, const QVector<int>& polygonOffsets,
                     const QVector<int>& indices);

    /// Entering `TopologicalSymmetry` runs the detection the first time
    /// (never again after a failure, unless the user stopped it); every call
    /// ends with `symmDetectState`.
    void setSymmetryMode(int mode, ProgressInterface* progress = nullptr);
    int symmetryMode() const { return m_mode; }

    /// 0: a symmetry pairs every vertex; 1: detection ran and found none;
    /// -1: not run yet.
    int detectionState() const;

    /// The mirror of a vertex (0-based in and out). False unless the mode is
    /// topological and a symmetry was found.
    bool mirrorVertex(int vertexIndex, int& mirrored) const;

    /// The whole map, 0-based, one entry per vertex; empty without a result.
    const QVector<int>& vertexMap() const { return m_mirror; }

    /// Why the last detection failed, for the user; empty otherwise.
    const QString& message() const { return m_message; }

    /// The 1-based pairs as the engine returned them.
    const QVector<QVector<int>>& result() const { return m_result; }

    /// The number of connected parts (vertices joined by polygons), unused
    /// vertices not counted.
    static int connectedParts(int vertexCount, const QVector<int>& polygonOffsets, const QVector<int>& indices);

Q_SIGNALS:
    void symmDetectState(int state);
    void symmDetectStarted();
    void symmDetectFinished();

private:
    bool detect(ProgressInterface* progress);

    int m_mode = NoSymmetry;
    bool m_attempted = false;
    QVector<QVector3D> m_vertices;
    QVector<int> m_indices;
    QVector<int> m_polygonOffsets;
    QVector<QVector<int>> m_result;
    QVector<int> m_mirror;
    QString m_message;
};

} // namespace Welk
