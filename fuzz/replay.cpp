// Runs a target over the inputs that it is given, files or folders of files, where no fuzzer drives it. Arguments that
// start with "-" belong to the fuzzer and are left alone.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz.h"

namespace {

void replay(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string input(std::istreambuf_iterator<char>(stream), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

}  // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path = argv[i];
        if (argv[i][0] == '-') continue;
        if (is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) replay(entry), ++replayed;
        } else {
            replay(path), ++replayed;
        }
    }
    printf("%d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
