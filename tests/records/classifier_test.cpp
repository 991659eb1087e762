// SPDX-License-Identifier: Apache-2.0
#include "records/classifier.hpp"
#include "tests/world.hpp"

#include <memory>

namespace {

struct Case {
    const char* name;
    std::string record;
    int result;
    std::int32_t event;
    std::uint32_t severity;
    const char* device;
    const char* lastLine = "";
};

constexpr auto notTouched = -7;

// In a raw string, `'` stands for `"`.
std::string json(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

std::string event(const std::string& members, const std::string& messageId) {
    return json("{'EventType':'Event'," + members + ",'MessageId':'" + messageId +
                "','MessageArgs':['GPU0','x'],'CPER':{'NotificationType':'N'}}");
}

const auto critical = "'Severity':'Critical'";
const auto warning = "'Severity':'Warning'";
const auto platformError = "Platform.1.0.PlatformError";
const std::string sensor = "SensorEvent.1.0.0.Reading";
const auto failedParsing = "checkRedfishData: Failed parsing JSON";
const auto criticalBranch = "checkRedfishData: Critical parsing JSON";
const auto entry = "checkRedfishData: Entry parsing JSON";
const auto parsing = "checkRedfishData:  parsing JSON";

const Case cases[] = {
    {"CriticalPlatformError", event(critical, platformError), 1, 1, 1, "N", criticalBranch},
    {"CriticalAboveCaution", event(critical, sensor + "AboveUpperCautionThreshold"), 1, 6, 1,
     "GPU0"},
    {"CriticalAboveCritical", event(critical, sensor + "AboveUpperCriticalThreshold"), 1, 6, 1,
     "GPU0"},
    {"CriticalBelowCritical", event(critical, sensor + "BelowLowerCriticalThreshold"), 1, 7, 1,
     "GPU0"},
    {"CriticalAboveFatal", event(critical, sensor + "AboveUpperFatalThreshold"), 1, 6, 1, "GPU0"},
    {"CriticalBelowFatal", event(critical, sensor + "BelowLowerFatalThreshold"), 1, 7, 1, "GPU0"},
    {"CriticalOther", event(critical, "X.1.0.Y"), 1, 1, 1, "GPU0"},
    {"CriticalResourceWarning",
     event(critical, "ResourceEvent.1.0.ResourceWarningThresholdExceeded"), 1, 1, 1, "GPU0"},
    {"WarningResource", event(warning, "ResourceEvent.1.0.ResourceWarningThresholdExceeded"), 1, 4,
     2, "GPU0", entry},
    {"WarningAboveCaution", event(warning, sensor + "AboveUpperCautionThreshold"), 1, 5, 2, "GPU0"},
    {"WarningBelowCaution", event(warning, sensor + "BelowLowerCautionThreshold"), 1, 2, 2, "GPU0"},
    {"WarningPlatformError", event(warning, platformError), 1, 2, 2, "N"},
    {"OtherVersionOfAMessage",
     event(warning, "SensorEvent.1.0.1.ReadingAboveUpperCautionThreshold"), 1, 2, 2, "GPU0"},
    {"EntryTypeAndMessageSeverity",
     json("{'EventType':'Alert','EntryType':'Event','MessageSeverity':'Critical'}"), 1, 1, 1, ""},
    {"MessageSeverityOutranksWarning",
     json("{'EventType':'Event','Severity':'Warning','MessageSeverity':'Critical'}"), 1, 1, 1, ""},
    {"MessageSeverityBesideAHarmlessOne",
     json("{'EventType':'Event','Severity':'OK','MessageSeverity':'Warning'}"), 1, 2, 2, ""},
    {"NumberAsDevice", json("{'EventType':'Event','Severity':'Warning','MessageArgs':[7]}"), 1, 2,
     2, "7"},
    {"NullAsArguments", json("{'EventType':'Event','Severity':'Warning','MessageArgs':null}"), 1, 2,
     2, ""},
    {"DeviceEndsAtNul",
     json("{'EventType':'Event','Severity':'Warning','MessageArgs':['GPU\\u0000X']}"), 1, 2, 2,
     "GPU"},
    {"MembersNotReadMayHaveAnyType",
     json("{'EventType':'Event','EntryType':[],'Severity':'Critical','MessageSeverity':{}}"), 1, 1,
     1, ""},
    {"CommentsAreAccepted", json("// c\n{'EventType':'Event',/* c */'Severity':'Warning'} // c"), 1,
     2, 2, ""},
    {"SeverityOk", event("'Severity':'OK'", platformError), 0, notTouched, 3, "", parsing},
    {"SeverityInLowerCase", event("'Severity':'critical'", platformError), 0, notTouched, 3, ""},
    {"NotAnEvent", json("{'EventType':'event','EntryType':'SEL','Severity':'Critical'}"), 0,
     notTouched, 3, "", parsing},
    {"EmptyObject", "{}", 0, notTouched, 3, ""},
    {"Null", "null", 0, notTouched, 3, "", parsing},
    {"NotJson", "hello", 0, notTouched, 9, "", failedParsing},
    {"Empty", "", 0, notTouched, 9, "", failedParsing},
    {"Truncated", json("{'EventType':'Event'"), 0, notTouched, 9, "", failedParsing},
    {"TopLevelArray", "[1]", 0, notTouched, 3, "", failedParsing},
    {"TopLevelText", json("'Event'"), 0, notTouched, 3, "", failedParsing},
    {"SeverityIsAnArray", json("{'EventType':'Event','Severity':[]}"), 0, notTouched, 3, "",
     failedParsing},
    {"MessageIdIsAnObject", json("{'EventType':'Event','Severity':'Critical','MessageId':{}}"), 0,
     notTouched, 1, "", failedParsing},
    {"MessageArgsIsText", json("{'EventType':'Event','Severity':'Warning','MessageArgs':'GPU0'}"),
     0, notTouched, 2, "", failedParsing},
    {"LongWordIsNoSeverity",
     json("{'EventType':'Event','Severity':'") + std::string(500, 'W') + json("'}"), 0, notTouched,
     3, "", parsing},
    {"NumberAsSeverity", json("{'EventType':'Event','Severity':12}"), 0, notTouched, 3, "",
     parsing},
    {"LastOfSameMembersCounts",
     json("{'EventType':7,'\\u0045ventType':'Event','Severity':'Warning','MessageArgs':['a',[]],'"
          "MessageArgs':['b',{}],'CPER':{'NotificationType':'c'},'CPER':[]}"),
     1, 2, 2, "b"},
    {"MembersOfOthersAreNotRead",
     json("{'x':{'EventType':'Event','Severity':'Warning'},'CPER':{'x':{'NotificationType':[]}}}"),
     0, notTouched, 3, "", parsing},
    {"DeviceIsAnArray", json("{'EventType':'Event','Severity':'Warning','MessageArgs':[[1]]}"), 0,
     notTouched, 2, "", failedParsing},
    {"AThousandLevels",
     json("{'EventType':'Event','Severity':'Warning','x':") + std::string(999, '[') +
         std::string(999, ']') + "}",
     1, 2, 2, ""},
    {"ALevelMore",
     json("{'EventType':'Event','Severity':'Warning','x':") + std::string(1000, '[') +
         std::string(1000, ']') + "}",
     0, notTouched, 9, "", failedParsing},
    {"LineCommentEndsAtReturn", json("{'EventType':'Event',// c\r'Severity':'Warning'}"), 1, 2, 2,
     ""},
    {"NumberBeyondDouble", json("{'EventType':'Event','Severity':'Warning','x':1e309}"), 0,
     notTouched, 9, "", failedParsing},
    {"LoneMinus", json("{'EventType':'Event','Severity':'Warning','MessageArgs':[-]}"), 1, 2, 2,
     "0"},
    {"CommaBeforeTheEnd", json("{'EventType':'Event','Severity':'Warning',}"), 0, notTouched, 9, "",
     failedParsing},
    {"ByteOrderMark", "\xef\xbb\xbf{}", 0, notTouched, 9, "", failedParsing},
    {"AMegabyteOfBrackets", std::string(1 << 20, '['), 0, notTouched, 9, "", failedParsing},
};

class Classifier : public Recorded, public ::testing::WithParamInterface<Case> {};

TEST_P(Classifier, DecidesWhatToReport) {
    const auto& c = GetParam();
    std::int32_t number = notTouched;
    char* device = nullptr;
    std::uint32_t severity = 9;
    EXPECT_EQ(checkRedfishData(bytes(c.record), number, device, severity), c.result);
    const std::unique_ptr<char, decltype(&std::free)> owned{device, std::free};
    EXPECT_EQ(number, c.event);
    EXPECT_EQ(severity, c.severity);
    EXPECT_STREQ(device, c.result == 1 ? c.device : nullptr);
    const auto reported = tavrisk::classify(bytes(c.record)).event;
    EXPECT_EQ(reported ? reported->device : "", c.device);
    EXPECT_THAT(recorded().back(), ::testing::EndsWith(c.lastLine));
}

INSTANTIATE_TEST_SUITE_P(Table, Classifier, ::testing::ValuesIn(cases),
                         [](const auto& info) { return info.param.name; });

} // namespace
