// Name resolution and function files.
#include "lang/names.hpp"

#include "lang/compiler.hpp"
#include "object/package_tree.hpp"
#include "shell/names.hpp"
#include "value/errors.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <set>
#include <sys/stat.h>

namespace varnix {

namespace {

using objsys::COSNameID;

std::string fileIn(const std::string& folder, const std::string& name) {
    std::string path = folder;
    if (!path.empty() && !path.ends_with('/'))
        path += '/';
    path += name;
    path += ".vx";
    return path;
}

bool isName(std::string_view text) {
    const auto letter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    return !text.empty() && letter(text[0]) && std::all_of(text.begin(), text.end(), [&](char c) {
        return letter(c) || (c >= '0' && c <= '9');
    });
}

} // namespace

Source readSource(const std::string& path) {
    const auto cannot = [&] {
        fail(id::ioError, "cannot read '{}': {}", path, std::strerror(errno));
    };
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                         &std::fclose);
    if (!file)
        cannot();
    Source source{
        .name = path, .folder = std::filesystem::path(path).parent_path().string(), .text = {}};
    if (source.folder.empty())
        source.folder.assign(1, '.');
    char buffer[1 << 16];
    for (;;) {
        const std::size_t got = std::fread(buffer, 1, sizeof buffer, file.get());
        source.text.append(buffer, got);
        if (got < sizeof buffer)
            break;
    }
    if (std::ferror(file.get()) != 0)
        cannot();
    return source;
}

std::vector<std::string> NameResolver::folders(const Unit* unit) const {
    std::vector<std::string> list;
    for (; unit != nullptr; unit = unit->parent.get())
        if (!unit->folder.empty())
            list.push_back(unit->folder);
    list.emplace_back(); // the current folder
    list.insert(list.end(), path_.begin(), path_.end());
    return list;
}

const Code* NameResolver::findFile(const std::string& folder, const std::string& name) {
    const std::string path = fileIn(folder, name);
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    // The current folder can change under a relative path.
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    File& file = files_[error ? path : absolute.string()];
    const std::int64_t modified =
        std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    if (file.unit && file.modified == modified && file.size == status.st_size)
        return file.code;
    std::shared_ptr<Unit> unit = compile(readSource(path), {});
    // A script that happens to have the name defines no such function and hides nothing.
    const Code* const code = unit->find(COSNameID(name));
    if (file.unit)
        replaced_.push_back(std::move(file.unit));
    file = {.modified = modified, .size = status.st_size, .unit = std::move(unit), .code = code};
    return file.code;
}

NameResolver::Found NameResolver::find(COSNameID name, const Unit* unit) {
    for (const Unit* each = unit; each != nullptr; each = each->parent.get())
        if (const Code* const code = each->find(name))
            return {.script = code};
    if (const auto found = session_.find(name); found != session_.end())
        return {.script = found->second};
    for (const std::string& folder : folders(unit))
        if (const Code* const code = findFile(folder, name.str()))
            return {.script = code};
    return {.builtin = findBuiltin(name.str())};
}

void NameResolver::addSession(const std::shared_ptr<Unit>& unit) {
    if (unit->functions.empty())
        return;
    for (const auto& function : unit->functions)
        session_[function->name] = function.get();
    sessionUnits_.push_back(unit);
    newEpoch();
    // A unit all of whose functions were replaced is kept only as long as it may be running.
    const auto inUse = [&](const std::shared_ptr<Unit>& each) {
        return std::any_of(each->functions.begin(), each->functions.end(),
                           [&](const auto& code) { return session_.at(code->name) == code.get(); });
    };
    const auto unused = std::stable_partition(sessionUnits_.begin(), sessionUnits_.end(), inUse);
    replaced_.insert(replaced_.end(), std::make_move_iterator(unused),
                     std::make_move_iterator(sessionUnits_.end()));
    sessionUnits_.erase(unused, sessionUnits_.end());
}

void NameResolver::addPath(const std::string& folder) {
    path_.push_back(folder);
    newEpoch();
}

std::vector<std::string> NameResolver::scriptFunctions(const Unit* unit) const {
    std::set<std::string> names;
    for (const Unit* each = unit; each != nullptr; each = each->parent.get())
        for (const auto& function : each->functions)
            names.insert(function->name.str());
    for (const auto& [name, code] : session_)
        names.insert(name.str());
    for (const std::string& folder : folders(unit)) {
        std::error_code error;
        for (std::filesystem::directory_iterator at(folder.empty() ? "." : folder, error), end;
             !error && at != end; at.increment(error)) {
            const std::filesystem::path& file = at->path();
            if (file.extension() == ".vx" && isName(file.stem().string()))
                names.insert(file.stem().string());
        }
    }
    return {names.begin(), names.end()};
}

std::vector<std::string> NameResolver::candidates(const Unit* unit) const {
    std::vector<std::string> names = scriptFunctions(unit);
    for (const Builtin* const builtin : allBuiltins())
        names.emplace_back(builtin->name);
    for (const auto& package : objsys::PackageTree::roots())
        names.push_back(package->getName());
    return names;
}

std::string suggestion(std::string_view name, const std::vector<std::string>& candidates) {
    if (name.size() > 100)
        return {};
    const std::vector<std::string> nearest = nearestNames(name, candidates, 1);
    return nearest.empty() ? std::string() : fmt::format("; did you mean '{}'?", nearest.front());
}

} // namespace varnix
