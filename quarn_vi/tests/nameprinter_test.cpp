// internal.quarn.NamePrinter: its two constructors and its registration.

#include "debug/nameprinter.hpp"
#include "tests/runs.hpp"

#include <qn/default_services.hpp>
#include <qn/name_printing_service.hpp>

#include <filesystem>
#include <fstream>
#include <memory>
#include <unistd.h>

namespace {

using controllers::Member;
using controllers::Object;

std::string temporaryFile() {
    return testing::TempDir() + "nameprinter-" + std::to_string(::getpid()) + ".txt";
}

Object intoFile(const std::string& name) {
    const auto text = sample::text(name);
    return Object("NamePrinter", {sample::arrayValue(text)});
}

TEST(NamePrinter, declaresItsMembers) {
    EXPECT_EQ(controllers::propertiesOf("NamePrinter"),
              (std::vector<Member>{{"Enabled", "logical scalar", false, 0}}));
    EXPECT_TRUE(controllers::methodsOf("NamePrinter").empty());
    EXPECT_EQ(controllers::scriptClass("NamePrinter").constructors().size(), 2u);
}

TEST(NamePrinter, switchesItsOwnServiceInTheContainer) {
    const Object a("NamePrinter");
    const Object b("NamePrinter");
    QN::ServiceContainer& services = QN::DefaultServices::debugServices();
    QN::Service* const service = a.native<quarn_vi::debug::NamePrinter>().service();
    EXPECT_FALSE(a.flag("Enabled"));
    a.set("Enabled", true);
    EXPECT_TRUE(services.isRegistered(service));
    EXPECT_FALSE(b.flag("Enabled"));
    const auto text = sample::text("off");
    controllers::expectWrongType(a, "Enabled", sample::arrayValue(text));
    EXPECT_TRUE(a.flag("Enabled"));
    services.removeService(service); // behind the controller's back
    EXPECT_FALSE(a.flag("Enabled"));
}

TEST(NamePrinter, truncatesItsFileAtConstruction) {
    const std::string file = temporaryFile();
    std::ofstream(file) << "old contents\n";
    const Object object = intoFile(file);
    EXPECT_EQ(std::filesystem::file_size(file), 0u);
    std::filesystem::remove(file);
}

TEST(NamePrinter, printsOnStandardOutputOnceItIsEnabled) {
    const Object object("NamePrinter");
    controllers::Program program;
    EXPECT_EQ(controllers::printed([&] {
                  program.idle();
                  object.set("Enabled", true);
                  program.idle();
                  object.set("Enabled", false);
                  program.idle();
              }),
              "idle-fcn_f\n");
}

/// How many of the process's open files are this one.
long timesOpen(const std::string& file) {
    long count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == std::filesystem::canonical(file))
            ++count;
    }
    return count;
}

TEST(NamePrinter, printsIntoItsFileWhichStaysOpenWhenItDies) {
    const std::string file = temporaryFile();
    controllers::Program program;
    auto printer = std::make_unique<quarn_vi::debug::NamePrinter>(file);
    EXPECT_EQ(controllers::printed([&] {
                  printer->setEnabled(true);
                  program.idle();
                  EXPECT_EQ(controllers::contentsOf(file), "idle-fcn_f\n"); // not when it is closed
                  program.idle();
              }),
              "");
    EXPECT_EQ(timesOpen(file), 1);
    printer.reset(); // while its service is registered
    program.idle();
    EXPECT_EQ(timesOpen(file), 1);
    EXPECT_EQ(controllers::contentsOf(file), "idle-fcn_f\nidle-fcn_f\n");
    std::filesystem::remove(file);
}

TEST(NamePrinter, handleOnlyUnbindsItsObject) {
    auto handle = std::make_unique<Object>("NamePrinter");
    handle->set("Enabled", true);
    const std::unique_ptr<quarn_vi::debug::NamePrinter> native(
        &handle->native<quarn_vi::debug::NamePrinter>());
    handle.reset();
    EXPECT_TRUE(native->enabled());
    native->setEnabled(false);
}

TEST(NamePrinter, fileThatCannotBeOpenedIsNotReported) {
    std::string error;
    EXPECT_EQ(controllers::printed([&] {
                  error = sample::errorOf([] {
                      const Object object = intoFile("/no such folder/names.txt");
                      object.set("Enabled", true);
                      controllers::Program().idle();
                      object.set("Enabled", false);
                  });
              }),
              "");
    EXPECT_EQ(error, "no error");
}

TEST(NamePrinter, fileNameMustBeAText) {
    EXPECT_EQ(sample::errorOf([] { Object("NamePrinter", {sample::number(1)}); }),
              "varnix:wrongType");
    EXPECT_EQ(sample::errorOf([] {
                  Object("NamePrinter", {sample::number(1), sample::number(2)});
              }),
              "varnix:tooManyInputs");
}

} // namespace
