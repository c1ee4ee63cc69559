// Reads JSON with comments, and refuses text of which JSON readers would silently drop a part, such as duplicate keys.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Host {

// The key path of a value as messages show it: events.sinks[1].path. Keys that are not plain words appear as ["k\n"].
std::string MemberPath(const std::string& parent, const std::string& key);
std::string ElementPath(const std::string& parent, size_t index);

// A value as messages show it: its JSON text, cut to about 60 bytes.
std::string ShowValue(const nlohmann::ordered_json& value);

// Parses text with // and /* */ comments. False if it is not valid JSON, has a key twice in one object or nests deeper
// than 64 levels; error then starts with file and gives place, reason and remedy. Any thread.
bool ParseConfigText(const std::string& text, const std::string& file, nlohmann::ordered_json& value,
                     std::string& error);

}  // namespace Host
