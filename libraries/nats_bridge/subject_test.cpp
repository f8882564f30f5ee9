#include "libraries/nats_bridge/subject.h"

#include "framework/exceptions/exceptions.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace zel::event_routing::nats {
namespace {

TEST(BridgeSubject, KeepsWhatATokenMayHoldAndWritesTheRestInDigits) {
    EXPECT_EQ(subject_of("plant", "e", "", "press.oil_4.Low-2"), "er.plant.e.=.press.oil_4.Low-2");
    EXPECT_EQ(subject_of("a.b", "e", "c*", ""), "er.a=2Eb.e.c=2A.=");
    EXPECT_EQ(subject_of("r", "e", "", "a..*.>.\r\n;=\xff"),
              "er.r.e.=.a.=.=2A.=3E.=0D=0A=3B=3D=FF");
    EXPECT_EQ(subject_of_pattern("r", "e", "", "*"), "er.r.e.=.>");
    EXPECT_EQ(subject_of_pattern("r", "e", "", "a b.*"), "er.r.e.=.a=20b.>");
    EXPECT_EQ(subject_of_pattern("r", "e", "", ".*"), "er.r.e.=.=.>");
    EXPECT_EQ(subject_of_pattern("r", "e", "", "a.b"), "er.r.e.=.a.b");
    for (const char* misplaced : {"a*", "*.a", "a.*.b", "**", "a.**", "a.*."})
        EXPECT_THROW(subject_of_pattern("r", "e", "", misplaced), exceptions::error) << misplaced;
}

TEST(BridgeSubject, HasOneSubjectForEachPathAndReadsNoOther) {
    std::mt19937 random(20261125);
    const std::string_view bytes("a.=*> ;\n\0\xe4Z", 11);
    std::map<std::string, std::string> seen;
    for (int i = 0; i < 20'000; ++i) {
        std::string path(random() % 6, ' ');
        for (char& byte : path)
            byte = bytes[random() % bytes.size()];
        const std::string subject = subject_of("r", "e", "c.", path);
        EXPECT_EQ(read_subject(subject), (decoded_subject{"r", "e", "c.", path})) << subject;
        EXPECT_EQ(subject.find_first_of(" *>\r\n\t"), subject.npos) << subject;
        EXPECT_EQ(seen.try_emplace(subject, path).first->second, path);
    }
    for (const char* foreign : {"", "er", "er.r.e.c", "er.r.e.c.", "er.r.e.c.a.", "er.r.e.c..a",
                                "er.r.e.c.=2e", "er.r.e.c.=41", "er.r.e.c.a=2Eb", "er.r.e.c.==",
                                "er.r.e.c.=4", "er.r.e.c.a b", "=65r.r.e.c.a", "ex.r.e.c.a"})
        EXPECT_THROW(read_subject(foreign), exceptions::error) << foreign;
}

TEST(BridgeSubject, RefusesAPathThatIsTooLongAndNamesIt) {
    const std::string path(600, ' ');
    try {
        subject_of("r", "e", "", path);
        FAIL() << "600 spaces are 1800 bytes";
    } catch (const exceptions::error& failure) {
        EXPECT_NE(std::string(failure.what()).find("'" + path + "'"), std::string::npos);
    }
    EXPECT_NO_THROW(subject_of("r", "e", "", std::string(600, 'a')));
}

TEST(BridgeSubject, KnowsWhatAPatternIsReachedBy) {
    EXPECT_TRUE(reaches("*", "") && reaches("a.*", "a.") && reaches("a.*", "a.b.c") &&
                reaches("a.b", "a.b"));
    EXPECT_FALSE(reaches("a.*", "a") || reaches("a.*", "ab.c") || reaches("a.b", "a.b.c"));
    EXPECT_TRUE(overlap("a.*", "a.b.*") && overlap("a.b", "*") && overlap("a.b", "a.b"));
    EXPECT_FALSE(overlap("a.*", "b.*") || overlap("a.*", "a"));
}

} // namespace
} // namespace zel::event_routing::nats
