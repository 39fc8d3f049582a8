// The graphics library, found at run time: a program that can draw still starts where there is nothing to draw with.
//
// Thread: that one which called gl_open.
#ifndef GL_H
#define GL_H

#define EGL_NO_X11
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>

// Every function of OpenGL ES 3.0 that is used, without its "gl".
#define GL_FUNCTIONS(F)                                                                                      \
    F(ActiveTexture)                                                                                         \
    F(AttachShader)                                                                                          \
    F(BindBuffer)                                                                                            \
    F(BindBufferBase)                                                                                        \
    F(BindFramebuffer)                                                                                       \
    F(BindRenderbuffer)                                                                                      \
    F(BindTexture)                                                                                           \
    F(BindVertexArray)                                                                                       \
    F(BufferData)                                                                                            \
    F(BufferSubData)                                                                                         \
    F(CheckFramebufferStatus)                                                                                \
    F(ClearBufferfv)                                                                                         \
    F(ClearBufferuiv)                                                                                        \
    F(CompileShader)                                                                                         \
    F(CreateProgram)                                                                                         \
    F(CreateShader)                                                                                          \
    F(CullFace)                                                                                              \
    F(DeleteBuffers)                                                                                         \
    F(DeleteFramebuffers)                                                                                    \
    F(DeleteProgram)                                                                                         \
    F(DeleteRenderbuffers)                                                                                   \
    F(DeleteShader)                                                                                          \
    F(DeleteTextures)                                                                                        \
    F(DeleteVertexArrays)                                                                                    \
    F(Disable)                                                                                               \
    F(DrawArrays)                                                                                            \
    F(DrawElements)                                                                                          \
    F(Enable)                                                                                                \
    F(EnableVertexAttribArray)                                                                               \
    F(FramebufferRenderbuffer)                                                                               \
    F(FramebufferTexture2D)                                                                                  \
    F(GenBuffers)                                                                                            \
    F(GenFramebuffers)                                                                                       \
    F(GenRenderbuffers)                                                                                      \
    F(GenTextures)                                                                                           \
    F(GenVertexArrays)                                                                                       \
    F(GetError)                                                                                              \
    F(GetProgramInfoLog)                                                                                     \
    F(GetProgramiv)                                                                                          \
    F(GetShaderInfoLog)                                                                                      \
    F(GetShaderiv)                                                                                           \
    F(GetString)                                                                                             \
    F(GetUniformBlockIndex)                                                                                  \
    F(GetUniformLocation)                                                                                    \
    F(LinkProgram)                                                                                           \
    F(ReadPixels)                                                                                            \
    F(RenderbufferStorage)                                                                                   \
    F(ShaderSource)                                                                                          \
    F(TexImage2D)                                                                                            \
    F(TexParameteri)                                                                                         \
    F(TexSubImage2D)                                                                                         \
    F(Uniform1i)                                                                                             \
    F(UniformBlockBinding)                                                                                   \
    F(UseProgram)                                                                                            \
    F(VertexAttribIPointer)                                                                                  \
    F(VertexAttribPointer)                                                                                   \
    F(Viewport)

struct gl_table {
#define GL_MEMBER(name) decltype(&gl##name) name;
    GL_FUNCTIONS(GL_MEMBER)
#undef GL_MEMBER
};
extern gl_table gl;            // filled by gl_open
extern const char *gl_library; // its file name; tests may name another before the first gl_open

// Loads the library and makes a context current that draws into no window. `gpu`: on the first graphics card; else,
// and where no card is found (which is said), on the software rasteriser. 0, or -1 after saying why.
int gl_open(bool gpu);
// The context goes. The library stays loaded: its threads and exit handlers do not stand being unloaded.
void gl_close(void);
// Whether what is allocated from now on, on this thread, is the driver's to keep: the leak detector leaves it out.
void gl_driver_may_keep(bool it_may);

// A program of two shaders; `defines` stands behind the version line of both. 0 after saying why (with the driver's
// own words), `what` names it then.
GLuint gl_program(const char *what, const char *defines, const char *vertex, const char *fragment);
// False after saying which error the library has noted since the last call.
bool gl_fine(const char *what);

#endif
