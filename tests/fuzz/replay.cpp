// Runs a fuzzer over the files and folders that it is given, without a fuzzing
// engine: every file once. Says how many there were.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

extern "C" int LLVMFuzzerInitialize(int *count, char ***arguments)
    __attribute__((weak));
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(int count, char **arguments) {
    std::vector<fs::path> files;
    for (int i = 1; i < count; i++) {
        if (!fs::is_directory(arguments[i])) {
            files.emplace_back(arguments[i]);
            continue;
        }
        for (const auto &each : fs::directory_iterator(arguments[i]))
            files.push_back(each.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool run(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> octets{std::istreambuf_iterator<char>(file), {}};
    if (!file)
        return false;
    // Of exactly its size, so that a sanitizer sees what is read beyond.
    std::vector<uint8_t> input(octets.begin(), octets.end());
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

} // namespace

int main(int count, char **arguments) {
    // A fuzzer may take the standard streams for itself.
    FILE *const out = fdopen(dup(STDOUT_FILENO), "w");
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&count, &arguments);
    const std::vector<fs::path> files = files_of(count, arguments);
    for (const fs::path &each : files) {
        fprintf(out, "%s\n", each.c_str());
        fflush(out);
        if (!run(each)) {
            fprintf(out, "cannot be read\n");
            return 1;
        }
    }
    fprintf(out, "%zu inputs\n", files.size());
    fclose(out);
    return files.empty() ? 1 : 0;
}
