// The table of the embedded model, held to its numbers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <vector>

#include "nn/model_blob.h"
#include "nn/nn_model.h"

// In the place of the linked files: three bytes of structure, five of weights.
__asm__(".pushsection .rodata\n"
        ".global person_model_structure, person_model_structure_end, person_model_weights, "
        "person_model_weights_end\n"
        ".balign 64\n"
        "person_model_structure: .byte 1, 2, 3\n"
        "person_model_structure_end: .byte 0\n"
        ".balign 64\n"
        "person_model_weights: .byte 4, 5, 6, 7, 8\n"
        "person_model_weights_end: .byte 0\n"
        ".popsection\n");

namespace
{

using testing::ElementsAre;

template <typename T> std::vector<T> values(const T *first, size_t count)
{
    return std::vector<T>(first, first + count);
}

TEST(Model, ThePersonDetectorsTable)
{
    nn_model model;
    memset(&model, 0x55, sizeof model); // every field must be written
    ASSERT_EQ(nn_model_fill(&model, 0), 0);
    EXPECT_EQ(model.index, 0);
    EXPECT_EQ(values(model.structure, model.structure_size), (std::vector<unsigned char>{1, 2, 3}));
    EXPECT_EQ(values(model.weights, model.weights_size), (std::vector<unsigned char>{4, 5, 6, 7, 8}));
    EXPECT_EQ(model.input_color, 3);
    EXPECT_EQ(model.kind, 3);
    EXPECT_EQ(model.classes, 1);
    EXPECT_EQ(model.outputs, 3);
    EXPECT_THAT(values(model.output_blobs, 3), ElementsAre(142, 154, 164));
    EXPECT_THAT(values(model.anchors, 18),
                ElementsAre(10, 13, 16, 30, 33, 23, 30, 61, 62, 45, 59, 119, 116, 90, 156, 198, 373, 326));
    EXPECT_THAT(values(model.anchors_per_output, 3), ElementsAre(3, 3, 3));
    EXPECT_THAT(values(model.anchor_masks, 9), ElementsAre(6, 7, 8, 3, 4, 5, 0, 1, 2));
    EXPECT_EQ(model.means, nullptr);
    EXPECT_THAT(values(model.norms, 3), ElementsAre(1 / 255.f, 1 / 255.f, 1 / 255.f));
    EXPECT_EQ(model.alignment_shift, 5);
    EXPECT_EQ(model.min_area, 0);
    EXPECT_EQ(model.max_area, 0);
    EXPECT_EQ(model.activation_bytes, 560000u);
    EXPECT_EQ(model.run_bytes, 810000u);
    EXPECT_EQ(model.input_height, 0);
    EXPECT_EQ(model.input_width, 0);
}

TEST(Model, TheKindsHaveTheirNumbers)
{
    EXPECT_EQ(NN_CLASSIFIER, 0);
    EXPECT_EQ(NN_DETECTOR_GRID_ANCHORS, 2);
    EXPECT_EQ(NN_DETECTOR_MASKED_ANCHORS, 3);
    EXPECT_EQ(NN_FEATURE_EXTRACTOR, 10);
    EXPECT_EQ(NN_MODELS, 1);
}

TEST(Model, ThereIsNoOther)
{
    for (int index : {-1, 1, 2}) {
        nn_model model = {};
        model.min_area = 77;
        EXPECT_EQ(nn_model_fill(&model, index), -1);
        EXPECT_EQ(model.min_area, 77);
        EXPECT_EQ(model.structure, nullptr);
    }
}

} // namespace
