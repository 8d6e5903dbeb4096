// The entry points through which the host loads and unloads the module.

#include "quarn_package.hpp"

#include <cstdint>

#define QUARN_VI_EXPORT __attribute__((visibility("default")))

namespace {

// Two process-wide bytes, plain because one thread calls the module. Neither is ever reset.
std::uint8_t initialized = 0;
std::uint8_t terminated = 0;

/// The module's plain functions, for the host: there are none.
struct FunctionTable {
    const void* const* entries;
    std::uint64_t firstIdentification;
    std::uint64_t secondIdentification;
};

constexpr const void* noEntries[] = {nullptr};
constexpr FunctionTable functionTable{noEntries, 0x1F26B7F1, 0x57925B47};

} // namespace

extern "C" {

QUARN_VI_EXPORT extern const char* const quarn_vi_version;
QUARN_VI_EXPORT extern const char* const quarn_vi_build_date;
const char* const quarn_vi_version = "9.1.0.666610";
const char* const quarn_vi_build_date = "Jun 27 2017";

QUARN_VI_EXPORT void VNInitialize_quarn_vi() {
    if (initialized)
        return;
    initialized = 1;
    quarn_vi::publishPackage();
}

QUARN_VI_EXPORT void VNTerminate_quarn_vi() {
    if (!terminated)
        terminated = 1;
}

QUARN_VI_EXPORT const void* QueryVNFcnTable_quarn_vi() {
    return &functionTable;
}

} // extern "C"
