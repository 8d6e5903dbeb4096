// See the header.
#include "services/output_file.hpp"

#include <qn/function.hpp>
#include <qn/serializer.hpp>
#include <qn/serializer_fbt_service.hpp>
#include <qn/transform_run.hpp>

#include <cstdio>
#include <filesystem>

namespace QN {

struct SerializerFbtService::State {
    std::string folder;
    std::uint64_t last = 0; // number of the last file in the folder
    detail::FileWriter writer;
};

SerializerFbtService::SerializerFbtService(bool before, bool after)
    : DebugService(before, after, "serialized-ir"), state_(std::make_unique<State>()) {}

SerializerFbtService::~SerializerFbtService() = default;

void SerializerFbtService::prepass(TransformRun& run) {
    if (wantsBefore(run)) {
        write(run, false);
    }
}

void SerializerFbtService::postpass(TransformRun& run) {
    if (wantsAfter(run)) {
        write(run, true);
    }
}

void SerializerFbtService::write(const TransformRun& run, bool after) {
    State& state = *state_;
    if (std::string folder = outputFolderName(); folder != state.folder) {
        state.folder = std::move(folder);
        state.last = 0;
    }
    const char* const side = after ? "after" : "before";
    const std::string title = side + (' ' + run.tag());
    const std::string bytes = run.function() != nullptr ? serialize(*run.function(), title)
                                                        : serialize(run.scope(), title);
    char start[32];
    std::snprintf(start, sizeof start, "%04llu-%s-",
                  static_cast<unsigned long long>(state.last + 1), side);
    const std::string name = start + detail::asFileName(run.tag()) + ".fbt";
    if (state.writer.write((std::filesystem::path(state.folder) / name).string(), bytes)) {
        ++state.last;
    }
}

} // namespace QN
