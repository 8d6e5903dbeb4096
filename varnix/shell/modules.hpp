// Loading of extension modules.
//
// For a file NAME.so the host resolves VNInitialize_NAME, VNTerminate_NAME and
// QueryVNFcnTable_NAME, checks the two identification words of the record that the last one
// returns, finds the data exports NAME_version and NAME_build_date, and calls initialize once. At
// exit, or when a module is unloaded, it calls terminate. What a module published (packages,
// classes) is withdrawn before its code leaves the process; handles of its classes become invalid.
#pragma once

#include <string>
#include <vector>

namespace varnix {

/// One loaded module.
struct ModuleInfo {
    std::string name;
    std::string path;
    std::string version;
    std::string buildDate;
};

class ModuleLoader {
public:
    ModuleLoader();
    ~ModuleLoader(); ///< calls terminate of every module, last loaded first; code stays mapped
    ModuleLoader(const ModuleLoader&) = delete;
    ModuleLoader& operator=(const ModuleLoader&) = delete;

    /// Loads one file. Raises "varnix:badModule" with the file and the reason: not a loadable
    /// library, an entry point missing, wrong identification words, initialize raised an error.
    /// Whatever it had published until then is withdrawn.
    const ModuleInfo& load(const std::string& path);
    /// Loads every *.so of a folder in name order; returns one message for each that failed. A
    /// missing folder is a message too unless `optional`.
    std::vector<std::string> loadFolder(const std::string& folder, bool optional);
    /// Terminates the module, withdraws what it published and unmaps it. Raises "varnix:undefined"
    /// when no module of that name is loaded.
    void unload(const std::string& name);

    [[nodiscard]] const std::vector<ModuleInfo>& modules() const { return modules_; }

private:
    struct Loaded;
    std::vector<ModuleInfo> modules_;
    std::vector<Loaded> loaded_;
};

} // namespace varnix
