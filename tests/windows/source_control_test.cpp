// Services and kernel-streaming requests.
#include "support/fixtures.h"

#include "platform/kernel_streaming.h"

namespace ravlo::test {
namespace {

constexpr GUID kMediaSourceService = {0xF09992F7, 0x9FBA, 0x4C4A, {0xA3, 0x7F, 0x8C, 0x47, 0xB4, 0xE1, 0xDF, 0xE7}};
constexpr GUID kOther = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
constexpr HRESULT kSetNotFound = static_cast<HRESULT>(0x80070492);

class SourceControl : public ModuleTest {
protected:
    ~SourceControl() override { m_source->Shutdown(); }

    ComPtr<IMFMediaSource> m_source = m_module.CreateSource<IMFMediaSource>();
    ComPtr<IMFGetService> m_services = m_source.As<IMFGetService>();
    ComPtr<IKsControl> m_controls = m_source.As<IKsControl>();
    void* m_out = reinterpret_cast<void*>(std::uintptr_t{1});
};

TEST_F(SourceControl, TheSourcesOwnServiceGivesTheSource) {
    ComPtr<IMFMediaSource> found;
    EXPECT_EQ(S_OK, m_services->GetService(kMediaSourceService, IID_IMFMediaSource, found.PutVoid()));
    EXPECT_EQ(m_source.Get(), found.Get());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetService svc {F09992F7-9FBA-4C4A-A37F-8C47B4E1DFE7} hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetService riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("SRC.GetService delegated-riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.GetService hr=0x00000000"));
}

TEST_F(SourceControl, NoServiceAtAllGivesTheSourceToo) {
    ComPtr<IKsControl> found;
    EXPECT_EQ(S_OK, m_services->GetService(GUID_NULL, __uuidof(IKsControl), found.PutVoid()));
    EXPECT_EQ(m_controls.Get(), found.Get());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetService svc {00000000-0000-0000-0000-000000000000} hr=0x00000000"));
    ComPtr<IMarshal> marshal;
    EXPECT_EQ(S_OK, m_services->GetService(GUID_NULL, IID_IMarshal, marshal.PutVoid()));
    EXPECT_TRUE(m_log.HasMessage("QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x00000000"));
}

TEST_F(SourceControl, AnInterfaceThatTheSourceLacksIsRefused) {
    EXPECT_EQ(E_NOINTERFACE, m_services->GetService(kMediaSourceService, kOther, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_TRUE(
        m_log.HasMessage("FAIL SRC.GetService delegated-riid {01234567-89AB-CDEF-0123-456789ABCDEF} "
                         "hr=0x80004002"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetService hr=0x80004002"));
}

TEST_F(SourceControl, AnyOtherServiceIsUnsupported) {
    for (const GUID& service : {kOther, MF_RATE_CONTROL_SERVICE, IID_IMFMediaSource}) {
        m_out = m_source.Get();
        EXPECT_EQ(MF_E_UNSUPPORTED_SERVICE, m_services->GetService(service, IID_IMFMediaSource, &m_out));
        EXPECT_EQ(nullptr, m_out);
    }
    EXPECT_TRUE(
        m_log.HasMessage("FAIL SRC.GetService unsupported-service {01234567-89AB-CDEF-0123-456789ABCDEF} "
                         "hr=0xC00D36BA"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetService hr=0xC00D36BA"));
    EXPECT_FALSE(m_log.Contains("delegated-riid"));
}

TEST_F(SourceControl, ANullOutputPointerIsRefusedFirst) {
    EXPECT_EQ(E_POINTER, m_services->GetService(kOther, IID_IMFMediaSource, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetService hr=0x80004003"));
    EXPECT_FALSE(m_log.Contains("unsupported-service"));
}

TEST_F(SourceControl, AfterShutdownNoServiceIsGiven) {
    m_source->Shutdown();
    EXPECT_EQ(MF_E_SHUTDOWN, m_services->GetService(kMediaSourceService, IID_IMFMediaSource, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_EQ(MF_E_SHUTDOWN, m_services->GetService(kOther, IID_IMFMediaSource, &m_out));
    EXPECT_EQ(E_POINTER, m_services->GetService(kMediaSourceService, IID_IMFMediaSource, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetService hr=0xC00D3E85"));
    EXPECT_FALSE(m_log.Contains("unsupported-service"));
}

/// One kernel-streaming request and what must come of it.
struct Request {
    const KSIDENTIFIER* identifier;
    ULONG identifierLength;
    void* data;
    ULONG dataLength;
    HRESULT result;
    const char* line;  ///< behind "FAIL " and the operation's label
};

enum class Kind { Property, Method, Event };

class SourceControlRequests : public SourceControl {
protected:
    void Expect(Kind kind, const Request& request) {
        static constexpr const char* kLabels[] = {"SRC.KsProperty", "SRC.KsMethod", "SRC.KsEvent"};
        static constexpr const char* kLengths[] = {"proplen", "methodlen", "eventlen"};
        const auto index = static_cast<std::size_t>(kind);
        const std::string call = "CALL " + std::string(kLabels[index]) + " " + kLengths[index] + "=" +
                                 std::to_string(request.identifierLength) +
                                 " datalen=" + std::to_string(request.dataLength);
        const std::string fail = "FAIL " + std::string(kLabels[index]) + " " + request.line;
        m_log.Restart();
        ULONG returned = 99;
        EXPECT_EQ(request.result, Send(kind, request, &returned)) << fail;
        EXPECT_EQ(0u, returned) << fail;
        EXPECT_EQ((std::vector<std::string>{call, fail}), m_log.Messages());
        EXPECT_EQ(request.result, Send(kind, request, nullptr)) << "nobody needs the count";
    }

    void ExpectOfAll(const Request& request) {
        for (const Kind kind : {Kind::Property, Kind::Method, Kind::Event}) {
            Expect(kind, request);
        }
    }

    KSIDENTIFIER m_identifier{};
    std::uint64_t m_data = 0x1122334455667788;

private:
    HRESULT Send(Kind kind, const Request& request, ULONG* returned) {
        auto* const identifier = const_cast<KSIDENTIFIER*>(request.identifier);
        switch (kind) {
            case Kind::Property:
                return m_controls->KsProperty(identifier, request.identifierLength, request.data, request.dataLength,
                                              returned);
            case Kind::Method:
                return m_controls->KsMethod(identifier, request.identifierLength, request.data, request.dataLength,
                                            returned);
            default:
                return m_controls->KsEvent(identifier, request.identifierLength, request.data, request.dataLength,
                                           returned);
        }
    }
};

TEST_F(SourceControlRequests, AWellFormedRequestIsOfAnUnknownSet) {
    m_identifier.Set = kOther;
    m_identifier.Id = 4000000000;
    m_identifier.Flags = 0x1000000A;
    ExpectOfAll({&m_identifier, 24, nullptr, 0, kSetNotFound,
                 "set={01234567-89AB-CDEF-0123-456789ABCDEF} id=4000000000 flags=0x1000000A datalen=0 hr=0x80070492"});
    ExpectOfAll({&m_identifier, 25, &m_data, 8, kSetNotFound,
                 "set={01234567-89AB-CDEF-0123-456789ABCDEF} id=4000000000 flags=0x1000000A datalen=8 hr=0x80070492"});
    ExpectOfAll({&m_identifier, 24, &m_data, 0, kSetNotFound,
                 "set={01234567-89AB-CDEF-0123-456789ABCDEF} id=4000000000 flags=0x1000000A datalen=0 hr=0x80070492"});
    EXPECT_EQ(0x1122334455667788u, m_data) << "the data are not touched";
}

TEST_F(SourceControlRequests, AShortIdentifierIsInvalid) {
    ExpectOfAll({&m_identifier, 23, nullptr, 0, E_INVALIDARG, "identifier-len=23 < 24 hr=0x80070057"});
    ExpectOfAll({&m_identifier, 16, nullptr, 0, E_INVALIDARG, "identifier-len=16 < 24 hr=0x80070057"});
    ExpectOfAll({&m_identifier, 0, nullptr, 8, E_INVALIDARG, "identifier-len=0 < 24 hr=0x80070057"});
}

TEST_F(SourceControlRequests, DataThatAreNotThereAreInvalidBeforeTheSetIsLookedAt) {
    ExpectOfAll({&m_identifier, 24, nullptr, 8, E_INVALIDARG, "data=NULL len=8 hr=0x80070057"});
    ExpectOfAll({&m_identifier, 24, nullptr, 4294967295, E_INVALIDARG, "data=NULL len=4294967295 hr=0x80070057"});
}

TEST_F(SourceControlRequests, OnlyAnEventMayBeMissing) {
    for (const ULONG length : {0u, 16u, 24u}) {
        Expect(Kind::Property, {nullptr, length, nullptr, 0, E_INVALIDARG, "identifier=NULL hr=0x80070057"});
        Expect(Kind::Method, {nullptr, length, nullptr, 8, E_INVALIDARG, "identifier=NULL hr=0x80070057"});
        Expect(Kind::Event, {nullptr, length, nullptr, 8, kSetNotFound, "identifier=NULL(optional) hr=0x80070492"});
    }
}

TEST_F(SourceControlRequests, TheStateOfTheSourceDoesNotMatter) {
    m_source->Shutdown();
    ExpectOfAll({&m_identifier, 24, nullptr, 0, kSetNotFound,
                 "set={00000000-0000-0000-0000-000000000000} id=0 flags=0x00000000 datalen=0 hr=0x80070492"});
    ExpectOfAll({&m_identifier, 8, nullptr, 0, E_INVALIDARG, "identifier-len=8 < 24 hr=0x80070057"});
}

}  // namespace
}  // namespace ravlo::test
