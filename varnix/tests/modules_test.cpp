// Module loading: what a sound module does, and a clear error for every broken one.
#include "shell/console.hpp"
#include "shell/modules.hpp"

#include <objsys/class.hpp>
#include <objsys/error.hpp>
#include <objsys/package.hpp>

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using objsys::COSClass;
using objsys::COSError;
using objsys::COSNameID;
using objsys::COSPackage;
using testing::ElementsAre;
using testing::HasSubstr;
using varnix::ModuleLoader;

/// The small modules stand beside the test program (tests/modules at the root of the tree).
fs::path moduleFolder() {
    return fs::read_symlink("/proc/self/exe").parent_path() / "modules";
}

std::string moduleFile(const std::string& name) {
    return (moduleFolder() / (name + ".so")).string();
}

/// A fresh folder that goes with the test.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "modules-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    [[nodiscard]] const fs::path& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const {
        return (path_ / name).string();
    }

private:
    fs::path path_;
};

/// The message of the error with which a file is refused; the loader must be as before.
std::string refusal(ModuleLoader& loader, const std::string& path) {
    const std::size_t before = loader.modules().size();
    std::string message = "(no error)";
    try {
        loader.load(path);
    } catch (const COSError& error) {
        EXPECT_EQ(error.identifier(), "varnix:badModule");
        message = error.message();
    }
    EXPECT_EQ(loader.modules().size(), before);
    EXPECT_THAT(message, HasSubstr(path));
    return message;
}

TEST(Modules, LoadsInitializesAndTerminates) {
    varnix::console::Capture console;
    {
        ModuleLoader loader;
        const varnix::ModuleInfo& info = loader.load(moduleFile("sound"));
        EXPECT_EQ(info.name, "sound");
        EXPECT_EQ(info.path, moduleFile("sound"));
        EXPECT_EQ(info.version, "1.2.3");
        EXPECT_EQ(info.buildDate, "Jan 1 2001");
        EXPECT_NE(COSClass::find(COSNameID("internal.sound.Probe")), nullptr);
        EXPECT_EQ(console.text(), "sound: initialize\n");
        loader.unload("sound");
    }
    EXPECT_EQ(console.text(), "sound: initialize\nsound: terminate\n");
}

TEST(Modules, UnloadWithdrawsWhatWasPublishedAndALaterLoadPublishesItAgain) {
    varnix::console::Capture console;
    ModuleLoader loader;
    for (int turn = 0; turn < 3; ++turn) {
        loader.load(moduleFile("sound"));
        ASSERT_NE(COSClass::find(COSNameID("internal.sound.Probe")), nullptr);
        hvArray* const object = COSClass::get(COSNameID("internal.sound.Probe")).construct({});
        objsys::COSInterface* const instance = objsys::COSInterface::ofHandle(object);
        EXPECT_TRUE(instance->isValid());
        loader.unload("sound");
        // The object outlives its module, as an invalid handle.
        EXPECT_FALSE(instance->isValid());
        EXPECT_EQ(COSClass::find(COSNameID("internal.sound.Probe")), nullptr);
        EXPECT_EQ(COSPackage::getPackage(COSNameID("internal.sound")), nullptr);
        EXPECT_NE(COSPackage::getPackage(COSNameID("internal")), nullptr);
        hvDestroyArray(object);
        // The code is gone: nothing of the file is mapped.
        std::ifstream maps("/proc/self/maps");
        const std::string text((std::istreambuf_iterator<char>(maps)), {});
        EXPECT_THAT(text, testing::Not(HasSubstr("/sound.so")));
    }
    const std::string oneTurn = "sound: initialize\nsound: terminate\nprobe destroyed\n";
    EXPECT_EQ(console.text(), oneTurn + oneTurn + oneTurn);
}

TEST(Modules, UnloadTakesOnlyItsOwnClasses) {
    varnix::console::Capture console;
    ModuleLoader loader;
    loader.load(moduleFile("sound"));
    loader.load(moduleFile("second"));
    loader.unload("sound");
    EXPECT_EQ(COSClass::find(COSNameID("internal.sound.Probe")), nullptr);
    EXPECT_NE(COSClass::find(COSNameID("internal.second.Probe")), nullptr);
    ASSERT_EQ(loader.modules().size(), 1U);
    EXPECT_EQ(loader.modules()[0].name, "second");
    loader.unload("second");
}

TEST(Modules, UnloadOfAnUnknownModuleIsAnError) {
    ModuleLoader loader;
    try {
        loader.unload("sound");
        FAIL();
    } catch (const COSError& error) {
        EXPECT_EQ(error.identifier(), "varnix:undefined");
    }
}

TEST(Modules, AnErrorInTerminateIsReportedAfterTheModuleIsGone) {
    varnix::console::Capture console;
    ModuleLoader loader;
    loader.load(moduleFile("terminate_throws"));
    try {
        loader.unload("terminate_throws");
        FAIL();
    } catch (const COSError& error) {
        EXPECT_EQ(error.identifier(), "varnix:badModule");
        EXPECT_THAT(error.message(), HasSubstr("the end failed"));
    }
    EXPECT_TRUE(loader.modules().empty());
    EXPECT_EQ(COSPackage::getPackage(COSNameID("internal.terminate_throws")), nullptr);
}

TEST(Modules, ASecondLoadOfTheSameModuleIsRefused) {
    varnix::console::Capture console;
    ModuleLoader loader;
    loader.load(moduleFile("sound"));
    EXPECT_THAT(refusal(loader, moduleFile("sound")), HasSubstr("loaded already"));
    EXPECT_EQ(console.text(), "sound: initialize\n");
    loader.unload("sound");
}

TEST(Modules, EachMissingExportIsNamed) {
    varnix::console::Capture console;
    ModuleLoader loader;
    EXPECT_THAT(refusal(loader, moduleFile("no_initialize")),
                HasSubstr("it does not export VNInitialize_no_initialize"));
    EXPECT_THAT(refusal(loader, moduleFile("no_terminate")),
                HasSubstr("it does not export VNTerminate_no_terminate"));
    EXPECT_THAT(refusal(loader, moduleFile("no_query")),
                HasSubstr("it does not export QueryVNFcnTable_no_query"));
    EXPECT_THAT(refusal(loader, moduleFile("no_version")),
                HasSubstr("it does not export no_version_version"));
    EXPECT_THAT(refusal(loader, moduleFile("no_build_date")),
                HasSubstr("it does not export no_build_date_build_date"));
    EXPECT_EQ(console.text(), ""); // none of them was started
}

TEST(Modules, AWrongFunctionTableIsRefusedBeforeTheModuleIsStarted) {
    varnix::console::Capture console;
    ModuleLoader loader;
    EXPECT_THAT(refusal(loader, moduleFile("null_table")),
                HasSubstr("QueryVNFcnTable_null_table gives no table"));
    EXPECT_THAT(refusal(loader, moduleFile("null_entries")),
                HasSubstr("QueryVNFcnTable_null_entries gives no table"));
    EXPECT_THAT(refusal(loader, moduleFile("wrong_first_word")), HasSubstr("identification words"));
    EXPECT_THAT(refusal(loader, moduleFile("wrong_second_word")),
                HasSubstr("identification words"));
    EXPECT_THAT(refusal(loader, moduleFile("null_version")), HasSubstr("version"));
    EXPECT_EQ(console.text(), "");
}

TEST(Modules, AnErrorInInitializeRefusesTheModule) {
    varnix::console::Capture console;
    ModuleLoader loader;
    EXPECT_THAT(refusal(loader, moduleFile("throws_host_error")), HasSubstr("the start failed"));
    EXPECT_THAT(refusal(loader, moduleFile("throws_standard_error")),
                HasSubstr("a standard error"));
    EXPECT_THAT(refusal(loader, moduleFile("throws_number")),
                HasSubstr("something that is no error"));
}

TEST(Modules, WhatWasPublishedBeforeAnErrorIsWithdrawn) {
    varnix::console::Capture console;
    ModuleLoader loader;
    EXPECT_THAT(refusal(loader, moduleFile("throws_after_publishing")),
                HasSubstr("an error of a type of its own"));
    EXPECT_EQ(COSPackage::getPackage(COSNameID("internal.throws_after_publishing")), nullptr);
    EXPECT_EQ(COSClass::find(COSNameID("internal.throws_after_publishing.Probe")), nullptr);
    EXPECT_EQ(console.text(), "throws_after_publishing: initialize\n"); // never terminated
}

TEST(Modules, UnresolvedSymbolsAreFoundAtOnce) {
    varnix::console::Capture console;
    ModuleLoader loader;
    EXPECT_THAT(refusal(loader, moduleFile("unresolved")), HasSubstr("thisFunctionIsNowhere"));
    EXPECT_EQ(console.text(), "");
}

TEST(Modules, FilesThatAreNoLibraryAreRefused) {
    ModuleLoader loader;
    const TemporaryFolder folder;
    EXPECT_THAT(refusal(loader, folder.file("absent.so")), HasSubstr("there is no such file"));
    std::ofstream(folder.file("empty.so")).close();
    EXPECT_THAT(refusal(loader, folder.file("empty.so")), HasSubstr("the file is empty"));
    std::ofstream(folder.file("words.so")) << "This is no library.\n";
    EXPECT_THAT(refusal(loader, folder.file("words.so")), HasSubstr("not a loadable library"));
    fs::create_directory(folder.file("folder.so"));
    EXPECT_THAT(refusal(loader, folder.file("folder.so")), HasSubstr("it is a folder"));
    ASSERT_EQ(mkfifo(folder.file("pipe.so").c_str(), 0600), 0);
    EXPECT_THAT(refusal(loader, folder.file("pipe.so")), HasSubstr("it is not a regular file"));
    fs::create_symlink(folder.file("absent.so"), folder.file("dangling.so"));
    EXPECT_THAT(refusal(loader, folder.file("dangling.so")), HasSubstr("there is no such file"));
}

TEST(Modules, ACutLibraryIsRefused) {
    ModuleLoader loader;
    const TemporaryFolder folder;
    std::ifstream whole(moduleFile("sound"), std::ios::binary);
    std::string bytes(200, '\0');
    whole.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::ofstream(folder.file("sound.so"), std::ios::binary) << bytes;
    EXPECT_THAT(refusal(loader, folder.file("sound.so")), HasSubstr("not a loadable library"));
}

TEST(Modules, AFileUnderAnotherNameLacksTheEntryPoints) {
    ModuleLoader loader;
    const TemporaryFolder folder;
    fs::copy_file(moduleFile("sound"), folder.file("renamed.so"));
    EXPECT_THAT(refusal(loader, folder.file("renamed.so")),
                HasSubstr("it does not export VNInitialize_renamed"));
}

TEST(Modules, FileNamesMustBeNames) {
    ModuleLoader loader;
    const TemporaryFolder folder;
    for (const char* name : {"two words.so", "sound.so.1", "sound", "lib-sound.so", ".so"}) {
        std::ofstream(folder.file(name)) << "x";
        EXPECT_THAT(refusal(loader, folder.file(name)),
                    HasSubstr("a module file is named NAME.so"));
    }
    EXPECT_THAT(refusal(loader, ""), HasSubstr("a module file is named NAME.so"));
}

TEST(Modules, AFolderIsLoadedInNameOrderAroundTheBrokenOnes) {
    varnix::console::Capture console;
    ModuleLoader loader;
    const TemporaryFolder folder;
    fs::copy_file(moduleFile("sound"), folder.file("sound.so"));
    fs::copy_file(moduleFile("second"), folder.file("second.so"));
    fs::copy_file(moduleFile("no_query"), folder.file("no_query.so"));
    std::ofstream(folder.file("empty.so")).close();
    std::ofstream(folder.file("notes.txt")) << "not looked at";
    const std::vector<std::string> messages = loader.loadFolder(folder.path().string(), false);
    EXPECT_THAT(messages, ElementsAre(HasSubstr("empty.so"), HasSubstr("no_query.so")));
    EXPECT_EQ(console.text(), "second: initialize\nsound: initialize\n");
    loader.unload("sound");
    loader.unload("second");
}

TEST(Modules, AMissingFolderIsAMessageUnlessItIsOptional) {
    ModuleLoader loader;
    const TemporaryFolder folder;
    EXPECT_THAT(loader.loadFolder(folder.file("absent"), false), ElementsAre(HasSubstr("absent")));
    EXPECT_THAT(loader.loadFolder(folder.file("absent"), true), ElementsAre());
}

} // namespace
