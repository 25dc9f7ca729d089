// Mesh attributes live in square float textures; the vertex stream holds
// only indices (floats, exact up to 2^24).
vec2 vectorIndToTexCoords(float index, float side)
{
    // The half texel keeps floor() exact where index / side is an integer.
    float y = floor((index + 0.5) / side);
    float x = index - y * side;
    return vec2((x + 0.5) / side, (y + 0.5) / side);
}

vec4 fetchElement(sampler2D buffer, float side, float index)
{
    return texture2DLod(buffer, vectorIndToTexCoords(index, side), 0.0);
}
