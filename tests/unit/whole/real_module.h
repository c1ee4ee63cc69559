// The module as it ships, loaded into a process that has the agent's real services.
#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>

class RealModule {
public:
    RealModule() : library_(dlopen(ORLIM_MODULE_FILE, RTLD_NOW | RTLD_LOCAL)) {
        if (library_ == nullptr) {
            throw std::runtime_error(dlerror());
        }
        init = Entry<int (*)()>("InitModule");
        start = Entry<int (*)(const char*)>("StartModule");
        stop = Entry<void (*)(const char*)>("StopModule");
        deinit = Entry<void (*)()>("DeinitModule");
    }

    ~RealModule() { dlclose(library_); }
    RealModule(const RealModule&) = delete;
    RealModule& operator=(const RealModule&) = delete;

    int (*init)() = nullptr;
    int (*start)(const char*) = nullptr;
    void (*stop)(const char*) = nullptr;
    void (*deinit)() = nullptr;

private:
    template <typename Function>
    Function Entry(const char* name) {
        return reinterpret_cast<Function>(dlsym(library_, name));
    }

    void* library_;
};
