// Which geometry an activation chooses, as its log line and its media type show it.
#include "support/fixtures.h"

namespace ravlo::test {
namespace {

const char kDefaultLine[] = "CALL SRC.ActivateObject geometry=1920x1080 @60/1 source=default";

class SourceGeometry : public ModuleTest {
protected:
    /// Activates a source with that request and shows the line of its choice.
    std::string Choose(const std::wstring& request) {
        return ChooseAfter([&](IMFActivate* activate) {
            Require(activate->SetString(kGeometryAttribute, request.c_str()), "SetString");
        });
    }

    std::string ChooseAfter(const std::function<void(IMFActivate*)>& prepare) {
        const ComPtr<IMFActivate> activate = m_module.CreateSource<IMFActivate>();
        Require(activate->SetString(kPipeNameAttribute, UniquePipeName().c_str()), "SetString");
        prepare(activate.Get());
        m_log.Restart();
        ComPtr<IMFMediaSource> source;
        EXPECT_EQ(S_OK, activate->ActivateObject(IID_IMFMediaSource, source.PutVoid()));
        std::string line = "(none)";
        for (const std::string& message : m_log.Messages()) {
            if (message.starts_with("CALL SRC.ActivateObject geometry=")) {
                line = message;
            }
        }
        m_width = m_height = m_numerator = m_denominator = 0;
        if (source) {
            const ComPtr<IMFMediaType> type = MediaTypeOf(source.Get());
            MFGetAttributeSize(type.Get(), MF_MT_FRAME_SIZE, &m_width, &m_height);
            MFGetAttributeRatio(type.Get(), MF_MT_FRAME_RATE, &m_numerator, &m_denominator);
            source->Shutdown();
        }
        return line;
    }

    UINT32 m_width = 0;
    UINT32 m_height = 0;
    UINT32 m_numerator = 0;
    UINT32 m_denominator = 0;
};

TEST_F(SourceGeometry, WithoutARequestItIsTheDefault) {
    EXPECT_EQ(kDefaultLine, ChooseAfter([](IMFActivate*) {}));
    EXPECT_EQ(1920u, m_width);
    EXPECT_EQ(1080u, m_height);
    EXPECT_EQ(60u, m_numerator);
    EXPECT_EQ(1u, m_denominator);
}

TEST_F(SourceGeometry, AGoodRequestIsHonoured) {
    const struct {
        const wchar_t* request;
        const char* shown;
        UINT32 width, height, numerator, denominator;
    } rows[] = {
        {L"1280x720@30/1", "1280x720 @30/1", 1280, 720, 30, 1},
        {L"1280x720@30000/1001", "1280x720 @30000/1001", 1280, 720, 30000, 1001},
        {L"1280x720@1000/1", "1280x720 @1000/1", 1280, 720, 1000, 1},
        {L"16384x16@30/1", "16384x16 @30/1", 16384, 16, 30, 1},
        {L"7680x1080@30/1", "7680x1080 @30/1", 7680, 1080, 30, 1},
        {L"3840x2160@60/1", "3840x2160 @60/1", 3840, 2160, 60, 1},
        {L"3840x2160@1000/1", "3840x2160 @1000/1", 3840, 2160, 1000, 1},
        {L"2x2@1/999999", "2x2 @1/999999", 2, 2, 1, 999999},
        {L"2x16384@999999/1000", "2x16384 @999999/1000", 2, 16384, 999999, 1000},
    };
    for (const auto& row : rows) {
        EXPECT_EQ("CALL SRC.ActivateObject geometry=" + std::string(row.shown) + " source=client-attribute",
                  Choose(row.request));
        EXPECT_EQ(row.width, m_width) << row.shown;
        EXPECT_EQ(row.height, m_height) << row.shown;
        EXPECT_EQ(row.numerator, m_numerator) << row.shown;
        EXPECT_EQ(row.denominator, m_denominator) << row.shown;
    }
}

TEST_F(SourceGeometry, ABadRequestGivesTheDefault) {
    for (const wchar_t* request : {L"1280X720@30/1",
                                   L"1280x720@30",
                                   L"1280x720@30/1 ",
                                   L" 1280x720@30/1",
                                   L"01280x720@30/1",
                                   L"1281x720@30/1",
                                   L"1280x721@30/1",
                                   L"1280x720@0/1",
                                   L"1280x720@30/0",
                                   L"0x720@30/1",
                                   L"1280x0@30/1",
                                   L"1280x720@30001/30",
                                   L"1280x720@1001/1",
                                   L"16386x2@30/1",
                                   L"2x16386@30/1",
                                   L"4096x2160@30/1",
                                   L"16384x16384@30/1",
                                   L"0001280x720@30/1",
                                   L"1280x720@0030/1",
                                   L"1280x720@1234567/1234567",
                                   L"+1280x720@30/1",
                                   L"-1280x720@30/1",
                                   L"1280x720@30.0/1",
                                   L"1280x720@30/1/1",
                                   L"x720@30/1",
                                   L"1280x@30/1",
                                   L"1280x720@/1",
                                   L"1280x720@30/",
                                   L"1280x720",
                                   L"1280,720@30/1",
                                   L"",
                                   L"default"}) {
        EXPECT_EQ(kDefaultLine, Choose(request)) << std::string(request, request + wcslen(request));
    }
}

TEST_F(SourceGeometry, ARequestIsAtMostThirtyOneCharacters) {
    // The longest that the grammar allows has 27 characters, so only what is wrong anyway can be too long.
    EXPECT_EQ(kDefaultLine, Choose(L"1280x720@30/1" + std::wstring(18, L' ')));
    EXPECT_EQ(kDefaultLine, Choose(L"1280x720@30/1" + std::wstring(19, L' ')));
    EXPECT_EQ(kDefaultLine, Choose(std::wstring(4000, L'1')));
}

TEST_F(SourceGeometry, ARequestThatIsNoStringGivesTheDefault) {
    EXPECT_EQ(kDefaultLine, ChooseAfter([](IMFActivate* activate) { activate->SetUINT32(kGeometryAttribute, 720); }));
    EXPECT_EQ(kDefaultLine, ChooseAfter([](IMFActivate* activate) {
                  const UINT8 blob[] = {'1', 0, 'x', 0};
                  activate->SetBlob(kGeometryAttribute, blob, sizeof blob);
              }));
}

TEST_F(SourceGeometry, ARefusedRequestIsNotReported) {
    Choose(L"1280X720@30/1");
    EXPECT_FALSE(m_log.Contains("FAIL")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("1280X720")) << "only the dump of the attributes shows it";
    EXPECT_EQ(1u, m_log.CountLines("geometry=")) << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
