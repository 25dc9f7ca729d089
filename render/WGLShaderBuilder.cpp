#include "WGLShaderBuilder.h"

#include <QDebug>
#include <QFile>
#include <QOpenGLShaderProgram>

// Shaders are compiled into this static library; Qt needs the resource
// registered by name before the first read.
static void initShaderResources()
{
    Q_INIT_RESOURCE(shaders);
}

namespace Welk {

namespace {

const char* kVertexFailed = "Failed to compile the vertex shader!\n%1\n%2";
const char* kFragmentFailed = "Failed to compile the fragment shader!\n%1\n%2";

} // namespace

QByteArray WGLShaderBuilder::header(const QStringList& defines)
{
    QByteArray text = QStringLiteral("#version %1\r\n").arg(120).toUtf8();
    for (const QString& define : defines)
        text += QStringLiteral("#define %1\r\n").arg(define).toUtf8();
    return text;
}

QByteArray WGLShaderBuilder::readSource(const QString& path)
{
    static const bool registered = (initShaderResources(), true);
    Q_UNUSED(registered);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCritical() << "Failed to read file:" << path;
        return {};
    }
    return file.readAll();
}

std::unique_ptr<QOpenGLShaderProgram> WGLShaderBuilder::fromFiles(const QString& vertexPath,
                                                                  const QString& fragmentPath,
                                                                  const QStringList& defines)
{
    const QByteArray head = header(defines);
    auto program = std::make_unique<QOpenGLShaderProgram>();
    // Every vertex shader fetches its attributes through the same helpers.
    const QByteArray vertex =
        head + readSource(QStringLiteral(":/shaders/common.glsl")) + readSource(vertexPath);
    if (!program->addShaderFromSourceCode(QOpenGLShader::Vertex, vertex)) {
        qCritical().noquote() << QString::fromLatin1(kVertexFailed).arg(vertexPath, program->log());
        return nullptr;
    }
    if (!program->addShaderFromSourceCode(QOpenGLShader::Fragment, head + readSource(fragmentPath))) {
        qCritical().noquote() << QString::fromLatin1(kFragmentFailed).arg(fragmentPath, program->log());
        return nullptr;
    }
    if (!program->link()) {
        qCritical().noquote() << QStringLiteral(
                                     "Failed to link the shader program!\nVertex shader: %1\nFragment "
                                     "shader: %2\n%3")
                                     .arg(vertexPath, fragmentPath, program->log());
        return nullptr;
    }
    return program;
}

std::unique_ptr<QOpenGLShaderProgram> WGLShaderBuilder::fromSources(const QByteArray& vertexSource,
                                                                    const QByteArray& fragmentSource)
{
    const QByteArray head = header({});
    const QByteArray vertex = head + vertexSource;
    const QByteArray fragment = head + fragmentSource;
    auto program = std::make_unique<QOpenGLShaderProgram>();
    if (!program->addShaderFromSourceCode(QOpenGLShader::Vertex, vertex)) {
        qCritical().noquote()
            << QString::fromLatin1(kVertexFailed).arg(QStringLiteral("<source>"), program->log());
        return nullptr;
    }
    if (!program->addShaderFromSourceCode(QOpenGLShader::Fragment, fragment)) {
        qCritical().noquote()
            << QString::fromLatin1(kFragmentFailed).arg(QStringLiteral("<source>"), program->log());
        return nullptr;
    }
    if (!program->link()) {
        qCritical().noquote()
            << QStringLiteral(
                   "Failed to link the shader program!\n%1\nVertex shader:\n%2\nFragment shader:\n%3")
                   .arg(program->log(), QString::fromUtf8(vertex), QString::fromUtf8(fragment));
        return nullptr;
    }
    return program;
}

} // namespace Welk
