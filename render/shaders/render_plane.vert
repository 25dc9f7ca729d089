attribute vec3 vertex;
varying vec2 screenUv;

void main()
{
    screenUv = vec2((vertex.x + 1.0) / 2.0, (vertex.y + 1.0) / 2.0);
    gl_Position = vec4(vertex.xy, -1.0, 1.0);
}
