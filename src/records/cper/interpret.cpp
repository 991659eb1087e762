// SPDX-License-Identifier: Apache-2.0
#include "records/cper/interpret.hpp"

#include "text/hex.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace tavrisk::cper {
namespace {

constexpr std::size_t guidSize = 16;

void appendHex(std::string& text, std::uint8_t byte) {
    text.append(text::hexPair(byte).data(), 2);
}

bool holds(const When& when, Bytes bytes, std::uint64_t valid) {
    if (when.width == 0) {
        return true;
    }
    const auto number = numberAt(bytes, when.offset, when.width);
    const bool known = number && (when.valid == always || isSet(valid, when.valid));
    const auto value = known ? slice(*number, when.low, when.count) : ~std::uint64_t{0};
    return isSet(when.holds, static_cast<unsigned>(std::min<std::uint64_t>(value, 31)));
}

/** Two BCD digits; -1 when they are none. */
int fromBcd(std::uint8_t byte) {
    return byte >> 4 > 9 || (byte & 0xf) > 9 ? -1 : 10 * (byte >> 4) + (byte & 0xf);
}

std::string dateText(int year, unsigned month, unsigned day, int hours, int minutes, int seconds) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d", year, month, day,
                  hours, minutes, seconds);
    return text.data();
}

Time readTimestamp(Bytes bytes, Findings& findings) {
    constexpr std::size_t flags = 3;
    std::array<int, 8> part{};
    std::transform(bytes.begin(), bytes.end(), part.begin(), fromBcd);
    part.at(flags) = 0;
    const auto [seconds, minutes, hours, unused, day, month, year, century] = part;
    const std::chrono::year_month_day date{std::chrono::year{100 * century + year},
                                           std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    const bool precise = isSet(bytes[flags], 0);
    if (std::find(part.begin(), part.end(), -1) != part.end() || !date.ok() || seconds > 59 ||
        minutes > 59 || hours > 23) {
        findings.problems.push_back("The timestamp is none: its bytes are " + hexDigits(bytes) +
                                    ".");
        return {"invalid", precise};
    }
    return {dateText(100 * century + year, static_cast<unsigned>(month), static_cast<unsigned>(day),
                     hours, minutes, seconds),
            precise};
}

std::string nanosecondsText(std::uint64_t value) {
    using namespace std::chrono;
    constexpr std::uint64_t perSecond = 1'000'000'000;
    const sys_seconds time{seconds{value / perSecond}};
    const auto today = floor<days>(time);
    const year_month_day date{today};
    const hh_mm_ss clock{time - today};
    auto text = dateText(static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                         static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                         static_cast<int>(clock.minutes().count()),
                         static_cast<int>(clock.seconds().count()));
    std::array<char, 16> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%09uZ",
                  static_cast<unsigned>(value % perSecond));
    return text + fraction.data();
}

std::int64_t signExtended(std::uint64_t value, unsigned bits) {
    const auto sign = std::uint64_t{1} << (bits - 1);
    return static_cast<std::int64_t>((value ^ sign) - sign);
}

Guid readGuid(Bytes bytes, KnownGuids known) {
    auto text = guidText(bytes.data());
    const auto* const end = known.data() + known.size();
    const auto* const row = std::find_if(
        known.data(), end, [&text](const KnownGuid& candidate) { return candidate.guid == text; });
    return row != end ? Guid{std::move(text), row->name, row->shortName}
                      : Guid{std::move(text), {}, {}};
}

/** BCD is digits as hexadecimal is. */
Choice readRevision(Bytes bytes) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%x.%x", unsigned{bytes[1]}, unsigned{bytes[0]});
    return {numberOr0(bytes, 0, 2), text.data(), {}};
}

void addBits(std::uint64_t value, const Field& field, Register& result) {
    if (field.valid != always && !isSet(value, field.valid)) {
        return;
    }
    const auto part = slice(value, field.low, field.count);
    const bool isFlag = field.count == 1 && field.names.empty();
    if (isFlag && part != 0) {
        result.flags.push_back(field.name);
    }
    if (isFlag && field.valid == always) {
        return;
    }
    if (!field.names.empty()) {
        result.fields.push_back({field.name, choose(part, show::oneOf(field.names))});
    } else if (field.kind == Kind::number) {
        result.fields.push_back({field.name, part});
    } else if (field.kind == Kind::hex) {
        result.fields.push_back({field.name, hexText(part, field.count)});
    } else {
        result.fields.push_back(
            {field.name, hexText(part << field.low, unsigned{field.low} + field.count)});
    }
}

/** A field of 8 bytes at most, or a slice of one. */
Node::Value readNumber(const Row& row, Bytes bytes) {
    const auto& show = row.show;
    const unsigned bits = show.count != 0 ? show.count : 8 * bytes.size();
    const auto value = slice(numberOr0(bytes, 0, bytes.size()), show.low, bits);
    switch (show.kind) {
    case Kind::hex:
        return hexText(value, bits);
    case Kind::signedNumber:
        return signExtended(value, bits);
    case Kind::choice:
    case Kind::bitChoice:
        return choose(value, show);
    case Kind::bits:
        return readBits(value, bits, show.fields);
    default:
        return value;
    }
}

Node::Value readField(const Row& row, Bytes bytes, Findings& findings) {
    switch (row.show.kind) {
    case Kind::text:
        return plainText(bytes);
    case Kind::guid:
        return readGuid(bytes, row.show.guids);
    case Kind::bytes:
        return Raw{hexDigits(bytes)};
    case Kind::revision:
        return readRevision(bytes);
    case Kind::timestamp:
        return readTimestamp(bytes, findings);
    case Kind::hex:
        return bytes.size() > sizeof(std::uint64_t) ? Node::Value{hexText(bytes)}
                                                    : readNumber(row, bytes);
    default:
        return readNumber(row, bytes);
    }
}

/** Nanoseconds of 0 stand for no time. */
void addNanoseconds(const Row& row, std::uint64_t value, Nodes& nodes) {
    if (value != 0) {
        nodes.push_back({row.label, nanosecondsText(value)});
    }
    nodes.push_back({"Timestamp nanoseconds", value});
}

void addRow(const Row& row, Bytes bytes, Nodes& nodes, Findings& findings, std::uint64_t valid) {
    const auto field = cut(bytes, row.offset, row.width);
    if (row.show.kind == Kind::part) {
        Object object;
        interpret(*row.show.table, field, object.members, findings, valid);
        if (!object.members.empty()) {
            nodes.push_back({row.label, std::move(object)});
        }
    } else if (field.size() < row.width) {
        findings.missing.push_back(row.label);
    } else if (row.show.kind == Kind::words) {
        nodes.push_back(wordList(row.label, field, row.show.unit));
    } else if (row.show.kind == Kind::nanoseconds) {
        addNanoseconds(row, numberOr0(field, 0, row.width), nodes);
    } else {
        nodes.push_back({row.label, readField(row, field, findings)});
    }
}

/** The validation bits with the labels of the fields that go by them. */
Register describeValid(const Table& table, std::uint64_t value) {
    Register result{hexText(value, 8U * table.validWidth), true, {}, {}};
    for (unsigned bit = 0; bit < 8U * table.validWidth; ++bit) {
        if (!isSet(value, bit)) {
            continue;
        }
        for (const auto& row : table.rows) {
            if (row.valid == static_cast<int>(bit) &&
                std::find(result.flags.begin(), result.flags.end(), row.label) ==
                    result.flags.end()) {
                result.flags.push_back(row.label);
            }
        }
        for (const auto& name : table.moreValid) {
            if (name.value == bit) {
                result.flags.push_back(name.name);
            }
        }
    }
    return result;
}

} // namespace

Bytes cut(Bytes bytes, std::uint64_t offset, std::uint64_t length) {
    if (offset >= bytes.size()) {
        return {};
    }
    const auto rest = bytes.subspan(static_cast<std::size_t>(offset));
    return rest.first(static_cast<std::size_t>(std::min<std::uint64_t>(length, rest.size())));
}

std::optional<std::uint64_t> numberAt(Bytes bytes, std::size_t offset, std::size_t width) {
    const auto field = cut(bytes, offset, width);
    if (field.size() < width || width > sizeof(std::uint64_t)) {
        return {};
    }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
        value |= std::uint64_t{field[i]} << (8 * i);
    }
    return value;
}

std::string hexText(std::uint64_t value, unsigned bits) {
    std::string text{"0x"};
    for (unsigned left = (bits + 3) / 4; left-- > 0;) {
        text += text::hexPair((value >> (4 * left)) & 0xf)[1];
    }
    return text;
}

std::string hexDigits(Bytes bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const auto byte : bytes) {
        appendHex(text, byte);
    }
    return text;
}

std::string hexText(Bytes bytes) {
    std::string text{"0x"};
    for (auto left = bytes.size(); left-- > 0;) {
        appendHex(text, bytes[left]);
    }
    return text;
}

std::string guidText(const std::uint8_t* bytes) {
    // The first three groups are numbers and stand with their last byte first.
    constexpr std::array<std::uint8_t, guidSize> order{3, 2, 1,  0,  5,  4,  7,  6,
                                                       8, 9, 10, 11, 12, 13, 14, 15};
    std::string text;
    for (std::size_t i = 0; i < guidSize; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        appendHex(text, bytes[order.at(i)]);
    }
    return text;
}

std::string plainText(Bytes bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), 0);
    std::string text;
    for (auto byte = bytes.begin(); byte != end; ++byte) {
        if (*byte >= 0x20 && *byte < 0x7f) {
            text += static_cast<char>(*byte);
        } else {
            text += "\\x";
            appendHex(text, *byte);
        }
    }
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

Choice choose(std::uint64_t value, const Show& show) {
    const auto row = std::find_if(show.names.begin(), show.names.end(),
                                  [value](const Name& name) { return name.value == value; });
    if (row != show.names.end()) {
        return {value, std::string{row->name}, row->meaning};
    }
    std::string names;
    auto rest = value;
    if (show.kind == Kind::bitChoice) {
        for (const auto& name : show.names) {
            if ((value & name.value) != 0) {
                names += (names.empty() ? "" : ", ") + std::string{name.name};
                rest &= ~name.value;
            }
        }
    }
    return {value, names.empty() || rest != 0 ? std::string{show.otherwise} : names, {}};
}

Register readBits(std::uint64_t value, unsigned bits, Fields fields) {
    Register result{hexText(value, bits), false, {}, {}};
    for (const auto& field : fields) {
        result.hasFlags |= field.count == 1 && field.names.empty();
        addBits(value, field, result);
    }
    return result;
}

Node wordList(std::string_view label, Bytes bytes, std::size_t unit) {
    List list;
    for (std::size_t at = 0; at + unit <= bytes.size(); at += unit) {
        list.elements.push_back({"Word", hexText(bytes.subspan(at, unit))});
    }
    return {label, std::move(list)};
}

void interpret(const Table& table, Bytes bytes, Nodes& nodes, Findings& findings,
               std::uint64_t valid) {
    nodes.reserve(nodes.size() + table.rows.size() + 1);
    if (table.validWidth != 0) {
        const auto own = numberAt(bytes, table.validOffset, table.validWidth);
        if (own) {
            nodes.push_back({table.validLabel, describeValid(table, *own)});
        } else {
            findings.missing.push_back(table.validLabel);
        }
        valid = own.value_or(0);
    }
    for (const auto& row : table.rows) {
        if ((row.valid == always || isSet(valid, static_cast<unsigned>(row.valid))) &&
            holds(row.when, bytes, valid)) {
            addRow(row, bytes, nodes, findings, valid);
        }
    }
}

} // namespace tavrisk::cper
