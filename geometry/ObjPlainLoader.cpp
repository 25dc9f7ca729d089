#include "ObjPlainLoader.h"

#include "ObjLineParser.h"
#include "ObjNumberParser.h"
#include "ProgressInterface.h"

#include <QDebug>
#include <QFile>
#include <QHash>
#include <QTextStream>

#include <array>

namespace GeometryStack2 {

namespace {

using ObjLine::Token;

QString toString(const Token& token)
{
    return QString::fromUtf8(token.begin, int(token.size()));
}

/// Group and material names numbered in order of first use.
class NameTable
{
public:
    explicit NameTable(QStringList& names) : m_names(names) {}
    int select(const QString& name)
    {
        if (m_current >= 0 && m_names[m_current] == name)
            return m_current;
        auto it = m_numbers.constFind(name);
        if (it == m_numbers.constEnd()) {
            it = m_numbers.insert(name, m_names.size());
            m_names.append(name);
        }
        m_current = it.value();
        return m_current;
    }
    int current() const { return m_current; }

private:
    QStringList& m_names;
    QHash<QString, int> m_numbers;
    int m_current = -1;
};

} // namespace

bool ObjPlainLoader::read(const QString& path, MeshLists& lists, QString& error,
                          Welk::ProgressInterface* progress)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        error = QStringLiteral("Can not load file: ") + path;
        return false;
    }
    const qint64 fileSize = qMax<qint64>(1, file.size());
    QTextStream stream(&file);
    stream.setCodec("UTF-8");

    if (progress)
        progress->start(QStringLiteral("Loading obj file"), 100);

    std::array<Token, ObjLine::MaxTokens> tokens;
    NameTable groups(lists.polygroupNames);
    NameTable materials(lists.materialNames);
    int reportedPercent = -1;
    long long lineNumber = -1;
    QString line;
    bool ok = true;

    const auto fail = [&](const char* message) {
        error = QLatin1String(message) + QString::number(lineNumber);
        ok = false;
    };

    while (ok && stream.readLineInto(&line)) {
        ++lineNumber;
        const QByteArray bytes = line.toUtf8();
        if (bytes.size() > line.size()) {
            qDebug() << "File contains non-ascii characters";
            continue;
        }
        const int count = ObjLine::tokenize(bytes.constData(), bytes.constData() + bytes.size(), tokens.data());
        if (count == 0)
            continue;
        const Token& key = tokens[0];
        if (key.is("v")) {
            if (count < 4) {
                fail("Wrong vertex coordinate in line ");
                break;
            }
            lists.vertices.append(QVector3D(parseObjFloat(tokens[1].begin, tokens[1].end),
                                            parseObjFloat(tokens[2].begin, tokens[2].end),
                                            parseObjFloat(tokens[3].begin, tokens[3].end)));
        } else if (key.is("vt")) {
            if (count < 3) {
                fail("Wrong texture coordinate in line ");
                break;
            }
            lists.texCoords.append(QVector2D(parseObjFloat(tokens[1].begin, tokens[1].end),
                                             parseObjFloat(tokens[2].begin, tokens[2].end)));
        } else if (key.is("f")) {
            if (count < 4) {
                fail("Wrong face in line ");
                break;
            }
            lists.polygonOffsets.append(lists.vertexIndices.size());
            lists.polygonSizes.append(count - 1);
            for (int i = 1; i < count; ++i) {
                const ObjLine::Corner corner = ObjLine::splitCorner(tokens[i]);
                if (corner.vertex.size() == 0) {
                    fail("Wrong vertex index in line ");
                    break;
                }
                lists.vertexIndices.append(parseObjInt(corner.vertex.begin, corner.vertex.end) - 1);
                if (corner.texture.size() > 0)
                    lists.texCoordIndices.append(parseObjInt(corner.texture.begin, corner.texture.end) - 1);
            }
            if (!ok)
                break;
            lists.polygroupIds.append(groups.current());
            lists.materialIds.append(materials.current());
        } else if (key.is("g")) {
            if (count >= 2)
                groups.select(toString(tokens[1]));
        } else if (key.is("usemtl")) {
            if (count < 2) {
                fail("Wrong material name in line: ");
                break;
            }
            materials.select(toString(tokens[1]));
        } else if (key.is("mtllib")) {
            if (count < 2) {
                fail("Wrong material library name in line: ");
                break;
            }
            QStringList names;
            for (int i = 1; i < count; ++i)
                names.append(toString(tokens[i]));
            lists.mtllib += names.join(QLatin1Char(' '));
        }
        if (progress) {
            const int percent = int(file.pos() * 100 / fileSize);
            if (percent != reportedPercent) {
                reportedPercent = percent;
                progress->setValue(percent);
            }
        }
    }
    if (progress)
        progress->end();
    if (!ok)
        return false;

    if (!lists.polygonSizes.isEmpty())
        lists.polygonOffsets.append(lists.vertexIndices.size());
    if (lists.vertices.isEmpty()) {
        error = QStringLiteral("The file contains no vertices");
        return false;
    }
    if (lists.polygonSizes.isEmpty()) {
        error = QStringLiteral("The file contains no polygons");
        return false;
    }
    if (!lists.texCoordIndices.isEmpty() && lists.texCoordIndices.size() != lists.vertexIndices.size()) {
        error = QStringLiteral("File contains both: polygons with attached textures and polygons without them");
        return false;
    }
    return true;
}

} // namespace GeometryStack2
