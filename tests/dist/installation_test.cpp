// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <array>
#include <filesystem>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

/** What `meson install` is to put into a DESTDIR: name, folder and mode of each file. Where the
 *  folder is, options and the machine say. */
struct InstalledFile {
    const char* name;
    const char* folder;
    unsigned mode;
};
constexpr std::array embeddedFiles{
    InstalledFile{"OSKA.1.0.0.json", "tavrisk", 0644},
    InstalledFile{"libkelp.so", "", 0755},
    InstalledFile{"libmosslink.so.9", "", 0755},
    InstalledFile{"libwhelk.so.9", "", 0755},
    InstalledFile{"redfish.schema.json", "tavrisk", 0644},
    InstalledFile{"tavrisk-retention", "libexec", 0755},
    InstalledFile{"zelctl", "bin", 0755},
    InstalledFile{"zelctl", "completions", 0644},
    InstalledFile{"zelctl.1", "man1", 0644},
    InstalledFile{"zelctl.schema.json", "tavrisk", 0644},
    InstalledFile{"tavrisk-embedded.conf", "tmpfiles.d", 0644},
    InstalledFile{"zel.conf", "tavrisk-metrics.service.d", 0644},
};
constexpr std::array daemonFiles{
    InstalledFile{"LICENSE", "tavrisk", 0644},
    InstalledFile{"com.vorn.bmc.tavrisk.conf", "system.d", 0644},
    InstalledFile{"com.vorn.bmc.tavrisk.service", "system-services", 0644},
    InstalledFile{"com.vorn.bmc.tavrisk.xml", "interfaces", 0644},
    InstalledFile{"run-hmc.mount", "system", 0644},
    InstalledFile{"tavrisk", "bin", 0755},
    InstalledFile{"tavrisk.8", "man8", 0644},
    InstalledFile{"tavrisk.conf", "sysusers.d", 0644},
    InstalledFile{"tavrisk.conf", "tmpfiles.d", 0644},
    InstalledFile{"tavrisk.service", "system", 0644},
    InstalledFile{"tavrisk-metrics.service", "system", 0644},
    InstalledFile{"tavrisk-metrics.timer", "system", 0644},
    InstalledFile{"tavriskctl", "bin", 0755},
    InstalledFile{"tavriskctl", "completions", 0644},
    InstalledFile{"tavriskctl.1", "man1", 0644},
    InstalledFile{"tavriskctl.schema.json", "tavrisk", 0644},
};

/** "FOLDER/NAME MODE"; the folder of a library is the machine's. */
std::string described(const std::string& folder, const std::string& name, unsigned mode) {
    std::ostringstream text;
    text << (name.starts_with("lib") ? "lib" : folder) << '/' << name << ' ' << std::oct << mode;
    return text.str();
}

/** Beginnings of lines that a file has, of those that nothing else here would miss. */
struct Promise {
    const char* file;
    Lines lines;
};
std::vector<Promise> promises() {
    const char* const chosen = std::getenv("TAVRISK_BUS_GROUP");
    const std::string group{chosen != nullptr ? chosen : "hmc"};
    return {
        {"system/tavrisk.service",
         {"Type=dbus\nBusName=com.vorn.bmc.tavrisk\n", "Wants=run-hmc.mount\nAfter=run-hmc.mount\n",
          "ExecStartPre=-+systemd-tmpfiles --create tavrisk.conf\n", "ExecStop=-/bin/sh -c ",
          "Restart=always\nRestartSec=3s\n", "StartLimitIntervalSec=2min\nStartLimitBurst=5\n",
          "User=tavrisk\nGroup=tavrisk\n",
          "ProtectSystem=strict\nReadWritePaths=-/run/hmc -/mmc1/hmc",
          "NoExecPaths=-/run/hmc -/mmc1/hmc", "ReadOnlyPaths=/tmp /var/tmp\n", "PrivateIPC=yes\n",
          "SystemCallErrorNumber=EPERM\n", "MemoryMax=", "TasksMax=infinity\nLimitNPROC=infinity\n",
          "WantedBy=multi-user.target\n"}},
        {"system/run-hmc.mount",
         {"Before=tavrisk.service\n", "What=tmpfs\nWhere=/run/hmc\nType=tmpfs\n",
          "Options=mode=0750,nosuid,nodev,noexec,size="}},
        {"tmpfiles.d/tavrisk.conf",
         {"d /run/hmc          0750 tavrisk " + group + " -\n",
          "d /run/hmc/dump     0750 tavrisk " + group + " -\n",
          "d /run/hmc/rawCPER  0750 tavrisk " + group + " -\n",
          "d /mmc1/hmc         0750 tavrisk " + group + " -\n"}},
        {"sysusers.d/tavrisk.conf", {"u tavrisk - ", "g " + group + " -\n"}},
        {"system-services/com.vorn.bmc.tavrisk.service",
         {"Name=com.vorn.bmc.tavrisk\n", "User=tavrisk\nSystemdService=tavrisk.service\n"}},
    };
}

void expectPromised(const fs::path& file) {
    const auto name = file.parent_path().filename() / file.filename();
    const auto content = "\n" + readFile(file);
    for (const auto& promise : promises()) {
        for (const auto& line : promise.file == name ? promise.lines : Lines{}) {
            EXPECT_NE(content.find("\n" + line), std::string::npos) << name << ": " << line;
        }
    }
    // What is not needed is not allowed: more than that, in tenths, means that a line has gone.
    const std::string most = name == "system/tavrisk.service"           ? "4"
                             : name == "system/tavrisk-metrics.service" ? "9"
                                                                        : "";
    EXPECT_TRUE(most.empty() || Process({"systemd-analyze", "security", "--offline=yes",
                                         "--threshold=" + most, "--no-pager", file})
                                        .wait() == 0);
}

TEST(Installation, HoldsWhatAnImageNeedsAndNothingElse) {
    const std::string destination = "/run/destination";
    fs::remove_all(destination);
    ASSERT_EQ((Process{{"meson", "install", "-C", std::getenv("TAVRISK_BUILD") + std::string{},
                        "--no-rebuild", "--quiet", "--destdir", destination}}
                   .wait()),
              0);

    std::multiset<std::string> expected;
    const auto expect = [&](const auto& files) {
        for (const auto& [name, folder, mode] : files) {
            expected.insert(described(folder, name, mode));
        }
    };
    expect(daemonFiles);
    if (std::getenv("TAVRISK_ZELCTL") != nullptr) {
        expect(embeddedFiles);
    }

    std::multiset<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator{destination}) {
        if (entry.is_regular_file() && !entry.is_symlink()) {
            const auto& path = entry.path();
            found.insert(described(path.parent_path().filename(), path.filename(),
                                   static_cast<unsigned>(entry.status().permissions())));
            expectPromised(path);
            const auto content = readFile(path);
            EXPECT_TRUE(content.starts_with("\x7f"
                                            "ELF") ||
                        !has(content, "@[a-z_]+@"))
                << path;
        }
    }
    EXPECT_EQ(found, expected);
    if (std::getenv("TAVRISK_ZELCTL") != nullptr) {
        const auto script = fs::read_symlink(destination + "/app/bin/wuxRetensionChk.sh");
        EXPECT_TRUE(fs::is_regular_file(destination + script.string())) << script;
    }
}

} // namespace
