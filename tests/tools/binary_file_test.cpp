#include "common/binary_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace ravlo::test {
namespace {

class BinaryFile : public ::testing::Test {
protected:
    BinaryFile() { std::filesystem::create_directories(m_folder); }
    ~BinaryFile() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string Path(const char* name) const { return (m_folder / name).string(); }
    std::size_t Entries() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(m_folder), {}));
    }

    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::filesystem::path m_folder = std::filesystem::temp_directory_path() / "ravlo-binary-file-test";
};

TEST_F(BinaryFile, TakesThePlaceOfAnOlderOneAndLeavesNothingBeside) {
    const std::string path = Path("a.bin");
    EXPECT_TRUE(WriteWholeFile(path, "older", 5));
    EXPECT_TRUE(WriteWholeFile(path, "new\r\n\0", 6));
    EXPECT_EQ(Read(path), std::string("new\r\n\0", 6));
    EXPECT_EQ(Entries(), 1U);
}

TEST_F(BinaryFile, OneThatCannotTakeItsPlaceIsAFailureAndLeavesNothingBehind) {
    std::filesystem::create_directories(Path("taken") + "/inside");
    EXPECT_FALSE(WriteWholeFile(Path("taken"), "bytes", 5));
    EXPECT_EQ(Entries(), 1U);
    EXPECT_FALSE(WriteWholeFile(Path("missing") + "/a.bin", "bytes", 5));
    EXPECT_EQ(Entries(), 1U);
}

}  // namespace
}  // namespace ravlo::test
