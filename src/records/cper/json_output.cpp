// SPDX-License-Identifier: Apache-2.0
#include "records/cper/printed.hpp"

#include <json/value.h>

namespace tavrisk::cper {
namespace {

Json::Value textOf(std::string_view text) {
    return {text.data(), text.data() + text.size()};
}

/** Sets the members that a node makes of an object; a GUID and a time make several. */
void setMember(const Node& node, Json::Value& object) {
    const auto name = jsonName(node.label);
    object[name] = toJson(node);
    if (const auto* guid = as<Guid>(&node)) {
        if (!guid->name.empty()) {
            object[name + "Name"] = textOf(guid->name);
        }
        if (!guid->shortName.empty()) {
            object[name + "Short"] = textOf(guid->shortName);
        }
    } else if (const auto* time = as<Time>(&node)) {
        object[name + "Precise"] = time->precise ? 1 : 0;
    }
}

struct ToJson {
    Json::Value operator()(std::uint64_t value) const { return Json::UInt64{value}; }
    Json::Value operator()(std::int64_t value) const { return Json::Int64{value}; }
    Json::Value operator()(const std::string& value) const { return value; }
    Json::Value operator()(const Guid& guid) const { return guid.text; }
    Json::Value operator()(const Time& time) const { return time.text; }
    Json::Value operator()(const Raw& raw) const { return raw.digits; }
    Json::Value operator()(const Choice& choice) const {
        Json::Value object;
        object["value"] = Json::UInt64{choice.value};
        object["name"] = choice.name;
        if (!choice.meaning.empty()) {
            object["meaning"] = textOf(choice.meaning);
        }
        return object;
    }
    Json::Value operator()(const Register& bits) const {
        Json::Value object{Json::objectValue};
        for (const auto& field : bits.fields) {
            setMember(field, object);
        }
        object["value"] = bits.value;
        if (bits.hasFlags) {
            auto& names = object["names"] = Json::arrayValue;
            for (const auto flag : bits.flags) {
                names.append(textOf(flag));
            }
        }
        return object;
    }
    Json::Value operator()(const Object& node) const {
        Json::Value object{Json::objectValue};
        for (const auto& member : node.members) {
            setMember(member, object);
        }
        return object;
    }
    Json::Value operator()(const List& list) const {
        Json::Value array{Json::arrayValue};
        for (const auto& element : list.elements) {
            array.append(toJson(element));
        }
        return array;
    }
};

} // namespace

Json::Value toJson(const Node& node) {
    return std::visit(ToJson{}, node.value);
}

} // namespace tavrisk::cper
