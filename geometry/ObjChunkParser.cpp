#include "ObjChunkParser.h"

#include "ObjLineParser.h"
#include "ObjNumberParser.h"

#include <algorithm>
#include <unordered_map>

namespace GeometryStack2 {
namespace ObjChunkParser {

using ObjLine::Kind;
using ObjLine::Token;

namespace {

const char* lineEnd(const char* p, const char* end)
{
    const void* newline = std::memchr(p, '\n', size_t(end - p));
    return newline ? static_cast<const char*>(newline) : end;
}

/// Lines the counter does not count may still be ones the parser must
/// check: "mtllib", and "usemtl" without a name.
bool mayBeMaterialLine(const char* p, const char* end)
{
    while (p < end && (*p == ' ' || *p == '\t'))
        ++p;
    return p < end && (*p == 'm' || *p == 'u');
}

/// Names numbered in order of first use within one chunk.
class LocalNames
{
public:
    explicit LocalNames(std::vector<std::string>& names) : m_names(names) {}

    void select(const Token& token)
    {
        if (m_current >= 0 && m_names[size_t(m_current)].size() == token.size() &&
            std::memcmp(m_names[size_t(m_current)].data(), token.begin, token.size()) == 0)
            return;
        std::string name(token.begin, token.size());
        auto it = m_numbers.find(name);
        if (it == m_numbers.end()) {
            it = m_numbers.emplace(name, int32_t(m_names.size())).first;
            m_names.push_back(std::move(name));
        }
        m_current = it->second;
    }
    int32_t current() const { return m_current; }

private:
    std::vector<std::string>& m_names;
    std::unordered_map<std::string, int32_t> m_numbers;
    int32_t m_current = -1;
};

[[noreturn]] void countMismatch()
{
    throw GraphException("The file could not be read consistently");
}

} // namespace

void countLines(ChunkData& chunk, int32_t& vertices, int32_t& texCoords, int32_t& faces, int32_t& groups,
                int32_t& materials)
{
    vertices = texCoords = faces = groups = materials = 0;
    const char* p = chunk.text;
    const char* end = chunk.text + chunk.textSize;
    while (p < end) {
        const char* eol = lineEnd(p, end);
        switch (ObjLine::classify(p, eol)) {
        case Kind::Vertex:
            ++vertices;
            break;
        case Kind::TexCoord:
            ++texCoords;
            break;
        case Kind::Face:
            ++faces;
            break;
        case Kind::Group:
            ++groups;
            break;
        case Kind::Material:
            ++materials;
            break;
        case Kind::Other:
            break;
        }
        p = eol + 1;
    }
}

void parse(ChunkData& chunk, ChunkListArena* arena, CornerScratch& scratch)
{
    chunk.vertices.allocate(size_t(chunk.vertexCount), arena);
    chunk.texCoords.allocate(size_t(chunk.texCoordCount), arena);
    chunk.faceOffsets.allocate(size_t(chunk.faceCount), arena);
    chunk.faceSizes.allocate(size_t(chunk.faceCount), arena);
    chunk.faceGroups.allocate(size_t(chunk.faceCount), arena);
    chunk.faceMaterials.allocate(size_t(chunk.faceCount), arena);
    std::vector<int32_t>& vertexIndices = scratch.vertexIndices;
    std::vector<int32_t>& texIndices = scratch.texIndices;
    vertexIndices.clear();
    texIndices.clear();
    chunk.groupMap.assign(size_t(chunk.groupCount) + 1, -1);
    chunk.materialMap.assign(size_t(chunk.materialCount) + 1, -1);

    LocalNames groups(chunk.groupNames);
    LocalNames materials(chunk.materialNames);
    Token tokens[ObjLine::MaxTokens];
    size_t v = 0, t = 0, f = 0;
    const char* p = chunk.text;
    const char* end = chunk.text + chunk.textSize;
    while (p < end) {
        const char* eol = lineEnd(p, end);
        switch (ObjLine::classify(p, eol)) {
        case Kind::Vertex: {
            if (ObjLine::tokenize(p, eol, tokens) < 4)
                throw GraphException();
            if (v >= chunk.vertices.size())
                countMismatch();
            chunk.vertices[v++] = QVector3D(parseObjFloat(tokens[1].begin, tokens[1].end),
                                            parseObjFloat(tokens[2].begin, tokens[2].end),
                                            parseObjFloat(tokens[3].begin, tokens[3].end));
            break;
        }
        case Kind::TexCoord: {
            if (ObjLine::tokenize(p, eol, tokens) < 3)
                throw GraphException();
            if (t >= chunk.texCoords.size())
                countMismatch();
            chunk.texCoords[t++] = QVector2D(parseObjFloat(tokens[1].begin, tokens[1].end),
                                             parseObjFloat(tokens[2].begin, tokens[2].end));
            break;
        }
        case Kind::Face: {
            const int count = ObjLine::tokenize(p, eol, tokens);
            if (count < 4)
                throw GraphException();
            if (f >= chunk.faceSizes.size())
                countMismatch();
            chunk.faceOffsets[f] = int32_t(vertexIndices.size());
            chunk.faceSizes[f] = count - 1;
            for (int i = 1; i < count; ++i) {
                const ObjLine::Corner corner = ObjLine::splitCorner(tokens[i]);
                if (corner.vertex.size() == 0)
                    throw GraphException();
                vertexIndices.push_back(parseObjInt(corner.vertex.begin, corner.vertex.end) - 1);
                if (corner.texture.size() > 0)
                    texIndices.push_back(parseObjInt(corner.texture.begin, corner.texture.end) - 1);
            }
            chunk.faceGroups[f] = groups.current();
            chunk.faceMaterials[f] = materials.current();
            ++f;
            break;
        }
        case Kind::Group:
            if (ObjLine::tokenize(p, eol, tokens) >= 2)
                groups.select(tokens[1]);
            break;
        case Kind::Material:
            if (ObjLine::tokenize(p, eol, tokens) < 2)
                throw GraphException();
            materials.select(tokens[1]);
            break;
        case Kind::Other:
            if (mayBeMaterialLine(p, eol)) {
                const int count = ObjLine::tokenize(p, eol, tokens);
                if (count >= 1 && tokens[0].is("mtllib")) {
                    if (count < 2)
                        throw GraphException();
                    for (int i = 1; i < count; ++i) {
                        if (i > 1)
                            chunk.mtllib += ' ';
                        chunk.mtllib.append(tokens[i].begin, tokens[i].size());
                    }
                } else if (count == 1 && tokens[0].is("usemtl")) {
                    throw GraphException();
                }
            }
            break;
        }
        p = eol + 1;
    }
    // Exactly as many corners as the chunk has, next to its other lists.
    chunk.faceVertexIndices.allocate(vertexIndices.size(), arena);
    std::copy(vertexIndices.begin(), vertexIndices.end(), chunk.faceVertexIndices.data());
    chunk.faceTexIndices.allocate(texIndices.size(), arena);
    std::copy(texIndices.begin(), texIndices.end(), chunk.faceTexIndices.data());
    // The lists were not cleared: every element counted must have been parsed.
    if (v != chunk.vertices.size() || t != chunk.texCoords.size() || f != chunk.faceSizes.size())
        countMismatch();
    chunk.lastGroup = groups.current();
    chunk.lastMaterial = materials.current();
}

QString findWrongLine(const QByteArray& file)
{
    Token tokens[ObjLine::MaxTokens];
    const char* p = file.constData();
    const char* end = p + file.size();
    long long number = 0;
    while (p < end) {
        const char* eol = lineEnd(p, end);
        const char* last = eol;
        while (last > p && last[-1] == '\r')
            --last;
        if (last > p) {
            ++number;
            const QString where = QString::number(number);
            const int count = ObjLine::tokenize(p, last, tokens);
            switch (ObjLine::classify(p, last)) {
            case Kind::Vertex:
                if (count < 4)
                    return QStringLiteral("Wrong vertex coordinate in line ") + where;
                break;
            case Kind::TexCoord:
                if (count < 3)
                    return QStringLiteral("Wrong texture coordinate in line ") + where;
                break;
            case Kind::Face:
                if (count < 4)
                    return QStringLiteral("Wrong face in line ") + where;
                for (int i = 1; i < count; ++i)
                    if (ObjLine::splitCorner(tokens[i]).vertex.size() == 0)
                        return QStringLiteral("Wrong vertex index in line ") + where;
                break;
            case Kind::Material:
                if (count < 2)
                    return QStringLiteral("Wrong material name in line: ") + where;
                break;
            case Kind::Group:
                break;
            case Kind::Other:
                if (count == 1 && tokens[0].is("usemtl"))
                    return QStringLiteral("Wrong material name in line: ") + where;
                if (count == 1 && tokens[0].is("mtllib"))
                    return QStringLiteral("Wrong material library name in line: ") + where;
                break;
            }
        }
        p = eol + 1;
    }
    return QString();
}

long long findVertexLine(const QByteArray& file, int vertex)
{
    const char* p = file.constData();
    const char* end = p + file.size();
    long long number = 0;
    int seen = 0;
    while (p < end) {
        const char* eol = lineEnd(p, end);
        const char* last = eol;
        while (last > p && last[-1] == '\r')
            --last;
        if (last > p) {
            ++number;
            if (ObjLine::classify(p, last) == Kind::Vertex && seen++ == vertex)
                return number;
        }
        p = eol + 1;
    }
    return -1;
}

} // namespace ObjChunkParser
} // namespace GeometryStack2
