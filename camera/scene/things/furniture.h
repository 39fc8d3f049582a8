// Furniture and what lies about: each kind is built into the room's own meshes around its place. A piece
// stands on the floor of its axes (x to its right, y the way it faces, z up), w wide, d deep, h high.
#ifndef THINGS_FURNITURE_H
#define THINGS_FURNITURE_H

#include "shapes.h"
#include "stuff.h"

enum furniture_kind {
    FURNITURE_SOFA,
    FURNITURE_CHAIR,
    FURNITURE_OFFICE_CHAIR,
    FURNITURE_STOOL,
    FURNITURE_TABLE,
    FURNITURE_DESK,
    FURNITURE_MONITOR, // with keyboard, mouse, papers
    FURNITURE_BED,
    FURNITURE_COT,
    FURNITURE_DRAWERS,
    FURNITURE_WARDROBE,
    FURNITURE_BOOKCASE,
    FURNITURE_SIDEBOARD,
    FURNITURE_TV,
    FURNITURE_TABLE_LAMP,
    FURNITURE_FLOOR_LAMP,
    FURNITURE_RUG,
    FURNITURE_PLANT,
    FURNITURE_RADIATOR,
    FURNITURE_PICTURE,
    FURNITURE_POSTER,
    FURNITURE_MIRROR,
    FURNITURE_CLOCK,
    FURNITURE_HOOKS, // a rail for coats
    FURNITURE_WALL_SHELF,
    FURNITURE_BASE_UNIT, // kitchen: cabinets under a worktop
    FURNITURE_WALL_UNIT,
    FURNITURE_SINK, // in a worktop
    FURNITURE_STOVE,
    FURNITURE_HOOD,
    FURNITURE_FRIDGE,
    FURNITURE_CUPS,  // bottles, cups, a bowl: what stands on tables
    FURNITURE_BOOKS, // a few that lie
    FURNITURE_TOYS,
    FURNITURE_BEAR,
    FURNITURE_BASKET,
    FURNITURE_BIN,
    FURNITURE_BOXES, // cardboard
    FURNITURE_BOARD, // whiteboard
    FURNITURE_SHOES,
    FURNITURE_SWITCH, // light switch or socket
    FURNITURE_BENCH,
    FURNITURE_PRINTER,
    FURNITURE_DOOR,    // to elsewhere, closed
    FURNITURE_CLOTHES, // thrown down
    FURNITURE_KINDS
};

enum { ON_FLOOR = -1 };
// A line of a room's plan. Against a wall (0 near, 1 right, 2 far, 3 left): `a` is the place along it, left
// to right as seen from inside, `b` the gap behind. On the floor: `a` and `b` are x and y, `heading` where
// its front looks.
struct furniture_item {
    furniture_kind kind;
    int wall;
    float a, b, heading, z, w, d, h;
};

// A part with a light of its own: what it looks like depends on whether that is on.
enum furniture_light { LIT_TABLE_LAMP, LIT_TV, LIT_MONITOR, LIT_CEILING_LAMP };
struct furniture_lit {
    furniture_light light;
    scene_mesh mesh; // materials: one, index 0
    scene_vec place; // of the light
    scene_vec ahead; // the way it shines
    float size[2];
};

struct furniture_work {
    shape_maker solid, leaves; // leaves are seen from both sides
    scene_random random;
    std::vector<furniture_lit> *lit;
};
// Builds one piece; work->solid.place and work->leaves.place say where.
void furniture_build(furniture_work *work, const furniture_item *item);
// Whether a person has to walk around it.
bool furniture_blocks(const furniture_item *item);

// The builders, one for each kind, by where they are written.
typedef void furniture_builder(furniture_work *work, const furniture_item *item);
furniture_builder furniture_sofa, furniture_chair, furniture_office_chair, furniture_stool, furniture_bed,
    furniture_cot, furniture_bench;
furniture_builder furniture_table, furniture_desk, furniture_drawers, furniture_wardrobe, furniture_bookcase,
    furniture_sideboard, furniture_wall_shelf, furniture_base_unit, furniture_wall_unit, furniture_sink,
    furniture_stove, furniture_hood, furniture_fridge, furniture_basket, furniture_bin, furniture_boxes;
furniture_builder furniture_monitor, furniture_tv, furniture_table_lamp, furniture_floor_lamp, furniture_rug,
    furniture_plant, furniture_radiator, furniture_picture, furniture_poster, furniture_mirror,
    furniture_clock, furniture_hooks, furniture_cups, furniture_books, furniture_toys, furniture_bear,
    furniture_board, furniture_shoes, furniture_switch, furniture_printer, furniture_door, furniture_clothes;

#endif
