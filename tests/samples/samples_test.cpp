// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <filesystem>

namespace {

class Samples : public World {
protected:
    /** What was recorded of parsing, classifying and submitting. */
    static std::string recordedOf(const std::string& validationString) {
        constexpr auto kept =
            "nvCperParse|createLogServiceEntry|LogCPEREvent|checkRedfishData|^add|^submit";
        std::string text;
        for (const auto& line : recorded()) {
            if (has(line, kept)) {
                text += replaced(line, validationString, "DIGEST") + "\n";
            }
        }
        return text;
    }
};

TEST_F(Samples, BecomeWhatTheTranscriptTells) {
    stopClock(1'700'000'000);
    startDaemon();
    const auto source = std::getenv("TAVRISK_SOURCE") + std::string{"/"};
    const auto transcript = readFile(source + "tests/samples/samples.transcript");
    for (const auto& entry : std::filesystem::recursive_directory_iterator{source + "samples"}) {
        const auto name = entry.path().filename().string();
        const bool record = name.ends_with(".cper");
        // Those of the decoder are of kinds that the daemon does not tell apart.
        if (entry.path().parent_path().filename() == "decoder" ||
            (!record && !name.ends_with(".json"))) {
            continue;
        }
        const auto data = bytes(readFile(entry.path()));
        forgetRecorded();
        const auto result = Peer{}.call(record ? "CPERlog" : "Log", digest(data), data);
        std::string section;
        ASSERT_TRUE(eventually([&] {
            section = "== " + name + ": " + std::to_string(result.value_or(-1)) + "\n" +
                      recordedOf(digest(data)) + "\n";
            return transcript.find(section) != std::string::npos;
        })) << section;
    }
}

} // namespace
