#include "pipe/anchor_words.h"

#include <gtest/gtest.h>

namespace ravlo {
namespace {

TEST(AnchorWords, EveryReasonHasItsNumberAndItsWord) {
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(0)), "OK");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(1)), "ABSENT");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(2)), "WRONG_TYPE");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(3)), "TOO_LARGE");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(4)), "MALFORMED");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(5)), "READ_FAILED");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(6)), "NOT_A_USER");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::Ok), "OK");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::Absent), "ABSENT");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::WrongType), "WRONG_TYPE");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::TooLarge), "TOO_LARGE");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::Malformed), "MALFORMED");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::ReadFailed), "READ_FAILED");
    EXPECT_STREQ(AnchorReasonWord(AnchorReason::NotAUser), "NOT_A_USER");
}

TEST(AnchorWords, AReasonOutsideTheEnumerationIsUnknown) {
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(7)), "UNKNOWN");
    EXPECT_STREQ(AnchorReasonWord(static_cast<AnchorReason>(0xFFFFFFFF)), "UNKNOWN");
}

TEST(AnchorWords, EverySidUseHasItsName) {
    EXPECT_STREQ(SidUseName(1), "SidTypeUser");
    EXPECT_STREQ(SidUseName(2), "SidTypeGroup");
    EXPECT_STREQ(SidUseName(3), "SidTypeDomain");
    EXPECT_STREQ(SidUseName(4), "SidTypeAlias");
    EXPECT_STREQ(SidUseName(5), "SidTypeWellKnownGroup");
    EXPECT_STREQ(SidUseName(6), "SidTypeDeletedAccount");
    EXPECT_STREQ(SidUseName(7), "SidTypeInvalid");
    EXPECT_STREQ(SidUseName(8), "SidTypeUnknown");
    EXPECT_STREQ(SidUseName(9), "SidTypeComputer");
    EXPECT_STREQ(SidUseName(10), "SidTypeLabel");
    EXPECT_STREQ(SidUseName(11), "SidTypeLogonSession");
}

TEST(AnchorWords, AnyOtherSidUseIsUnrecognised) {
    EXPECT_STREQ(SidUseName(0), "SidType(unrecognised)");
    EXPECT_STREQ(SidUseName(12), "SidType(unrecognised)");
    EXPECT_STREQ(SidUseName(0xFFFFFFFF), "SidType(unrecognised)");
}

TEST(AnchorWords, EveryOwnerClassHasItsNumberAndItsWords) {
    EXPECT_STREQ(OwnerTrustWord(static_cast<OwnerTrust>(0)), "UNTRUSTED");
    EXPECT_STREQ(OwnerTrustWord(static_cast<OwnerTrust>(1)), "LOCAL SERVICE (S-1-5-19) - Frame Server hosted");
    EXPECT_STREQ(OwnerTrustWord(static_cast<OwnerTrust>(2)), "LOCAL SYSTEM (S-1-5-18)");
    EXPECT_STREQ(OwnerTrustWord(static_cast<OwnerTrust>(3)), "the authorized user from HKLM - in-process host");
    EXPECT_STREQ(OwnerTrustWord(OwnerTrust::Untrusted), "UNTRUSTED");
    EXPECT_STREQ(OwnerTrustWord(OwnerTrust::LocalService), "LOCAL SERVICE (S-1-5-19) - Frame Server hosted");
    EXPECT_STREQ(OwnerTrustWord(OwnerTrust::LocalSystem), "LOCAL SYSTEM (S-1-5-18)");
    EXPECT_STREQ(OwnerTrustWord(OwnerTrust::AuthorizedUser), "the authorized user from HKLM - in-process host");
}

TEST(AnchorWords, AnOwnerClassOutsideTheEnumerationIsNotTrusted) {
    EXPECT_STREQ(OwnerTrustWord(static_cast<OwnerTrust>(4)), "UNTRUSTED");
    EXPECT_STREQ(OwnerTrustWord(static_cast<OwnerTrust>(0xFFFFFFFF)), "UNTRUSTED");
}

}  // namespace
}  // namespace ravlo
