// Draws snapshots: batch, shadow map, picture, and the way down through the lens.
//
//   snapshot --batch_fill--> triangles --shadow map--> lit and patterned, twice as large --resolve_light--> picture
#include "render.h"

#include <math.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "batch.h"
#include "desk.h"
#include "gl.h"
#include "lighting.h"
#include "resolve.h"
#include "shaders.h"

enum { PICTURE_SIDE_MIN = 16, PICTURE_SIDE_MAX = 4096, MATERIAL_ROWS_MAX = 2048 };

static struct {
    bool open;
    char device[128];
    GLuint programs
        [PATTERNS];      // one for each pattern: a branch not taken costs the rasteriser as much as one taken
    GLuint depth, actor; // programs of the shadow map and of actors' numbers
    GLuint array, vertices, indices, casts, frame;
    GLuint materials, shadow_map;    // textures
    GLuint target, shadow_target;    // framebuffers
    GLuint colour, depth_buffer;     // of the target
    int target_width, target_height; // texels
    struct batch *batch;
    shader_frame *values;
    resolve_plan *plan;
    std::vector<float> *texels;
} state;

static int make_programs(void)
{
    for (int i = 0; i < PATTERNS; i++) {
        char defines[40];
        snprintf(defines, sizeof defines, "#define PATTERN %d\n", i);
        state.programs[i] = gl_program("picture", defines, shader_vertex, shader_fragment);
        if (!state.programs[i])
            return -1;
        gl.UseProgram(state.programs[i]);
        gl.Uniform1i(gl.GetUniformLocation(state.programs[i], "materials"), 0);
        gl.Uniform1i(gl.GetUniformLocation(state.programs[i], "shadow_map"), 1);
        gl.UniformBlockBinding(state.programs[i], gl.GetUniformBlockIndex(state.programs[i], "Frame"), 0);
    }
    state.depth = gl_program("shadow", "", shader_depth_vertex, shader_depth_fragment);
    state.actor = state.depth ? gl_program("actors", "", shader_actor_vertex, shader_actor_fragment) : 0;
    if (!state.actor)
        return -1;
    gl.UniformBlockBinding(state.depth, gl.GetUniformBlockIndex(state.depth, "Frame"), 0);
    gl.UniformBlockBinding(state.actor, gl.GetUniformBlockIndex(state.actor, "Frame"), 0);
    return 0;
}

static void make_buffers(void)
{
    gl.GenVertexArrays(1, &state.array);
    gl.BindVertexArray(state.array);
    gl.GenBuffers(1, &state.vertices);
    gl.GenBuffers(1, &state.indices);
    gl.GenBuffers(1, &state.casts);
    gl.GenBuffers(1, &state.frame);
    gl.BindBuffer(GL_ARRAY_BUFFER, state.vertices);
    const GLsizei stride = sizeof(batch_vertex);
    const auto at = [](size_t offset) { return reinterpret_cast<const void *>(offset); };
    gl.VertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, at(offsetof(batch_vertex, position)));
    gl.VertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, stride, at(offsetof(batch_vertex, normal)));
    gl.VertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, stride, at(offsetof(batch_vertex, surface)));
    gl.VertexAttribIPointer(3, 2, GL_UNSIGNED_INT, stride, at(offsetof(batch_vertex, material)));
    gl.VertexAttribIPointer(4, 1, GL_UNSIGNED_INT, stride, at(offsetof(batch_vertex, actor)));
    for (GLuint i = 0; i < 5; i++)
        gl.EnableVertexAttribArray(i);
    gl.BindBuffer(GL_UNIFORM_BUFFER, state.frame);
    gl.BufferData(GL_UNIFORM_BUFFER, sizeof(shader_frame), nullptr, GL_DYNAMIC_DRAW);
    gl.BindBufferBase(GL_UNIFORM_BUFFER, 0, state.frame);
}

static int make_textures(void)
{
    gl.GenTextures(1, &state.materials);
    gl.ActiveTexture(GL_TEXTURE0);
    gl.BindTexture(GL_TEXTURE_2D, state.materials);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, sizeof(shader_material) / sizeof(shader_vec4),
                  MATERIAL_ROWS_MAX, 0, GL_RGBA, GL_FLOAT, nullptr);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);

    gl.GenTextures(1, &state.shadow_map);
    gl.ActiveTexture(GL_TEXTURE1);
    gl.BindTexture(GL_TEXTURE_2D, state.shadow_map);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT32F, SHADOW_MAP_SIDE, SHADOW_MAP_SIDE, 0,
                  GL_DEPTH_COMPONENT, GL_FLOAT, nullptr);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_REF_TO_TEXTURE);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_FUNC, GL_LEQUAL);
    gl.GenFramebuffers(1, &state.shadow_target);
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.shadow_target);
    gl.FramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, state.shadow_map, 0);
    if (gl.CheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        desk_say("the graphics device cannot draw a shadow map");
        return -1;
    }
    gl.GenFramebuffers(1, &state.target);
    return 0;
}

int render_start(bool gpu)
{
    if (state.open) {
        desk_say("the renderer is started already");
        return -1;
    }
    if (gl_open(gpu))
        return -1;
    state.open = true;
    state.batch = new struct batch();
    state.values = new shader_frame();
    state.plan = new resolve_plan();
    state.texels = new std::vector<float>();
    snprintf(state.device, sizeof state.device, "%s",
             reinterpret_cast<const char *>(gl.GetString(GL_RENDERER)));
    make_buffers();
    if (make_programs() || make_textures() || !gl_fine("its start")) {
        render_stop();
        return -1;
    }
    return 0;
}

void render_stop(void)
{
    if (!state.open)
        return;
    for (GLuint program : state.programs)
        gl.DeleteProgram(program);
    gl.DeleteProgram(state.depth);
    gl.DeleteProgram(state.actor);
    const GLuint buffers[] = {state.vertices, state.indices, state.casts, state.frame};
    gl.DeleteBuffers(4, buffers);
    gl.DeleteVertexArrays(1, &state.array);
    const GLuint textures[] = {state.materials, state.shadow_map};
    gl.DeleteTextures(2, textures);
    const GLuint targets[] = {state.target, state.shadow_target};
    gl.DeleteFramebuffers(2, targets);
    const GLuint renderbuffers[] = {state.colour, state.depth_buffer};
    gl.DeleteRenderbuffers(2, renderbuffers);
    gl_close();
    delete state.batch;
    delete state.values;
    delete state.plan;
    delete state.texels;
    state = {};
}

const char *render_device(void)
{
    return state.device;
}

static int fit_target(int width, int height)
{
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.target);
    if (state.target_width == width && state.target_height == height)
        return 0;
    const GLuint old[] = {state.colour, state.depth_buffer};
    gl.DeleteRenderbuffers(2, old);
    gl.GenRenderbuffers(1, &state.colour);
    gl.BindRenderbuffer(GL_RENDERBUFFER, state.colour);
    gl.RenderbufferStorage(GL_RENDERBUFFER, GL_RGBA32F, width, height);
    gl.FramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, state.colour);
    gl.GenRenderbuffers(1, &state.depth_buffer);
    gl.BindRenderbuffer(GL_RENDERBUFFER, state.depth_buffer);
    gl.RenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT32F, width, height);
    gl.FramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, state.depth_buffer);
    if (gl.CheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        desk_say("the graphics device cannot draw a picture of %d x %d", width, height);
        return -1;
    }
    state.target_width = width;
    state.target_height = height;
    return 0;
}

// The lens's pinhole, as wide as the plan's reach, from 3 cm to 100 m.
static void fill_view(const resolve_plan *plan, float m[16])
{
    const scene_lens &lens = plan->lens;
    const float near = 0.03f, far = 100;
    const scene_vec rows[4] = {lens.right * (1 / (lens.half_width * plan->reach_x)),
                               lens.up * (1 / (lens.half_width * plan->reach_y)),
                               lens.ahead * ((far + near) / (far - near)), lens.ahead};
    for (int i = 0; i < 4; i++) {
        m[i] = rows[i].x;
        m[4 + i] = rows[i].y;
        m[8 + i] = rows[i].z;
        m[12 + i] = -scene_dot(rows[i], lens.position);
    }
    m[14] -= 2 * far * near / (far - near);
}

static int upload(const scene_snapshot *snapshot)
{
    const scene_light *key = lighting_key(snapshot);
    if (batch_fill(snapshot, key && key->kind == LIGHT_SUN, state.batch))
        return -1;
    const struct batch *batch = state.batch;
    if (batch->materials.size() > MATERIAL_ROWS_MAX) {
        desk_say("the scene has %zu materials, more than the %d that can be drawn", batch->materials.size(),
                 MATERIAL_ROWS_MAX);
        return -1;
    }
    const auto bytes = [](size_t count, size_t size) { return static_cast<GLsizeiptr>(count * size); };
    gl.BindBuffer(GL_ARRAY_BUFFER, state.vertices);
    gl.BufferData(GL_ARRAY_BUFFER, bytes(batch->vertices.size(), sizeof(batch_vertex)),
                  batch->vertices.data(), GL_STREAM_DRAW);
    gl.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, state.casts);
    gl.BufferData(GL_ELEMENT_ARRAY_BUFFER, bytes(batch->casts.size(), 4), batch->casts.data(),
                  GL_STREAM_DRAW);
    gl.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, state.indices);
    gl.BufferData(GL_ELEMENT_ARRAY_BUFFER, bytes(batch->indices.size(), 4), batch->indices.data(),
                  GL_STREAM_DRAW);
    gl.ActiveTexture(GL_TEXTURE0);
    if (!batch->materials.empty())
        gl.TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, sizeof(shader_material) / sizeof(shader_vec4),
                         static_cast<GLsizei>(batch->materials.size()), GL_RGBA, GL_FLOAT,
                         batch->materials.data());
    memset(state.values, 0, sizeof *state.values);
    lighting_fill(snapshot, batch, state.values);
    fill_view(state.plan, state.values->view);
    const scene_vec eye = snapshot->view.position;
    // A float holds seconds well enough for what moves on a screen only while they are few.
    state.values->eye = {eye.x, eye.y, eye.z, static_cast<float>(fmod(snapshot->time, 4096))};
    gl.BufferSubData(GL_UNIFORM_BUFFER, 0, sizeof *state.values, state.values);
    return 0;
}

static void draw_shadow(void)
{
    gl.BindFramebuffer(GL_FRAMEBUFFER, state.shadow_target);
    gl.Viewport(0, 0, SHADOW_MAP_SIDE, SHADOW_MAP_SIDE);
    const float one = 1;
    gl.ClearBufferfv(GL_DEPTH, 0, &one);
    gl.Disable(GL_CULL_FACE);
    gl.Enable(GL_POLYGON_OFFSET_FILL);
    gl.PolygonOffset(2, 4);
    gl.UseProgram(state.depth);
    gl.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, state.casts);
    gl.DrawElements(GL_TRIANGLES, static_cast<GLsizei>(state.batch->casts.size()), GL_UNSIGNED_INT, nullptr);
    gl.Disable(GL_POLYGON_OFFSET_FILL);
    gl.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, state.indices);
}

static void clear_target(const float colour[4])
{
    gl.Viewport(0, 0, state.target_width, state.target_height);
    const float one = 1;
    gl.ClearBufferfv(GL_COLOR, 0, colour);
    gl.ClearBufferfv(GL_DEPTH, 0, &one);
    gl.Enable(GL_DEPTH_TEST);
    gl.DepthFunc(GL_LEQUAL);
    gl.Enable(GL_CULL_FACE);
}

static void read_target(void)
{
    state.texels->resize(static_cast<size_t>(state.target_width) * static_cast<size_t>(state.target_height) *
                         BANDS);
    gl.ReadPixels(0, 0, state.target_width, state.target_height, GL_RGBA, GL_FLOAT, state.texels->data());
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
    resolve_fit(&lens, width <= 640 ? 2 : 1.25f, state.plan);
    return upload(snapshot);
}

int render_draw(const scene_snapshot *snapshot, int width, int height, render_picture *picture)
{
    if (begin(snapshot, width, height))
        return -1;
    if (state.values->counts.y > 0)
        draw_shadow();
    if (fit_target(state.plan->width, state.plan->height))
        return -1;
    clear_target(snapshot->sky);
    for (int i = 0; i < PATTERNS; i++)
        if (state.batch->count[i] > 0) {
            gl.UseProgram(state.programs[i]);
            gl.DrawElements(GL_TRIANGLES, static_cast<GLsizei>(state.batch->count[i]), GL_UNSIGNED_INT,
                            reinterpret_cast<const void *>(state.batch->first[i] * sizeof(uint32_t)));
        }
    read_target();
    picture->width = width;
    picture->height = height;
    picture->light.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * BANDS);
    resolve_light(state.plan, state.texels->data(), picture->light.data());
    return gl_fine("drawing") ? 0 : -1;
}

int render_actors(const scene_snapshot *snapshot, int width, int height, std::vector<uint32_t> *actors)
{
    if (begin(snapshot, width, height) || fit_target(state.plan->width, state.plan->height))
        return -1;
    const float nobody[4] = {0, 0, 0, 0};
    clear_target(nobody);
    gl.UseProgram(state.actor);
    gl.DrawElements(GL_TRIANGLES, static_cast<GLsizei>(state.batch->indices.size()), GL_UNSIGNED_INT,
                    nullptr);
    read_target();
    actors->resize(static_cast<size_t>(width) * static_cast<size_t>(height));
    resolve_nearest(state.plan, state.texels->data(), actors->data());
    return gl_fine("drawing actors") ? 0 : -1;
}
