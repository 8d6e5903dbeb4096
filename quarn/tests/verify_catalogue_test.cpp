// The catalogue of check ids: equal to the compiled list, and read with care.
#include <qn/chk_id_uniqueness_verifier.hpp>
#include <qn/verify.hpp>

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <stdlib.h>

using namespace QN;
namespace fs = std::filesystem;

namespace {

class CatalogueTest : public ::testing::Test {
protected:
    CatalogueTest() {
        std::string pattern = (fs::temp_directory_path() / "catalogue-XXXXXX").string();
        root = ::mkdtemp(pattern.data());
    }
    ~CatalogueTest() override { fs::remove_all(root); }

    void write(const std::string& text) const {
        const fs::path path = fs::path(root) / ChkIdUniquenessVerifier::cataloguePath;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }
    std::string messageOf() const {
        try {
            (void)ChkIdUniquenessVerifier::allCheckIds(root);
        } catch (const CatalogueError& error) {
            return error.what();
        }
        return "no error";
    }

    std::string root;
};

} // namespace

TEST(Checks, AreManyWithDistinctIdsAndMeanings) {
    std::set<std::string_view> ids;
    std::set<std::string_view> meanings;
    for (const CheckInfo& check : allChecks()) {
        ids.insert(check.id);
        meanings.insert(check.meaning);
    }
    EXPECT_GE(ids.size(), 30U);
    EXPECT_EQ(ids.size(), allChecks().size());
    EXPECT_EQ(meanings.size(), allChecks().size());
}

TEST(Checks, TheCatalogueOfTheBuildTreeIsTheCompiledList) {
    // This program lies in tests/ of the build tree, which mirrors the installed one.
    const fs::path root = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
    std::vector<std::string> expected;
    std::string rows;
    for (const CheckInfo& check : allChecks()) {
        expected.emplace_back(check.id);
        rows.append(check.id).append(" ").append(check.meaning).append("\n");
    }
    EXPECT_EQ(ChkIdUniquenessVerifier::allCheckIds(root.string()), expected);
    EXPECT_EQ(ChkIdUniquenessVerifier::allCheckIds(root.string() + "/"), expected);

    std::ifstream file(root / ChkIdUniquenessVerifier::cataloguePath);
    std::string comment;
    std::getline(file, comment);
    EXPECT_EQ(comment.front(), '#');
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), rows);
}

TEST_F(CatalogueTest, KeepsTheOrderOfTheFile) {
    write("# comment\n\n  zeta.last\twhat must hold\nalpha one word\r\n   # another\nm.m x\n");
    EXPECT_THAT(ChkIdUniquenessVerifier::allCheckIds(root),
                ::testing::ElementsAre("zeta.last", "alpha", "m.m"));
}

TEST_F(CatalogueTest, RefusesADoubledIdAndNamesBothLines) {
    write("a.b one\nc.d two\n\na.b three\n");
    EXPECT_EQ(messageOf(), "The catalogue of checks " + root +
                               "/share/varnix/quarn/checks.catalogue has the id 'a.b' twice, on "
                               "lines 1 and 4.");
}

TEST_F(CatalogueTest, RefusesAnIdWithoutAMeaning) {
    write("a.b one\nc.d  \n");
    EXPECT_EQ(messageOf(), "The catalogue of checks " + root +
                               "/share/varnix/quarn/checks.catalogue does not say what 'c.d' on "
                               "line 2 checks.");
}

TEST_F(CatalogueTest, SaysThatTheFileIsMissing) {
    EXPECT_EQ(messageOf(), "The catalogue of checks " + root +
                               "/share/varnix/quarn/checks.catalogue cannot be read: No such file "
                               "or directory.");
}
