// Runs of transforms for the tests of controllers: what a service does around them is what the
// properties of its controller are about.
#pragma once

#include "tests/controllers.hpp"

#include <qn/builder.hpp>
#include <qn/default_services.hpp>
#include <qn/scope.hpp>
#include <qn/transform.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <string>
#include <vector>

namespace controllers {

/// A function f(x) of some nodes and variables, and transforms to run on it.
class Program {
public:
    Program() {
        QN::Cfg& graph = f_.cfg();
        QN::Builder b(graph, graph.addBlock());
        QN::Var* const x = f_.addParam(QN::Type::f64(), "x");
        QN::Entity* sum = b.load(x);
        for (const char* const name : {"a", "b", "c", "d", "e", "g"}) {
            QN::Var* const local = graph.addVar(QN::VarKind::User, QN::Type::f64(), name, 3);
            b.store(local, b.unary(QN::Op::Neg, b.load(x)));
            sum = b.binary(QN::Op::Add, sum, b.load(local));
        }
        b.ret(sum);
    }

    [[nodiscard]] QN::Function& function() { return f_; }

    /// A run that leaves the function as it is: its tag is "idle-fcn_f".
    void idle() {
        run("idle", [](QN::Function&) { return false; });
    }
    /// A run that puts `count` stores of a value of the wrong type into the function:
    /// "spoiler-fcn_f".
    template <int count>
    void spoil() {
        run("spoiler", [](QN::Function& f) {
            QN::Cfg& graph = f.cfg();
            QN::Builder before(graph, *graph.entry()->terminator());
            for (int i = 0; i < count; ++i)
                before.store(graph.firstVar(), graph.constantLogical(true));
            return true;
        });
    }
    void run(const char* transform, bool (*act)(QN::Function&)) {
        QN::runTransform(QN::Transform{transform, "", act, nullptr}, f_);
    }

private:
    QN::Scope scope_{QN::ScopeFlavor::Unit, "u"};
    QN::Function& f_ = *scope_.addFunction("f", QN::Type::f64());
};

/// The debug log in an empty folder of its own.
class LogFolder {
public:
    LogFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "quarn-vi-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
        log().setLogDirectory(path_.string());
    }
    ~LogFolder() {
        log().setLogDirectory("");
        std::filesystem::remove_all(path_);
    }
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::size_t files() const {
        const std::filesystem::recursive_directory_iterator all(path_);
        return static_cast<std::size_t>(std::count_if(
            begin(all), end(all), [](const auto& entry) { return entry.is_regular_file(); }));
    }

private:
    static tssv::debug::DebugLog& log() { return QN::DefaultServices::debugServices().debugLog(); }
    std::filesystem::path path_;
};

inline std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace controllers
