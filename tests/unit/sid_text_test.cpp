#include "platform/sid_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "unit/wide_text.h"

namespace ravlo {
namespace {

/// Judges a copy that ends with its terminator, so that a checked build notices a step too far.
bool IsStrict(const std::string& ascii) {
    const WideText text = Wide(ascii);
    const auto copy = std::make_unique<WideChar[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return IsStrictSidText(copy.get());
}

std::string WithSubAuthorities(int count) {
    std::string text = "S-1-5";
    for (int i = 0; i < count; ++i) {
        text += "-7";
    }
    return text;
}

TEST(SidText, UsersServicesAndGroupsAreSids) {
    for (const char* text : {"S-1-5-21-1-2-3-1001", "S-1-5-18", "S-1-5-19", "S-1-1-0", "S-1-5-32-544",
                             "S-1-5-21-4294967295-4294967295-4294967295-4294967295", "S-1-0-0", "S-1-5-32-555"}) {
        EXPECT_TRUE(IsStrict(text)) << text;
    }
}

TEST(SidText, ALowerCaseSIsAccepted) {
    EXPECT_TRUE(IsStrict("s-1-5-21-1-2-3-1001"));
    EXPECT_TRUE(IsStrict("s-1-5-18"));
}

TEST(SidText, WhatDoesNotBeginAsASidIsRefused) {
    for (const char* text : {"",          "S",         "S-",       "S-1",     "S-1-",   "X-1-5-21-1", "S1-5",
                             "S_1-5-18",  "S-2-5-18",  "S-15-18",  "-1-5-18", "1-5-18", " S-1-5-18",  "SS-1-5-18",
                             "S--1-5-18", "S-01-5-18", "S-1_5-18", "BA",      "SY",     "LS",         "DOMAIN\\user"}) {
        EXPECT_FALSE(IsStrict(text)) << text;
    }
    EXPECT_FALSE(IsStrictSidText(nullptr));
}

TEST(SidText, EveryPartIsANumberAndNothingElse) {
    for (const char* text :
         {"S-1-5-",    "S-1--18",    "S-1-5--18", "S-1-5-18-", "S-1-5-18 ",  "S-1-5- 18",  "S-1- 5-18",
          "S-1-5-+18", "S-1-5-18x",  "S-1-5-1a",  "S-1-a-18",  "S-1-5-0x12", "S-1-5-18\n", "S-1-5-18\t",
          "S-1-5-18;", "S-1-5-18.0", "S-1-5,18",  "S-1-5-/",   "S-1-5-:",    "S-1-/-1",    "S-1-5-18-S-1-5-19"}) {
        EXPECT_FALSE(IsStrict(text)) << text;
    }
}

TEST(SidText, ASubAuthorityFitsIn32Bits) {
    EXPECT_TRUE(IsStrict("S-1-5-0"));
    EXPECT_TRUE(IsStrict("S-1-5-4294967295"));
    EXPECT_FALSE(IsStrict("S-1-5-4294967296"));
    EXPECT_FALSE(IsStrict("S-1-5-4294967314")) << "would be S-1-5-18 if it wrapped around";
    EXPECT_FALSE(IsStrict("S-1-5-18446744073709551634"));
    EXPECT_FALSE(IsStrict("S-1-5-99999999999999999999999999999999"));
    EXPECT_FALSE(IsStrict("S-1-5-21-1-2-3-4294968297"));
}

TEST(SidText, AnAuthorityFitsIn48Bits) {
    EXPECT_TRUE(IsStrict("S-1-0-18"));
    EXPECT_TRUE(IsStrict("S-1-281474976710655-18"));
    EXPECT_FALSE(IsStrict("S-1-281474976710656-18"));
    EXPECT_FALSE(IsStrict("S-1-18446744073709551621-18")) << "would be S-1-5-18 if it wrapped around";
}

TEST(SidText, AnAuthorityMayBeHexadecimal) {
    EXPECT_TRUE(IsStrict("S-1-0x5-18"));
    EXPECT_TRUE(IsStrict("S-1-0X5-18"));
    EXPECT_TRUE(IsStrict("S-1-0xFFFFFFFFFFFF-18"));
    EXPECT_TRUE(IsStrict("S-1-0xabcdef-18"));
    EXPECT_FALSE(IsStrict("S-1-0x1000000000000-18"));
    EXPECT_FALSE(IsStrict("S-1-0x-18"));
    EXPECT_FALSE(IsStrict("S-1-0xG-18"));
    EXPECT_FALSE(IsStrict("S-1-x5-18"));
}

TEST(SidText, HasOneToFifteenSubAuthorities) {
    EXPECT_FALSE(IsStrict(WithSubAuthorities(0)));
    EXPECT_TRUE(IsStrict(WithSubAuthorities(1)));
    EXPECT_TRUE(IsStrict(WithSubAuthorities(15)));
    EXPECT_FALSE(IsStrict(WithSubAuthorities(16)));
    EXPECT_FALSE(IsStrict(WithSubAuthorities(300)));
}

TEST(SidText, UnitsThatOnlyLookLikeAsciiInTheirLowByteAreRefused) {
    for (std::size_t position = 0; position < 8; ++position) {
        WideText text = Wide("S-1-5-18");
        text[position] = static_cast<WideChar>(text[position] + 0x100);
        EXPECT_FALSE(IsStrictSidText(text.c_str())) << position;
    }
}

}  // namespace
}  // namespace ravlo
