// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/report.hpp"

#include <systemd/sd-event.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <exception>

namespace tavrisk::tools {
namespace {

std::string timeText(const std::tm* time, const char* format) {
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, time)};
}

struct UnrefEvent {
    void operator()(sd_event* event) const noexcept { sd_event_unref(event); }
};
using Event = std::unique_ptr<sd_event, UnrefEvent>;

/** Tells what happens to the daemon until it is interrupted or nobody listens any more. */
class Watch {
public:
    Watch(Daemon& daemon, bool json) : daemon_{daemon}, bus_{daemon.bus()}, json_{json} {
        sd_event* made = nullptr;
        check(sd_event_new(&made));
        event_.reset(made);
        // Before the first look at the owner, so that no change falls between.
        check(sd_bus_match_signal(bus_, nullptr, busName, objectPath, propertiesInterface,
                                  "PropertiesChanged", call<&Watch::propertiesChanged>, this));
        check(sd_bus_add_match(bus_, nullptr, ownerMatch().c_str(), call<&Watch::ownerChanged>,
                               this));
        const auto owner = daemon.owner();
        if (owner) {
            tellOwner("present", "the daemon is there", owner->uniqueName);
            askForProperties();
        } else {
            tellOwner("absent", "the daemon is not there", "");
        }
    }

    void run() {
        endOnSignal(SIGINT);
        endOnSignal(SIGTERM);
        // A closed pipe shows even while there is nothing to write; a file cannot be watched.
        const int watched = sd_event_add_io(event_.get(), nullptr, STDOUT_FILENO, 0, end, nullptr);
        if (watched != -EPERM) {
            check(watched);
        }
        check(sd_bus_set_exit_on_disconnect(bus_, 1));
        check(sd_bus_attach_event(bus_, event_.get(), SD_EVENT_PRIORITY_NORMAL));
        const int code = sd_event_loop(event_.get());
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        if (code != 0) {
            check(-ENOTCONN);
        }
    }

private:
    static std::string ownerMatch() {
        return "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
               "member='NameOwnerChanged',arg0='" +
               std::string{busName} + "'";
    }

    /** A libsystemd callback: an exception must not cross its frames and ends the loop instead. */
    template <void (Watch::*Body)(sd_bus_message*)>
    static int call(sd_bus_message* message, void* context, sd_bus_error* /*error*/) noexcept {
        auto& self = *static_cast<Watch*>(context);
        try {
            (self.*Body)(message);
        } catch (...) {
            self.failure_ = std::current_exception();
            sd_event_exit(self.event_.get(), 0);
        }
        return 0;
    }

    static int end(sd_event_source* source, int /*descriptor*/, std::uint32_t /*events*/,
                   void* /*context*/) noexcept {
        return sd_event_exit(sd_event_source_get_event(source), 0);
    }

    void endOnSignal(int signal) {
        sigset_t set{};
        sigemptyset(&set);
        sigaddset(&set, signal);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        check(sd_event_add_signal(event_.get(), nullptr, signal, nullptr, nullptr));
    }

    void propertiesChanged(sd_bus_message* message) {
        const char* interface = nullptr;
        check(sd_bus_message_read_basic(message, 's', &interface));
        if (std::string_view{interface} != interfaceName) {
            return;
        }
        tellProperties("changed", message);
    }

    /** The answer is told when it comes. A daemon that has gone again is not started for it. */
    void askForProperties() {
        const auto request = daemon_.newPropertiesCall();
        check(sd_bus_message_set_auto_start(request.get(), 0));
        check(sd_bus_call_async(bus_, nullptr, request.get(), call<&Watch::propertiesAnswered>,
                                this, 0));
    }

    void propertiesAnswered(sd_bus_message* reply) {
        if (sd_bus_message_is_method_error(reply, nullptr) == 0) {
            tellProperties("current", reply);
        }
    }

    void tellProperties(const char* event, sd_bus_message* message) const {
        for (const auto& [name, value] : readProperties(message)) {
            Json::Value object;
            object["property"] = name;
            object["value"] = toJson(value);
            tell(event, name + " = " + toText(value), std::move(object));
        }
    }

    void ownerChanged(sd_bus_message* message) {
        const char* owner = nullptr;
        check(sd_bus_message_read(message, "sss", nullptr, nullptr, &owner));
        if (*owner != '\0') {
            tellOwner("appeared", "the daemon has appeared", owner);
            askForProperties();
        } else {
            tellOwner("vanished", "the daemon has vanished", "");
        }
    }

    void tellOwner(const char* event, const std::string& text, const std::string& owner) const {
        Json::Value object{Json::objectValue};
        if (!owner.empty()) {
            object["owner"] = owner;
        }
        tell(event, owner.empty() ? text : text + " (" + owner + ")", std::move(object));
    }

    void tell(const char* event, const std::string& text, Json::Value object) const {
        const auto now = std::time(nullptr);
        if (json_) {
            object["command"] = "monitor";
            object["event"] = event;
            object["time"] = timeText(std::gmtime(&now), "%FT%TZ");
            putLine(jsonLine(object));
        } else {
            putLine(timeText(std::localtime(&now), "%F %T  ") + harmless(text));
        }
        flushOutput();
    }

    Daemon& daemon_;
    sd_bus* bus_;
    bool json_;
    Event event_;
    std::exception_ptr failure_;
};

} // namespace

Exit monitor(const Arguments& arguments) {
    const auto target = targetOf(arguments, std::chrono::seconds{25});
    try {
        Daemon daemon{target};
        Watch{daemon, arguments.json()}.run();
    } catch (const Failure& failure) {
        if (!arguments.json()) {
            throw;
        }
        putLine(jsonLine(resultJson(arguments.command, failure.status(), failure.what())));
        return failure.status();
    }
    return Exit::done;
}

} // namespace tavrisk::tools
