// Pictures for the image engine: each type's planes, sizes and descriptor, refusals, and memory that is refused.
#include "ive_image.h"

#include <stdlib.h>
#include <string.h>

#include <gmock/gmock.h>

#include "failures_to_stderr.h"
#include "log_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

// ---- The heap, watched -----------------------------------------------------------------------------------

namespace
{
struct {
    bool watching;
    int fail_at; // the allocation of this number (1 = the first) is refused
    size_t sizes[8];
    void *memory[8];
    int allocations;
    void *freed[8];
    int frees;
} heap;
} // namespace

extern "C" {
void *__real_malloc(size_t size);
void __real_free(void *memory);

void *__wrap_malloc(size_t size)
{
    if (!heap.watching || heap.allocations == 8)
        return __real_malloc(size);
    heap.sizes[heap.allocations++] = size;
    void *memory = heap.allocations == heap.fail_at ? nullptr : __real_malloc(size);
    heap.memory[heap.allocations - 1] = memory;
    return memory;
}
void __wrap_free(void *memory)
{
    if (heap.watching && memory && heap.frees < 8)
        heap.freed[heap.frees++] = memory;
    __real_free(memory);
}
}

namespace
{

class IveImage : public testing::Test
{
  protected:
    void SetUp() override { heap = {}; }
    // The call under test, and what it prints.
    int allocate(uint32_t type, uint16_t stride, uint16_t width, uint16_t height, int fail_at = 0)
    {
        memset(&image, 0xA5, sizeof image); // what stood there must not matter
        OutputCapture out(STDOUT_FILENO);
        heap = {};
        heap.fail_at = fail_at;
        heap.watching = true;
        const int result = ModuleTest_AllocateImage(&image, type, stride, width, height);
        heap.watching = false;
        printed = out.text();
        return result;
    }
    int release()
    {
        OutputCapture out(STDOUT_FILENO);
        heap = {};
        heap.watching = true;
        const int result = ModuleTest_FreeImage(&image);
        heap.watching = false;
        printed = out.text();
        return result;
    }
    std::vector<size_t> sizes() const
    {
        return std::vector<size_t>(heap.sizes, heap.sizes + heap.allocations);
    }
    std::vector<void *> freed() const { return std::vector<void *>(heap.freed, heap.freed + heap.frees); }
    bool image_is_zero() const
    {
        const mi_ive_image zero = {};
        return image.type == 0 && image.width == 0 && image.height == 0 &&
               memcmp(image.phys_addr, zero.phys_addr, sizeof image.phys_addr) == 0 &&
               memcmp(image.virt_addr, zero.virt_addr, sizeof image.virt_addr) == 0 &&
               memcmp(image.stride, zero.stride, sizeof image.stride) == 0;
    }

    mi_ive_image image;
    std::string printed;
};

struct TypeCase {
    uint32_t type;
    std::vector<size_t> sizes; // of a picture of stride 50 and height 7: 350 elements
};

const TypeCase types[] = {
    {0, {350}},      {1, {350}},   {2, {350, 175}}, {3, {350, 350}}, {6, {700}},
    {7, {350, 350}}, {8, {700}},   {9, {700}},      {10, {1050}},    {11, {350, 350, 350}},
    {12, {1400}},    {13, {1400}}, {14, {2800}},    {15, {2800}},
};

TEST_F(IveImage, EveryTypeHasItsPlanes)
{
    for (const TypeCase &c : types) {
        SCOPED_TRACE("type " + std::to_string(c.type));
        ASSERT_EQ(allocate(c.type, 50, 40, 7), 0);
        EXPECT_EQ(printed, "");
        EXPECT_EQ(sizes(), c.sizes);
        EXPECT_EQ(image.type, c.type);
        EXPECT_EQ(image.width, 40);
        EXPECT_EQ(image.height, 7);
        std::vector<void *> planes;
        for (size_t i = 0; i < 3; i++) {
            SCOPED_TRACE("plane " + std::to_string(i));
            EXPECT_EQ(image.phys_addr[i], reinterpret_cast<uintptr_t>(image.virt_addr[i]));
            if (i >= c.sizes.size()) {
                EXPECT_EQ(image.virt_addr[i], nullptr);
                EXPECT_EQ(image.stride[i], 0);
                continue;
            }
            EXPECT_EQ(image.stride[i], 50);
            ASSERT_EQ(image.virt_addr[i], heap.memory[i]);
            memset(image.virt_addr[i], 1, c.sizes[i]); // the plane is really there
            planes.push_back(image.virt_addr[i]);
        }
        EXPECT_EQ(release(), 0);
        EXPECT_EQ(printed, "");
        EXPECT_EQ(freed(), planes);
        EXPECT_TRUE(image_is_zero());
    }
}

TEST_F(IveImage, HalfAPlaneOfAnOddSizeIsRoundedDown)
{
    ASSERT_EQ(allocate(2, 5, 5, 3), 0);
    EXPECT_THAT(sizes(), ElementsAre(15, 7));
    EXPECT_EQ(release(), 0);
}

TEST_F(IveImage, ThePicturesOfTheDetectionTask)
{
    ASSERT_EQ(allocate(MI_IVE_U8C3_PACKED, 320, 320, 192), 0);
    EXPECT_THAT(sizes(), ElementsAre(184320));
    EXPECT_EQ(release(), 0);
    ASSERT_EQ(allocate(MI_IVE_U16C1, 40, 40, 24), 0);
    EXPECT_THAT(sizes(), ElementsAre(1920));
    EXPECT_EQ(release(), 0);
    ASSERT_EQ(allocate(MI_IVE_U8C1, 40, 40, 24), 0);
    EXPECT_THAT(sizes(), ElementsAre(960));
    EXPECT_EQ(release(), 0);
}

TEST_F(IveImage, SizesBeyond32BitsAreNotCutShort)
{
    // Refused by the fake, so that nobody needs that much.
    EXPECT_EQ(allocate(14, 65535, 65535, 65535, 1), static_cast<int>(0xA000200Cu));
    if (sizeof(size_t) > 4) {
        EXPECT_THAT(sizes(), ElementsAre(size_t{65535} * 65535 * 8));
    }
    EXPECT_TRUE(image_is_zero());
}

TEST_F(IveImage, TypesThatAreNotSupported)
{
    for (uint32_t type : {4u, 5u, 16u, 17u, 255u, 256u, 0xFFFFFFFFu}) {
        SCOPED_TRACE("type " + std::to_string(type));
        EXPECT_EQ(allocate(type, 50, 40, 7), static_cast<int>(0xA0002003u));
        EXPECT_EQ(printed, "Format is not support!!\n");
        EXPECT_THAT(sizes(), IsEmpty());
        // The descriptor says what was asked for and owns nothing.
        EXPECT_EQ(image.type, type);
        EXPECT_EQ(image.width, 40);
        EXPECT_EQ(image.height, 7);
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(image.virt_addr[i], nullptr);
            EXPECT_EQ(image.phys_addr[i], 0u);
            EXPECT_EQ(image.stride[i], 0);
        }
        EXPECT_EQ(release(), static_cast<int>(0xA0002003u));
        EXPECT_EQ(printed, "Format is not support!!\n");
        EXPECT_THAT(freed(), IsEmpty());
        EXPECT_EQ(image.type, type);
        EXPECT_EQ(image.width, 40);
    }
}

TEST_F(IveImage, AfterARefusedPlaneNothingIsLeft)
{
    for (const TypeCase &c : types) {
        for (size_t refused = 1; refused <= c.sizes.size(); refused++) {
            SCOPED_TRACE("type " + std::to_string(c.type) + " plane " + std::to_string(refused));
            EXPECT_EQ(allocate(c.type, 50, 40, 7, static_cast<int>(refused)), static_cast<int>(0xA000200Cu));
            EXPECT_EQ(printed, "");
            EXPECT_EQ(heap.allocations, static_cast<int>(refused)); // none after it
            const std::vector<void *> made(heap.memory, heap.memory + refused - 1);
            EXPECT_EQ(freed(), made);
            EXPECT_TRUE(image_is_zero());
            EXPECT_EQ(release(), 0); // as a zeroed descriptor
            EXPECT_THAT(freed(), IsEmpty());
        }
    }
}

TEST_F(IveImage, AZeroedDescriptorIsFreedWithoutAWord)
{
    image = {};
    EXPECT_EQ(release(), 0);
    EXPECT_EQ(printed, "");
    EXPECT_THAT(freed(), IsEmpty());
    EXPECT_TRUE(image_is_zero());
}

} // namespace
