uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform sampler2D vertex;
uniform float vertexSize;
attribute float edgeVertexInd;

void main()
{
    vec4 position = modelViewMatrix * vec4(fetchElement(vertex, vertexSize, edgeVertexInd).xyz, 1.0);
    gl_Position = projectionMatrix * position;
    // Lines lie on the surface they outline; a small pull towards the eye
    // keeps them from fighting with it for depth.
    gl_Position.z -= 0.0004 * gl_Position.w;
}
