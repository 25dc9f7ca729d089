uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform sampler2D vertexTex;
uniform float vertexTexSize;
attribute float triangleVertexInd;

void main()
{
    gl_Position = projectionMatrix * modelViewMatrix *
                  vec4(fetchElement(vertexTex, vertexTexSize, triangleVertexInd).xyz, 1.0);
}
