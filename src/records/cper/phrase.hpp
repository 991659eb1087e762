// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/tree.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace tavrisk::cper {

/** The value of a number, a text or a register; a choice's name. Empty for all else and for null.
 */
std::string valueText(const Node* node);

/** Words in the making: parts with commas between them. */
class Phrase {
public:
    /** Appends a part that is not empty. */
    Phrase& add(const std::string& part);

    /** Appends "word value" when `node` has the member `label`. */
    Phrase& add(const Node* node, std::string_view label, std::string_view word);

    /** Of a place: what follows is where in the part, not which part. */
    Phrase& inside() {
        part_ = text_;
        return *this;
    }

    [[nodiscard]] const std::string& text() const { return text_; }
    /** Only the part. */
    [[nodiscard]] const std::string& part() const { return part_ ? *part_ : text_; }

private:
    std::string text_;
    std::optional<std::string> part_;
};

/** "error (about)", or "error" without anything about it. */
std::string withDetails(std::string_view error, const std::string& about);

/** The names of the bits that are set, with commas. */
std::string flagNames(const Node* node);

/** A PCI function as 0000:00:02.0 from members of these labels; empty without any of them. */
std::string pciAddress(const Node* node, std::string_view bus, std::string_view device);

/** "1b36:000c", from the members "Vendor" and "Device"; empty without both. */
std::string vendorAndDevice(const Node* node);

} // namespace tavrisk::cper
