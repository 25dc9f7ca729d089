uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform mat3 normalMatrix;
uniform sampler2D vertexTex;
uniform float vertexTexSize;
uniform sampler2D customNormalTex;
uniform float customNormalTexSize;
attribute float triangleVertexInd;
attribute float triangleCustomNormalInd;
varying vec3 viewPosition;
varying vec3 viewNormal;

#ifdef isTextureEnabled
uniform sampler2D texCoordTex;
uniform float texCoordTexSize;
attribute float triangleTexCoordInd;
varying vec2 uv;
#endif

#ifdef isIndexColorEnabled
uniform sampler2D colorTex;
uniform float colorTexSize;
attribute float triangleColorInd;
varying vec4 indexColor;
#endif

void main()
{
    vec4 position = modelViewMatrix * vec4(fetchElement(vertexTex, vertexTexSize, triangleVertexInd).xyz, 1.0);
    viewPosition = position.xyz;
    viewNormal = normalMatrix * fetchElement(customNormalTex, customNormalTexSize, triangleCustomNormalInd).xyz;
#ifdef isTextureEnabled
    uv = fetchElement(texCoordTex, texCoordTexSize, triangleTexCoordInd).xy;
#endif
#ifdef isIndexColorEnabled
    indexColor = fetchElement(colorTex, colorTexSize, triangleColorInd);
#endif
    gl_Position = projectionMatrix * position;
}
