// The corpus replay of a fuzz target without libFuzzer: every file of the
// directories (or the files) named on the command line goes through the
// target's entry once, in name order.  Built with the test programs, it
// runs under whatever sanitizers the build has, so the ASan+UBSan pass
// replays every corpus with no second build of the library.
#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace {

std::vector<std::string> Inputs(const std::string &path) {
    std::vector<std::string> files;
    if (DIR *dir = opendir(path.c_str())) {
        while (dirent *entry = readdir(dir))
            if (entry->d_name[0] != '.')
                files.push_back(path + "/" + entry->d_name);
        closedir(dir);
        std::sort(files.begin(), files.end());
    } else {
        files.push_back(path);
    }
    return files;
}

} // namespace

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    size_t count = 0;
    for (int i = 1; i < argc; ++i)
        for (const std::string &file : Inputs(argv[i])) {
            std::ifstream in(file, std::ios::binary);
            if (!in) {
                std::fprintf(stderr, "can't read %s\n", file.c_str());
                return 1;
            }
            std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            /* A block of exactly the input's size, as libFuzzer hands it
             * over: never null, even for an empty input, and ASan guards
             * its end. */
            std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
            if (!bytes.empty())
                std::memcpy(exact.get(), bytes.data(), bytes.size());
            LLVMFuzzerTestOneInput(exact.get(), bytes.size());
            ++count;
        }
    std::printf("replayed %zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
