#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class QOpenGLShaderProgram;

namespace Welk {

/// Builds shader programs from the program's resources. Every source is
/// GLSL 1.20 without a version line: the builder puts "#version 120" first
/// and the requested defines after it. Failures are logged at critical level
/// and give null.
class WGLShaderBuilder
{
public:
    static std::unique_ptr<QOpenGLShaderProgram>
    fromFiles(const QString& vertexPath, const QString& fragmentPath, const QStringList& defines = {});
    static std::unique_ptr<QOpenGLShaderProgram> fromSources(const QByteArray& vertexSource,
                                                             const QByteArray& fragmentSource);

    /// The text put before a source: version line, then one line per define.
    static QByteArray header(const QStringList& defines);
    /// The resource's text; empty (and logged) when it cannot be read.
    static QByteArray readSource(const QString& path);
};

} // namespace Welk
