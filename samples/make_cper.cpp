// SPDX-License-Identifier: Apache-2.0
// Writes the sample CPERs, laid out as UEFI describes them (appendix "Common Platform Error
// Record"), into a directory.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

/** Bytes in the making; numbers are little-endian. */
class Bytes {
public:
    Bytes& u8(std::uint8_t value) { return number(value, 1); }
    Bytes& u16(std::uint16_t value) { return number(value, 2); }
    Bytes& u24(std::uint32_t value) { return number(value, 3); }
    Bytes& u32(std::uint32_t value) { return number(value, 4); }
    Bytes& u64(std::uint64_t value) { return number(value, 8); }
    Bytes& zeros(std::size_t count) { return append(std::string(count, '\0')); }
    Bytes& append(std::string_view bytes) {
        bytes_.append(bytes);
        return *this;
    }

    /** Text in a field of fixed width, filled up with zeros. */
    Bytes& text(std::string text, std::size_t width) {
        text.resize(width);
        return append(text);
    }

    /** A GUID in its written form: the first three fields are numbers, the rest are bytes. */
    Bytes& guid(std::string_view written) {
        const auto digits = [&](std::size_t at, std::size_t count) {
            return std::stoull(std::string{written.substr(at, count)}, nullptr, 16);
        };
        number(digits(0, 8), 4).number(digits(9, 4), 2).number(digits(14, 4), 2);
        for (const std::size_t at : {19, 21, 24, 26, 28, 30, 32, 34}) {
            number(digits(at, 2), 1);
        }
        return *this;
    }

    [[nodiscard]] const std::string& str() const { return bytes_; }

private:
    Bytes& number(std::uint64_t value, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            bytes_ += static_cast<char>(value >> (8 * i) & 0xff);
        }
        return *this;
    }

    std::string bytes_;
};

enum Severity : std::uint32_t { recoverable = 0, fatal = 1, corrected = 2, informational = 3 };

constexpr auto memoryError = "a5bc1114-6f64-4ede-b863-3e83ed7c83b1";
constexpr auto pcieError = "d995e954-bbc1-430f-ad91-b44dcb3c6f35";
constexpr auto armProcessorError = "e19e3d16-bc11-11e4-9caa-c2051d5d46b0";
constexpr auto defaultType = "6d5244f2-2712-11ec-bea7-cb3fdb95c786";

constexpr auto correctedMachineCheck = "2dce8bb1-bdd7-450e-b9ad-9cf4ebd4f890";
constexpr auto synchronousExternalAbort = "9a78788a-bbe8-11e4-809e-67611e5d46b0";
constexpr auto pcie = "cf93c01f-1a16-4dfc-b8bc-9c4daf67c104";
constexpr auto boot = "3d61a466-ab40-409a-a698-f362d464b38f";

struct Section {
    std::string_view type;
    Severity severity;
    std::string_view unit; // the field-replaceable unit's text
    std::string body;
};

/** A corrected single-bit error. */
std::string memoryErrorBody() {
    Bytes body;
    body.u64(0x000000000003c7ff);             // validation: status to bit, type, rank, handles
    body.u64(0x0000000000040400);             // error status: storage error in DRAM, data
    body.u64(0x00000027f4a1c0c0);             // physical address
    body.u64(0xffffffffffffffc0);             // its mask: a cache line
    body.u16(0).u16(1).u16(4);                // node, card, module
    body.u16(3).u16(9).u16(0x4d21).u16(0x88); // bank, device, row, column
    body.u16(17);                             // bit position
    body.u64(0).u64(0).u64(0);                // requestor, responder and target
    body.u8(2);                               // single-bit ECC
    body.u8(0).u16(1);                        // extended, rank
    body.u16(0x0011).u16(0x0014);             // SMBIOS handles of card and module
    return body.str();
}

/** A root port that saw an uncorrectable but non-fatal completion timeout. */
std::string pcieErrorBody() {
    Bytes body;
    body.u64(0x000000000000008f);                // validation: type, version, command, ID, AER
    body.u32(4);                                 // root port
    body.u32(0x00000401);                        // version 4.1
    body.u16(0x0547).u16(0x0010);                // command, status
    body.u32(0);                                 // reserved
    body.u16(0x1b36).u16(0x000c).u24(0x060400);  // vendor, device, class code: PCI bridge
    body.u8(0).u8(2).u16(0);                     // function, device, segment
    body.u8(0).u8(1).u16(3 << 3).u8(0);          // buses, slot, reserved
    body.u64(0);                                 // serial number
    body.u16(0).u16(0);                          // bridge status and control
    body.zeros(60);                              // PCI Express capability structure
    body.u32(0x00020001);                        // AER capability header
    body.u32(0x00004000).u32(0).u32(0x00462030); // uncorrectable: status, mask, severity
    body.u32(0x00002000).u32(0x0000e000);        // correctable: status, mask
    body.u32(0x000000ae).zeros(16);              // control, header log
    body.zeros(96 - 44);                         // the rest of the AER structure
    return body.str();
}

/** A cache error on one core. */
std::string armProcessorErrorBody() {
    Bytes body;
    body.u32(0x00000007);                // validation: MPIDR, affinity, running state
    body.u16(1).u16(0);                  // error and context information structures
    body.u32(72);                        // section length
    body.u8(0).zeros(3);                 // error affinity level
    body.u64(0x0000000081050300);        // MPIDR
    body.u64(0x00000000410fd4f0);        // MIDR
    body.u32(1).u32(0);                  // running, PSCI state
    body.u8(0).u8(32).u16(0x0017);       // error information: version, length, validation
    body.u8(0).u16(0).u8(0x01);          // cache error, single, first error captured
    body.u64(0x00000000008d0017);        // read of the level 2 data cache, not corrected
    body.u64(0).u64(0x00000011a40be780); // virtual and physical fault address
    return body.str();
}

/** Of the default type only the GUID is known: register numbers with their values. */
std::string defaultTypeBody() {
    Bytes body;
    body.text("MEMCTRL-FAULT", 16).u16(2).u16(1).u32(0);
    body.u64(0x0000000004070010).u64(0x00000000e6000411);
    body.u64(0x0000000004070018).u64(0x0000000000000001);
    return body.str();
}

struct Record {
    std::string_view notification;
    Severity severity;
    std::array<std::uint8_t, 8> timestamp; // seconds to century, BCD
    std::vector<Section> sections;
};

constexpr std::size_t headerSize = 128;
constexpr std::size_t descriptorSize = 72;

void appendHeader(Bytes& bytes, const Record& record, std::size_t recordLength) {
    bytes.append("CPER").u16(0x0101).u32(0xffffffff); // signature, revision, signature end
    bytes.u16(static_cast<std::uint16_t>(record.sections.size()));
    bytes.u32(record.severity);
    bytes.u32(0x00000003); // validation: platform, timestamp
    bytes.u32(static_cast<std::uint32_t>(recordLength));
    for (const auto byte : record.timestamp) {
        bytes.u8(byte);
    }
    bytes.guid("5f0e7b52-6c1d-4b8e-9a37-21c4de08f6b1"); // platform
    bytes.zeros(16);                                    // partition
    bytes.guid("c2f4a6d0-8b35-4e19-b7c1-7d90e25a4f3c"); // creator
    bytes.guid(record.notification);
    bytes.u64(0x0000000000000412);   // record
    bytes.u32(0).zeros(8).zeros(12); // flags, persistence information, reserved
}

void appendDescriptor(Bytes& bytes, const Section& section, std::size_t offset) {
    bytes.u32(static_cast<std::uint32_t>(offset));
    bytes.u32(static_cast<std::uint32_t>(section.body.size()));
    bytes.u16(0x0100).u8(0x02).u8(0).u32(1); // revision, validation: unit text, primary section
    bytes.guid(section.type).zeros(16).u32(section.severity).text(std::string{section.unit}, 20);
}

std::string toBytes(const Record& record) {
    auto length = headerSize + descriptorSize * record.sections.size();
    auto offset = length;
    for (const auto& section : record.sections) {
        length += section.body.size();
    }

    Bytes bytes;
    appendHeader(bytes, record, length);
    for (const auto& section : record.sections) {
        appendDescriptor(bytes, section, offset);
        offset += section.body.size();
    }
    for (const auto& section : record.sections) {
        bytes.append(section.body);
    }
    return bytes.str();
}

/** As some senders hand a record over: its length in front of it. */
std::string withFourBytesAhead(const std::string& record) {
    return Bytes{}.u32(static_cast<std::uint32_t>(record.size())).append(record).str();
}

struct Sample {
    std::string_view file;
    std::string bytes;
};

/** `count` bytes that tell their places: 1, 2, 3 and so on. */
Bytes& counting(Bytes& bytes, unsigned count) {
    for (unsigned i = 1; i <= count; ++i) {
        bytes.u8(static_cast<std::uint8_t>(i));
    }
    return bytes;
}

/** A body that begins with validation bits, the rest of it telling its places. */
std::string countingBody(std::uint64_t validation, unsigned size) {
    Bytes body;
    body.u64(validation);
    return counting(body, size - 8).str();
}

/** CCIX and CXL components: a length in front of the validation bits. */
std::string lengthBody(std::uint64_t validation, unsigned size) {
    Bytes body;
    body.u32(size).u64(validation);
    return counting(body, size - 12).str();
}

std::string countingBytes(unsigned size) {
    Bytes body;
    return counting(body, size).str();
}

std::string x86Body() {
    Bytes body;
    body.u64(0x3 | 4U << 2U | 3U << 8U); // APIC ID, CPUID; four errors, three contexts
    counting(body.u64(0x12), 48);
    const auto error = [&body](std::string_view type, std::uint64_t check) {
        body.guid(type).u64(0x1f).u64(check).u64(0x11).u64(0x22).u64(0x33).u64(0xffff8000);
    };
    error("a55701f5-e3ef-43de-ac72-249b573fad2c", 0x1c9d00ff); // cache: eviction, level 2
    error("fc06b535-5e1f-4562-9f25-0a3b9adb63c3", 0x0c9500ff);
    error("1cf3f8b3-c5b1-49a2-aa59-5eef92ffa63c", 0x54d5507ff);
    error("48ab7f57-dc34-4f6c-a7d3-b0b5b0a74314", 0x00fa003f);
    body.u16(1).u16(16).u32(0x400).u64(0).u64(0x5).u64(0xbe00000000800400);
    counting(body.u16(2).u16(92).u32(0).u64(0), 92).zeros(4); // filled up to 16 bytes
    counting(body.u16(3).u16(244).u32(0).u64(0), 244);
    return body.str();
}

std::string armBody() {
    Bytes body;
    body.u32(0xf).u16(2).u16(3).u32(40 + 2 * 32 + 8 + 64 + 8 + 80 + 8 + 20 + 6);
    body.u8(1).zeros(3).u64(0x81000100).u64(0x410fd4f0).u32(0).u32(2);
    body.u8(0).u8(32).u16(0x1f).u8(8).u16(3).u8(0x9).u64(0x0000081ec4c90fff); // bus
    body.u64(0xffff000012345678).u64(0x8812345678);
    body.u8(0).u8(32).u16(0x04).u8(4).u16(0).u8(0).u64(0x05210007).u64(0).u64(0); // TLB
    counting(body.u16(0).u16(0).u32(64), 64);
    counting(body.u16(0).u16(7).u32(80), 80);
    counting(body.u16(0).u16(8).u32(20), 20);
    return body.append("vendor").str();
}

std::string cxlProtocolBody() {
    Bytes body;
    body.u64(0x7f).u8(2).zeros(7);
    body.u8(1).u8(2).u8(3).u16(4).zeros(3); // function, device, bus, segment
    body.u16(0x1af4).u16(0x0d93).u16(0x8086).u16(0x0001).u16(0x0502).u16(5 << 3).zeros(4);
    body.u64(0x0123456789abcdef);
    counting(body, 60);
    body.u16(12).u16(88).u32(0);
    counting(body, 12);
    body.u32(0x00000408).u32(0).u32(0x1cfff).u32(0x2).u32(0).u32(3);
    return counting(body, 64).str();
}

std::string poisonBody() {
    Bytes body;
    body.u32(0x2a).u64(0x3f).u32(0).u64(0x00a20f12).u32(0).u64(0x1122334455667788).u32(2);
    for (const std::uint64_t address : {0x1000, 0x2000}) {
        body.u64(1700000000).u32(0).u64(0x9600050f00).u32(0).u64(address);
    }
    return body.str();
}

struct Kind {
    std::string_view file;
    std::string_view type;
    std::string body;
};

std::vector<Kind> everyKind() {
    return {
        {"processor-generic.cper", "9876ccad-47b4-4bdb-b65e-16f193c4f3db",
         Bytes{}
             .u64(0x1fff)
             .append(std::string{"\0\2\3\1\x0b\2\0\0", 8})
             .u64(0x000906ea)
             .text("A processor", 128)
             .u64(4)
             .u64(0x1000)
             .u64(1)
             .u64(2)
             .u64(0x400000)
             .str()},
        {"processor-x86.cper", "dc3ea0b0-a144-4797-b95b-53fa242b6e1d", x86Body()},
        {"processor-arm.cper", armProcessorError, armBody()},
        {"memory.cper", memoryError, memoryErrorBody()},
        {"memory-extended-row.cper", memoryError, countingBody(0x3cfebf, 80)},
        {"memory-73-bytes.cper", memoryError, countingBody(0x7fff, 73)},
        {"memory-2.cper", "61ec04fc-48e6-d813-25c9-8daa44750b12", countingBody(0x3fffbf, 96)},
        {"pcie.cper", pcieError, countingBody(0xff, 208)},
        {"pcie-register-block.cper", pcieError, countingBody(0x301, 208)},
        {"firmware-reference.cper", "81212a96-09ed-4996-9471-8d729c8e69ed",
         Bytes{}.u8(2).u8(2).zeros(14).guid(defaultType).append("crash log").str()},
        {"pci-bus.cper", "c5753963-3b84-4095-bf78-eddad3f9c9dd", countingBody(0x1ff, 72)},
        {"pci-component.cper", "eb5e4685-ca66-4769-b6a2-26068b001326",
         countingBody(0x1f, 32) + Bytes{}.u32(1).u32(1).str() + countingBytes(32)},
        {"dmar-generic.cper", "5b51fef7-c79d-4434-8f1b-aa62de3e2c64", countingBytes(32)},
        {"dmar-vtd.cper", "71761d37-32b2-45cd-a7d0-b0fedd93e8cf", countingBytes(144)},
        {"dmar-iommu.cper", "036f84e1-7f37-428c-a79e-575fdfaa84ec", countingBytes(144)},
        {"ccix.cper", "91335ef6-ebfb-4478-a6a6-88b728cf75d7", lengthBody(0x7, 36)},
        {"cxl-protocol.cper", "80b9efb4-52b5-4de3-a777-68784b771048", cxlProtocolBody()},
        {"cxl-general-media.cper", "fbcd0a77-c260-417f-85a9-088b1621eba6", lengthBody(0x7, 144)},
        {"cxl-dram.cper", "601dcbb3-9c06-4eab-b8af-4e9bfb5c9624", lengthBody(0x7, 144)},
        {"cxl-memory-module.cper", "fe927475-dd59-4339-a586-79bab113b774", lengthBody(0x7, 144)},
        {"cxl-physical-switch.cper", "77cf9271-9c02-470b-9fe4-bc7b75f2da97", lengthBody(0x7, 144)},
        {"cxl-virtual-switch.cper", "40d26425-3396-4c4d-a5da-3d47263af425", lengthBody(0x7, 144)},
        {"cxl-mld-port.cper", "8dc44363-0c96-4710-b7bf-04bb99534c3f", lengthBody(0x7, 144)},
        {"cxl-memory-sparing.cper", "e71f3a40-2d29-4092-8a39-4d1c966c7c65", lengthBody(0x7, 144)},
        {"fru-memory-poison.cper", "5e4706c1-5356-48c6-930b-52f2120a4458", poisonBody()},
        {"unknown.cper", defaultType, defaultTypeBody()},
    };
}

constexpr std::array<std::uint8_t, 8> someTime{0x30, 0x25, 0x12, 0x01, 0x15, 0x11, 0x26, 0x20};

/** A record of each kind of section, and some that are broken. */
std::vector<Sample> makeEveryKind() {
    std::vector<Sample> samples;
    for (const auto& kind : everyKind()) {
        samples.push_back({kind.file, toBytes({correctedMachineCheck,
                                               recoverable,
                                               someTime,
                                               {{kind.type, recoverable, "Board 1", kind.body}}})});
    }
    const Section first{memoryError, corrected, "DIMM A4", memoryErrorBody()};
    const Section second{pcieError, recoverable, "Slot 3", pcieErrorBody()};
    auto two = toBytes({correctedMachineCheck, recoverable, someTime, {first, second}});
    samples.push_back({"two-sections.cper", two});
    samples.push_back({"broken-cut-off.cper", two.substr(0, two.size() - 120)});
    samples.push_back({"broken-two-descriptors-missing.cper", two.substr(0, 150)});
    two[10] = 9;            // sections
    two[25] = 0x71;         // minutes
    two[128 + 72 + 4] = 10; // the second section's length
    samples.push_back({"broken-lies.cper", two});
    return samples;
}

std::vector<Sample> makeSamples() {
    const Section memory{memoryError, corrected, "DIMM A4", memoryErrorBody()};
    const Section processor{armProcessorError, recoverable, "CPU 0 core 3",
                            armProcessorErrorBody()};
    const auto memoryRecord = toBytes({correctedMachineCheck,
                                       corrected,
                                       {0x30, 0x25, 0x12, 0x01, 0x15, 0x11, 0x26, 0x20},
                                       {memory}});
    const auto defaultRecord = toBytes({defaultType,
                                        fatal,
                                        {0x07, 0x59, 0x23, 0x01, 0x31, 0x12, 0x25, 0x20},
                                        {{defaultType, fatal, "HMC 0", defaultTypeBody()}}});
    const auto pcieRecord = toBytes({pcie,
                                     recoverable,
                                     {0x41, 0x08, 0x03, 0x01, 0x02, 0x07, 0x26, 0x20},
                                     {{pcieError, recoverable, "Slot 3", pcieErrorBody()}}});
    return {
        {"memory-error.cper", memoryRecord},
        {"memory-error-four-bytes-ahead.cper", withFourBytesAhead(memoryRecord)},
        {"pcie-error.cper", pcieRecord},
        {"arm-processor-error.cper", toBytes({synchronousExternalAbort,
                                              recoverable,
                                              {0x12, 0x44, 0x19, 0x01, 0x28, 0x02, 0x26, 0x20},
                                              {processor}})},
        {"processor-and-memory-error.cper",
         toBytes({synchronousExternalAbort,
                  recoverable,
                  {0x13, 0x44, 0x19, 0x01, 0x28, 0x02, 0x26, 0x20},
                  {processor, memory}})},
        {"default-type.cper", defaultRecord},
        {"default-type-four-bytes-ahead.cper", withFourBytesAhead(defaultRecord)},
        {"no-sections.cper",
         toBytes({boot, informational, {0x00, 0x30, 0x06, 0x00, 0x01, 0x01, 0x26, 0x20}, {}})},
        // Ends within the notification type.
        {"truncated.cper", pcieRecord.substr(0, 88)},
    };
}

} // namespace

int main(int argc, char** argv) {
    const bool everyKind = argc == 3 && std::string_view{argv[1]} == "--every-kind";
    if (argc != (everyKind ? 3 : 2)) {
        std::fputs("usage: make_cper [--every-kind] DIRECTORY\n", stderr);
        return 2;
    }
    for (const auto& sample : everyKind ? makeEveryKind() : makeSamples()) {
        const auto path = std::filesystem::path{argv[argc - 1]} / sample.file;
        std::ofstream file{path, std::ios::binary};
        file << sample.bytes;
        if (!file.flush()) {
            std::fprintf(stderr, "make_cper: cannot write %s\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
