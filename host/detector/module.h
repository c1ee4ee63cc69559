// The detection module: finding it, loading it, its four entries.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "module/published.h"

namespace Host {

struct ModuleEntries {
    Published::InitEntry init;
    Published::StartEntry start;
    Published::StopEntry stop;
    Published::DeinitEntry deinit;
};

// Where the module is looked for without --module, in that order.
std::vector<std::string> ModulePlaces();

// The module's absolute path: the named one, or the first of places that holds it. Empty on failure; error then names
// the places tried.
std::string FindModule(const std::optional<std::string>& named, const std::vector<std::string>& places,
                       std::string& error);

// A loaded module; it is unloaded with the object, so no entry may be in use by then.
class Module {
public:
    // Empty if the file cannot be loaded or lacks an entry; error then says why.
    static std::optional<Module> Load(const std::string& path, std::string& error);

    // Finds and loads the named module or, without a name, the one of ModulePlaces. Empty on failure; error says why.
    static std::optional<Module> FindAndLoad(const std::optional<std::string>& named, std::string& error);

    ~Module();
    Module(Module&& other) noexcept;
    Module& operator=(Module&&) = delete;

    const ModuleEntries& Entries() const { return entries_; }

private:
    explicit Module(void* handle) : handle_(handle) {}

    void* handle_;
    ModuleEntries entries_{};
};

}  // namespace Host
