uniform vec4 color;
uniform float range;
uniform float center;
uniform float rate;
uniform vec2 screenSize;

void main()
{
    float centerPx = screenSize.y * (1.0 - center);
    float factor = -(gl_FragCoord.y - centerPx) * rate / 255.0;
    gl_FragData[0] = vec4(color.rgb + factor * range, 1.0);
    gl_FragData[1] = vec4(1.0, 1.0, 1.0, 0.0);
}
