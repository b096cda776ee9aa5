// The DLL itself: its size, and what it costs to load and unload it once its files are in memory.
//
// dll_size   product: bytes of rvmediasource.dll as it is shipped, without debug records. An amount; no floor.
// dll_load   floor: LoadLibraryW and FreeLibrary of a DLL with nothing in it, with the same imports, that makes the
//            same file calls when it is attached and detached (empty_dll/attach.cpp). Product: the same of the module.
//            Their calls are counted first and must be the same. The DLLs that both import stay loaded, as they are in
//            a process that uses Media Foundation; else their cost would hide that of either. The floor is linked as
//            the module is, with the runtime that the toolchain puts into each DLL; what the same DLL without any
//            runtime takes stands beside the figure as "bare_us".
#include <windows.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "harness/bench_main.h"
#include "harness/live_camera.h"
#include "harness/median.h"
#include "harness/pairs.h"
#include "harness/report.h"
#include "load/attach_calls.h"
#include "platform/unique_handle.h"
#include "support/module.h"

namespace ravlo::bench {
namespace {

constexpr wchar_t kProduct[] = L"rvmediasource.dll";
constexpr wchar_t kFloor[] = L"bench_empty.dll";
constexpr wchar_t kBare[] = L"bench_bare.dll";
constexpr wchar_t kFloorLog[] = L"C:\\ProgramData\\Ravlo\\bench-load.log";
/// One load takes a millisecond or two.
constexpr int kLoadsPerBatch = 5;

std::wstring PathOf(const wchar_t* name) {
    return test::ProgramDirectory() + L"\\" + name;
}

void LoadAndUnload(const std::wstring& path) {
    const HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr || !FreeLibrary(module)) {
        throw std::runtime_error("a DLL beside this program cannot be loaded, error " + std::to_string(GetLastError()));
    }
}

void MeasureSize() {
    const UniqueFile file(CreateFileW(PathOf(kProduct).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER bytes{};
    if (!file || !GetFileSizeEx(file.Get(), &bytes)) {
        throw std::runtime_error("rvmediasource.dll is not beside this program");
    }
    Report({.row = "dll_size", .size = "", .unit = "bytes", .floor = {}, .product = {double(bytes.QuadPart)}});
}

void MeasureLoad(bool quick) {
    const CameraGround ground;
    const std::wstring floor = PathOf(kFloor);
    const std::wstring bare = PathOf(kBare);
    const std::wstring product = PathOf(kProduct);
    KeepImportsLoaded(product);
    // The module first: it makes the directory of both logs.
    const AttachCalls productCalls = CountCalls(kProduct, [&] { LoadAndUnload(product); });
    for (const wchar_t* const name : {kFloor, kBare}) {
        const AttachCalls calls = CountCalls(name, [name] { LoadAndUnload(PathOf(name)); });
        if (calls != productCalls) {
            throw std::runtime_error("an empty DLL makes other calls when it is loaded than the module: " +
                                     calls.Text() + ", not " + productCalls.Text());
        }
    }

    Measurement measurement{.row = "dll_load", .size = "", .unit = "us", .floor = {}, .product = {}};
    measurement.context = {{"loads", kLoadsPerBatch},
                           {"opens", productCalls.opens},
                           {"writes", productCalls.writes},
                           {"closes", productCalls.closes},
                           {"queries", productCalls.queries}};
    const auto batch = [](const std::wstring& path) {
        for (int i = 0; i < kLoadsPerBatch; ++i) {
            LoadAndUnload(path);
        }
    };
    std::vector<double> bareTimes;
    MeasurePairs(
        measurement, quick ? 10 : 500, [&] { bareTimes.push_back(TimeOnce([&] { batch(bare); })); },
        [&] { batch(floor); }, [&] { batch(product); });
    DeleteFileW(kFloorLog);
    measurement.context.emplace_back("bare_us", Median(std::move(bareTimes)) / kLoadsPerBatch);
    for (std::vector<double>* const values : {&measurement.floor, &measurement.product}) {
        for (double& batchTime : *values) {
            batchTime /= kLoadsPerBatch;
        }
    }
    Report(measurement);
}

}  // namespace

void RunBench(const BenchOptions& options) {
    if (options.Wants("dll_size")) {
        MeasureSize();
    }
    if (options.Wants("dll_load")) {
        MeasureLoad(options.quick);
    }
}

}  // namespace ravlo::bench
