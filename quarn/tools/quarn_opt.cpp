// quarn-opt: reads QNEL or serialized IR, runs transforms by name, and prints what became of it. IR
// tests and bug reports are written with it.
//
// Exit status: 0; 1 after an error in the input or in a transform; 2 for wrong usage.
#include "tools/generate.hpp"
#include "tools/run_function.hpp"

#include <qn/pages.hpp>
#include <qn/pipeline.hpp>
#include <qn/scope.hpp>
#include <qn/serializer.hpp>
#include <qn/text.hpp>
#include <qn/transform.hpp>
#include <qn/verify.hpp>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct Options {
    std::string input = "-";
    std::string output = "-";
    std::string print = "qnel";
    std::vector<std::string> passes;
    std::optional<std::uint32_t> generate;
    bool pipeline = false;
    bool listPasses = false;
    bool noVerify = false;
    bool disambiguate = false;
    bool showModes = false;
    QN::tools::RunOptions run;
};

/// The text of a file, or of standard input for "-"; false after a message.
bool readInput(const std::string& name, std::string& text) {
    std::FILE* const file = name == "-" ? stdin : std::fopen(name.c_str(), "rb");
    bool whole = file != nullptr;
    if (whole) {
        char piece[1 << 16];
        while (const std::size_t read = std::fread(piece, 1, sizeof piece, file)) {
            text.append(piece, read);
        }
        whole = std::ferror(file) == 0;
    }
    if (!whole) {
        std::fprintf(stderr, "quarn-opt: cannot read '%s': %s\n", name.c_str(),
                     std::strerror(errno));
    }
    if (file != nullptr && file != stdin) {
        std::fclose(file);
    }
    return whole;
}

bool writeOutput(const std::string& name, const std::string& text) {
    if (name == "-") {
        if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
            std::fflush(stdout) == 0) {
            return true;
        }
        std::fprintf(stderr, "quarn-opt: cannot write the output: %s\n", std::strerror(errno));
        return false;
    }
    // Under another name first, so that nothing half-written stands under the final one. A link
    // stays; a device or a pipe takes the text in.
    std::error_code none;
    std::filesystem::path target = std::filesystem::canonical(name, none);
    if (none) {
        target = name;
    }
    const std::filesystem::file_type kind = std::filesystem::symlink_status(target, none).type();
    const bool replaces = kind == std::filesystem::file_type::regular ||
                          kind == std::filesystem::file_type::not_found;
    const std::string unfinished =
        replaces ? target.string() + '.' + std::to_string(::getpid()) + ".part" : target.string();
    std::ofstream file(unfinished, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (file && !replaces) {
        return true;
    }
    if (!file || std::rename(unfinished.c_str(), target.c_str()) != 0) {
        std::fprintf(stderr, "quarn-opt: cannot write '%s': %s\n", name.c_str(),
                     std::strerror(errno));
        if (replaces) {
            std::remove(unfinished.c_str());
        }
        return false;
    }
    return true;
}

/// Calls `act` on a scope and all scopes inside it, the outer ones first.
template <typename Act>
void onScopes(QN::Scope& scope, Act act) {
    act(scope);
    for (const auto& child : scope.children()) {
        onScopes(*child, act);
    }
}

std::string printed(const QN::Scope& scope, const Options& options) {
    std::string text;
    if (options.print == "qnel") {
        QN::printQnel(scope, text);
    } else if (options.print == "text") {
        QN::printText(scope, text, {options.disambiguate, options.showModes});
    } else if (options.print == "dot") {
        QN::printDot(scope, text, {{options.disambiguate, options.showModes}, {}, {}});
    } else if (options.print == "html") {
        QN::printHtml(scope, text, {{options.disambiguate, options.showModes}, {}, {}});
    }
    return text;
}

bool listPasses(const Options& options) {
    std::string text;
    for (const QN::Transform& transform : QN::allTransforms()) {
        char line[200];
        std::snprintf(line, sizeof line, "%-24s %-8s  %s\n", std::string(transform.name).c_str(),
                      transform.onScope != nullptr ? "scope" : "function",
                      std::string(transform.summary).c_str());
        text += line;
    }
    return writeOutput(options.output, text);
}

/// The scope that the input describes; null after a message.
std::unique_ptr<QN::Scope> readScope(const std::string& input) {
    std::string text;
    if (!readInput(input, text)) {
        return nullptr;
    }
    const std::string file = input == "-" ? "<stdin>" : input;
    if (QN::isSerializedIr(text)) {
        std::string problem;
        std::unique_ptr<QN::Scope> scope = QN::deserialize(text, problem);
        if (scope == nullptr) {
            std::fprintf(stderr, "%s: error: %s\n", file.c_str(), problem.c_str());
        }
        return scope;
    }
    QN::ParseError error;
    std::unique_ptr<QN::Scope> scope = QN::parseQnel(text, error);
    if (scope == nullptr) {
        std::fprintf(stderr, "%s\n", error.format(file).c_str());
    }
    return scope;
}

/// Whether the IR keeps all invariants; tells what it breaks.
bool isValid(const QN::Scope& scope, const std::string& when) {
    QN::VerifyOptions options;
    options.unreachableBlocks = true; // transforms may leave them to control-flow
    options.detailsPerCheck = 10;
    const QN::Verification verification = QN::verify(scope, options);
    for (const QN::Failure& failure : verification.failures()) {
        std::fprintf(stderr, "quarn-opt: %s: %s\n", when.c_str(), toString(failure).c_str());
    }
    return verification.ok();
}

int run(const Options& options) {
    std::vector<const QN::Transform*> transforms;
    for (const std::string& name : options.passes) {
        transforms.push_back(QN::transformNamed(name));
        if (transforms.back() == nullptr) {
            std::fprintf(stderr, "quarn-opt: no transform is named '%s'; see --list-passes\n",
                         name.c_str());
            return 2;
        }
    }
    const std::unique_ptr<QN::Scope> scope =
        options.generate ? QN::tools::generate({*options.generate}) : readScope(options.input);
    if (scope == nullptr) {
        return 1;
    }
    if (!options.noVerify && !isValid(*scope, "the input")) {
        return 1;
    }
    for (const QN::Transform* const transform : transforms) {
        onScopes(*scope, [&](QN::Scope& each) { QN::runTransformOnAll(*transform, each); });
        if (!options.noVerify && !isValid(*scope, "after " + std::string(transform->name))) {
            return 1;
        }
    }
    if (options.pipeline) {
        onScopes(*scope, [](QN::Scope& each) { QN::runPipeline(each); });
        if (!options.noVerify && !isValid(*scope, "after the pipeline")) {
            return 1;
        }
    }
    if (!options.run.function.empty()) {
        QN::tools::RunOptions how = options.run;
        how.sourceFile = options.input;
        std::string text;
        const bool fine = QN::tools::runFunction(*scope, how, text);
        return writeOutput(options.output, text) && fine ? 0 : 1;
    }
    return writeOutput(options.output, printed(*scope, options)) ? 0 : 1;
}

// The options of main(), and which of them mean nothing without another or beside it.
void declare(CLI::App& app, Options& options) {
    app.name("quarn-opt");
    CLI::Option* const file = app.add_option(
        "FILE", options.input, "QNEL or serialized IR to read; '-' is standard input");
    app.add_option("-o", options.output, "where to print; '-' is standard output");
    app.add_option("--passes", options.passes, "transforms to run, in order: a,b,c")
        ->delimiter(',')
        ->allow_extra_args(false);
    app.add_option("--generate", options.generate, "take IR made at random from this seed as input")
        ->excludes(file);
    app.add_flag("--pipeline", options.pipeline, "run the whole pipeline (after --passes)");
    app.add_option("--print", options.print, "form of the output")
        ->check(CLI::IsMember({"qnel", "text", "dot", "html", "none"}));
    app.add_flag("--no-verify", options.noVerify,
                 "do not check the input and what transforms make");
    app.add_flag("--disambiguate", options.disambiguate, "tell equal names of variables apart");
    app.add_flag("--show-modes", options.showModes, "show rounding and overflow");
    CLI::Option* const run = app.add_option("--run", options.run.function,
                                            "call this function instead of printing the IR");
    app.add_option("--engine", options.run.engine, "what runs it")
        ->check(CLI::IsMember({"evaluator", "llvm"}))
        ->needs(run);
    app.add_option("--args", options.run.arguments,
                   "its arguments: a,b,c; numbers, true, false, and columns as 1;2;3")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->needs(run);
    app.add_option("--level", options.run.level, "LLVM's optimization, 0 to 4 for this processor")
        ->check(CLI::Range(0, 4))
        ->needs(run);
    app.add_flag("--debug-info", options.run.debugInfo, "tell debuggers about the code")
        ->needs(run);
    app.add_flag("--preserve-frames", options.run.preserveFrames, "keep frame pointers")
        ->needs(run);
    app.add_flag("--valgrind-print", options.run.valgrindPrint,
                 "print what is executed in valgrind's log")
        ->needs(run);
    app.add_flag("--list-passes", options.listPasses, "list the transforms and leave");
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Reads QNEL, runs transforms, prints the result."};
    declare(app, options);
    // CLI11 would take the next word for the value.
    for (const std::string_view word : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
        if (word.starts_with("--") && word.find('=') == word.size() - 1) {
            std::fprintf(stderr, "quarn-opt: nothing stands behind %s\n", word.data());
            return 2;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& wrong) {
        return app.exit(wrong) == 0 ? 0 : 2;
    }
    try {
        return options.listPasses ? (listPasses(options) ? 0 : 1) : run(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "quarn-opt: %s\n", failure.what());
        return 1;
    }
}
