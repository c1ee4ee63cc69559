// The shipped module, loaded into a process with the agent's real services.
#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "module/published.h"

class RealModule {
public:
    RealModule() : library_(dlopen(ORLIM_MODULE_FILE, RTLD_NOW | RTLD_LOCAL)) {
        if (library_ == nullptr) {
            throw std::runtime_error(dlerror());
        }
        init = Entry<Published::InitEntry>(Published::initEntry);
        start = Entry<Published::StartEntry>(Published::startEntry);
        stop = Entry<Published::StopEntry>(Published::stopEntry);
        deinit = Entry<Published::DeinitEntry>(Published::deinitEntry);
    }

    ~RealModule() { dlclose(library_); }
    RealModule(const RealModule&) = delete;
    RealModule& operator=(const RealModule&) = delete;

    Published::InitEntry init = nullptr;
    Published::StartEntry start = nullptr;
    Published::StopEntry stop = nullptr;
    Published::DeinitEntry deinit = nullptr;

private:
    template <typename Function>
    Function Entry(const char* name) {
        return reinterpret_cast<Function>(dlsym(library_, name));
    }

    void* library_;
};
