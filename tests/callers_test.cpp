// SPDX-License-Identifier: Apache-2.0
// Callers of everything that other code may be compiled against: a changed argument or result does
// not compile here, a moved virtual operation is found.
#include "cper/log_service_entry.hpp"
#include "cper/record_parser.hpp"
#include "events/classifier.hpp"
#include "events/fault_logging.hpp"
#include "events/generate_event.hpp"
#include "events/raise_event.hpp"
#include "intake/data_file.hpp"
#include "intake/integrity.hpp"
#include "intake/request.hpp"
#include "retention/child_runner.hpp"
#include "retention/monitor.hpp"
#include "retention/save_and_clear.hpp"
#include "service/diag_log.hpp"
#include "service/tavriskmain.hpp"

#include <gtest/gtest.h>
#include <json/value.h>

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
using Vector = char* const*;

static_assert(callable<diag_log, void, int, int, const char*, const char*>);
static_assert(callable<tavriskmain_init, int, sdbusplus::bus::bus&>);
static_assert(std::is_same_v<decltype(tavrisk_object), Tavrisk*>);
static_assert(callable<checkRedfishData, int, Data, std::int32_t&, char*&, std::uint32_t&>);
static_assert(callable<tavrisk_generate_event, std::int32_t, int, void*, const char*, unsigned>);
static_assert(
    callable<tavrisk_post_event_hook, std::int32_t, std::vector<std::string>&, std::uint32_t>);
static_assert(callable<tavrisk_raise_event, std::int32_t, const char*, const char*,
                       std::vector<std::string>&, std::uint32_t>);
static_assert(callable<tavrisk_mchars_callback, void, const char*, std::int32_t, void*, void*>);
static_assert(callable<zel_wux_fault_logging_thread, void, Data>);
static_assert(callable<SignIt, int, const std::uint8_t*, std::uint32_t, char**>);
static_assert(callable<validateBuffer, int, Text, Data>);
static_assert(callable<LogEvent, int, Text, Data> && callable<LogCPEREvent, int, Text, Data>);
static_assert(callable<SaveData, int, Text, Data>);
static_assert(callable<tavrisk_daemon_thread, int, Data, Text>);
static_assert(callable<createLogServiceEntry, int, Data, Text>);
static_assert(callable<nvCperParse, int, Data, Json::Value&>);
static_assert(callable<bytesToHex, std::string, const std::uint8_t*, std::size_t>);
static_assert(callable<hexToGuidText, std::string, Text>);
static_assert(callable<cperTimestampText, std::string, const std::uint8_t*, std::size_t>);
static_assert(callable<system_call_timeout, int, const char*, Vector, std::uint32_t>);
static_assert(callable<system_call_wait, int, const char*, Vector>);
static_assert(callable<wuxmonitor_start, void, Tavrisk*> &&
              callable<wuxmonitor_thread, void, Binding*>);
static_assert(callable<saveAndClearCache, std::int32_t>);

static_assert(std::is_base_of_v<sdbusplus::common::com::vorn::bmc::Tavrisk, Binding>);
static_assert(std::is_base_of_v<sdbusplus::server::object::details::compose<Binding>, Tavrisk>);
static_assert(std::is_base_of_v<sdbusplus::server::object::object<Binding>, Tavrisk>);

[[maybe_unused]] constexpr std::array methodCallbacks{
    &Binding::_callback_Log, &Binding::_callback_Save, &Binding::_callback_CPERlog,
    &Binding::_callback_SaveAndClearCache};
[[maybe_unused]] constexpr std::array propertyCallbacks{
    &Binding::_callback_get_SystemLEDSetting,
    &Binding::_callback_set_SystemLEDSetting,
    &Binding::_callback_get_RetentionSizeInMB,
    &Binding::_callback_set_RetentionSizeInMB,
    &Binding::_callback_get_RetentionIntervalInMinutes,
    &Binding::_callback_set_RetentionIntervalInMinutes,
    &Binding::_callback_get_WUXDataLocation,
    &Binding::_callback_get_WUXDataCacheLocation};

/** The number of a virtual operation among all, as the C++ ABI of Linux has it: a pointer to it
 *  holds its offset in the table, plus 1 except on ARM. The destructor takes the first two. */
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
