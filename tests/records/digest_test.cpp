// SPDX-License-Identifier: Apache-2.0
#include "records/digest.hpp"
#include "tests/world.hpp"

#include <cstdlib>

using ::testing::ElementsAre;

namespace {

using Integrity = Recorded;

// The SHA-512 test message of FIPS 180-2 and its published digest.
const std::string fipsDigest = "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                               "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f";

TEST_F(Integrity, ComparesTheFirst128Characters) {
    auto upperCase = fipsDigest;
    std::transform(upperCase.begin(), upperCase.end(), upperCase.begin(), ::toupper);
    const std::vector<std::pair<std::string, int>> cases{
        {fipsDigest, 0},
        {fipsDigest + "/more", 0},
        {fipsDigest.substr(0, 127), -1},
        {upperCase, -1},
        {"", -1},
    };
    for (const auto& [validationString, result] : cases) {
        EXPECT_EQ(validateBuffer(validationString, bytes("abc")), result) << validationString;
    }
    EXPECT_EQ(validateBuffer(fipsDigest, bytes("abd")), -1);
}

TEST_F(Integrity, SaysWhyThereIsNoDigest) {
    char* text = nullptr;
    const std::uint8_t byte = 0;
    EXPECT_EQ(SignIt(nullptr, 1, &text), -1);
    EXPECT_EQ(SignIt(&byte, 0, &text), -1);
    EXPECT_EQ(SignIt(&byte, 1, nullptr), -1);
    EXPECT_EQ(text, nullptr);
    errno = ENOENT;
    EXPECT_EQ(validateBuffer("", {}), -1);
    const auto* const invalid = "log 3 349 SignIt: Invalid parameters";
    EXPECT_THAT(
        recorded(),
        ElementsAre(invalid, invalid, invalid, invalid,
                    ::testing::StartsWith("log 3 349 validateBuffer: Failed to generate hash: ")));
}

} // namespace
