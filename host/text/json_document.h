// The JSON tree behind the handles of agent/json.h.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/json.h"

namespace TavUtils::JsonAdaptor {

using Json = nlohmann::ordered_json;

struct JsonDocument {
    Json root;
};

// The value at that path of keys; null if there is none. Valid until the next write to the document.
const Json* Find(const JsonDocument& document, const std::vector<std::string>& path);

// The value at that path. Creates it if there is none: each value on the path that is not an object is replaced by an
// object.
Json& FindOrCreate(JsonDocument& document, const std::vector<std::string>& path);

}  // namespace TavUtils::JsonAdaptor
