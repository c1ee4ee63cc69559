#include "tests/support/event_json.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

using Json = nlohmann::ordered_json;

}  // namespace

EventJson EventJson::Parse(const std::string& text) {
    EventJson value;
    value.compact = Json::parse(text).dump();
    return value;
}

EventJson EventJson::operator[](const std::string& key) const {
    return Parse(Json::parse(compact).at(key).dump());
}

EventJson EventJson::operator[](size_t index) const {
    return Parse(Json::parse(compact).at(index).dump());
}

std::string EventJson::Text() const {
    return Json::parse(compact).get<std::string>();
}

int EventJson::Number() const {
    return Json::parse(compact).get<int>();
}

size_t EventJson::Size() const {
    const Json value = Json::parse(compact);
    return value.is_structured() ? value.size() : throw std::invalid_argument("neither object nor array: " + compact);
}

std::vector<std::string> EventJson::Keys() const {
    std::vector<std::string> keys;
    const Json object = Json::parse(compact);
    for (const auto& item : object.items()) {
        keys.push_back(item.key());
    }
    return keys;
}

bool operator==(const EventJson& value, const std::string& text) {
    return Json::parse(value.compact) == Json(text);
}

bool operator==(const EventJson& value, long long number) {
    return Json::parse(value.compact) == Json(number);
}
