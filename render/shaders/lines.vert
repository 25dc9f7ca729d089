uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
attribute vec3 position;
attribute vec4 tint;
varying vec4 lineColor;

void main()
{
    lineColor = tint;
    gl_Position = projectionMatrix * modelViewMatrix * vec4(position, 1.0);
}
