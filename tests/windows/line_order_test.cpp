// Lines that belong together come in the order in which a reader of the log expects them.
#include "support/fixtures.h"

#include <string>
#include <vector>

namespace ravlo::test {
namespace {

constexpr GUID kMediaSourceService = {0xF09992F7, 0x9FBA, 0x4C4A, {0xA3, 0x7F, 0x8C, 0x47, 0xB4, 0xE1, 0xDF, 0xE7}};

class LineOrder : public ModuleTest {};

TEST_F(LineOrder, AServiceIsAskedForByItsNameThenItsInterface) {
    const ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    const ComPtr<IMFGetService> services = source.As<IMFGetService>();
    m_log.Restart();
    ComPtr<IMFMediaSource> found;
    EXPECT_EQ(S_OK, services->GetService(kMediaSourceService, IID_IMFMediaSource, found.PutVoid()));
    const std::vector<std::string> expected = {
        "CALL SRC.GetService svc {F09992F7-9FBA-4C4A-A37F-8C47B4E1DFE7} hr=0x00000000",
        "CALL SRC.GetService riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000",
        "QI-SRC {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000",
        "SRC.GetService delegated-riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000",
        "RET SRC.GetService hr=0x00000000",
    };
    EXPECT_EQ(expected, m_log.Messages()) << m_log.Text();
    EXPECT_EQ(S_OK, source->Shutdown());
}

}  // namespace
}  // namespace ravlo::test
