#pragma once

#include <cstddef>
#include <cstring>

namespace GeometryStack2 {

/// Pieces of OBJ line parsing shared by the readers and the wrong-line
/// checker, so that all of them agree on what a line is.
namespace ObjLine {

/// At most this many tokens of a line are looked at; a face of more than
/// 255 corners is beyond what the readers support.
constexpr int MaxTokens = 256;

struct Token
{
    const char* begin = nullptr;
    const char* end = nullptr;

    size_t size() const { return size_t(end - begin); }
    bool is(const char* word) const
    {
        const size_t n = std::strlen(word);
        return size() == n && std::memcmp(begin, word, n) == 0;
    }
};

inline bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

/// Splits [p, end) at blanks into at most MaxTokens tokens.
inline int tokenize(const char* p, const char* end, Token* tokens)
{
    int count = 0;
    while (count < MaxTokens) {
        while (p < end && isBlank(*p))
            ++p;
        if (p >= end)
            break;
        const char* start = p;
        while (p < end && !isBlank(*p))
            ++p;
        tokens[count].begin = start;
        tokens[count].end = p;
        ++count;
    }
    return count;
}

/// What the chunk counter recognises at the start of a line, after blanks:
/// the keyword followed by a space or a tab (files in the wild use both).
enum class Kind
{
    Other,
    Vertex,
    TexCoord,
    Face,
    Group,
    Material,
};

inline bool isSeparator(char c)
{
    return c == ' ' || c == '\t';
}

inline Kind classify(const char* p, const char* end)
{
    while (p < end && isSeparator(*p))
        ++p;
    const size_t n = size_t(end - p);
    if (n >= 2 && p[0] == 'v' && isSeparator(p[1]))
        return Kind::Vertex;
    if (n >= 3 && p[0] == 'v' && p[1] == 't' && isSeparator(p[2]))
        return Kind::TexCoord;
    if (n >= 2 && p[0] == 'f' && isSeparator(p[1]))
        return Kind::Face;
    if (n >= 2 && p[0] == 'g' && isSeparator(p[1]))
        return Kind::Group;
    if (n >= 7 && std::memcmp(p, "usemtl", 6) == 0 && isSeparator(p[6]))
        return Kind::Material;
    return Kind::Other;
}

/// A face corner "v", "v/vt", "v/vt/vn" or "v//vn": the vertex text and the
/// texture text (empty when absent).
struct Corner
{
    Token vertex;
    Token texture;
};

inline Corner splitCorner(const Token& token)
{
    Corner corner;
    const char* slash = static_cast<const char*>(std::memchr(token.begin, '/', token.size()));
    corner.vertex = Token{token.begin, slash ? slash : token.end};
    if (slash) {
        const char* texBegin = slash + 1;
        const char* texEnd = static_cast<const char*>(std::memchr(texBegin, '/', size_t(token.end - texBegin)));
        corner.texture = Token{texBegin, texEnd ? texEnd : token.end};
    } else {
        corner.texture = Token{token.end, token.end};
    }
    return corner;
}

} // namespace ObjLine
} // namespace GeometryStack2
