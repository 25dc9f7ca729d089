uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform vec2 imageSize;
attribute vec3 vertex;
varying vec2 uv;

void main()
{
    uv = vertex.xy / imageSize;
    gl_Position = projectionMatrix * modelViewMatrix * vec4(vertex, 1.0);
}
