#include "rvhost/picture_worker.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

namespace ravlo::test {
namespace {

class PictureWorkerFiles : public ::testing::Test {
protected:
    PictureWorkerFiles() { std::filesystem::create_directories(m_folder); }
    ~PictureWorkerFiles() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string Path(const char* name) const { return (m_folder / name).string(); }

    std::string Content(const char* name) const {
        std::ifstream file(m_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    const FrameGeometry m_geometry{16, 2, 30, 1};
    const std::vector<std::uint8_t> m_picture = std::vector<std::uint8_t>(48, 128);

private:
    std::filesystem::path m_folder = std::filesystem::temp_directory_path() / "ravlo-picture-worker-test";
};

TEST_F(PictureWorkerFiles, EveryPictureIsAFileOnceItHasFinished) {
    PictureWorker worker({Path("shots"), Path("sheet.png"), 16}, m_geometry);
    EXPECT_TRUE(worker.Offer(m_picture, {1'250, 1, PictureKind::Live}));
    EXPECT_TRUE(worker.Offer(m_picture, {2'500, 2, PictureKind::Pattern}));
    worker.Finish();
    EXPECT_EQ(worker.Error(), "");
    EXPECT_EQ(worker.SheetNote(), "");
    EXPECT_TRUE(std::filesystem::exists(Path("shots") + "/0001.250-live.png"));
    EXPECT_TRUE(std::filesystem::exists(Path("shots") + "/0002.500-pattern.png"));
    EXPECT_TRUE(std::filesystem::exists(Path("sheet.png")));
}

TEST_F(PictureWorkerFiles, ASeriesIsInFullSizeAndNumberedBeforeTheExtension) {
    const struct {
        const char* file;
        const char* written;
    } cases[] = {{"last.png", "last-000031.png"}, {"a.b/last", "a.b/last-000031"}, {".png", ".png-000031"}};
    std::filesystem::create_directories(Path("a.b"));
    for (const auto& [file, written] : cases) {
        PictureWorker worker({"", "", 8, PictureNaming::BySample, Path(file)}, m_geometry);
        EXPECT_TRUE(worker.Offer(m_picture, {1'250, 31, PictureKind::Live}));
        worker.Finish();
        EXPECT_EQ(worker.Error(), "");
        // Width and height are the first two numbers, high byte first.
        EXPECT_EQ(Content(written).substr(12, 12), std::string("IHDR\0\0\0\x10\0\0\0\x02", 12)) << written;
    }
}

TEST_F(PictureWorkerFiles, InHasteWhatStillWaitsIsNotCompressedEither) {
    constexpr FrameGeometry kLarge{1920, 1080, 30, 1};
    constexpr std::size_t kUncompressed = std::size_t{1080} * (1920 * 3 + 1);
    const std::vector<std::uint8_t> picture(FrameBytes(kLarge), 128);
    PictureWorker worker({"", "", 8, PictureNaming::BySample, Path("last.png")}, kLarge);
    for (const std::uint64_t sample : {1, 2, 3}) {
        EXPECT_TRUE(worker.Offer(picture, {0, sample, PictureKind::Live}));
    }
    worker.Hurry();  // long before the first one can have been written
    worker.Finish();
    EXPECT_GT(Content("last-000003.png").size(), kUncompressed);
}

TEST_F(PictureWorkerFiles, AFullSheetSaysWhatItLeavesOut) {
    PictureWorker worker({"", Path("sheet.png"), 16}, m_geometry);
    unsigned taken = 0;
    while (taken < 603) {  // all buffers may be in use for a moment
        taken += worker.Offer(m_picture, {0, 1, PictureKind::Live}) ? 1U : 0U;
    }
    worker.Finish();
    EXPECT_EQ(worker.SheetNote(), "the contact sheet is full: it shows the first 600 pictures and leaves out 3");
    EXPECT_EQ(worker.Error(), "");
}

TEST_F(PictureWorkerFiles, AFileThatCannotBeWrittenIsNamed) {
    const std::string sheet = Path("missing") + "/sheet.png";
    PictureWorker worker({"", sheet, 16}, m_geometry);
    EXPECT_TRUE(worker.Offer(m_picture, {0, 1, PictureKind::Live}));
    worker.Finish();
    EXPECT_EQ(worker.Error(), "cannot write " + sheet);
}

}  // namespace
}  // namespace ravlo::test
