// Several threads and processes at one log: the first line raced for, and lines that stay whole.
#include "trace_staging.h"

#include "support/process.h"
#include "trace/trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <set>
#include <thread>

namespace ravlo::test {
namespace {

std::ptrdiff_t CountOf(const std::vector<std::string>& messages, const std::string& message) {
    return std::count(messages.begin(), messages.end(), message);
}

std::ptrdiff_t CountReports(const std::vector<std::string>& messages) {
    return std::count_if(messages.begin(), messages.end(),
                         [](const std::string& message) { return message.starts_with("TRACEPATH "); });
}

/// A manual-reset event that is closed at the end.
struct Event {
    HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ~Event() { CloseHandle(handle); }
    bool Wait() const { return WaitForSingleObject(handle, kPatienceMs) == WAIT_OBJECT_0; }
};

/// The location is chosen once in a process, so each race has one of its own.
RAVLO_ROLE(WriteWhileAnotherChooses) {
    const PrivateLocalMachine localMachine;
    StagedDisk disk(GetModuleHandleW(nullptr));
    disk.Stage(kProgramDataDirectory, {{}});
    const Event choosing;
    const Event goOn;
    std::atomic<int> looks{0};
    disk.OnLook([&] {
        if (looks.fetch_add(1) == 0) {
            SetEvent(choosing.handle);
            EXPECT_TRUE(goOn.Wait());
        }
    });
    std::thread chooser([] { RvTrace("WARN from the thread that chooses"); });
    EXPECT_TRUE(choosing.Wait());

    RvTrace("WARN from the thread that does not wait");
    std::vector<std::string> messages = MessagesOf(disk.TextOf(kProgramDataLog));
    EXPECT_EQ(2u, messages.size());
    EXPECT_EQ(1, CountReports(messages));
    EXPECT_EQ(1, CountOf(messages, "WARN from the thread that does not wait"));
    EXPECT_EQ(2, looks.load());
    RvTrace("WARN once more, with a choice for this line alone");
    EXPECT_EQ(3, looks.load());

    SetEvent(goOn.handle);
    chooser.join();
    RvTrace("WARN after the choice");
    EXPECT_EQ(3, looks.load());
    messages = MessagesOf(disk.TextOf(kProgramDataLog));
    EXPECT_EQ(5u, messages.size());
    EXPECT_EQ(1, CountReports(messages));
    EXPECT_EQ(1, CountOf(messages, "WARN from the thread that chooses"));
    EXPECT_EQ(1, CountOf(messages, "WARN after the choice"));
    return 0;
}

TEST(TraceRace, AThreadThatLogsWhileAnotherChoosesDoesNotWait) {
    ChildProcess child = StartRole("WriteWhileAnotherChooses");
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

RAVLO_ROLE(ChooseDifferently) {
    const PrivateLocalMachine localMachine;
    StagedDisk disk(GetModuleHandleW(nullptr));
    // The chooser's look finds a stranger's directory, the look of the other thread a sound one.
    disk.Stage(kProgramDataDirectory, {{}, {.owner = kStrangerSid}});
    const Event choosing;
    const Event goOn;
    std::atomic<int> looks{0};
    disk.OnLook([&] {
        if (looks.fetch_add(1) == 0) {
            SetEvent(choosing.handle);
            EXPECT_TRUE(goOn.Wait());
        }
    });
    std::thread chooser([] { RvTrace("WARN from the thread that chooses"); });
    EXPECT_TRUE(choosing.Wait());
    RvTrace("WARN with a choice of its own");
    SetEvent(goOn.handle);
    chooser.join();
    RvTrace("WARN with the choice of the process");

    const std::vector<std::string> own = MessagesOf(disk.TextOf(kProgramDataLog));
    EXPECT_EQ(2u, own.size());
    EXPECT_EQ(0u, own.at(0).find("TRACEPATH candidate=1 "));
    EXPECT_EQ("WARN with a choice of its own", own.at(1));
    const std::vector<std::string> shared = MessagesOf(disk.TextOf(kTempLog));
    const std::vector<std::string> expected = {"WARN from the thread that chooses",
                                               "WARN with the choice of the process"};
    EXPECT_EQ(expected, shared);
    return 0;
}

TEST(TraceRace, AChoiceForOneLineIsNotKept) {
    ChildProcess child = StartRole("ChooseDifferently");
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

RAVLO_ROLE(AllAtOnce) {
    const PrivateLocalMachine localMachine;
    StagedDisk disk(GetModuleHandleW(nullptr));
    disk.Stage(kProgramDataDirectory, {{}});
    constexpr unsigned kThreads = 8;
    const Event start;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back([&start, i] {
            EXPECT_TRUE(start.Wait());
            RvTrace("WARN first line of thread %u", i);
        });
    }
    SetEvent(start.handle);
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> messages = MessagesOf(disk.TextOf(kProgramDataLog));
    EXPECT_EQ(9u, messages.size());
    EXPECT_EQ(1, CountReports(messages));
    for (unsigned i = 0; i < kThreads; ++i) {
        EXPECT_EQ(1, CountOf(messages, "WARN first line of thread " + std::to_string(i)));
    }
    return 0;
}

TEST(TraceRace, EightThreadsThatLogFirstAtOnceWriteOneReportAndAllTheirLines) {
    for (int round = 0; round < 5; ++round) {
        ChildProcess child = StartRole("AllAtOnce");
        EXPECT_EQ(0u, child.Wait()) << child.Output();
    }
}

constexpr unsigned kProcesses = 4;
constexpr unsigned kThreads = 2;
constexpr unsigned kCalls = 125;  // each writes two lines

/// A class that does not exist, and that tells who asks for it.
GUID NumberedClass(unsigned process, unsigned thread, unsigned call) {
    GUID id = IID_IUnknown;
    id.Data1 = call;
    id.Data2 = static_cast<unsigned short>(process);
    id.Data3 = static_cast<unsigned short>(thread);
    return id;
}

RAVLO_ROLE(AskForManyClasses) {
    const PrivateLocalMachine localMachine;
    const AnchorGuard anchor(CurrentUserSid());
    const ModuleUnderTest module;
    const unsigned process = static_cast<unsigned>(std::stoul(arguments.at(0)));
    const HANDLE start = OpenEventW(SYNCHRONIZE, FALSE, arguments.at(1).c_str());
    std::puts("ready");
    std::fflush(stdout);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(start, 20000));
    CloseHandle(start);
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&module, process, thread] {
            for (unsigned call = 0; call < kCalls; ++call) {
                void* out = nullptr;
                module.GetClassObject(NumberedClass(process, thread, call), IID_IUnknown, &out);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

TEST(TraceRace, LinesOfSeveralProcessesAndThreadsStayWhole) {
    const std::wstring name = L"Local\\ravlo-trace-race-" + std::to_wstring(GetCurrentProcessId());
    const HANDLE start = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
    const TraceLog log;
    {
        std::vector<ChildProcess> children;
        for (unsigned process = 0; process < kProcesses; ++process) {
            children.push_back(StartRole("AskForManyClasses", {std::to_wstring(process), name}));
        }
        for (const ChildProcess& child : children) {
            EXPECT_TRUE(child.WaitForOutput("ready"));
        }
        SetEvent(start);
        for (ChildProcess& child : children) {
            EXPECT_EQ(0u, child.Wait(30000)) << child.Output();
        }
    }
    CloseHandle(start);
    // Lines of programs that run beside this test must be whole too.
    const std::vector<std::string> messages = MessagesOf(log.RawText(0));
    const std::multiset<std::string> lines(messages.begin(), messages.end());
    for (const std::string& message : messages) {
        EXPECT_FALSE(message.starts_with("BROKEN: ")) << message;
    }
    for (unsigned process = 0; process < kProcesses; ++process) {
        for (unsigned thread = 0; thread < kThreads; ++thread) {
            for (unsigned call = 0; call < kCalls; ++call) {
                char id[40]{};
                std::snprintf(id, sizeof id, "{%08X-%04X-%04X-C000-000000000046}", call, process, thread);
                const std::string text = id;
                EXPECT_EQ(1u,
                          lines.count("DLLGCO enter rclsid=" + text + " riid={00000000-0000-0000-C000-000000000046}"));
                EXPECT_EQ(1u, lines.count("FAIL DLLGCO wrong clsid " + text + " hr=0x80040111"));
            }
        }
    }
}

}  // namespace
}  // namespace ravlo::test
