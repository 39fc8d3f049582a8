// What rooms and things are made of: reflectances in four bands, by name.
#ifndef THINGS_STUFF_H
#define THINGS_STUFF_H

#include "scene_types.h"

enum stuff {
    STUFF_WALL,
    STUFF_WALL_OTHER, // one wall of a room in another colour
    STUFF_CEILING,
    STUFF_SKIRTING,
    STUFF_OAK_FLOOR,
    STUFF_DARK_FLOOR,
    STUFF_TILES,
    STUFF_CARPET,
    STUFF_DOOR,
    STUFF_WHITE_LACQUER, // frames, sills, radiators, cabinets
    STUFF_METAL,
    STUFF_DARK_METAL,
    STUFF_CHROME,
    STUFF_GLASS_DARK, // screens that are off, oven doors
    STUFF_BLACK_PLASTIC,
    STUFF_GREY_PLASTIC,
    STUFF_WHITE_PLASTIC,
    STUFF_LIGHT_WOOD,
    STUFF_WOOD,
    STUFF_DARK_WOOD,
    STUFF_SOFA,
    STUFF_CUSHION,
    STUFF_THROW,
    STUFF_CHAIR_CLOTH,
    STUFF_RUG,
    STUFF_BEDDING,
    STUFF_SHEET,
    STUFF_PILLOW,
    STUFF_CURTAIN,
    STUFF_SHADE, // of lamps: lets light through
    STUFF_LEAF,
    STUFF_POT,
    STUFF_SOIL,
    STUFF_PAPER,
    STUFF_BOOK_A,
    STUFF_BOOK_B,
    STUFF_BOOK_C,
    STUFF_BOOK_D,
    STUFF_BOOK_E,
    STUFF_CARDBOARD,
    STUFF_PICTURE_A,
    STUFF_PICTURE_B,
    STUFF_PICTURE_C,
    STUFF_POSTER,
    STUFF_WORKTOP,
    STUFF_CABINET,
    STUFF_WALL_TILES,
    STUFF_CERAMIC,
    STUFF_TOY_RED,
    STUFF_TOY_YELLOW,
    STUFF_TOY_BLUE,
    STUFF_TOY_GREEN,
    STUFF_PLUSH,
    STUFF_COAT,
    STUFF_SCARF,
    STUFF_WICKER,
    STUFF_MIRROR,
    STUFF_SCREEN_ON, // television and monitor that run
    STUFF_GLOW,      // a lamp's lit part; its emission is set by who uses it
    STUFFS
};

// One variant of a stuff, chosen by the seed: the same seed always the same.
scene_material stuff_material(stuff what, uint32_t seed);
// How many variants there are. For tests.
int stuff_variants(stuff what);

#endif
