uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform mat3 normalMatrix;
uniform sampler2D vertex;
uniform float vertexSize;
uniform sampler2D normal;
uniform float normalSize;
attribute float triangleVertexInd;
varying vec3 viewPosition;
varying vec3 viewNormal;

#ifdef isTextureEnabled
uniform sampler2D texCoord;
uniform float texCoordSize;
attribute float triangleTexCoordInd;
varying vec2 uv;
#endif

#ifdef isIndexColorEnabled
uniform sampler2D triangleVertexColor;
uniform float triangleVertexColorSize;
attribute float triangleVertexColorInd;
varying vec4 indexColor;
#endif

#ifdef isCornerColorEnabled
attribute vec4 cornerColor;
varying vec4 indexColor;
#endif

void main()
{
    vec4 position = modelViewMatrix * vec4(fetchElement(vertex, vertexSize, triangleVertexInd).xyz, 1.0);
    viewPosition = position.xyz;
    viewNormal = normalMatrix * fetchElement(normal, normalSize, triangleVertexInd).xyz;
#ifdef isTextureEnabled
    uv = fetchElement(texCoord, texCoordSize, triangleTexCoordInd).xy;
#endif
#ifdef isIndexColorEnabled
    indexColor = fetchElement(triangleVertexColor, triangleVertexColorSize, triangleVertexColorInd);
#endif
#ifdef isCornerColorEnabled
    indexColor = cornerColor;
#endif
    gl_Position = projectionMatrix * position;
}
