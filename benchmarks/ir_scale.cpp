// The groups `scale-nodes` and `scale-functions`: every transform and every service at three sizes,
// per node, so that a row that grows faster than its input is seen at once. The columns are sizes.
#include "groups.hpp"
#include "ir_workload.hpp"

#include <qn/collect_statistics_service.hpp>
#include <qn/console.hpp>
#include <qn/ir.hpp>
#include <qn/name_printing_service.hpp>
#include <qn/pages.hpp>
#include <qn/pipeline.hpp>
#include <qn/pool_memory_tracking_service.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/scramble_service.hpp>
#include <qn/serializer.hpp>
#include <qn/serializer_fbt_service.hpp>
#include <qn/text.hpp>
#include <qn/transform.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/transform_profiler_service.hpp>
#include <qn/user_var_logging_service.hpp>
#include <qn/verify.hpp>
#include <ts/debug_log.hpp>

#include <array>
#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench {
namespace {

using Source = std::shared_ptr<const QN::Scope>;
/// What is measured; it may change the scope.
using Act = std::function<void(QN::Scope&)>;

/// Each repetition gets a fresh copy, which is part of what is measured; the first row says how
/// much it is.
LoopMaker onCopies(Source source, Act act) {
    return [source, act] {
        return repeat([source, act] {
            const auto scope = copyOf(*source);
            act(*scope);
        });
    };
}

bool doNothing(QN::Function& function) {
    keep(&function);
    return false;
}
bool doNothingToScope(QN::Scope& scope) {
    keep(&scope);
    return false;
}
constexpr QN::Transform nothing{"nothing", "does nothing", doNothing, nullptr};
constexpr QN::Transform nothingOnScope{"nothing", "does nothing", nullptr, doNothingToScope};

/// Where files cost the least: in memory, if the system has such a place. A service writes a file
/// for each side of each run, which is 20,000 of them in one repetition.
std::filesystem::path placeForFiles() {
    const std::filesystem::path memory = "/dev/shm";
    return access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

/// Files go to a folder of their own, which is removed with all that is in it.
class Folder {
public:
    Folder() : old_(log().logDirectory()) {
        std::string path = (placeForFiles() / "bench-services-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no folder for the services' files can be made: " + path);
        }
        path_ = path;
        log().setLogDirectory(path);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        log().setLogDirectory(old_);
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

private:
    static tssv::debug::DebugLog& log() { return QN::DefaultServices::debugServices().debugLog(); }
    std::string old_;
    std::string path_;
};

/// While one lives, what services say on the console is dropped.
class Silence {
public:
    Silence() {
        QN::setConsoleSink([](void*, std::string_view) {}, nullptr);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence() { QN::setConsoleSink(nullptr, nullptr); }
};

/// A service around runs that do nothing, on each function and then on the scope.
template <typename Make>
Act watching(Make make) {
    return [make](QN::Scope& scope) {
        const Folder folder;
        const Silence silence;
        const auto service = make();
        QN::DefaultServices::debugServices().addService(service.get());
        runTransformOnAll(nothing, scope);
        runTransform(nothingOnScope, scope);
        QN::DefaultServices::debugServices().removeService(service.get());
    };
}

template <typename Service>
std::unique_ptr<Service> bothSides() {
    return std::make_unique<Service>(true, true);
}

std::unique_ptr<QN::PrettyPrintService> printing(QN::PrettyPrintService::OutputFormat format) {
    auto service = std::make_unique<QN::PrettyPrintService>(true, true);
    service->setOutputFormat(format);
    return service;
}

/// Takes text and keeps nothing.
class NullStream : private std::streambuf, public std::ostream {
public:
    NullStream() : std::ostream(this) {}

private:
    int overflow(int character) override { return character; }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

struct NamePrinter {
    NullStream stream;
    QN::NamePrintingService service{stream};
};

struct Named {
    std::string name;
    Act act;
};

std::vector<Named> services() {
    using Format = QN::PrettyPrintService::OutputFormat;
    std::vector<Named> all = {
        {"pretty printer, text", watching([] { return printing(Format::Text); })},
        {"pretty printer, qnel", watching([] { return printing(Format::Qnel); })},
        {"pretty printer, dot", watching([] { return printing(Format::Dot); })},
        {"pretty printer, html", watching([] { return printing(Format::Html); })},
        {"sanity checks", watching([] {
             return std::make_unique<QN::SanityCheckService>(
                 true, true, QN::SanityCheckService::OutputType::None);
         })},
        {"pool tracking", watching([] {
             auto service = bothSides<QN::PoolMemoryTrackingService>();
             return service;
         })},
        {"scrambler", watching([] {
             auto service = bothSides<QN::ScrambleService>();
             service->setIntroducePointers(true);
             return service;
         })},
        {"transform profiler", watching(bothSides<QN::TransformProfilerService>)},
        {"transform log", watching([] {
             auto service = std::make_unique<QN::TransformLogService>();
             service->setEnable(true);
             return service;
         })},
        {"serializer", watching(bothSides<QN::SerializerFbtService>)},
        {"user variable log", watching(bothSides<QN::UserVarLoggingService>)},
        {"statistics", watching([] { return std::make_unique<QN::CollectStatisticsService>(); })},
        {"name printer", watching([] {
             const auto printer = std::make_shared<NamePrinter>();
             return std::shared_ptr<QN::NamePrintingService>(printer, &printer->service);
         })},
    };
    return all;
}

std::vector<Named> operations() {
    std::vector<Named> all = {{"the copy alone", [](QN::Scope&) {}}};
    for (const QN::Transform& transform : QN::allTransforms()) {
        all.push_back({std::string(transform.name),
                       [&transform](QN::Scope& scope) { runTransformOnAll(transform, scope); }});
    }
    all.push_back({"the whole pipeline", QN::runPipeline});
    all.push_back({"verify", [](QN::Scope& scope) {
                       const auto found = verify(scope, {.unreachableBlocks = true});
                       if (!found.ok()) {
                           throw std::runtime_error("the IR is not valid");
                       }
                   }});
    all.push_back({"print QNEL and parse it", [](QN::Scope& scope) {
                       std::string text;
                       printQnel(scope, text);
                       QN::ParseError error;
                       if (parseQnel(text, error) == nullptr) {
                           throw std::runtime_error(error.format("QNEL"));
                       }
                   }});
    all.push_back({"serialize and read", [](QN::Scope& scope) {
                       std::string error;
                       if (QN::deserialize(serialize(scope), error) == nullptr) {
                           throw std::runtime_error(error);
                       }
                   }});
    for (Named& service : services()) {
        all.push_back(std::move(service));
    }
    return all;
}

using MakeSource = std::unique_ptr<QN::Scope> (*)(std::size_t);

Group scale(const std::array<std::size_t, 3>& sizes, const char* unit, MakeSource make) {
    Group group;
    group.rowNanoseconds = 5e9;
    std::vector<Source> sources;
    std::vector<double> nodes;
    for (const std::size_t size : sizes) {
        sources.push_back(make(size));
        nodes.push_back(static_cast<double>(nodesOf(*sources.back())));
        group.subjects.push_back(std::to_string(size) + unit);
    }
    for (Named& operation : operations()) {
        Row row;
        row.operation = operation.name;
        row.instructionRepetitions = 1;
        row.unitsOfEach = nodes;
        for (const Source& source : sources) {
            row.makers.push_back(onCopies(source, operation.act));
        }
        group.rows.push_back(std::move(row));
    }
    group.notes = {"per node, with the copy; n log n would allow x1.33 and x1.67 from the first "
                   "size to the second and third, and caches take their share beyond that"};
    return group;
}

} // namespace

Group buildScaleNodes() {
    return scale({1'000, 10'000, 100'000}, " nodes", makeOneFunction);
}

Group buildScaleFunctions() {
    return scale({100, 1'000, 10'000}, " functions", makeManyFunctions);
}

} // namespace bench
