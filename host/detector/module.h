// Finds and loads the detection module and its four entries.
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

// The directories that are searched for the module without --module, in this order.
std::vector<std::string> ModulePlaces();

// The module's absolute path: the named file, or the first match in places. Empty on failure; error then names the
// paths tried.
std::string FindModule(const std::optional<std::string>& named, const std::vector<std::string>& places,
                       std::string& error);

// A loaded module. The destructor unloads it: no entry may be running then, nor any thread of the module.
class Module {
public:
    // Empty if the file cannot be loaded or lacks an entry; error then gives the reason.
    static std::optional<Module> Load(const std::string& path, std::string& error);

    // Finds and loads the named module or, without a name, the first in ModulePlaces. Empty on failure; error then
    // gives the reason.
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
