#include "ObjPlainLoader.h"

#include "ObjNumberParser.h"
#include "ProgressInterface.h"

#include <QDebug>
#include <QFile>
#include <QHash>
#include <QTextStream>

#include <array>
#include <cstring>

namespace GeometryStack2 {

namespace {

constexpr int MaxTokens = 256;

struct Token
{
    const char* begin;
    const char* end;
    bool operator==(const char* word) const
    {
        const size_t n = std::strlen(word);
        return size_t(end - begin) == n && std::memcmp(begin, word, n) == 0;
    }
    QString toString() const { return QString::fromUtf8(begin, int(end - begin)); }
};

int tokenize(const char* p, const char* end, std::array<Token, MaxTokens>& tokens)
{
    int count = 0;
    while (p < end && count < MaxTokens) {
        while (p < end && (*p == ' ' || *p == '\t' || *p == '\r'))
            ++p;
        if (p == end)
            break;
        const char* start = p;
        while (p < end && *p != ' ' && *p != '\t' && *p != '\r')
            ++p;
        tokens[count++] = Token{start, p};
    }
    return count;
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

    std::array<Token, MaxTokens> tokens;
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
        const int count = tokenize(bytes.constData(), bytes.constData() + bytes.size(), tokens);
        if (count == 0)
            continue;
        const Token& key = tokens[0];
        if (key == "v") {
            if (count < 4) {
                fail("Wrong vertex coordinate in line ");
                break;
            }
            lists.vertices.append(QVector3D(parseObjFloat(tokens[1].begin, tokens[1].end),
                                            parseObjFloat(tokens[2].begin, tokens[2].end),
                                            parseObjFloat(tokens[3].begin, tokens[3].end)));
        } else if (key == "vt") {
            if (count < 3) {
                fail("Wrong texture coordinate in line ");
                break;
            }
            lists.texCoords.append(QVector2D(parseObjFloat(tokens[1].begin, tokens[1].end),
                                             parseObjFloat(tokens[2].begin, tokens[2].end)));
        } else if (key == "f") {
            if (count < 4) {
                fail("Wrong face in line ");
                break;
            }
            lists.polygonOffsets.append(lists.vertexIndices.size());
            lists.polygonSizes.append(count - 1);
            for (int i = 1; i < count; ++i) {
                const char* p = tokens[i].begin;
                const char* end = tokens[i].end;
                const char* slash = static_cast<const char*>(std::memchr(p, '/', size_t(end - p)));
                const char* vertexEnd = slash ? slash : end;
                if (vertexEnd == p) {
                    fail("Wrong vertex index in line ");
                    break;
                }
                lists.vertexIndices.append(parseObjInt(p, vertexEnd) - 1);
                if (slash) {
                    const char* texBegin = slash + 1;
                    const char* texEnd =
                        static_cast<const char*>(std::memchr(texBegin, '/', size_t(end - texBegin)));
                    if (!texEnd)
                        texEnd = end;
                    if (texEnd > texBegin)
                        lists.texCoordIndices.append(parseObjInt(texBegin, texEnd) - 1);
                }
            }
            lists.polygroupIds.append(groups.current());
            lists.materialIds.append(materials.current());
        } else if (key == "g") {
            if (count >= 2)
                groups.select(tokens[1].toString());
        } else if (key == "usemtl") {
            if (count < 2) {
                fail("Wrong material specification in line: ");
                break;
            }
            materials.select(tokens[1].toString());
        } else if (key == "mtllib") {
            if (count < 2) {
                fail("Wrong material library specification in line: ");
                break;
            }
            QStringList names;
            for (int i = 1; i < count; ++i)
                names.append(tokens[i].toString());
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
