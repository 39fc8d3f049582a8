// Gives pictures to the daemon's detector and keeps what its network makes of each, and counts the memory that it takes:
// what check_arm compares between machines. usage: outputs LIST KIND; LIST names pictures (PPM), the outputs of each go to
// PICTURE.KIND.
#include <algorithm>
#include <fstream>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include "live_bytes.h"
#include "nn/network.h"

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    NetworkConfig config = {192, 320, 0.5f, 0.5f, 1, 5};
    NetworkHandle *network = nullptr;
    const size_t before = live_bytes();
    live_bytes_restart();
    if (Init_Network(&network, &config) != 0 || Set_Area_Constraint(network, 16384, 28224) != 0)
        return 1;
    const size_t activation = live_bytes_peak() - before, loaded = live_bytes() - before;
    size_t most = 0, pictures = 0, boxes = 0;
    std::ifstream list(argv[1]);
    for (std::string name; std::getline(list, name); pictures++) {
        std::ifstream file(name, std::ios::binary);
        std::string kind;
        int width = 0, height = 0, largest = 0;
        file >> kind >> width >> height >> largest;
        file.get();
        if (kind != "P6" || width < 2 || height < 2 || width > 4096 || height > 4096 || largest != 255)
            return 1;
        std::vector<uint8_t> pixels(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
        if (!file.read(reinterpret_cast<char *>(pixels.data()), static_cast<std::streamsize>(pixels.size())))
            return 1;
        config.input_width = static_cast<uint32_t>((width + 31) / 32 * 32);
        config.input_height = static_cast<uint32_t>((height + 31) / 32 * 32);
        const size_t begin = live_bytes();
        live_bytes_restart();
        if (Forward_Network(network, pixels.data(), height, width, 3) != 0)
            return 1;
        most = std::max(most, live_bytes_peak() - begin);
        boxes += static_cast<size_t>(GetBBox(network, height, width));
        if (freopen("/dev/null", "w", stdout) == nullptr || // which says where it wrote
            Save_Output_To_File(network, (name + "." + argv[2]).c_str()) != 0)
            return 1;
    }
    fprintf(stderr,
            "%s: %zu-bit, %zu pictures, %zu boxes; live bytes: %zu at most during activation, %zu after it, "
            "%zu at most "
            "during a pass\n",
            argv[2], sizeof(void *) * 8, pictures, boxes, activation, loaded, most);
    Release_Network(&network);
    return pictures > 0 ? 0 : 1;
}
