// Boxes and texts, by cairo.
#include "overlay.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <string>

#include "event_channels.h"
#include "events.h"

static_assert(VIEW_WIDTH == VIEW_SCALE * ANALYSIS_WIDTH && VIEW_HEIGHT == VIEW_SCALE * ANALYSIS_HEIGHT,
              "boxes are in pixels of the analysis picture");

namespace
{

struct colour {
    double red, green, blue;
};
const colour people_colour = {0.25, 0.95, 0.40};
const colour motion_colour = {1.00, 0.75, 0.20};
const colour plain_colour = {1.00, 1.00, 1.00};

const colour truth_colour = {0.75, 0.90, 1.00};

enum { TEXT_SIZE = 15, SMALL_SIZE = 10, MARGIN = 6, LINE = 21 };

const colour &colour_of(const std::string &event)
{
    return event == EVENT_PEOPLE_MOTION   ? people_colour
           : event == EVENT_OBJECT_MOTION ? motion_colour
                                          : plain_colour;
}

// A text on a dark ground, its ground's upper left corner at (x, y). Returns its width.
double label(cairo_t *pen, double x, double y, const std::string &text, const colour &ink)
{
    cairo_text_extents_t extents;
    cairo_text_extents(pen, text.c_str(), &extents);
    const double width = extents.x_advance + 2 * MARGIN;
    cairo_set_source_rgba(pen, 0, 0, 0, 0.6);
    cairo_rectangle(pen, x, y, width, LINE);
    cairo_fill(pen);
    cairo_set_source_rgb(pen, ink.red, ink.green, ink.blue);
    cairo_move_to(pen, x + MARGIN, y + TEXT_SIZE);
    cairo_show_text(pen, text.c_str());
    return width;
}

void draw_box(cairo_t *pen, const naro_track_box &box)
{
    const double width = static_cast<double>(box.x2) - box.x1, height = static_cast<double>(box.y2) - box.y1;
    cairo_rectangle(pen, VIEW_SCALE * static_cast<double>(box.x1), VIEW_SCALE * static_cast<double>(box.y1),
                    VIEW_SCALE * width, VIEW_SCALE * height);
    // Dark beneath bright: to be seen on any ground.
    cairo_set_source_rgba(pen, 0, 0, 0, 0.6);
    cairo_set_line_width(pen, 5);
    cairo_stroke_preserve(pen);
    cairo_set_source_rgb(pen, people_colour.red, people_colour.green, people_colour.blue);
    cairo_set_line_width(pen, 2);
    cairo_stroke(pen);
}

// Where an actor really is: dashed, with its name, so that nobody takes it for what the daemon found.
void draw_truth(cairo_t *pen, const truth_actor &actor)
{
    const double x = VIEW_SCALE * static_cast<double>(actor.box[0]),
                 y = VIEW_SCALE * static_cast<double>(actor.box[1]);
    const double width = VIEW_SCALE * static_cast<double>(actor.box[2]) - x;
    const double height = VIEW_SCALE * static_cast<double>(actor.box[3]) - y;
    if (width <= 0 || height <= 0)
        return;
    static const double dashes[] = {4, 4};
    cairo_set_dash(pen, dashes, 2, 0);
    cairo_set_line_width(pen, 1);
    cairo_set_source_rgba(pen, truth_colour.red, truth_colour.green, truth_colour.blue,
                          actor.moves ? 0.9 : 0.5);
    cairo_rectangle(pen, x + 0.5, y + 0.5, width - 1, height - 1);
    cairo_stroke(pen);
    cairo_set_dash(pen, nullptr, 0, 0);
    cairo_move_to(pen, x, y + height + SMALL_SIZE);
    cairo_set_font_size(pen, SMALL_SIZE);
    cairo_show_text(pen, (actor.doing.empty() ? actor.name : actor.name + ": " + actor.doing).c_str());
    cairo_set_font_size(pen, TEXT_SIZE);
}

} // namespace

void overlay_draw(uint32_t *pixels, const frame_result *result, const truth_moment *truth)
{
    cairo_surface_t *surface =
        cairo_image_surface_create_for_data(reinterpret_cast<unsigned char *>(pixels), CAIRO_FORMAT_RGB24,
                                            VIEW_WIDTH, VIEW_HEIGHT, 4 * VIEW_WIDTH);
    cairo_t *pen = cairo_create(surface);
    cairo_select_font_face(pen, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(pen, TEXT_SIZE);
    if (truth)
        for (const truth_actor &actor : truth->actors)
            draw_truth(pen, actor);
    for (int i = 0; i < result->boxes; i++)
        draw_box(pen, result->track.box[i]);
    double x = MARGIN;
    x += label(pen, x, MARGIN, event_time(result->time_ms), plain_colour) + MARGIN;
    for (const std::string &name : result->events)
        x += label(pen, x, MARGIN, name, colour_of(name)) + MARGIN;
    if (result->lost)
        label(pen, x, MARGIN, "not analysed", plain_colour);
    cairo_destroy(pen);
    cairo_surface_finish(surface);
    cairo_surface_destroy(surface);
}

void overlay_exit(void)
{
    cairo_debug_reset_static_data();
    FcFini();
}
