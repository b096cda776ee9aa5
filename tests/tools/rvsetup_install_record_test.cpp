// The record of an install as text, and the list of changes for a machine to read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rvsetup/install/journal.h"
#include "rvsetup/install/step.h"
#include "tools/rvsetup_install_model.h"

namespace ravlo::test {
namespace {

TEST(InstallRecord, TheRecordSurvivesBeingWrittenAndRead) {
    Journal journal;
    journal.anchor = AnchorRecord{true, RegistryValue{"AuthorizedUserSid", 7, {0, 127, 255}}, {kUser, kOther}};
    journal.classKey = ClassRecord{ClassFor("E:\\\xC3\xA4 \"quoted\".dll")};
    journal.log = LogRecord{true, false, "O:BAD:(A;;FA;;;SY)"};
    journal.files = {{"P:\\a", false}, {"P:\\b", true}};
    journal.folders = {"P:", "P:\\c"};
    EXPECT_EQ(JournalFromText(JournalToText(journal)), journal);
    EXPECT_EQ(JournalFromText(JournalToText(Journal{})), Journal{});
}

TEST(InstallRecord, ADamagedRecordIsNoRecord) {
    const std::string good = JournalToText(Journal{});
    for (const std::string& text :
         {std::string(), std::string("{}"), good.substr(0, good.size() / 2), std::string("[]"), std::string("null"),
          std::string(R"({"format":2,"files":[],"folders":[]})"),
          std::string(R"({"format":1,"files":[{"path":1,"existed":false}],"folders":[]})"),
          std::string(
              R"({"format":1,"files":[],"folders":[],"anchor":{"keyExisted":true,"before":{"name":"a","type":1,)"
              R"("bytes":"0g"},"written":[]}})"),
          std::string(
              R"({"format":1,"files":[],"folders":[],"anchor":{"keyExisted":true,"before":{"name":"a","type":1,)"
              R"("bytes":"0"},"written":[]}})")}) {
        EXPECT_FALSE(JournalFromText(text)) << text;
    }
}

TEST(InstallRecord, ChangesAreListedAsJsonToo) {
    EXPECT_EQ(StepsToJson({{StepKind::InstallFile, "P:\\b", "S:\\a"}, {StepKind::Register, "P:\\b", ""}}, {true, false},
                          false, {"a note"}),
              "{\n"
              "  \"dryRun\": false,\n"
              "  \"changes\": [\n"
              "    {\n"
              "      \"action\": \"copy\",\n"
              "      \"target\": \"P:\\\\b\",\n"
              "      \"source\": \"S:\\\\a\",\n"
              "      \"done\": true\n"
              "    },\n"
              "    {\n"
              "      \"action\": \"register\",\n"
              "      \"target\": \"P:\\\\b\",\n"
              "      \"source\": \"\",\n"
              "      \"done\": false\n"
              "    }\n"
              "  ],\n"
              "  \"notes\": [\n"
              "    \"a note\"\n"
              "  ]\n"
              "}\n");
}

}  // namespace
}  // namespace ravlo::test
