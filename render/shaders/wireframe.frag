uniform vec4 color;

void main()
{
    gl_FragData[0] = color;
    // Tells the shadow pass that no surface is here.
    gl_FragData[1] = vec4(1.0, 1.0, 1.0, 0.0);
}
