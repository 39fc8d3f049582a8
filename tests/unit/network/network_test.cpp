// The network handle, over small networks that are built here with weights that make every output
// predictable. Faked: which models there are (nn_model_fill) and the memory check.
#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>
#include <sstream>
#include <string.h>
#include <string>
#include <utility>
#include <vector>

#include <layer_type.h>

#include "failures_to_stderr.h"
#include "heap_watch.h"
#include "isolate.h"
#include "log_capture.h"
#include "nn/network.h"
#include "nn/nn_handle.h"
#include "nn/nn_memory_check.h"
#include "nn/nn_model.h"

namespace
{

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string root = scratch_root();

// ---- Networks
// --------------------------------------------------------------------------------------------------

using Bytes = std::vector<unsigned char>;

void put_word(Bytes *bytes, int32_t word)
{
    const unsigned char *first = reinterpret_cast<const unsigned char *>(&word);
    bytes->insert(bytes->end(), first, first + sizeof word);
}
void put_float(Bytes *bytes, float value)
{
    int32_t word;
    memcpy(&word, &value, sizeof word);
    put_word(bytes, word);
}

// One output: a convolution of kernel 1 that looks at every stride-th pixel.
struct Output {
    int blob;
    int stride;
    std::vector<float> weights; // of the input's channels, the same for each output channel
    std::vector<float> bias;    // one for each output channel
};

struct Network {
    Bytes structure, weights;

    explicit Network(const std::vector<Output> &outputs, int input_channels = 3, int blobs = 165)
    {
        for (int word : {7767517, static_cast<int>(outputs.size()) + 2, blobs})
            put_word(&structure, word);
        for (int word : {static_cast<int>(ncnn::LayerType::Input), 0, 1, 0, -233})
            put_word(&structure, word);
        put_word(&structure, ncnn::LayerType::Split);
        put_word(&structure, 1);
        put_word(&structure, static_cast<int>(outputs.size()));
        put_word(&structure, 0);
        for (size_t i = 0; i < outputs.size(); ++i)
            put_word(&structure, static_cast<int>(i) + 1);
        put_word(&structure, -233);
        for (size_t i = 0; i < outputs.size(); ++i) {
            const Output &output = outputs[i];
            const int channels = static_cast<int>(output.bias.size());
            for (int word :
                 {static_cast<int>(ncnn::LayerType::Convolution), 1, 1, static_cast<int>(i) + 1, output.blob,
                  0, channels, 1, 1, 3, output.stride, 5, 1, 6, channels * input_channels, -233})
                put_word(&structure, word);
            put_word(&weights, 0);
            for (int c = 0; c < channels; ++c)
                for (float weight : output.weights)
                    put_float(&weights, weight);
            for (float bias : output.bias)
                put_float(&weights, bias);
        }
    }
};

const float nothing = -100;

// A grid of 3 anchors of one class with nothing in it but what the pixels add to the objectness of anchor
// `anchor`.
std::vector<float> grid_bias(int anchor, float objectness)
{
    std::vector<float> bias(18, 0);
    for (int a = 0; a < 3; ++a)
        bias[static_cast<size_t>(6 * a + 4)] = a == anchor ? objectness : nothing;
    return bias;
}

Network three_grids(float coarse = nothing, float middle = nothing, float fine = nothing)
{
    const std::vector<float> blind = {0, 0, 0};
    return Network({{142, 32, blind, grid_bias(1, coarse)},
                    {154, 16, blind, grid_bias(1, middle)},
                    {164, 8, blind, grid_bias(1, fine)}});
}

// ---- The fakes
// -------------------------------------------------------------------------------------------------

struct Check {
    uint32_t base_bytes;
    double factor;
    bool operator==(const Check &other) const
    {
        return base_bytes == other.base_bytes && factor == other.factor;
    }
};
std::ostream &operator<<(std::ostream &out, const Check &check)
{
    return out << check.base_bytes << " x " << check.factor;
}

struct World {
    std::vector<nn_model> models; // by index
    std::vector<int> filled;
    std::vector<Check> checks;
    int failing_check = -1; // its number, from 0
} world;

const int output_blobs[] = {142, 154, 164};
const float anchors[] = {10, 13, 16, 30, 33, 23, 30, 61, 62, 45, 59, 119, 116, 90, 156, 198, 373, 326};
const int per_output[] = {3, 3, 3};
const int masks[] = {6, 7, 8, 3, 4, 5, 0, 1, 2};
const float norms[] = {1 / 255.f, 1 / 255.f, 1 / 255.f};

nn_model detector(const Network &network)
{
    nn_model model = {};
    model.structure = network.structure.data();
    model.structure_size = network.structure.size();
    model.weights = network.weights.data();
    model.weights_size = network.weights.size();
    model.input_color = 3;
    model.kind = NN_DETECTOR_MASKED_ANCHORS;
    model.classes = 1;
    model.outputs = 3;
    model.output_blobs = output_blobs;
    model.anchors = anchors;
    model.anchors_per_output = per_output;
    model.anchor_masks = masks;
    model.norms = norms;
    model.alignment_shift = 5;
    model.activation_bytes = 560000;
    model.run_bytes = 810000;
    return model;
}

} // namespace

int nn_model_fill(nn_model *model, int index)
{
    world.filled.push_back(index);
    if (index < 0 || index >= static_cast<int>(world.models.size()))
        return -1;
    *model = world.models[static_cast<size_t>(index)];
    model->index = index;
    return 0;
}

int nn_memory_check(uint32_t base_bytes, double factor)
{
    world.checks.push_back({base_bytes, factor});
    return static_cast<int>(world.checks.size()) - 1 == world.failing_check ? -1 : 0;
}

namespace
{

class NetworkTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        world = {};
        world.models = {detector(grids)};
        world.filled.reserve(1000); // the fakes do not allocate, so that the heap watch sees the module alone
        world.checks.reserve(1000);
    }
    void TearDown() override
    {
        if (handle)
            Release_Network(&handle);
        out.text();
    }
    void init()
    {
        ASSERT_EQ(Init_Network(&handle, &config), 0);
        world.checks.clear();
        world.filled.clear();
        out.clear();
    }
    void init(const Network &network)
    {
        present = network; // the weights are used where they lie
        world.models[0] = detector(present);
        init();
    }
    std::vector<uint8_t> picture(int height, int width, int channels = 3, uint8_t value = 0)
    {
        return std::vector<uint8_t>(static_cast<size_t>(height * width * channels), value);
    }
    // What was printed since the last look.
    std::string said()
    {
        const std::string text = out.text();
        out.clear();
        return text;
    }
    void expect_all_empty()
    {
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(handle->outputs[i].empty()) << i;
        EXPECT_EQ(GetBBox(handle, 128, 192), 0);
        EXPECT_EQ(said(), "Error: Please use Forward_Network() first.\n");
    }

    Network grids = three_grids();
    Network present = grids;
    NetworkConfig config = {128, 192, 0.5f, 0.5f, 1, 5};
    NetworkHandle *handle = nullptr;
    OutputCapture out{STDOUT_FILENO};
};

std::string pointer_text(const void *pointer)
{
    char text[40];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// ---- Creation and release
// --------------------------------------------------------------------------------------

TEST_F(NetworkTest, InitActivatesModelZeroAndSaysSo)
{
    ASSERT_EQ(Init_Network(&handle, &config), 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(said(), "Network handle (" + pointer_text(handle) + ") is successfully created.\n");
    EXPECT_THAT(world.filled, ElementsAre(0));
    EXPECT_THAT(world.checks, ElementsAre(Check{560000, 1}));
    EXPECT_EQ(handle->config, &config);
    EXPECT_TRUE(handle->activated[0]);
    EXPECT_TRUE(handle->complete);
    EXPECT_EQ(handle->model.structure, nullptr);
    EXPECT_EQ(handle->model.weights, nullptr);
    EXPECT_EQ(handle->max_boxes, 5);
    EXPECT_EQ(handle->count, 0);
    ASSERT_NE(Get_Boxes(handle), nullptr);
    EXPECT_EQ(Get_Boxes(handle), handle->boxes);
    expect_all_empty();
}

TEST_F(NetworkTest, TheLibraryIsSetToThriftAndToTheThreadCount)
{
    config.thread_count = 3;
    init();
    EXPECT_TRUE(handle->net->opt.lightmode);
    EXPECT_FALSE(handle->net->opt.use_local_pool_allocator);
    EXPECT_TRUE(handle->net->opt.use_winograd_convolution);
    EXPECT_EQ(handle->net->opt.num_threads, 3);
}

TEST_F(NetworkTest, ThreadCountZeroLeavesTheLibrarysDefault)
{
    config.thread_count = 0;
    init();
    EXPECT_EQ(handle->net->opt.num_threads, ncnn::Option().num_threads);
}

TEST_F(NetworkTest, TheThreadCountIsTakenUpAtEachPass)
{
    init();
    EXPECT_EQ(handle->net->opt.num_threads, 1);
    config.thread_count = 2;
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    EXPECT_EQ(handle->net->opt.num_threads, 2);
    config.thread_count = 0;
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    EXPECT_EQ(handle->net->opt.num_threads, 2);
    config.thread_count = UINT32_MAX;
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    EXPECT_EQ(handle->net->opt.num_threads, INT32_MAX);
}

TEST_F(NetworkTest, InitWarnsOfAHandleThatIsThereAndGoesOn)
{
    init();
    NetworkHandle *first = handle;
    ASSERT_EQ(Init_Network(&handle, &config), 0);
    EXPECT_NE(handle, first);
    EXPECT_EQ(said(), "Warning: The handle is not NULL, it may be already initialized before.\n"
                      "Network handle (" +
                          pointer_text(handle) + ") is successfully created.\n");
    EXPECT_EQ(Release_Network(&first), 0);
}

TEST_F(NetworkTest, InitNeedsAPlaceAndAConfig)
{
    EXPECT_EQ(Init_Network(nullptr, &config), -1);
    EXPECT_EQ(Init_Network(&handle, nullptr), -1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(said(), "Error: Init_Network() needs a place for the handle and a config.\n"
                      "Error: Init_Network() needs a place for the handle and a config.\n");
}

TEST_F(NetworkTest, InitWithoutMemoryForTheModelFails)
{
    world.failing_check = 0;
    EXPECT_EQ(Init_Network(&handle, &config), -1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(said(), "Error: Memory is not enough to activate model.\nError: Failed to activate model.\n");
}

TEST_F(NetworkTest, InitWithoutModelZeroFails)
{
    world.models.clear();
    EXPECT_EQ(Init_Network(&handle, &config), -1);
    EXPECT_EQ(said(),
              "Error: wrong network_index, keep using previous network.\nError: Failed to activate model.\n");
    EXPECT_TRUE(world.checks.empty());
}

TEST_F(NetworkTest, AFailedInitLeavesThePlaceAsItWas)
{
    init();
    NetworkHandle *first = handle;
    world.failing_check = 0;
    EXPECT_EQ(Init_Network(&handle, &config), -1);
    EXPECT_EQ(handle, first);
}

TEST_F(NetworkTest, InitNeedsBothBlobs)
{
    const nn_model whole = world.models[0];
    for (int missing = 0; missing < 4; ++missing) {
        nn_model model = whole;
        if (missing == 0)
            model.structure = nullptr;
        if (missing == 1)
            model.weights = nullptr;
        if (missing == 2)
            model.structure_size = 0;
        if (missing == 3)
            model.weights_size = 0;
        world.models[0] = model;
        EXPECT_EQ(Init_Network(&handle, &config), -1) << missing;
        EXPECT_EQ(said(), "Error: Failed to activate model.\n");
    }
}

TEST_F(NetworkTest, ActivationFailsWhenNeitherLoadSucceeds)
{
    Network broken = grids;
    broken.structure[0] ^= 1; // not the format's mark: and weights for a network without layers are refused
    world.models[0] = detector(broken);
    EXPECT_EQ(Init_Network(&handle, &config), -1);
    EXPECT_EQ(said(), "Error: Failed to activate model.\n");
}

TEST_F(NetworkTest, WithOneLoadActivationCountsButNoPassRuns)
{
    Network cut = grids;
    cut.weights.resize(cut.weights.size() - 4);
    init(cut);
    EXPECT_TRUE(handle->activated[0]);
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), -1);
    EXPECT_EQ(said(), "Error: Failed to do Foward_Network(), something wrong in the library.\n");
    expect_all_empty();
}

TEST_F(NetworkTest, NeitherBlobIsReadPastItsEnd)
{
    // Under the address sanitizer a byte too much would end the test.
    Network cut = grids;
    cut.structure.resize(cut.structure.size() - 4);
    cut.structure.shrink_to_fit();
    world.models[0] = detector(cut);
    EXPECT_EQ(Init_Network(&handle, &config), -1);
    for (size_t size : {size_t{4}, size_t{5}, grids.weights.size() / 2}) {
        cut = grids;
        cut.weights.resize(size);
        cut.weights.shrink_to_fit();
        init(cut);
        EXPECT_FALSE(handle->complete);
        Release_Network(&handle);
    }
}

TEST_F(NetworkTest, AllocationsOfInitMayFailOneByOne)
{
    init(); // the library makes what it keeps for good
    Release_Network(&handle);
    // The handle, the boxes, the network and its first parts.
    for (int i = 0; i < 5; ++i) {
        said();
        heap_watch::fail_at(i);
        const int result = Init_Network(&handle, &config);
        heap_watch::fail_at(-1);
        EXPECT_EQ(result, -1) << i;
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(said(), "Error: Failed to activate model.\n");
    }
}

TEST_F(NetworkTest, TheLastAllocationIsTheOutputsAndMayFailToo)
{
    init();
    Release_Network(&handle);
    heap_watch::fail_at(-1);
    ASSERT_EQ(Init_Network(&handle, &config), 0);
    const int last = heap_watch::calls - 1;
    Release_Network(&handle);
    said();
    const int64_t before = heap_watch::live_blocks;
    heap_watch::fail_at(last);
    const int result = Init_Network(&handle, &config);
    heap_watch::fail_at(-1);
    EXPECT_EQ(heap_watch::live_blocks, before);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(said(), "Error: Failed to activate model.\n");
}

// Row buffers of a few kilobytes the library takes for granted; the memory check is what stands before them.
TEST_F(NetworkTest, APassThatMissesABlobsMemoryEndsAsAnError)
{
    init();
    for (int side : {64, 128}) {
        const std::vector<uint8_t> pixels = picture(side, side);
        config.input_height = config.input_width = 128;
        for (size_t size : {10000, 20000, 60000, 150000, 190000}) {
            heap_watch::fail_from(size);
            const int result = Forward_Network(handle, pixels.data(), side, side, 3);
            heap_watch::fail_from(SIZE_MAX);
            EXPECT_EQ(result, -1) << size;
            EXPECT_THAT(
                said(),
                testing::AnyOf("Error: Target size is too large for current memory space.\n",
                               "Error: Failed to do Foward_Network(), something wrong in the library.\n"));
            expect_all_empty();
        }
        EXPECT_EQ(Forward_Network(handle, pixels.data(), side, side, 3), 0);
    }
}

// The first small allocation of a pass is the extractor's, and throws.
TEST_F(NetworkTest, APassWithoutMemoryForTheExtractorEndsAsAnError)
{
    init();
    const std::vector<uint8_t> pixels = picture(128, 192);
    heap_watch::fail_at(1); // after the input's
    const int result = Forward_Network(handle, pixels.data(), 128, 192, 3);
    heap_watch::fail_at(-1);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(said(), "Error: Failed to do Foward_Network(), something wrong in the library.\n");
    expect_all_empty();
}

TEST_F(NetworkTest, ReleaseFreesEverythingAndClearsThePlace)
{
    int64_t before = 0;
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(Init_Network(&handle, &config), 0);
        EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
        const std::string text = pointer_text(handle);
        said();
        EXPECT_EQ(Release_Network(&handle), 0);
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(said(), "Network handle (" + text + ") is successfully released.\n");
        if (round == 0)
            before = heap_watch::live_blocks; // with what the library keeps for good
    }
    EXPECT_EQ(heap_watch::live_blocks, before);
    EXPECT_EQ(Release_Network(&handle), -1);
    EXPECT_EQ(Release_Network(nullptr), -1);
    EXPECT_EQ(said(), "Error: Cannot release NULL handle.\nError: Cannot release NULL handle.\n");
}

TEST_F(NetworkTest, EveryCallNeedsAHandle)
{
    const std::string line = "Error: Please use Init_Network() first.\n";
    const std::vector<uint8_t> pixels = picture(4, 4);
    float value;
    EXPECT_EQ(Change_Model(nullptr, 0), -1);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Set_Area_Constraint(nullptr, 0, 0), -1);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Forward_Network(nullptr, pixels.data(), 4, 4, 3), -1);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Forward_Network_Stride(nullptr, pixels.data(), 4, 4, 3, 4), -1);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(GetBBox(nullptr, 4, 4), 0);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Get_Boxes(nullptr), nullptr);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Get_Prob(nullptr, &value, 1), 0);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Get_Feature_Size(nullptr), 0);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Get_Feature(nullptr, &value, 1), 0);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Get_Num_Classes(nullptr), 0);
    EXPECT_EQ(said(), line);
    EXPECT_EQ(Save_Output_To_File(nullptr, "/x"), -1);
    EXPECT_EQ(said(), line);
}

// ---- Another model
// ---------------------------------------------------------------------------------------------

TEST_F(NetworkTest, ChangingToThePresentModelChangesNothing)
{
    init();
    const ncnn::Net *net = handle->net;
    EXPECT_EQ(Change_Model(handle, 0), 0);
    EXPECT_EQ(handle->net, net);
    EXPECT_EQ(said(), "");
    EXPECT_TRUE(world.checks.empty());
    EXPECT_TRUE(world.filled.empty());
}

TEST_F(NetworkTest, ChangingToAModelThatIsNotThereKeepsTheOldOne)
{
    init(three_grids(3));
    for (int index : {1, -1}) {
        EXPECT_EQ(Change_Model(handle, index), -1);
        EXPECT_EQ(said(), "Error: wrong network_index, keep using previous network.\n");
    }
    EXPECT_TRUE(world.checks.empty());
    EXPECT_EQ(handle->model.index, 0);
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    EXPECT_GT(GetBBox(handle, 128, 192), 0);
}

// A handle that began on another model: model 0 is then a change.
class ChangeTest : public NetworkTest
{
  protected:
    void begin_elsewhere()
    {
        init(three_grids(3));
        handle->model.index = 7;
        world.models[0] = detector(other);
        world.models[0].activation_bytes = 1234;
        ASSERT_EQ(Set_Area_Constraint(handle, 16384, 28224), 0);
        ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
        world.checks.clear();
        handle->activated[0] = false;
    }
    Network other = three_grids(nothing, nothing, 4);
};

TEST_F(ChangeTest, PutsTheNewNetworkInPlace)
{
    begin_elsewhere();
    ASSERT_EQ(Change_Model(handle, 0), 0);
    EXPECT_EQ(said(), "Successfully changed to model #0\n");
    EXPECT_EQ(handle->model.index, 0);
    EXPECT_TRUE(handle->activated[0]);
    EXPECT_TRUE(handle->complete);
    EXPECT_EQ(handle->model.min_area, 0);
    EXPECT_EQ(handle->model.max_area, 0);
    EXPECT_THAT(world.checks, ElementsAre(Check{1234, 1}));
    expect_all_empty();
    config.iou_threshold = 1;
    config.max_detection = 5;
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    ASSERT_EQ(GetBBox(handle, 128, 192), 5);
    EXPECT_FLOAT_EQ(Get_Boxes(handle)[0].score, 1 / (1 + expf(-4)));
    EXPECT_TRUE(handle->net->opt.use_winograd_convolution);
}

TEST_F(ChangeTest, WithoutMemoryTheOldOneStays)
{
    begin_elsewhere();
    world.failing_check = 0;
    EXPECT_EQ(Change_Model(handle, 0), -1);
    EXPECT_EQ(said(), "Error: Memory is not enough to changle and activate the specified model.\n");
    EXPECT_EQ(handle->model.index, 7);
    EXPECT_EQ(handle->model.max_area, 28224);
    EXPECT_FALSE(handle->activated[0]);
    EXPECT_GT(GetBBox(handle, 128, 192), 0);
}

TEST_F(ChangeTest, WhenNeitherLoadSucceedsTheOldOneStays)
{
    begin_elsewhere();
    other.structure[0] ^= 1;
    world.models[0] = detector(other);
    const int64_t before = heap_watch::live_blocks;
    EXPECT_EQ(Change_Model(handle, 0), -1);
    EXPECT_EQ(heap_watch::live_blocks, before);
    EXPECT_EQ(said(), "Error: Failed to change model.\n");
    world.models[0].weights_size = 0;
    EXPECT_EQ(Change_Model(handle, 0), -1);
    EXPECT_EQ(said(), "Error: Failed to change model.\n");
    EXPECT_EQ(handle->model.index, 7);
    EXPECT_GT(GetBBox(handle, 128, 192), 0);
}

TEST_F(ChangeTest, WithOneLoadItCounts)
{
    begin_elsewhere();
    other.weights.resize(other.weights.size() - 4);
    world.models[0] = detector(other);
    EXPECT_EQ(Change_Model(handle, 0), 0);
    EXPECT_EQ(said(), "Successfully changed to model #0\n");
    EXPECT_FALSE(handle->complete);
}

TEST_F(ChangeTest, LeaksNothing)
{
    begin_elsewhere();
    handle->outputs[0].release();
    handle->outputs[1].release();
    handle->outputs[2].release();
    ASSERT_EQ(Change_Model(handle, 0), 0);
    const int64_t before = heap_watch::live_blocks;
    for (int i = 0; i < 3; ++i) {
        handle->model.index = 7;
        ASSERT_EQ(Change_Model(handle, 0), 0);
    }
    EXPECT_EQ(heap_watch::live_blocks, before);
}

// ---- Area constraint
// -------------------------------------------------------------------------------------------

TEST_F(NetworkTest, AreaConstraintsAreChecked)
{
    init();
    const char *negative = "Error: area must be positive or zero (no constraint).\n";
    const char *crossed =
        "Error: if max_area > 0 and min_area > 0, then it should be max_area >= min_area.\n";
    struct {
        int min_area, max_area, result;
        const char *text;
    } const rows[] = {{16384, 28224, 0, ""}, {0, 20000, 0, ""},     {30000, 0, 0, ""},
                      {0, 0, 0, ""},         {20000, 20000, 0, ""}, {1, 1, 0, ""},
                      {-1, 5, -1, negative}, {5, -1, -1, negative}, {30000, 20000, -1, crossed},
                      {2, 1, -1, crossed}};
    for (const auto &row : rows) {
        handle->model.min_area = 111;
        handle->model.max_area = 222;
        EXPECT_EQ(Set_Area_Constraint(handle, row.min_area, row.max_area), row.result);
        EXPECT_EQ(said(), row.text);
        EXPECT_EQ(handle->model.min_area, row.result == 0 ? row.min_area : 111);
        EXPECT_EQ(handle->model.max_area, row.result == 0 ? row.max_area : 222);
    }
}

// ---- Forward
// ---------------------------------------------------------------------------------------------------

// A network whose outputs are red x 100, green x 100, blue x 100, of every pixel.
Network colours(int input_channels = 3)
{
    std::vector<Output> outputs;
    for (int i = 0; i < 3; ++i) {
        std::vector<float> weights(static_cast<size_t>(input_channels), 0);
        weights[static_cast<size_t>(i % input_channels)] = 100;
        outputs.push_back({output_blobs[i], 1, weights, {0.5f}});
    }
    return Network(outputs, input_channels);
}

TEST_F(NetworkTest, PixelsAreRedGreenBlueOver255)
{
    init(colours());
    config.input_height = 32;
    config.input_width = 64;
    std::vector<uint8_t> pixels = picture(32, 64);
    const size_t at = (5 * 64 + 7) * 3;
    pixels[at] = 51;
    pixels[at + 1] = 102;
    pixels[at + 2] = 255;
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 32, 64, 3), 0);
    const float expected[] = {20, 40, 100};
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(handle->outputs[i].w, 64);
        ASSERT_EQ(handle->outputs[i].h, 32);
        EXPECT_NEAR(handle->outputs[i].channel(0).row(5)[7], expected[i] + 0.5f, 1e-4f);
        EXPECT_NEAR(handle->outputs[i].channel(0).row(5)[8], 0.5f, 1e-4f);
    }
    EXPECT_EQ(said(), "");
}

TEST_F(NetworkTest, TheMeanIsTakenOffBeforeTheFactor)
{
    const float means[] = {10, 20, 30};
    const float factors[] = {0.5f, 0.25f, 2};
    const Network network = colours();
    world.models[0] = detector(network);
    world.models[0].means = means;
    world.models[0].norms = factors;
    init();
    config.input_height = config.input_width = 32;
    const std::vector<uint8_t> pixels = picture(32, 32, 3, 40);
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 32, 32, 3), 0);
    EXPECT_NEAR(handle->outputs[0][0], 100 * (40 - 10) * 0.5f + 0.5f, 1e-2f);
    EXPECT_NEAR(handle->outputs[1][0], 100 * (40 - 20) * 0.25f + 0.5f, 1e-2f);
    EXPECT_NEAR(handle->outputs[2][0], 100 * (40 - 30) * 2 + 0.5f, 1e-2f);
    EXPECT_NEAR(handle->outputs[2].channel(0).row(31)[31], 100 * (40 - 30) * 2 + 0.5f, 1e-2f);
}

TEST_F(NetworkTest, TheLastPixelsOfAPictureOfAnyAreaGetTheirFactor)
{
    const Network network = colours();
    world.models[0] = detector(network);
    world.models[0].alignment_shift = 0;
    init();
    config.input_height = 5;
    config.input_width = 7;
    ASSERT_EQ(Forward_Network(handle, picture(5, 7, 3, 51).data(), 5, 7, 3), 0);
    for (int column = 0; column < 7; ++column)
        EXPECT_NEAR(handle->outputs[1].channel(0).row(4)[column], 100 * 0.2f + 0.5f, 1e-2f) << column;
}

TEST_F(NetworkTest, WithoutMeanAndFactorPixelsStayAsTheyAre)
{
    const Network network = colours();
    world.models[0] = detector(network);
    world.models[0].norms = nullptr;
    init();
    config.input_height = config.input_width = 32;
    ASSERT_EQ(Forward_Network(handle, picture(32, 32, 3, 40).data(), 32, 32, 3), 0);
    EXPECT_NEAR(handle->outputs[1][0], 4000.5f, 1e-2f);
}

TEST_F(NetworkTest, GrayPixelsFillAllThreeColours)
{
    init(colours());
    config.input_height = config.input_width = 32;
    std::vector<uint8_t> pixels = picture(32, 32, 1, 51);
    pixels[33] = 102;
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 32, 32, 1), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(handle->outputs[i][0], 20.5f, 1e-3f);
        EXPECT_NEAR(handle->outputs[i].channel(0).row(1)[1], 40.5f, 1e-3f);
    }
}

TEST_F(NetworkTest, AGrayModelTakesGrayAsItIsAndTheLumaOfColours)
{
    const Network network = colours(1);
    world.models[0] = detector(network);
    world.models[0].input_color = 1;
    init();
    config.input_height = config.input_width = 32;
    ASSERT_EQ(Forward_Network(handle, picture(32, 32, 1, 51).data(), 32, 32, 1), 0);
    EXPECT_NEAR(handle->outputs[0][0], 20.5f, 1e-3f);
    std::vector<uint8_t> pixels = picture(32, 32, 3);
    for (size_t i = 0; i < pixels.size(); i += 3)
        pixels[i + 1] = 255; // green, the brightest of the three: 0.587
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 32, 32, 3), 0);
    EXPECT_NEAR(handle->outputs[0][0], 58.7f + 0.5f, 0.5f);
}

TEST_F(NetworkTest, OtherCountsOfChannelsAreRefused)
{
    init();
    for (int channels : {0, 2, 4, -1}) {
        EXPECT_EQ(Forward_Network(handle, picture(128, 192, 4).data(), 128, 192, channels), -1);
        EXPECT_EQ(said(), "Error: Only support input color = 1 (Gray) or 3 (RGB/BGR).\n");
    }
    world.models[0].input_color = 2;
    handle->model.input_color = 2;
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), -1);
    EXPECT_EQ(said(), "Error: Only support input color = 1 (Gray) or 3 (RGB/BGR).\n");
    EXPECT_TRUE(world.checks.empty());
}

TEST_F(NetworkTest, AGrayModelRefusesOtherCountsToo)
{
    init();
    for (int color : {1, 2})
        for (int channels : {0, 2, 4}) {
            handle->model.input_color = color;
            EXPECT_EQ(Forward_Network(handle, picture(32, 32, 4).data(), 32, 32, channels), -1);
            EXPECT_EQ(said(), "Error: Only support input color = 1 (Gray) or 3 (RGB/BGR).\n");
        }
    EXPECT_EQ(Forward_Network(handle, picture(32, 32, 4).data(), 32, 32, 1), -1); // color 2
    EXPECT_EQ(said(), "Error: Only support input color = 1 (Gray) or 3 (RGB/BGR).\n");
}

TEST_F(NetworkTest, APictureOfWhichOneSideFitsIsResizedAllTheSame)
{
    init();
    for (const auto &[height, width] : {std::pair(128, 100), std::pair(100, 192)}) {
        ASSERT_EQ(Forward_Network(handle, picture(height, width).data(), height, width, 3), 0);
        EXPECT_EQ(handle->outputs[0].w, 6);
        EXPECT_EQ(handle->outputs[0].h, 4);
    }
}

TEST_F(NetworkTest, TheLongestSideIs32767)
{
    init();
    EXPECT_EQ(Forward_Network(handle, picture(2, 32767).data(), 2, 32767, 3), 0);
    EXPECT_EQ(Forward_Network(handle, picture(32767, 2).data(), 32767, 2, 3), 0);
    EXPECT_EQ(said(), "");
}

TEST_F(NetworkTest, StrideIsInPixelsAndMayNotBeLessThanTheWidth)
{
    init(colours());
    config.input_height = config.input_width = 32;
    for (int channels : {1, 3}) {
        // Rows of 40 of which 32 are the picture: what lies between is white.
        std::vector<uint8_t> pixels(static_cast<size_t>(32 * 40 * channels), 255);
        for (int row = 0; row < 32; ++row)
            std::fill_n(pixels.begin() + row * 40 * channels, 32 * channels, static_cast<uint8_t>(51));
        ASSERT_EQ(Forward_Network_Stride(handle, pixels.data(), 32, 32, channels, 40), 0);
        for (int i = 0; i < 32 * 32; ++i)
            ASSERT_NEAR(handle->outputs[0][static_cast<size_t>(i)], 20.5f, 1e-3f);
        // The same, resized.
        config.input_height = config.input_width = 64;
        ASSERT_EQ(Forward_Network_Stride(handle, pixels.data(), 32, 32, channels, 40), 0);
        for (int i = 0; i < 64 * 64; ++i)
            ASSERT_NEAR(handle->outputs[0][static_cast<size_t>(i)], 20.5f, 1e-3f);
        config.input_height = config.input_width = 32;
    }
    EXPECT_EQ(Forward_Network_Stride(handle, picture(32, 32).data(), 32, 32, 3, 32), 0);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(Forward_Network_Stride(handle, picture(32, 32).data(), 32, 32, 3, 31), -1);
    EXPECT_EQ(said(), "Error: stride CANNOT be less than width.\n");
    expect_all_empty();
}

TEST_F(NetworkTest, PicturesThatCannotBeAreRefused)
{
    init();
    const std::vector<uint8_t> pixels = picture(4, 4);
    struct {
        const uint8_t *pixels;
        int height, width, stride;
    } const rows[] = {{nullptr, 4, 4, 4},
                      {pixels.data(), 1, 4, 4},
                      {pixels.data(), 4, 1, 1},
                      {pixels.data(), -4, 4, 4},
                      {pixels.data(), 4, -4, 4},
                      {pixels.data(), 32768, 4, 4},
                      {pixels.data(), 4, 32768, 32768},
                      {pixels.data(), 4, 4, INT32_MAX / 3 + 1}};
    for (const auto &row : rows) {
        EXPECT_EQ(Forward_Network_Stride(handle, row.pixels, row.height, row.width, 3, row.stride), -1);
        EXPECT_EQ(said(), "Error: There is no picture of that size.\n");
    }
    EXPECT_EQ(Forward_Network(handle, pixels.data(), 2, 2, 3), 0);
    EXPECT_EQ(said(), "");
}

TEST_F(NetworkTest, TheInputIsFittedToTheAreaAndKept)
{
    init();
    ASSERT_EQ(Set_Area_Constraint(handle, 16384, 28224), 0);
    config.input_height = 192;
    config.input_width = 320;
    ASSERT_EQ(Forward_Network(handle, picture(192, 320).data(), 192, 320, 3), 0);
    EXPECT_EQ(handle->model.input_height, 128);
    EXPECT_EQ(handle->model.input_width, 192);
    EXPECT_EQ(handle->outputs[0].w, 6);
    EXPECT_EQ(handle->outputs[0].h, 4);
    EXPECT_EQ(handle->outputs[2].w, 24);
    EXPECT_EQ(handle->outputs[2].h, 16);
    EXPECT_THAT(world.checks, ElementsAre(Check{810000, 1.5}));
    config.input_height = 32;
    config.input_width = 32;
    ASSERT_EQ(Forward_Network(handle, picture(32, 32).data(), 32, 32, 3), 0);
    EXPECT_EQ(handle->model.input_height, 128);
    EXPECT_EQ(handle->model.input_width, 128);
    EXPECT_THAT(world.checks, ElementsAre(Check{810000, 1.5}, Check{810000, 1}));
}

TEST_F(NetworkTest, WithoutMemoryForThePassItIsRefused)
{
    init();
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    world.failing_check = 1;
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), -1);
    EXPECT_EQ(said(), "Error: Memory is not enough to inference 192x128 image by current model.\n");
    expect_all_empty();
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
}

TEST_F(NetworkTest, AnInputWithoutMemoryIsRefused)
{
    init();
    for (int side : {64, 128}) { // resized and not
        config.input_height = config.input_width = 128;
        const std::vector<uint8_t> pixels = picture(side, side);
        heap_watch::fail_from(128 * 128 * 3);
        const int result = Forward_Network(handle, pixels.data(), side, side, 3);
        heap_watch::fail_from(SIZE_MAX);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(said(), "Error: Target size is too large for current memory space.\n");
        // The pixels find room, their floats do not.
        heap_watch::fail_from(128 * 128 * 3 * 4);
        EXPECT_EQ(Forward_Network(handle, pixels.data(), side, side, 3), -1);
        heap_watch::fail_from(SIZE_MAX);
        EXPECT_EQ(said(), "Error: Target size is too large for current memory space.\n");
    }
    expect_all_empty();
}

TEST_F(NetworkTest, ResizesAsTheLibraryDoes)
{
    init(colours());
    config.input_height = 64;
    config.input_width = 96;
    std::vector<uint8_t> pixels = picture(40, 50);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<uint8_t>(i * 37 + i / 150 * 11);
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 40, 50, 3), 0);
    const ncnn::Mat reference =
        ncnn::Mat::from_pixels_resize(pixels.data(), ncnn::Mat::PIXEL_RGB, 50, 40, 96, 64);
    for (int c = 0; c < 3; ++c)
        for (int row = 0; row < 64; ++row)
            for (int column = 0; column < 96; ++column)
                ASSERT_NEAR(handle->outputs[c].channel(0).row(row)[column],
                            reference.channel(c).row(row)[column] / 255 * 100 + 0.5f, 1e-3f);
}

TEST_F(NetworkTest, AFailureInTheLibraryEmptiesWhatCameBefore)
{
    // The third output is a blob that the network does not have.
    const Network network({{142, 32, {0, 0, 0}, grid_bias(0, 3)}, {154, 16, {0, 0, 0}, grid_bias(0, 3)}}, 3,
                          155);
    init(network);
    EXPECT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), -1);
    EXPECT_EQ(said(), "Error: Failed to do Foward_Network(), something wrong in the library.\n");
    expect_all_empty();
}

TEST_F(NetworkTest, EveryRefusalEmptiesTheOutputsOfThePassBefore)
{
    init();
    const std::vector<uint8_t> pixels = picture(128, 192);
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 128, 192, 3), 0);
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(Forward_Network_Stride(handle, pixels.data(), 128, 192, 3, 10), -1);
    said();
    expect_all_empty();
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 128, 192, 3), 0);
    EXPECT_EQ(Forward_Network(handle, pixels.data(), 128, 192, 2), -1);
    said();
    expect_all_empty();
}

TEST_F(NetworkTest, PassesLeaveNothingBehind)
{
    init();
    const std::vector<uint8_t> small = picture(64, 64), large = picture(192, 320);
    const auto pass = [&](uint32_t height, uint32_t width, const std::vector<uint8_t> &pixels, int h, int w) {
        config.input_height = height;
        config.input_width = width;
        EXPECT_EQ(Forward_Network(handle, pixels.data(), h, w, 3), 0);
        GetBBox(handle, h, w);
    };
    pass(128, 128, small, 64, 64);
    const int64_t blocks = heap_watch::live_blocks;
    for (int i = 0; i < 20; ++i) {
        pass(128, 192, large, 192, 320);
        pass(128, 128, small, 64, 64);
    }
    EXPECT_EQ(heap_watch::live_blocks, blocks);
}

// ---- Boxes
// -----------------------------------------------------------------------------------------------------

TEST_F(NetworkTest, BoxesComeFromEachOutputInOrder)
{
    // One cell in each; written in another order than they are asked for.
    const std::vector<float> blind = {0, 0, 0};
    init(Network({{164, 128, blind, grid_bias(2, 3)},
                  {142, 128, blind, grid_bias(0, 1)},
                  {154, 128, blind, grid_bias(1, 2)}}));
    config.input_height = config.input_width = 128;
    ASSERT_EQ(Forward_Network(handle, picture(128, 128).data(), 128, 128, 3), 0);
    config.iou_threshold = 1;
    ASSERT_EQ(GetBBox(handle, 1280, 1280), 3);
    EXPECT_EQ(handle->count, 3);
    const BBox *boxes = Get_Boxes(handle);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(boxes[i].score, 1 / (1 + expf(static_cast<float>(-1 - i))));
        EXPECT_EQ(boxes[i].class_index, 0);
    }
    // Anchors 6, 4 and 2: 116 x 90, 62 x 45 and 33 x 23 of 128 pixels.
    EXPECT_EQ(boxes[0].x1, 60);
    EXPECT_EQ(boxes[0].y2, 1090);
    EXPECT_EQ(boxes[1].y1, 415);
    EXPECT_EQ(boxes[2].x2, 805);
}

TEST_F(NetworkTest, BoxesAreInPixelsOfThePictureAndClamped)
{
    std::vector<float> bias = grid_bias(1, 2);
    const Network network({{142, 128, {0, 0, 0}, bias},
                           {154, 128, {0, 0, 0}, grid_bias(0, nothing)},
                           {164, 128, {0, 0, 0}, grid_bias(0, nothing)}});
    init(network);
    config.input_height = config.input_width = 128; // one cell
    ASSERT_EQ(Forward_Network(handle, picture(64, 100).data(), 64, 100, 3), 0);
    ASSERT_EQ(GetBBox(handle, 64, 100), 1);
    // 156 x 198 of 128 x 128 around the middle: past every edge.
    EXPECT_EQ(Get_Boxes(handle)[0].x1, 0);
    EXPECT_EQ(Get_Boxes(handle)[0].y1, 0);
    EXPECT_EQ(Get_Boxes(handle)[0].x2, 99);
    EXPECT_EQ(Get_Boxes(handle)[0].y2, 63);
    // The config's threshold is read anew.
    config.score_threshold = 0.95f;
    EXPECT_EQ(GetBBox(handle, 64, 100), 0);
    EXPECT_EQ(handle->count, 0);
}

TEST_F(NetworkTest, TheIouThresholdIsTheConfigs)
{
    const Network network({{142, 32, {0, 0, 0}, grid_bias(1, 2)},
                           {154, 128, {0, 0, 0}, grid_bias(1, 3)},
                           {164, 128, {0, 0, 0}, grid_bias(0, nothing)}});
    init(network);
    config.input_height = config.input_width = 128;
    config.max_detection = 5;
    ASSERT_EQ(Forward_Network(handle, picture(128, 128).data(), 128, 128, 3), 0);
    const int at_half = GetBBox(handle, 128, 128);
    config.iou_threshold = 0;
    const int at_zero = GetBBox(handle, 128, 128);
    EXPECT_GT(at_half, at_zero);
}

TEST_F(NetworkTest, MoreBoxesThanTheBufferHoldsAreNeverWritten)
{
    init(three_grids(3));
    config.iou_threshold = 1;
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    EXPECT_EQ(GetBBox(handle, 128, 192), 5);
    config.max_detection = 20; // the buffer was made for five
    EXPECT_EQ(GetBBox(handle, 128, 192), 5);
    config.max_detection = 2;
    EXPECT_EQ(GetBBox(handle, 128, 192), 2);
}

TEST_F(NetworkTest, RoomForOneBoxIsRoom)
{
    config.max_detection = 1;
    init(three_grids(3));
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    EXPECT_EQ(GetBBox(handle, 128, 192), 1);
}

TEST_F(NetworkTest, WithoutRoomForBoxesThereAreNone)
{
    const char *line = "No result obtained because boxes == NULL or max_detection == 0.\n";
    init(three_grids(3));
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    for (int none : {0, -3}) {
        config.max_detection = none;
        EXPECT_EQ(GetBBox(handle, 128, 192), 0);
        EXPECT_EQ(said(), line);
    }
    Release_Network(&handle);
    for (int none : {0, -3}) {
        config.max_detection = none;
        init();
        EXPECT_EQ(Get_Boxes(handle), nullptr);
        config.max_detection = 5;
        ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
        EXPECT_EQ(GetBBox(handle, 128, 192), 0);
        EXPECT_EQ(said(), line);
        Release_Network(&handle);
    }
}

TEST_F(NetworkTest, ACountIsForgottenWhenTheNextCallFails)
{
    init(three_grids(3));
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    ASSERT_GT(GetBBox(handle, 128, 192), 0);
    handle->model.kind = NN_CLASSIFIER;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(handle->count, 0);
}

TEST_F(NetworkTest, WhatADetectorMustHave)
{
    const char *missing = "Error: Cannot get detection without given related information.\n";
    init(three_grids(3));
    ASSERT_EQ(Forward_Network(handle, picture(128, 192).data(), 128, 192, 3), 0);
    const nn_model whole = handle->model;
    handle->model.anchors = nullptr;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), missing);
    handle->model = whole;
    handle->model.anchors_per_output = nullptr;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), missing);
    handle->model = whole;
    handle->model.anchor_masks = nullptr;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), missing);
    handle->model = whole;
    handle->model.classes = 0;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), missing);
    // More classes than the grids have channels for would be read past their end.
    handle->model.classes = 2;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), missing);
    handle->model = whole;
    EXPECT_EQ(GetBBox(handle, 128, 192), 5);
    // Anchors of each grid need no masks.
    handle->model.kind = NN_DETECTOR_GRID_ANCHORS;
    handle->model.anchor_masks = nullptr;
    EXPECT_EQ(GetBBox(handle, 128, 192), 5);
    EXPECT_EQ(said(), "");
}

TEST_F(NetworkTest, TheComplaintsOfGetBBoxHaveTheirOrder)
{
    init();
    handle->model.anchors = nullptr;
    config.max_detection = 0;
    handle->model.kind = NN_CLASSIFIER;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), "Error: It's a classification model. Please use Get_Prob().\n");
    for (int kind : {1, 4, 10}) {
        handle->model.kind = kind;
        EXPECT_EQ(GetBBox(handle, 128, 192), 0);
        EXPECT_EQ(said(), "Error: Unknown detector.\n");
    }
    handle->model.kind = NN_DETECTOR_MASKED_ANCHORS;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), "Error: Cannot get detection without given related information.\n");
    handle->model.anchors = anchors;
    EXPECT_EQ(GetBBox(handle, 128, 192), 0);
    EXPECT_EQ(said(), "Error: Please use Forward_Network() first.\n");
}

// ---- Classifiers and feature extractors
// ------------------------------------------------------------------------

// One output of three channels over a row of two cells: 1, 1; 2, 2; 3, 3, plus the red of the pixels.
class OtherKinds : public NetworkTest
{
  protected:
    void start(int kind)
    {
        world.models[0] = detector(network);
        world.models[0].kind = kind;
        world.models[0].outputs = 1;
        world.models[0].classes = 3;
        init();
        config.input_height = 32;
        config.input_width = 64;
    }
    void forward()
    {
        std::vector<uint8_t> pixels = picture(32, 64);
        pixels[32 * 3] = 51; // red of the second cell
        ASSERT_EQ(Forward_Network(handle, pixels.data(), 32, 64, 3), 0);
    }
    Network network{{{142, 32, {1, 0, 0}, {1, 2, 3}}}};
};

TEST_F(OtherKinds, AClassifierGivesItsOutput)
{
    start(NN_CLASSIFIER);
    float values[7] = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(Get_Prob(handle, values, 7), 0);
    EXPECT_EQ(said(), "Error: Please use Forward_Network() first.\n");
    forward();
    EXPECT_EQ(Get_Prob(handle, values, 7), 6);
    EXPECT_THAT(values, ElementsAre(1, testing::FloatEq(1.2f), 2, testing::FloatEq(2.2f), 3,
                                    testing::FloatEq(3.2f), 9));
    values[1] = 9;
    EXPECT_EQ(Get_Prob(handle, values, 1), 1);
    EXPECT_EQ(values[1], 9);
    EXPECT_EQ(Get_Prob(handle, values, 0), 0);
    EXPECT_EQ(Get_Num_Classes(handle), 3);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(Get_Feature_Size(handle), 0);
    EXPECT_EQ(said(), "Error: Only feature extractor can use Get_Feature_Size().\n");
    EXPECT_EQ(Get_Feature(handle, values, 7), 0);
    EXPECT_EQ(said(), "Error: Current model is not a feature extractor, cannot use Get_Feature().\n");
}

TEST_F(OtherKinds, AFeatureExtractorGivesItsFeature)
{
    start(NN_FEATURE_EXTRACTOR);
    EXPECT_EQ(Get_Feature_Size(handle), 0);
    EXPECT_EQ(said(), "");
    forward();
    EXPECT_EQ(Get_Feature_Size(handle), 6);
    float values[6] = {};
    EXPECT_EQ(Get_Feature(handle, values, 6), 6);
    EXPECT_FLOAT_EQ(values[5], 3.2f);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(Get_Prob(handle, values, 6), 0);
    EXPECT_EQ(said(), "Error: Current model is not a classifier, cannot use Get_Prob().\n");
    EXPECT_EQ(Get_Num_Classes(handle), 0);
    EXPECT_EQ(said(), "Error: Only classifier and detector have the number of classes.\n");
}

TEST_F(OtherKinds, AFeatureOfSeveralRowsGoesRowByRow)
{
    start(NN_FEATURE_EXTRACTOR);
    config.input_height = 96;
    std::vector<uint8_t> pixels = picture(96, 64);
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 2; ++column)
            pixels[static_cast<size_t>((row * 32 * 64 + column * 32) * 3)] =
                static_cast<uint8_t>(51 * (2 * row + column));
    ASSERT_EQ(Forward_Network(handle, pixels.data(), 96, 64, 3), 0);
    EXPECT_EQ(Get_Feature_Size(handle), 18);
    float values[18] = {};
    EXPECT_EQ(Get_Feature(handle, values, 18), 18);
    for (int channel = 0; channel < 3; ++channel)
        for (int cell = 0; cell < 6; ++cell)
            EXPECT_NEAR(values[6 * channel + cell], 1 + channel + 0.2 * cell, 1e-5);
}

TEST_F(OtherKinds, DetectorsOnlyCountTheirClasses)
{
    for (int kind : {NN_DETECTOR_GRID_ANCHORS, NN_DETECTOR_MASKED_ANCHORS}) {
        start(kind);
        float value;
        EXPECT_EQ(Get_Num_Classes(handle), 3);
        EXPECT_EQ(said(), "");
        EXPECT_EQ(Get_Prob(handle, &value, 1), 0);
        EXPECT_EQ(said(), "Error: Current model is not a classifier, cannot use Get_Prob().\n");
        EXPECT_EQ(Get_Feature_Size(handle), 0);
        EXPECT_EQ(said(), "Error: Only feature extractor can use Get_Feature_Size().\n");
        EXPECT_EQ(Get_Feature(handle, &value, 1), 0);
        EXPECT_EQ(said(), "Error: Current model is not a feature extractor, cannot use Get_Feature().\n");
        Release_Network(&handle);
    }
}

// ---- To a file, and the options
// ----------------------------------------------------------------------------------

std::string contents(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST_F(OtherKinds, OutputsGoToAFileRowByRow)
{
    start(NN_FEATURE_EXTRACTOR);
    forward();
    EXPECT_EQ(Save_Output_To_File(handle, "/run/output.txt"), 0);
    EXPECT_EQ(said(), "Output file: /run/output.txt\n");
    EXPECT_EQ(contents(root + "/run/output.txt"), "1 1.20000005\n2 2.20000005\n3 3.20000005\n");
}

TEST_F(NetworkTest, EveryOutputGoesToTheFile)
{
    init(Network({{142, 32, {0, 0, 0}, {1}}, {154, 32, {0, 0, 0}, {2}}, {164, 16, {0, 0, 0}, {3}}}));
    config.input_height = config.input_width = 32;
    ASSERT_EQ(Forward_Network(handle, picture(32, 32).data(), 32, 32, 3), 0);
    EXPECT_EQ(Save_Output_To_File(handle, "/run/all.txt"), 0);
    EXPECT_EQ(contents(root + "/run/all.txt"), "1\n2\n3 3\n3 3\n");
}

TEST_F(NetworkTest, AFileNeedsANameAndAPlace)
{
    init();
    EXPECT_EQ(Save_Output_To_File(handle, nullptr), -1);
    EXPECT_EQ(said(), "Error: Cannot output to file without given filename.\n");
    EXPECT_EQ(Save_Output_To_File(handle, ""), -1);
    EXPECT_EQ(said(), "Error: Cannot output to file without given filename.\n");
    EXPECT_EQ(Save_Output_To_File(handle, "/nowhere/output.txt"), -1);
    EXPECT_EQ(said(), "Error: Cannot write /nowhere/output.txt.\n");
}

TEST_F(OtherKinds, AFullDiskIsNoticed)
{
    start(NN_FEATURE_EXTRACTOR);
    forward();
    std::filesystem::create_symlink("/dev/full", root + "/run/full.txt");
    EXPECT_EQ(Save_Output_To_File(handle, "/run/full.txt"), -1);
    EXPECT_EQ(said(), "Error: Cannot write /run/full.txt.\n");
}

TEST(Options, ArePrinted)
{
    OutputCapture out(STDOUT_FILENO);
    Print_Options();
    EXPECT_EQ(out.text(),
              "#OPTION_AVOID_OOM=ON#\n#OPTION_MEMORY_MARGIN=3000000#\n#OPTION_INPUT_FORMAT=RGB#\n");
}

} // namespace
