// SPDX-License-Identifier: Apache-2.0
// Callers of what other code may be compiled against and no other test calls: a changed argument or
// result does not compile here, a moved virtual operation is found.
#include "daemon/events/submission.hpp"
#include "daemon/intake/cper_record.hpp"
#include "daemon/intake/data_file.hpp"
#include "daemon/intake/event_record.hpp"
#include "daemon/intake/request.hpp"
#include "daemon/retention/monitor.hpp"
#include "daemon/retention/save_and_clear.hpp"
#include "daemon/service/tavriskmain.hpp"
#include "records/cper_parser.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <type_traits>

namespace {

using Binding = sdbusplus::server::com::vorn::bmc::Tavrisk;

template <auto function, typename Result, typename... Arguments>
constexpr bool callable =
    std::is_same_v<std::invoke_result_t<decltype(function), Arguments...>, Result>;

using Text = std::string&;
using Data = std::vector<std::uint8_t>&;

static_assert(callable<tavriskmain_init, int, sdbusplus::bus::bus&>);
static_assert(std::is_same_v<decltype(tavrisk_object), Tavrisk*>);
static_assert(
    callable<tavrisk_post_event_hook, std::int32_t, std::vector<std::string>&, std::uint32_t>);
static_assert(callable<LogEvent, int, Text, Data> && callable<LogCPEREvent, int, Text, Data>);
static_assert(callable<SaveData, int, Text, Data>);
static_assert(callable<tavrisk_daemon_thread, int, Data, Text>);
static_assert(callable<createLogServiceEntry, int, Data, Text>);
static_assert(callable<bytesToHex, std::string, const std::uint8_t*, std::size_t>);
static_assert(callable<hexToGuidText, std::string, Text>);
static_assert(callable<cperTimestampText, std::string, const std::uint8_t*, std::size_t>);
static_assert(callable<wuxmonitor_start, void, Tavrisk*> &&
              callable<wuxmonitor_thread, void, Binding*>);
static_assert(callable<saveAndClearCache, std::int32_t>);

static_assert(std::is_base_of_v<sdbusplus::common::com::vorn::bmc::Tavrisk, Binding>);
static_assert(std::is_base_of_v<sdbusplus::server::object::details::compose<Binding>, Tavrisk>);
static_assert(std::is_base_of_v<sdbusplus::server::object::object<Binding>, Tavrisk>);

/** The number of a virtual operation among all, as the C++ ABI of Linux has it: a pointer to it
 *  holds its offset in the table, and on most machines one more. The destructor takes the first
 *  two. */
template <typename Operation>
std::size_t slot(Operation operation) {
    std::size_t stored = 0;
    std::memcpy(&stored, &operation, sizeof stored);
    return stored / sizeof(void*);
}

template <typename Value>
using Get = Value (Binding::*)() const;
template <typename Value>
using Set = Value (Binding::*)(Value);
template <typename Value>
using SetQuietly = Value (Binding::*)(Value, bool);

TEST(Binding, KeepsTheOrderOfItsVirtualOperations) {
    using std::string;
    using byte = std::uint8_t;
    const std::array slots{slot(&Binding::log),
                           slot(&Binding::save),
                           slot(&Binding::cPERlog),
                           slot(&Binding::saveAndClearCache),
                           slot<Get<string>>(&Binding::systemLEDSetting),
                           slot<SetQuietly<string>>(&Binding::systemLEDSetting),
                           slot<Set<string>>(&Binding::systemLEDSetting),
                           slot<Get<byte>>(&Binding::retentionSizeInMB),
                           slot<SetQuietly<byte>>(&Binding::retentionSizeInMB),
                           slot<Set<byte>>(&Binding::retentionSizeInMB),
                           slot<Get<byte>>(&Binding::retentionIntervalInMinutes),
                           slot<SetQuietly<byte>>(&Binding::retentionIntervalInMinutes),
                           slot<Set<byte>>(&Binding::retentionIntervalInMinutes),
                           slot<Get<string>>(&Binding::wUXDataLocation),
                           slot<SetQuietly<string>>(&Binding::wUXDataLocation),
                           slot<Set<string>>(&Binding::wUXDataLocation),
                           slot<Get<string>>(&Binding::wUXDataCacheLocation),
                           slot<SetQuietly<string>>(&Binding::wUXDataCacheLocation),
                           slot<Set<string>>(&Binding::wUXDataCacheLocation)};
    for (std::size_t i = 0; i < slots.size(); ++i) {
        EXPECT_EQ(slots.at(i), i + 2);
    }
}

} // namespace
