// Finds the graphics library at run time and opens a context without a window.
//
// Devices are listed by EGL_EXT_device_enumeration; the software rasteriser is the one that carries
// EGL_MESA_device_software. So the choice between it and a card is made here and not by environment variables.
#include "gl.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "desk.h"

gl_table gl;
const char *gl_library = "libEGL.so.1";

static struct {
    void *driver; // libEGL; stays for good
    EGLDisplay display;
    EGLContext context;
} state = {nullptr, EGL_NO_DISPLAY, EGL_NO_CONTEXT};

static struct {
    PFNEGLGETPROCADDRESSPROC GetProcAddress;
    PFNEGLQUERYSTRINGPROC QueryString;
    PFNEGLGETERRORPROC GetError;
    PFNEGLINITIALIZEPROC Initialize;
    PFNEGLTERMINATEPROC Terminate;
    PFNEGLBINDAPIPROC BindAPI;
    PFNEGLCREATECONTEXTPROC CreateContext;
    PFNEGLDESTROYCONTEXTPROC DestroyContext;
    PFNEGLMAKECURRENTPROC MakeCurrent;
    PFNEGLRELEASETHREADPROC ReleaseThread;
    PFNEGLGETPLATFORMDISPLAYEXTPROC GetPlatformDisplay;
    PFNEGLQUERYDEVICESEXTPROC QueryDevices;
    PFNEGLQUERYDEVICESTRINGEXTPROC QueryDeviceString;
} egl;

static bool has_word(const char *list, const char *word)
{
    const size_t length = strlen(word);
    for (const char *at = list; at && (at = strstr(at, word)); at += length)
        if ((at == list || at[-1] == ' ') && (at[length] == ' ' || at[length] == 0))
            return true;
    return false;
}

template <typename function> static bool find(function *pointer, const char *name)
{
    void *symbol = dlsym(state.driver, name);
    if (!symbol && egl.GetProcAddress)
        symbol = reinterpret_cast<void *>(egl.GetProcAddress(name));
    *pointer = reinterpret_cast<function>(symbol);
    return symbol != nullptr;
}

static int load_library(void)
{
    if (!state.driver) {
        state.driver = dlopen(gl_library, RTLD_NOW | RTLD_GLOBAL);
        if (!state.driver) {
            desk_say("no graphics library: %s (Debian packages libegl1 and libgl1-mesa-dri)", dlerror());
            return -1;
        }
    }
    const bool found =
        find(&egl.GetProcAddress, "eglGetProcAddress") && find(&egl.QueryString, "eglQueryString") &&
        find(&egl.GetError, "eglGetError") && find(&egl.Initialize, "eglInitialize") &&
        find(&egl.Terminate, "eglTerminate") && find(&egl.BindAPI, "eglBindAPI") &&
        find(&egl.CreateContext, "eglCreateContext") && find(&egl.DestroyContext, "eglDestroyContext") &&
        find(&egl.MakeCurrent, "eglMakeCurrent") && find(&egl.ReleaseThread, "eglReleaseThread") &&
        find(&egl.GetPlatformDisplay, "eglGetPlatformDisplayEXT") &&
        find(&egl.QueryDevices, "eglQueryDevicesEXT") &&
        find(&egl.QueryDeviceString, "eglQueryDeviceStringEXT");
    const char *extensions = found ? egl.QueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS) : nullptr;
    if (!has_word(extensions, "EGL_EXT_platform_device")) {
        desk_say("the graphics library is too old: it cannot list its devices");
        return -1;
    }
    return 0;
}

// Null where there is none of that kind.
static EGLDeviceEXT find_device(bool software)
{
    enum { DEVICES_MAX = 16 };
    EGLDeviceEXT devices[DEVICES_MAX];
    EGLint count = 0;
    if (!egl.QueryDevices(DEVICES_MAX, devices, &count))
        return nullptr;
    for (EGLint i = 0; i < count; i++) {
        const char *extensions = egl.QueryDeviceString(devices[i], EGL_EXTENSIONS);
        if (has_word(extensions, "EGL_MESA_device_software") == software)
            return devices[i];
    }
    return nullptr;
}

static int open_context(EGLDeviceEXT device)
{
    state.display = egl.GetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
    EGLint major, minor;
    if (state.display == EGL_NO_DISPLAY || !egl.Initialize(state.display, &major, &minor)) {
        desk_say("the graphics device cannot be opened (error %#x)", static_cast<unsigned>(egl.GetError()));
        return -1;
    }
    const char *extensions = egl.QueryString(state.display, EGL_EXTENSIONS);
    if (!has_word(extensions, "EGL_KHR_surfaceless_context") ||
        !has_word(extensions, "EGL_KHR_no_config_context")) {
        desk_say("the graphics device cannot draw without a window");
        return -1;
    }
    const EGLint attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
    egl.BindAPI(EGL_OPENGL_ES_API);
    state.context = egl.CreateContext(state.display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
    if (state.context == EGL_NO_CONTEXT ||
        !egl.MakeCurrent(state.display, EGL_NO_SURFACE, EGL_NO_SURFACE, state.context)) {
        desk_say("the graphics device gives no OpenGL ES 3 (error %#x)",
                 static_cast<unsigned>(egl.GetError()));
        return -1;
    }
    return 0;
}

static int load_functions(void)
{
#define GL_FIND(name)                                                                                        \
    if (!find(&gl.name, "gl" #name)) {                                                                       \
        desk_say("the graphics library lacks gl" #name);                                                     \
        return -1;                                                                                           \
    }
    GL_FUNCTIONS(GL_FIND)
#undef GL_FIND
    const char *extensions = reinterpret_cast<const char *>(gl.GetString(GL_EXTENSIONS));
    if (!has_word(extensions, "GL_EXT_color_buffer_float")) {
        desk_say("the graphics device cannot draw into numbers with a fraction");
        return -1;
    }
    return 0;
}

// Of the leak detector, where the program is built with it.
extern "C" void __lsan_disable(void) __attribute__((weak));
extern "C" void __lsan_enable(void) __attribute__((weak));

// The software rasteriser keeps some 240 bytes when it is unloaded, once for each display. They are the driver's, and
// nothing but the allocations made while it starts and ends is left out of the search for leaks.
void gl_driver_may_keep(bool it_may)
{
    void (*const tell)(void) = it_may ? __lsan_disable : __lsan_enable;
    if (tell)
        tell();
}

int gl_open(bool gpu)
{
    if (load_library())
        return -1;
    EGLDeviceEXT device = gpu ? find_device(false) : nullptr;
    if (gpu && !device)
        desk_say("no graphics card is found; drawing in software");
    if (!device)
        device = find_device(true);
    if (!device) {
        desk_say("no graphics device is found (Debian package libgl1-mesa-dri)");
        return -1;
    }
    if (open_context(device) || load_functions()) {
        gl_close();
        return -1;
    }
    return 0;
}

void gl_close(void)
{
    if (state.display != EGL_NO_DISPLAY) {
        egl.MakeCurrent(state.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        if (state.context != EGL_NO_CONTEXT)
            egl.DestroyContext(state.display, state.context);
        egl.Terminate(state.display);
        egl.ReleaseThread();
    }
    state.display = EGL_NO_DISPLAY;
    state.context = EGL_NO_CONTEXT;
}

static GLuint compile(const char *what, GLenum kind, const char *defines, const char *text)
{
    const char *texts[] = {"#version 300 es\n", defines, text};
    const GLuint shader = gl.CreateShader(kind);
    gl.ShaderSource(shader, 3, texts, nullptr);
    gl.CompileShader(shader);
    GLint good = 0;
    gl.GetShaderiv(shader, GL_COMPILE_STATUS, &good);
    if (good)
        return shader;
    char words[400] = "";
    gl.GetShaderInfoLog(shader, sizeof words, nullptr, words);
    words[strcspn(words, "\n")] = 0;
    desk_say("the %s shader of \"%s\" does not compile: %s", kind == GL_VERTEX_SHADER ? "vertex" : "fragment",
             what, words);
    gl.DeleteShader(shader);
    return 0;
}

GLuint gl_program(const char *what, const char *defines, const char *vertex, const char *fragment)
{
    const GLuint first = compile(what, GL_VERTEX_SHADER, defines, vertex);
    const GLuint second = first ? compile(what, GL_FRAGMENT_SHADER, defines, fragment) : 0;
    GLuint program = 0;
    if (second) {
        program = gl.CreateProgram();
        gl.AttachShader(program, first);
        gl.AttachShader(program, second);
        gl.LinkProgram(program);
        GLint good = 0;
        gl.GetProgramiv(program, GL_LINK_STATUS, &good);
        if (!good) {
            char words[400] = "";
            gl.GetProgramInfoLog(program, sizeof words, nullptr, words);
            words[strcspn(words, "\n")] = 0;
            desk_say("the shaders of \"%s\" do not fit each other: %s", what, words);
            gl.DeleteProgram(program);
            program = 0;
        }
    }
    if (first)
        gl.DeleteShader(first);
    if (second)
        gl.DeleteShader(second);
    return program;
}

bool gl_fine(const char *what)
{
    const GLenum error = gl.GetError();
    if (error != GL_NO_ERROR)
        desk_say("the graphics library fails at %s (error %#x)", what, error);
    return error == GL_NO_ERROR;
}
