// The embedded person model: its structure (ncnn's binary form) and its weights, as linked into the program.
#ifndef NN_MODEL_BLOB_H
#define NN_MODEL_BLOB_H

#include <stddef.h>

extern "C" {
extern const unsigned char person_model_structure[]; // 64-byte aligned
extern const unsigned char person_model_structure_end[];
extern const unsigned char person_model_weights[]; // 64-byte aligned
extern const unsigned char person_model_weights_end[];
}

#endif
