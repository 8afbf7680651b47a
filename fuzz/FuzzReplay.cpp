// Replays a fuzz target's seed inputs without libFuzzer, so that the test
// suite runs every seed through the target's checks with the ordinary
// compiler. Usage: replay_<target> FOLDER_OR_FILE...
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputsIn(const std::filesystem::path &place)
{
    if (!std::filesystem::is_directory(place))
        return {place};
    std::vector<std::filesystem::path> inputs;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(place)) {
        if (entry.is_regular_file())
            inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

} // namespace

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    std::size_t replayed = 0;
    for (int index = 1; index < argc; ++index) {
        for (const auto &input : inputsIn(argv[index])) {
            std::ifstream file(input, std::ios::binary);
            if (!file) {
                std::cerr << "cannot read " << input << '\n';
                return 1;
            }
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            // A target that finds a fault aborts, which fails the test.
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    std::cout << "replayed " << replayed << " inputs\n";
    return replayed > 0 ? 0 : 1;
}
