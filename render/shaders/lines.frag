varying vec4 lineColor;

void main()
{
    gl_FragData[0] = lineColor;
}
