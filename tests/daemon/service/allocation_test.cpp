// SPDX-License-Identifier: Apache-2.0
#include "tests/recording/allocation.hpp"
#include "tests/world.hpp"

#include <fcntl.h>
#include <sys/mman.h>

#include <filesystem>

using ::testing::AnyOf;
using ::testing::Eq;
using ::testing::HasSubstr;

namespace {

constexpr auto service = "com.vorn.bmc.tavrisk";
constexpr auto path = "/com/vorn/bmc/tavrisk";
constexpr auto properties = "org.freedesktop.DBus.Properties";

const auto event = bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"],)"
                         R"("MessageId":"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold"})");

/** The daemon with an allocator that lets the n-th allocation fail. */
class Allocation : public World {
protected:
    Allocation() {
        const int file = open(AllocationControl::path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        EXPECT_EQ(ftruncate(file, sizeof *control_), 0);
        control_ = static_cast<AllocationControl*>(
            mmap(nullptr, sizeof *control_, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        close(file);
        writeFile("/app/bin/wuxRetensionChk.sh", "#!/bin/sh\n");
        std::filesystem::permissions("/app/bin/wuxRetensionChk.sh", std::filesystem::perms::all);
    }
    ~Allocation() override {
        daemon.reset();
        munmap(control_, sizeof *control_);
    }

    void SetUp() override {
        if (std::string{std::getenv("TAVRISK_ALLOCATOR")}.empty()) {
            GTEST_SKIP() << "no allocator that could be replaced";
        }
    }

    void restart() {
        peer_.reset();
        daemon.reset();
        std::string command = std::getenv("TAVRISK_DAEMON");
        const std::string preload = "LD_PRELOAD=";
        command.insert(command.find(preload) + preload.size(),
                       std::getenv("TAVRISK_ALLOCATOR") + std::string{":"});
        startDaemon({"env", "TAVRISK_DAEMON=" + command});
        peer_ = std::make_unique<Peer>();
        // Its name comes before it is through with its start.
        ASSERT_TRUE(eventually([&] { return peer_->byteProperty("RetentionSizeInMB") == 10; }));
        budget_ = 10;
    }

    using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

    Message newCall(const char* interface, const char* method) {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(peer_->bus(), &message, service, path, interface, method);
        return {message, sd_bus_message_unref};
    }

    Message newCall(const char* method, const Bytes& data) {
        auto message = newCall(service, method);
        sd_bus_message_append_basic(message.get(), 's', digest(data).c_str());
        sd_bus_message_append_array(message.get(), 'y', data.data(), data.size());
        return message;
    }

    /** What a call came to. */
    struct Outcome {
        bool failed = false; // An allocation.
        int passes = 0;      // Of the bus loop, failed.
        Message reply{nullptr, sd_bus_message_unref};

        bool isError() const { return sd_bus_message_is_method_error(reply.get(), nullptr) > 0; }
        std::optional<int> number() const {
            std::int32_t result = -1;
            return reply && sd_bus_message_read_basic(reply.get(), 'i', &result) > 0
                       ? std::optional{result}
                       : std::nullopt;
        }
    };

    /** Makes the call with the n-th allocation failing, and the next one without. */
    Outcome call(sd_bus_message* message, int n) {
        forgetRecorded();
        Outcome outcome;
        control_->left = n;
        sd_bus_call_async(
            peer_->bus(), nullptr, message,
            [](sd_bus_message* reply, void* kept, sd_bus_error*) {
                static_cast<Message*>(kept)->reset(sd_bus_message_ref(reply));
                return 0;
            },
            &outcome.reply, 300'000'000);
        EXPECT_TRUE(eventually([&] {
            peer_->process();
            return outcome.reply || control_->left <= 0;
        }));
        // Workers may have theirs fail, the next call has not.
        EXPECT_TRUE(eventually([&] { return !outcome.reply || control_->left <= 0 || idle(); }));
        outcome.failed = control_->left <= 0;
        control_->left = 0;
        EXPECT_EQ(peer_->byteProperty("RetentionSizeInMB"), 10) << "not served";
        peer_->process();
        EXPECT_TRUE(eventually([&] { return idle(); }));
        outcome.passes = static_cast<int>(recordedWith("failed processing messages").size());
        budget_ -= outcome.passes;
        return outcome;
    }

    /** Calls `once` with every n, or in the quick run every few, until nothing fails any more. */
    void sweep(int step, const std::function<Outcome(int)>& once) {
        step = thorough() ? 1 : step;
        int n = 1;
        for (bool failed = true; failed && !HasFatalFailure(); n += step) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            if (!daemon || budget_ < 3) {
                restart();
            }
            const auto outcome = once(n);
            failed = outcome.failed;
            EXPECT_LE(outcome.passes, 1);
            if (HasNonfatalFailure()) {
                FAIL() << ::testing::PrintToString(recorded());
            }
        }
        EXPECT_GT(n, 5 * step) << "hardly anything fails";
    }

    /** An accepted event is in the log, or a line tells that it is not. */
    static bool isReportedOrTold() {
        const auto has = [](const char* text) { return !recordedWith(text).empty(); };
        return has("submit 66 1 2") || has("event dropped") || has("Failed to log OSKA") ||
               // A copy of the device's name that cannot be made counts as success on purpose.
               (has("Event raise successfully") && !has("build "));
    }

    /** The bus's, the monitor's and syslog's watcher; after a large call also one that waits to
     * give memory back. */
    std::ptrdiff_t threadsWhenIdle_ = 3;
    std::unique_ptr<Peer> peer_;

private:
    bool idle() const {
        namespace fs = std::filesystem;
        const fs::directory_iterator tasks{"/proc/" + std::to_string(daemon->pid()) + "/task"};
        return std::distance(begin(tasks), end(tasks)) <= threadsWhenIdle_;
    }

    AllocationControl* control_ = nullptr;
    int budget_ = 10;
};

/** The body of a message, written out. */
std::string dumped(sd_bus_message* message) {
    char* text = nullptr;
    std::size_t size = 0;
    auto* file = open_memstream(&text, &size);
    sd_bus_message_dump(message, file, SD_BUS_MESSAGE_DUMP_SUBTREE_ONLY);
    fclose(file);
    std::string result{text};
    std::free(text);
    return result;
}

TEST_F(Allocation, OneThatFailsCostsAnEventNoMoreThanItsOwnReply) {
    const auto cper = bytes(
        readFile(std::getenv("TAVRISK_SOURCE") + std::string{"/samples/cper/pcie-error.cper"}));
    auto large = event;
    large.resize(100'000, ' ');
    const std::pair<const char*, Bytes> calls[] = {
        {"Log", event}, {"CPERlog", cper}, {"Log", large}};
    for (const auto& [method, data] : calls) {
        SCOPED_TRACE(method);
        threadsWhenIdle_ = data == large ? 4 : 3;
        sweep(5, [&](int n) {
            auto outcome = call(newCall(method, data).get(), n);
            const auto result = outcome.number();
            EXPECT_TRUE(outcome.failed || result == 0);
            EXPECT_TRUE(!result || result == 0 || result == 1);
            EXPECT_TRUE(result != 0 || eventually(isReportedOrTold));
            return outcome;
        });
    }
}

TEST_F(Allocation, OneThatFailsLeavesASavedFileWholeOrSaysSo) {
    sweep(3, [&](int n) {
        std::filesystem::remove("/run/hmc/dump/" + digest(event));
        auto outcome = call(newCall("Save", event).get(), n);
        const auto result = outcome.number();
        EXPECT_TRUE(outcome.failed || result == 0);
        EXPECT_TRUE(!result || result == 0 || result == 1);
        if (result == 0) {
            EXPECT_EQ(bytes(readFile("/run/hmc/dump/" + digest(event))), event);
        }
        return outcome;
    });
}

TEST_F(Allocation, OneThatFailsClearsNothingUnsaved) {
    writeFile("/app/bin/wuxRetensionChk.sh", "#!/bin/sh\n[ $1 != cache ] || echo >/run/saved\n");
    sweep(5, [&](int n) {
        std::filesystem::remove("/run/saved");
        writeFile("/run/hmc/file", "x");
        auto outcome = call(newCall(service, "SaveAndClearCache").get(), n);
        const auto result = outcome.number();
        EXPECT_TRUE(outcome.failed || result == 0);
        EXPECT_TRUE(!result || result == 0 || result == 1);
        EXPECT_TRUE(result != 0 || !std::filesystem::exists("/run/hmc/file"));
        EXPECT_TRUE(std::filesystem::exists("/run/hmc/file") ||
                    std::filesystem::exists("/run/saved"));
        return outcome;
    });
}

TEST_F(Allocation, OneThatFailsIsAnErrorToWhoAsksForAProperty) {
    const struct {
        const char* interface;
        const char* method;
        std::vector<const char*> arguments;
        const char* answer;
    } cases[] = {
        {properties, "Get", {service, "SystemLEDSetting"}, "Disabled"},
        {properties, "Get", {service, "WUXDataLocation"}, "/mmc1/hmc"},
        {properties, "GetAll", {service}, "/var/run/hmc"},
        {"org.freedesktop.DBus.Introspectable", "Introspect", {}, "SaveAndClearCache"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        sweep(2, [&](int n) {
            const auto message = newCall(c.interface, c.method);
            for (const auto* argument : c.arguments) {
                sd_bus_message_append_basic(message.get(), 's', argument);
            }
            auto outcome = call(message.get(), n);
            if (outcome.reply && !outcome.isError()) {
                // libsystemd itself sends an introspection that it could not make empty.
                EXPECT_THAT(dumped(outcome.reply.get()),
                            AnyOf(HasSubstr(c.answer), Eq("STRING \"\";\n")));
            } else {
                EXPECT_TRUE(outcome.failed);
            }
            return outcome;
        });
    }
}

TEST_F(Allocation, OneThatFailsStoresAPropertyOrAnswersWithAnError) {
    std::string before = "Disabled";
    sweep(2, [&](int n) {
        const auto value = std::string(100, 'x') + std::to_string(n);
        const auto message = newCall(properties, "Set");
        sd_bus_message_append(message.get(), "ssv", service, "SystemLEDSetting", "s",
                              value.c_str());
        auto outcome = call(message.get(), n);
        const auto now = peer_->stringProperty("SystemLEDSetting");
        if (outcome.reply && !outcome.isError()) {
            EXPECT_EQ(now, value);
        } else {
            EXPECT_TRUE(outcome.failed);
            EXPECT_THAT(now, AnyOf(Eq(value), Eq(before), Eq("Disabled")));
        }
        before = now;
        return outcome;
    });
}

// What libraries make once, at the first call, may fail as well.
TEST_F(Allocation, OneThatFailsInTheFirstCallOfAllLeavesTheNextToSucceed) {
    int n = 1;
    for (bool failed = true; failed && !HasFailure(); n += thorough() ? 7 : 97) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        restart();
        failed = call(newCall("Log", event).get(), n).failed;
        const auto again = call(newCall("Log", event).get(), 0);
        EXPECT_EQ(again.number(), 0) << ::testing::PrintToString(recorded());
    }
}

} // namespace
