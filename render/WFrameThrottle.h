#pragma once

#include <QObject>
#include <QVector3D>
#include <QVector>

class QTimer;

namespace Welk {

/// Passes on at most one shape per interval from a stream of shapes (a
/// running fit's intermediate vertices), always the newest. Drawing costs
/// the machine's processor when OpenGL runs in software, and every frame
/// drawn during a fit is time the fit does not get; a few frames a second
/// show the fit's progress just as well.
class WFrameThrottle : public QObject
{
    Q_OBJECT
public:
    explicit WFrameThrottle(int intervalMs = 1000, QObject* parent = nullptr);

    int interval() const;
    /// Shapes passed on so far.
    int passed() const { return m_passed; }

public slots:
    /// The newest shape; passed on at once when the last one is older than
    /// the interval, otherwise when the interval ends.
    void push(const QVector<QVector3D>& vertices);
    /// Passes on a waiting shape now (the end of a fit).
    void flush();
    /// Drops a waiting shape.
    void clear();

signals:
    void ready(const QVector<QVector3D>& vertices);

private:
    void pass();

    QTimer* m_timer;
    QVector<QVector3D> m_waiting;
    bool m_hasWaiting = false;
    int m_passed = 0;
};

} // namespace Welk
