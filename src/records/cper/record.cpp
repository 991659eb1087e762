// SPDX-License-Identifier: Apache-2.0
#include "records/cper/record.hpp"

#include "records/cper/header.hpp"
#include "records/cper/interpret.hpp"
#include "records/cper/section_kind.hpp"

#include <algorithm>
#include <array>
#include <map>

namespace tavrisk::cper {
namespace {

constexpr std::array<std::uint8_t, 4> signature{'C', 'P', 'E', 'R'};
constexpr std::size_t leadingBytes = 4;
constexpr std::string_view noGuid{"00000000-0000-0000-0000-000000000000"};
constexpr std::uint64_t unknownSeverity = 4;

bool beginsWithSignature(Bytes bytes) {
    return bytes.size() >= signature.size() &&
           std::equal(signature.begin(), signature.end(), bytes.begin());
}

/** Where the record begins; at the first byte when nothing tells. */
std::size_t baseOf(Bytes bytes) {
    constexpr std::size_t signatureEnd = 6;
    constexpr std::uint64_t ones = 0xffffffff;
    if (!beginsWithSignature(bytes) &&
        (beginsWithSignature(cut(bytes, leadingBytes)) ||
         (numberAt(bytes, signatureEnd, 4) != ones &&
          numberAt(bytes, leadingBytes + signatureEnd, 4) == ones))) {
        return leadingBytes;
    }
    return 0;
}

void addMissing(const Findings& findings, std::vector<std::string>& problems) {
    if (findings.missing.empty()) {
        return;
    }
    std::string names;
    for (const auto name : findings.missing) {
        names += (names.empty() ? "" : ", ") + std::string{name};
    }
    problems.push_back("Not there: " + names + ".");
}

List listOf(std::string_view label, const std::vector<std::string>& texts) {
    List list;
    for (const auto& text : texts) {
        list.elements.push_back({label, text});
    }
    return list;
}

/** How bad a severity is: its numbers are not in that order. */
unsigned badness(std::uint64_t severity) {
    constexpr std::array<unsigned, unknownSeverity> order{3, 4, 2, 1};
    return severity < order.size() ? order.at(severity) : 0;
}

class Decoder {
public:
    explicit Decoder(Bytes bytes)
        : base_{baseOf(bytes)}, record_{cut(bytes, base_, mostBytes)}, limit_{record_.size()} {
        if (bytes.size() - base_ > mostBytes && bytes.size() > base_) {
            problem("Only the first " + std::to_string(mostBytes) + " bytes are read.");
        }
    }

    Node decode() {
        Object result;
        if (base_ != 0) {
            result.members.push_back({"Leading bytes", std::uint64_t{base_}});
        }
        result.members.push_back({"Header", readHeader()});
        result.members.push_back({"Sections", readSections()});
        result.members.push_back({"Problems", listOf("Problem", problems_)});
        return {"Record", std::move(result)};
    }

private:
    void problem(std::string sentence) { problems_.push_back(std::move(sentence)); }

    Object readHeader() {
        Object header;
        Findings findings;
        interpret(headerTable, record_, header.members, findings);
        for (auto& sentence : findings.problems) {
            problem(std::move(sentence));
        }
        if (record_.size() < headerTable.size) {
            problem("The record ends within its header, after " + std::to_string(record_.size()) +
                    " of " + std::to_string(headerTable.size) + " bytes.");
        }
        addMissing(findings, problems_);
        checkHeader();
        return header;
    }

    void checkHeader() {
        if (!beginsWithSignature(record_)) {
            problem("The record does not begin with the signature \"CPER\".");
        }
        if (numberAt(record_, 6, 4).value_or(0xffffffff) != 0xffffffff) {
            problem("The signature's end is not ff ff ff ff.");
        }
        count_ = numberOr0(record_, 10, 2);
        if (record_.size() >= headerTable.size && count_ == 0) {
            problem("The record has no sections.");
        }
        if (const auto length = numberAt(record_, 20, 4)) {
            checkLength(*length);
        }
    }

    void checkLength(std::uint64_t length) {
        const auto least = headerTable.size + descriptorTable.size * count_;
        const auto text = std::to_string(length);
        if (length < least) {
            problem("The record length of " + text + " bytes is less than header and " +
                    std::to_string(count_) + " descriptors take, " + std::to_string(least) + ".");
        } else if (length > record_.size()) {
            problem("The record is cut off: " + std::to_string(record_.size()) + " of its " + text +
                    " bytes are there.");
        } else {
            limit_ = static_cast<std::size_t>(length);
            if (length < record_.size()) {
                problem(std::to_string(record_.size() - limit_) +
                        " bytes follow the record's end.");
            }
        }
    }

    List readSections() {
        List sections;
        std::uint64_t worst = unknownSeverity;
        for (std::uint64_t index = 0; index < count_; ++index) {
            const auto begin = headerTable.size + descriptorTable.size * index;
            if (begin + descriptorTable.size > limit_ || overlaps(begin, descriptorTable.size)) {
                problem("Of " + std::to_string(count_) + " sections only " + std::to_string(index) +
                        " have a descriptor " +
                        (begin + descriptorTable.size > limit_ ? "within the record."
                                                               : "outside the bodies before."));
                break;
            }
            const auto descriptor = cut(record_, begin, descriptorTable.size);
            const auto severity = numberOr0(descriptor, 48, 4);
            worst = badness(severity) > badness(worst) ? severity : worst;
            sections.elements.push_back(
                {"Section", readSection(descriptor, index, begin + descriptorTable.size)});
        }
        const auto severity = numberOr0(record_, 12, 4);
        if (worst < unknownSeverity && severity != worst) {
            problem("The record's severity is not that of its worst section.");
        }
        return sections;
    }

    Object readSection(Bytes descriptor, std::uint64_t index, std::uint64_t endOfDescriptor) {
        Object section;
        Findings findings;
        Object described;
        interpret(descriptorTable, descriptor, described.members, findings);
        const auto* kind = nameTypes(described);
        section.members.push_back({"Descriptor", std::move(described)});

        const auto body = bodyOf(descriptor, endOfDescriptor, findings);
        if (!body.empty()) {
            readBody(kind, body, section, findings);
        }
        addMissing(findings, findings.problems);
        section.members.push_back({"Problems", listOf("Problem", findings.problems)});
        for (const auto& sentence : findings.problems) {
            problem("Section " + std::to_string(index + 1) + ": " + sentence);
        }
        return section;
    }

    /** Names the section type, and drops a FRU ID of zeros, which stands for none. */
    static const SectionKind* nameTypes(Object& descriptor) {
        const SectionKind* kind = nullptr;
        for (auto& member : descriptor.members) {
            if (member.label == "Section type") {
                auto& guid = std::get<Guid>(member.value);
                kind = findSectionKind(guid.text);
                guid.name = kind != nullptr ? kind->name : std::string_view{};
            }
        }
        std::erase_if(descriptor.members, [](const Node& member) {
            const auto* guid = as<Guid>(&member);
            return member.label == "FRU ID" && guid != nullptr && guid->text == noGuid;
        });
        return kind;
    }

    bool overlaps(std::uint64_t begin, std::uint64_t length) const {
        const auto next = bodies_.lower_bound(begin + length);
        return next != bodies_.begin() && std::prev(next)->second > begin;
    }

    /** What is there of a section's body. One that overlaps others is read as well, as long as no
     *  more is read that way than there is. */
    Bytes bodyOf(Bytes descriptor, std::uint64_t endOfDescriptor, Findings& findings) {
        const auto offset = numberOr0(descriptor, 0, 4);
        const auto length = numberOr0(descriptor, 4, 4);
        const auto body = cut(record_.first(limit_), offset, length);
        if (offset < endOfDescriptor) {
            findings.problems.push_back("Its body is said to begin at byte " +
                                        std::to_string(offset) +
                                        ", before the end of its descriptor.");
            return {};
        }
        if (body.size() < length) {
            findings.problems.push_back("Its body is cut off: " + std::to_string(body.size()) +
                                        " of " + std::to_string(length) +
                                        " bytes lie within the record.");
        }
        if (overlaps(offset, body.size())) {
            findings.problems.emplace_back("Its body overlaps that of another section.");
            readTwice_ += body.size();
            return readTwice_ <= record_.size() ? body : Bytes{};
        }
        if (!body.empty()) {
            bodies_[offset] = offset + body.size();
        }
        return body;
    }

    static void readBody(const SectionKind* kind, Bytes body, Object& section, Findings& findings) {
        if (kind == nullptr || kind->table == nullptr) {
            section.members.push_back({"Bytes", Raw{hexDigits(body)}});
            return;
        }
        const auto& table = *kind->table;
        Object decoded;
        interpret(table, body, decoded.members, findings);
        std::size_t end = table.size;
        if (kind->more != nullptr) {
            end = kind->more(body, decoded.members, findings);
        }
        section.members.push_back({"Body", std::move(decoded)});
        const bool isShort = body.size() < table.size && body.size() != table.shortSize;
        if (isShort) {
            findings.problems.push_back("Its body has " + std::to_string(body.size()) + " of " +
                                        std::to_string(table.size) + " bytes.");
        }
        if (isShort || !findings.problems.empty() || !findings.missing.empty()) {
            section.members.push_back({"Bytes", Raw{hexDigits(body)}});
        } else if (body.size() > end) {
            section.members.push_back({"Trailing bytes", Raw{hexDigits(cut(body, end))}});
        }
    }

    std::size_t base_;
    Bytes record_;
    /** Where the record ends, or the bytes do. */
    std::size_t limit_;
    std::uint64_t count_ = 0;
    std::vector<std::string> problems_;
    /** Bodies read, without overlaps: begin and end. */
    std::map<std::uint64_t, std::uint64_t> bodies_;
    std::size_t readTwice_ = 0;
};

} // namespace

Node decode(Bytes bytes) {
    return Decoder{bytes}.decode();
}

} // namespace tavrisk::cper
