// Draws snapshots: batch, shadow map, picture, and the way down through the lens.
//
//   snapshot -batch-> triangles -> surfaces, larger -light, shadow map-> ideal picture -resolve-> picture
//
// Two steps, because the software rasteriser works on blocks of 4 x 4 texels: it shades all sixteen for each triangle
// that touches one of them, and people are made of triangles smaller than a texel. So what triangles are drawn with
// is as cheap as can be, and light is reckoned once for each texel, when it is known what is seen there.
#include "render.h"

#include <math.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "batch.h"
#include "desk.h"
#include "gl.h"
#include "lighting.h"
#include "resolve.h"
#include "shaders.h"

enum { PICTURE_SIDE_MIN = 16, PICTURE_SIDE_MAX = 4096 };
enum { UNIT_MATERIALS, UNIT_SHADOW, UNIT_SURFACES }; // where the shaders find their textures
enum { ATTRIBUTES = 4, LIGHT_PROGRAMS_MAX = 8 };

static struct {
    bool open;
    char device[128];
    GLuint surface
        [PATTERNS]; // programs, one for each pattern: a branch that is not taken costs the rasteriser as
                    // much as one that is
    GLuint shadow;  // program of the shadow map
    struct {
        char calls[1000]; // what it was made with
        GLuint program;
    } light[LIGHT_PROGRAMS_MAX];            // one for each set of lamps that was seen; the last used first
    GLuint array, nothing;                  // vertex arrays: with the batch's vertices, and without any
    GLuint vertices, indices, frame;        // buffers
    GLuint materials, shadow_map, surfaces; // textures
    GLuint shadow_target, surface_target, light_target;         // framebuffers
    GLuint depth, colour;                                       // renderbuffers
    int width, height;                                          // texels of the targets
    size_t first[PATTERNS], count[PATTERNS], casts, cast_count; // parts of `drawn`
    struct batch *batch;
    struct shader_frame *values;
    struct resolve_plan *plan;
    std::vector<uint32_t> *drawn; // what is in the buffer of indices
    std::vector<float> *texels;
    std::vector<uint32_t> *words;
} state;

static GLuint make_program(const char *what, const char *defines, const char *vertex, const char *fragment)
{
    const GLuint program = gl_program(what, defines, vertex, fragment);
    if (!program)
        return 0;
    gl.UseProgram(program);
    const char *names[] = {"materials", "shadow_map", "surfaces"}; // in the units' order
    for (int unit = UNIT_MATERIALS; unit <= UNIT_SURFACES; unit++)
        if (gl.GetUniformLocation(program, names[unit]) >= 0)
            gl.Uniform1i(gl.GetUniformLocation(program, names[unit]), unit);
    const GLuint block = gl.GetUniformBlockIndex(program, "Frame");
    if (block != GL_INVALID_INDEX)
        gl.UniformBlockBinding(program, block, 0);
    return program;
}

static int make_programs(void)
{
    for (int i = 0; i < PATTERNS; i++) {
        char defines[40];
        snprintf(defines, sizeof defines, "#define PATTERN %d\n", i);
        state.surface[i] = make_program("surface", defines, shader_surface_vertex, shader_surface_fragment);
        if (!state.surface[i])
            return -1;
    }
    state.shadow = make_program("shadow", "", shader_shadow_vertex, shader_shadow_fragment);
    return state.shadow ? 0 : -1;
}

// The program for these lamps, made when they are seen for the first time (some tenths of a second). 0 after saying
// why.
static GLuint light_program(void)
{
    auto *light = state.light;
    char calls[sizeof light[0].calls];
    lighting_calls(state.values, calls, sizeof calls);
    int found = 0;
    while (found < LIGHT_PROGRAMS_MAX - 1 && strcmp(light[found].calls, calls) != 0)
        found++;
    auto one = light[found];
    if (strcmp(one.calls, calls) != 0) {
        gl.DeleteProgram(one.program);
        memcpy(one.calls, calls, sizeof calls);
        one.program = make_program("light", calls, shader_light_vertex, shader_light_fragment);
        if (!one.program)
            one.calls[0] = 0;
    }
    memmove(light + 1, light, static_cast<size_t>(found) * sizeof light[0]);
    light[0] = one;
    return one.program;
}

static void make_buffers(void)
{
    gl.GenVertexArrays(1, &state.nothing);
    gl.GenVertexArrays(1, &state.array);
    gl.BindVertexArray(state.array);
    gl.GenBuffers(1, &state.vertices);
    gl.GenBuffers(1, &state.indices);
    gl.GenBuffers(1, &state.frame);
    gl.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, state.indices);
    gl.BindBuffer(GL_ARRAY_BUFFER, state.vertices);
    const GLsizei stride = sizeof(batch_vertex);
    const auto at = [](size_t offset) { return reinterpret_cast<const void *>(offset); };
    gl.VertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, at(offsetof(batch_vertex, position)));
    gl.VertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, stride, at(offsetof(batch_vertex, normal)));
    gl.VertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, stride, at(offsetof(batch_vertex, surface)));
    gl.VertexAttribIPointer(3, 2, GL_UNSIGNED_INT, stride, at(offsetof(batch_vertex, material)));
    for (GLuint i = 0; i < ATTRIBUTES; i++)
        gl.EnableVertexAttribArray(i);
    gl.BindBuffer(GL_UNIFORM_BUFFER, state.frame);
    gl.BufferData(GL_UNIFORM_BUFFER, sizeof(shader_frame), nullptr, GL_DYNAMIC_DRAW);
    gl.BindBufferBase(GL_UNIFORM_BUFFER, 0, state.frame);
}

// Binds a new texture at its unit.
static GLuint make_texture(int unit, GLint filter)
{
    GLuint texture;
    gl.GenTextures(1, &texture);
    gl.ActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
    gl.BindTexture(GL_TEXTURE_2D, texture);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    return texture;
}

static int make_textures(void)
{
    state.materials = make_texture(UNIT_MATERIALS, GL_NEAREST);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, sizeof(shader_material) / sizeof(shader_vec4),
                  SHADER_MATERIALS_MAX, 0, GL_RGBA, GL_FLOAT, nullptr);
    state.shadow_map = make_texture(UNIT_SHADOW, GL_LINEAR);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_REF_TO_TEXTURE);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_FUNC, GL_LEQUAL);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT32F, SHADOW_MAP_SIDE, SHADOW_MAP_SIDE, 0,
                  GL_DEPTH_COMPONENT, GL_FLOAT, nullptr);
    gl.GenFramebuffers(1, &state.shadow_target);
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.shadow_target);
    gl.FramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, state.shadow_map, 0);
    if (gl.CheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        desk_say("the graphics device cannot draw a shadow map");
        return -1;
    }
    return 0;
}

static void free_targets(void)
{
    const GLuint targets[] = {state.surface_target, state.light_target};
    gl.DeleteFramebuffers(2, targets);
    const GLuint buffers[] = {state.depth, state.colour};
    gl.DeleteRenderbuffers(2, buffers);
    gl.DeleteTextures(1, &state.surfaces);
    state.surface_target = state.light_target = state.depth = state.colour = state.surfaces = 0;
    state.width = state.height = 0;
}

static void stop(void)
{
    for (GLuint program : state.surface)
        gl.DeleteProgram(program);
    gl.DeleteProgram(state.shadow);
    for (const auto &light : state.light)
        gl.DeleteProgram(light.program);
    const GLuint buffers[] = {state.vertices, state.indices, state.frame};
    gl.DeleteBuffers(3, buffers);
    const GLuint arrays[] = {state.array, state.nothing};
    gl.DeleteVertexArrays(2, arrays);
    const GLuint textures[] = {state.materials, state.shadow_map};
    gl.DeleteTextures(2, textures);
    gl.DeleteFramebuffers(1, &state.shadow_target);
    free_targets();
    gl_close();
    delete state.batch;
    delete state.values;
    delete state.plan;
    delete state.drawn;
    delete state.texels;
    delete state.words;
    state = {};
}

static int start(bool gpu)
{
    if (gl_open(gpu))
        return -1;
    state.open = true;
    state.batch = new batch();
    state.values = new shader_frame();
    state.plan = new resolve_plan();
    state.drawn = new std::vector<uint32_t>();
    state.texels = new std::vector<float>();
    state.words = new std::vector<uint32_t>();
    snprintf(state.device, sizeof state.device, "%s",
             reinterpret_cast<const char *>(gl.GetString(GL_RENDERER)));
    make_buffers();
    if (make_programs() || make_textures() || !gl_fine("its start")) {
        stop();
        return -1;
    }
    return 0;
}

void render_prepare(void)
{
    setenv("LP_NUM_THREADS", "0", 0);
}

int render_start(bool gpu)
{
    if (state.open) {
        desk_say("the renderer is started already");
        return -1;
    }
    gl_driver_may_keep(true);
    const int result = start(gpu);
    gl_driver_may_keep(false);
    return result;
}

void render_stop(void)
{
    if (!state.open)
        return;
    gl_driver_may_keep(true);
    stop();
    gl_driver_may_keep(false);
}

const char *render_device(void)
{
    return state.device;
}

static GLuint make_renderbuffer(GLenum format, int width, int height)
{
    GLuint buffer;
    gl.GenRenderbuffers(1, &buffer);
    gl.BindRenderbuffer(GL_RENDERBUFFER, buffer);
    gl.RenderbufferStorage(GL_RENDERBUFFER, format, width, height);
    return buffer;
}

static int fit_targets(int width, int height)
{
    if (state.width == width && state.height == height)
        return 0;
    free_targets();
    state.surfaces = make_texture(UNIT_SURFACES, GL_NEAREST);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32UI, width, height, 0, GL_RGBA_INTEGER, GL_UNSIGNED_INT, nullptr);
    state.depth = make_renderbuffer(GL_DEPTH_COMPONENT32F, width, height);
    state.colour = make_renderbuffer(GL_RGBA32F, width, height);
    gl.GenFramebuffers(1, &state.surface_target);
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.surface_target);
    gl.FramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, state.surfaces, 0);
    gl.FramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, state.depth);
    bool whole = gl.CheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    gl.GenFramebuffers(1, &state.light_target);
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.light_target);
    gl.FramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, state.colour);
    whole = whole && gl.CheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    if (!whole) {
        desk_say("the graphics device cannot draw a picture of %d x %d", width, height);
        free_targets();
        return -1;
    }
    state.width = width;
    state.height = height;
    return 0;
}

// The lens's pinhole, as wide as the plan's reach, from 3 cm to 100 m; and its rays.
static void fill_view(const resolve_plan *plan, shader_frame *frame)
{
    const scene_lens &lens = plan->lens;
    const float near = 0.03f, far = 100;
    const scene_vec rows[4] = {lens.right * (1 / (lens.half_width * plan->reach_x)),
                               lens.up * (1 / (lens.half_width * plan->reach_y)),
                               lens.ahead * ((far + near) / (far - near)), lens.ahead};
    float *m = frame->view;
    for (int i = 0; i < 4; i++) {
        m[i] = rows[i].x;
        m[4 + i] = rows[i].y;
        m[8 + i] = rows[i].z;
        m[12 + i] = -scene_dot(rows[i], lens.position);
    }
    m[14] -= 2 * far * near / (far - near);
    const scene_vec right = lens.right * (lens.half_width * plan->reach_x);
    const scene_vec up = lens.up * (lens.half_width * plan->reach_y);
    frame->right = {right.x, right.y, right.z, 0};
    frame->up = {up.x, up.y, up.z, 0};
    frame->ahead = {lens.ahead.x, lens.ahead.y, lens.ahead.z, 0};
}

static void find_visible(void)
{
    std::vector<uint32_t> *drawn = state.drawn;
    drawn->clear();
    batch_look(state.batch, state.values->view, state.width, state.height);
    for (int i = 0; i < PATTERNS; i++) {
        state.first[i] = drawn->size();
        batch_visible(state.batch, state.batch->sorted[i], state.width, state.height, true, drawn);
        state.count[i] = drawn->size() - state.first[i];
    }
    state.casts = drawn->size();
    if (state.values->counts.y > 0) {
        batch_look(state.batch, state.values->shadow, SHADOW_MAP_SIDE, SHADOW_MAP_SIDE);
        batch_visible(state.batch, state.batch->casts, SHADOW_MAP_SIDE, SHADOW_MAP_SIDE, false, drawn);
    }
    state.cast_count = drawn->size() - state.casts;
}

static void upload(void)
{
    const struct batch *batch = state.batch;
    const auto bytes = [](size_t count, size_t size) { return static_cast<GLsizeiptr>(count * size); };
    gl.BufferData(GL_ARRAY_BUFFER, bytes(batch->vertices.size(), sizeof(batch_vertex)),
                  batch->vertices.data(), GL_STREAM_DRAW);
    gl.BufferData(GL_ELEMENT_ARRAY_BUFFER, bytes(state.drawn->size(), sizeof(uint32_t)), state.drawn->data(),
                  GL_STREAM_DRAW);
    gl.BufferSubData(GL_UNIFORM_BUFFER, 0, sizeof *state.values, state.values);
    gl.ActiveTexture(GL_TEXTURE0 + UNIT_MATERIALS);
    if (!batch->materials.empty())
        gl.TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, sizeof(shader_material) / sizeof(shader_vec4),
                         static_cast<GLsizei>(batch->materials.size()), GL_RGBA, GL_FLOAT,
                         batch->materials.data());
}

static void draw_triangles(size_t first, size_t count)
{
    if (count > 0)
        gl.DrawElements(GL_TRIANGLES, static_cast<GLsizei>(count), GL_UNSIGNED_INT,
                        reinterpret_cast<const void *>(first * sizeof(uint32_t)));
}

static void draw_shadow(void)
{
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.shadow_target);
    gl.Viewport(0, 0, SHADOW_MAP_SIDE, SHADOW_MAP_SIDE);
    const float far = 1;
    gl.ClearBufferfv(GL_DEPTH, 0, &far);
    gl.CullFace(GL_FRONT);
    gl.UseProgram(state.shadow);
    draw_triangles(state.casts, state.cast_count);
}

static void draw_surfaces(void)
{
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.surface_target);
    gl.Viewport(0, 0, state.width, state.height);
    const float far = 1;
    const GLuint nothing[4] = {0, 0, 0, 0};
    gl.ClearBufferfv(GL_DEPTH, 0, &far);
    gl.ClearBufferuiv(GL_COLOR, 0, nothing);
    gl.CullFace(GL_BACK);
    for (int i = 0; i < PATTERNS; i++) {
        gl.UseProgram(state.surface[i]);
        draw_triangles(state.first[i], state.count[i]);
    }
}

static int draw_light(void)
{
    const GLuint program = light_program();
    if (!program)
        return -1;
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.light_target);
    gl.Viewport(0, 0, state.width, state.height);
    gl.Disable(GL_DEPTH_TEST);
    gl.BindVertexArray(state.nothing);
    gl.UseProgram(program);
    gl.DrawArrays(GL_TRIANGLES, 0, 3);
    gl.BindVertexArray(state.array);
    return 0;
}

// Up to the surfaces.
// How many times larger a picture is drawn than it is asked for, so that edges come out smooth. The analysis picture has
// to be drawn forty times a second on one core; pictures for people may take their time, up to where they are large
// enough in themselves.
static float larger_by(int width)
{
    return width <= 320 ? 1.5f : width <= 640 ? 2 : 1.25f;
}

static int begin(const scene_snapshot *snapshot, int width, int height)
{
    if (!state.open) {
        desk_say("the renderer is not started");
        return -1;
    }
    if (width < PICTURE_SIDE_MIN || height < PICTURE_SIDE_MIN || width > PICTURE_SIDE_MAX ||
        height > PICTURE_SIDE_MAX) {
        desk_say("a picture of %d x %d cannot be drawn: sides are %d to %d", width, height, PICTURE_SIDE_MIN,
                 PICTURE_SIDE_MAX);
        return -1;
    }
    const scene_lens lens = scene_lens_of(&snapshot->view, width, height);
    resolve_fit(&lens, larger_by(width), state.plan);
    const scene_light *key = lighting_key(snapshot);
    if (fit_targets(state.plan->width, state.plan->height) ||
        batch_fill(snapshot, key && key->kind == LIGHT_SUN, state.batch))
        return -1;
    *state.values = {};
    lighting_fill(snapshot, state.batch, state.values);
    fill_view(state.plan, state.values);
    const scene_vec eye = snapshot->view.position;
    // A float holds seconds well enough for what moves on a screen only while they are few.
    state.values->eye = {eye.x, eye.y, eye.z, static_cast<float>(fmod(snapshot->time, 4096))};
    find_visible();
    upload();
    gl.Enable(GL_DEPTH_TEST);
    gl.Enable(GL_CULL_FACE);
    return 0;
}

int render_draw(const scene_snapshot *snapshot, int width, int height, render_picture *picture)
{
    if (begin(snapshot, width, height))
        return -1;
    gl_driver_may_keep(true); // what it compiles when something is drawn for the first time
    if (state.values->counts.y > 0)
        draw_shadow();
    draw_surfaces();
    const int drawn = draw_light();
    gl_driver_may_keep(false);
    if (drawn)
        return -1;
    state.texels->resize(static_cast<size_t>(state.width) * static_cast<size_t>(state.height) * BANDS);
    gl.ReadPixels(0, 0, state.width, state.height, GL_RGBA, GL_FLOAT, state.texels->data());
    if (!gl_fine("drawing"))
        return -1;
    picture->width = width;
    picture->height = height;
    picture->light.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * BANDS);
    resolve_light(state.plan, state.texels->data(), picture->light.data());
    return 0;
}

int render_actors(const scene_snapshot *snapshot, int width, int height, std::vector<uint32_t> *actors)
{
    if (begin(snapshot, width, height))
        return -1;
    gl_driver_may_keep(true);
    draw_surfaces();
    gl_driver_may_keep(false);
    state.words->resize(static_cast<size_t>(state.width) * static_cast<size_t>(state.height) * 4);
    gl.ReadPixels(0, 0, state.width, state.height, GL_RGBA_INTEGER, GL_UNSIGNED_INT, state.words->data());
    if (!gl_fine("drawing actors"))
        return -1;
    actors->resize(static_cast<size_t>(width) * static_cast<size_t>(height));
    resolve_nearest(state.plan, state.words->data(), actors->data());
    for (uint32_t &word : *actors) {
        const int object = shader_object_of(word);
        word = object >= 0 ? snapshot->objects[static_cast<size_t>(object)].actor : 0;
    }
    return 0;
}
