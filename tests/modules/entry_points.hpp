// The symbols of a module that publishes nothing: what it does, it does while it is loaded.
#pragma once

#include <cstdint>

struct ModuleTable {
    const void* const* entries;
    std::uint64_t first;
    std::uint64_t second;
};

#define MODULE_EXPORT extern "C" __attribute__((visibility("default")))

/// Loading calls `initialize()`, unloading `terminate()`.
#define MODULE_ENTRY_POINTS(name, initialize, terminate)                                           \
    MODULE_EXPORT void VNInitialize_##name() {                                                     \
        initialize();                                                                              \
    }                                                                                              \
    MODULE_EXPORT void VNTerminate_##name() {                                                      \
        terminate();                                                                               \
    }                                                                                              \
    MODULE_EXPORT const void* QueryVNFcnTable_##name() {                                           \
        static const void* const noEntries[] = {nullptr};                                          \
        static const ModuleTable table = {noEntries, 0x1F26B7F1, 0x57925B47};                      \
        return &table;                                                                             \
    }                                                                                              \
    MODULE_EXPORT const char* const name##_version = "1";                                          \
    MODULE_EXPORT const char* const name##_build_date = "today";
