#include "common/report_writer.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace ravlo::test {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kPatience{5000};

/// A reader that takes texts only while it is open. Shared with the writer's thread, which may outlive the test.
struct SlowReader {
    std::mutex mutex;
    std::condition_variable changed;
    bool open = false;
    bool gone = false;
    bool reading = false;
    std::vector<std::string> texts;

    bool Take(const std::string& text) {
        std::unique_lock lock(mutex);
        reading = true;
        changed.notify_all();
        changed.wait(lock, [this] { return open; });
        texts.push_back(text);
        return !gone;
    }
    void Open() {
        const std::lock_guard lock(mutex);
        open = true;
        changed.notify_all();
    }
    bool WaitUntilReading() {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, kPatience, [this] { return reading; });
    }
    std::vector<std::string> Texts() {
        const std::lock_guard lock(mutex);
        return texts;
    }
};

class ReportWriterTest : public ::testing::Test {
protected:
    ~ReportWriterTest() override { m_reader->Open(); }

    std::shared_ptr<SlowReader> m_reader = std::make_shared<SlowReader>();
    ReportWriter m_writer{[reader = m_reader](const std::string& text) { return reader->Take(text); }};
};

TEST_F(ReportWriterTest, TextsAreWrittenInOrder) {
    m_reader->Open();
    m_writer.Put("one");
    m_writer.Put("two");
    EXPECT_TRUE(m_writer.Flush(kPatience));
    EXPECT_EQ(m_reader->Texts(), (std::vector<std::string>{"one", "two"}));
    EXPECT_FALSE(m_writer.IsReaderGone());
}

TEST_F(ReportWriterTest, AReaderThatTakesNothingHoldsNobodyUp) {
    m_writer.Put("first");
    ASSERT_TRUE(m_reader->WaitUntilReading());
    EXPECT_FALSE(m_writer.Flush(milliseconds(1)));
    EXPECT_FALSE(m_writer.IsReaderGone()) << "it is slow, not gone";
    for (int i = 0; i < 20; ++i) {
        m_writer.Put(std::to_string(i));
    }
    m_reader->Open();
    EXPECT_TRUE(m_writer.Flush(kPatience));
    const std::vector<std::string> texts = m_reader->Texts();
    ASSERT_EQ(texts.size(), 17U) << "one under way and sixteen in line";
    EXPECT_EQ(texts[1], "4") << "the oldest are left out";
    EXPECT_EQ(texts.back(), "19");
}

TEST_F(ReportWriterTest, NothingIsWrittenToAReaderThatHasGone) {
    m_reader->gone = true;
    m_reader->Open();
    m_writer.Put("first");
    EXPECT_TRUE(m_writer.Flush(kPatience));
    EXPECT_TRUE(m_writer.IsReaderGone());
    m_writer.Put("second");
    EXPECT_TRUE(m_writer.Flush(kPatience)) << "there is nothing to wait for";
    EXPECT_EQ(m_reader->Texts(), std::vector<std::string>{"first"});
}

}  // namespace
}  // namespace ravlo::test
