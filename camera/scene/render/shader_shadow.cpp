// The shadow map: depth alone.
#include "shaders.h"

const char shader_shadow_vertex[] = SHADER_FRAME R"(
layout(location = 0) in vec3 position;
void main()
{
    gl_Position = shadow * vec4(position, 1.0);
}
)";
const char shader_shadow_fragment[] = R"(
precision highp float;
void main() {}
)";
