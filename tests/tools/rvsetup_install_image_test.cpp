// Whether a file is the camera's DLL, told from its bytes.
#include "rvsetup/install/camera_dll.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::test {
namespace {

constexpr std::size_t kHeader = 0x80;
constexpr std::size_t kOptional = kHeader + 24;
constexpr std::size_t kSection = 0x200;
constexpr std::uint32_t kAddress = 0x1000;

/// The smallest file that has all that the camera's DLL must have, with one section at file offset 0x200.
class DllFile {
public:
    DllFile() : m_bytes(0x800) {
        Text(0, "MZ");
        Word(0x3C, kHeader);
        Text(kHeader, "PE");
        Half(kHeader + 4, 0x8664);
        Half(kHeader + 6, 1);        // sections
        Half(kHeader + 20, 240);     // size of the optional header
        Half(kHeader + 22, 0x2022);  // a DLL
        Half(kOptional, 0x20B);
        Word(kOptional + 108, 16);
        const std::size_t section = kOptional + 240;
        Word(section + 12, kAddress);
        Word(section + 16, 0x600);
        Word(section + 20, kSection);
        Exports();
        Resources();
        std::size_t at = kSection + 0x300;
        for (const char character : std::string("{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}")) {
            m_bytes[at] = static_cast<std::uint8_t>(character);
            at += 2;
        }
    }

    void Half(std::size_t at, unsigned value) {
        m_bytes.at(at) = static_cast<std::uint8_t>(value);
        m_bytes.at(at + 1) = static_cast<std::uint8_t>(value >> 8U);
    }
    void Word(std::size_t at, std::uint32_t value) {
        Half(at, value & 0xFFFFU);
        Half(at + 2, value >> 16U);
    }
    void Text(std::size_t at, const std::string& text) {
        for (const char character : text) {
            m_bytes.at(at++) = static_cast<std::uint8_t>(character);
        }
    }
    void CutAt(std::size_t size) { m_bytes.resize(size); }
    std::size_t Size() const { return m_bytes.size(); }

    /// The version, or "problem: " and what is wrong.
    std::string Inspect() const {
        std::string problem;
        // A copy of exactly this size, so that an access behind it is seen.
        const std::vector<char> exact(m_bytes.begin(), m_bytes.end());
        const auto version = InspectCameraDll({exact.data(), exact.size()}, problem);
        return version ? *version : "problem: " + problem;
    }

private:
    void Exports() {
        Word(kOptional + 112, kAddress);
        Word(kSection + 24, 2);
        Word(kSection + 32, kAddress + 0x40);
        Word(kSection + 0x40, kAddress + 0x50);
        Word(kSection + 0x44, kAddress + 0x70);
        Text(kSection + 0x50, "DllGetClassObject");
        Text(kSection + 0x70, "DllRegisterServer");
    }
    void Resources() {
        Word(kOptional + 112 + 16, kAddress + 0x100);
        const std::size_t tree = kSection + 0x100;
        const auto level = [&](std::size_t at, std::uint32_t id, std::uint32_t next) {
            Half(tree + at + 14, 1);
            Word(tree + at + 16, id);
            Word(tree + at + 20, next);
        };
        level(0, 16, 0x80000020);
        level(0x20, 1, 0x80000040);
        level(0x40, 0x409, 0x60);
        Word(tree + 0x60, kAddress + 0x200);
        const std::size_t info = kSection + 0x200 + 40;
        Word(info, 0xFEEF04BD);
        Half(info + 10, 1);
        Half(info + 8, 2);
        Half(info + 14, 3);
    }

    std::vector<std::uint8_t> m_bytes;
};

TEST(CameraDll, TheVersionNamesTheFolder) {
    DllFile file;
    EXPECT_EQ(file.Inspect(), "1.2.3");
    file.Half(kSection + 0x200 + 40 + 12, 7);
    EXPECT_EQ(file.Inspect(), "1.2.3.7");
}

TEST(CameraDll, WhatIsNoDllIsNamed) {
    DllFile text;
    text.Text(0, "Hello, this is text");
    EXPECT_EQ(text.Inspect(), "problem: is no DLL: it does not begin like a program file of Windows");
    DllFile old;
    old.Text(kHeader, "NE");
    EXPECT_EQ(old.Inspect(), "problem: is no DLL: it is a program file of another kind");
    DllFile empty;
    empty.CutAt(0);
    EXPECT_EQ(empty.Inspect(), "problem: is no DLL: it does not begin like a program file of Windows");
    DllFile program;
    program.Half(kHeader + 22, 0x22);
    EXPECT_EQ(program.Inspect(), "problem: is a program, not a DLL");
}

TEST(CameraDll, OtherProcessorsAreRefused) {
    DllFile narrow;
    narrow.Half(kHeader + 4, 0x14C);
    EXPECT_EQ(narrow.Inspect(),
              "problem: is a 32-bit file; the camera is loaded by 64-bit Windows services and must be the 64-bit DLL");
    DllFile arm;
    arm.Half(kHeader + 4, 0xAA64);
    EXPECT_EQ(arm.Inspect(), "problem: is built for another processor; x86-64 is needed");
    DllFile mixed;
    mixed.Half(kOptional, 0x10B);
    EXPECT_EQ(mixed.Inspect(), "problem: is built for another processor; x86-64 is needed");
}

TEST(CameraDll, BothEntryPointsMustBeThere) {
    DllFile none;
    none.Word(kOptional + 112, 0);
    EXPECT_EQ(none.Inspect(), "problem: exports no DllGetClassObject, so it cannot be the camera");
    DllFile noNames;
    noNames.Word(kSection + 24, 0);
    EXPECT_EQ(noNames.Inspect(), "problem: exports no DllGetClassObject, so it cannot be the camera");
    DllFile one;
    one.Text(kSection + 0x70, "DllRegisterServes");
    EXPECT_EQ(one.Inspect(), "problem: exports no DllRegisterServer, so it cannot be the camera");
}

TEST(CameraDll, AnotherComServerIsNotTheCamera) {
    DllFile file;
    file.Text(kSection + 0x302, "6");
    EXPECT_EQ(file.Inspect(), "problem: is a COM server, but not the Ravlo camera");
}

TEST(CameraDll, WithoutAVersionThereIsNoFolderForIt) {
    DllFile noResources;
    noResources.Word(kOptional + 112 + 16, 0);
    EXPECT_EQ(noResources.Inspect(), "problem: carries no version");
    DllFile otherResource;
    otherResource.Word(kSection + 0x100 + 16, 3);
    EXPECT_EQ(otherResource.Inspect(), "problem: carries no version");
    DllFile noSignature;
    noSignature.Word(kSection + 0x200 + 40, 0);
    EXPECT_EQ(noSignature.Inspect(), "problem: carries no version");
    DllFile endlessTree;
    endlessTree.Word(kSection + 0x100 + 0x40 + 20, 0x80000000);
    EXPECT_EQ(endlessTree.Inspect(), "problem: carries no version");
}

TEST(CameraDll, AFileThatIsCutAnywhereIsRefused) {
    const std::size_t size = kSection + 0x300 + 76;
    for (std::size_t length = 0; length < size; ++length) {
        DllFile file;
        file.CutAt(length);
        EXPECT_EQ(file.Inspect().substr(0, 8), "problem:") << length;
    }
    DllFile whole;
    whole.CutAt(size);
    EXPECT_EQ(whole.Inspect(), "1.2.3");
}

TEST(CameraDll, DamagedTablesAreRefused) {
    DllFile manyNames;
    manyNames.Word(kSection + 24, 0xFFFFFFFF);
    EXPECT_EQ(manyNames.Inspect(), "problem: is damaged or cut off");
    DllFile farHeader;
    farHeader.Word(0x3C, 0xFFFFFFF0);
    EXPECT_EQ(farHeader.Inspect(), "problem: is no DLL: it is a program file of another kind");
    DllFile outside;
    outside.Word(kOptional + 112, 0xFFFF0000);
    EXPECT_EQ(outside.Inspect(), "problem: is damaged or cut off");
}

TEST(CameraDll, NoSingleDamagedByteIsTakenAmiss) {
    int refused = 0;
    for (std::size_t at = 0; at < kSection + 0x100; ++at) {
        DllFile file;
        file.Half(at, 0xFFFF);
        refused += file.Inspect().starts_with("problem:") ? 1 : 0;
    }
    EXPECT_GT(refused, 50);
}

}  // namespace
}  // namespace ravlo::test
