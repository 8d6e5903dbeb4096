// See modules.hpp.
#include "shell/modules.hpp"

#include "object/package_tree.hpp"
#include "value/errors.hpp"

#include <algorithm>
#include <cstdint>
#include <dlfcn.h>
#include <filesystem>
#include <utility>

namespace varnix {

namespace {

namespace fs = std::filesystem;

/// What QueryVNFcnTable_NAME gives: the module's plain functions, of which this host uses none, and
/// two words by which a host tells a module's table from anything else.
struct FunctionTable {
    const void* const* entries;
    std::uint64_t firstWord;
    std::uint64_t secondWord;
};
static_assert(sizeof(FunctionTable) == 24);

constexpr std::uint64_t firstIdentification = 0x1F26B7F1;
constexpr std::uint64_t secondIdentification = 0x57925B47;
constexpr std::string_view badModule = "varnix:badModule";

/// An open library, closed again unless it is kept.
class Library {
public:
    explicit Library(const std::string& path)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() {
        if (handle_ != nullptr)
            dlclose(handle_);
    }
    [[nodiscard]] explicit operator bool() const { return handle_ != nullptr; }
    [[nodiscard]] void* find(const std::string& symbol) const {
        return dlsym(handle_, symbol.c_str());
    }
    void* keep() { return std::exchange(handle_, nullptr); }

private:
    void* handle_;
};

/// The module's name: the file's name without ".so". Empty when it cannot be part of a symbol.
std::string moduleName(const fs::path& path) {
    const std::string stem = path.stem().string();
    const bool plain = std::all_of(stem.begin(), stem.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    });
    return path.extension() == ".so" && plain ? stem : std::string();
}

/// What keeps a file from being opened as a library, in the host's own words; empty: nothing seen.
std::string faultOfFile(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found)
        return "there is no such file";
    if (error)
        return error.message();
    if (status.type() == fs::file_type::directory)
        return "it is a folder";
    if (status.type() != fs::file_type::regular)
        return "it is not a regular file"; // opening a pipe would wait for ever
    if (fs::file_size(path, error) == 0 && !error)
        return "the file is empty";
    return {};
}

} // namespace

struct ModuleLoader::Loaded {
    void* library;
    void (*terminate)();
    objsys::PackageTree::Mark begin; // what the module published lies between these two
    objsys::PackageTree::Mark end;
};

ModuleLoader::ModuleLoader() = default;

ModuleLoader::~ModuleLoader() {
    for (auto loaded = loaded_.rbegin(); loaded != loaded_.rend(); ++loaded) {
        try {
            loaded->terminate();
        } catch (...) {
            // The process is leaving; there is nobody to tell.
        }
    }
}

const ModuleInfo& ModuleLoader::load(const std::string& path) {
    const auto refuse = [&](const std::string& reason) {
        fail(badModule, "cannot load the module {}: {}", path, reason);
    };
    const std::string name = moduleName(path);
    if (name.empty())
        refuse("a module file is named NAME.so, with letters, digits and underscores in NAME");
    if (std::string fault = faultOfFile(path); !fault.empty())
        refuse(fault);
    const bool loadedAlready = std::any_of(modules_.begin(), modules_.end(),
                                           [&](const ModuleInfo& m) { return m.name == name; });
    if (loadedAlready)
        refuse("a module of that name is loaded already");

    // A path with a slash: the library search path has no say in which file is meant.
    const std::string fullPath = fs::absolute(path).lexically_normal().string();
    Library library(fullPath);
    if (!library) {
        const char* const reason = dlerror();
        std::string text = reason ? reason : "unknown reason";
        // The loader's own message begins with the path, which is in ours already.
        if (text.starts_with(fullPath + ": "))
            text.erase(0, fullPath.size() + 2);
        refuse("not a loadable library (" + text + ")");
    }
    const auto resolve = [&](const std::string& symbol) {
        void* const address = library.find(symbol);
        if (address == nullptr)
            refuse("it does not export " + symbol);
        return address;
    };
    const auto initialize = reinterpret_cast<void (*)()>(resolve("VNInitialize_" + name));
    const auto terminate = reinterpret_cast<void (*)()>(resolve("VNTerminate_" + name));
    const auto query =
        reinterpret_cast<const FunctionTable* (*)()>(resolve("QueryVNFcnTable_" + name));
    const char* const version = *static_cast<const char* const*>(resolve(name + "_version"));
    const char* const buildDate = *static_cast<const char* const*>(resolve(name + "_build_date"));
    if (version == nullptr || buildDate == nullptr)
        refuse("its version or build date is null");

    const objsys::PackageTree::Mark begin = objsys::PackageTree::mark();
    std::string failure;
    try {
        const FunctionTable* const table = query();
        if (table == nullptr || table->entries == nullptr)
            failure = "QueryVNFcnTable_" + name + " gives no table";
        else if (table->firstWord != firstIdentification ||
                 table->secondWord != secondIdentification)
            failure = "the identification words of its function table are wrong";
        else
            initialize();
    } catch (const std::exception& error) {
        // Only the text is kept: the exception's own code may leave the process with the library.
        failure = std::string("its start raised an error: ") + error.what();
    } catch (...) {
        failure = "its start raised something that is no error";
    }
    if (!failure.empty()) {
        objsys::PackageTree::withdrawSince(begin);
        refuse(failure);
    }
    modules_.push_back({name, fullPath, version, buildDate});
    loaded_.push_back({library.keep(), terminate, begin, objsys::PackageTree::mark()});
    return modules_.back();
}

std::vector<std::string> ModuleLoader::loadFolder(const std::string& folder, bool optional) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) {
        if (optional && error == std::errc::no_such_file_or_directory)
            return {};
        return {fmt::format("cannot read the module folder {}: {}", folder, error.message())};
    }
    std::vector<fs::path> files;
    for (const auto end = fs::directory_iterator(); entries != end; entries.increment(error)) {
        if (entries->path().extension() == ".so")
            files.push_back(entries->path());
        if (error)
            break;
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> messages;
    for (const fs::path& file : files) {
        try {
            load(file.string());
        } catch (const objsys::COSError& e) {
            messages.push_back(e.message());
        }
    }
    return messages;
}

void ModuleLoader::unload(const std::string& name) {
    const auto info = std::find_if(modules_.begin(), modules_.end(),
                                   [&](const ModuleInfo& m) { return m.name == name; });
    if (info == modules_.end())
        fail(id::undefined, "no module '{}' is loaded", name);
    const auto place = loaded_.begin() + (info - modules_.begin());
    const Loaded loaded = *place;
    modules_.erase(info);
    loaded_.erase(place);
    std::string failure;
    try {
        loaded.terminate();
    } catch (const std::exception& error) {
        failure = error.what();
    } catch (...) {
        failure = "something that is no error";
    }
    objsys::PackageTree::withdrawBetween(loaded.begin, loaded.end);
    dlclose(loaded.library);
    if (!failure.empty())
        fail(badModule, "the end of the module {} raised an error: {}", name, failure);
}

} // namespace varnix
