// The tree behind the handles of agent/json.h, for reading, building and writing it.
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

// The value at that path of keys; null if there is none. It is valid until the document is next written to.
const Json* Find(const JsonDocument& document, const std::vector<std::string>& path);

// The value at that path, which is created if there is none: each value on the way that is not an object becomes one.
Json& FindOrCreate(JsonDocument& document, const std::vector<std::string>& path);

}  // namespace TavUtils::JsonAdaptor
