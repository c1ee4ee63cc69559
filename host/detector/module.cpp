#include "host/detector/module.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "host/base/descriptor.h"
#include "host/system/environment.h"

namespace Host {
namespace {

constexpr const char* fileName = "/liborlim_detect-shell.so";
constexpr const char* remedy = ". Install it in one of these places, or name it with --module FILE.";

// The absolute path: dlopen would look up a path without a slash in the system's library directories.
std::string Canonical(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? resolved.get() : "";
}

bool IsRegularFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

template <typename Entry>
void Resolve(void* handle, const char* name, Entry& entry, std::string& missing) {
    entry = reinterpret_cast<Entry>(::dlsym(handle, name));
    if (entry == nullptr) {
        missing += missing.empty() ? name : std::string(", ") + name;
    }
}

}  // namespace

std::vector<std::string> ModulePlaces() {
    std::vector<std::string> places;
    const std::string own = DirectoryOfProgram();
    if (!own.empty()) {
        places = {own, own + "/../lib", own + "/" ORLIM_RELATIVE_MODULE_DIR};
    }
    places.emplace_back(ORLIM_MODULE_DIR);
    return places;
}

std::string FindModule(const std::optional<std::string>& named, const std::vector<std::string>& places,
                       std::string& error) {
    if (named) {
        std::string path = Canonical(*named);
        if (path.empty()) {
            error = "cannot find the module " + *named + ": " + ErrorText(errno) +
                    ". Name an existing file with --module FILE.";
        }
        return path;
    }
    std::string tried;
    for (const std::string& place : places) {
        const std::string path = place + fileName;
        if (IsRegularFile(path)) {
            return Canonical(path);
        }
        tried += (tried.empty() ? "" : ", ") + path;
    }
    error = "cannot find the module; tried " + tried + remedy;
    return "";
}

std::optional<Module> Module::Load(const std::string& path, std::string& error) {
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        error = "cannot load the module " + path + ": " + (why == nullptr ? "unknown reason" : why) +
                ". Use the module of the same version as this agent.";
        return std::nullopt;
    }
    Module module(handle);
    std::string missing;
    Resolve(handle, Published::initEntry, module.entries_.init, missing);
    Resolve(handle, Published::startEntry, module.entries_.start, missing);
    Resolve(handle, Published::stopEntry, module.entries_.stop, missing);
    Resolve(handle, Published::deinitEntry, module.entries_.deinit, missing);
    if (!missing.empty()) {
        error = "the module " + path + " lacks the entries " + missing +
                ". Use the module of the same version as this agent.";
        return std::nullopt;
    }
    return module;
}

std::optional<Module> Module::FindAndLoad(const std::optional<std::string>& named, std::string& error) {
    const std::string path = FindModule(named, ModulePlaces(), error);
    return path.empty() ? std::nullopt : Load(path, error);
}

Module::~Module() {
    if (handle_ != nullptr) {
        ::dlclose(handle_);
    }
}

Module::Module(Module&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)), entries_(other.entries_) {}

}  // namespace Host
