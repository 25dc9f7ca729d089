uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform vec2 screenSize;
attribute vec3 anchor;
attribute vec2 offsetPx;
attribute vec2 glyphUv;
attribute vec4 tint;
varying vec2 uv;
varying vec4 markerColor;

void main()
{
    vec4 clip = projectionMatrix * modelViewMatrix * vec4(anchor, 1.0);
    // Markers keep their pixel size at any zoom.
    clip.xy += offsetPx * 2.0 / screenSize * clip.w;
    clip.z = -clip.w * 0.999;
    gl_Position = clip;
    uv = glyphUv;
    markerColor = tint;
}
