// Every checked-in corpus file and every input that once crashed a reader, run through that
// reader's fuzz entry in this one process. A reader that crashes again takes the test down.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

#include "FuzzTarget.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> FilesIn(const fs::path& dir) {
    std::vector<fs::path> files;
    std::error_code ignored;
    if (!fs::is_directory(dir, ignored)) return files;
    for (const auto& e : fs::directory_iterator(dir))
        if (e.is_regular_file()) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::uint8_t> Bytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

const fs::path kFuzzDir = TROVO_FUZZ_DIR;

}  // namespace

TEST(FuzzReplay, EveryTargetHasASeedCorpus) {
    ASSERT_FALSE(trovofuzz::Entries().empty());
    for (const auto& [name, entry] : trovofuzz::Entries())
        EXPECT_FALSE(FilesIn(kFuzzDir / "corpus" / name).empty()) << name;
}

TEST(FuzzReplay, EveryCorpusFolderNamesATarget) {
    for (const char* kind : {"corpus", "crashes"}) {
        std::error_code ignored;
        if (!fs::is_directory(kFuzzDir / kind, ignored)) continue;
        for (const auto& e : fs::directory_iterator(kFuzzDir / kind)) {
            if (e.is_directory()) {
                EXPECT_EQ(trovofuzz::Entries().count(e.path().filename().string()), 1u) << e.path();
            }
        }
    }
}

TEST(FuzzReplay, CorporaAndPastCrashesRunThroughTheirReaders) {
    std::size_t inputs = 0;
    for (const auto& [name, entry] : trovofuzz::Entries()) {
        for (const char* kind : {"corpus", "crashes"}) {
            for (const fs::path& file : FilesIn(kFuzzDir / kind / name)) {
                SCOPED_TRACE(file.string());
                const std::vector<std::uint8_t> bytes = Bytes(file);
                EXPECT_EQ(entry(bytes.data(), bytes.size()), 0);
                ++inputs;
            }
        }
    }
    EXPECT_GT(inputs, trovofuzz::Entries().size());
}
