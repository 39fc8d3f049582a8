// Runs a fuzz target on files instead of on a fuzzer's inventions: each argument is a file, or a folder of which
// every file is taken. No file at all is a failure, because a test that runs nothing proves nothing.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdint.h>
#include <stdio.h>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

int main(int argc, char **argv)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; i++) {
        if (!std::filesystem::is_directory(argv[i])) {
            files.push_back(argv[i]);
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(argv[i]))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    }
    if (files.empty()) {
        fprintf(stderr, "no file to run\n");
        return 1;
    }
    std::sort(files.begin(), files.end());
    LLVMFuzzerTestOneInput(nullptr, 0); // as a fuzzer does first
    for (const auto &file : files) {
        std::ifstream stream(file, std::ios::binary);
        if (!stream) {
            fprintf(stderr, "%s cannot be read\n", file.c_str());
            return 1;
        }
        printf("%s\n", file.c_str()); // before it runs: the last line names the one that broke something
        fflush(stdout);
        const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        // Memory of exactly this size, so that a read beyond the input is seen.
        const std::vector<uint8_t> input(text.begin(), text.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    printf("%zu files\n", files.size());
    return 0;
}
