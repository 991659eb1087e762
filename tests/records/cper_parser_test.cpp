// SPDX-License-Identifier: Apache-2.0
#include "records/cper_parser.hpp"
#include "tests/world.hpp"

#include <json/value.h>

using namespace std::string_literals;

namespace {

using RecordParser = Recorded;

/** 96 bytes of record behind `ahead`: zeros but for the signature and these fields. */
Bytes record(const std::string& ahead, const std::string& revision, const std::string& count) {
    auto text = ahead + "CPER" + revision + "\xff\xff\xff\xff" + count;
    text.resize(ahead.size() + 96);
    return bytes(text);
}

TEST_F(RecordParser, TellsAndSummarisesUnusualRecords) {
    const std::string line = "log 5 349 nvCperParse: ";
    const auto section = line + "Prsing data offset 0, len 0 ,sc ";
    const std::string type = ", temp 00000000000000000000000000000000";
    struct Case {
        const char* name;
        Bytes record;
        Lines lines;
        std::string timestamp;
    };
    const std::vector<Case> cases{
        {"no section header",
         record("", "\x01\x01", "\x02\x01"),
         {line + "43 50 45 52", line + "Parsing data R \x01\x01,sc \x02\x01, sig CPER",
          section + "12" + type},
         "00_00_0000_000000"},
        // A zero byte ends what is printed of raw bytes.
        {"late and with zero bytes",
         record("\xff\x61\0\x62"s, "\0\x01"s, "\0\x01"s),
         {line + "ff 61 0 62", line + "CPER signature \xff\x61" + "assumed to be 4 bytes later",
          line + "Parsing data R ,sc , sig CPER", section + "10" + type},
         "00_00_0000_000000"},
        // What is no record at all is read like one that begins four bytes later.
        {"no record",
         Bytes(100, 0xff),
         {line + "ff ff ff ff",
          line + "CPER signature \xff\xff\xff\xff" + "assumed to be 4 bytes later",
          line + "Parsing data R \xff\xff,sc \xff\xff, sig \xff\xff\xff\xff",
          section + "2805" + type},
         "ff_ff_ffff_ffffff"},
    };
    Json::Value summary;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        forgetRecorded();
        EXPECT_EQ(nvCperParse(c.record, summary), 0);
        EXPECT_EQ(recorded(), c.lines);
        EXPECT_EQ(summary["Timestamp"], c.timestamp);
    }
}

TEST_F(RecordParser, RefusesRecordsThatEndTooSoon) {
    for (const auto& whole : {record("", "\1\1", "\1"), record("ahea", "\1\1", "\1")}) {
        for (auto end = whole.begin(); end <= whole.end(); ++end) {
            Json::Value summary;
            EXPECT_EQ(nvCperParse({whole.begin(), end}, summary), end == whole.end() ? 0 : -1);
            EXPECT_EQ(summary.isNull(), end != whole.end());
        }
    }
}

} // namespace
