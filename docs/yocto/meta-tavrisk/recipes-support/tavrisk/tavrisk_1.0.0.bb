# SPDX-License-Identifier: Apache-2.0
SUMMARY = "Event and error record logger for the HMC"
DESCRIPTION = "Takes in the hardware-error records of an attached management controller over \
D-Bus, keeps them, and turns them into entries of the platform event log."
SECTION = "base"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# Yours: "git.example.com/tavrisk.git", and the commit that the tag v${PV} is of.
TAVRISK_REPOSITORY ?= ""
TAVRISK_REVISION ?= ""
SRC_URI = "git://${TAVRISK_REPOSITORY};protocol=https;branch=main;destsuffix=${BP}"
SRCREV = "${TAVRISK_REVISION}"
# Releases before 5.1 unpack into WORKDIR itself.
UNPACKDIR ??= "${WORKDIR}"
S = "${UNPACKDIR}/${BP}"

inherit meson pkgconfig systemd useradd bash-completion features_check

REQUIRED_DISTRO_FEATURES = "systemd"
# The data store's parameters hold 64-bit pointers at fixed places.
COMPATIBLE_HOST = "(aarch64|x86_64|riscv64|powerpc64le).*-linux"

DEPENDS = "dbus jsoncpp openssl systemd"

# Without "embedded" the build links against the vendor's three libraries: have their recipe stage
# them into ${libdir}, and name it in VENDOR_PLATFORM.
VENDOR_PLATFORM ??= ""
PACKAGECONFIG ??= "embedded"
PACKAGECONFIG[embedded] = "-Dplatform=embedded,-Dplatform=vendor -Dvendor_libdir=${STAGING_LIBDIR},sqlite3,,,vendor"
PACKAGECONFIG[vendor] = ",,${VENDOR_PLATFORM},,,embedded"
# The binding of your image in place of the bundled one.
PACKAGECONFIG[sdbusplus] = "-Dsdbusplus=system,-Dsdbusplus=bundled,sdbusplus"

EXTRA_OEMESON = " \
    -Ddbus_dir=${datadir}/dbus-1 \
    -Dsystemd_unit_dir=${systemd_system_unitdir} \
    -Dsysusers_dir=${nonarch_libdir}/sysusers.d \
    -Dtmpfiles_dir=${nonarch_libdir}/tmpfiles.d \
"

SYSTEMD_SERVICE:${PN} = "tavrisk.service"

# The bus policy and the unit name these. sysusers.d says the same, for a root file system that can
# still be written when it boots.
USERADD_PACKAGES = "${PN}"
GROUPADD_PARAM:${PN} = "--system hmc; --system tavrisk"
USERADD_PARAM:${PN} = "--system --gid tavrisk --home-dir / --no-create-home --shell ${base_sbindir}/nologin tavrisk"

# The embedded libraries in a package of their own, so that a vendor's can take its place in an
# image. libkelp.so has no version in its name and is not for development alone.
PACKAGES =+ "${PN}-platform"
FILES:${PN}-platform = " \
    ${libdir}/libkelp.so \
    ${libdir}/libmosslink${SOLIBS} \
    ${libdir}/libwhelk${SOLIBS} \
    ${bindir}/zelctl \
    ${datadir}/tavrisk/zelctl.schema.json \
    ${libexecdir}/tavrisk-retention \
    ${systemd_system_unitdir}/tavrisk-metrics.service.d \
    ${nonarch_libdir}/tmpfiles.d/tavrisk-embedded.conf \
    /app \
"
FILES_SOLIBSDEV = "${libdir}/libmosslink.so ${libdir}/libwhelk.so"
INSANE_SKIP:${PN}-platform = "dev-so"

FILES:${PN} += " \
    ${systemd_system_unitdir}/run-hmc.mount \
    ${systemd_system_unitdir}/tavrisk-metrics.service \
    ${systemd_system_unitdir}/tavrisk-metrics.timer \
    ${datadir}/dbus-1 \
    ${datadir}/licenses \
    ${datadir}/tavrisk \
    ${nonarch_libdir}/sysusers.d \
    ${nonarch_libdir}/tmpfiles.d \
"
RDEPENDS:${PN} = "dbus"
