// The person model as it is linked into the program: that it fits its table, and what it takes is what is declared.
#include <gtest/gtest.h>
#include <set>
#include <utility>
#include <vector>

#include "failures_to_stderr.h"
#include "heap_watch.h"
#include <datareader.h>

#include "nn/model_blob.h"
#include "nn/network.h"
#include "nn/nn_handle.h"

namespace
{

class Person : public testing::Test
{
  protected:
    void SetUp() override
    {
        ASSERT_EQ(Init_Network(&handle, &config), 0);
        ASSERT_EQ(Set_Area_Constraint(handle, 16384, 28224), 0);
        pixels.resize(192 * 320 * 3);
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
    }
    void TearDown() override { Release_Network(&handle); }

    NetworkConfig config = {192, 320, 0.5f, 0.5f, 1, 5};
    NetworkHandle *handle = nullptr;
    std::vector<uint8_t> pixels;
};

TEST_F(Person, BothBlobsAreReadToTheirEnd)
{
    EXPECT_TRUE(handle->complete);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(person_model_structure) % 64, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(person_model_weights) % 64, 0u);
    // Read without bounds, the library stops exactly where the files do.
    const unsigned char *at = person_model_weights;
    ncnn::Net net;
    const unsigned char *structure = person_model_structure;
    ASSERT_EQ(net.load_param_bin(ncnn::DataReaderFromMemory(structure)), 0);
    EXPECT_EQ(structure, person_model_structure_end);
    ASSERT_EQ(net.load_model(ncnn::DataReaderFromMemory(at)), 0);
    EXPECT_EQ(at, person_model_weights_end);
}

TEST_F(Person, WeightsAreWithinWhatActivationDeclares)
{
    EXPECT_LE(person_model_weights_end - person_model_weights, handle->model.activation_bytes);
}

TEST_F(Person, OutputsAreGridsOf32And16And8Pixels)
{
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 192, 320, 3), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(handle->outputs[i].h, 128 / (32 >> i));
        EXPECT_EQ(handle->outputs[i].w, 192 / (32 >> i));
        EXPECT_EQ(handle->outputs[i].c, 18);
    }
    EXPECT_GE(GetBBox(handle, 192, 320), 0);
}

// Every crop's pass takes no more than is set aside for its size, whatever the library does inside, and gives all of
// it back but the three outputs.
TEST_F(Person, APassIsWithinWhatItDeclares)
{
    std::set<std::pair<int, int>> seen;
    double worst = 0;
    for (int height = 32; height <= 192; height += 32)
        for (int width = 32; width <= 320; width += 32) {
            config.input_height = static_cast<uint32_t>(height);
            config.input_width = static_cast<uint32_t>(width);
            for (int round = 0; round < 2; ++round) {
                for (int i = 0; i < 3; ++i)
                    handle->outputs[i].release();
                const int64_t blocks = heap_watch::live_blocks;
                const int64_t before = heap_watch::live_bytes;
                heap_watch::reset_peak();
                ASSERT_EQ(Forward_Network(handle, pixels.data(), height, width, 3), 0);
                const double declared =
                    810000. * handle->model.input_height * handle->model.input_width / 16384;
                const double taken = static_cast<double>(heap_watch::peak_bytes - before);
                EXPECT_LE(taken, declared) << handle->model.input_height << "x" << handle->model.input_width;
                worst = std::max(worst, taken / declared);
                if (round == 1) {
                    EXPECT_EQ(heap_watch::live_blocks, blocks + 3);
                }
            }
            seen.insert({handle->model.input_height, handle->model.input_width});
        }
    EXPECT_GT(seen.size(), 10u);
    EXPECT_GT(worst, 0.5); // else the watch sees nothing, or the model deserves a smaller figure
    RecordProperty("peak_of_declared_percent", static_cast<int>(worst * 100));
}

} // namespace
