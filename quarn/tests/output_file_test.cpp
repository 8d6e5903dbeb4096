// A file that grows: whole pieces or nothing, under its name or not at all.
#include "services/output_file.hpp"
#include "tests/service_support.hpp"

using namespace QN;
using namespace QN::testing_support;
using QN::detail::GrowingFile;

namespace {

class GrowingFiles : public ServiceTest {
protected:
    std::string path = folder + "/grows.txt";
    GrowingFile file;
};

} // namespace

TEST_F(GrowingFiles, BeginsWithItsHead) {
    EXPECT_FALSE(file.append("nowhere"));
    ASSERT_TRUE(file.create(path, "head\n"));
    EXPECT_TRUE(file.append("line\n"));
    EXPECT_EQ(contentsOf(path), "head\nline\n");
}

TEST_F(GrowingFiles, DoesNotStayWithoutItsHead) {
    {
        const FullDisk full(3);
        EXPECT_FALSE(file.create(path, "head\n"));
        EXPECT_FALSE(file.create(path, "head\n"));
    }
    EXPECT_EQ(console, "Cannot write to '" + path + "': File too large.\n");
    EXPECT_FALSE(file.isThere());
    EXPECT_TRUE(filesIn(folder).empty());
    EXPECT_TRUE(file.create(path, "head\n"));
}

TEST_F(GrowingFiles, IsThereWhileItStandsUnderItsPath) {
    EXPECT_FALSE(file.isThere());
    ASSERT_TRUE(file.create(path));
    EXPECT_TRUE(file.isThere());
    std::filesystem::rename(path, path + ".old");
    EXPECT_FALSE(file.isThere());
    std::ofstream(path) << "somebody else's";
    EXPECT_FALSE(file.isThere());
    std::filesystem::rename(path + ".old", path);
    EXPECT_TRUE(file.isThere());
    file.close();
    EXPECT_FALSE(file.isThere());
}
