// SPDX-License-Identifier: Apache-2.0
#include "zel/spill.hpp"

#include "text/utc_time.hpp"
#include "zel/room.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <random>
#include <string_view>
#include <utility>

namespace tavrisk::zel {
namespace {

constexpr off_t recordsBegin = 4096;
constexpr off_t fullSize = off_t{4} << 20;
constexpr off_t bytesInPiece = off_t{128} << 10;

/** FNV-1a, of 64 bits. */
std::uint64_t checksum(std::string_view bytes, std::uint64_t sum = 0xcbf29ce484222325) {
    for (const char c : bytes) {
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    return sum;
}

template <typename Value>
std::string_view bytesOf(const Value& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/** Numbers as they are in memory, texts behind their length. */
std::string pack(Entry entry) {
    entry.bootId = entry.bootId.empty() ? bootId() : entry.bootId;
    std::string bytes;
    bytes += bytesOf(entry.sequence);
    bytes += bytesOf(entry.sinceBoot);
    bytes += bytesOf(entry.severity);
    for (const auto* text : {&entry.time, &entry.messageId, &entry.arguments, &entry.bootId}) {
        bytes += bytesOf(static_cast<std::uint32_t>(text->size()));
        bytes += *text;
    }
    return bytes;
}

template <typename Value>
bool take(std::string_view& bytes, Value& value) {
    if (bytes.size() < sizeof value) {
        return false;
    }
    std::memcpy(&value, bytes.data(), sizeof value);
    bytes.remove_prefix(sizeof value);
    return true;
}

std::optional<Entry> unpack(std::string_view bytes) {
    Entry entry;
    bool whole =
        take(bytes, entry.sequence) && take(bytes, entry.sinceBoot) && take(bytes, entry.severity);
    for (auto* text : {&entry.time, &entry.messageId, &entry.arguments, &entry.bootId}) {
        std::uint32_t size = 0;
        whole = whole && take(bytes, size) && size <= bytes.size();
        *text = bytes.substr(0, whole ? size : 0);
        bytes.remove_prefix(text->size());
    }
    return whole ? std::optional{entry} : std::nullopt;
}

/** Keeps other processes off the file. */
class Lock {
public:
    explicit Lock(int file) : file_{file} { flock(file, LOCK_EX); }
    ~Lock() { flock(file_, LOCK_UN); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    int file_;
};

/** What a database remembers: of which generation it has the records up to where, and of which
 * header it was told the losses. */
struct Mark {
    static constexpr unsigned bitsOfAt = 23;
    static constexpr unsigned bitsOfLosses = 9;

    std::uint64_t generation;
    std::uint64_t losses;
    off_t at;

    static std::uint64_t lossesOf(std::uint64_t serial) {
        return serial % ((1U << bitsOfLosses) - 1) + 1; // 0: of none
    }
    static Mark from(std::int64_t packed) {
        const auto value = static_cast<std::uint64_t>(packed);
        return {value >> (bitsOfLosses + bitsOfAt), (value >> bitsOfAt) % (1U << bitsOfLosses),
                static_cast<off_t>(value % (1U << bitsOfAt))};
    }
    [[nodiscard]] std::int64_t packed() const {
        return static_cast<std::int64_t>((((generation << bitsOfLosses) | losses) << bitsOfAt) |
                                         static_cast<std::uint64_t>(at));
    }
};
static_assert(fullSize < 1 << Mark::bitsOfAt);

} // namespace

struct Spill::Header {
    struct Loss {
        std::array<char, 16> cause; // ends with a NUL
        std::int64_t events;
    };
    std::array<char, 8> format{'z', 'e', 'l', 's', 'p', 'i', 'l', '1'};
    std::uint64_t serial = 0;
    std::uint64_t generation = 0; // 0: there was none yet
    std::array<Loss, 16> losses{};
    std::uint64_t checksum = 0;

    [[nodiscard]] std::uint64_t rightChecksum() const {
        return zel::checksum(bytesOf(*this).substr(0, offsetof(Header, checksum)));
    }
    [[nodiscard]] bool isWhole() const {
        return format == Header{}.format && checksum == rightChecksum();
    }
    [[nodiscard]] bool hasLosses() const { return losses[0].events != 0; }
};

struct Spill::Record {
    std::uint64_t checksum;
    std::uint32_t size;
    std::uint32_t generation;

    [[nodiscard]] std::uint64_t rightChecksum(std::string_view payload) const {
        return zel::checksum(payload, zel::checksum(bytesOf(*this).substr(sizeof checksum)));
    }
};

Spill::~Spill() {
    if (file_ >= 0) {
        close(file_);
    }
}

/** Opens the file unless it is open under its name. */
bool Spill::open() {
    struct stat here {};
    struct stat named {};
    if (file_ >= 0 && fstat(file_, &here) == 0 && stat(path_.c_str(), &named) == 0 &&
        here.st_ino == named.st_ino && here.st_dev == named.st_dev) {
        return true;
    }
    if (file_ >= 0) {
        close(file_);
    }
    generation_ = 0;
    file_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (!takeRoom(file_, fullSize) && size() == 0) { // where no room can be taken
        static_cast<void>(ftruncate(file_, fullSize));
    }
    return file_ >= 0;
}

off_t Spill::size() const {
    struct stat status {};
    return fstat(file_, &status) == 0 ? status.st_size : 0;
}

Spill::Header Spill::header() const {
    Header newest;
    for (const off_t place : {0, 512}) {
        Header found;
        if (pread(file_, &found, sizeof found, place) == sizeof found && found.isWhole() &&
            found.serial >= newest.serial) {
            newest = found;
        }
    }
    return newest;
}

/** In the place of the older one, so that there is always a whole one. */
bool Spill::write(Header header) const {
    ++header.serial;
    header.checksum = header.rightChecksum();
    return pwrite(file_, &header, sizeof header, header.serial % 2 == 0 ? 0 : 512) ==
               sizeof header &&
           fdatasync(file_) == 0;
}

/** Begins a generation, with nothing in it. */
bool Spill::begin(Header header) const {
    header.losses = {};
    header.generation = std::max<std::uint64_t>(std::random_device{}() >> 1U, 1);
    return write(header);
}

std::optional<Entry> Spill::read(off_t& at, std::uint64_t generation) const {
    Record record{};
    constexpr ssize_t headSize = sizeof record;
    if (pread(file_, &record, headSize, at) != headSize || record.generation != generation ||
        at + headSize + off_t{record.size} > size()) {
        return std::nullopt;
    }
    std::string payload(record.size, '\0');
    if (pread(file_, payload.data(), payload.size(), at + headSize) !=
            static_cast<ssize_t>(payload.size()) ||
        record.checksum != record.rightChecksum(payload)) {
        return std::nullopt;
    }
    at += headSize + static_cast<off_t>(record.size);
    return unpack(payload);
}

off_t Spill::end(std::uint64_t generation) {
    if (std::exchange(generation_, generation) != generation) {
        end_ = recordsBegin;
    }
    while (read(end_, generation)) {
    }
    return end_;
}

bool Spill::isEmpty() {
    if (!open()) {
        return true;
    }
    const auto header = this->header();
    Record first{};
    return header.generation == 0 ||
           (!header.hasLosses() &&
            (pread(file_, &first, sizeof first, recordsBegin) != sizeof first ||
             first.generation != header.generation));
}

bool Spill::add(std::span<const Entry> entries) {
    if (!open()) {
        return false;
    }
    const Lock lock{file_};
    if (header().generation == 0 && !begin({})) {
        return false;
    }
    const auto generation = header().generation;
    std::string records;
    for (const auto& entry : entries) {
        const auto payload = pack(entry);
        Record record{0, static_cast<std::uint32_t>(payload.size()),
                      static_cast<std::uint32_t>(generation)};
        record.checksum = record.rightChecksum(payload);
        records += bytesOf(record);
        records += payload;
    }
    const auto at = end(generation);
    const auto length = static_cast<ssize_t>(records.size());
    if (at + length > size()) {
        return false;
    }
    if (pwrite(file_, records.data(), records.size(), at) == length && fdatasync(file_) == 0) {
        return true;
    }
    static_cast<void>(pwrite(file_, bytesOf(Record{}).data(), sizeof(Record), at));
    return false;
}

bool Spill::count(const std::string& cause, std::int64_t events) {
    if (!open()) {
        return false;
    }
    const Lock lock{file_};
    auto header = this->header();
    if (header.generation == 0 && begin({})) {
        header = this->header();
    }
    for (auto& loss : header.losses) {
        if (loss.events == 0 || cause == loss.cause.data()) {
            cause.copy(loss.cause.data(), loss.cause.size() - 1);
            loss.events += events;
            return header.generation != 0 && write(header);
        }
    }
    return false;
}

Losses Spill::losses(const Header& header) {
    Losses losses;
    for (const auto& loss : header.losses) {
        if (loss.events != 0) {
            losses[loss.cause.data()] = loss.events;
        }
    }
    return losses;
}

bool Waiting::isTold(std::int64_t mark) const {
    const auto [generation, losses, at] = Mark::from(mark);
    return lossesMark == Mark{generation, losses, 0}.packed();
}

Waiting Spill::look(const std::string& path) {
    Spill spill{path};
    spill.file_ = ::open(spill.path_.c_str(), O_RDONLY | O_CLOEXEC);
    const auto header = spill.header();
    Waiting waiting;
    waiting.losses = losses(header);
    waiting.lossesMark = Mark{header.generation, Mark::lossesOf(header.serial), 0}.packed();
    for (off_t at = recordsBegin; spill.read(at, header.generation); ++waiting.entries) {
    }
    struct stat status {};
    if (fstat(spill.file_, &status) == 0) {
        const std::chrono::sys_seconds time{std::chrono::seconds{status.st_mtim.tv_sec}};
        waiting.writtenAt = text::UtcTime{time}.text();
    }
    return waiting;
}

Spill::Reading::Reading(Spill& spill) : spill_{spill}, at_{recordsBegin} {
    flock(spill_.file_, LOCK_EX);
    const auto header = spill_.header();
    generation_ = header.generation;
    serial_ = header.serial;
    losses_ = Spill::losses(header);
}

Spill::Reading::~Reading() {
    flock(spill_.file_, LOCK_UN);
}

void Spill::Reading::goOnBehind(std::int64_t mark) {
    const auto [generation, losses, at] = Mark::from(mark);
    if (generation == generation_) {
        at_ = std::max(at_, at);
        if (losses == Mark::lossesOf(serial_)) { // With more since, rather twice than not at all.
            losses_.clear();
        }
    }
}

std::int64_t Spill::Reading::mark() const {
    return Mark{generation_, isAtEnd() ? Mark::lossesOf(serial_) : 0, at_}.packed();
}

std::vector<Entry> Spill::Reading::next() {
    std::vector<Entry> entries;
    const auto most = at_ + bytesInPiece;
    while (at_ < most) {
        auto entry = spill_.read(at_, generation_);
        if (!entry) {
            break;
        }
        entries.push_back(std::move(*entry));
    }
    return entries;
}

bool Spill::Reading::isAtEnd() const {
    auto at = at_;
    return !spill_.read(at, generation_);
}

void Spill::Reading::finish() {
    static_cast<void>(spill_.begin(spill_.header())); // else the marks keep it from going in twice
}

} // namespace tavrisk::zel
