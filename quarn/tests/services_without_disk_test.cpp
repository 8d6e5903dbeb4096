// No service changes what a compilation makes, also when it cannot write: with a folder that cannot
// be made, or a disk that is full, there is a message, nothing is left half-written under its final
// name, and the IR comes out as without the service.
#include "tests/service_support.hpp"
#include "tools/generate.hpp"

#include <qn/pipeline.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/serializer_fbt_service.hpp>
#include <qn/text.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/transform_profiler_service.hpp>
#include <qn/user_var_logging_service.hpp>

#include <functional>
#include <gmock/gmock.h>
#include <memory>

using namespace QN;
using namespace QN::testing_support;
using ::testing::HasSubstr;

namespace {

/// One way of using one service.
struct Writer {
    std::string name;
    std::function<std::shared_ptr<Service>()> make;
    /// Whether its files grow line by line; the others appear whole.
    bool grows = false;
};

std::shared_ptr<Service> printing(PrettyPrintService::OutputFormat format) {
    auto service = std::make_shared<PrettyPrintService>(true, true);
    service->setOutputFormat(format);
    return service;
}

std::vector<Writer> writers() {
    using Format = PrettyPrintService::OutputFormat;
    return {
        {"PrettyPrinterHtml", [] { return printing(Format::Html); }},
        {"PrettyPrinterText", [] { return printing(Format::Text); }},
        {"PrettyPrinterQnel", [] { return printing(Format::Qnel); }},
        {"PrettyPrinterDot", [] { return printing(Format::Dot); }},
        {"Serializer", [] { return std::make_shared<SerializerFbtService>(true, true); }},
        {"Profiler",
         [] {
             auto service = std::make_shared<TransformProfilerService>(true, true);
             service->setEventEmitThreshold(5);
             return service;
         }},
        {"SanityChecks",
         [] {
             auto service = std::make_shared<SanityCheckService>(
                 true, true, SanityCheckService::OutputType::DetailsToFile);
             service->setWarningThreshold(0);
             return service;
         },
         true},
        {"TransformLog",
         [] {
             auto service = std::make_shared<TransformLogService>();
             service->setEnable(true);
             return service;
         },
         true},
        {"UserVarLog", [] { return std::make_shared<UserVarLoggingService>(true, true); }, true},
    };
}

class WithoutDisk : public ServiceTest, public ::testing::WithParamInterface<Writer> {
protected:
    /// What the pipeline makes of a generated scope that has something harmless wrong in it for the
    /// checks to tell: lines that no source has.
    static std::string compiled() {
        const auto scope = tools::generate({.seed = 4, .functions = 4, .statements = 20});
        for (const auto& function : scope->functions()) {
            for (Node& node : function->cfg().entry()->nodes()) {
                node.setLine(1U << 24);
            }
        }
        runPipeline(*scope);
        std::string text;
        printQnel(*scope, text);
        return text;
    }
    /// All files under the folder, with what is in them.
    std::vector<std::pair<std::string, std::string>> files() const {
        std::vector<std::pair<std::string, std::string>> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file()) {
                found.emplace_back(entry.path().string(), contentsOf(entry.path()));
            }
        }
        return found;
    }
};

} // namespace

TEST_P(WithoutDisk, WritesWhenItCan) {
    const std::string expected = compiled();
    const auto service = GetParam().make();
    EXPECT_EQ(compiled(), expected);
    EXPECT_FALSE(files().empty());
    EXPECT_EQ(console, "");
}

TEST_P(WithoutDisk, AFolderThatCannotBeMadeChangesNothing) {
    const std::string expected = compiled();
    log.setLogDirectory("/dev/null/folder");
    const auto service = GetParam().make();
    EXPECT_EQ(compiled(), expected);
    EXPECT_THAT(console, HasSubstr("annot "));
    EXPECT_THAT(console, HasSubstr("Not a directory"));
    EXPECT_EQ(linesOf(console).size(), 1U) << console;
    EXPECT_TRUE(files().empty());
}

TEST_P(WithoutDisk, AFullDiskLeavesNothingHalfWritten) {
    const std::string expected = compiled();
    constexpr rlim_t room = 50; // less than any whole file has
    std::string made;
    {
        const auto service = GetParam().make();
        const FullDisk full(room);
        made = compiled();
    }
    EXPECT_EQ(made, expected);
    EXPECT_THAT(console, HasSubstr("File too large"));
    for (const auto& [path, contents] : files()) {
        // A log may have been begun; what is in it are whole lines.
        EXPECT_TRUE(GetParam().grows || path.ends_with("index.html")) << path;
        EXPECT_TRUE(contents.empty() || contents.back() == '\n') << path << ":\n" << contents;
        EXPECT_LE(contents.size(), room);
    }
}

INSTANTIATE_TEST_SUITE_P(Services, WithoutDisk, ::testing::ValuesIn(writers()),
                         [](const auto& test) { return test.param.name; });
