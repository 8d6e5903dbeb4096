// See the header. Whether a dump equals an earlier one is told from the size and hash of all but
// its title.
#include "services/output_file.hpp"
#include "text/characters.hpp"

#include <qn/pretty_print_service.hpp>
#include <qn/pretty_printer.hpp>
#include <qn/scope.hpp>
#include <qn/transform_run.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <tuple>
#include <utility>

namespace QN {

namespace {

PrintForm formOf(PrettyPrintService::OutputFormat format) noexcept {
    switch (format) {
    case PrettyPrintService::OutputFormat::Text:
        return PrintForm::Text;
    case PrettyPrintService::OutputFormat::Qnel:
        return PrintForm::Qnel;
    case PrettyPrintService::OutputFormat::Dot:
        return PrintForm::Dot;
    default:
        return PrintForm::Html;
    }
}

std::string printed(const TransformRun& run, const PrettyPrinter& printer) {
    std::string text;
    if (run.isScopeRun()) {
        printer.print(run.scope(), text);
    } else if (run.function() != nullptr) {
        printer.print(*run.function(), text);
    }
    return text;
}

std::string_view withoutTitle(std::string_view text, PrintForm form) noexcept {
    const std::string_view end = form == PrintForm::Html  ? "</h1>"
                                 : form == PrintForm::Dot ? "\n"
                                                          : "";
    const std::size_t at = text.find(end);
    return at == std::string_view::npos ? text : text.substr(at);
}

std::string asUrl(std::string_view name) {
    std::string url;
    for (const char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.' || c == '~';
        if (plain) {
            url += c;
        } else {
            char code[8];
            std::snprintf(code, sizeof code, "%%%02X",
                          static_cast<unsigned>(static_cast<unsigned char>(c)));
            url += code;
        }
    }
    return url;
}

// The index needs no end, so it is whole after each line.
constexpr std::string_view indexHead =
    "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8>\n<title>IR dumps</title>\n"
    "<style>:root { color-scheme: light dark; } body { font: 13px/1.5 monospace; margin: 1.5em; }"
    "</style></head><body>\n<h1>IR dumps</h1>\n";

} // namespace

struct PrettyPrintService::State {
    // What a dump was of: the scope's serial number, whether the whole scope, the function's name.
    using Subject = std::tuple<std::uint64_t, bool, std::string>;
    struct Print {
        PrintForm form;
        std::size_t size;
        std::size_t hash;
        bool operator==(const Print&) const = default;
    };

    std::map<Subject, Print> previous;
    std::string folder;
    std::uint64_t place = 0; // sides of runs seen
    std::uint64_t last = 0;  // number of the last file
    detail::FileWriter writer;
    detail::GrowingFile index;
    std::string unlisted; // lines that are not in the index yet

    static Subject subjectOf(const TransformRun& run) {
        return {run.scope().serial(), run.isScopeRun(), std::string(run.targetName())};
    }

    // Remembers the dump; returns whether it equals the previous one of the same subject.
    bool isRepeated(const TransformRun& run, std::string_view text, PrintForm form) {
        constexpr std::size_t mostRemembered = 100'000; // scopes come and go
        if (previous.size() >= mostRemembered) {
            previous.clear();
        }
        const std::string_view body = withoutTitle(text, form);
        const Print now{form, body.size(), std::hash<std::string_view>()(body)};
        const auto [known, isNew] = previous.try_emplace(subjectOf(run), now);
        return !isNew && std::exchange(known->second, now) == now;
    }

    void moveTo(const std::string& newFolder) {
        if (newFolder == folder) {
            return;
        }
        if (!folder.empty()) {
            index.close();
            unlisted.clear();
            previous.clear(); // what a dump would repeat is not in the new folder
            place = 1;        // of the side that is being printed
            last = 0;
        }
        folder = newFolder;
    }

    std::uint64_t nextNumber(bool gapless) {
        place = std::max(place, last + 1); // numbering may have been gapless before
        return gapless ? last + 1 : place;
    }

    // A line that does not get in gets in with the next one.
    void addToIndex(const std::string& file, std::string_view title) {
        unlisted += "<div><a href=\"" + asUrl(file) + "\">";
        text::appendHtml(unlisted, title);
        unlisted += "</a></div>\n";
        if (!index.isThere()) {
            index.create((std::filesystem::path(folder) / "index.html").string(), indexHead);
        }
        if (index.append(unlisted)) {
            unlisted.clear();
        }
    }
};

PrettyPrintService::PrettyPrintService(bool before, bool after)
    : DebugService(before, after, "pretty-print"), state_(std::make_unique<State>()) {}

PrettyPrintService::~PrettyPrintService() = default;

void PrettyPrintService::setOutputFormat(OutputFormat format) noexcept {
    if (std::exchange(format_, format) != format) {
        settingChanged();
    }
}

void PrettyPrintService::set(bool& setting, bool value) noexcept {
    if (std::exchange(setting, value) != value) {
        settingChanged();
    }
}

void PrettyPrintService::setVarNameDisambiguation(bool disambiguate) noexcept {
    set(disambiguates_, disambiguate);
}
void PrettyPrintService::setGaplessNumbering(bool gapless) noexcept {
    set(gapless_, gapless);
}
void PrettyPrintService::setRemoveIdenticalFiles(bool remove) noexcept {
    set(removesIdentical_, remove);
}

void PrettyPrintService::prepass(TransformRun& run) {
    ++state_->place;
    if (wantsBefore(run)) {
        dump(run, false);
    }
}

void PrettyPrintService::postpass(TransformRun& run) {
    ++state_->place;
    if (wantsAfter(run)) {
        dump(run, true);
    }
}

void PrettyPrintService::dump(const TransformRun& run, bool after) {
    State& state = *state_;
    state.moveTo(outputFolderName());
    char number[32];
    const std::uint64_t value = state.nextNumber(gapless_);
    std::snprintf(number, sizeof number, "%04llu", static_cast<unsigned long long>(value));
    const std::string name = number + std::string(after ? "-after-" : "-before-");

    const PrintForm form = formOf(format_);
    const std::string title = number + std::string(after ? " after " : " before ") + run.tag();
    const std::string text = printed(run, PrettyPrinter(form, disambiguates_, title));
    // Every dump is remembered, so that removal can be switched on at any time.
    if (state.isRepeated(run, text, form) && after && removesIdentical_) {
        return;
    }
    const std::string file =
        name + detail::asFileName(run.tag()) + "." + std::string(endingOf(form));
    if (!state.writer.write((std::filesystem::path(state.folder) / file).string(), text)) {
        state.previous.erase(State::subjectOf(run)); // nothing is there that an after could repeat
        return;
    }
    state.last = value;
    if (form == PrintForm::Html) {
        state.addToIndex(file, title);
    }
}

} // namespace QN
