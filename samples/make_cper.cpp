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
    if (argc != 2) {
        std::fputs("usage: make_cper DIRECTORY\n", stderr);
        return 2;
    }
    for (const auto& sample : makeSamples()) {
        const auto path = std::filesystem::path{argv[1]} / sample.file;
        std::ofstream file{path, std::ios::binary};
        file << sample.bytes;
        if (!file.flush()) {
            std::fprintf(stderr, "make_cper: cannot write %s\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
